// Word diff: which words of a local and an external text are shared and
// which changed, for showing two versions side by side.
//
// Texts are cut into tokens on grapheme-cluster boundaries, so an accent,
// a flag or an emoji with its joiners and skin tone is never split. A token
// is a word (letters, marks, digits, with an apostrophe between letters
// kept inside), a single CJK ideograph or kana, a single emoji or flag, or a
// run of the spaces, punctuation and symbols between them. The tokens of the
// two texts are paired by the merge's own matching (lcs.h).
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace inkharbour::MergeEngine {

// A stretch of one text: bytes [begin, end), shared with the other text or
// changed (present on this side only).
struct WordSpan {
  std::size_t begin = 0;
  std::size_t end = 0;
  bool changed = false;

  bool operator==(const WordSpan&) const = default;
};

// Each text as consecutive spans covering it from its first byte to its
// last, neighbours never alike in `changed`; an empty text has no spans. The
// shared spans of both sides hold the same tokens in the same order.
struct WordDiff {
  std::vector<WordSpan> local;
  std::vector<WordSpan> external;

  bool operator==(const WordDiff&) const = default;
};

// The tokens of the text, in order, covering it exactly. A byte that is not
// part of well-formed UTF-8 is a token of its own.
std::vector<std::string_view> wordTokens(std::string_view text);

// The spans of both texts: tokens matched by the longest common subsequence
// are shared, the rest changed. A lone matched run of white space with
// changes on either hand counts as changed, so a rewritten phrase reads as
// one change rather than words around a kept space.
WordDiff wordDiff(std::string_view local, std::string_view external);

}  // namespace inkharbour::MergeEngine
