// Plain-text import: a UTF-8 file becomes one "Body" paragraph per line.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "importers/import_limits.h"
#include "model/story.h"

namespace inkharbour::TextReader {

// Splits the file on line feeds alone (a carriage return stays at the end of
// its line); every piece, the empty one after a final line feed included, is
// a "Body" paragraph with one plain run, or none when the piece is empty. A
// leading byte-order mark is an encoding mark, not text. Throws
// std::filesystem::filesystem_error when the file cannot be read or is not
// UTF-8 (the code is then std::errc::illegal_byte_sequence), DocxError when
// it is larger than the import limit.
std::vector<Block> read(const std::filesystem::path& path, const ImportLimits& limits = {});

// The same over text already in memory.
std::vector<Block> paragraphs(std::string_view text);

// A text file held whole with its lines: line i is the text of the
// paragraph i that read() makes. Moving it keeps the views valid.
struct TextLines {
  std::vector<char> text;
  std::vector<std::string_view> lines;  // views into `text`
};

// The file's lines, split and checked as read() does, with the same errors.
TextLines readLines(const std::filesystem::path& path, const ImportLimits& limits = {});

}  // namespace inkharbour::TextReader
