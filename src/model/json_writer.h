// A streaming writer of pretty-printed JSON in the document file's style:
// two-space indentation, "key" : value, every "/" escaped as "\/", and text
// that is not valid UTF-8 repaired with U+FFFD so the output always reads
// back. Keys are written in the order given; callers give them sorted.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace inkharbour {

class JsonWriter {
 public:
  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  // The key of the next member of the open object.
  void key(std::string_view name);

  void string(std::string_view value);
  // A string holding the base64 text of `bytes` (as appendBase64 writes it),
  // encoded straight into the output without a copy of the whole text.
  void base64(std::span<const std::uint8_t> bytes);
  void number(double value);
  void integer(std::int64_t value);
  void boolean(bool value);

  // The text written so far; complete once every container is closed.
  const std::string& text() const { return out_; }
  std::string take() { return std::move(out_); }
  // Makes room for `bytes` of output in all, so that a large text is not
  // copied as it grows.
  void reserve(std::size_t bytes) { out_.reserve(bytes); }

 private:
  void beforeValue();
  void newline();

  std::string out_;
  // One entry per open container: whether it has a member yet.
  std::vector<bool> hasMembers_;
  bool afterKey_ = false;
};

// `text` as a JSON string literal, quotes included.
void appendJsonString(std::string& out, std::string_view text);

}  // namespace inkharbour
