// Merge keys: the text that stands for a block's content in all matching.
// "P:" + a paragraph's text, "T:" + a table's contentKey, "I:" + the
// lower-case hex SHA-256 of an image's bytes. Formatting, style names, image
// names and block ids never enter a key.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"

namespace inkharbour::MergeEngine {

// A hash of text under a key drawn afresh by every process, for hash tables
// whose keys come from files: no text prepared in advance can flood one slot.
struct KeyedHash {
  std::size_t operator()(std::string_view text) const;
};

// The merge key of the block.
std::string mergeKey(const Block& block);

// Numbers blocks by merge key: two blocks get the same number exactly when
// their keys are equal strings. Numbers are dense, from 0 in order of first
// appearance. Paragraph keys are hashed and compared in place, never copied,
// so a book's worth of keys costs a few megabytes. The interner keeps
// pointers to the blocks it was given; they must outlive it.
class KeyInterner {
 public:
  // The numbers of the blocks' keys, in order.
  std::vector<std::uint32_t> addAll(std::span<const Block> blocks);
  // The numbers of lines of plain text, each keyed like a paragraph holding
  // that text. The views and their characters must outlive the interner; one
  // interner numbers either blocks or lines, never both.
  std::vector<std::uint32_t> addAll(std::span<const std::string_view> lines);

 private:
  struct Entry {
    const Paragraph* paragraph;    // set for paragraphs
    const std::string_view* line;  // set for lines
    std::uint32_t key;             // else the index of the whole key in keys_
  };
  struct Slot {
    std::uint64_t hash = 0;
    std::uint32_t entry = kEmpty;
  };
  static constexpr std::uint32_t kEmpty = UINT32_MAX;

  // The number of the key with this hash for which `same` holds, or a new
  // number for `make()`.
  template <typename Same, typename Make>
  std::uint32_t insert(std::uint64_t hash, Same&& same, Make&& make);
  std::uint32_t insert(const Block& block, std::uint64_t hash, std::string* key);
  bool sameKey(const Entry& entry, const Block& block, const std::string* key) const;
  void reserve(std::size_t entries);
  // Numbers items by their hashes, inserting item i by insertAt(i): the
  // slots of a few items ahead are already on their way into the cache.
  template <typename InsertAt>
  std::vector<std::uint32_t> numberAll(const std::vector<std::uint64_t>& hashes,
                                       InsertAt&& insertAt);

  std::vector<Entry> entries_;
  std::vector<std::string> keys_;  // whole keys of tables and images
  std::vector<Slot> slots_;        // open addressing, a power of two in size
};

}  // namespace inkharbour::MergeEngine
