// Deflating one large buffer on several cores: the input is cut into 1 MiB
// chunks, each compressed on its own (primed with the 32 KiB before it, so
// the ratio hardly suffers) and ended with a sync flush, so that the pieces
// joined are one valid raw deflate stream.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace inkharbour {

struct Deflated {
  std::string data;     // raw deflate (no zlib or gzip header)
  std::uint32_t crc32;  // of the uncompressed bytes
};

// Throws std::runtime_error if zlib fails (it only does for lack of memory).
Deflated deflateInParallel(std::string_view bytes, int level);

}  // namespace inkharbour
