// Replacing a file atomically: the new bytes go to a temporary file in the
// same directory, which is flushed and renamed over the target. A crash at any
// moment leaves either the old file or the new one.
#pragma once

#include <filesystem>
#include <string_view>

namespace inkharbour {

// Writes `bytes` to `target`, keeping the permissions of an existing target.
// Throws std::filesystem::filesystem_error on failure, in which case the old
// target is unchanged and no temporary file is left behind.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes);

}  // namespace inkharbour
