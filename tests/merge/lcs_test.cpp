#include "merge/lcs.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace inkharbour::MergeEngine {
namespace {

using Keys = std::vector<std::string>;

// The walk over the full (n+1)×(m+1) suffix table: the definition that the
// linear-memory matching must reproduce exactly.
MatchMap referenceMatches(const std::vector<std::uint32_t>& a,
                          const std::vector<std::uint32_t>& b) {
  const std::size_t n = a.size(), m = b.size();
  if (n == 0 || m == 0) return {};
  std::vector<std::vector<int>> L(n + 1, std::vector<int>(m + 1, 0));
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = m; j-- > 0;) {
      L[i][j] = a[i] == b[j] ? L[i + 1][j + 1] + 1 : std::max(L[i + 1][j], L[i][j + 1]);
    }
  }
  MatchMap out;
  std::size_t i = 0, j = 0;
  while (i < n && j < m) {
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

std::vector<std::uint32_t> ids(const std::string& letters) {
  return std::vector<std::uint32_t>(letters.begin(), letters.end());
}

// Lists with heavy repetition: a few symbols, often in long runs.
std::vector<std::uint32_t> randomList(std::mt19937_64& random, std::size_t length,
                                      std::uint32_t alphabet) {
  std::vector<std::uint32_t> out;
  while (out.size() < length) {
    const std::uint32_t symbol = static_cast<std::uint32_t>(random() % alphabet);
    const std::size_t run = random() % 4 == 0 ? 1 + random() % 12 : 1;
    for (std::size_t k = 0; k < run && out.size() < length; ++k) out.push_back(symbol);
  }
  return out;
}

// b as a copy of a with a few insertions, deletions and replacements.
std::vector<std::uint32_t> edited(std::mt19937_64& random, std::vector<std::uint32_t> a,
                                  std::size_t edits, std::uint32_t alphabet) {
  for (std::size_t e = 0; e < edits; ++e) {
    const std::size_t at = a.empty() ? 0 : random() % (a.size() + 1);
    switch (random() % 3) {
      case 0:
        a.insert(a.begin() + static_cast<std::ptrdiff_t>(at),
                 static_cast<std::uint32_t>(random() % alphabet));
        break;
      case 1:
        if (at < a.size()) a.erase(a.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      default:
        if (at < a.size()) a[at] = static_cast<std::uint32_t>(random() % alphabet);
        break;
    }
  }
  return a;
}

const LcsLimits kBitParallelOnly{.searchSteps = 0};
const LcsLimits kSearchOnly{.keptFrontierEntries = SIZE_MAX, .searchSteps = SIZE_MAX};
// Keeps only a few frontier rows, so the walk recomputes the others.
const LcsLimits kSearchRecomputing{.keptFrontierEntries = 8, .searchSteps = SIZE_MAX};

TEST(Lcs, KnownWalks) {
  struct Case {
    const char* name;
    std::string a, b;
    MatchMap expected;
  };
  const std::vector<Case> cases = {
      {"both empty", "", "", {}},
      {"first empty", "", "abc", {}},
      {"second empty", "abc", "", {}},
      {"identical", "abc", "abc", {{0, 0}, {1, 1}, {2, 2}}},
      {"disjoint", "abc", "xyz", {}},
      // The tie skips the base element: a[1] takes the earlier x of b, which
      // trimming the common suffix would get wrong.
      {"tie takes earliest partner", "Ax", "xx", {{1, 0}}},
      {"run against shorter run", "xxx", "xx", {{0, 0}, {1, 1}}},
      {"shorter run against run", "xx", "xxx", {{0, 0}, {1, 1}}},
      {"swap keeps the first of b", "ab", "ba", {{1, 0}}},
      {"insert in middle", "ac", "abc", {{0, 0}, {1, 2}}},
      {"delete in middle", "abc", "ac", {{0, 0}, {2, 1}}},
      {"replacement", "abc", "axc", {{0, 0}, {2, 2}}},
      {"element only in a before prefix", "Zab", "ab", {{1, 0}, {2, 1}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(lcsMatchIds(ids(c.a), ids(c.b)), c.expected) << c.name;
    EXPECT_EQ(lcsMatchIds(ids(c.a), ids(c.b), kBitParallelOnly), c.expected) << c.name;
  }
}

TEST(Lcs, StringKeysUsePlainEquality) {
  const Keys a = {"P:One", "P:", "T:x", "P:Two"};
  const Keys b = {"P:one", "P:", "P:Two", "P:"};
  EXPECT_EQ(lcsMatches(a, b), (MatchMap{{1, 1}, {3, 2}}));
  EXPECT_TRUE(lcsMatches({}, b).empty());
}

TEST(Lcs, EveryPathMatchesTheReferenceOnRandomLists) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 4000; ++round) {
    const std::uint32_t alphabet = 1 + static_cast<std::uint32_t>(round % 4);
    const auto a = randomList(random, random() % 61, alphabet);
    const auto b = round % 2 == 0 ? randomList(random, random() % 61, alphabet)
                                  : edited(random, a, random() % 8, alphabet);
    const auto expected = referenceMatches(a, b);
    ASSERT_EQ(lcsMatchIds(a, b), expected) << "round " << round;
    ASSERT_EQ(lcsMatchIds(a, b, kSearchOnly), expected) << "round " << round;
    ASSERT_EQ(lcsMatchIds(a, b, kSearchRecomputing), expected) << "round " << round;
    ASSERT_EQ(lcsMatchIds(a, b, kBitParallelOnly), expected) << "round " << round;
  }
}

TEST(Lcs, BitParallelAcrossWordBoundaries) {
  std::mt19937_64 random(13);
  for (std::size_t m : {63, 64, 65, 127, 128, 129, 191, 192, 193}) {
    for (int round = 0; round < 40; ++round) {
      const std::uint32_t alphabet = 1 + static_cast<std::uint32_t>(round % 3);
      const auto b = randomList(random, m, alphabet);
      const auto a = round % 2 == 0 ? randomList(random, 1 + random() % 150, alphabet)
                                    : edited(random, b, 1 + random() % 20, alphabet);
      ASSERT_EQ(lcsMatchIds(a, b, kBitParallelOnly), referenceMatches(a, b))
          << "m " << m << " round " << round;
    }
  }
}

TEST(Lcs, SmallLimitsSwitchMidSearchWithoutChangingTheResult) {
  std::mt19937_64 random(17);
  for (int round = 0; round < 300; ++round) {
    const auto a = randomList(random, 100 + random() % 200, 3);
    const auto b = edited(random, a, 5 + random() % 60, 3);
    const auto expected = referenceMatches(a, b);
    const LcsLimits limits{.keptFrontierEntries = static_cast<std::size_t>(random() % 400),
                           .searchSteps = static_cast<std::size_t>(random() % 3000)};
    ASSERT_EQ(lcsMatchIds(a, b, limits), expected) << "round " << round;
    ASSERT_EQ(lcsMatchIds(a, b), expected) << "round " << round;
  }
}

TEST(Lcs, LongListsWithFewEditsAgreeOnBothPaths) {
  std::mt19937_64 random(19);
  for (int round = 0; round < 4; ++round) {
    // Mostly distinct keys, as paragraphs are, with an empty paragraph now and then.
    std::vector<std::uint32_t> a(1500 + random() % 500);
    for (auto& id : a) id = random() % 10 == 0 ? 0 : static_cast<std::uint32_t>(random() % 100000);
    const auto b = edited(random, a, 40, 100000);
    const auto expected = referenceMatches(a, b);
    EXPECT_EQ(lcsMatchIds(a, b), expected);
    EXPECT_EQ(lcsMatchIds(a, b, kBitParallelOnly), expected);
  }
}

TEST(Lcs, SparseIdsAreRenumbered) {
  std::mt19937_64 random(23);
  for (int round = 0; round < 200; ++round) {
    auto a = randomList(random, random() % 40, 3);
    auto b = edited(random, a, random() % 6, 3);
    const auto expected = referenceMatches(a, b);
    for (auto& id : a) id = id * 1'000'000'007u + 4'000'000'000u;
    for (auto& id : b) id = id * 1'000'000'007u + 4'000'000'000u;
    ASSERT_EQ(lcsMatchIds(a, b), expected);
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
