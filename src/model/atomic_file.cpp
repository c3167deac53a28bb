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

AtomicFile::AtomicFile(const std::filesystem::path& target)
    : target_(target),
      directory_(target.has_parent_path() ? target.parent_path() : std::filesystem::path(".")) {
  mode_ = defaultMode();
  struct stat existing {};
  if (::stat(target.c_str(), &existing) == 0) {
    if (S_ISDIR(existing.st_mode)) fail("Cannot replace a directory", target, EISDIR);
    mode_ = existing.st_mode & 07777;
  }
  std::string hiddenName(".");
  hiddenName += target.filename().string();
  hiddenName += ".tmp-XXXXXX";
  temporary_ = (directory_ / hiddenName).string();
  fd_ = ::mkstemp(temporary_.data());
  if (fd_ < 0) fail("Cannot create a temporary file", target, errno);
}

AtomicFile::~AtomicFile() {
  // Not committed: the target stays as it was.
  if (fd_ >= 0) ::close(fd_);
  if (!committed_) ::unlink(temporary_.c_str());
}

void AtomicFile::abandon(const char* what, int error) {
  ::close(fd_);
  fd_ = -1;
  ::unlink(temporary_.c_str());
  committed_ = true;  // nothing left for the destructor to undo
  fail(what, target_, error);
}

void AtomicFile::write(std::string_view bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd_, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      abandon("Cannot write the file", errno);
    }
    written += static_cast<std::size_t>(n);
  }
}

void AtomicFile::commit() {
  if (::fchmod(fd_, mode_) != 0) abandon("Cannot set the file's permissions", errno);
  if (::fsync(fd_) != 0) abandon("Cannot flush the file", errno);
  const int closed = ::close(fd_);
  fd_ = -1;
  if (closed != 0) abandon("Cannot close the file", errno);
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) abandon("Cannot replace the file", errno);
  committed_ = true;
  syncDirectory(directory_);
}

void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes) {
  AtomicFile file(target);
  file.write(bytes);
  file.commit();
}

}  // namespace inkharbour
