// DocxError: the one error type of package access and the importers. Its
// what() is the message the user sees.
#pragma once

#include <exception>
#include <filesystem>
#include <string>

namespace inkharbour {

class DocxError : public std::exception {
 public:
  enum class Kind { unzipFailed, missingEntry, parseFailed };

  // "Could not open archive: " + text.
  static DocxError unzipFailed(std::string text);
  // "Archive is missing " + path + " — not a valid file."
  static DocxError missingEntry(std::string path);
  // "Could not parse the document (" + path + ")."
  static DocxError parseFailed(std::string path);
  // A safety limit stopped the import: an unzipFailed whose text names the
  // member and the limit. Unlike a read failure it is never taken for an
  // absent optional member.
  static DocxError limitExceeded(std::string text);

  Kind kind() const { return kind_; }
  const std::string& payload() const { return payload_; }
  bool isLimit() const { return limit_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  DocxError(Kind kind, std::string payload, bool limit);

  Kind kind_;
  std::string payload_;
  bool limit_;
  std::string description_;
};

// The text shown to the user for a failed import or file operation: a
// DocxError's own message, or for a file-system failure a sentence naming the
// file ("The file “notes.txt” couldn’t be opened because there is no such
// file."; for a FIFO or device, or a folder to save in that does not exist,
// the FileError texts of model/regular_file.h).
std::string describeError(const std::exception& error);

}  // namespace inkharbour
