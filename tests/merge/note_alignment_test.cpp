// Aligning a file's notes with the base's when another program renumbered them: notes
// that read the same pair first, the rest by position between them, footnotes and endnotes
// apart; marks follow their notes, and new notes meet no number in use.
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "merge/merge_keys.h"
#include "merge/note_alignment.h"

namespace inkharbour::MergeEngine {
namespace {

Block cited(const std::string& text, std::int64_t id) {
  return Block{.kind = Paragraph{.styleName = "Body",
                                 .runs = {{.text = text}, TextRun::footnoteReference(id)}}};
}

Footnote note(std::int64_t id, const std::string& text) {
  return {.id = id, .paragraphs = {Paragraph::make("Body", text)}};
}

// "2 One|3 Two": notes in reading order, each cited by a paragraph of its own.
NotedContent content(const std::string& notes) {
  NotedContent out;
  std::istringstream in(notes);
  for (std::string item; std::getline(in, item, '|');) {
    const auto space = item.find(' ');
    const std::int64_t id = std::stoll(item.substr(0, space));
    out.blocks.push_back(cited("p", id));
    out.footnotes.push_back(note(id, item.substr(space + 1)));
  }
  return out;
}

std::vector<std::string> keys(const std::vector<Block>& blocks) {
  std::vector<std::string> out;
  for (const auto& block : blocks) out.push_back(mergeKey(block));
  return out;
}

TEST(NoteAlignment, RenumberedNotesTakeTheBaseNumbersMarksInCellsIncluded) {
  const auto cell = [](Block block) {
    return Block{.kind = Table{.rows = {{TableCell{{std::get<Paragraph>(block.kind)}}}}}};
  };
  // As LibreOffice saves them: footnotes and endnotes from 2; one mark is not the "[n]" kind.
  const NotedContent base{.blocks = {cited("a", 1), cell(cited("b", 2)), cited("c", 10001)},
                          .footnotes = {note(1, "One"), note(2, "Two"), note(10001, "One")}};
  NotedContent file{.blocks = {cited("a", 2), cell(cited("b", 3)), cited("c", 10002)},
                    .footnotes = {note(2, "One"), note(3, "Two"), note(10002, "One")}};
  std::get<Paragraph>(file.blocks[0].kind).runs.push_back({.text = "*", .footnoteID = 3});

  const auto aligned = alignNotes(file, base.blocks, base.footnotes, {});
  EXPECT_EQ(aligned.footnotes, base.footnotes);
  EXPECT_EQ(keys(aligned.blocks), (std::vector<std::string>{"P:a[1]*", "T:b[2]", "P:c[10001]"}));
  EXPECT_EQ(readingOrder(aligned.blocks, aligned.footnotes),
            (std::vector<std::int64_t>{1, 2, 10001}));
  EXPECT_EQ(keys({*renumberedMarks(base.blocks[0], {{1, 7}})}), std::vector<std::string>{"P:a[7]"});
  EXPECT_FALSE(renumberedMarks(base.blocks[0], {{2, 5}}));
}

TEST(NoteAlignment, SameTextsPairFirstThenTheRestByPositionAndNewNotesMeetNoNumber) {
  // {name, base, local, file, the file's new numbers}
  // clang-format off
  const std::tuple<const char*, const char*, const char*, const char*, NoteNumbers> cases[] = {
      {"inserted before the first; 3 is a local note's", "1 A|2 B", "1 A|2 B|3 L",
       "1 New|2 A|3 B", {{1, 4}, {2, 1}, {3, 2}}},
      {"inserted before an edited note, which pairs with its original", "1 A note.|2 B", "",
       "1 New|2 A note, edited.|3 B", {{1, 3}, {2, 1}, {3, 2}}},
      {"deleted beside an edited one", "1 A|2 B note.|3 C", "", "1 B note!|2 C", {{1, 2}, {2, 3}}},
      {"a new note keeps a free number", "1 A", "2 L", "1 A|7 New", {}},
      {"a footnote never pairs with an endnote", "1 A|10001 B", "", "2 B|10002 A",
       {{2, 1}, {10002, 10001}}},
      {"a new endnote stays an endnote", "10001 E", "", "10001 New|10002 E",
       {{10001, 10002}, {10002, 10001}}},
  };
  // clang-format on
  for (const auto& [name, base, local, file, expected] : cases) {
    SCOPED_TRACE(name);
    const auto b = content(base);
    const auto f = content(file);
    EXPECT_EQ(
        alignmentNumbers(f.blocks, f.footnotes, b.blocks, b.footnotes, content(local).footnotes),
        expected);
  }
}

TEST(NoteAlignment, ReadingOrderIsFirstMarksThenUncitedNotesInListOrder) {
  const std::vector<Block> blocks{cited("a", 5), cited("b", 9), cited("c", 5), cited("d", 3)};
  const std::vector<Footnote> notes{note(3, "x"), note(10004, "e"), note(7, "y"), note(5, "z")};
  EXPECT_EQ(readingOrder(blocks, notes), (std::vector<std::int64_t>{5, 9, 3, 10004, 7}));
  EXPECT_EQ(readingOrderNumbers(blocks, notes),
            (NoteNumbers{{5, 1}, {9, 2}, {7, 4}, {10004, 10001}}));
}

}  // namespace
}  // namespace inkharbour::MergeEngine
