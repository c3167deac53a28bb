#include "merge/lcs.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using Ids = std::vector<std::uint32_t>;

// The walk over the full (n+1)×(m+1) suffix table: the definition the
// linear-memory matching must reproduce exactly.
MatchMap referenceMatches(const Ids& a, const Ids& b) {
  const std::size_t n = a.size(), m = b.size();
  std::vector<std::vector<int>> L(n + 1, std::vector<int>(m + 1, 0));
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = m; j-- > 0;)
      L[i][j] = a[i] == b[j] ? L[i + 1][j + 1] + 1 : std::max(L[i + 1][j], L[i][j + 1]);
  }
  MatchMap out;
  for (std::size_t i = 0, j = 0; i < n && j < m;) {
    if (a[i] == b[j]) {
      out.emplace_back(i++, j++);
    } else if (L[i + 1][j] < L[i][j + 1]) {
      ++j;
    } else {
      ++i;
    }
  }
  return out;
}

// Lists with heavy repetition: a few symbols, often in long runs.
Ids randomList(std::mt19937_64& random, std::size_t length, std::uint32_t alphabet) {
  Ids out;
  while (out.size() < length) {
    const auto symbol = static_cast<std::uint32_t>(random() % alphabet);
    const std::size_t run = random() % 4 == 0 ? 1 + random() % 12 : 1;
    for (std::size_t k = 0; k < run && out.size() < length; ++k) out.push_back(symbol);
  }
  return out;
}

Ids edited(std::mt19937_64& random, const Ids& a, std::size_t edits, std::uint32_t alphabet) {
  return testing::edited(random, a, edits, [&] { return std::uint32_t(random() % alphabet); });
}

const LcsLimits kBitParallelOnly{.searchSteps = 0};
const LcsLimits kSearchOnly{.keptFrontierEntries = SIZE_MAX, .searchSteps = SIZE_MAX};
// Keeps only a few frontier rows, so the walk recomputes the others.
const LcsLimits kSearchRecomputing{.keptFrontierEntries = 8, .searchSteps = SIZE_MAX};

TEST(Lcs, KnownWalks) {
  const struct {
    std::string a, b;
    MatchMap expected;
  } cases[] = {
      {"", "abc", {}},
      {"abc", "abc", {{0, 0}, {1, 1}, {2, 2}}},
      // A tie skips the element of a, so a[1] takes the earlier x of b; trimming
      // the common suffix first would pair it with the later one.
      {"Ax", "xx", {{1, 0}}},
      {"xxx", "xx", {{0, 0}, {1, 1}}},
      {"ab", "ba", {{1, 0}}},
      {"abc", "axc", {{0, 0}, {2, 2}}},
  };
  for (const auto& c : cases) {
    const Ids a(c.a.begin(), c.a.end()), b(c.b.begin(), c.b.end());
    EXPECT_EQ(lcsMatchIds(a, b), c.expected) << c.a << " / " << c.b;
    EXPECT_EQ(lcsMatchIds(a, b, kBitParallelOnly), c.expected) << c.a << " / " << c.b;
  }
  EXPECT_EQ(lcsMatches({"P:One", "P:", "T:x", "P:Two"}, {"P:one", "P:", "P:Two", "P:"}),
            (MatchMap{{1, 1}, {3, 2}}));
}

TEST(Lcs, EveryPathMatchesTheTableOnRandomLists) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 4000; ++round) {
    const std::uint32_t alphabet = 1 + static_cast<std::uint32_t>(round % 4);
    const auto a = randomList(random, random() % 61, alphabet);
    const auto b = round % 2 == 0 ? randomList(random, random() % 61, alphabet)
                                  : edited(random, a, random() % 8, alphabet);
    const auto expected = referenceMatches(a, b);
    for (const auto& limits : {LcsLimits{}, kSearchOnly, kSearchRecomputing, kBitParallelOnly})
      ASSERT_EQ(lcsMatchIds(a, b, limits), expected) << "round " << round;
    // Ids far apart are renumbered densely before matching.
    auto sparse = [](Ids ids) {
      for (auto& id : ids) id = id * 1'000'000'007u + 4'000'000'000u;
      return ids;
    };
    ASSERT_EQ(lcsMatchIds(sparse(a), sparse(b)), expected) << "round " << round;
  }
}

TEST(Lcs, LongerListsOnTheFastPaths) {
  std::mt19937_64 random(13);
  // Lengths at the bit-parallel pass's word boundaries.
  for (std::size_t m : {63, 64, 65, 127, 128, 129, 191, 192, 193}) {
    for (int round = 0; round < 40; ++round) {
      const std::uint32_t alphabet = 1 + static_cast<std::uint32_t>(round % 3);
      const auto b = randomList(random, m, alphabet);
      const auto a = round % 2 == 0 ? randomList(random, 1 + random() % 150, alphabet)
                                    : edited(random, b, 1 + random() % 20, alphabet);
      ASSERT_EQ(lcsMatchIds(a, b, kBitParallelOnly), referenceMatches(a, b)) << m << "/" << round;
    }
  }
  // Small random limits switch from the search to the bit-parallel pass midway.
  for (int round = 0; round < 300; ++round) {
    const auto a = randomList(random, 100 + random() % 200, 3);
    const auto b = edited(random, a, 5 + random() % 60, 3);
    const LcsLimits limits{.keptFrontierEntries = static_cast<std::size_t>(random() % 400),
                           .searchSteps = static_cast<std::size_t>(random() % 3000)};
    ASSERT_EQ(lcsMatchIds(a, b, limits), referenceMatches(a, b)) << "round " << round;
  }
  // Book-length lists of mostly distinct keys, as paragraphs are, with a few edits.
  for (int round = 0; round < 3; ++round) {
    Ids a(1500 + random() % 500);
    for (auto& id : a) id = random() % 10 == 0 ? 0 : static_cast<std::uint32_t>(random() % 100000);
    const auto b = edited(random, a, 40, 100000);
    const auto expected = referenceMatches(a, b);
    EXPECT_EQ(lcsMatchIds(a, b), expected);
    EXPECT_EQ(lcsMatchIds(a, b, kBitParallelOnly), expected);
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
