#include "merge/lcs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "merge/merge_keys.h"

namespace inkharbour::MergeEngine {

namespace {

using Symbols = std::span<const std::uint32_t>;
using Pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

// Keys renumbered 0..count-1 over both lists, so that per-symbol tables can
// be plain vectors.
struct Alphabet {
  std::vector<std::uint32_t> a;
  std::vector<std::uint32_t> b;
  std::size_t size = 0;
};

Alphabet renumber(Symbols a, Symbols b) {
  Alphabet out;
  out.a.resize(a.size());
  out.b.resize(b.size());
  std::uint32_t largest = 0;
  for (auto id : a) largest = std::max(largest, id);
  for (auto id : b) largest = std::max(largest, id);
  const std::size_t total = a.size() + b.size();
  if (largest < 4 * total + 1024) {
    // Ids from a key interner are already dense; a vector beats hashing.
    std::vector<std::uint32_t> dense(std::size_t{largest} + 1, UINT32_MAX);
    auto number = [&](std::uint32_t id) {
      auto& slot = dense[id];
      if (slot == UINT32_MAX) slot = static_cast<std::uint32_t>(out.size++);
      return slot;
    };
    for (std::size_t i = 0; i < a.size(); ++i) out.a[i] = number(a[i]);
    for (std::size_t j = 0; j < b.size(); ++j) out.b[j] = number(b[j]);
  } else {
    std::unordered_map<std::uint32_t, std::uint32_t> dense;
    dense.reserve(total);
    auto number = [&](std::uint32_t id) {
      const auto [it, added] = dense.try_emplace(id, static_cast<std::uint32_t>(out.size));
      if (added) ++out.size;
      return it->second;
    };
    for (std::size_t i = 0; i < a.size(); ++i) out.a[i] = number(a[i]);
    for (std::size_t j = 0; j < b.size(); ++j) out.b[j] = number(b[j]);
  }
  return out;
}

// ---------------------------------------------------------------------------
// Reverse Myers search.
//
// D(x, y) = (n-x) + (m-y) - 2·L[x][y] is the number of insertions and
// deletions that take a[x..] to b[y..]. Along a diagonal k = x - y it never
// grows toward the end, so {x : D(x, x-k) <= d} is a tail of the diagonal;
// frontier row d holds its first x for every diagonal, found from the end
// backwards like Myers' furthest-reaching paths. At a mismatch D drops by
// one whichever way the walk goes, and the walk advances in a exactly when
// D(x+1, y) <= D(x, y) - 1, which row D(x, y) - 1 answers in constant time.
//
// Rows are computed d = 0, 1, ... until one reaches (0, 0), and the walk
// reads them back in the opposite order. When they would take too much
// memory only every s-th is kept, and the walk recomputes the rows between
// two kept ones when it gets there.

constexpr std::int32_t kNone = std::numeric_limits<std::int32_t>::max();

struct Frontier {
  std::int64_t low = 0;    // first diagonal, with the row's parity
  std::int64_t high = -1;  // last diagonal
  std::vector<std::int32_t> first;

  // The first x of diagonal k with D <= d, or kNone outside the row.
  std::int32_t at(std::int64_t k) const {
    if (k < low || k > high || ((k - low) & 1) != 0) return kNone;
    return first[static_cast<std::size_t>((k - low) / 2)];
  }
};

class ReverseSearch {
 public:
  ReverseSearch(Symbols a, Symbols b)
      : a_(a),
        b_(b),
        n_(static_cast<std::int64_t>(a.size())),
        m_(static_cast<std::int64_t>(b.size())) {}

  // Row d from row d-1 (none for d = 0). Adds the steps taken to `work`.
  Frontier row(std::size_t d, const Frontier* previous, std::size_t& work) const {
    const auto sd = static_cast<std::int64_t>(d);
    const std::int64_t delta = n_ - m_;
    Frontier out;
    out.low = std::max(delta - sd, -m_);
    out.high = std::min(delta + sd, n_);
    if (((out.low - (delta - sd)) & 1) != 0) ++out.low;
    if (((out.high - (delta + sd)) & 1) != 0) --out.high;
    if (out.high < out.low) return out;
    out.first.assign(static_cast<std::size_t>((out.high - out.low) / 2 + 1), kNone);
    for (std::size_t e = 0; e < out.first.size(); ++e) {
      const std::int64_t k = out.low + 2 * static_cast<std::int64_t>(e);
      std::int64_t x = kNone;
      if (previous == nullptr) {
        x = n_;
      } else {
        // One step in a from diagonal k+1 or one in b from diagonal k-1,
        // kept inside the grid. Row d-1 has the other parity, so both
        // neighbours are entries of it when inside its range.
        if (k + 1 >= previous->low && k + 1 <= previous->high) {
          const auto r = previous->first[static_cast<std::size_t>((k + 1 - previous->low) / 2)];
          if (r != kNone) x = std::max<std::int64_t>(r - 1, 0);
        }
        if (k - 1 >= previous->low && k - 1 <= previous->high) {
          const auto r = previous->first[static_cast<std::size_t>((k - 1 - previous->low) / 2)];
          if (r != kNone) x = std::min(x, std::max<std::int64_t>(r, k));
        }
      }
      if (x == kNone) continue;
      // Back along the diagonal over equal pairs, which keep D unchanged.
      const std::int64_t from = x;
      std::int64_t y = x - k;
      while (x > 0 && y > 0 &&
             a_[static_cast<std::size_t>(x - 1)] == b_[static_cast<std::size_t>(y - 1)]) {
        --x;
        --y;
      }
      work += static_cast<std::size_t>(from - x) + 1;
      out.first[e] = static_cast<std::int32_t>(x);
    }
    return out;
  }

  static bool reachesStart(const Frontier& row) { return row.at(0) == 0; }

 private:
  Symbols a_;
  Symbols b_;
  std::int64_t n_;
  std::int64_t m_;
};

// The rows of one search, kept whole or every s-th, handed out from the
// last one down.
class FrontierStore {
 public:
  explicit FrontierStore(std::size_t maxEntries) : maxEntries_(maxEntries) {}

  void add(std::size_t d, const Frontier& row) {
    kept_.emplace_back();
    if (d % spacing_ != 0) return;
    kept_.back() = row;
    stored_ += row.first.size();
    // Keep every other of the kept rows until they fit again. Row 0 always
    // stays, so the walk can recompute any row from the rows below it.
    while (stored_ > maxEntries_ && spacing_ <= d) {
      spacing_ *= 2;
      for (std::size_t r = 0; r < kept_.size(); ++r) {
        if (r % spacing_ == 0 || kept_[r].first.empty()) continue;
        stored_ -= kept_[r].first.size();
        kept_[r].first = {};
        kept_[r].first.shrink_to_fit();
      }
    }
  }

  // Row d; requests must come in decreasing order of d.
  const Frontier& get(std::size_t d, const ReverseSearch& search) {
    if (d % spacing_ == 0) return kept_[d];
    const std::size_t base = d - d % spacing_;
    if (segmentBase_ != base || segment_.empty()) {
      // Rebuild base+1 .. d; the rows above d are never asked for again.
      segmentBase_ = base;
      segment_.clear();
      std::size_t unused = 0;
      const Frontier* previous = &kept_[base];
      for (std::size_t r = base + 1; r <= d; ++r) {
        segment_.push_back(search.row(r, previous, unused));
        previous = &segment_.back();
      }
    }
    return segment_[d - base - 1];
  }

 private:
  std::size_t maxEntries_;
  std::size_t spacing_ = 1;
  std::size_t stored_ = 0;
  std::vector<Frontier> kept_;  // by d; empty rows where not kept
  std::size_t segmentBase_ = 0;
  std::vector<Frontier> segment_;  // rows segmentBase_+1 ..
};

std::optional<Pairs> reverseMyers(Symbols a, Symbols b, std::size_t maxStored,
                                  std::size_t workBudget) {
  const ReverseSearch search(a, b);
  FrontierStore rows(maxStored);
  std::size_t work = 0;
  std::size_t total = 0;  // D(0, 0)
  Frontier previous;
  for (std::size_t d = 0;; ++d) {
    Frontier current = search.row(d, d == 0 ? nullptr : &previous, work);
    if (work > workBudget) return std::nullopt;
    if (ReverseSearch::reachesStart(current)) {
      total = d;
      break;
    }
    rows.add(d, current);
    previous = std::move(current);
  }

  Pairs matches;
  std::size_t i = 0, j = 0, d = total;
  while (i < a.size() && j < b.size()) {
    if (a[i] == b[j]) {
      matches.emplace_back(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j));
      ++i;
      ++j;
      continue;
    }
    // Here D(i, j) = d > 0; step to whichever neighbour is one closer,
    // preferring the step in a.
    const auto k = static_cast<std::int64_t>(i + 1) - static_cast<std::int64_t>(j);
    const auto first = d > 0 ? rows.get(d - 1, search).at(k) : kNone;
    if (first != kNone && static_cast<std::int64_t>(i + 1) >= first) {
      ++i;
    } else {
      ++j;
    }
    if (d > 0) --d;
  }
  return matches;
}

// ---------------------------------------------------------------------------
// Bit-parallel suffix table.
//
// Row i of L is kept as one bit per element of b, read from the end: bit p
// stands for b[m-1-p], and a zero bit marks a column where L[i][·] steps up,
// so L[i][j] is the number of zero bits below bit m-j. Taking a[i] into
// account turns row i+1 into row i by the Allison–Dix/Hyyrö update
// V' = (V + U) | (V & ~M), with M the positions of a[i] in b and U = V & M.
// The carry into bit m-j of that addition is exactly L[i][j] - L[i+1][j],
// and at a mismatch the walk advances in b exactly when that difference is
// 1; so the walk needs one carry bit per step and no counting at all.
// Only every s-th row (s ≈ √n) is kept; the walk rebuilds the carries of
// one segment of rows at a time from the checkpoint above it.

class BitRows {
 public:
  BitRows(Symbols a, Symbols b, std::size_t alphabetSize)
      // At least one spare bit above the top one, so that bit m exists.
      : a_(a), words_(b.size() / 64 + 1), scratch_(words_, 0) {
    // Occurrences of each symbol in b, as bit positions, grouped by symbol.
    const std::size_t m = b.size();
    start_.assign(alphabetSize + 1, 0);
    for (auto c : b) ++start_[c + 1];
    for (std::size_t c = 0; c < alphabetSize; ++c) start_[c + 1] += start_[c];
    positions_.resize(m);
    std::vector<std::uint32_t> fill(start_.begin(), start_.end() - 1);
    for (std::size_t j = 0; j < m; ++j)
      positions_[fill[b[j]]++] = static_cast<std::uint32_t>(m - 1 - j);
    // A symbol with at least one occurrence per word (the empty paragraph,
    // say) gets a ready mask; there are at most 64 such symbols.
    heavy_.assign(alphabetSize, -1);
    for (std::size_t c = 0; c < alphabetSize; ++c) {
      if (start_[c + 1] - start_[c] < words_) continue;
      heavy_[c] = static_cast<std::int32_t>(heavyMasks_.size() / words_);
      heavyMasks_.resize(heavyMasks_.size() + words_, 0);
      setBits(heavyMasks_.data() + static_cast<std::size_t>(heavy_[c]) * words_, c);
    }
  }

  std::size_t words() const { return words_; }

  // Turns row i+1 into row i in place; the carries of the addition go to
  // `carries` unless it is null.
  void step(std::uint64_t* row, std::size_t i, std::uint64_t* carries) {
    const auto c = a_[i];
    if (heavy_[c] >= 0) {
      update(row, heavyMasks_.data() + static_cast<std::size_t>(heavy_[c]) * words_, carries);
      return;
    }
    setBits(scratch_.data(), c);
    update(row, scratch_.data(), carries);
    for (auto k = start_[c]; k < start_[c + 1]; ++k) scratch_[positions_[k] >> 6] = 0;
  }

 private:
  void setBits(std::uint64_t* mask, std::uint32_t c) const {
    for (auto k = start_[c]; k < start_[c + 1]; ++k) {
      mask[positions_[k] >> 6] |= std::uint64_t{1} << (positions_[k] & 63);
    }
  }

  void update(std::uint64_t* row, const std::uint64_t* mask, std::uint64_t* carries) const {
    std::uint64_t carry = 0;
    for (std::size_t w = 0; w < words_; ++w) {
      const std::uint64_t v = row[w];
      const std::uint64_t u = v & mask[w];
      const std::uint64_t sum = v + u;
      const std::uint64_t total = sum + carry;
      carry = static_cast<std::uint64_t>(sum < v) | static_cast<std::uint64_t>(total < sum);
      if (carries != nullptr) carries[w] = total ^ v ^ u;
      row[w] = total | (v & ~mask[w]);
    }
  }

  Symbols a_;
  std::size_t words_;
  std::vector<std::uint32_t> start_;
  std::vector<std::uint32_t> positions_;
  std::vector<std::int32_t> heavy_;
  std::vector<std::uint64_t> heavyMasks_;
  std::vector<std::uint64_t> scratch_;
};

Pairs bitParallel(Symbols a, Symbols b, std::size_t alphabetSize) {
  const std::size_t n = a.size();
  const std::size_t m = b.size();
  BitRows rows(a, b, alphabetSize);
  const std::size_t words = rows.words();
  const auto span = std::max<std::size_t>(
      1, static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(n)))));
  const std::size_t segments = (n + span - 1) / span;

  // Checkpoint c holds row min((c+1)·span, n), the top of segment c.
  std::vector<std::uint64_t> checkpoints(segments * words);
  std::vector<std::uint64_t> row(words, ~std::uint64_t{0});  // row n: all zero lengths
  auto checkpoint = [&](std::size_t c) {
    return checkpoints.begin() + static_cast<std::ptrdiff_t>(c * words);
  };
  std::copy(row.begin(), row.end(), checkpoint(segments - 1));
  for (std::size_t i = n; i-- > span;) {
    rows.step(row.data(), i, nullptr);
    if (i % span == 0) std::copy(row.begin(), row.end(), checkpoint(i / span - 1));
  }

  // Carries of rows lo..hi-1 of the current segment; those of row i lead
  // from row i+1 to row i.
  std::vector<std::uint64_t> carries(span * words);
  std::size_t lo = 0;
  auto load = [&](std::size_t c) {
    lo = c * span;
    const std::size_t hi = std::min(lo + span, n);
    std::copy_n(checkpoint(c), words, row.begin());
    for (std::size_t r = hi; r-- > lo;) rows.step(row.data(), r, carries.data() + (r - lo) * words);
  };

  Pairs matches;
  std::size_t loaded = segments;  // none yet
  std::size_t i = 0, j = 0;
  while (i < n && j < m) {
    if (a[i] == b[j]) {
      matches.emplace_back(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j));
      ++i;
      ++j;
      continue;
    }
    if (i / span != loaded) {
      loaded = i / span;
      load(loaded);
    }
    const std::size_t bit = m - j;
    const std::uint64_t word = carries[(i - lo) * words + (bit >> 6)];
    if (((word >> (bit & 63)) & 1) != 0) {
      ++j;  // L[i+1][j] < L[i][j]
    } else {
      ++i;
    }
  }
  return matches;
}

}  // namespace

MatchMap lcsMatchIds(Symbols a, Symbols b, const LcsLimits& limits) {
  MatchMap out;
  if (a.empty() || b.empty()) return out;
  Alphabet alphabet = renumber(a, b);

  // An element of a whose key never occurs in b is skipped by the walk the
  // moment it is reached, whatever j is, and takes no part in any L value:
  // dropping it leaves the walk over the others unchanged. (Elements of b
  // alone may not be dropped: they decide ties.)
  std::vector<bool> inB(alphabet.size, false);
  for (auto c : alphabet.b) inB[c] = true;
  std::vector<std::uint32_t> kept;
  std::vector<std::uint32_t> keptIndex;
  kept.reserve(a.size());
  keptIndex.reserve(a.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!inB[alphabet.a[i]]) continue;
    kept.push_back(alphabet.a[i]);
    keptIndex.push_back(static_cast<std::uint32_t>(i));
  }

  // The walk matches a common prefix pair by pair. A common suffix is not
  // trimmed: on ties the walk may pair a suffix element of a with an earlier
  // equal element of b.
  std::size_t prefix = 0;
  while (prefix < kept.size() && prefix < alphabet.b.size() && kept[prefix] == alphabet.b[prefix]) {
    out.emplace_back(keptIndex[prefix], prefix);
    ++prefix;
  }
  const Symbols restA = Symbols(kept).subspan(prefix);
  const Symbols restB = Symbols(alphabet.b).subspan(prefix);
  if (restA.empty() || restB.empty()) return out;

  // The bit-parallel pass costs two sweeps of n·m/64 words, about a
  // nanosecond each. A search step costs from one to several (a mispredicted
  // branch on a small alphabet), so the search may take a quarter of a sweep
  // in steps before giving way: the worst case stays within about twice the
  // pass, and a search that finishes is far cheaper than it.
  const std::size_t sweep = restA.size() * (restB.size() / 64 + 1);
  const std::size_t budget =
      limits.searchSteps.value_or(std::max<std::size_t>(sweep / 4, std::size_t{1} << 16));
  std::optional<Pairs> found = reverseMyers(restA, restB, limits.keptFrontierEntries, budget);
  const Pairs pairs = found ? std::move(*found) : bitParallel(restA, restB, alphabet.size);
  out.reserve(out.size() + pairs.size());
  for (const auto& [i, j] : pairs) out.emplace_back(keptIndex[prefix + i], prefix + j);
  return out;
}

MatchMap lcsMatches(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  std::unordered_map<std::string_view, std::uint32_t, KeyedHash> ids;
  ids.reserve(a.size() + b.size());
  auto intern = [&](const std::vector<std::string>& keys) {
    std::vector<std::uint32_t> out;
    out.reserve(keys.size());
    for (const auto& key : keys) {
      out.push_back(ids.try_emplace(key, static_cast<std::uint32_t>(ids.size())).first->second);
    }
    return out;
  };
  const auto idsA = intern(a);
  const auto idsB = intern(b);
  return lcsMatchIds(idsA, idsB);
}

}  // namespace inkharbour::MergeEngine
