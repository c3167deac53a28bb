#include "importers/parallel_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace inkharbour {

namespace {

constexpr std::size_t kChunk = 1 << 20;
constexpr std::size_t kWindow = 32 * 1024;

// A stretch of the new bytes: compressed afresh, or (`run`) the first stretch
// of a run of old blocks taken over, whose bits are copied when the pieces
// are joined. Either way its CRC is computed on its own.
struct Piece {
  std::size_t begin = 0;
  std::size_t end = 0;
  bool compress = false;
  bool finish = false;  // ends the stream
  std::optional<std::size_t> run;
  std::string data;
  std::uint32_t crc = 0;
  bool failed = false;
};

// Old blocks [first, last) taken over as they are.
struct Run {
  std::size_t first;
  std::size_t last;
  std::size_t at;  // where their data begins in the new bytes
};

void compressPiece(std::string_view all, int level, Piece& piece) {
  const auto* input = reinterpret_cast<const Bytef*>(all.data());
  const std::size_t length = piece.end - piece.begin;
  piece.crc = static_cast<std::uint32_t>(crc32(0, input + piece.begin, static_cast<uInt>(length)));
  if (!piece.compress) return;

  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    piece.failed = true;
    return;
  }
  if (piece.begin > 0) {
    // The window the piece would have seen in one stream.
    const std::size_t from = piece.begin - std::min(kWindow, piece.begin);
    deflateSetDictionary(&stream, input + from, static_cast<uInt>(piece.begin - from));
  }
  // A sync flush adds a few bytes beyond the bound for the data itself.
  piece.data.resize(deflateBound(&stream, length) + 64);
  stream.next_in = const_cast<Bytef*>(input + piece.begin);
  stream.avail_in = static_cast<uInt>(length);
  stream.next_out = reinterpret_cast<Bytef*>(piece.data.data());
  stream.avail_out = static_cast<uInt>(piece.data.size());
  const int result = deflate(&stream, piece.finish ? Z_FINISH : Z_SYNC_FLUSH);
  // A sync flush is complete only when zlib stopped with room to spare.
  const bool done = piece.finish
                        ? result == Z_STREAM_END
                        : (result == Z_OK && stream.avail_in == 0 && stream.avail_out != 0);
  piece.failed = !done;
  piece.data.resize(stream.total_out);
  deflateEnd(&stream);
}

// Appends bits least significant first, as deflate packs them.
class BitWriter {
 public:
  explicit BitWriter(std::size_t capacity) { out_.reserve(capacity); }

  void put(std::uint64_t value, int count) {
    pending_ |= value << filled_;
    filled_ += count;
    while (filled_ >= 8) {
      out_.push_back(static_cast<char>(pending_ & 0xff));
      pending_ >>= 8;
      filled_ -= 8;
    }
  }

  // Whole bytes; the writer must be at a byte boundary.
  void append(std::string_view bytes) { out_ += bytes; }

  // Bits [from, to) of `source`.
  void copy(const std::string& source, std::uint64_t from, std::uint64_t to) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(source.data());
    for (; from < to && from % 8 != 0; ++from) put((bytes[from / 8] >> (from % 8)) & 1u, 1);
    if (from >= to) return;
    std::size_t byte = from / 8;
    const std::size_t whole = (to - from) / 8;
    if (filled_ == 0) {
      out_.append(source, byte, whole);
    } else {
      // The same shift for every byte: four at a time.
      std::size_t i = 0;
      char buffer[4];
      for (; i + 4 <= whole; i += 4) {
        std::uint32_t word;
        std::memcpy(&word, bytes + byte + i, 4);
        pending_ |= static_cast<std::uint64_t>(word) << filled_;
        for (char& c : buffer) {
          c = static_cast<char>(pending_ & 0xff);
          pending_ >>= 8;
        }
        out_.append(buffer, 4);
      }
      for (; i < whole; ++i) put(bytes[byte + i], 8);
    }
    byte += whole;
    for (std::uint64_t bit = byte * 8; bit < to; ++bit) put((bytes[bit / 8] >> (bit % 8)) & 1u, 1);
  }

  // An empty stored block, which ends at a byte boundary.
  void alignWithEmptyStoredBlock() {
    put(0, 3);  // not final, stored
    if (filled_ > 0) put(0, 8 - filled_);
    out_.append("\x00\x00\xff\xff", 4);
  }

  std::string take() { return std::move(out_); }

  // An empty final block with the fixed codes: the end of the stream.
  std::string finish() {
    put(1, 1);  // final
    put(1, 2);  // fixed codes
    put(0, 7);  // end of block
    if (filled_ > 0) put(0, 8 - filled_);
    return std::move(out_);
  }

 private:
  std::string out_;
  std::uint64_t pending_ = 0;
  int filled_ = 0;
};

std::uint16_t readLE16(const std::string& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) |
                                    static_cast<unsigned char>(bytes[at + 1]) << 8);
}

enum class BlockKind { coded, emptyStored, stored, final };

BlockKind kindOf(const DeflateBlocks& old, std::size_t index) {
  const std::uint64_t bit = old.blocks[index].bit;
  const auto header = [&](std::uint64_t at) {
    return (static_cast<unsigned char>(old.compressed[at / 8]) >> (at % 8)) & 1u;
  };
  if (bit / 8 >= old.compressed.size() || header(bit) != 0) return BlockKind::final;
  if (header(bit + 1) != 0 || header(bit + 2) != 0) return BlockKind::coded;
  const std::size_t length = (bit + 3 + 7) / 8;
  if (length + 4 > old.compressed.size()) return BlockKind::stored;
  return readLE16(old.compressed, length) == 0 ? BlockKind::emptyStored : BlockKind::stored;
}

// The runs of old blocks that can be taken over: each lies, with the window
// before it, inside one copied span. The final block and stored blocks with
// data stay out (their bits cannot simply be shifted).
std::vector<Run> reusableRuns(const DeflateBlocks& old, const std::vector<CopiedSpan>& copied) {
  std::vector<Run> runs;
  const auto& blocks = old.blocks;
  for (const auto& span : copied) {
    const std::size_t lowest = span.from == 0 && span.at == 0 ? 0 : span.from + kWindow;
    auto k =
        static_cast<std::size_t>(std::lower_bound(blocks.begin(), blocks.end(), lowest,
                                                  [](const DeflateBlocks::Block& b,
                                                     std::size_t at) { return b.offset < at; }) -
                                 blocks.begin());
    constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::size_t first = kNone;
    auto close = [&](std::size_t last) {
      if (first != kNone && blocks[last].offset > blocks[first].offset) {
        runs.push_back({first, last, blocks[first].offset - span.from + span.at});
      }
      first = kNone;
    };
    for (; k + 1 < blocks.size() && blocks[k + 1].offset <= span.to; ++k) {
      const auto kind = kindOf(old, k);
      if (kind == BlockKind::stored || kind == BlockKind::final) {
        close(k);
      } else if (first == kNone) {
        first = k;
      }
    }
    close(k);
  }
  return runs;
}

std::vector<Piece> plan(std::size_t size, const std::vector<Run>& runs, const DeflateBlocks* old) {
  std::vector<Piece> pieces;
  auto add = [&](std::size_t begin, std::size_t end, bool compress,
                 std::optional<std::size_t> run) {
    for (std::size_t at = begin; at < end || (at == 0 && end == 0 && pieces.empty());) {
      const std::size_t to = std::min(end, at + kChunk);
      pieces.push_back({.begin = at, .end = to, .compress = compress, .run = run});
      run.reset();
      if (to == at) break;
      at = to;
    }
  };
  std::size_t at = 0;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const auto& run = runs[r];
    const std::size_t length = old->blocks[run.last].offset - old->blocks[run.first].offset;
    add(at, run.at, true, std::nullopt);
    add(run.at, run.at + length, false, r);
    at = run.at + length;
  }
  add(at, size, true, std::nullopt);
  if (pieces.back().compress) pieces.back().finish = true;
  return pieces;
}

void compressAll(std::string_view bytes, int level, std::vector<Piece>& pieces) {
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < pieces.size();) {
      try {
        compressPiece(bytes, level, pieces[i]);
      } catch (const std::bad_alloc&) {
        pieces[i].failed = true;  // reported below, on the calling thread
      }
    }
  };
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  std::vector<std::thread> helpers;
  for (unsigned t = 1; t < std::min<std::size_t>(cores, pieces.size()); ++t) {
    helpers.emplace_back(work);
  }
  work();
  for (auto& helper : helpers) helper.join();
  for (const auto& piece : pieces) {
    if (piece.failed) throw std::runtime_error("deflate failed");
  }
}

std::uint32_t combinedCrc(const std::vector<Piece>& pieces) {
  std::uint32_t crc = pieces.front().crc;
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    crc = static_cast<std::uint32_t>(
        crc32_combine(crc, pieces[i].crc, static_cast<z_off_t>(pieces[i].end - pieces[i].begin)));
  }
  return crc;
}

}  // namespace

Deflated deflateInParallel(std::string_view bytes, int level) {
  auto pieces = plan(bytes.size(), {}, nullptr);
  compressAll(bytes, level, pieces);
  Deflated out{.data = {}, .crc32 = combinedCrc(pieces)};
  std::size_t total = 0;
  for (const auto& piece : pieces) total += piece.data.size();
  out.data.reserve(total);
  for (const auto& piece : pieces) out.data += piece.data;
  return out;
}

bool inflateNotingBlocks(DeflateBlocks& blocks, std::span<char> buffer,
                         const std::function<void(std::string_view, std::uint64_t)>& sink,
                         std::string& error) {
  if (blocks.compressed.size() > std::numeric_limits<uInt>::max()) {
    error = "too much data";
    return false;
  }
  z_stream inflater{};
  if (inflateInit2(&inflater, -15) != Z_OK) throw std::bad_alloc();
  std::unique_ptr<z_stream, decltype(&inflateEnd)> owner(&inflater, inflateEnd);
  inflater.next_in = reinterpret_cast<Bytef*>(blocks.compressed.data());
  inflater.avail_in = static_cast<uInt>(blocks.compressed.size());
  blocks.blocks = {{0, 0}};
  for (;;) {
    inflater.next_out = reinterpret_cast<Bytef*>(buffer.data());
    inflater.avail_out = static_cast<uInt>(buffer.size());
    // Z_BLOCK returns at the end of every block, so that the next one's
    // place can be noted.
    const int result = inflate(&inflater, Z_BLOCK);
    const std::size_t count = buffer.size() - inflater.avail_out;
    if (count > 0) sink(std::string_view(buffer.data(), count), inflater.total_in);
    if (result == Z_STREAM_END) return true;
    // With room for output, no progress means the data ended too soon.
    if (result != Z_OK) {
      error = inflater.msg != nullptr ? inflater.msg : "unexpected end of data";
      return false;
    }
    const int state = inflater.data_type;
    if ((state & 128) != 0 && (state & 64) == 0) {
      blocks.begin(inflater.total_in * 8 - static_cast<std::uint64_t>(state & 7),
                   inflater.total_out);
    }
  }
}

Deflated deflateReusing(std::string_view bytes, const DeflateBlocks& old,
                        const std::vector<CopiedSpan>& copied, int level) {
  // Spans that do not fit the new bytes, or overlap, take nothing over.
  std::size_t end = 0;
  for (const auto& span : copied) {
    if (span.to < span.from || span.at < end || span.at > bytes.size() ||
        span.to - span.from > bytes.size() - span.at) {
      return deflateInParallel(bytes, level);
    }
    end = span.at + (span.to - span.from);
  }
  const auto runs = reusableRuns(old, copied);
  if (runs.empty()) return deflateInParallel(bytes, level);
  auto pieces = plan(bytes.size(), runs, &old);
  compressAll(bytes, level, pieces);

  BitWriter out(old.compressed.size() + bytes.size() / 64);
  bool aligned = true;
  for (const auto& piece : pieces) {
    if (piece.compress) {
      if (!aligned) out.alignWithEmptyStoredBlock();
      out.append(piece.data);
      aligned = true;
    } else if (piece.run) {
      // Empty stored blocks are left out: the bits around them are shifted
      // by however far they fall from a byte boundary.
      const auto& run = runs[*piece.run];
      std::uint64_t from = old.blocks[run.first].bit;
      for (std::size_t k = run.first; k < run.last; ++k) {
        if (kindOf(old, k) != BlockKind::emptyStored) continue;
        out.copy(old.compressed, from, old.blocks[k].bit);
        from = old.blocks[k + 1].bit;
      }
      out.copy(old.compressed, from, old.blocks[run.last].bit);
      aligned = false;
    }
  }
  // A last piece compressed afresh ended the stream itself.
  return {.data = pieces.back().finish ? out.take() : out.finish(), .crc32 = combinedCrc(pieces)};
}

}  // namespace inkharbour
