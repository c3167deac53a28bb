// "Use mine" over notes made by real merges: paragraphs, table cells and
// footnotes, the runs a restored paragraph keeps, and the refusals.
#include "app/use_mine.h"

#include <gtest/gtest.h>

#include <functional>

#include "merge/merge_engine.h"
#include "merge/merge_fixtures.h"

namespace inkharbour {
namespace {

using testing::dump;

Story merged(const std::string& base, const std::string& local, const std::string& external) {
  auto result =
      MergeEngine::merge(testing::story(base), testing::story(local), testing::story(external));
  return Story{.blocks = std::move(result.blocks), .notes = std::move(result.notes)};
}

Footnote footnote(std::int64_t id, const std::string& text) {
  Footnote out{.id = id};
  for (const auto& line : testing::split(text, '\n')) {
    out.paragraphs.push_back(Paragraph::make("Footnote", line));
  }
  return out;
}

TEST(UseMine, PutsTheLocalTextBackAtTheNotesPlace) {
  const struct {
    const char* name;
    std::string base, local, external, conflicted, expected;
  } cases[] = {
      {"a paragraph", "a,b,c", "a,B1,c", "a,B2,c", "a,B2,c", "a,B1,c"},
      {"the style and look carried over stay", "a,b,c", "a,*B1,c", "a,B2,c", "a,*B2,c", "a,*B1,c"},
      {"two local paragraphs for one", "a,b,c", "a,X,Y,c", "a,Z,c", "a,Z,c", "a,X,Y,c"},
      {"a local deletion", "a,b,c", "a,c", "a,B2,c", "a,B2,c", "a,c"},
      {"an external deletion", "a,b,c", "a,B1,c", "a,c", "a,c", "a,B1,c"},
      {"a table cell", "a,x|y/z|w", "a,x|y/z|mine", "a,x|y/z|theirs", "a,x|y/z|theirs",
       "a,x|y/z|mine"},
      {"a cell of two paragraphs", "a,x|y", "a,x|mine\n*more", "a,x|theirs", "a,x|theirs",
       "a,x|mine\nmore"},
      {"a table line kept where the table still is", "a,b,c", "a,B1,t|u", "a,B2,t|u", "a,B2,t|u",
       "a,B1,t|u"},
      {"words in place of an external table", "a,b", "a,B1,W", "a,B2,t|u", "a,B2,t|u", "a,B1,W"},
  };
  for (const auto& c : cases) {
    Story story = merged(c.base, c.local, c.external);
    EXPECT_EQ(dump(story.blocks), c.conflicted) << c.name;
    ASSERT_EQ(story.notes.size(), 1u) << c.name;
    const Story before = story;
    EXPECT_EQ(useMineRefusal(story, story.notes[0].id), std::nullopt) << c.name;
    EXPECT_EQ(useMine(story, before.notes[0].id), std::nullopt) << c.name;
    EXPECT_EQ(dump(story.blocks), c.expected) << c.name;
    EXPECT_TRUE(story.notes.empty()) << c.name;
    EXPECT_EQ(story.blocks.front().id, before.blocks.front().id) << c.name;
    EXPECT_EQ(story.blocks.back().id, before.blocks.back().id) << c.name;
  }
}

TEST(UseMine, RestoresAFootnoteAndLeavesTheOthers) {
  const auto result = MergeEngine::mergeFootnotes({footnote(1, "one"), footnote(2, "two")},
                                                  {footnote(1, "one"), footnote(2, "mine\nsecond")},
                                                  {footnote(1, "ONE"), footnote(2, "theirs")});
  Story story{.blocks = testing::story("a"), .footnotes = result.footnotes, .notes = result.notes};
  ASSERT_EQ(story.notes.size(), 1u);
  EXPECT_EQ(useMine(story, story.notes[0].id), std::nullopt);
  ASSERT_EQ(story.footnotes.size(), 2u);
  EXPECT_EQ(story.footnotes[0].text(), "ONE");
  EXPECT_EQ(story.footnotes[1], footnote(2, "mine\nsecond"));
  EXPECT_TRUE(story.notes.empty());
}

TEST(UseMine, LaterNotesFollowTheBlocksGainedSoBothCanBeUsed) {
  Story story = merged("a,b,c,d,e", "a,B1,B1b,c,D1,e", "a,B2,c,D2,e");
  ASSERT_EQ(story.notes.size(), 2u);
  const Uuid second = story.notes[1].id;
  EXPECT_EQ(useMine(story, story.notes[0].id), std::nullopt);
  EXPECT_EQ(story.notes[0].paragraphIndex, 4);
  EXPECT_EQ(useMine(story, second), std::nullopt);
  EXPECT_EQ(dump(story.blocks), "a,B1,B1b,c,D1,e");
}

// The shared start and end of the paragraph keep their runs; the new words
// take the look of the run they replace, and a reference mark is never cut.
TEST(UseMine, RestoredParagraphKeepsTheRunsOfItsSharedWords) {
  const TextRun italic{.text = "big", .italic = true};
  const TextRun red{.text = " cat sat.", .colorHex = "C00000"};
  const struct {
    const char* name;
    std::vector<TextRun> runs;
    std::string mine;
    std::vector<TextRun> expected;
  } cases[] = {
      {"a word in the middle",
       {{.text = "The "}, italic, red},
       "The big dog sat.",
       {{.text = "The "}, italic, {.text = " dog sat.", .colorHex = "C00000"}}},
      {"words added at the end",
       {{.text = "The "}, italic},
       "The big one",
       {{.text = "The "}, {.text = "big one", .italic = true}}},
      {"a replaced reference mark goes",
       {{.text = "He said"}, TextRun::footnoteReference(1), {.text = " yes."}},
       "He said no.",
       {{.text = "He said no."}}},
      {"a reference mark at the edge is not split",
       {{.text = "Note"}, TextRun::footnoteReference(12)},
       "Note[13]",
       {{.text = "Note[13]"}}},
      {"a shared reference mark stays",
       {{.text = "Old"}, TextRun::footnoteReference(3), {.text = " end"}},
       "New[3] end",
       {{.text = "New"}, TextRun::footnoteReference(3), {.text = " end"}}},
  };
  for (const auto& c : cases) {
    const Paragraph external{.styleName = "Quote", .runs = c.runs};
    Story story{.blocks = {Block{.kind = external}},
                .notes = {ConflictNote{.localText = c.mine, .externalText = external.text()}}};
    const Uuid blockID = story.blocks[0].id;
    EXPECT_EQ(useMine(story, story.notes[0].id), std::nullopt) << c.name;
    EXPECT_EQ(story.blocks[0].id, blockID) << c.name;
    EXPECT_EQ(std::get<Paragraph>(story.blocks[0].kind),
              (Paragraph{.styleName = "Quote", .runs = c.expected}))
        << c.name;
  }
}

TEST(UseMine, RefusesAndChangesNothingWhenThePlaceIsGone) {
  const auto editParagraph = [](Story& s) { s.blocks[1] = testing::paragraph("edited"); };
  const auto insertBefore = [](Story& s) {
    s.blocks.insert(s.blocks.begin(), testing::paragraph("new first"));
  };
  const auto editCell = [](Story& s) {
    std::get<Table>(s.blocks[1].kind).rows[0][1] = testing::table("edited").rows[0][0];
  };
  const auto dropTable = [](Story& s) { s.blocks.pop_back(); };
  const auto nothing = [](Story&) {};
  const auto forgetNote = [](Story& s) { s.notes[0].id = Uuid::random(); };
  const struct {
    const char* name;
    std::string base, local, external;
    std::function<void(Story&)> edit;
    std::string_view message;
  } cases[] = {
      {"the external paragraph edited since", "a,b,c", "a,B1,c", "a,B2,c", editParagraph,
       kUseMinePlaceChanged},
      {"blocks inserted before it", "a,b,c", "a,B1,c", "a,B2,c", insertBefore,
       kUseMinePlaceChanged},
      {"the cell edited since", "a,x|y", "a,x|mine", "a,x|theirs", editCell, kUseMinePlaceChanged},
      {"the table gone", "a,x|y", "a,x|mine", "a,x|theirs", dropTable, kUseMinePlaceChanged},
      {"a table of mine the note cannot rebuild", "a,b,c", "a,B1,x|y,c", "a,B2,c", nothing,
       kUseMineNotText},
      {"no such note", "a,b,c", "a,B1,c", "a,B2,c", forgetNote, kUseMineNoteGone},
  };
  for (const auto& c : cases) {
    Story story = merged(c.base, c.local, c.external);
    ASSERT_EQ(story.notes.size(), 1u) << c.name;
    const Uuid noteID = story.notes[0].id;
    c.edit(story);
    const Story before = story;
    EXPECT_EQ(useMineRefusal(story, noteID), std::string(c.message)) << c.name;
    EXPECT_EQ(useMine(story, noteID), std::string(c.message)) << c.name;
    EXPECT_EQ(story, before) << c.name;
  }

  Story story{.footnotes = {footnote(4, "theirs, edited")},
              .notes = {ConflictNote{.paragraphIndex = -1,
                                     .localText = "Footnote 4: mine",
                                     .externalText = "Footnote 4: theirs"}}};
  EXPECT_EQ(useMine(story, story.notes[0].id), std::string(kUseMinePlaceChanged));
  EXPECT_EQ(story.notes.size(), 1u);
}

}  // namespace
}  // namespace inkharbour
