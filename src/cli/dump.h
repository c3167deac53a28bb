// Dump mode: what the importer makes of a file, as fixed-format text lines.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>

#include "importers/docx_reader.h"

namespace inkharbour::cli {

// One line per block, then one per footnote, each ended by a line feed:
// "[Body] B«Hi» fn1«[1]»", "[Table 2×3]" with a "  | a | b |" line per row,
// "[Image image1.png, 120 bytes]", "[Footnote 1]  text".
std::string formatDump(const ImportResult& result);

// Imports `path` with no custom style mapping and prints the dump to `out`:
// exit status 0. On failure prints the error's message and a line feed to
// `err` and nothing to `out`: exit status 1.
int runDump(const std::filesystem::path& path, std::ostream& out, std::ostream& err);

}  // namespace inkharbour::cli
