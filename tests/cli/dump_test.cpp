// Dump mode: the fixed text format of imported blocks and footnotes, and the
// exit status and streams of a dump run.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include "cli/dump.h"
#include "support/fixtures.h"

namespace inkharbour::cli {
namespace {

using testing::documentXml;
using testing::notesXml;
using testing::stylesXml;
using testing::TempDir;
using testing::writeFile;
using testing::writePackage;

Block paragraph(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

Paragraph plain(std::string text) { return Paragraph::make("Body", std::move(text)); }

TableCell cellOf(std::vector<std::string> paragraphs) {
  TableCell cell;
  for (auto& text : paragraphs) cell.paragraphs.push_back(plain(std::move(text)));
  return cell;
}

Block tableOf(std::vector<std::vector<TableCell>> rows) {
  return Block{.kind = Table{.rows = std::move(rows)}};
}

std::string dumpBlocks(std::vector<Block> blocks) {
  return formatDump(ImportResult{.blocks = std::move(blocks), .footnotes = {}});
}

TEST(DumpFormat, NothingImportedPrintsNothing) { EXPECT_EQ(formatDump(ImportResult{}), ""); }

TEST(DumpFormat, RunDescriptions) {
  struct Case {
    const char* name;
    TextRun run;
    const char* line;
  };
  const Case cases[] = {
      {"plain", TextRun{.text = "Hi"}, "«Hi»"},
      {"bold italic red", TextRun{.text = "Hi", .bold = true, .italic = true, .colorHex = "FF0000"},
       "BI#FF0000«Hi»"},
      {"plain reference", TextRun{.text = "2", .footnoteID = 2}, "fn2«2»"},
      {"every flag, in order",
       TextRun{.text = "x",
               .bold = true,
               .italic = true,
               .underline = true,
               .strikethrough = true,
               .smallCaps = true,
               .script = ScriptPosition::superscript,
               .colorHex = "00ff00",
               .footnoteID = 3},
       "BIUSC^#00ff00fn3«x»"},
      {"subscript", TextRun{.text = "2", .script = ScriptPosition::subscript}, "_«2»"},
      {"underline and small caps", TextRun{.text = "u", .underline = true, .smallCaps = true}, "UC«u»"},
      {"strikethrough", TextRun{.text = "s", .strikethrough = true}, "S«s»"},
      {"colour as written", TextRun{.text = "c", .colorHex = "auto"}, "#auto«c»"},
      {"empty colour", TextRun{.text = "c", .colorHex = ""}, "#«c»"},
      {"negative reference", TextRun{.text = "[-3]", .script = ScriptPosition::superscript, .footnoteID = -3},
       "^fn-3«[-3]»"},
      {"large reference",
       TextRun{.text = "r", .footnoteID = std::numeric_limits<std::int64_t>::max()},
       "fn9223372036854775807«r»"},
      {"empty text", TextRun{.text = ""}, "«»"},
      {"text as it is", TextRun{.text = "a«b»\t<&>\u2028\"c\""}, "«a«b»\t<&>\u2028\"c\"»"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(dumpBlocks({paragraph("Body", {c.run})}), std::string("[Body] ") + c.line + "\n");
  }
}

TEST(DumpFormat, ParagraphLines) {
  EXPECT_EQ(dumpBlocks({paragraph("Heading 1", {TextRun{.text = "Title "}, TextRun{.text = "bold", .bold = true},
                                                TextRun{.text = "[1]",
                                                        .script = ScriptPosition::superscript,
                                                        .footnoteID = 1}}),
                        paragraph("Body", {}), paragraph("Quote", {}),
                        paragraph("Body", {TextRun{.text = "line\nbreak"}})}),
            "[Heading 1] «Title » B«bold» ^fn1«[1]»\n"
            "[Body] \n"
            "[Quote] \n"
            "[Body] «line\nbreak»\n");
}

TEST(DumpFormat, TableLines) {
  EXPECT_EQ(dumpBlocks({tableOf({{cellOf({"a"}), cellOf({"b"})}, {cellOf({"c"}), cellOf({"d"}), cellOf({"e"})}})}),
            "[Table 2×3]\n"
            "  | a | b |\n"
            "  | c | d | e |\n");
  // A multi-paragraph cell breaks the line; empty cells leave their space.
  EXPECT_EQ(dumpBlocks({tableOf({{cellOf({"a", "b"}), cellOf({}), cellOf({""})}})}),
            "[Table 1×3]\n"
            "  | a\nb |  |  |\n");
  // Only the cells' text shows; formatting and styles do not.
  EXPECT_EQ(dumpBlocks({tableOf({{TableCell{.paragraphs = {Paragraph{
                            .styleName = "Title", .runs = {TextRun{.text = "x", .bold = true}}}}}}})}),
            "[Table 1×1]\n  | x |\n");
  EXPECT_EQ(dumpBlocks({tableOf({})}), "[Table 0×0]\n");
}

TEST(DumpFormat, ImageLines) {
  EXPECT_EQ(dumpBlocks({Block{.kind = ImageBlock{.data = Data(1234567, 0), .name = "image1.png"}},
                        Block{.kind = ImageBlock{.data = {}, .name = "empty file.gif"}}}),
            "[Image image1.png, 1234567 bytes]\n"
            "[Image empty file.gif, 0 bytes]\n");
}

TEST(DumpFormat, BlocksInOrderThenFootnotesInOrder) {
  const ImportResult result{
      .blocks = {paragraph("Body", {TextRun{.text = "one"}}), tableOf({{cellOf({"t"})}}),
                 Block{.kind = ImageBlock{.data = Data(3, 1), .name = "p.png"}},
                 paragraph("Body", {TextRun{.text = "two"}})},
      .footnotes = {Footnote{.id = 10001, .paragraphs = {plain(" end note")}},
                    Footnote{.id = 2,
                             .paragraphs = {Paragraph{.styleName = "Quote",
                                                      .runs = {TextRun{.text = "a", .italic = true},
                                                               TextRun{.text = "b"}}},
                                            plain("c")}},
                    Footnote{.id = 3, .paragraphs = {}}, Footnote{.id = -1, .paragraphs = {plain("")}}}};
  EXPECT_EQ(formatDump(result),
            "[Body] «one»\n"
            "[Table 1×1]\n"
            "  | t |\n"
            "[Image p.png, 3 bytes]\n"
            "[Body] «two»\n"
            "[Footnote 10001]  end note\n"
            "[Footnote 2] ab\nc\n"
            "[Footnote 3] \n"
            "[Footnote -1] \n");
}

// --- runDump --------------------------------------------------------------------

struct DumpRun {
  int status;
  std::string out;
  std::string err;
};

DumpRun runOn(const std::filesystem::path& path) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = runDump(path, out, err);
  return {status, out.str(), err.str()};
}

TEST(DumpRun, PrintsTheImportWithBuiltInStyleRules) {
  TempDir dir;
  writePackage(dir / "story.docx",
               {{"word/document.xml",
                 documentXml(R"(<w:p><w:pPr><w:pStyle w:val="Sub"/></w:pPr><w:r><w:t>Hi</w:t></w:r>)"
                             R"(<w:r><w:footnoteReference w:id="1"/></w:r></w:p>)")},
                {"word/styles.xml", stylesXml({{"Sub", "Subtitle"}})},
                {"word/footnotes.xml",
                 notesXml(R"(<w:footnote w:id="1"><w:p><w:r><w:t>note</w:t></w:r></w:p></w:footnote>)")}});
  const auto run = runOn(dir / "story.docx");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "[Title] «Hi» ^fn1«[1]»\n[Footnote 1] note\n");
  EXPECT_EQ(run.err, "");
}

TEST(DumpRun, EmptyDocumentPrintsNothingAndSucceeds) {
  TempDir dir;
  writePackage(dir / "empty.docx", {{"word/document.xml", documentXml("")}});
  const auto run = runOn(dir / "empty.docx");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
}

TEST(DumpRun, AnyExtensionGoesThroughTheReader) {
  TempDir dir;
  writeFile(dir / "notes.txt", "first\n\nthird");
  const auto run = runOn(dir / "notes.txt");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "[Body] «first»\n[Body] \n[Body] «third»\n");
}

TEST(DumpRun, ReaderFailureGoesToErrorStreamOnly) {
  TempDir dir;
  writeFile(dir / "fake.docx", "not a zip archive");
  writePackage(dir / "broken.docx", {{"word/document.xml", "<w:document><w:body>"}});
  struct Case {
    const char* file;
    const char* message;
  };
  const Case cases[] = {
      {"fake.docx", "Archive is missing word/document.xml \u2014 not a valid file.\n"},
      {"broken.docx", "Could not parse the document (word/document.xml).\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const auto run = runOn(dir / c.file);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, c.message);
  }
}

TEST(DumpRun, PlatformFailureIsReportedOnOneLine) {
  TempDir dir;
  const auto run = runOn(dir / "absent.txt");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  ASSERT_GE(run.err.size(), 2u);
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

}  // namespace
}  // namespace inkharbour::cli
