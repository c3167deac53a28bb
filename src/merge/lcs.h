// Longest-common-subsequence matching of two key lists, the way the merge
// pairs the blocks of two versions of a story.
//
// The matching is defined by a walk over the suffix table L, where L[i][j] is
// the length of the longest common subsequence of a[i..] and b[j..]: from
// (0, 0), equal keys are matched and both sides advance; otherwise the walk
// advances in b when L[i+1][j] < L[i][j+1] and in a when not. On a tie the
// walk skips the element of a, so among equally long matchings the one whose
// a-elements take the earliest partners in b is chosen.
//
// The table itself is never built: a reverse Myers search gives the same
// decisions in O((n+m)·D) time for lists that differ in D insertions and
// deletions, keeping O(D²) frontier entries up to a bound and recomputing
// past it; when D is large a bit-parallel pass with checkpointed rows takes
// over, in O(n·m/64) time and O(√n·m/64) words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace inkharbour::MergeEngine {

// Matched index pairs (index in a, index in b), strictly increasing in both.
using MatchMap = std::vector<std::pair<std::size_t, std::size_t>>;

// The matching of the walk above over plain string equality of the keys.
// Empty when either list is empty.
MatchMap lcsMatches(const std::vector<std::string>& a, const std::vector<std::string>& b);

// Knobs of the matching. Every setting gives the same matching; they only
// trade time against memory.
struct LcsLimits {
  // Frontier entries (4 bytes each) the search keeps before it keeps only
  // some rows and recomputes the others.
  std::size_t keptFrontierEntries = std::size_t{1} << 22;
  // Steps the search may take before the bit-parallel pass takes over;
  // absent: about as many as that pass would cost.
  std::optional<std::size_t> searchSteps;
};

// As lcsMatches, over keys already mapped to integers (equal keys, equal ids).
MatchMap lcsMatchIds(std::span<const std::uint32_t> a, std::span<const std::uint32_t> b,
                     const LcsLimits& limits = {});

}  // namespace inkharbour::MergeEngine
