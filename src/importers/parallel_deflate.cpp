#include "importers/parallel_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace inkharbour {

namespace {

constexpr std::size_t kChunk = 1 << 20;
constexpr std::size_t kWindow = 32 * 1024;

struct Piece {
  std::string data;
  std::uint32_t crc = 0;
  bool failed = false;
};

void compressPiece(std::string_view all, std::size_t index, std::size_t count, int level,
                   Piece& piece) {
  const std::size_t begin = index * kChunk;
  const std::size_t length = std::min(kChunk, all.size() - begin);
  const auto* input = reinterpret_cast<const Bytef*>(all.data());

  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    piece.failed = true;
    return;
  }
  if (begin > 0) {
    // The window the chunk would have seen in one stream.
    const std::size_t from = begin - std::min(kWindow, begin);
    deflateSetDictionary(&stream, input + from, static_cast<uInt>(begin - from));
  }
  // A sync flush adds a few bytes beyond the bound for the data itself.
  piece.data.resize(deflateBound(&stream, length) + 64);
  stream.next_in = const_cast<Bytef*>(input + begin);
  stream.avail_in = static_cast<uInt>(length);
  stream.next_out = reinterpret_cast<Bytef*>(piece.data.data());
  stream.avail_out = static_cast<uInt>(piece.data.size());
  const bool last = index + 1 == count;
  const int result = deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
  const bool done = last ? result == Z_STREAM_END : (result == Z_OK && stream.avail_in == 0);
  piece.failed = !done;
  piece.data.resize(stream.total_out);
  deflateEnd(&stream);
  piece.crc = static_cast<std::uint32_t>(crc32(0, input + begin, static_cast<uInt>(length)));
}

}  // namespace

Deflated deflateInParallel(std::string_view bytes, int level) {
  const std::size_t count = std::max<std::size_t>(1, (bytes.size() + kChunk - 1) / kChunk);
  std::vector<Piece> pieces(count);
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < count;) {
      compressPiece(bytes, i, count, level, pieces[i]);
    }
  };
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  std::vector<std::thread> helpers;
  for (unsigned t = 1; t < std::min<std::size_t>(cores, count); ++t) helpers.emplace_back(work);
  work();
  for (auto& helper : helpers) helper.join();

  Deflated out;
  std::size_t total = 0;
  for (const auto& piece : pieces) {
    if (piece.failed) throw std::runtime_error("deflate failed");
    total += piece.data.size();
  }
  out.data.reserve(total);
  out.crc32 = pieces[0].crc;
  for (std::size_t i = 0; i < count; ++i) {
    out.data += pieces[i].data;
    if (i > 0) {
      const std::size_t length = std::min(kChunk, bytes.size() - i * kChunk);
      out.crc32 = static_cast<std::uint32_t>(
          crc32_combine(out.crc32, pieces[i].crc, static_cast<z_off_t>(length)));
    }
  }
  return out;
}

}  // namespace inkharbour
