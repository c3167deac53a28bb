#include <gtest/gtest.h>

#include "merge/merge_engine.h"

namespace inkharbour::MergeEngine {
namespace {

using Text = std::optional<std::string>;

Footnote note(std::int64_t id, const std::string& text,
              const std::string& style = "Footnote Text") {
  Footnote out{.id = id};
  out.paragraphs.push_back(Paragraph::make(style, text));
  return out;
}

std::vector<Footnote> list(std::int64_t id, const Text& text,
                           const std::string& style = "Footnote Text") {
  if (!text) return {};
  return {note(id, *text, style)};
}

struct FootnoteCase {
  const char* name;
  Text base, local, external;
  // Which version comes out: 'o' local, 't' external, '-' none.
  char output;
  std::string record;  // "kind: summary", empty for none
  Text recordLocal, recordExternal;
  bool makesNote = false;
};

const Text none = std::nullopt;

TEST(MergeFootnotes, Cases) {
  const std::vector<FootnoteCase> cases = {
      {"unchanged", "b", "b", "b", 't', "", none, none},
      {"external edit", "b", "b", "E", 't',
       "externalEdit: Footnote 3 updated from the external document", none, none},
      {"local edit", "b", "L", "b", 'o', "localKept: Footnote 3: local edit kept", none, none},
      {"same edit", "b", "X", "X", 'o', "", none, none},
      {"different edits", "b", "L", "E", 't',
       "conflict: Footnote 3 edited on both sides \u2014 external kept, yours in a Story Note", "L",
       "E", true},
      {"local deletion", "b", none, "b", '-', "localKept: Footnote 3: local deletion kept", none,
       none},
      {"local deletion, external edit", "b", none, "E", 't',
       "conflict: Footnote 3 deleted locally but edited externally \u2014 external kept", none,
       "E"},
      {"external deletion", "b", "b", none, '-', "externalEdit: Footnote 3 deleted externally",
       none, none},
      {"external deletion, local edit", "b", "L", none, 'o',
       "conflict: Footnote 3 deleted externally but edited locally \u2014 kept yours", "L", none},
      {"deleted on both sides", "b", none, none, '-', "", none, none},
      {"new local", none, "L", none, 'o', "", none, none},
      {"new external", none, none, "E", 't', "", none, none},
      {"added alike on both sides", none, "X", "X", 't', "", none, none},
      {"added differently on both sides", none, "L", "E", 't',
       "conflict: Footnote 3 added on both sides \u2014 external kept", "L", "E"},
  };
  for (const auto& c : cases) {
    // Styles tell the versions apart where the texts agree.
    const auto local = list(3, c.local, "Local");
    const auto external = list(3, c.external, "External");
    const FootnoteResult result = mergeFootnotes(list(3, c.base), local, external);
    const std::vector<Footnote> expected = c.output == 'o'   ? local
                                           : c.output == 't' ? external
                                                             : std::vector<Footnote>{};
    EXPECT_EQ(result.footnotes, expected) << c.name;
    if (c.record.empty()) {
      EXPECT_TRUE(result.changes.empty()) << c.name;
    } else if (result.changes.size() == 1) {
      const auto& change = result.changes[0];
      EXPECT_EQ(std::string(name(change.kind)) + ": " + change.summary, c.record) << c.name;
      EXPECT_EQ(change.localText, c.recordLocal) << c.name;
      EXPECT_EQ(change.externalText, c.recordExternal) << c.name;
    } else {
      ADD_FAILURE() << c.name << ": " << result.changes.size() << " records";
    }
    ASSERT_EQ(result.notes.size(), c.makesNote ? 1u : 0u) << c.name;
    if (c.makesNote) {
      EXPECT_EQ(result.notes[0].paragraphIndex, -1);
      EXPECT_EQ(result.notes[0].localText, "Footnote 3: L");
      EXPECT_EQ(result.notes[0].externalText, "Footnote 3: E");
    }
  }
}

TEST(MergeFootnotes, AscendingIdsWhateverTheInputOrder) {
  const FootnoteResult result =
      mergeFootnotes({note(5, "e"), note(1, "a")}, {note(9, "local"), note(5, "e"), note(1, "a")},
                     {note(1, "A"), note(2, "new"), note(5, "e")});
  std::vector<std::int64_t> ids;
  for (const auto& footnote : result.footnotes) ids.push_back(footnote.id);
  EXPECT_EQ(ids, (std::vector<std::int64_t>{1, 2, 5, 9}));
  ASSERT_EQ(result.changes.size(), 1u);
  EXPECT_EQ(result.changes[0].summary, "Footnote 1 updated from the external document");
}

TEST(MergeFootnotes, EmptyAndDuplicateIds) {
  EXPECT_EQ(mergeFootnotes({}, {}, {}), FootnoteResult{});
  // A repeated id is a caller's mistake; the first footnote with it counts.
  const FootnoteResult result =
      mergeFootnotes({note(1, "a")}, {note(1, "a"), note(1, "zzz")}, {note(1, "a")});
  ASSERT_EQ(result.footnotes.size(), 1u);
  EXPECT_EQ(result.footnotes[0].text(), "a");
  EXPECT_TRUE(result.changes.empty());
}

}  // namespace
}  // namespace inkharbour::MergeEngine
