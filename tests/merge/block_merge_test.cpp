#include <gtest/gtest.h>

#include <set>

#include "merge/block_merge.h"
#include "merge/merge_engine.h"
#include "merge/merge_fixtures.h"
#include "merge/merge_keys.h"
#include "merge/summaries.h"

namespace inkharbour::MergeEngine {
namespace {

using namespace inkharbour::testing;
using Blocks = std::vector<Block>;
using Ids = std::vector<std::uint32_t>;

// One representative per way an unstable region is resolved, in the order tried.
TEST(Merge, EachKindOfRegion) {
  const struct {
    const char* name;
    std::string base, local, external, expected, records, notes = "";
  } cases[] = {
      {"all empty", "", "", "", "", ""},
      {"one table on each side, merged cell by cell", "p,a|b/c|d", "p,L|b/c|d", "p,E|b/c|D",
       "p,E|b/c|D",
       "tableCells: Table merged cell-by-cell (2 external cell change(s), 1 conflict(s))",
       "1: Cell R1C1: L | Cell R1C1: E"},
      {"external only, in the local look", "a,b,c,d", "a,*b,c,d", "a,X,d", "a,*X,d",
       "externalEdit: Changed: b\nc \u2192 X [b\nc | X]"},
      {"local only", "a,b,c", "a,c", "a,b,c", "a,c", "localKept: Deleted: b [ | b]"},
      {"same on both sides", "a,b,c", "a,X,c", "a,X,c", "a,X,c", "bothSame: Changed: b \u2192 X"},
      {"local insertion beside external deletion", "a,b,c", "a,b,new,c", "a,c", "a,new,c",
       "structural: Independent insertions/deletions merged (2 local, 0 external block(s)) "
       "[b\nnew | ]"},
      {"conflict keeps every external block, paired by position", "a,b,c", "a,*mine,c",
       "a,their 1,their 2,c", "a,*their 1,their 2,c",
       "conflict: Both sides edited the same content \u2014 external version kept, yours saved to "
       "a Story Note [mine | their 1\ntheir 2]",
       "1: mine | their 1\ntheir 2"},
      {"repeated keys, three regions", ",a,,d,", ",B,,d,,", ",a,,D,", ",B,,D,,",
       "localKept: Changed: a \u2192 B [B | a]; externalEdit: Changed: d \u2192 D [d | D]; "
       "localKept: Inserted:  [ | ]"},
  };
  for (const auto& c : cases) {
    const Result result = merge(story(c.base), story(c.local), story(c.external));
    EXPECT_EQ(dump(result.blocks), c.expected) << c.name;
    EXPECT_EQ(report(result.changes), c.records) << c.name;
    EXPECT_EQ(report(result.notes), c.notes) << c.name;
  }
}

TEST(Merge, UnchangedContentKeepsTheLocalBlocksExactly) {
  const Blocks local = {paragraph("one"), tableBlock("a|b"), image("p.png", "x"),
                        styled("Quote", {TextRun{.text = "same", .italic = true}})};
  Blocks base = local;
  for (auto& block : base) block.id = Uuid::random();
  Blocks external = base;
  base[2] = image("renamed.png", "x");           // images match by content, not name
  external[3] = paragraph("same", "Heading 2");  // nor do formatting changes count
  EXPECT_EQ(merge(base, local, external), Result{.blocks = local});
  // A table merged cell by cell keeps the local table's id.
  const Blocks tables = story("a|b,A|b,a|B");
  EXPECT_EQ(merge({tables[0]}, {tables[1]}, {tables[2]}).blocks.at(0).id, tables[1].id);
}

TEST(MergeKey, StandsForContentOnly) {
  EXPECT_EQ(
      mergeKey(styled("Quote", {TextRun{.text = "Hel", .bold = true}, TextRun{.text = "lo"}})),
      "P:Hello");
  EXPECT_EQ(mergeKey(tableBlock("a|b/c")), "T:a\037b\036c");
  // The SHA-256 of the bytes; the name takes no part.
  EXPECT_EQ(mergeKey(image("x.png", "abc")),
            "I:ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");

  const Block split = styled("", {TextRun{.text = "ab"}, TextRun{}, TextRun{.text = "cdefghijk"}});
  const Blocks blocks = {paragraph("abcdefghijk"), split,          paragraph("abcdefghij"),
                         tableBlock("x"),          paragraph("x"), image("1", "d"),
                         image("2", "d"),          paragraph(""),  Block{.kind = Paragraph{}}};
  KeyInterner interner;
  EXPECT_EQ(interner.addAll(blocks), (Ids{0, 0, 1, 2, 3, 4, 4, 5, 5}));
  EXPECT_EQ(interner.addAll(story("x,new")), (Ids{3, 6}));
}

// Runs hash and compare like their concatenation, wherever they are cut.
TEST(MergeKey, RunBoundariesNeverChangeTheNumber) {
  const std::string text = "abcdefghijklmnopqrs";
  for (std::size_t i = 0; i <= text.size(); ++i) {
    for (std::size_t j = i; j <= text.size(); ++j) {
      const Block cut =
          styled("", {TextRun{.text = text.substr(0, i)}, TextRun{.text = text.substr(i, j - i)},
                      TextRun{.text = text.substr(j)}});
      KeyInterner interner;
      EXPECT_EQ(interner.addAll(Blocks{paragraph(text), cut, paragraph(text + "a")}),
                (Ids{0, 0, 1}))
          << i << "/" << j;
    }
  }
}

TEST(ChangeSummary, FormsAndCuts) {
  const std::string a79(79, 'a'), accented = a79 + "e\u0301";  // 80 clusters, 81 code points
  const std::string a40(40, 'a'), b40(40, 'b');
  const struct {
    const char* name;
    std::string from, to, expected;
  } cases[] = {
      {"deleted", "a", "", "Deleted: a"},
      {"inserted", "", "b", "Inserted: b"},
      {"changed", "a", "b", "Changed: a \u2192 b"},
      {"both empty", "", "", "Changed:  \u2192 "},
      {"80 characters stay whole", a79 + "x", "", "Deleted: " + a79 + "x"},
      {"81 are cut", a79 + "xy", "", "Deleted: " + a79 + "x\u2026"},
      {"a cluster is one character", accented, "", "Deleted: " + accented},
      {"a cut never splits a cluster", accented + "z", "", "Deleted: " + accented + "\u2026"},
      {"a flag is one character", a79 + "\U0001F1EB\U0001F1F7z", "",
       "Deleted: " + a79 + "\U0001F1EB\U0001F1F7\u2026"},
      {"a stray byte is one character", std::string(81, '\xff'), "",
       "Deleted: " + std::string(80, '\xff') + "\u2026"},
      {"line feeds count", a40 + "," + b40, "",
       "Deleted: " + a40 + "\n" + b40.substr(1) + "\u2026"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(changeSummary(story(c.from), story(c.to)), c.expected) << c.name;
  auto blocks = story("text,a|b|c/d,");
  blocks.insert(blocks.begin() + 2, image("pic.png", "x"));
  EXPECT_EQ(joined(blocks), "text\n[Table 2\u00D73]\n[Image pic.png]\n");
}

TEST(RefineChunk, EmptyListIsAMergeAndNothingIsAConflict) {
  // Deleted locally, unchanged externally: nothing left, but no conflict.
  auto refined = refineChunk(story("x"), {}, story("x"));
  ASSERT_TRUE(refined.has_value());
  EXPECT_TRUE(refined->empty());
  EXPECT_FALSE(refineChunk(story("x"), story("L"), story("E")).has_value());
  // Insertions at one place: local ones first; kept blocks in their local version.
  const auto local = story("L1,k,L2");
  refined = refineChunk(story("k,gone"), local, story("E1,k,gone,E2"));
  ASSERT_TRUE(refined.has_value());
  EXPECT_EQ(dump(*refined), "L1,E1,k,L2,E2");
  EXPECT_EQ((*refined)[2].id, local[1].id);
}

// dump() with the block count, which it leaves open for a lone empty paragraph.
std::string counted(const Blocks& blocks) {
  return std::to_string(blocks.size()) + ":" + dump(blocks);
}

TEST(MergeProperties, OneSidedChangesComeThroughWhole) {
  std::mt19937_64 random(29);
  // Few texts, so that keys repeat a lot.
  const auto fresh = [&] { return paragraph(Lines{"", "", "a", "b", "c", "d"}[random() % 6]); };
  for (int round = 0; round < 1500; ++round) {
    const auto base = edited(random, Blocks{}, random() % 36, fresh);
    const auto changed = edited(random, base, random() % 5, fresh);
    const auto other = edited(random, base, random() % 5, fresh);
    for (const auto& result :
         {merge(base, changed, base), merge(base, base, changed), merge(base, changed, changed)})
      EXPECT_EQ(counted(result.blocks), counted(changed)) << "round " << round;
    // Every conflicting region leaves exactly one note and one conflict record.
    const Result both = merge(base, changed, other);
    std::size_t conflicts = 0;
    for (const auto& change : both.changes)
      conflicts += change.kind == ChangeRecord::Kind::conflict;
    EXPECT_EQ(both.notes.size(), conflicts) << "round " << round;
  }
}

// A text merged as lines decides exactly as the paragraphs read from it.
TEST(MergeLines, AgreesWithTheParagraphsOfTheText) {
  std::mt19937_64 random(31);
  // Few texts, so that keys repeat a lot; one is cut in summaries, inside a
  // combining sequence.
  const Lines texts = {"", "", "a", "b", "c", std::string(79, 'x') + "e\u0301\u0301 and the rest"};
  const auto fresh = [&] { return texts[random() % texts.size()]; };
  const auto paragraphs = [](const Lines& lines) {
    Blocks out;
    for (const auto& line : lines) out.push_back(paragraph(line));
    return out;
  };
  std::set<ChangeRecord::Kind> seen;
  for (int round = 0; round < 2000; ++round) {
    const auto base = edited(random, Lines{}, random() % 30, fresh);
    const auto local = edited(random, base, random() % 6, fresh);
    const auto external = edited(random, base, random() % 6, fresh);
    const Result expected = merge(paragraphs(base), paragraphs(local), paragraphs(external));
    const auto views = [](const Lines& lines) {
      return std::vector<std::string_view>(lines.begin(), lines.end());
    };
    const LineResult result = mergeLines(views(base), views(local), views(external));
    Lines merged(result.lines.begin(), result.lines.end()), expectedLines;
    for (const auto& block : expected.blocks)
      expectedLines.push_back(std::get<Paragraph>(block.kind).text());
    EXPECT_EQ(merged, expectedLines) << "round " << round;
    EXPECT_EQ(report(result.changes), report(expected.changes)) << "round " << round;
    EXPECT_EQ(report(result.notes), report(expected.notes)) << "round " << round;
    for (const auto& change : result.changes) seen.insert(change.kind);
  }
  EXPECT_EQ(seen.size(), 5U) << "every kind of region but tables";
}

}  // namespace
}  // namespace inkharbour::MergeEngine
