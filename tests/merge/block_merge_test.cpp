#include <gtest/gtest.h>

#include <random>

#include "merge/block_merge.h"
#include "merge/merge_engine.h"
#include "merge/merge_fixtures.h"
#include "merge/merge_keys.h"
#include "merge/summaries.h"

namespace inkharbour::MergeEngine {
namespace {

using inkharbour::testing::dump;
using inkharbour::testing::image;
using inkharbour::testing::paragraph;
using inkharbour::testing::paragraphs;
using inkharbour::testing::report;
using inkharbour::testing::tableBlock;
using Lines = std::vector<std::string>;

const std::string kConflict =
    "conflict: Both sides edited the same content \u2014 external version kept, yours saved to a "
    "Story Note";

struct MergeCase {
  const char* name;
  Lines base, local, external;
  Lines expected;
  Lines records;  // "kind: summary"
  std::size_t notes = 0;
};

TEST(Merge, ParagraphCases) {
  const std::vector<MergeCase> cases = {
      {"all empty", {}, {}, {}, {}, {}},
      {"identical", {"a", "b", "c"}, {"a", "b", "c"}, {"a", "b", "c"}, {"a", "b", "c"}, {}},
      {"external edit",
       {"a", "b", "c"},
       {"a", "b", "c"},
       {"a", "B", "c"},
       {"a", "B", "c"},
       {"externalEdit: Changed: b \u2192 B"}},
      {"local edit",
       {"a", "b", "c"},
       {"a", "L", "c"},
       {"a", "b", "c"},
       {"a", "L", "c"},
       {"localKept: Changed: b \u2192 L"}},
      {"same edit on both sides",
       {"a", "b", "c"},
       {"a", "X", "c"},
       {"a", "X", "c"},
       {"a", "X", "c"},
       {"bothSame: Changed: b \u2192 X"}},
      {"different edits of one paragraph",
       {"a", "b", "c"},
       {"a", "L", "c"},
       {"a", "E", "c"},
       {"a", "E", "c"},
       {kConflict},
       1},
      {"conflict keeps every external block",
       {"a", "b", "c"},
       {"a", "L1", "L2", "c"},
       {"a", "E1", "c"},
       {"a", "E1", "c"},
       {kConflict},
       1},
      {"local insertion beside external deletion",
       {"a", "b", "c"},
       {"a", "b", "new", "c"},
       {"a", "c"},
       {"a", "new", "c"},
       {"structural: Independent insertions/deletions merged (2 local, 0 external block(s))"}},
      {"local deletion",
       {"a", "b", "c"},
       {"a", "c"},
       {"a", "b", "c"},
       {"a", "c"},
       {"localKept: Deleted: b"}},
      {"external deletion",
       {"a", "b", "c"},
       {"a", "b", "c"},
       {"a", "c"},
       {"a", "c"},
       {"externalEdit: Deleted: b"}},
      {"deleted on both sides",
       {"a", "b", "c"},
       {"a", "c"},
       {"a", "c"},
       {"a", "c"},
       {"bothSame: Deleted: b"}},
      {"external insertion",
       {"a", "c"},
       {"a", "c"},
       {"a", "b", "c"},
       {"a", "b", "c"},
       {"externalEdit: Inserted: b"}},
      {"both append, local first",
       {"a"},
       {"a", "L"},
       {"a", "E"},
       {"a", "L", "E"},
       {"structural: Independent insertions/deletions merged (1 local, 1 external block(s))"}},
      {"both insert into an empty story",
       {},
       {"L"},
       {"E"},
       {"L", "E"},
       {"structural: Independent insertions/deletions merged (1 local, 1 external block(s))"}},
      {"independent edits in two places",
       {"a", "b", "c", "d", "e"},
       {"a", "B", "c", "d", "e"},
       {"a", "b", "c", "D", "e"},
       {"a", "B", "c", "D", "e"},
       {"localKept: Changed: b \u2192 B", "externalEdit: Changed: d \u2192 D"}},
      // Neither end is stable, so one region holds both edits; each side's
      // replacement is a deletion plus an insertion, and both survive.
      {"edits at both ends form one region",
       {"a", "b"},
       {"A", "b"},
       {"a", "B"},
       {"A", "B"},
       {"structural: Independent insertions/deletions merged (2 local, 2 external block(s))"}},
      {"repeated empty paragraphs",
       {"", "a", ""},
       {"", "a", "", ""},
       {"", "A", ""},
       {"", "A", "", ""},
       {"externalEdit: Changed: a \u2192 A", "localKept: Inserted: "}},
      {"external rewrite of everything",
       {"a", "b"},
       {"a", "b"},
       {"x"},
       {"x"},
       {"externalEdit: Changed: a\nb \u2192 x"}},
  };
  for (const auto& c : cases) {
    const Result result = merge(paragraphs(c.base), paragraphs(c.local), paragraphs(c.external));
    EXPECT_EQ(dump(result.blocks), c.expected) << c.name;
    EXPECT_EQ(report(result.changes), c.records) << c.name;
    EXPECT_EQ(result.notes.size(), c.notes) << c.name;
  }
}

TEST(Merge, IdenticalInputsReturnTheLocalBlocksExactly) {
  const auto local = std::vector<Block>{paragraph("one"), tableBlock({{"a"}}), image("p.png", "x")};
  auto base = local;
  for (auto& block : base) block.id = Uuid::random();
  const Result result = merge(base, local, base);
  EXPECT_EQ(result.blocks, local);
  EXPECT_TRUE(result.changes.empty());
  EXPECT_TRUE(result.notes.empty());
}

TEST(Merge, ExternalEditWearsTheLocalFormatting) {
  Block local{.kind = Paragraph{.styleName = "Quote",
                                .runs = {TextRun{.text = "old", .bold = true, .underline = true}}}};
  const Block base = paragraph("old");
  const Block external = paragraph("new", "Heading 1");
  const Result result = merge({base}, {local}, {external});
  ASSERT_EQ(result.blocks.size(), 1u);
  EXPECT_EQ(result.blocks[0].id, external.id);
  const auto& merged = std::get<Paragraph>(result.blocks[0].kind);
  EXPECT_EQ(merged.styleName, "Quote");
  ASSERT_EQ(merged.runs.size(), 1u);
  EXPECT_EQ(merged.runs[0].text, "new");
  EXPECT_TRUE(merged.runs[0].bold && merged.runs[0].underline);
  ASSERT_EQ(result.changes.size(), 1u);
  EXPECT_EQ(result.changes[0].localText, "old");
  EXPECT_EQ(result.changes[0].externalText, "new");
}

TEST(Merge, FormattingOnlyChangesKeepTheLocalBlockWithoutARecord) {
  const Block base = paragraph("same");
  Block local = base;
  std::get<Paragraph>(local.kind).runs[0].italic = true;
  const Block external = paragraph("same", "Heading 2");
  const Result result = merge({base}, {local}, {external});
  EXPECT_EQ(result.blocks, std::vector<Block>{local});
  EXPECT_TRUE(result.changes.empty());
}

TEST(Merge, RecordTextsFollowTheCase) {
  const auto base = paragraphs({"a", "b"});
  const Result localOnly = merge(base, paragraphs({"a", "L"}), base);
  ASSERT_EQ(localOnly.changes.size(), 1u);
  EXPECT_EQ(localOnly.changes[0].localText, "L");
  EXPECT_EQ(localOnly.changes[0].externalText, "b");

  const Result same = merge(base, paragraphs({"a", "X"}), paragraphs({"a", "X"}));
  ASSERT_EQ(same.changes.size(), 1u);
  EXPECT_EQ(same.changes[0].localText, std::nullopt);
  EXPECT_EQ(same.changes[0].externalText, std::nullopt);
  EXPECT_NE(same.changes[0].id, localOnly.changes[0].id);
}

TEST(Merge, ConflictNotePointsAtTheFirstExternalBlock) {
  Block local = paragraph("mine");
  std::get<Paragraph>(local.kind).runs[0].bold = true;
  const Block second = paragraph("theirs 2", "Caption");
  const Result result = merge(paragraphs({"a", "b", "c"}), {paragraph("a"), local, paragraph("c")},
                              {paragraph("a"), paragraph("theirs 1"), second, paragraph("c")});
  EXPECT_EQ(dump(result.blocks), (Lines{"a", "theirs 1", "theirs 2", "c"}));
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_EQ(result.notes[0].paragraphIndex, 1);
  EXPECT_EQ(result.notes[0].localText, "mine");
  EXPECT_EQ(result.notes[0].externalText, "theirs 1\ntheirs 2");
  ASSERT_EQ(result.changes.size(), 1u);
  EXPECT_EQ(result.changes[0].localText, "mine");
  EXPECT_EQ(result.changes[0].externalText, "theirs 1\ntheirs 2");
  // Blocks pair by position: the first external block takes the local look,
  // the second has no local partner and comes through as it is.
  EXPECT_TRUE(std::get<Paragraph>(result.blocks[1].kind).runs[0].bold);
  EXPECT_EQ(result.blocks[2], second);
}

TEST(Merge, SingleTableRegionMergesCellByCell) {
  const Block base = tableBlock({{"a", "b"}, {"c", "d"}});
  const Block local = tableBlock({{"A", "b"}, {"c", "d"}});
  const Block external = tableBlock({{"a", "b"}, {"c", "D"}});
  const Result result =
      merge({paragraph("p"), base}, {paragraph("p"), local}, {paragraph("p"), external});
  EXPECT_EQ(dump(result.blocks), (Lines{"p", "A|b/c|D"}));
  EXPECT_EQ(result.blocks[1].id, local.id);
  ASSERT_EQ(result.changes.size(), 1u);
  EXPECT_EQ(
      report(result.changes),
      Lines{"tableCells: Table merged cell-by-cell (1 external cell change(s), 0 conflict(s))"});
  EXPECT_EQ(result.changes[0].localText, std::nullopt);
  EXPECT_EQ(result.changes[0].externalText, std::nullopt);
}

TEST(Merge, TableCellConflictNoteCarriesTheTablePosition) {
  const Block base = tableBlock({{"a", "b"}});
  const Result result = merge({paragraph("p"), base}, {paragraph("p"), tableBlock({{"L", "b"}})},
                              {paragraph("p"), tableBlock({{"E", "b"}})});
  EXPECT_EQ(
      report(result.changes),
      Lines{"tableCells: Table merged cell-by-cell (1 external cell change(s), 1 conflict(s))"});
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_EQ(result.notes[0].paragraphIndex, 1);
  EXPECT_EQ(result.notes[0].localText, "Cell R1C1: L");
}

TEST(Merge, ImagesMatchByContentNotByName) {
  const Block base = image("a.png", "pixels");
  const Block renamed = image("b.png", "pixels");
  Result result = merge({base}, {renamed}, {base});
  EXPECT_EQ(result.blocks, std::vector<Block>{renamed});
  EXPECT_TRUE(result.changes.empty());

  result = merge({base}, {base}, {image("a.png", "other pixels")});
  EXPECT_EQ(report(result.changes),
            Lines{"externalEdit: Changed: [Image a.png] \u2192 [Image a.png]"});
}

TEST(MergeKey, StandsForContentOnly) {
  Block split{.kind =
                  Paragraph{.styleName = "Quote",
                            .runs = {TextRun{.text = "Hel", .bold = true}, TextRun{.text = "lo"}}}};
  EXPECT_EQ(mergeKey(split), "P:Hello");
  EXPECT_EQ(mergeKey(paragraph("")), "P:");
  EXPECT_EQ(mergeKey(tableBlock({{"a", "b"}, {"c"}})),
            "T:a\x1f"
            "b\x1e"
            "c");
  EXPECT_EQ(mergeKey(image("x.png", "abc")),
            "I:ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(MergeKey, InternerNumbersEqualKeysAlike) {
  Block split{
      .kind = Paragraph{.runs = {TextRun{.text = "ab"}, TextRun{}, TextRun{.text = "cdefghijk"}}}};
  const std::vector<Block> blocks = {
      paragraph("abcdefghijk"), split,          paragraph("abcdefghij"),
      tableBlock({{"x"}}),      paragraph("x"), image("1", "d"),
      image("2", "d"),          paragraph(""),  Block{.kind = Paragraph{}}};
  KeyInterner interner;
  EXPECT_EQ(interner.addAll(blocks), (std::vector<std::uint32_t>{0, 0, 1, 2, 3, 4, 4, 5, 5}));
  EXPECT_EQ(interner.addAll(paragraphs({"x", "new"})), (std::vector<std::uint32_t>{3, 6}));
}

TEST(MergeKey, RunBoundariesNeverChangeTheNumber) {
  std::mt19937_64 random(31);
  for (int round = 0; round < 500; ++round) {
    std::string text;
    const std::size_t length = random() % 40;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + random() % 3);
    Block split{.kind = Paragraph{}};
    auto& runs = std::get<Paragraph>(split.kind).runs;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t piece = std::min<std::size_t>(random() % 12, text.size() - at);
      runs.push_back(TextRun{.text = text.substr(at, piece)});
      at += piece;
    }
    KeyInterner interner;
    const auto numbers =
        interner.addAll(std::vector<Block>{paragraph(text), split, paragraph(text + "a")});
    EXPECT_EQ(numbers[0], numbers[1]) << text;
    EXPECT_NE(numbers[0], numbers[2]) << text;
  }
}

TEST(Joined, OneLinePerBlock) {
  const std::vector<Block> blocks = {paragraph("text"), tableBlock({{"a", "b", "c"}, {"d"}}),
                                     image("pic.png", "x"), paragraph("")};
  EXPECT_EQ(joined(blocks), "text\n[Table 2\u00D73]\n[Image pic.png]\n");
  EXPECT_EQ(joined({}), "");
}

TEST(ChangeSummary, CasesAndCuts) {
  const std::string eighty(80, 'x');
  const std::string accented = std::string(79, 'a') + "e\u0301";  // 80 characters, 81 code points
  struct Case {
    const char* name;
    std::vector<Block> from, to;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"deleted", {paragraph("a")}, {}, "Deleted: a"},
      {"inserted", {}, {paragraph("b")}, "Inserted: b"},
      {"changed", {paragraph("a")}, {paragraph("b")}, "Changed: a \u2192 b"},
      {"both empty", {}, {}, "Changed:  \u2192 "},
      {"80 characters stay whole", {paragraph(eighty)}, {}, "Deleted: " + eighty},
      {"81 characters are cut", {paragraph(eighty + "y")}, {}, "Deleted: " + eighty + "\u2026"},
      {"a cluster is one character", {paragraph(accented)}, {}, "Deleted: " + accented},
      {"a cut never splits a cluster",
       {paragraph(accented + "z")},
       {},
       "Deleted: " + accented + "\u2026"},
      {"a flag is one character",
       {paragraph(std::string(79, 'a') + "\U0001F1EB\U0001F1F7z")},
       {},
       "Deleted: " + std::string(79, 'a') + "\U0001F1EB\U0001F1F7\u2026"},
      {"a stray byte is one character",
       {paragraph(std::string(81, '\xff'))},
       {},
       "Deleted: " + std::string(80, '\xff') + "\u2026"},
      {"line feeds count",
       {paragraph(std::string(40, 'a')), paragraph(std::string(40, 'b'))},
       {},
       "Deleted: " + std::string(40, 'a') + "\n" + std::string(39, 'b') + "\u2026"},
  };
  for (const auto& c : cases) EXPECT_EQ(changeSummary(c.from, c.to), c.expected) << c.name;
}

TEST(RefineChunk, EmptyListIsAMergeAndNothingIsAConflict) {
  // Deleted locally, unchanged externally: nothing left, but no conflict.
  auto refined = refineChunk(paragraphs({"x"}), {}, paragraphs({"x"}));
  ASSERT_TRUE(refined.has_value());
  EXPECT_TRUE(refined->empty());
  // Gone from both sides.
  EXPECT_FALSE(refineChunk(paragraphs({"x"}), paragraphs({"L"}), paragraphs({"E"})).has_value());
  // Insertions at one place: local ones first; kept blocks in their local version.
  const auto local = paragraphs({"L1", "k", "L2"});
  refined = refineChunk(paragraphs({"k", "gone"}), local, paragraphs({"E1", "k", "gone", "E2"}));
  ASSERT_TRUE(refined.has_value());
  EXPECT_EQ(dump(*refined), (Lines{"L1", "E1", "k", "L2", "E2"}));
  EXPECT_EQ((*refined)[2].id, local[1].id);
}

// Random stories over a few texts, so that keys repeat a lot.
std::vector<Block> randomStory(std::mt19937_64& random, std::size_t length) {
  static const Lines kTexts = {"", "", "a", "b", "c", "d"};
  std::vector<Block> out;
  for (std::size_t i = 0; i < length; ++i)
    out.push_back(paragraph(kTexts[random() % kTexts.size()]));
  return out;
}

std::vector<Block> randomEdit(std::mt19937_64& random, std::vector<Block> blocks) {
  const std::size_t edits = random() % 5;
  for (std::size_t e = 0; e < edits; ++e) {
    const std::size_t at = blocks.empty() ? 0 : random() % (blocks.size() + 1);
    const auto fresh = randomStory(random, 1)[0];
    switch (random() % 3) {
      case 0:
        blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(at), fresh);
        break;
      case 1:
        if (at < blocks.size()) blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      default:
        if (at < blocks.size()) blocks[at] = fresh;
        break;
    }
  }
  return blocks;
}

TEST(MergeProperties, OneSidedChangesComeThroughWhole) {
  std::mt19937_64 random(29);
  for (int round = 0; round < 1500; ++round) {
    const auto base = randomStory(random, random() % 12);
    const auto changed = randomEdit(random, base);
    const auto other = randomEdit(random, base);
    EXPECT_EQ(dump(merge(base, changed, base).blocks), dump(changed)) << "round " << round;
    EXPECT_EQ(dump(merge(base, base, changed).blocks), dump(changed)) << "round " << round;
    EXPECT_EQ(dump(merge(base, changed, changed).blocks), dump(changed)) << "round " << round;
    // Whatever happens, a merge with a conflict leaves exactly one note and
    // one conflict record per conflicting region.
    const Result both = merge(base, changed, other);
    std::size_t conflicts = 0;
    for (const auto& change : both.changes)
      conflicts += change.kind == ChangeRecord::Kind::conflict;
    EXPECT_EQ(both.notes.size(), conflicts) << "round " << round;
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
