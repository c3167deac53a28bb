#include "merge/table_merge.h"

#include <gtest/gtest.h>

#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using inkharbour::testing::table;
using Rows = std::vector<std::vector<std::string>>;

Rows texts(const Table& t) {
  Rows out;
  for (const auto& row : t.rows) {
    auto& line = out.emplace_back();
    for (const auto& cell : row) line.push_back(cell.text());
  }
  return out;
}

struct TableCase {
  const char* name;
  Rows base, local, external;
  Rows expected;
  std::int64_t externalChanges;
  std::vector<std::string> noteTexts;  // "local | external"
};

TEST(MergeTables, CellCases) {
  const std::vector<TableCase> cases = {
      {"unchanged", {{"a", "b"}}, {{"a", "b"}}, {{"a", "b"}}, {{"a", "b"}}, 0, {}},
      {"external edit", {{"a", "b"}}, {{"a", "b"}}, {{"a", "B"}}, {{"a", "B"}}, 1, {}},
      {"local edit", {{"a", "b"}}, {{"a", "L"}}, {{"a", "b"}}, {{"a", "L"}}, 0, {}},
      {"same edit both sides", {{"a", "b"}}, {{"a", "X"}}, {{"a", "X"}}, {{"a", "X"}}, 1, {}},
      {"edits in different cells", {{"a", "b"}}, {{"A", "b"}}, {{"a", "B"}}, {{"A", "B"}}, 1, {}},
      {"conflict at row 2 column 3",
       {{"a", "b", "c"}, {"d", "e", "f"}},
       {{"a", "b", "c"}, {"d", "e", "mine"}},
       {{"a", "b", "c"}, {"d", "e", "theirs"}},
       {{"a", "b", "c"}, {"d", "e", "theirs"}},
       1,
       {"Cell R2C3: mine | Cell R2C3: theirs"}},
      {"external extra row is new, not counted",
       {{"a"}},
       {{"a"}},
       {{"a"}, {"new"}},
       {{"a"}, {"new"}},
       0,
       {}},
      {"external row fewer drops a local edit",
       {{"a"}, {"b"}},
       {{"a"}, {"L"}},
       {{"a"}},
       {{"a"}},
       0,
       {}},
      {"cell missing locally is taken as it is",
       {{"a", "b"}},
       {{"a"}},
       {{"a", "B"}},
       {{"a", "B"}},
       0,
       {}},
      {"empty external rows stay", {{"a"}}, {{"a"}}, {{}, {"a"}}, {{}, {"a"}}, 0, {}},
  };
  for (const auto& c : cases) {
    const TableMergeResult result =
        mergeTables(table(c.base), table(c.local), table(c.external), 7);
    EXPECT_EQ(texts(result.table), c.expected) << c.name;
    EXPECT_EQ(result.externalCellChanges, c.externalChanges) << c.name;
    std::vector<std::string> notes;
    for (const auto& note : result.notes) {
      notes.push_back(note.localText + " | " + note.externalText);
      EXPECT_EQ(note.paragraphIndex, 7) << c.name;
    }
    EXPECT_EQ(notes, c.noteTexts) << c.name;
  }
}

TEST(MergeTables, ExternalCellTakesTheLocalCellLook) {
  Table local = table({{"a"}});
  local.rows[0][0].paragraphs[0] =
      Paragraph{.styleName = "Table Text", .runs = {TextRun{.text = "a", .bold = true}}};
  Table external = table({{"b"}});
  external.rows[0][0].paragraphs.push_back(Paragraph::make("Body", "more"));
  const auto result = mergeTables(table({{"a"}}), local, external, 0);
  const auto& paragraphs = result.table.rows[0][0].paragraphs;
  ASSERT_EQ(paragraphs.size(), 2u);
  EXPECT_EQ(paragraphs[0],
            (Paragraph{.styleName = "Table Text", .runs = {TextRun{.text = "b", .bold = true}}}));
  // Beyond the local cell's paragraphs the external ones come as they are.
  EXPECT_EQ(paragraphs[1], Paragraph::make("Body", "more"));
  EXPECT_EQ(result.externalCellChanges, 1);
}

TEST(MergeTables, UnchangedExternalCellKeepsTheLocalCellExactly) {
  Table local = table({{"a"}});
  local.rows[0][0].paragraphs[0].runs[0].italic = true;
  const auto result = mergeTables(table({{"a"}}), local, table({{"a"}}), 0);
  EXPECT_EQ(result.table, local);
}

}  // namespace
}  // namespace inkharbour::MergeEngine
