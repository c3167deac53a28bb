// The merge forecast: its counts for typical triples, the text the author
// reads, and agreement with what Update Link then reports.
#include <gtest/gtest.h>

#include "app/app_state.h"
#include "app/merge_forecast.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::TempDir, testing::writeFile;
using Lines = std::vector<std::string>;

Block para(const std::string& text) {
  return Block{.kind = Paragraph::make("Body", text)};
}

std::vector<Block> paragraphs(const Lines& texts) {
  std::vector<Block> out;
  for (const auto& text : texts) out.push_back(para(text));
  return out;
}

Block table(const Lines& cells) {
  std::vector<TableCell> row;
  for (const auto& text : cells) row.push_back(TableCell{.paragraphs = {Paragraph::make("Body", text)}});
  return Block{.kind = Table{.rows = {row}}};
}

std::vector<Footnote> footnote(const std::string& text) {
  return {Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", text)}}};
}

struct Case {
  std::string name;
  std::vector<Block> base, local, external;
  MergeForecast expected;
  std::string text;
  std::vector<Footnote> baseNotes = {}, localNotes = {}, externalNotes = {};
};

TEST(MergeForecast, CountsTheRecordsAndNotesOfTheMerge) {
  const Lines abc = {"a", "b", "c"};
  const Lines seven = {"a", "b", "c", "d", "e", "f", "g"};
  const Case cases[] = {
      {"nothing", paragraphs(abc), paragraphs(abc), paragraphs(abc), {}, "no changes to merge"},
      {"one external edit", paragraphs(abc), paragraphs(abc), paragraphs({"a", "B", "c"}),
       {.externalEdits = 1}, "1 external edit"},
      {"three external edits and a conflict", paragraphs(seven),
       paragraphs({"a", "b", "c", "d", "e", "f", "mine"}),
       paragraphs({"A", "b", "C", "d", "E", "f", "theirs"}),
       {.externalEdits = 3, .conflicts = 1, .notes = 1}, "3 external edits, 1 conflict"},
      {"two conflicts", paragraphs(abc), paragraphs({"mine", "b", "mine too"}),
       paragraphs({"theirs", "b", "theirs too"}), {.conflicts = 2, .notes = 2}, "2 conflicts"},
      {"local edits are kept, not announced", paragraphs(abc), paragraphs({"A", "b", "c"}),
       paragraphs({"a", "b", "c", "d"}), {.externalEdits = 1, .localKept = 1}, "1 external edit"},
      {"the same edit on both sides", paragraphs(abc), paragraphs({"a", "B", "c"}),
       paragraphs({"a", "B", "c"}), {.bothSame = 1}, "no changes to merge"},
      {"independent insertions", paragraphs(abc), paragraphs({"a", "mine", "c"}),
       paragraphs({"a", "b", "theirs", "c"}), {.structural = 1}, "1 external edit"},
      {"table cells from both sides", {table({"x", "y"})}, {table({"x", "mine"})},
       {table({"X", "theirs"})}, {.tableCells = 1, .tablesChanged = 1, .notes = 1, .cellConflicts = 1},
       "1 external edit, 1 conflict"},
      {"a table changed only locally", {para("a"), para("m"), table({"x", "y"}), para("n")},
       {para("a"), para("m"), table({"x", "mine"}), para("n")},
       {para("A"), para("m"), table({"x", "y"}), para("n")}, {.externalEdits = 1, .tableCells = 1},
       "1 external edit"},
      {"a footnote edited on both sides", paragraphs(abc), paragraphs(abc), paragraphs(abc),
       {.conflicts = 1, .notes = 1}, "1 conflict", footnote("n"), footnote("mine"),
       footnote("theirs")},
  };
  for (const auto& c : cases) {
    const StoryLink link{.path = "/nowhere.txt", .baseBlocks = c.base, .baseFootnotes = c.baseNotes};
    const auto forecast =
        forecastMerge(link, c.local, c.localNotes, ImportResult{c.external, c.externalNotes});
    EXPECT_EQ(forecast, c.expected) << c.name;
    EXPECT_EQ(describe(forecast), c.text) << c.name;
  }
}

// The forecast is the merge that Update Link then carries out: its report
// and its new notes have the counts forecast.
TEST(MergeForecast, RequestReadsTheFileAndForetellsUpdateLink) {
  TempDir dir;
  writeFile(dir / "chapter.txt", "one\ntwo\nthree\nfour\nfive");
  AppState app;
  app.place(dir / "chapter.txt");
  app.newStory();
  const Uuid unlinked = app.document().stories.back().id;
  const Uuid id = app.document().stories.front().id;
  app.replaceBlocks(id, 3, 1, paragraphs({"my four"}));
  writeFile(dir / "chapter.txt", "ONE\ntwo\nthree\ntheir four\nfive\nsix");

  EXPECT_FALSE(forecastRequest(app.document(), unlinked));
  const auto request = forecastRequest(app.document(), id);
  ASSERT_TRUE(request);
  const auto forecast = runForecast(*request);
  ASSERT_TRUE(forecast);
  EXPECT_EQ(describe(*forecast), "2 external edits, 1 conflict");

  app.updateFromLinked(id);
  const Story& story = app.document().stories.front();
  MergeForecast done{.notes = static_cast<std::int64_t>(story.notes.size())};
  for (const auto& change : story.lastMergeReport) {
    done.externalEdits += change.kind == ChangeRecord::Kind::externalEdit;
    done.conflicts += change.kind == ChangeRecord::Kind::conflict;
  }
  EXPECT_EQ(*forecast, done);

  std::filesystem::remove(dir / "chapter.txt");
  EXPECT_FALSE(runForecast(*request));
}

}  // namespace
}  // namespace inkharbour
