#include "model/json_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

#include <utf8proc.h>

#include "model/base64.h"

namespace inkharbour {

namespace {

// Bytes copied as they are: printable ASCII other than '"', '\\' and '/'.
constexpr std::array<bool, 256> makePlainTable() {
  std::array<bool, 256> plain{};
  for (int c = 0x20; c < 0x80; ++c) plain[static_cast<std::size_t>(c)] = true;
  plain['"'] = plain['\\'] = plain['/'] = false;
  return plain;
}

constexpr auto kPlain = makePlainTable();

// True when any of the eight bytes of `word` is not plain (see above).
bool needsCare(std::uint64_t word) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kHigh = 0x8080808080808080;
  const auto hasZeroByte = [](std::uint64_t v) { return (v - kOnes) & ~v; };
  const std::uint64_t below20 = (word - kOnes * 0x20) & ~word;
  return ((word | below20 | hasZeroByte(word ^ (kOnes * '"')) | hasZeroByte(word ^ (kOnes * '\\')) |
           hasZeroByte(word ^ (kOnes * '/'))) &
          kHigh) != 0;
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  // Stretches that need no change (valid multi-byte sequences included) are
  // appended whole; most text is one such stretch.
  std::size_t copied = 0;
  std::size_t i = 0;
  while (i < size) {
    // Eight plain bytes at a time, then up to eight one by one.
    if (size - i >= 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes + i, 8);
      if (!needsCare(word)) {
        i += 8;
        continue;
      }
    }
    const std::size_t stop = std::min(i + 8, size);
    while (i < stop) {
      const unsigned char c = bytes[i];
      if (kPlain[c]) {
        ++i;
        continue;
      }
      if (c >= 0x80) {
        utf8proc_int32_t codePoint = 0;
        const auto n =
            utf8proc_iterate(bytes + i, static_cast<utf8proc_ssize_t>(size - i), &codePoint);
        if (n > 0) {
          i += static_cast<std::size_t>(n);
          continue;
        }
      }
      out.append(text.data() + copied, i - copied);
      switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '/': out += "\\/"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
          if (c < 0x20) {
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
          } else {
            out += "\xEF\xBF\xBD";  // U+FFFD for a byte that starts no valid sequence
          }
      }
      copied = ++i;
    }
  }
  out.append(text.data() + copied, size - copied);
  out += '"';
}

void JsonWriter::newline() {
  out_ += '\n';
  out_.append(2 * hasMembers_.size(), ' ');
}

void JsonWriter::beforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (hasMembers_.empty()) return;
  if (hasMembers_.back()) out_ += ',';
  hasMembers_.back() = true;
  newline();
}

void JsonWriter::key(std::string_view name) {
  beforeValue();
  appendJsonString(out_, name);
  out_ += " : ";
  afterKey_ = true;
}

void JsonWriter::beginObject() {
  beforeValue();
  out_ += '{';
  hasMembers_.push_back(false);
}

void JsonWriter::endObject() {
  const bool any = hasMembers_.back();
  hasMembers_.pop_back();
  if (any) newline();
  out_ += '}';
}

void JsonWriter::beginArray() {
  beforeValue();
  out_ += '[';
  hasMembers_.push_back(false);
}

void JsonWriter::endArray() {
  const bool any = hasMembers_.back();
  hasMembers_.pop_back();
  if (any) newline();
  out_ += ']';
}

void JsonWriter::string(std::string_view value) {
  beforeValue();
  appendJsonString(out_, value);
}

void JsonWriter::base64(std::span<const std::uint8_t> bytes) {
  beforeValue();
  out_ += '"';
  // A slice at a time, a multiple of three bytes so that only the last one
  // is padded. Of the base64 alphabet only "/" needs an escape.
  constexpr std::size_t kSlice = 3 * 4096;
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kSlice) {
    text.clear();
    appendBase64(text, bytes.subspan(at, std::min(kSlice, bytes.size() - at)));
    std::string_view rest(text);
    for (auto slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
      out_.append(rest.substr(0, slash)).append("\\/");
      rest.remove_prefix(slash + 1);
    }
    out_.append(rest);
  }
  out_ += '"';
}

void JsonWriter::number(double value) {
  beforeValue();
  if (!std::isfinite(value)) value = 0;  // JSON has no infinities
  char buffer[32];
  // The shortest text that reads back as the same double.
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  out_.append(buffer, end);
}

void JsonWriter::integer(std::int64_t value) {
  beforeValue();
  char buffer[24];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  out_.append(buffer, end);
}

void JsonWriter::boolean(bool value) {
  beforeValue();
  out_ += value ? "true" : "false";
}

}  // namespace inkharbour
