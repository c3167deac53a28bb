// The merge forecast: its counts for typical triples, the text the author
// reads, and agreement with what Update Link then reports.
#include <gtest/gtest.h>

#include <sstream>

#include "app/app_state.h"
#include "app/merge_forecast.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::TempDir, testing::writeFile;
Block para(const std::string& text) {
  return Block{.kind = Paragraph::make("Body", text)};
}

// One block per word: a paragraph, or for "[x|y]" a table of one row.
std::vector<Block> blocks(const std::string& words) {
  std::vector<Block> out;
  std::istringstream in(words);
  for (std::string word; in >> word;) {
    if (word.front() != '[') {
      out.push_back(para(word));
      continue;
    }
    std::vector<TableCell> row;
    std::istringstream cells(word.substr(1, word.size() - 2));
    for (std::string cell; std::getline(cells, cell, '|');) {
      row.push_back(TableCell{.paragraphs = {Paragraph::make("Body", cell)}});
    }
    out.push_back(Block{.kind = Table{.rows = {row}}});
  }
  return out;
}

std::vector<Footnote> footnote(const std::string& text) {
  if (text.empty()) return {};
  return {Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", text)}}};
}

TEST(MergeForecast, CountsTheRecordsAndNotesOfTheMerge) {
  struct Case {
    std::string name, base, local, external;
    MergeForecast expected;
    std::string text;
    std::string baseNote = "", localNote = "", externalNote = "";
  };
  // clang-format off
  const Case cases[] = {
      {"nothing", "a b c", "a b c", "a b c", {}, "no changes to merge"},
      {"external edits and a conflict", "a b c d e f g", "a b c d e f mine", "A b C d E f theirs",
       {.externalEdits = 3, .conflicts = 1, .notes = 1}, "3 external edits, 1 conflict"},
      {"two conflicts", "a b c", "mine b mine2", "theirs b theirs2",
       {.conflicts = 2, .notes = 2}, "2 conflicts"},
      {"local edits are kept, not announced", "a b c", "A b c", "a b c d",
       {.externalEdits = 1, .localKept = 1}, "1 external edit"},
      {"the same edit on both sides", "a b c", "a B c", "a B c", {.bothSame = 1}, "no changes to merge"},
      {"independent insertions", "a b c", "a mine c", "a b theirs c", {.structural = 1}, "1 external edit"},
      {"table cells from both sides", "[x|y]", "[x|mine]", "[X|theirs]",
       {.tableCells = 1, .tablesChanged = 1, .notes = 1, .cellConflicts = 1}, "1 external edit, 1 conflict"},
      {"a table changed only locally", "a m [x|y] n", "a m [x|mine] n", "A m [x|y] n",
       {.externalEdits = 1, .tableCells = 1}, "1 external edit"},
      {"a footnote edited on both sides", "a", "a", "a", {.conflicts = 1, .notes = 1}, "1 conflict",
       "n", "mine", "theirs"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const StoryLink link{.baseBlocks = blocks(c.base), .baseFootnotes = footnote(c.baseNote)};
    const auto forecast = forecastMerge(link, blocks(c.local), footnote(c.localNote),
                                        ImportResult{blocks(c.external), footnote(c.externalNote)});
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
  app.replaceBlocks(id, 3, 1, {para("my four")});
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
