#include "model/text.h"

#include <simdjson.h>
#include <utf8proc.h>

#include <cstdint>
#include <cstring>

namespace inkharbour::text {

namespace {

// Length of the well-formed sequence starting at `i`, or 0 when malformed.
std::size_t sequenceLength(std::string_view s, std::size_t i, utf8proc_int32_t& codePoint) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(s.data()) + i;
  const auto n = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(s.size() - i), &codePoint);
  return n > 0 ? static_cast<std::size_t>(n) : 0;
}

}  // namespace

std::string lowercased(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    const auto byte = static_cast<unsigned char>(s[i]);
    if (byte < 0x80) {
      out += (byte >= 'A' && byte <= 'Z') ? static_cast<char>(byte + 32) : static_cast<char>(byte);
      ++i;
      continue;
    }
    utf8proc_int32_t codePoint = 0;
    const auto n = sequenceLength(s, i, codePoint);
    if (n == 0) {
      out += s[i++];
      continue;
    }
    if (codePoint == 0x130) {
      // The one unconditional multi-character lower-case mapping.
      out += "i\xCC\x87";
    } else {
      utf8proc_uint8_t encoded[4];
      const auto m = utf8proc_encode_char(utf8proc_tolower(codePoint), encoded);
      out.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(m));
    }
    i += n;
  }
  return out;
}

bool isValidUtf8(std::string_view s) {
  // simdjson's validator checks many bytes per instruction; text import
  // validates every line of a book.
  return simdjson::validate_utf8(s.data(), s.size());
}

std::string_view leadingCharacters(std::string_view s, std::size_t count) {
  if (count == 0) return s.substr(0, 0);
  std::size_t characters = 0;
  utf8proc_int32_t previous = -1;  // -1: no code point before, or a malformed byte
  utf8proc_int32_t state = 0;
  for (std::size_t i = 0; i < s.size();) {
    utf8proc_int32_t codePoint = 0;
    const auto n = sequenceLength(s, i, codePoint);
    // A malformed byte stands alone: a break before it and after it.
    const bool breaks = n == 0 || previous < 0 ||
                        utf8proc_grapheme_break_stateful(previous, codePoint, &state);
    if (breaks) {
      if (characters == count) return s.substr(0, i);
      ++characters;
    }
    if (n == 0) {
      previous = -1;
      state = 0;
      ++i;
    } else {
      if (previous < 0) state = 0;
      previous = codePoint;
      i += n;
    }
  }
  return s;
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> out;
  for (std::size_t at = 0;;) {
    const auto end = text.find('\n', at);
    out.push_back(text.substr(at, end == std::string_view::npos ? end : end - at));
    if (end == std::string_view::npos) return out;
    at = end + 1;
  }
}

}  // namespace inkharbour::text
