#include "writer/xml_text.h"

#include <cstdint>

namespace inkharbour::writer {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// Bytes that need no attention at all: printable ASCII other than the four
// markup characters. Everything else takes the slow path.
constexpr bool isPlain(unsigned char c) {
  return c >= 0x20 && c < 0x80 && c != '&' && c != '<' && c != '>' && c != '"';
}

struct Sequence {
  std::size_t length;  // bytes consumed, at least 1
  bool valid;
  char32_t codePoint;
};

// Decodes the multi-byte sequence at s[i] (s[i] >= 0x80). A malformed one is
// consumed as its maximal valid prefix, so that it turns into exactly one
// replacement character.
Sequence decode(std::string_view s, std::size_t i) {
  const auto lead = static_cast<unsigned char>(s[i]);
  std::size_t expected = 0;
  char32_t codePoint = 0;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    expected = 2;
    codePoint = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    expected = 3;
    codePoint = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    expected = 4;
    codePoint = lead & 0x07;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
  } else {
    return {1, false, 0};
  }
  std::size_t n = 1;
  for (; n < expected; ++n) {
    if (i + n >= s.size()) return {n, false, 0};
    const auto c = static_cast<unsigned char>(s[i + n]);
    const bool inRange = n == 1 ? (c >= low && c <= high) : (c >= 0x80 && c <= 0xBF);
    if (!inRange) return {n, false, 0};
    codePoint = (codePoint << 6) | (c & 0x3F);
  }
  return {n, true, codePoint};
}

}  // namespace

void appendEscaped(std::string& out, std::string_view value, XmlContext context) {
  std::size_t i = 0;
  while (i < value.size()) {
    std::size_t plainEnd = i;
    while (plainEnd < value.size() && isPlain(static_cast<unsigned char>(value[plainEnd]))) {
      ++plainEnd;
    }
    out.append(value.data() + i, plainEnd - i);
    i = plainEnd;
    if (i == value.size()) break;

    const auto c = static_cast<unsigned char>(value[i]);
    if (c >= 0x80) {
      const auto sequence = decode(value, i);
      if (!sequence.valid) {
        out += kReplacement;
      } else if (sequence.codePoint != 0xFFFE && sequence.codePoint != 0xFFFF) {
        out.append(value.data() + i, sequence.length);
      }
      i += sequence.length;
      continue;
    }
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\r': out += "&#13;"; break;
      case '\t': out += context == XmlContext::attribute ? "&#9;" : "\t"; break;
      case '\n': out += context == XmlContext::attribute ? "&#10;" : "\n"; break;
      default: break;  // a control character XML cannot carry
    }
    ++i;
  }
}

std::string escaped(std::string_view value, XmlContext context) {
  std::string out;
  out.reserve(value.size() + value.size() / 8);
  appendEscaped(out, value, context);
  return out;
}

bool isPlainText(std::string_view value) {
  for (std::size_t i = 0; i < value.size();) {
    const auto c = static_cast<unsigned char>(value[i]);
    if (c < 0x20 || c == 0x7F) return false;
    if (c < 0x80) {
      ++i;
      continue;
    }
    const auto sequence = decode(value, i);
    if (!sequence.valid || sequence.codePoint == 0xFFFE || sequence.codePoint == 0xFFFF ||
        (sequence.codePoint >= 0x80 && sequence.codePoint <= 0x9F)) {
      return false;
    }
    i += sequence.length;
  }
  return true;
}

}  // namespace inkharbour::writer
