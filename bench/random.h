// The benchmarks' source of pseudo-random numbers: splitmix64. The standard
// distributions differ between library vendors; this gives the same inputs
// everywhere, from the same seed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace inkharbour::bench {

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, n).
  int below(std::size_t n) { return static_cast<int>(next() % n); }
  // Uniform in [low, high].
  int between(int low, int high) { return low + below(static_cast<std::size_t>(high - low + 1)); }
  // True `p` times in a hundred.
  bool percent(int p) { return below(100) < p; }
  // An index drawn with the given weights.
  template <std::size_t N>
  std::size_t weighted(const std::array<int, N>& weights) {
    int total = 0;
    for (const int w : weights) total += w;
    int roll = below(static_cast<std::size_t>(total));
    for (std::size_t i = 0; i < N; ++i) {
      if (roll < weights[i]) return i;
      roll -= weights[i];
    }
    return N - 1;
  }

 private:
  std::uint64_t state_;
};

}  // namespace inkharbour::bench
