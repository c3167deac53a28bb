#include "model/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace inkharbour {

namespace {

class FileErrorCategory : public std::error_category {
 public:
  const char* name() const noexcept override { return "inkharbour.file"; }
  std::string message(int value) const override {
    switch (static_cast<FileError>(value)) {
      case FileError::notRegularFile:
        return "Not a regular file";
      case FileError::folderMissing:
        return "No such folder";
    }
    return "Unknown file error";
  }
};

std::error_code codeFor(const struct stat& info) {
  if (S_ISDIR(info.st_mode)) return std::error_code(EISDIR, std::generic_category());
  if (!S_ISREG(info.st_mode)) return FileError::notRegularFile;
  return {};
}

}  // namespace

const std::error_category& fileErrorCategory() {
  static const FileErrorCategory category;
  return category;
}

std::error_code make_error_code(FileError error) {
  return {static_cast<int>(error), fileErrorCategory()};
}

int openRegularFile(const std::filesystem::path& path, std::error_code& error) {
  error.clear();
  // Looked at before the open, so that a device is never opened at all.
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    error.assign(errno, std::generic_category());
    return -1;
  }
  if ((error = codeFor(info))) return -1;
  // Should a FIFO take the file's place meanwhile, the open still returns at
  // once, and the check after it refuses it.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    error.assign(errno, std::generic_category());
    return -1;
  }
  if (::fstat(fd, &info) != 0) {
    error.assign(errno, std::generic_category());
  } else {
    error = codeFor(info);
  }
  if (error) {
    ::close(fd);
    return -1;
  }
  // Reads of a regular file ignore the flag; clear it all the same.
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

}  // namespace inkharbour
