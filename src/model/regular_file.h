// Regular files only. A path the user names may hold a FIFO, a device or a
// socket; opening a FIFO waits for a writer, and a device such as /dev/zero
// never ends. The readers and the atomic writer touch regular files alone,
// and say so with the errors below when something else is there.
#pragma once

#include <filesystem>
#include <system_error>
#include <type_traits>

namespace inkharbour {

// File failures the system has no errno for.
enum class FileError {
  // A FIFO, device or socket where a file was expected.
  notRegularFile = 1,
  // The folder to write into does not exist (or is no folder). Thrown with the
  // file as path1 and the folder as path2.
  folderMissing,
};

const std::error_category& fileErrorCategory();
std::error_code make_error_code(FileError error);

// Opens the regular file at `path` (following links) for reading, without
// ever blocking and without opening anything else. Returns the descriptor, or
// -1 with `error` set: the open's errno, EISDIR for a folder, or
// FileError::notRegularFile.
int openRegularFile(const std::filesystem::path& path, std::error_code& error);

}  // namespace inkharbour

template <>
struct std::is_error_code_enum<inkharbour::FileError> : std::true_type {};
