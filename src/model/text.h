// Unicode helpers over UTF-8 text.
#pragma once

#include <string>
#include <string_view>

namespace inkharbour::text {

// The text converted to lower case by the Unicode mapping (İ becomes i
// followed by a combining dot, as the full mapping has it). Invalid bytes are
// kept as they are.
std::string lowercased(std::string_view text);

// True when the bytes are well-formed UTF-8 (no overlong forms, surrogates or
// code points above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

}  // namespace inkharbour::text
