#include "merge/table_merge.h"

#include <gtest/gtest.h>

#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using inkharbour::testing::report;
using inkharbour::testing::table;
using inkharbour::testing::tableText;

TEST(MergeTables, CellRules) {
  const struct {
    const char* name;
    std::string base, local, external, expected;
    std::int64_t externalChanges;
    std::string note = "";
  } cases[] = {
      {"external edit wears the local look, extra paragraphs as they come", "a|b", "a|*b",
       "a|B\nmore", "a|*B\nmore", 1},
      {"local edits and looks stay", "a|b", "*a|L", "a|b", "*a|L", 0},
      {"the same edit on both sides counts, without a note", "a|b", "a|X", "a|X", "a|X", 1},
      {"different edits: external kept, labelled note", "a|b|c/d|e|f", "a|b|c/d|e|mine",
       "a|b|c/d|e|theirs", "a|b|c/d|e|theirs", 1, "7: Cell R2C3: mine | Cell R2C3: theirs"},
      {"new external rows and cells are not counted", "a", "a", "a|new//new", "a|new//new", 0},
      {"rows the external table dropped go, local edits and all", "a/b", "a/L", "a", "a", 0},
      {"a cell missing locally comes as it is", "a|b", "a", "a|B", "a|B", 0},
  };
  for (const auto& c : cases) {
    const auto result = mergeTables(table(c.base), table(c.local), table(c.external), 7);
    EXPECT_EQ(tableText(result.table), c.expected) << c.name;
    EXPECT_EQ(result.externalCellChanges, c.externalChanges) << c.name;
    EXPECT_EQ(report(result.notes), c.note) << c.name;
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
