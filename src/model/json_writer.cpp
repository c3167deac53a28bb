#include "model/json_writer.h"

#include <charconv>
#include <cmath>

#include <utf8proc.h>

namespace inkharbour {

void appendJsonString(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      utf8proc_int32_t codePoint = 0;
      const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + i,
                                      static_cast<utf8proc_ssize_t>(text.size() - i), &codePoint);
      if (n > 0) {
        out.append(text.substr(i, static_cast<std::size_t>(n)));
        i += static_cast<std::size_t>(n);
      } else {
        out += "\xEF\xBF\xBD";  // U+FFFD for a byte that starts no valid sequence
        ++i;
      }
      continue;
    }
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
          out += static_cast<char>(c);
        }
    }
    ++i;
  }
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
