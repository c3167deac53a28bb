#include <gtest/gtest.h>

#include "merge/merge_engine.h"
#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using inkharbour::testing::report;
using Text = std::optional<std::string>;

Footnote note(std::int64_t id, const std::string& text, const std::string& style = "Body") {
  return Footnote{.id = id, .paragraphs = {Paragraph::make(style, text)}};
}

std::vector<Footnote> list(const Text& text, const std::string& style) {
  return text ? std::vector<Footnote>{note(3, *text, style)} : std::vector<Footnote>{};
}

TEST(MergeFootnotes, EachCase) {
  const Text none = std::nullopt;
  const struct {
    const char* name;
    Text base, local, external;
    char output;         // which version comes out: 'o' local, 't' external, '-' none
    std::string record;  // as report() gives it, empty for none
    bool makesNote = false;
  } cases[] = {
      {"unchanged", "b", "b", "b", 't', ""},
      {"external edit", "b", "b", "E", 't',
       "externalEdit: Footnote 3 updated from the external document"},
      {"local edit", "b", "L", "b", 'o', "localKept: Footnote 3: local edit kept"},
      {"same edit", "b", "X", "X", 'o', ""},
      {"different edits", "b", "L", "E", 't',
       "conflict: Footnote 3 edited on both sides \u2014 external kept, yours in a Story Note "
       "[L | E]",
       true},
      {"local deletion", "b", none, "b", '-', "localKept: Footnote 3: local deletion kept"},
      {"local deletion, external edit", "b", none, "E", 't',
       "conflict: Footnote 3 deleted locally but edited externally \u2014 external kept [- | E]"},
      {"external deletion", "b", "b", none, '-', "externalEdit: Footnote 3 deleted externally"},
      {"external deletion, local edit", "b", "L", none, 'o',
       "conflict: Footnote 3 deleted externally but edited locally \u2014 kept yours [L | -]"},
      {"deleted on both sides", "b", none, none, '-', ""},
      {"new local", none, "L", none, 'o', ""},
      {"new external", none, none, "E", 't', ""},
      {"added alike on both sides", none, "X", "X", 't', ""},
      {"added differently on both sides", none, "L", "E", 't',
       "conflict: Footnote 3 added on both sides \u2014 external kept [L | E]"},
  };
  for (const auto& c : cases) {
    // Styles tell the versions apart where the texts agree.
    const auto local = list(c.local, "Local"), external = list(c.external, "External");
    const FootnoteResult result = mergeFootnotes(list(c.base, "Body"), local, external);
    EXPECT_EQ(result.footnotes, c.output == 'o'   ? local
                                : c.output == 't' ? external
                                                  : list(none, ""))
        << c.name;
    EXPECT_EQ(report(result.changes), c.record) << c.name;
    EXPECT_EQ(report(result.notes), c.makesNote ? "-1: Footnote 3: L | Footnote 3: E" : "")
        << c.name;
  }
}

TEST(MergeFootnotes, AscendingIdsAndTheFirstOfARepeatedId) {
  EXPECT_EQ(mergeFootnotes({}, {}, {}), FootnoteResult{});
  const FootnoteResult result = mergeFootnotes(
      {note(5, "e"), note(1, "a")}, {note(9, "local"), note(5, "e"), note(1, "a"), note(9, "zzz")},
      {note(1, "A"), note(2, "new"), note(5, "e")});
  EXPECT_EQ(result.footnotes,
            (std::vector<Footnote>{note(1, "A"), note(2, "new"), note(5, "e"), note(9, "local")}));
  EXPECT_EQ(report(result.changes), "externalEdit: Footnote 1 updated from the external document");
}

}  // namespace
}  // namespace inkharbour::MergeEngine
