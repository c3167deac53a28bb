// The DOCX writer's fragments, where the exact text is the product: run
// properties, escaping, tabs and line breaks, paragraphs, tables, pictures,
// footnotes and the package's parts; and the safety rules for picture names
// and characters XML cannot carry.
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

std::string runXml(const TextRun& run) {
  std::string out;
  appendRun(out, run);
  return out;
}

std::string paragraphXml(const Paragraph& paragraph) {
  std::string out;
  appendParagraph(out, paragraph);
  return out;
}

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
  const std::string t = "<w:t xml:space=\"preserve\">";
  const struct {
    TextRun run;
    std::string xml;
  } cases[] = {
      {{.text = "plain"}, "<w:r>" + t + "plain</w:t></w:r>"},
      {{.text = "x", .bold = true, .italic = true, .underline = true, .strikethrough = true,
        .smallCaps = true, .script = ScriptPosition::subscript, .colorHex = "1F2E3D"},
       "<w:r><w:rPr><w:b/><w:i/><w:u w:val=\"single\"/><w:strike/><w:smallCaps/>"
       "<w:vertAlign w:val=\"subscript\"/><w:color w:val=\"1F2E3D\"/></w:rPr>" + t +
           "x</w:t></w:r>"},
      // The reader makes the visible "[3]" from the reference itself.
      {{.text = "[3]", .script = ScriptPosition::superscript, .footnoteID = 3},
       "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr>"
       "<w:footnoteReference w:id=\"3\"/></w:r>"},
      {{.text = "\ta\u2028\u2028b\tc\t"},
       "<w:r><w:tab/>" + t + "a</w:t><w:br/><w:br/>" + t + "b</w:t><w:tab/>" + t +
           "c</w:t><w:tab/></w:r>"},
      {{.text = ""}, "<w:r></w:r>"},
      {{.text = "<&>", .colorHex = "\"><x"},
       "<w:r><w:rPr><w:color w:val=\"&quot;&gt;&lt;x\"/></w:rPr>" + t +
           "&lt;&amp;&gt;</w:t></w:r>"},
  };
  for (const auto& c : cases) EXPECT_EQ(runXml(c.run), c.xml) << c.run.text;
}

TEST(XmlText, EscapesMarkupAndDropsWhatXmlCannotCarry) {
  EXPECT_EQ(escaped("a & b < c > d \"e\" &amp;"), "a &amp; b &lt; c &gt; d &quot;e&quot; &amp;amp;");
  EXPECT_EQ(escaped(std::string("a\0b\x01\x1F\x7F", 6)), "ab\x7F");
  EXPECT_EQ(escaped("x\uFFFEy\uFFFFz\uFFFD é€😀"), "xyz\uFFFD é€😀");
  // Malformed UTF-8: a lone continuation byte, a truncated sequence, an
  // encoded surrogate, an overlong slash.
  EXPECT_EQ(escaped("a\x80" "b\xE2\x82" "c\xED\xA0\x80" "d\xC0\xAF"),
            "a\uFFFD" "b\uFFFD" "c\uFFFD\uFFFD\uFFFD" "d\uFFFD\uFFFD");
  // Line ends that a parser would normalise are written as references.
  EXPECT_EQ(escaped("a\r\nb\tc"), "a&#13;\nb\tc");
  EXPECT_EQ(escaped("a\r\nb\tc", XmlContext::attribute), "a&#13;&#10;b&#9;c");
  // A style name from elsewhere still makes a well-formed style id.
  EXPECT_EQ(paragraphXml(Paragraph::make(" A \"B\" & <C>\x01", "")),
            "<w:p><w:pPr><w:pStyle w:val=\"A&quot;B&quot;&amp;&lt;C&gt;\"/></w:pPr></w:p>");
}

// Body paragraphs carry no properties; a style id is its name without spaces.
TEST(TableXml, BordersCellsAndParagraphs) {
  const Table table{.rows = {{TableCell{.paragraphs = {Paragraph::make("Body", "a"),
                                                       Paragraph::make("Heading 1", "b")}},
                              TableCell{}}}};
  std::string out;
  appendTable(out, table);
  const std::string cell = "<w:tc><w:tcPr><w:tcW w:w=\"0\" w:type=\"auto\"/></w:tcPr>";
  EXPECT_EQ(out,
            "<w:tbl><w:tblPr><w:tblW w:w=\"0\" w:type=\"auto\"/><w:tblBorders>"
            "<w:top w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "<w:left w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "<w:bottom w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "<w:right w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "<w:insideH w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "<w:insideV w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
            "</w:tblBorders></w:tblPr><w:tr>" +
                cell + "<w:p><w:r><w:t xml:space=\"preserve\">a</w:t></w:r></w:p>" +
                "<w:p><w:pPr><w:pStyle w:val=\"Heading1\"/></w:pPr>"
                "<w:r><w:t xml:space=\"preserve\">b</w:t></w:r></w:p></w:tc>" +
                cell + "<w:p></w:p></w:tc></w:tr></w:tbl>");
}

TEST(ImageXml, DrawingWithExtentsAndRelationship) {
  const MediaMember picture{.name = "a&b.png", .data = nullptr, .relationshipID = "rId7",
                            .extent = {5486400, 2743200}};
  std::string out;
  appendImage(out, picture, 2);
  EXPECT_EQ(out,
            "<w:p><w:r><w:drawing><wp:inline distT=\"0\" distB=\"0\" distL=\"0\" distR=\"0\">"
            "<wp:extent cx=\"5486400\" cy=\"2743200\"/><wp:docPr id=\"2\" name=\"a&amp;b.png\"/>"
            "<a:graphic><a:graphicData uri=\"http://schemas.openxmlformats.org/drawingml/2006/"
            "picture\"><pic:pic><pic:nvPicPr><pic:cNvPr id=\"2\" name=\"a&amp;b.png\"/>"
            "<pic:cNvPicPr/></pic:nvPicPr><pic:blipFill><a:blip r:embed=\"rId7\"/>"
            "<a:stretch><a:fillRect/></a:stretch></pic:blipFill><pic:spPr><a:xfrm>"
            "<a:off x=\"0\" y=\"0\"/><a:ext cx=\"5486400\" cy=\"2743200\"/></a:xfrm>"
            "<a:prstGeom prst=\"rect\"><a:avLst/></a:prstGeom></pic:spPr></pic:pic>"
            "</a:graphicData></a:graphic></wp:inline></w:drawing></w:r></w:p>");
}

TEST(ImageExtent, ScalesWidePicturesTo576Pixels) {
  EXPECT_EQ(imageExtent(pngOfSize(1000, 500)), (Extent{5486400, 2743200}));
  EXPECT_EQ(imageExtent(pngOfSize(1000, 333)), (Extent{5486400, 1826971}));  // truncated
  EXPECT_EQ(imageExtent(pngOfSize(577, 100)), (Extent{5486400, 950849}));
  EXPECT_EQ(imageExtent(pngOfSize(576, 100)), (Extent{5486400, 952500}));
  EXPECT_EQ(imageExtent(pngOfSize(10, 20)), (Extent{95250, 190500}));
  EXPECT_EQ(imageExtent(Data{'n', 'o', 't'}), (Extent{3810000, 2857500}));
  EXPECT_EQ(imageExtent(Data{}), (Extent{3810000, 2857500}));
}

TEST(FootnotesXml, SeparatorsThenNotesWithTheirMark) {
  const auto xml = footnotesXml({
      Footnote{.id = 1, .paragraphs = {Paragraph::make("Quote", " One"),
                                       Paragraph::make("Body", "Two")}},
      Footnote{.id = 10002, .paragraphs = {}},
  });
  const std::string mark =
      "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:footnoteRef/></w:r>";
  EXPECT_NE(xml.find(
                "<w:footnote w:type=\"separator\" w:id=\"-1\"><w:p><w:r><w:separator/></w:r>"
                "</w:p></w:footnote><w:footnote w:type=\"continuationSeparator\" w:id=\"0\">"
                "<w:p><w:r><w:continuationSeparator/></w:r></w:p></w:footnote>"
                "<w:footnote w:id=\"1\"><w:p><w:pPr><w:pStyle w:val=\"Quote\"/></w:pPr>" +
                mark +
                "<w:r><w:t xml:space=\"preserve\"> One</w:t></w:r></w:p>"
                "<w:p><w:r><w:t xml:space=\"preserve\">Two</w:t></w:r></w:p></w:footnote>"
                "<w:footnote w:id=\"10002\"><w:p>" +
                mark + "</w:p></w:footnote></w:footnotes>"),
            std::string::npos)
      << xml;
}

TEST(MediaNames, HostileNamesStayInsideTheMediaFolder) {
  struct Case {
    std::string name;
    std::string written;
  };
  const Case cases[] = {
      {"photo.JPG", "photo.JPG"},     {"café 1.png", "café 1.png"},
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
    const auto plan = planMedia({&image});
    ASSERT_EQ(plan.members.size(), 1u);
    EXPECT_EQ(plan.members[0].name, c.written) << c.name;
    EXPECT_EQ(plan.members[0].relationshipID, "rId3");
  }
  const ImageBlock gif{.data = {'G', 'I', 'F', '8', '9', 'a'}, .name = "../x"};
  EXPECT_EQ(planMedia({&gif}).members[0].name, "image.gif");
}

TEST(MediaNames, OneMemberPerNameAndBytes) {
  const ImageBlock a{.data = {1}, .name = "image.png"};
  const ImageBlock sameAsA{.data = {1}, .name = "image.png"};
  const ImageBlock other{.data = {2}, .name = "image.png"};
  const ImageBlock otherCase{.data = {3}, .name = "IMAGE.png"};
  const ImageBlock claimsSuffix{.data = {4}, .name = "image-2.png"};
  const ImageBlock unsafe{.data = {5}, .name = "../image.png"};
  const ImageBlock sameAsOther{.data = {2}, .name = "image.png"};
  const auto plan =
      planMedia({&a, &other, &sameAsA, &otherCase, &claimsSuffix, &unsafe, &sameAsOther});

  std::string members;
  for (const auto& member : plan.members) members += member.relationshipID + " " + member.name + ", ";
  // Names as given are kept first; renamed pictures take the next free name.
  EXPECT_EQ(members,
            "rId3 image.png, rId4 image-2.png, rId5 image-3.png, rId6 IMAGE-4.png, rId7 image-5.png, ");
  EXPECT_EQ(plan.memberOfImage, (std::vector<std::size_t>{0, 2, 0, 3, 1, 4, 2}));
}

TEST(Package, FootnotesPartOnlyWhenThereAreFootnotes) {
  testing::TempDir dir;
  const std::vector<Block> blocks{
      Block{.kind = ImageBlock{.data = pngOfSize(2, 2), .name = "b.PNG"}},
      Block{.kind = ImageBlock{.data = {1, 2}, .name = "c.jpg"}},
  };
  const auto member = [&](const char* file, std::string_view name) {
    const auto bytes = ZipTool::run(dir / file, name);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<absent>");
  };
  const std::string type = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/";
  const std::string images =
      "<Relationship Id=\"rId3\" Type=\"" + type + "image\" Target=\"media/b.PNG\"/>"
      "<Relationship Id=\"rId4\" Type=\"" + type + "image\" Target=\"media/c.jpg\"/>";
  const std::string footnotesOverride =
      "<Override PartName=\"/word/footnotes.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.wordprocessingml.footnotes+xml\"/>";

  DocxWriter::write(blocks, {}, dir / "plain.docx");
  EXPECT_EQ(member("plain.docx", "word/footnotes.xml"), "<absent>");
  EXPECT_EQ(member("plain.docx", "word/media/c.jpg"), std::string("\x01\x02", 2));
  const auto types = member("plain.docx", "[Content_Types].xml");
  EXPECT_NE(types.find("<Default Extension=\"jpg\" ContentType=\"image/jpeg\"/>"
                       "<Default Extension=\"png\" ContentType=\"image/png\"/><Override"),
            std::string::npos);
  EXPECT_EQ(types.find(footnotesOverride), std::string::npos);
  EXPECT_TRUE(member("plain.docx", "word/_rels/document.xml.rels")
                  .ends_with("Target=\"styles.xml\"/>" + images + "</Relationships>"));

  DocxWriter::write(blocks, {Footnote{.id = 1, .paragraphs = {}}}, dir / "notes.docx");
  EXPECT_NE(member("notes.docx", "word/footnotes.xml"), "<absent>");
  EXPECT_TRUE(member("notes.docx", "[Content_Types].xml").ends_with(footnotesOverride + "</Types>"));
  EXPECT_TRUE(member("notes.docx", "word/_rels/document.xml.rels")
                  .ends_with("<Relationship Id=\"rId2\" Type=\"" + type +
                             "footnotes\" Target=\"footnotes.xml\"/>" + images +
                             "</Relationships>"));
}

}  // namespace
}  // namespace inkharbour
