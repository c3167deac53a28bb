// Replacing a file atomically: the new bytes go to a temporary file in the
// same directory, which is flushed and renamed over the target. A crash at any
// moment leaves either the old file or the new one.
//
// A target that is a symbolic link is followed to the file it finally names:
// that file is replaced and the link stays a link. Only a regular file (or no
// file yet) is ever replaced; a folder, FIFO, device or socket is refused.
//
// The temporary file is named "." + the target's name + ".tmp-" + six random
// characters (a name too long for that is cut and given a hash, so that the
// temporary still fits beside it), and it is locked while it is written. A
// write killed midway leaves it behind unlocked; the next write to the same
// target removes every such leftover.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace inkharbour {

// A replacement of `target` written piece by piece: nothing changes at the
// target until commit(), and an uncommitted file (an exception, an early
// return) is removed. Throws std::filesystem::filesystem_error on failure,
// after which the target is unchanged and no temporary file is left: with
// EISDIR or FileError::notRegularFile (model/regular_file.h) when something
// other than a regular file is at the target, FileError::folderMissing (the
// folder as path2) when its folder does not exist.
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

  // The file that commit() replaces: the target with its links followed.
  const std::filesystem::path& finalTarget() const { return target_; }

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
// Throws as AtomicFile does; the old target is then unchanged and no
// temporary file is left behind.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes);

}  // namespace inkharbour
