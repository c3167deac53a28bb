// Bounds on what one import may inflate and build, so that a hostile package
// (a ZIP bomb, a shared string referenced a million times, absurd nesting)
// stops with a clear message instead of exhausting the machine. Declared
// sizes lie, so the counts are of bytes actually inflated and values built.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace inkharbour {

struct ImportLimits {
  std::uint64_t memberBytes = 512ull << 20;   // inflated bytes of one member
  // A member past `ratioCheckAfter` inflated bytes may not have inflated to
  // more than `compressionRatio` times its compressed size. Real documents
  // compress 5 to 30 times; a bomb of repeated bytes a thousand times.
  std::uint64_t compressionRatio = 100;
  std::uint64_t ratioCheckAfter = 64ull << 20;
  std::uint64_t packageBytes = 2ull << 30;    // inflated bytes of all members read
  std::uint64_t textBytes = 512ull << 20;     // text of all paragraphs and cells built
  std::uint64_t items = 8ull << 20;           // blocks, runs, cells and paragraphs built
  std::uint64_t tableDepth = 64;              // tables open inside one another
  // Picture bytes, counted per reference: each one is stored in the
  // document file on its own, so a picture referenced a thousand times
  // weighs a thousand pictures there, though in memory it is held once.
  std::uint64_t pictureBytes = 1ull << 30;
  // Paragraphs built, in the body, table cells and notes. With the story's
  // base snapshot a paragraph is stored twice in the document file, which
  // can hold at most 4 GiB; two million empty ones take about 1 GiB.
  std::uint64_t paragraphs = 2ull << 20;
};

// What one import has used so far. Each add throws DocxError::limitExceeded,
// naming the member being read, when a limit is passed.
class ImportBudget {
 public:
  explicit ImportBudget(const ImportLimits& limits = {}) : limits_(limits) {}

  const ImportLimits& limits() const { return limits_; }
  void addInflated(std::string_view member, std::uint64_t bytes);
  // Called for every cell and run, so the common case stays inline.
  void addText(std::string_view member, std::uint64_t bytes) {
    if (__builtin_add_overflow(text_, bytes, &text_) || text_ > limits_.textBytes) {
      textExceeded(member);
    }
  }
  void addItems(std::string_view member, std::uint64_t count) {
    if (__builtin_add_overflow(items_, count, &items_) || items_ > limits_.items) {
      itemsExceeded(member);
    }
  }
  void addParagraphs(std::string_view member, std::uint64_t count) {
    if (__builtin_add_overflow(paragraphs_, count, &paragraphs_) ||
        paragraphs_ > limits_.paragraphs) {
      paragraphsExceeded(member);
    }
  }
  void addPicture(std::string_view member, std::uint64_t bytes);
  void checkTableDepth(std::string_view member, std::uint64_t depth) const;

 private:
  [[noreturn]] void textExceeded(std::string_view member) const;
  [[noreturn]] void itemsExceeded(std::string_view member) const;
  [[noreturn]] void paragraphsExceeded(std::string_view member) const;

  ImportLimits limits_;
  std::uint64_t inflated_ = 0;
  std::uint64_t text_ = 0;
  std::uint64_t items_ = 0;
  std::uint64_t paragraphs_ = 0;
  std::uint64_t pictures_ = 0;
};

// "512 MiB", "2 GiB", "300 bytes": a limit as the messages state it.
std::string describeBytes(std::uint64_t bytes);

}  // namespace inkharbour
