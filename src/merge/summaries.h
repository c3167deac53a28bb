// The texts of the merge report: a block list as readable lines, and the
// one-line summary of a change from one block list to another.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "model/story.h"

namespace inkharbour::MergeEngine {

// One line per block, joined with "\n": a paragraph's text, "[Table R×C]"
// for a table of R rows and C columns, "[Image name]" for an image.
std::string joined(std::span<const Block> blocks);

// "Deleted: " + from when `to` is empty and `from` is not, "Inserted: " + to
// when `from` is empty and `to` is not, otherwise "Changed: " + from + " → " +
// to; each side as joined(), cut to its first 80 characters (grapheme
// clusters) followed by "…" when it is longer.
std::string changeSummary(std::span<const Block> from, std::span<const Block> to);

// The same over lines of plain text, each standing for a paragraph with that
// text.
std::string joined(std::span<const std::string_view> lines);
std::string changeSummary(std::span<const std::string_view> from,
                          std::span<const std::string_view> to);

}  // namespace inkharbour::MergeEngine
