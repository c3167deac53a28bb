#include "model/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace inkharbour {

namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& target, int error) {
  throw std::filesystem::filesystem_error(what, target, std::error_code(error, std::generic_category()));
}

// The mode a newly created file gets under the process's umask.
mode_t defaultMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

void syncDirectory(const std::filesystem::path& directory) {
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;  // some file systems cannot open directories; the rename stands
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes) {
  const auto directory = target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");

  mode_t mode = defaultMode();
  struct stat existing {};
  if (::stat(target.c_str(), &existing) == 0) {
    if (S_ISDIR(existing.st_mode)) fail("Cannot replace a directory", target, EISDIR);
    mode = existing.st_mode & 07777;
  }

  std::string hiddenName(".");
  hiddenName += target.filename().string();
  hiddenName += ".tmp-XXXXXX";
  std::string temporary = (directory / hiddenName).string();
  const int fd = ::mkstemp(temporary.data());
  if (fd < 0) fail("Cannot create a temporary file", target, errno);

  auto abandon = [&](const char* what, int error) {
    ::close(fd);
    ::unlink(temporary.c_str());
    fail(what, target, error);
  };

  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      abandon("Cannot write the file", errno);
    }
    written += static_cast<std::size_t>(n);
  }
  if (::fchmod(fd, mode) != 0) abandon("Cannot set the file's permissions", errno);
  if (::fsync(fd) != 0) abandon("Cannot flush the file", errno);
  if (::close(fd) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    fail("Cannot close the file", target, error);
  }
  if (::rename(temporary.c_str(), target.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    fail("Cannot replace the file", target, error);
  }
  syncDirectory(directory);
}

}  // namespace inkharbour
