// An exported story re-saved by LibreOffice reads back as the same text:
// headings stay headings, the table keeps its cells, notes keep their text
// and their kind (LibreOffice renumbers them, so numbers take no part).
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "importers/docx_reader.h"
#include "integration/office.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;

// A 1×1 PNG.
const Data kPicture{0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D,
                    0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01,
                    0x08, 0x02, 0x00, 0x00, 0x00, 0x90, 0x77, 0x53, 0xDE, 0x00, 0x00, 0x00,
                    0x0C, 0x49, 0x44, 0x41, 0x54, 0x08, 0xD7, 0x63, 0xF8, 0xCF, 0xC0, 0x00,
                    0x00, 0x03, 0x01, 0x01, 0x00, 0x18, 0xDD, 0x8D, 0xB0, 0x00, 0x00, 0x00,
                    0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};

Paragraph body(std::vector<TextRun> runs) {
  return Paragraph{.styleName = "Body", .runs = runs};
}
TextRun plain(std::string text) {
  return TextRun{.text = std::move(text)};
}
TableCell cell(std::string text) {
  return TableCell{.paragraphs = {Paragraph::make("Body", text)}};
}

ImportResult story() {
  return {
      .blocks =
          {{.kind = Paragraph::make("Title", "The Lighthouse Keeper")},
           {.kind = Paragraph::make("Heading 1", "Chapter One")},
           {.kind = body({plain("The lamp was lit at dusk"), TextRun::footnoteReference(1),
                          plain(" and the ships came home.")})},
           {.kind = Paragraph::make("Body", "She wrote: all quiet.")},
           {.kind = Paragraph::make("Heading 2", "The Storm")},
           {.kind = body({plain("Waves rose"), TextRun::footnoteReference(2),
                          plain(" over the pier"), TextRun::footnoteReference(10001), plain(".")})},
           {.kind = Table{.rows = {{cell("Day"), cell("Ships"), cell("Weather")},
                                   {cell("Monday"), cell("3"),
                                    TableCell{.paragraphs = {Paragraph::make("Body", "Fog"),
                                                             Paragraph::make("Body", "Rain")}}}}}},
           {.kind = ImageBlock{.data = kPicture, .name = "lamp.png"}},
           {.kind = Paragraph::make("Quote", "Every light is a promise.")},
           {.kind = Paragraph::make("Body", "The end.")}},
      .footnotes = {{.id = 1, .paragraphs = {Paragraph::make("Body", "It burned whale oil.")}},
                    {.id = 2, .paragraphs = {Paragraph::make("Body", "A spring tide.")}},
                    {.id = 10001, .paragraphs = {Paragraph::make("Body", "Logbook, 1891.")}}},
  };
}

// The text of a story, one line per non-empty paragraph ("Style: text", "^"
// for a note reference), table and picture, then its notes in the order of
// their references ("endnote: text").
std::string shownText(const ImportResult& result) {
  std::map<std::int64_t, const Footnote*> notes;
  for (const auto& note : result.footnotes) notes[note.id] = &note;
  std::vector<std::int64_t> cited;
  const auto line = [&](const Paragraph& paragraph) {
    std::string text;
    for (const auto& run : paragraph.runs) {
      if (run.footnoteID) cited.push_back(*run.footnoteID);
      text += run.footnoteID ? "^" : run.text;
    }
    return text.empty() ? text : paragraph.styleName + ": " + text + "\n";
  };
  std::string out;
  for (const auto& block : result.blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      out += line(*paragraph);
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      out += "table:\n";
      for (const auto& row : table->rows) {
        for (const auto& c : row) out += " | " + c.text();
        out += "\n";
      }
    } else {
      out += std::get<ImageBlock>(block.kind).data.empty() ? "empty picture\n" : "picture\n";
    }
  }
  for (const auto id : cited) {
    const bool endnote = id > 10000;
    out += (endnote ? "endnote: " : "footnote: ") +
           (notes.contains(id) ? notes[id]->text() : std::string("(missing)")) + "\n";
  }
  return out;
}

TEST(ResaveInOffice, ExportReadsBackAsTheSameTextAfterLibreOfficeSavesIt) {
  if (!testing::officeAvailable()) GTEST_SKIP() << "soffice is not on PATH";
  const testing::TempDir dir;
  const auto exported = dir / "story.docx";
  const auto original = story();
  DocxWriter::write(original.blocks, original.footnotes, exported);

  const auto resaved = testing::convertAll({exported}, "docx", dir / "docx", dir / "profile");
  ASSERT_FALSE(resaved[0].empty()) << "LibreOffice cannot open the exported file";
  EXPECT_EQ(shownText(DocxReader::read(resaved[0], StyleMap{})), shownText(original));

  const auto flat = testing::convertAll({exported}, "fodt", dir / "fodt", dir / "profile");
  ASSERT_FALSE(flat[0].empty());
  EXPECT_EQ(testing::readShownText(flat[0]).noteClasses,
            (std::vector<std::string>{"footnote", "footnote", "endnote"}));
}

}  // namespace
}  // namespace inkharbour
