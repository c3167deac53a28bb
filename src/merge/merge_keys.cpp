#include "merge/merge_keys.h"

#include <openssl/evp.h>

#include <array>
#include <bit>
#include <random>
#include <span>
#include <string_view>

namespace inkharbour::MergeEngine {

namespace {

std::string hex(const unsigned char* bytes, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * count);
  for (std::size_t i = 0; i < count; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out;
}

std::string sha256Hex(std::span<const std::uint8_t> data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    // No digest to be had: the bytes themselves still make equal images,
    // and only equal images, share a key, and the merge must not fail.
    return hex(data.data(), data.size());
  }
  return hex(digest.data(), length);
}

// The key of every hash this process computes, drawn once from the system's
// random source, so that no input prepared in advance can make many keys
// share a slot.
struct HashKey {
  std::uint64_t k0, k1;
};

const HashKey& processKey() {
  static const HashKey key = [] {
    std::random_device random;
    auto draw = [&] { return (std::uint64_t{random()} << 32) ^ random(); };
    return HashKey{draw(), draw()};
  }();
  return key;
}

// SipHash-1-3 under the process key, of a byte stream that may come in
// pieces: a paragraph's runs hash like their concatenation. `domain` keeps
// apart kinds of keys that must not be confused.
class StreamHash {
 public:
  explicit StreamHash(std::uint64_t domain) {
    const auto& key = processKey();
    v0_ = key.k0 ^ 0x736f6d6570736575ULL;
    v1_ = key.k1 ^ 0x646f72616e646f6dULL ^ domain;
    v2_ = key.k0 ^ 0x6c7967656e657261ULL;
    v3_ = key.k1 ^ 0x7465646279746573ULL;
  }

  void add(std::string_view s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    std::size_t n = s.size();
    length_ += n;
    if (filled_ == 0) {
      for (; n >= 8; p += 8, n -= 8) mix(load(p));
    } else {
      // Whole words still, shifted past the bytes already pending.
      const unsigned shift = 8 * filled_;
      for (; n >= 8; p += 8, n -= 8) {
        const std::uint64_t w = load(p);
        mix(pending_ | (w << shift));
        pending_ = w >> (64 - shift);
      }
    }
    for (; n > 0; --n) push(*p++);
  }

  std::uint64_t finish() {
    mix(pending_ | (length_ << 56));
    v2_ ^= 0xff;
    round();
    round();
    round();
    return v0_ ^ v1_ ^ v2_ ^ v3_;
  }

 private:
  // Little-endian on every platform, to agree with push().
  static std::uint64_t load(const unsigned char* p) {
    std::uint64_t w = 0;
    for (int i = 7; i >= 0; --i) w = (w << 8) | p[i];
    return w;
  }
  void push(unsigned char byte) {
    pending_ |= std::uint64_t{byte} << (8 * filled_);
    if (++filled_ == 8) {
      mix(pending_);
      pending_ = 0;
      filled_ = 0;
    }
  }
  void round() {
    v0_ += v1_;
    v1_ = std::rotl(v1_, 13) ^ v0_;
    v0_ = std::rotl(v0_, 32);
    v2_ += v3_;
    v3_ = std::rotl(v3_, 16) ^ v2_;
    v0_ += v3_;
    v3_ = std::rotl(v3_, 21) ^ v0_;
    v2_ += v1_;
    v1_ = std::rotl(v1_, 17) ^ v2_;
    v2_ = std::rotl(v2_, 32);
  }
  void mix(std::uint64_t w) {
    v3_ ^= w;
    round();
    v0_ ^= w;
  }

  std::uint64_t v0_, v1_, v2_, v3_;
  std::uint64_t pending_ = 0;
  unsigned filled_ = 0;
  std::uint64_t length_ = 0;
};

// Paragraph keys and whole keys never equal each other (their first letters
// differ), so they may hash differently: a paragraph hashes its text alone,
// in its own domain, and needs no "P:" in front of every text.
constexpr std::uint64_t kParagraphSeed = 0x243F6A8885A308D3ULL;
constexpr std::uint64_t kWholeKeySeed = 0x13198A2E03707344ULL;
constexpr std::uint64_t kPlainSeed = 0xA4093822299F31D0ULL;

std::uint64_t paragraphHash(const Paragraph& paragraph) {
  StreamHash hash(kParagraphSeed);
  for (const auto& run : paragraph.runs) hash.add(run.text);
  return hash.finish();
}

// A line of plain text hashes like a paragraph holding it.
std::uint64_t textHash(std::string_view text) {
  StreamHash hash(kParagraphSeed);
  hash.add(text);
  return hash.finish();
}

std::uint64_t keyHash(std::string_view key) {
  StreamHash hash(kWholeKeySeed);
  hash.add(key);
  return hash.finish();
}

}  // namespace

std::size_t KeyedHash::operator()(std::string_view text) const {
  StreamHash hash(kPlainSeed);
  hash.add(text);
  return static_cast<std::size_t>(hash.finish());
}

namespace {

// Equal concatenated run texts, compared piece by piece without copying.
bool sameText(const Paragraph& x, const Paragraph& y) {
  auto xi = x.runs.begin(), yi = y.runs.begin();
  std::string_view xs, ys;
  while (true) {
    while (xs.empty() && xi != x.runs.end()) xs = (xi++)->text;
    while (ys.empty() && yi != y.runs.end()) ys = (yi++)->text;
    if (xs.empty() || ys.empty()) return xs.empty() && ys.empty();
    const std::size_t n = std::min(xs.size(), ys.size());
    if (xs.substr(0, n) != ys.substr(0, n)) return false;
    xs.remove_prefix(n);
    ys.remove_prefix(n);
  }
}

}  // namespace

std::string mergeKey(const Block& block) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) return "P:" + paragraph->text();
  if (const auto* table = std::get_if<Table>(&block.kind)) return "T:" + table->contentKey();
  return "I:" + sha256Hex(std::get<ImageBlock>(block.kind).data);
}

bool KeyInterner::sameKey(const Entry& entry, const Block& block, const std::string* key) const {
  if (key == nullptr) {
    return entry.paragraph != nullptr &&
           sameText(*entry.paragraph, std::get<Paragraph>(block.kind));
  }
  return entry.paragraph == nullptr && keys_[entry.key] == *key;
}

void KeyInterner::reserve(std::size_t entries) {
  std::size_t size = 64;
  while (size < 2 * entries) size *= 2;
  if (size <= slots_.size()) return;
  std::vector<Slot> old(size);
  old.swap(slots_);
  const std::size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.entry == kEmpty) continue;
    std::size_t at = slot.hash & mask;
    while (slots_[at].entry != kEmpty) at = (at + 1) & mask;
    slots_[at] = slot;
  }
}

template <typename Same, typename Make>
std::uint32_t KeyInterner::insert(std::uint64_t hash, Same&& same, Make&& make) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  for (; slots_[at].entry != kEmpty; at = (at + 1) & mask) {
    // Equal hashes are confirmed on the text: distinct keys never share a number.
    if (slots_[at].hash == hash && same(entries_[slots_[at].entry])) return slots_[at].entry;
  }
  const auto number = static_cast<std::uint32_t>(entries_.size());
  entries_.push_back(make());
  slots_[at] = Slot{.hash = hash, .entry = number};
  return number;
}

std::uint32_t KeyInterner::insert(const Block& block, std::uint64_t hash, std::string* key) {
  return insert(
      hash, [&](const Entry& entry) { return sameKey(entry, block, key); },
      [&] {
        if (key == nullptr)
          return Entry{.paragraph = &std::get<Paragraph>(block.kind), .line = nullptr, .key = 0};
        keys_.push_back(std::move(*key));
        return Entry{.paragraph = nullptr,
                     .line = nullptr,
                     .key = static_cast<std::uint32_t>(keys_.size() - 1)};
      });
}

template <typename InsertAt>
std::vector<std::uint32_t> KeyInterner::numberAll(const std::vector<std::uint64_t>& hashes,
                                                  InsertAt&& insertAt) {
  // A book's slot table is far larger than the cache, and a miss per item
  // would cost more than hashing it.
  constexpr std::size_t kAhead = 8;
  const std::size_t mask = slots_.size() - 1;
  std::vector<std::uint32_t> numbers(hashes.size());
  for (std::size_t i = 0; i < hashes.size(); ++i) {
    if (i + kAhead < hashes.size()) __builtin_prefetch(&slots_[hashes[i + kAhead] & mask]);
    numbers[i] = insertAt(i);
  }
  return numbers;
}

std::vector<std::uint32_t> KeyInterner::addAll(std::span<const Block> blocks) {
  reserve(entries_.size() + blocks.size());
  // Hashed first, then looked up (see numberAll).
  std::vector<std::uint64_t> hashes(blocks.size());
  std::vector<std::pair<std::size_t, std::string>> wholeKeys;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (const auto* paragraph = std::get_if<Paragraph>(&blocks[i].kind)) {
      hashes[i] = paragraphHash(*paragraph);
    } else {
      wholeKeys.emplace_back(i, mergeKey(blocks[i]));
      hashes[i] = keyHash(wholeKeys.back().second);
    }
  }
  auto whole = wholeKeys.begin();
  return numberAll(hashes, [&](std::size_t i) {
    std::string* key = nullptr;
    if (whole != wholeKeys.end() && whole->first == i) key = &(whole++)->second;
    return insert(blocks[i], hashes[i], key);
  });
}

std::vector<std::uint32_t> KeyInterner::addAll(std::span<const std::string_view> lines) {
  reserve(entries_.size() + lines.size());
  std::vector<std::uint64_t> hashes(lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) hashes[i] = textHash(lines[i]);
  return numberAll(hashes, [&](std::size_t i) {
    return insert(
        hashes[i], [&](const Entry& entry) { return *entry.line == lines[i]; },
        [&] { return Entry{.paragraph = nullptr, .line = &lines[i], .key = 0}; });
  });
}

}  // namespace inkharbour::MergeEngine
