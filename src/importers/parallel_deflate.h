// Deflating one large buffer on several cores: the input is cut into 1 MiB
// chunks, each compressed on its own (primed with the 32 KiB before it, so
// the ratio hardly suffers) and ended with a sync flush, so that the pieces
// joined are one valid raw deflate stream.
//
// A buffer that mostly repeats one read before can take over that stream's
// blocks instead: a deflate block depends only on its own data and the
// 32 KiB before it, so wherever both are unchanged its bits are copied
// (shifted to where they now fall) and only the rest is compressed.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace inkharbour {

struct Deflated {
  std::string data;     // raw deflate (no zlib or gzip header)
  std::uint32_t crc32;  // of the uncompressed bytes
};

// Throws std::runtime_error if zlib fails (it only does for lack of memory).
Deflated deflateInParallel(std::string_view bytes, int level);

// A raw deflate stream with the places where its blocks begin, recorded by
// the inflater that read it.
struct DeflateBlocks {
  struct Block {
    std::uint64_t bit;     // where its header starts in `compressed`
    std::uint64_t offset;  // where its data starts in the inflated bytes
  };
  std::string compressed;
  std::vector<Block> blocks;  // in order, the first at bit 0

  // Called at the start of each block, in order.
  void begin(std::uint64_t bit, std::uint64_t offset) { blocks.push_back({bit, offset}); }
};

// Inflates `blocks.compressed` into `buffer` chunk by chunk, noting where
// each block begins. `sink` gets each chunk and the compressed bytes read so
// far. Returns false, with zlib's word for it in `error`, when the data is
// damaged or ends too soon.
bool inflateNotingBlocks(DeflateBlocks& blocks, std::span<char> buffer,
                         const std::function<void(std::string_view, std::uint64_t)>& sink,
                         std::string& error);

// Inflated bytes of the old stream that stand unchanged in the new buffer:
// old [from, to) is new [at, at + to - from).
struct CopiedSpan {
  std::size_t from;
  std::size_t to;
  std::size_t at;
};

// Deflates `bytes` as deflateInParallel() does, taking over every block of
// `old` that lies with the 32 KiB before it inside one copied span. Spans
// are in increasing order of `at` and do not overlap.
Deflated deflateReusing(std::string_view bytes, const DeflateBlocks& old,
                        const std::vector<CopiedSpan>& copied, int level);

}  // namespace inkharbour
