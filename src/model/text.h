// Unicode helpers over UTF-8 text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace inkharbour::text {

// The text converted to lower case by the Unicode mapping (İ becomes i
// followed by a combining dot, as the full mapping has it). Invalid bytes are
// kept as they are.
std::string lowercased(std::string_view text);

// True when the bytes are well-formed UTF-8 (no overlong forms, surrogates or
// code points above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// The first `count` user-perceived characters (extended grapheme clusters) of
// the text, never splitting one; the whole text when it has no more. Each
// byte that is not part of well-formed UTF-8 counts as one character.
std::string_view leadingCharacters(std::string_view text, std::size_t count);

// The text cut at each line feed (which no piece keeps): one piece for a
// text without one, an empty piece after a trailing one.
std::vector<std::string_view> lines(std::string_view text);

}  // namespace inkharbour::text
