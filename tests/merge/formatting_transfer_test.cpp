#include "merge/formatting_transfer.h"

#include <gtest/gtest.h>

#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using namespace inkharbour::testing;
using Runs = std::vector<TextRun>;

TEST(TransferFormatting, OnlyBetweenTwoParagraphs) {
  const Block local = styled("Quote", {TextRun{.text = "old", .bold = true}});
  const Block external = styled("Heading 1", {TextRun{.text = "new", .italic = true}});
  const Block grid = tableBlock("a"), picture = image("p.png", "x");
  EXPECT_EQ(transferFormatting(nullptr, external), external);
  for (const Block* other : {&grid, &picture}) {
    EXPECT_EQ(transferFormatting(other, external), external);
    EXPECT_EQ(transferFormatting(&local, *other), *other);
  }
}

// The local look is added to each external run only when every local run shares
// it: flags OR-ed in, the colour only where the external run has none, never
// the local script, and never on a reference mark.
TEST(TransferFormatting, UniformLocalLookOnly) {
  using enum ScriptPosition;
  const TextRun mark{.text = "1", .script = superscript, .footnoteID = 1};
  const Runs plain = {TextRun{.text = "a"}, TextRun{.text = "b", .italic = true}};
  const struct {
    const char* name;
    Runs local, external, expected;
  } cases[] = {
      {"uniform",
       {TextRun{.text = "o", .bold = true, .underline = true},
        TextRun{.text = "ld", .bold = true, .underline = true}},
       plain,
       {TextRun{.text = "a", .bold = true, .underline = true},
        TextRun{.text = "b", .bold = true, .italic = true, .underline = true}}},
      {"mixed", {TextRun{.text = "o"}, TextRun{.text = "ld", .bold = true}}, plain, plain},
      {"empty", {}, plain, plain},
      {"colour, script and mark",
       {TextRun{.smallCaps = true, .script = superscript, .colorHex = "ff0000"}},
       {TextRun{.text = "a"}, TextRun{.text = "b", .colorHex = "00ff00"}, mark,
        TextRun{.text = "c", .script = subscript}},
       {TextRun{.text = "a", .smallCaps = true, .colorHex = "ff0000"},
        TextRun{.text = "b", .smallCaps = true, .colorHex = "00ff00"}, mark,
        TextRun{.text = "c", .smallCaps = true, .script = subscript, .colorHex = "ff0000"}}},
  };
  for (const auto& c : cases) {
    const Block local = styled("Quote", c.local), external = styled("Body", c.external);
    const Block result = transferFormatting(&local, external);
    EXPECT_EQ(result.id, external.id) << c.name;
    EXPECT_EQ(std::get<Paragraph>(result.kind),
              (Paragraph{.styleName = "Quote", .runs = c.expected}))
        << c.name;
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
