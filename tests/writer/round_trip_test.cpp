// Writer -> reader round trips: what the writer puts into a package, the
// reader must give back unchanged apart from block ids, for made-up stories
// and for every real document of the corpus that imports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;

// Block ids are fresh on every import, so comparisons clear them.
std::vector<Block> withoutIds(std::vector<Block> blocks) {
  for (auto& block : blocks) block.id = Uuid{};
  return blocks;
}

ImportResult writeAndRead(const std::vector<Block>& blocks, const std::vector<Footnote>& notes) {
  testing::TempDir dir;
  const auto path = dir / "story.docx";
  DocxWriter::write(blocks, notes, path);
  return DocxReader::read(path, StyleMap{});
}

void expectRoundTrip(const std::vector<Block>& blocks, const std::vector<Footnote>& notes = {}) {
  const auto back = writeAndRead(blocks, notes);
  const ImportResult expected{.blocks = blocks, .footnotes = notes};
  EXPECT_EQ(withoutIds(back.blocks), withoutIds(blocks))
      << "expected:\n" << testing::dump(expected) << "got:\n" << testing::dump(back);
  EXPECT_EQ(back.footnotes, notes) << "got:\n" << testing::dump(back);
}

Block paragraph(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

TextRun noteMark(std::int64_t id) { return TextRun::footnoteReference(id); }

TEST(RoundTrip, RichFormattingInEveryStyle) {
  expectRoundTrip({
      paragraph("Title", {{.text = "A Title"}}),
      paragraph("Heading 1", {{.text = "One", .italic = true}}),
      paragraph("Heading 2", {{.text = "Two"}}),
      paragraph("Quote", {{.text = "Said", .smallCaps = true}}),
      paragraph("Body", {}),
      paragraph("Body",
                {{.text = " lead ", .bold = true},
                 {.text = "it", .italic = true},
                 {.text = "und", .underline = true},
                 {.text = "gone", .strikethrough = true, .colorHex = "ff0000"},
                 {.text = "all", .bold = true, .italic = true, .underline = true,
                  .strikethrough = true, .smallCaps = true, .colorHex = "0A0B0C"},
                 {.text = "up", .script = ScriptPosition::superscript},
                 {.text = "down", .script = ScriptPosition::subscript, .colorHex = "FF0000"},
                 noteMark(1),
                 noteMark(1),
                 {.text = "\ttab\t\tand\u2028line\u2028\u2028 ", .colorHex = "ff0000"},
                 noteMark(10001),
                 {.text = "a & b < c > \"d\" &amp; ]]> 'e' \r\n end "}}),
  });
}

TEST(RoundTrip, TablesWithMultiParagraphCells) {
  const Table table{.rows = {
                        {TableCell{.paragraphs = {Paragraph::make("Body", "a"),
                                                  Paragraph::make("Quote", "b"),
                                                  Paragraph::make("Body", "")}},
                         TableCell{.paragraphs = {Paragraph{
                                       .styleName = "Heading 2",
                                       .runs = {{.text = "x", .bold = true}, noteMark(2)}}}}},
                        {TableCell{.paragraphs = {Paragraph::make("Body", "only")}}},
                        {},
                    }};
  expectRoundTrip({Block{.kind = table}, paragraph("Body", {{.text = "after"}}),
                   Block{.kind = Table{}}},
                  {Footnote{.id = 2, .paragraphs = {Paragraph::make("Body", " two")}}});
}

TEST(RoundTrip, PicturesKeepTheirBytesAndNames) {
  const Data png{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 1, 2, 3};
  expectRoundTrip({
      paragraph("Body", {{.text = "before"}}),
      Block{.kind = ImageBlock{.data = png, .name = "image1.png"}},
      Block{.kind = ImageBlock{.data = {'J'}, .name = "photo.JPEG"}},
      Block{.kind = ImageBlock{.data = png, .name = "image1.png"}},
      Block{.kind = ImageBlock{.data = {}, .name = "empty.gif"}},
      paragraph("Body", {}),
  });
}

TEST(RoundTrip, FootnotesComeBackAsWritten) {
  expectRoundTrip(
      {paragraph("Body", {{.text = "See"}, noteMark(1), noteMark(2), noteMark(3),
                          noteMark(10001)})},
      {
          // As read from Word: the space after the mark is the note's own text.
          Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", " From Word.")}},
          Footnote{.id = 2, .paragraphs = {Paragraph::make("Body", "No space.")}},
          Footnote{.id = 3,
                   .paragraphs = {Paragraph{.styleName = "Quote",
                                            .runs = {{.text = "Bold", .bold = true},
                                                     {.text = " then\tplain"}}},
                                  Paragraph::make("Body", ""),
                                  Paragraph::make("Heading 1", "third")}},
          Footnote{.id = 10001, .paragraphs = {Paragraph::make("Body", " An endnote.")}},
      });
}

// A note needs a paragraph to carry its mark; an empty one has the same text.
TEST(RoundTrip, NoteWithoutParagraphsGainsOneEmptyParagraph) {
  EXPECT_EQ(writeAndRead({}, {Footnote{.id = 4}}).footnotes,
            (std::vector<Footnote>{{.id = 4, .paragraphs = {Paragraph::make("Body", "")}}}));
}

TEST(RoundTrip, CharactersXmlForbidsAreDropped) {
  const auto back = writeAndRead(
      {paragraph("Body", {{.text = std::string("a\0b\x01\x0B\uFFFEc", 10)}}),
       Block{.kind = ImageBlock{.data = {7}, .name = std::string("bad\x02name.png")}}},
      {});
  EXPECT_EQ(withoutIds(back.blocks),
            withoutIds({paragraph("Body", {{.text = "abc"}}),
                        Block{.kind = ImageBlock{.data = {7}, .name = "image.png"}}}));
}

// Every corpus document that imports writes and re-imports to the same
// content. Pictures whose names collide with other bytes are the one known
// difference (they are renamed), and none occurs in the corpus.
TEST(RoundTrip, CorpusDocumentsSurviveImportWriteImport) {
  const char* root = std::getenv("INKHARBOUR_CORPUS");
  const fs::path folder = fs::path(root != nullptr ? root : "") / "docx";
  if (root == nullptr || !fs::is_directory(folder)) {
    GTEST_SKIP() << "no corpus folder at " << folder << "; set INKHARBOUR_CORPUS";
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());

  testing::TempDir dir;
  int checked = 0;
  for (const auto& file : files) {
    ImportResult first;
    try {
      first = DocxReader::read(file, StyleMap{});
    } catch (const DocxError&) {
      continue;  // files that do not import are the corpus test's business
    }
    const auto written = dir / "written.docx";
    DocxWriter::write(first.blocks, first.footnotes, written);
    const auto second = DocxReader::read(written, StyleMap{});
    ++checked;
    EXPECT_EQ(withoutIds(second.blocks), withoutIds(first.blocks)) << file.filename();
    EXPECT_EQ(second.footnotes, first.footnotes) << file.filename();
  }
  EXPECT_GT(checked, static_cast<int>(files.size()) / 2);
}

}  // namespace
}  // namespace inkharbour
