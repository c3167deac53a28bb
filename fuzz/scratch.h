// Scratch files for the fuzz targets. The readers and writers take paths, so
// each input becomes a file in a folder of its own per process, on a memory
// file system when the machine has one: the writers flush every file they
// replace, which would make a disk the bottleneck.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace inkharbour::fuzz {

using Bytes = std::span<const std::uint8_t>;

// `name` in this process's scratch folder, which is made on first use and
// removed at exit. INKHARBOUR_FUZZ_TMP names the parent folder; otherwise
// /dev/shm, else the system's temporary folder.
std::filesystem::path scratchPath(const char* name);

// Writes `bytes` to `path` as they are.
void writeBytes(const std::filesystem::path& path, Bytes bytes);

// Writes the input as a package file. An input that starts with "@@ " lists
// the members of a package to build, so that mutations reach the XML rather
// than breaking the deflate stream and checksums:
//
//   @@ word/document.xml
//   <w:document ...>...</w:document>
//   @@ word/styles.xml
//   ...
//
// (a member's bytes end where the next "\n@@ " begins). Any other input is
// written as it is. Returns false when the listed package cannot be built
// (a member name the ZIP writer refuses, one name twice).
bool writePackageInput(const std::filesystem::path& path, Bytes input);

}  // namespace inkharbour::fuzz
