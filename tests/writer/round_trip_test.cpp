// Writer -> reader round trips: the reader must give back what the writer put
// in, apart from block ids, for made-up stories and for the real corpus.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

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
  DocxWriter::write(blocks, notes, dir / "story.docx");
  return DocxReader::read(dir / "story.docx", StyleMap{});
}

void expectRoundTrip(const std::vector<Block>& blocks, const std::vector<Footnote>& notes) {
  const auto back = writeAndRead(blocks, notes);
  EXPECT_EQ(withoutIds(back.blocks), withoutIds(blocks))
      << "expected:\n" << testing::dump({.blocks = blocks, .footnotes = notes})
      << "got:\n" << testing::dump(back);
  EXPECT_EQ(back.footnotes, notes) << "got:\n" << testing::dump(back);
}

Block paragraph(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

TextRun mark(std::int64_t id) { return TextRun::footnoteReference(id); }

// Footnotes as read from Word: the space after the mark is the note's own text,
// so the writer adds none, and a note may start without one or with a formatted run.
TEST(RoundTrip, RichStory) {
  const Data png{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 1, 2, 3};
  const Paragraph marked{.styleName = "Heading 2", .runs = {{.text = "x", .bold = true}, mark(2)}};
  const TableCell three{{Paragraph::make("Body", "a"), Paragraph::make("Quote", "b"),
                         Paragraph::make("Body", "")}};
  const Table table{.rows = {{three, TableCell{{marked}}}, {TableCell{{marked}}}, {}}};
  expectRoundTrip(
      {paragraph("Title", {{.text = "A Title"}}),
       paragraph("Heading 1", {{.text = "One", .italic = true}}),
       paragraph("Quote", {{.text = "Said", .smallCaps = true}}),
       paragraph("Body", {}),
       paragraph("Body",
                 {{.text = " lead ", .bold = true},
                  {.text = "und", .underline = true},
                  {.text = "gone", .strikethrough = true, .colorHex = "ff0000"},
                  {.text = "all", .bold = true, .italic = true, .underline = true,
                   .strikethrough = true, .smallCaps = true, .colorHex = "0A0B0C"},
                  {.text = "up", .script = ScriptPosition::superscript},
                  {.text = "down", .script = ScriptPosition::subscript, .colorHex = "FF0000"},
                  mark(1), mark(1), mark(3),
                  {.text = "\ttab\t\tand\u2028line\u2028\u2028 ", .colorHex = "ff0000"},
                  mark(10001),
                  {.text = "a & b < c > \"d\" &amp; ]]> 'e' \r\n end "}}),
       Block{.kind = table},
       Block{.kind = Table{}},
       Block{.kind = ImageBlock{.data = png, .name = "image1.png"}},
       Block{.kind = ImageBlock{.data = {'J'}, .name = "photo.JPEG"}},
       Block{.kind = ImageBlock{.data = png, .name = "image1.png"}},
       Block{.kind = ImageBlock{.data = {}, .name = "empty.gif"}}},
      {Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", " From Word.")}},
       Footnote{.id = 2, .paragraphs = {Paragraph::make("Body", "No space.")}},
       Footnote{.id = 3, .paragraphs = {Paragraph{.styleName = "Quote",
                                                  .runs = {{.text = "Bold", .bold = true},
                                                           {.text = " then\tplain"}}},
                                        Paragraph::make("Body", ""),
                                        Paragraph::make("Heading 1", "third")}},
       Footnote{.id = 10001, .paragraphs = {Paragraph::make("Body", " An endnote.")}}});
}

// What XML cannot carry is dropped; a note needs a paragraph to carry its mark.
TEST(RoundTrip, WhatCannotBeWrittenIsMended) {
  const auto back =
      writeAndRead({paragraph("Body", {{.text = std::string("a\0b\x01\x0B\uFFFEc", 10)}}),
                    Block{.kind = ImageBlock{.data = {7}, .name = "bad\x02name.png"}}},
                   {Footnote{.id = 4}});
  EXPECT_EQ(withoutIds(back.blocks),
            withoutIds({paragraph("Body", {{.text = "abc"}}),
                        Block{.kind = ImageBlock{.data = {7}, .name = "image.png"}}}));
  EXPECT_EQ(back.footnotes,
            (std::vector<Footnote>{{.id = 4, .paragraphs = {Paragraph::make("Body", "")}}}));
}

// Every corpus document that imports comes back the same. Pictures whose names
// collide with other bytes would be renamed; none occurs in the corpus.
TEST(RoundTrip, CorpusDocumentsSurviveImportWriteImport) {
  const char* root = std::getenv("INKHARBOUR_CORPUS");
  const fs::path folder = fs::path(root != nullptr ? root : "") / "docx";
  if (root == nullptr || !fs::is_directory(folder)) {
    GTEST_SKIP() << "no corpus folder at " << folder << "; set INKHARBOUR_CORPUS";
  }
  testing::TempDir dir;
  int files = 0, checked = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    ++files;
    ImportResult first;
    try {
      first = DocxReader::read(entry.path(), StyleMap{});
    } catch (const DocxError&) {
      continue;  // files that do not import are the corpus test's business
    }
    DocxWriter::write(first.blocks, first.footnotes, dir / "written.docx");
    const auto second = DocxReader::read(dir / "written.docx", StyleMap{});
    ++checked;
    EXPECT_EQ(withoutIds(second.blocks), withoutIds(first.blocks)) << entry.path().filename();
    EXPECT_EQ(second.footnotes, first.footnotes) << entry.path().filename();
  }
  EXPECT_GT(checked, files / 2);
}

}  // namespace
}  // namespace inkharbour
