#include "merge/formatting_transfer.h"

#include <gtest/gtest.h>

#include "merge/merge_fixtures.h"

namespace inkharbour::MergeEngine {
namespace {

using inkharbour::testing::image;
using inkharbour::testing::paragraph;
using inkharbour::testing::tableBlock;

Block withRuns(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

const Paragraph& paragraphOf(const Block& block) {
  return std::get<Paragraph>(block.kind);
}

TEST(TransferFormatting, NothingToTransfer) {
  const Block external = withRuns("Heading 1", {TextRun{.text = "new", .italic = true}});
  const Block local = withRuns("Quote", {TextRun{.text = "old", .bold = true}});
  struct Case {
    const char* name;
    const Block* local;
    const Block& external;
  };
  const Block table = tableBlock({{"a"}});
  const Block picture = image("p.png", "x");
  const std::vector<Case> cases = {
      {"no local block", nullptr, external}, {"local table", &table, external},
      {"local image", &picture, external},   {"external table", &local, table},
      {"external image", &local, picture},
  };
  for (const auto& c : cases)
    EXPECT_EQ(transferFormatting(c.local, c.external), c.external) << c.name;
}

TEST(TransferFormatting, UniformLocalLookIsAddedToEveryRun) {
  const Block local = withRuns("Quote", {TextRun{.text = "o", .bold = true, .underline = true},
                                         TextRun{.text = "ld", .bold = true, .underline = true}});
  const Block external =
      withRuns("Body", {TextRun{.text = "ne"}, TextRun{.text = "w", .italic = true}});
  const Block result = transferFormatting(&local, external);
  EXPECT_EQ(result.id, external.id);
  // Formatting is only ever added: the external italic stays.
  EXPECT_EQ(
      paragraphOf(result),
      (Paragraph{.styleName = "Quote",
                 .runs = {TextRun{.text = "ne", .bold = true, .underline = true},
                          TextRun{.text = "w", .bold = true, .italic = true, .underline = true}}}));
}

TEST(TransferFormatting, MixedOrEmptyLocalGivesOnlyTheStyleName) {
  const std::vector<TextRun> externalRuns = {TextRun{.text = "plain"},
                                             TextRun{.text = " bold", .bold = true}};
  const Block external = withRuns("Body", externalRuns);
  const Block mixed = withRuns(
      "Quote",
      {TextRun{.text = "one "}, TextRun{.text = "bold", .bold = true}, TextRun{.text = " word"}});
  const Block empty = withRuns("Title", {});
  EXPECT_EQ(paragraphOf(transferFormatting(&mixed, external)),
            (Paragraph{.styleName = "Quote", .runs = externalRuns}));
  EXPECT_EQ(paragraphOf(transferFormatting(&empty, external)),
            (Paragraph{.styleName = "Title", .runs = externalRuns}));
}

TEST(TransferFormatting, ColourScriptAndReferenceMarks) {
  const Block local = withRuns("Body", {TextRun{.text = "x",
                                                .smallCaps = true,
                                                .script = ScriptPosition::superscript,
                                                .colorHex = "ff0000"}});
  const Block external = withRuns(
      "Body", {TextRun{.text = "a"}, TextRun{.text = "b", .colorHex = "00ff00"},
               TextRun{.text = "1", .script = ScriptPosition::superscript, .footnoteID = 1},
               TextRun{.text = "c", .strikethrough = true, .script = ScriptPosition::subscript}});
  const Block result = transferFormatting(&local, external);
  const auto& runs = paragraphOf(result).runs;
  ASSERT_EQ(runs.size(), 4u);
  // The local colour fills in where the external run has none; the local
  // script is never carried over.
  EXPECT_EQ(runs[0], (TextRun{.text = "a", .smallCaps = true, .colorHex = "ff0000"}));
  EXPECT_EQ(runs[1], (TextRun{.text = "b", .smallCaps = true, .colorHex = "00ff00"}));
  EXPECT_EQ(runs[2], paragraphOf(external).runs[2]);  // a reference mark keeps its look
  EXPECT_EQ(runs[3], (TextRun{.text = "c",
                              .strikethrough = true,
                              .smallCaps = true,
                              .script = ScriptPosition::subscript,
                              .colorHex = "ff0000"}));
}

}  // namespace
}  // namespace inkharbour::MergeEngine
