#include "model/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "model/regular_file.h"

namespace inkharbour {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTemporaryMark = ".tmp-";
constexpr std::size_t kRandomPart = 6;  // mkstemp's XXXXXX
constexpr int kMaxLinks = 40;           // as the kernel's own limit

[[noreturn]] void fail(const char* what, const fs::path& target, std::error_code error) {
  throw fs::filesystem_error(what, target, error);
}

[[noreturn]] void fail(const char* what, const fs::path& target, int error) {
  fail(what, target, std::error_code(error, std::generic_category()));
}

// The mode a newly created file gets under the process's umask.
mode_t defaultMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

void syncDirectory(const fs::path& directory) {
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;  // some file systems cannot open directories; the rename stands
  ::fsync(fd);
  ::close(fd);
}

// The file `target` finally names: a rename over a link would replace the
// link and leave the file it points to as it was.
fs::path followLinks(const fs::path& target) {
  fs::path path = target;
  for (int hops = 0;; ++hops) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return path;
    if (hops == kMaxLinks) fail("Cannot follow the link", target, ELOOP);
    std::error_code error;
    const fs::path next = fs::read_symlink(path, error);
    if (error) fail("Cannot follow the link", path, error);
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
}

std::size_t longestName(const fs::path& directory) {
  const long limit = ::pathconf(directory.c_str(), _PC_NAME_MAX);
  return limit > 0 ? static_cast<std::size_t>(limit) : 255;
}

std::uint32_t fnv1a(std::string_view text) {
  std::uint32_t hash = 2166136261u;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return hash;
}

// "." + name + ".tmp-": what every temporary of this target starts with,
// the random part following. A name too long for that keeps what fits, cut
// between characters, and a hash of the whole, so that two long names that
// begin alike still get prefixes of their own.
std::string temporaryPrefix(const std::string& name, std::size_t longest) {
  const std::size_t fixed = 1 + kTemporaryMark.size() + kRandomPart;
  std::string prefix(".");
  if (name.size() + fixed <= longest) {
    prefix += name;
  } else {
    char hash[16];
    std::snprintf(hash, sizeof hash, "~%08x", static_cast<unsigned>(fnv1a(name)));
    const std::size_t hashed = fixed + 9;
    std::size_t keep = longest > hashed ? std::min(name.size(), longest - hashed) : 0;
    while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
    prefix.append(name, 0, keep);
    prefix += hash;
  }
  prefix += kTemporaryMark;
  return prefix;
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The descriptor still names the file at `path`.
bool stillAt(int fd, const std::string& path) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(fd, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && sameFile(opened, named);
}

// Removes the temporaries of this target that no write holds: every write
// locks its own until the rename, and a process that dies drops its locks,
// so an unlocked one was left by a write that was killed.
void removeStaleTemporaries(const fs::path& directory, const std::string& prefix) {
  std::error_code error;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.size() != prefix.size() + kRandomPart || !name.starts_with(prefix) ||
        !std::all_of(name.end() - kRandomPart, name.end(),
                     [](unsigned char c) { return std::isalnum(c) != 0; })) {
      continue;
    }
    const std::string path = it->path().string();
    struct stat named {};
    if (::lstat(path.c_str(), &named) != 0 || !S_ISREG(named.st_mode)) continue;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) continue;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && stillAt(fd, path)) ::unlink(path.c_str());
    ::close(fd);
  }
}

}  // namespace

AtomicFile::AtomicFile(const fs::path& target)
    : target_(followLinks(target)),
      directory_(target_.has_parent_path() ? target_.parent_path() : fs::path(".")) {
  // Failures name the file as the caller did, which is what the user chose.
  mode_ = defaultMode();
  struct stat existing {};
  if (::stat(target_.c_str(), &existing) == 0) {
    if (S_ISDIR(existing.st_mode)) fail("Cannot replace a directory", target, EISDIR);
    if (!S_ISREG(existing.st_mode)) {
      fail("Cannot replace the file", target, make_error_code(FileError::notRegularFile));
    }
    mode_ = existing.st_mode & 07777;
  } else if (errno != ENOENT && errno != ENOTDIR) {
    fail("Cannot replace the file", target, errno);
  }
  struct stat folder {};
  const bool folderThere = ::stat(directory_.c_str(), &folder) == 0;
  if (!folderThere && errno != ENOENT && errno != ENOTDIR) {
    fail("Cannot create a temporary file", target, errno);
  }
  if (!folderThere || !S_ISDIR(folder.st_mode)) {
    throw fs::filesystem_error("Cannot create a temporary file", target, directory_,
                               make_error_code(FileError::folderMissing));
  }

  const std::string prefix = temporaryPrefix(target_.filename().string(), longestName(directory_));
  removeStaleTemporaries(directory_, prefix);
  for (int attempt = 0;; ++attempt) {
    temporary_ = (directory_ / (prefix + "XXXXXX")).string();
    fd_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ < 0) fail("Cannot create a temporary file", target_, errno);
    if (::flock(fd_, LOCK_EX | LOCK_NB) == 0 && stillAt(fd_, temporary_)) break;
    // Another write's clean-up took it for a leftover between its creation
    // and the lock: it is gone, or about to go.
    ::close(fd_);
    fd_ = -1;
    if (attempt == 8) fail("Cannot create a temporary file", target_, EAGAIN);
  }
}

AtomicFile::~AtomicFile() {
  // Not committed: the target stays as it was. Removed while still locked.
  if (!committed_) ::unlink(temporary_.c_str());
  if (fd_ >= 0) ::close(fd_);
}

void AtomicFile::abandon(const char* what, int error) {
  ::unlink(temporary_.c_str());
  ::close(fd_);
  fd_ = -1;
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
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) abandon("Cannot replace the file", errno);
  committed_ = true;
  // Closed, and so unlocked, only after the rename: until then another
  // write's clean-up must not take the file for a leftover. The bytes are on
  // disk already, so a failing close has nothing left to lose.
  ::close(fd_);
  fd_ = -1;
  syncDirectory(directory_);
}

void writeFileAtomically(const fs::path& target, std::string_view bytes) {
  AtomicFile file(target);
  file.write(bytes);
  file.commit();
}

}  // namespace inkharbour
