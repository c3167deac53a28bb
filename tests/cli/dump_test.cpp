// Dump mode: the fixed text format of imported blocks and footnotes, and the
// exit status and streams of a dump run.
#include "cli/dump.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/fixtures.h"

namespace inkharbour::cli {
namespace {

Block paragraph(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

TableCell cellOf(std::vector<std::string> texts) {
  TableCell cell;
  for (auto& text : texts) cell.paragraphs.push_back(Paragraph::make("Body", std::move(text)));
  return cell;
}

TEST(DumpFormat, RunFlagsInFixedOrderThenTextAsItIs) {
  const std::pair<TextRun, const char*> cases[] = {
      {{.text = "Hi"}, "«Hi»"},
      {{.text = "x", .bold = true, .italic = true, .underline = true, .strikethrough = true,
        .smallCaps = true, .script = ScriptPosition::superscript, .colorHex = "00ff00",
        .footnoteID = 3},
       "BIUSC^#00ff00fn3«x»"},
      {{.text = "2", .script = ScriptPosition::subscript}, "_«2»"},
      {{.text = "u", .smallCaps = true}, "C«u»"},
      {{.text = "c", .colorHex = ""}, "#«c»"},
      {{.text = "[-3]", .footnoteID = -3}, "fn-3«[-3]»"},
      {{.text = "a«b»\t<&>\u2028\"c\""}, "«a«b»\t<&>\u2028\"c\"»"},
  };
  for (const auto& [run, text] : cases) {
    EXPECT_EQ(formatDump({.blocks = {paragraph("Body", {run})}}),
              std::string("[Body] ") + text + "\n");
  }
}

TEST(DumpFormat, BlocksInOrderThenFootnotesInOrder) {
  EXPECT_EQ(formatDump(ImportResult{}), "");
  const ImportResult result{
      .blocks = {paragraph("Heading 1", {{.text = "Title "}, {.text = "bold", .bold = true}}),
                 paragraph("Quote", {}),
                 Block{.kind = Table{.rows = {{cellOf({"a", "b"}), cellOf({}), cellOf({""})},
                                             {cellOf({"c"})}}}},
                 Block{.kind = Table{}},
                 Block{.kind = ImageBlock{.data = Data(1234567, 0), .name = "image 1.png"}},
                 paragraph("Body", {{.text = "line\nbreak"}})},
      .footnotes = {
          Footnote{.id = 10001, .paragraphs = {Paragraph::make("Body", " end note")}},
          Footnote{.id = 2,
                   .paragraphs = {Paragraph{.styleName = "Quote",
                                            .runs = {{.text = "a", .italic = true}, {.text = "b"}}},
                                  Paragraph::make("Body", "c")}},
          Footnote{.id = -1, .paragraphs = {}}}};
  EXPECT_EQ(formatDump(result),
            "[Heading 1] «Title » B«bold»\n"
            "[Quote] \n"
            "[Table 2×3]\n"
            "  | a\nb |  |  |\n"
            "  | c |\n"
            "[Table 0×0]\n"
            "[Image image 1.png, 1234567 bytes]\n"
            "[Body] «line\nbreak»\n"
            "[Footnote 10001]  end note\n"
            "[Footnote 2] ab\nc\n"
            "[Footnote -1] \n");
}

TEST(DumpRun, OutputOrOneErrorLineAndTheStatus) {
  testing::TempDir dir;
  testing::writeFile(dir / "notes.txt", "first\n\nthird");
  testing::writePackage(dir / "empty.docx", {{"word/document.xml", testing::documentXml("")}});
  testing::writePackage(dir / "broken.docx", {{"word/document.xml", "<w:document><w:body>"}});
  const struct {
    const char* file;
    int status;
    const char* out;
    const char* err;
  } cases[] = {
      {"notes.txt", 0, "[Body] «first»\n[Body] \n[Body] «third»\n", ""},
      {"empty.docx", 0, "", ""},
      {"broken.docx", 1, "", "Could not parse the document (word/document.xml).\n"},
      {"absent.txt", 1, "",
       "The file \u201cabsent.txt\u201d couldn\u2019t be opened because there is no such file.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runDump(dir / c.file, out, err), c.status);
    EXPECT_EQ(out.str(), c.out);
    EXPECT_EQ(err.str(), c.err);
  }
}

}  // namespace
}  // namespace inkharbour::cli
