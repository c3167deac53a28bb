// Immutable bytes held by reference: copying a SharedBytes copies a pointer,
// so a picture that a package references many times, or that a story holds
// in its blocks, its base snapshot and every undo step, is in memory once.
// Equality compares the contents, as for any other model value.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace inkharbour {

class SharedBytes {
 public:
  SharedBytes() = default;
  // Takes over the vector's buffer: no copy is made.
  SharedBytes(std::vector<std::uint8_t>&& bytes)  // NOLINT: implicit, as a value field's type
      : bytes_(make(std::move(bytes))) {}
  SharedBytes(const std::vector<std::uint8_t>& bytes) : bytes_(make(bytes)) {}  // NOLINT
  SharedBytes(std::initializer_list<std::uint8_t> bytes) : bytes_(make(bytes)) {}

  const std::uint8_t* data() const { return bytes_ ? bytes_->data() : nullptr; }
  std::size_t size() const { return bytes_ ? bytes_->size() : 0; }
  bool empty() const { return size() == 0; }
  const std::uint8_t* begin() const { return data(); }
  const std::uint8_t* end() const { return data() + size(); }
  std::uint8_t operator[](std::size_t index) const { return (*bytes_)[index]; }
  std::span<const std::uint8_t> span() const { return {data(), size()}; }

  // True when both hold the very same buffer (and so are equal).
  bool sharesBufferWith(const SharedBytes& other) const { return bytes_ == other.bytes_; }

  friend bool operator==(const SharedBytes& a, const SharedBytes& b) {
    return a.sharesBufferWith(b) || std::ranges::equal(a.span(), b.span());
  }

 private:
  template <typename Bytes>
  static std::shared_ptr<const std::vector<std::uint8_t>> make(Bytes&& bytes) {
    if (bytes.size() == 0) return nullptr;
    return std::make_shared<const std::vector<std::uint8_t>>(std::forward<Bytes>(bytes));
  }

  std::shared_ptr<const std::vector<std::uint8_t>> bytes_;  // null when empty
};

}  // namespace inkharbour
