// Stories written as lines of text, for the merge and round-trip targets:
// seeds stay readable, and the fuzzer's edits of lines become edits of
// blocks.
//
// Stories are separated by a line "---". Every other line is one block, or
// a footnote of the story:
//   (empty)        a "Body" paragraph without runs
//   |a|b/c         a table: rows split at "/", cells at "|", a cell's
//                  paragraphs at "\"; "|" alone is a table of one empty row
//   !name:bytes    a picture; "!bytes" without a colon is named "image.png"
//   ^12 a\b        footnote 12 with the paragraphs "a" and "b"
//   =Q text        a paragraph in the style T(itle), 1 or 2 (the headings),
//                  B(ody) or Q(uote); any other letter names a style the
//                  style sheet does not know
//   text           a "Body" paragraph
// In a paragraph's text "*" toggles bold, "_" italic, "+" underline, "~"
// strikethrough, "%" small capitals and "$" a colour, "`" steps the script
// (normal, superscript, subscript) and "#12" is the mark of footnote 12;
// each starts a new run. Cell and footnote paragraphs read the same way.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"

namespace inkharbour::fuzz {

struct TextStory {
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;  // in the order of their lines
  // Every paragraph, in cells and footnotes too, is "Body" with at most one
  // unformatted run, as Paragraph::make builds it, and no text holds
  // U+001E or U+001F.
  bool plain = true;
};

// The first `count` stories of `text`; missing ones are empty. Block ids
// are numbered from 1 across all of them, so no two blocks share one.
std::vector<TextStory> parseStories(std::string_view text, std::size_t count);

}  // namespace inkharbour::fuzz
