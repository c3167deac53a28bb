// Replacing a file atomically: the new bytes go to a temporary file in the
// same directory, which is flushed and renamed over the target. A crash at any
// moment leaves either the old file or the new one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace inkharbour {

// A replacement of `target` written piece by piece: nothing changes at the
// target until commit(), and an uncommitted file (an exception, an early
// return) is removed. Throws std::filesystem::filesystem_error on failure,
// after which the target is unchanged and no temporary file is left.
class AtomicFile {
 public:
  explicit AtomicFile(const std::filesystem::path& target);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void write(std::string_view bytes);
  // Flushes the file and renames it over the target, keeping the target's
  // permissions.
  void commit();

 private:
  [[noreturn]] void abandon(const char* what, int error);

  std::filesystem::path target_;
  std::filesystem::path directory_;
  std::string temporary_;
  unsigned mode_ = 0;
  int fd_ = -1;
  bool committed_ = false;
};

// Writes `bytes` to `target`, keeping the permissions of an existing target.
// Throws std::filesystem::filesystem_error on failure, in which case the old
// target is unchanged and no temporary file is left behind.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes);

}  // namespace inkharbour
