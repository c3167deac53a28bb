// The writer's fragments, where the exact text is the product, and its safety
// rules for picture names and characters that XML cannot carry.
#include <gtest/gtest.h>

#include <string>

#include "importers/package.h"
#include "support/fixtures.h"
#include "writer/docx_parts.h"
#include "writer/docx_writer.h"
#include "writer/media.h"
#include "writer/xml_text.h"

namespace inkharbour {
namespace {

using namespace writer;

// What one of the append functions writes.
template <class Append, class... Args>
std::string xml(Append append, const Args&... args) {
  std::string out;
  append(out, args...);
  return out;
}

const std::string kT = "<w:t xml:space=\"preserve\">";

// A PNG signature and header: all an image's pixel size is read from.
Data pngOfSize(std::uint32_t width, std::uint32_t height) {
  Data png{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
  for (const auto value : {width, height}) {
    for (int shift = 24; shift >= 0; shift -= 8) png.push_back((value >> shift) & 0xFF);
  }
  for (const int byte : {8, 2, 0, 0, 0, 0, 0, 0, 0}) png.push_back(byte);  // depth, RGB, CRC
  return png;
}

TEST(RunXml, PropertiesTextAndReferences) {
  const struct {
    TextRun run;
    std::string xml;
  } cases[] = {
      {{.text = "plain"}, "<w:r>" + kT + "plain</w:t></w:r>"},
      {{.text = "x", .bold = true, .italic = true, .underline = true, .strikethrough = true,
        .smallCaps = true, .script = ScriptPosition::subscript, .colorHex = "1F2E3D"},
       "<w:r><w:rPr><w:b/><w:i/><w:u w:val=\"single\"/><w:strike/><w:smallCaps/>"
       "<w:vertAlign w:val=\"subscript\"/><w:color w:val=\"1F2E3D\"/></w:rPr>" + kT +
           "x</w:t></w:r>"},
      // The reader makes the visible "[3]" from the reference itself.
      {{.text = "[3]", .script = ScriptPosition::superscript, .footnoteID = 3},
       "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr>"
       "<w:footnoteReference w:id=\"3\"/></w:r>"},
      {{.text = "\ta\u2028\u2028b\tc\t"},
       "<w:r><w:tab/>" + kT + "a</w:t><w:br/><w:br/>" + kT + "b</w:t><w:tab/>" + kT +
           "c</w:t><w:tab/></w:r>"},
      {{.text = ""}, "<w:r></w:r>"},
      {{.text = "<&>", .colorHex = "\"><x"},
       "<w:r><w:rPr><w:color w:val=\"&quot;&gt;&lt;x\"/></w:rPr>" + kT +
           "&lt;&amp;&gt;</w:t></w:r>"},
  };
  for (const auto& c : cases) EXPECT_EQ(xml(appendRun, c.run), c.xml) << c.run.text;
}

TEST(XmlText, EscapesMarkupAndDropsWhatXmlCannotCarry) {
  EXPECT_EQ(escaped("a & b < c > \"d\" &amp;"), "a &amp; b &lt; c &gt; &quot;d&quot; &amp;amp;");
  EXPECT_EQ(escaped(std::string("a\0b\x01\x1F\x7F", 6)), "ab\x7F");
  EXPECT_EQ(escaped("x\uFFFEy\uFFFFz\uFFFD é€😀"), "xyz\uFFFD é€😀");
  // Malformed UTF-8: a lone continuation byte, a truncated sequence, an
  // encoded surrogate, an overlong slash.
  EXPECT_EQ(escaped("a\x80" "b\xE2\x82" "c\xED\xA0\x80" "d\xC0\xAF"),
            "a\uFFFD" "b\uFFFD" "c\uFFFD\uFFFD\uFFFD" "d\uFFFD\uFFFD");
  // Line ends that a parser would normalise are written as references.
  EXPECT_EQ(escaped("a\r\nb\tc"), "a&#13;\nb\tc");
  EXPECT_EQ(escaped("a\r\nb\tc", XmlContext::attribute), "a&#13;&#10;b&#9;c");
}

// Body paragraphs carry no properties; a style id is the name without spaces.
TEST(ParagraphXml, StyleIdsAndEmptyCells) {
  const auto paragraphXml = [](std::string& out, const Paragraph& p) { appendParagraph(out, p); };
  EXPECT_EQ(xml(paragraphXml, Paragraph::make("Body", "a")),
            "<w:p><w:r>" + kT + "a</w:t></w:r></w:p>");
  EXPECT_EQ(xml(paragraphXml, Paragraph::make("Heading 1", "")),
            "<w:p><w:pPr><w:pStyle w:val=\"Heading1\"/></w:pPr></w:p>");
  // A style name from elsewhere still makes a well-formed style id.
  EXPECT_EQ(xml(paragraphXml, Paragraph::make(" A \"B\" & <C>\x01", "")),
            "<w:p><w:pPr><w:pStyle w:val=\"A&quot;B&quot;&amp;&lt;C&gt;\"/></w:pPr></w:p>");
  // Every cell holds a paragraph, even an empty one.
  EXPECT_TRUE(xml(appendTable, Table{.rows = {{TableCell{}}}})
                  .ends_with("</w:tcPr><w:p></w:p></w:tc></w:tr></w:tbl>"));
}

// 576 pixels at most across, 9525 EMU a pixel, truncated; 400×300 when undecodable.
TEST(ImageXml, DrawnAtMost576PixelsWide) {
  EXPECT_EQ(imageExtent(pngOfSize(1000, 500)), (Extent{5486400, 2743200}));
  EXPECT_EQ(imageExtent(pngOfSize(1000, 333)), (Extent{5486400, 1826971}));
  EXPECT_EQ(imageExtent(pngOfSize(577, 100)), (Extent{5486400, 950849}));
  EXPECT_EQ(imageExtent(pngOfSize(576, 100)), (Extent{5486400, 952500}));
  EXPECT_EQ(imageExtent(Data{'n', 'o', 't'}), (Extent{3810000, 2857500}));

  const MediaMember picture{.name = "a&b.png", .relationshipID = "rId7",
                            .extent = {5486400, 2743200}};
  std::string drawing;
  appendImage(drawing, picture, 2);
  for (const char* part : {"<wp:extent cx=\"5486400\" cy=\"2743200\"/><wp:docPr id=\"2\" "
                           "name=\"a&amp;b.png\"/>", "<a:blip r:embed=\"rId7\"/>",
                           "<a:ext cx=\"5486400\" cy=\"2743200\"/>"})
    EXPECT_NE(drawing.find(part), std::string::npos) << part << "\n" << drawing;
}

TEST(FootnotesXml, SeparatorsThenNotesWithTheirMark) {
  const Footnote one{.id = 1, .paragraphs = {Paragraph::make("Quote", " One"),
                                              Paragraph::make("Body", "Two")}};
  const auto notes = footnotesXml({one, Footnote{.id = 10002}});
  const std::string mark =
      "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:footnoteRef/></w:r>";
  EXPECT_TRUE(notes.ends_with(
      "<w:footnote w:type=\"separator\" w:id=\"-1\"><w:p><w:r><w:separator/></w:r></w:p>"
      "</w:footnote><w:footnote w:type=\"continuationSeparator\" w:id=\"0\"><w:p><w:r>"
      "<w:continuationSeparator/></w:r></w:p></w:footnote><w:footnote w:id=\"1\"><w:p><w:pPr>"
      "<w:pStyle w:val=\"Quote\"/></w:pPr>" + mark + "<w:r>" + kT + " One</w:t></w:r></w:p>"
      "<w:p><w:r>" + kT + "Two</w:t></w:r></w:p></w:footnote><w:footnote w:id=\"10002\"><w:p>" +
      mark + "</w:p></w:footnote></w:footnotes>"))
      << notes;
}

TEST(MediaNames, HostileNamesStayInsideTheMediaFolder) {
  const struct {
    std::string name, written;
  } cases[] = {
      {"photo.JPG", "photo.JPG"},      {"café 1.png", "café 1.png"},
      {"../../evil.png", "image.png"}, {"a/b.gif", "image.gif"},
      {"a\\b.gif", "image.gif"},       {"", "image.png"},
      {".", "image.png"},              {"..", "image.png"},
      {"CON", "image.png"},            {"nul.png", "image.png"},
      {"Com1.tar.jpg", "image.jpg"},   {"x.png.", "image.png"},
      {"tab\there.png", "image.png"},  {"100%.png", "image.png"},
      {"a%20b.png", "a%20b.png"},      {"noextension", "noextension.png"},
      {"evil.xml", "evil.xml.png"},    {"x.rels", "x.rels.png"},
  };
  for (const auto& c : cases) {
    const ImageBlock image{.data = pngOfSize(1, 1), .name = c.name};
    EXPECT_EQ(planMedia({&image}).members.at(0).name, c.written) << c.name;
  }
  const ImageBlock gif{.data = {'G', 'I', 'F', '8', '9', 'a'}, .name = "../x"};
  EXPECT_EQ(planMedia({&gif}).members.at(0).name, "image.gif");
}

// Names as given are kept first; renamed pictures take the next free name.
TEST(MediaNames, OneMemberPerNameAndBytes) {
  const ImageBlock a{.data = {1}, .name = "image.png"}, sameAsA = a;
  const ImageBlock other{.data = {2}, .name = "image.png"}, sameAsOther = other;
  const ImageBlock otherCase{.data = {3}, .name = "IMAGE.png"};
  const ImageBlock claimsSuffix{.data = {4}, .name = "image-2.png"};
  const ImageBlock unsafe{.data = {5}, .name = "../image.png"};
  const auto plan =
      planMedia({&a, &other, &sameAsA, &otherCase, &claimsSuffix, &unsafe, &sameAsOther});
  std::string members;
  for (const auto& m : plan.members) members += m.relationshipID + " " + m.name + ", ";
  EXPECT_EQ(members, "rId3 image.png, rId4 image-2.png, rId5 image-3.png, rId6 IMAGE-4.png, "
                     "rId7 image-5.png, ");
  EXPECT_EQ(plan.memberOfImage, (std::vector<std::size_t>{0, 2, 0, 3, 1, 4, 2}));
}

TEST(Package, FootnotesPartOnlyWhenThereAreFootnotes) {
  testing::TempDir dir;
  const std::vector<Block> blocks{Block{.kind = ImageBlock{.data = {1, 2}, .name = "b.PNG"}}};
  const auto member = [&](const char* file, std::string_view name) {
    const auto bytes = ZipTool::run(dir / file, name);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<absent>");
  };
  const std::string type = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/";
  const std::string image = "<Relationship Id=\"rId3\" Type=\"" + type +
                            "image\" Target=\"media/b.PNG\"/></Relationships>";
  const std::string notesType =
      "<Override PartName=\"/word/footnotes.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.wordprocessingml.footnotes+xml\"/>";

  DocxWriter::write(blocks, {}, dir / "plain.docx");
  EXPECT_EQ(member("plain.docx", "word/footnotes.xml"), "<absent>");
  EXPECT_EQ(member("plain.docx", "word/media/b.PNG"), "\x01\x02");
  const auto types = member("plain.docx", "[Content_Types].xml");
  EXPECT_NE(types.find("<Default Extension=\"png\" ContentType=\"image/png\"/><Override"),
            std::string::npos);
  EXPECT_TRUE(types.ends_with("styles+xml\"/></Types>")) << types;
  EXPECT_TRUE(member("plain.docx", "word/_rels/document.xml.rels")
                  .ends_with("Target=\"styles.xml\"/>" + image));

  DocxWriter::write(blocks, {Footnote{.id = 1}}, dir / "notes.docx");
  EXPECT_TRUE(member("notes.docx", "word/footnotes.xml").ends_with("</w:footnotes>"));
  EXPECT_TRUE(member("notes.docx", "[Content_Types].xml").ends_with(notesType + "</Types>"));
  EXPECT_TRUE(member("notes.docx", "word/_rels/document.xml.rels")
                  .ends_with("<Relationship Id=\"rId2\" Type=\"" + type +
                             "footnotes\" Target=\"footnotes.xml\"/>" + image));
}

}  // namespace
}  // namespace inkharbour
