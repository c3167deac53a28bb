// A story as a plain-text file: a line per paragraph, a line per table row
// with its cells separated by tabs. Formatting, pictures and footnotes have
// no place in plain text and are left out.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"

namespace inkharbour::TextWriter {

// The file's text: lines joined by line feeds, none after the last, so that
// reading it back gives one paragraph per line.
std::string text(const std::vector<Block>& blocks);

// Writes text(blocks) to `path`, replacing it atomically. Throws
// std::filesystem::filesystem_error.
void write(const std::vector<Block>& blocks, const std::filesystem::path& path);

// Writes lines joined by line feeds, none after the last, replacing `path`
// atomically. Throws std::filesystem::filesystem_error.
void write(std::span<const std::string_view> lines, const std::filesystem::path& path);

}  // namespace inkharbour::TextWriter
