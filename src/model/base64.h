// Base64 as the document file stores image bytes: the standard alphabet
// ("A"-"Z", "a"-"z", "0"-"9", "+", "/") with "=" padding, no line breaks.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace inkharbour {

// Appends the base64 text of `bytes` to `out`, padded to a multiple of four
// characters.
void appendBase64(std::string& out, std::span<const std::uint8_t> bytes);

// The bytes that `text` encodes. No value unless `text` is strict base64:
// only the standard alphabet, a length that is a multiple of four, "=" only
// as one or two final padding characters, and unused bits of the last
// character zero (so that every byte string has exactly one text).
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

}  // namespace inkharbour
