#include "importers/docx_error.h"

#include "model/regular_file.h"

namespace inkharbour {

DocxError::DocxError(Kind kind, std::string payload, bool limit)
    : kind_(kind), payload_(std::move(payload)), limit_(limit) {
  switch (kind_) {
    case Kind::unzipFailed:
      description_ = "Could not open archive: " + payload_;
      break;
    case Kind::missingEntry:
      description_ = "Archive is missing " + payload_ + " \u2014 not a valid file.";
      break;
    case Kind::parseFailed:
      description_ = "Could not parse the document (" + payload_ + ").";
      break;
  }
}

DocxError DocxError::unzipFailed(std::string text) {
  return DocxError(Kind::unzipFailed, std::move(text), false);
}
DocxError DocxError::missingEntry(std::string path) {
  return DocxError(Kind::missingEntry, std::move(path), false);
}
DocxError DocxError::parseFailed(std::string path) {
  return DocxError(Kind::parseFailed, std::move(path), false);
}
DocxError DocxError::limitExceeded(std::string text) {
  return DocxError(Kind::unzipFailed, std::move(text), true);
}

std::string describeError(const std::exception& error) {
  const auto* fileError = dynamic_cast<const std::filesystem::filesystem_error*>(&error);
  if (fileError == nullptr) return error.what();
  const std::string file = "The file \u201c" + fileError->path1().filename().string() + "\u201d";
  const auto code = fileError->code();
  if (code == std::errc::no_such_file_or_directory) {
    return file + " couldn\u2019t be opened because there is no such file.";
  }
  if (code == std::errc::permission_denied) {
    return file + " couldn\u2019t be opened because you don\u2019t have permission to view it.";
  }
  if (code == std::errc::illegal_byte_sequence) {
    return file + " couldn\u2019t be opened using text encoding Unicode (UTF-8).";
  }
  if (code == std::errc::is_a_directory) {
    return file + " couldn\u2019t be opened because it is a folder.";
  }
  if (code == FileError::notRegularFile) {
    return file +
           " couldn\u2019t be opened because it is not a regular file but a pipe, a device "
           "or a socket.";
  }
  if (code == FileError::folderMissing) {
    return file + " couldn\u2019t be saved because the folder \u201c" +
           fileError->path2().string() + "\u201d doesn\u2019t exist.";
  }
  return file + " couldn\u2019t be opened: " + code.message() + ".";
}

}  // namespace inkharbour
