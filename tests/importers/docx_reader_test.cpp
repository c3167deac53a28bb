// The DOCX reader: what a Word package's body, styles, relationships,
// pictures and notes become. Most assertions compare the dump text of the
// import; the model values are checked where the dump cannot show a
// difference (exact runs, footnote numbers on runs, image bytes, block ids).
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::dump;
using testing::documentXml;
using testing::importDocx;
using testing::Members;
using testing::notesXml;
using testing::stylesXml;
using testing::TempDir;
using testing::writeFile;
using testing::writePackage;

// --- Inline WordprocessingML builders -------------------------------------

std::string run(std::string_view text, std::string_view props = "") {
  std::string xml = "<w:r>";
  if (!props.empty()) xml += "<w:rPr>" + std::string(props) + "</w:rPr>";
  return xml + R"(<w:t xml:space="preserve">)" + std::string(text) + "</w:t></w:r>";
}

std::string para(std::string_view content, std::string_view styleID = "") {
  std::string xml = "<w:p>";
  if (!styleID.empty()) xml += R"(<w:pPr><w:pStyle w:val=")" + std::string(styleID) + R"("/></w:pPr>)";
  return xml + std::string(content) + "</w:p>";
}

std::string footnoteRef(std::string_view id) {
  return R"(<w:r><w:rPr><w:rStyle w:val="FootnoteReference"/></w:rPr><w:footnoteReference w:id=")" +
         std::string(id) + R"("/></w:r>)";
}

std::string picture(std::string_view relationshipID) {
  return R"(<w:r><w:drawing><a:graphic><a:graphicData><a:blip r:embed=")" +
         std::string(relationshipID) + R"("/></a:graphicData></a:graphic></w:drawing></w:r>)";
}

std::string cell(std::string_view content) { return "<w:tc>" + std::string(content) + "</w:tc>"; }
std::string row(std::string_view cells) { return "<w:tr>" + std::string(cells) + "</w:tr>"; }
std::string table(std::string_view rows) {
  return R"(<w:tbl><w:tblPr><w:tblStyle w:val="TableGrid"/></w:tblPr>)" + std::string(rows) +
         "</w:tbl>";
}

std::string note(std::string_view id, std::string_view body, std::string_view element = "footnote") {
  return "<w:" + std::string(element) + R"( w:id=")" + std::string(id) + R"(">)" +
         std::string(body) + "</w:" + std::string(element) + ">";
}

// A note body as Word writes it: the marker run, then the text after a space.
std::string wordNoteBody(std::string_view text) {
  return R"(<w:p><w:pPr><w:pStyle w:val="FootnoteText"/></w:pPr>)"
         R"(<w:r><w:rPr><w:rStyle w:val="FootnoteReference"/></w:rPr><w:footnoteRef/></w:r>)" +
         run(std::string(" ") + std::string(text)) + "</w:p>";
}

std::string relsXml(const std::map<std::string, std::string>& idToTarget) {
  std::string xml =
      R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
      R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";
  for (const auto& [id, target] : idToTarget) {
    xml += R"(<Relationship Id=")" + id +
           R"(" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/image" Target=")" +
           target + R"("/>)";
  }
  return xml + "</Relationships>";
}

constexpr std::string_view kRels = "word/_rels/document.xml.rels";

// Picture bytes with a NUL and high bytes, so that nothing treats them as text.
const std::string kPng("\x89PNG\r\n\x1a\n\0\x01\x02", 11);

// A part without its leading XML declaration, to put a document type first.
std::string withoutDeclaration(const std::string& xml) {
  const auto end = xml.find("?>");
  return xml.starts_with("<?xml") ? xml.substr(end + 2) : xml;
}

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

const Paragraph& paragraphAt(const ImportResult& result, std::size_t index) {
  return std::get<Paragraph>(result.blocks.at(index).kind);
}

class DocxTest : public ::testing::Test {
 protected:
  ImportResult import(const std::string& body, Members extra = {}) {
    return importDocx(dir_, body, std::move(extra));
  }
  std::string dumpBody(const std::string& body, Members extra = {}) {
    return dump(import(body, std::move(extra)));
  }
  // A package with exactly these members, read under `name` with `styleMap`.
  ImportResult readPackage(const Members& members, const StyleMap& styleMap = {},
                           const std::string& name = "package.docx") {
    writePackage(dir_ / name, members);
    return DocxReader::read(dir_ / name, styleMap);
  }

  TempDir dir_;
};

using DocxParagraphs = DocxTest;
using DocxRuns = DocxTest;
using DocxText = DocxTest;
using DocxNoteReferences = DocxTest;
using DocxNotes = DocxTest;
using DocxTables = DocxTest;
using DocxPictures = DocxTest;
using DocxTextBoxes = DocxTest;
using DocxXmlNames = DocxTest;
using DocxFailures = DocxTest;
using DocxDispatch = DocxTest;

// --- Paragraphs and styles ---------------------------------------------------

TEST_F(DocxParagraphs, EmptyBodyYieldsNothing) {
  const auto result = import("");
  EXPECT_TRUE(result.blocks.empty());
  EXPECT_TRUE(result.footnotes.empty());
}

TEST_F(DocxParagraphs, EmptyParagraphsAreKeptWithoutRuns) {
  const auto result = import("<w:p/>" + para("") + para(run("")));
  EXPECT_EQ(dump(result), "[Body] \n[Body] \n[Body] \n");
  for (std::size_t i = 0; i < 3; ++i) EXPECT_TRUE(paragraphAt(result, i).runs.empty()) << i;
}

TEST_F(DocxParagraphs, StyleIdIsMappedThroughItsNameInTheStylesPart) {
  // The ids are meaningless to the built-in rules; only the names map.
  const Members styles{{"word/styles.xml", stylesXml({{"Berschrift1", "heading 1"},
                                                      {"Zitat", "Intense Quote"},
                                                      {"Sub", "Subtitle"}})}};
  EXPECT_EQ(dumpBody(para(run("a"), "Berschrift1") + para(run("b"), "Zitat") +
                         para(run("c"), "Sub") + para(run("d")),
                     styles),
            "[Heading 1] «a»\n[Quote] «b»\n[Title] «c»\n[Body] «d»\n");
}

TEST_F(DocxParagraphs, UnknownStyleIdIsMappedAsIfItWereTheName) {
  const Members styles{{"word/styles.xml", stylesXml({{"Other", "Heading 1"}})}};
  EXPECT_EQ(dumpBody(para(run("a"), "Heading2") + para(run("b"), "Quote") + para(run("c"), "Normal"),
                     styles),
            "[Heading 2] «a»\n[Quote] «b»\n[Body] «c»\n");
  // Without any styles part, too.
  EXPECT_EQ(dumpBody(para(run("a"), "Title")), "[Title] «a»\n");
}

TEST_F(DocxParagraphs, StyleDoesNotCarryOverToTheNextParagraph) {
  EXPECT_EQ(dumpBody(para(run("a"), "Heading1") + para(run("b"))),
            "[Heading 1] «a»\n[Body] «b»\n");
}

TEST_F(DocxParagraphs, StyleElementWithoutValueOrOutsideParagraphPropertiesIsIgnored) {
  EXPECT_EQ(dumpBody(R"(<w:p><w:pPr><w:pStyle/></w:pPr>)" + run("a") + "</w:p>" +
                     R"(<w:p><w:pStyle w:val="Heading1"/>)" + run("b") + "</w:p>"),
            "[Body] «a»\n[Body] «b»\n");
}

TEST_F(DocxParagraphs, CustomStyleMapAppliesToStyleNamesOnly) {
  const Members members{
      {"word/document.xml",
       documentXml(para(run("named"), "Sub") + para(run("byId"), "Sub2") +
                   para(run("unstyled")) + para(run("normal"), "Normal"))},
      {"word/styles.xml", stylesXml({{"Sub", "Subtitle"}, {"Sub2", "Subtitle 2"}})}};
  // Keys are Word style names: "Sub2" is an id, so its entry never applies;
  // a paragraph without a style is "Body" whatever the map says.
  const StyleMap custom{{"Subtitle", "Heading 2"}, {"Sub2", "Quote"}, {"Normal", "Quote"},
                        {"", "Title"},            {"Body", "Title"}};
  EXPECT_EQ(dump(readPackage(members, custom)),
            "[Heading 2] «named»\n[Title] «byId»\n[Body] «unstyled»\n[Quote] «normal»\n");
  EXPECT_EQ(dump(readPackage(members)),
            "[Title] «named»\n[Title] «byId»\n[Body] «unstyled»\n[Body] «normal»\n");
}

TEST_F(DocxParagraphs, StylesPartEdgeCases) {
  struct Case {
    const char* name;
    std::string styles;
    const char* expected;
  };
  const std::string open =
      R"(<w:styles xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">)";
  const Case cases[] = {
      {"unprefixed attributes", open + R"(<w:style styleId="S"><w:name val="Title"/></w:style></w:styles>)",
       "[Title] «x»\n"},
      {"a later name overwrites",
       open + R"(<w:style w:styleId="S"><w:name w:val="Normal"/><w:name w:val="heading 1"/></w:style></w:styles>)",
       "[Heading 1] «x»\n"},
      {"a name after the style's end names nothing",
       open + R"(<w:style w:styleId="S"/><w:name w:val="Title"/></w:styles>)", "[Body] «x»\n"},
      {"a style without an id names nothing",
       open + R"(<w:style><w:name w:val="Title"/></w:style></w:styles>)", "[Body] «x»\n"},
      {"malformed: read as far as well-formed",
       open + R"(<w:style w:styleId="S"><w:name w:val="Title"/></w:style><w:style w:styleId=)",
       "[Title] «x»\n"},
      {"not XML at all", "not xml", "[Body] «x»\n"},
      {"empty", "", "[Body] «x»\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(dumpBody(para(run("x"), "S"), {{"word/styles.xml", c.styles}}), c.expected);
  }
}

// --- Run formatting ----------------------------------------------------------

TEST_F(DocxRuns, FormattingProperties) {
  struct Case {
    const char* props;
    const char* flags;
  };
  const Case cases[] = {
      {"", ""},
      {"<w:b/>", "B"},
      {"<w:i/>", "I"},
      {R"(<w:u w:val="single"/>)", "U"},
      {"<w:strike/>", "S"},
      {"<w:smallCaps/>", "C"},
      {R"(<w:vertAlign w:val="superscript"/>)", "^"},
      {R"(<w:vertAlign w:val="subscript"/>)", "_"},
      {R"(<w:vertAlign w:val="baseline"/>)", ""},
      {R"(<w:vertAlign w:val="Superscript"/>)", ""},
      {"<w:vertAlign/>", ""},
      {R"(<w:color w:val="FF0000"/>)", "#FF0000"},
      {R"(<w:color w:val="ff0000"/>)", "#ff0000"},
      {R"(<w:color w:val="red"/>)", "#red"},
      {R"(<w:color w:val="auto"/>)", ""},
      {R"(<w:color w:themeColor="accent1"/>)", ""},
      {"<w:color/>", ""},
      {R"(<w:b/><w:i/><w:u/><w:strike/><w:smallCaps/><w:vertAlign w:val="subscript"/><w:color w:val="00FF00"/>)",
       "BIUSC_#00FF00"},
      // A later property of the same kind wins.
      {R"(<w:b/><w:b w:val="0"/>)", ""},
      {R"(<w:color w:val="FF0000"/><w:color w:val="auto"/>)", ""},
      // Properties outside the run properties are not formatting.
      {"</w:rPr><w:b/><w:rPr>", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.props);
    EXPECT_EQ(dumpBody(para(run("x", c.props))), std::string("[Body] ") + c.flags + "«x»\n");
  }
}

TEST_F(DocxRuns, ToggleValues) {
  // Exactly "0", "false" and "none" switch a property off; every other value,
  // and no value at all, switches it on.
  struct Case {
    const char* element;
    const char* flags;
  };
  const Case cases[] = {
      {R"(<w:b w:val="0"/>)", ""},
      {R"(<w:b w:val="false"/>)", ""},
      {R"(<w:b w:val="none"/>)", ""},
      {R"(<w:b w:val="off"/>)", "B"},
      {R"(<w:b w:val="1"/>)", "B"},
      {R"(<w:b w:val="true"/>)", "B"},
      {R"(<w:b w:val="FALSE"/>)", "B"},
      {R"(<w:b w:val=""/>)", "B"},
      {R"(<w:b w:val=" 0"/>)", "B"},
      {R"(<w:b w:themeColor="0"/>)", "B"},
      {R"(<w:b val="0"/>)", ""},
      {R"(<w:b w:val="1" val="0"/>)", "B"},
      {R"(<w:b val="1" w:val="0"/>)", ""},
      {R"(<w:u w:val="none"/>)", ""},
      {R"(<w:u w:val="double"/>)", "U"},
      {R"(<w:u w:val="0"/>)", ""},
      {R"(<w:i w:val="false"/>)", ""},
      {R"(<w:strike w:val="0"/>)", ""},
      {R"(<w:strike w:val="off"/>)", "S"},
      {R"(<w:smallCaps w:val="none"/>)", ""},
      {R"(<w:smallCaps w:val="on"/>)", "C"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.element);
    EXPECT_EQ(dumpBody(para(run("x", c.element))), std::string("[Body] ") + c.flags + "«x»\n");
  }
}

TEST_F(DocxRuns, ColourIsKeptExactlyAsWritten) {
  const auto result = import(para(run("a", R"(<w:color w:val="1f4E79"/>)") +
                                  run("b", R"(<w:color w:val=""/>)") + run("c")));
  const auto& runs = paragraphAt(result, 0).runs;
  ASSERT_EQ(runs.size(), 3u);
  EXPECT_EQ(runs[0].colorHex, "1f4E79");
  EXPECT_EQ(runs[1].colorHex, "");  // present but empty is not the default colour
  EXPECT_EQ(runs[2].colorHex, std::nullopt);
}

TEST_F(DocxRuns, EachRunStartsUnformatted) {
  EXPECT_EQ(dumpBody(para(run("a", R"(<w:b/><w:vertAlign w:val="superscript"/><w:color w:val="0000FF"/>)") +
                          run("b"))),
            "[Body] B^#0000FF«a» «b»\n");
}

TEST_F(DocxRuns, AdjacentRunsOfTheSameFormatAreJoined) {
  const auto result = import(para(run("Hello, ", "<w:b/>") + run("wor", R"(<w:b w:val="1"/>)") +
                                  run("ld", "<w:b/><w:rStyle w:val=\"Strong\"/>") + run("!") +
                                  run("?") + run(" again", "<w:b/>")));
  EXPECT_EQ(dump(result), "[Body] B«Hello, world» «!?» B« again»\n");
  ASSERT_EQ(paragraphAt(result, 0).runs.size(), 3u);
  EXPECT_EQ(paragraphAt(result, 0).runs[0], (TextRun{.text = "Hello, world", .bold = true}));
}

TEST_F(DocxRuns, ColoursJoinOnlyWhenExactlyEqual) {
  EXPECT_EQ(dumpBody(para(run("a", R"(<w:color w:val="FF0000"/>)") +
                          run("b", R"(<w:color w:val="FF0000"/>)") +
                          run("c", R"(<w:color w:val="ff0000"/>)") +
                          run("d", R"(<w:color w:val="auto"/>)") + run("e"))),
            "[Body] #FF0000«ab» #ff0000«c» «de»\n");
}

TEST_F(DocxRuns, TabAndBreakBecomeCharactersOfTheRun) {
  const auto result = import(
      para("<w:r><w:t>a</w:t><w:tab/><w:t>b</w:t><w:br/><w:t>c</w:t></w:r>" +
           std::string(R"(<w:r><w:rPr><w:i/></w:rPr><w:tab/></w:r><w:r><w:br w:type="page"/></w:r>)")));
  EXPECT_EQ(paragraphAt(result, 0).runs,
            (std::vector<TextRun>{TextRun{.text = "a\tb\u2028c"}, TextRun{.text = "\t", .italic = true},
                                  TextRun{.text = "\u2028"}}));
}

TEST_F(DocxRuns, TabStopsInParagraphPropertiesAreNotText) {
  EXPECT_EQ(dumpBody(R"(<w:p><w:pPr><w:tabs><w:tab w:val="left" w:pos="720"/></w:tabs></w:pPr>)" +
                     run("x") + "</w:p>"),
            "[Body] «x»\n");
}

// --- Character data ----------------------------------------------------------

TEST_F(DocxText, CharacterDataIsKeptExactly) {
  struct Case {
    const char* xml;
    const char* text;
  };
  const Case cases[] = {
      {"<w:t>  two  spaces  </w:t>", "  two  spaces  "},
      {"<w:t>line\none</w:t>", "line\none"},
      {"<w:t>a\tb</w:t>", "a\tb"},
      {"<w:t>&amp;&lt;&gt;&quot;&apos;</w:t>", "&<>\"'"},
      {"<w:t>caf&#233; &#x2014; &#x1F600;</w:t>", "caf\u00e9 \u2014 \U0001F600"},
      {"<w:t>Grüße “quoted”</w:t>", "Grüße “quoted”"},
      {"<w:t><![CDATA[a<b]]></w:t>", "a<b"},
      {"<w:t>a</w:t><w:t>b</w:t>", "ab"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml);
    const auto result = import(para("<w:r>" + std::string(c.xml) + "</w:r>"));
    ASSERT_EQ(result.blocks.size(), 1u);
    EXPECT_EQ(paragraphAt(result, 0).text(), c.text);
  }
}

TEST_F(DocxText, OnlyTextElementsOfRunsContribute) {
  const std::string body =
      "<w:p>\n  <w:pPr>\n    <w:pStyle w:val=\"Normal\"/>\n  </w:pPr>\n"
      "  <w:t>outside a run</w:t>\n"
      "  <w:r>\n    <w:instrText> PAGE </w:instrText>\n  </w:r>\n"
      "  <w:r>\n    <w:t>kept</w:t>\n  </w:r>\n"
      "  <w:del><w:r><w:delText>deleted</w:delText></w:r></w:del>\n"
      "  <w:ins><w:r><w:t xml:space=\"preserve\"> inserted</w:t></w:r></w:ins>\n"
      "  <w:hyperlink r:id=\"rId9\"><w:r><w:t xml:space=\"preserve\"> link</w:t></w:r></w:hyperlink>\n"
      "  <w:r><w:t/></w:r>\n"
      "</w:p>\n"
      "<w:sdt><w:sdtContent><w:p><w:r><w:t>in a content control</w:t></w:r></w:p></w:sdtContent></w:sdt>\n";
  EXPECT_EQ(dumpBody(body), "[Body] «kept inserted link»\n[Body] «in a content control»\n");
}

// --- Note references in the body -------------------------------------------------

TEST_F(DocxNoteReferences, ReferenceIsASeparateSuperscriptRun) {
  const auto result = import(para(run("a") + footnoteRef("1") + run("b")));
  EXPECT_EQ(dump(result), "[Body] «a» ^fn1«[1]» «b»\n");
  EXPECT_EQ(paragraphAt(result, 0).runs.at(1),
            (TextRun{.text = "[1]", .script = ScriptPosition::superscript, .footnoteID = 1}));
}

TEST_F(DocxNoteReferences, ReferenceIsNeverJoinedWithItsNeighbours) {
  // Neighbours already in superscript have the reference's format, and two
  // references in a row have the same format too; none of them is joined.
  EXPECT_EQ(dumpBody(para(run("x", R"(<w:vertAlign w:val="superscript"/>)") + footnoteRef("1") +
                          footnoteRef("2") + run("y", R"(<w:vertAlign w:val="superscript"/>)"))),
            "[Body] ^«x» ^fn1«[1]» ^fn2«[2]» ^«y»\n");
}

TEST_F(DocxNoteReferences, ReferenceDoesNotTakeTheOpenRunsFormat) {
  const auto result = import(para(
      R"(<w:r><w:rPr><w:b/><w:i/><w:color w:val="FF0000"/><w:vertAlign w:val="subscript"/></w:rPr>)"
      R"(<w:t>a</w:t><w:footnoteReference w:id="2"/><w:t>b</w:t></w:r>)"));
  EXPECT_EQ(dump(result), "[Body] BI_#FF0000«a» ^fn2«[2]» BI_#FF0000«b»\n");
  EXPECT_EQ(paragraphAt(result, 0).runs.at(1),
            (TextRun{.text = "[2]", .script = ScriptPosition::superscript, .footnoteID = 2}));
}

TEST_F(DocxNoteReferences, ReferenceIds) {
  // Runs "a" and "b" around the reference join when the reference has no effect.
  struct Case {
    std::string reference;
    const char* expected;
  };
  const Case cases[] = {
      {R"(<w:footnoteReference w:id="1"/>)", "«a» ^fn1«[1]» «b»"},
      {R"(<w:footnoteReference id="4"/>)", "«a» ^fn4«[4]» «b»"},
      {R"(<w:footnoteReference w:id="+5"/>)", "«a» ^fn5«[5]» «b»"},
      {R"(<w:footnoteReference w:id="-3"/>)", "«a» ^fn-3«[-3]» «b»"},
      {R"(<w:footnoteReference w:id="007"/>)", "«a» ^fn7«[7]» «b»"},
      {R"(<w:footnoteReference w:id="9223372036854775807"/>)",
       "«a» ^fn9223372036854775807«[9223372036854775807]» «b»"},
      {R"(<w:footnoteReference w:id="-9223372036854775808"/>)",
       "«a» ^fn-9223372036854775808«[-9223372036854775808]» «b»"},
      {R"(<w:endnoteReference w:id="1"/>)", "«a» ^fn10001«[10001]» «b»"},
      {R"(<w:endnoteReference w:id="+5"/>)", "«a» ^fn10005«[10005]» «b»"},
      {R"(<w:endnoteReference w:id="-3"/>)", "«a» ^fn9997«[9997]» «b»"},
      {"<w:footnoteReference/>", "«ab»"},
      {R"(<w:footnoteReference w:customMarkFollows="1"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id=""/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="abc"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="9223372036854775808"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="-9223372036854775809"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="99999999999999999999999"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="+"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="-"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="+-1"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id=" 1"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="1 "/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="1.0"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="0x1"/>)", "«ab»"},
      {R"(<w:footnoteReference w:id="١"/>)", "«ab»"},
      {R"(<w:endnoteReference w:id="abc"/>)", "«ab»"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reference);
    EXPECT_EQ(dumpBody(para(run("a") + "<w:r>" + c.reference + "</w:r>" + run("b"))),
              std::string("[Body] ") + c.expected + "\n");
  }
}

TEST_F(DocxNoteReferences, ReferenceOutsideARunHasNoEffect) {
  EXPECT_EQ(dumpBody(para(run("a") + R"(<w:footnoteReference w:id="1"/>)" + run("b"))),
            "[Body] «ab»\n");
}

// --- Footnotes and endnotes parts ------------------------------------------------

TEST_F(DocxNotes, NotesAreReadAfterSeparatorsWithWordsLeadingSpace) {
  const std::string footnotes = notesXml(
      R"(<w:footnote w:type="separator" w:id="-1"><w:p><w:r><w:separator/></w:r></w:p></w:footnote>)"
      R"(<w:footnote w:type="continuationSeparator" w:id="0"><w:p><w:r><w:continuationSeparator/></w:r></w:p></w:footnote>)" +
      note("1", wordNoteBody("First note.")));
  const auto result = import(para(run("Text") + footnoteRef("1")),
                             {{"word/footnotes.xml", footnotes}});
  EXPECT_EQ(dump(result), "[Body] «Text» ^fn1«[1]»\n[Footnote 1]  First note.\n");
  ASSERT_EQ(result.footnotes.size(), 1u);
  EXPECT_EQ(result.footnotes[0],
            (Footnote{.id = 1, .paragraphs = {Paragraph{.styleName = "Body",
                                                        .runs = {TextRun{.text = " First note."}}}}}));
}

TEST_F(DocxNotes, EndnotesFollowFootnotesOffsetBy10000) {
  const auto result = import(
      para(run("a") + "<w:r><w:endnoteReference w:id=\"1\"/></w:r>" + footnoteRef("2")),
      {{"word/endnotes.xml", notesXml(note("1", wordNoteBody("end"), "endnote"), "endnote")},
       {"word/footnotes.xml", notesXml(note("2", wordNoteBody("foot")))}});
  EXPECT_EQ(dump(result),
            "[Body] «a» ^fn10001«[10001]» ^fn2«[2]»\n"
            "[Footnote 2]  foot\n"
            "[Footnote 10001]  end\n");
}

TEST_F(DocxNotes, NotesKeepTheirOrderInThePart) {
  EXPECT_EQ(dumpBody("", {{"word/footnotes.xml",
                           notesXml(note("3", para(run("c"))) + note("1", para(run("a"))) +
                                    note("2", para(run("b"))))}}),
            "[Footnote 3] c\n[Footnote 1] a\n[Footnote 2] b\n");
}

TEST_F(DocxNotes, NoteIdsAndTypes) {
  struct Case {
    std::string element;  // the note's start tag
    const char* expected;
  };
  const Case cases[] = {
      {R"(<w:footnote w:id="1">)", "[Footnote 1] n\n"},
      {R"(<w:footnote id="6">)", "[Footnote 6] n\n"},
      {R"(<w:footnote w:id="+5">)", "[Footnote 5] n\n"},
      {R"(<w:footnote w:id="-3">)", "[Footnote -3] n\n"},
      {R"(<w:footnote w:id="0">)", "[Footnote 0] n\n"},
      {R"(<w:footnote w:type="normal" w:id="2">)", "[Footnote 2] n\n"},
      {R"(<w:footnote w:type="continuationNotice" w:id="2">)", "[Footnote 2] n\n"},
      {R"(<w:footnote w:type="separator" w:id="2">)", ""},
      {R"(<w:footnote w:type="continuationSeparator" w:id="2">)", ""},
      {R"(<w:footnote type="separator" w:id="2">)", ""},
      {"<w:footnote>", ""},
      {R"(<w:footnote w:id="">)", ""},
      {R"(<w:footnote w:id="abc">)", ""},
      {R"(<w:footnote w:id="2a">)", ""},
      {R"(<w:footnote w:id="+-2">)", ""},
      {R"(<w:footnote w:id="9223372036854775808">)", ""},
      {R"(<w:footnote w:id="-9223372036854775809">)", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.element);
    EXPECT_EQ(dumpBody("", {{"word/footnotes.xml",
                             notesXml(c.element + para(run("n")) + "</w:footnote>")}}),
              c.expected);
  }
}

TEST_F(DocxNotes, EndnoteIds) {
  struct Case {
    const char* id;
    const char* expected;
  };
  const Case cases[] = {
      {"1", "[Footnote 10001] n\n"},
      {"+5", "[Footnote 10005] n\n"},
      {"-3", "[Footnote 9997] n\n"},
      {"abc", ""},
      {"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_EQ(dumpBody("", {{"word/endnotes.xml",
                             notesXml(note(c.id, para(run("n")), "endnote"), "endnote")}}),
              c.expected);
  }
}

TEST_F(DocxNotes, NoteBodyKeepsParagraphsStylesAndFormatting) {
  const auto result = import(
      "", {{"word/footnotes.xml",
            notesXml(note("1", para(run("first", "<w:i/>") + run(" more", "<w:i/>"), "Quote") +
                                   para("") + para(run("third"))))}});
  ASSERT_EQ(result.footnotes.size(), 1u);
  EXPECT_EQ(result.footnotes[0],
            (Footnote{.id = 1,
                      .paragraphs = {Paragraph{.styleName = "Quote",
                                               .runs = {TextRun{.text = "first more", .italic = true}}},
                                     Paragraph{.styleName = "Body", .runs = {}},
                                     Paragraph{.styleName = "Body", .runs = {TextRun{.text = "third"}}}}}));
  EXPECT_EQ(dump(result), "[Footnote 1] first more\n\nthird\n");
}

TEST_F(DocxNotes, NoteWithoutParagraphsIsAnEmptyNote) {
  const auto result = import("", {{"word/footnotes.xml", notesXml(R"(<w:footnote w:id="4"/>)")}});
  ASSERT_EQ(result.footnotes.size(), 1u);
  EXPECT_EQ(result.footnotes[0], (Footnote{.id = 4, .paragraphs = {}}));
}

TEST_F(DocxNotes, TableInsideANoteIsLostButItsNeighboursStay) {
  EXPECT_EQ(dumpBody("", {{"word/footnotes.xml",
                           notesXml(note("1", para(run("before")) +
                                                  table(row(cell(para(run("cell"))))) +
                                                  para(run("after"))))}}),
            "[Footnote 1] before\nafter\n");
}

TEST_F(DocxNotes, NotesNeverCarryPictures) {
  // Even when the document's relationships resolve the picture.
  const auto result = import(
      "", {{"word/footnotes.xml", notesXml(note("1", para(picture("rId1"))))},
           {std::string(kRels), relsXml({{"rId1", "media/image1.png"}})},
           {"word/media/image1.png", kPng}});
  EXPECT_TRUE(result.blocks.empty());
  ASSERT_EQ(result.footnotes.size(), 1u);
  EXPECT_EQ(result.footnotes[0], (Footnote{.id = 1, .paragraphs = {Paragraph{.styleName = "Body"}}}));
}

TEST_F(DocxNotes, BrokenNotesPartsAreReadAsFarAsWellFormed) {
  struct Case {
    const char* name;
    std::string footnotes;
    const char* expected;
  };
  const std::string good = note("1", para(run("kept")));
  const Case cases[] = {
      {"truncated",
       notesXml(good).substr(0, notesXml(good).size() - std::string_view("</w:footnotes>").size()) +
           R"(<w:footnote w:id="2"><w:p>)" + run("lost"),
       "[Footnote 1] kept\n"},
      {"mismatched end tag", notesXml(good + R"(<w:footnote w:id="2"><w:p></w:x>)"),
       "[Footnote 1] kept\n"},
      {"not XML", "garbage", ""},
      {"empty", "", ""},
      {"document type declared",
       R"(<?xml version="1.0"?><!DOCTYPE w:footnotes [<!ENTITY e "entity">]>)" +
           notesXml(note("1", para(run("&e;")))),
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(dumpBody(para(run("body")), {{"word/footnotes.xml", c.footnotes}}),
              std::string("[Body] «body»\n") + c.expected);
  }
}

// --- Tables ----------------------------------------------------------------------

TEST_F(DocxTables, RowsAndCells) {
  EXPECT_EQ(dumpBody(para(run("before")) +
                     table(row(cell(para(run("a"))) + cell(para(run("b")))) +
                           row(cell(para(run("c"))) + cell(para(run("d"))))) +
                     para(run("after"))),
            "[Body] «before»\n"
            "[Table 2×2]\n"
            "  | a | b |\n"
            "  | c | d |\n"
            "[Body] «after»\n");
}

TEST_F(DocxTables, RaggedRowsAndEmptyTables) {
  EXPECT_EQ(dumpBody(table(row(cell(para(run("a"))) + cell(para(run("b")))) +
                           row(cell(para(run("c"))) + cell(para(run("d"))) + cell(para(run("e")))))),
            "[Table 2×3]\n  | a | b |\n  | c | d | e |\n");
  EXPECT_EQ(dumpBody(table("")), "[Table 0×0]\n");
}

TEST_F(DocxTables, CellParagraphsKeepStylesAndRuns) {
  const auto result = import(
      table(row(cell(para(run("x", "<w:b/>") + run("y", "<w:b/>"), "Heading1") + para(run("z"))))));
  ASSERT_EQ(result.blocks.size(), 1u);
  const auto& t = std::get<Table>(result.blocks[0].kind);
  EXPECT_EQ(t.rows, (std::vector<std::vector<TableCell>>{{TableCell{.paragraphs = {
                        Paragraph{.styleName = "Heading 1", .runs = {TextRun{.text = "xy", .bold = true}}},
                        Paragraph{.styleName = "Body", .runs = {TextRun{.text = "z"}}}}}}}));
  EXPECT_EQ(dump(result), "[Table 1×1]\n  | xy\nz |\n");
}

TEST_F(DocxTables, EmptyCellHoldsOneEmptyBodyParagraph) {
  const auto result = import(table(row(cell("<w:tcPr/>") + cell(para(run("b"))))));
  const auto& t = std::get<Table>(result.blocks.at(0).kind);
  ASSERT_EQ(t.rows.size(), 1u);
  ASSERT_EQ(t.rows[0].size(), 2u);
  EXPECT_EQ(t.rows[0][0].paragraphs, (std::vector<Paragraph>{Paragraph{.styleName = "Body"}}));
  EXPECT_EQ(dump(result), "[Table 1×2]\n  |  | b |\n");
}

TEST_F(DocxTables, NestedTableIsFlattenedIntoItsCell) {
  const std::string nested = table(row(cell(para(run("n1"))) + cell("")) +
                                   row(cell(para(run("n2")) + para(run("n3")))));
  const auto result = import(table(
      row(cell(para(run("before")) + nested + para(run("after"))) + cell(para(run("right")))) +
      row(cell(nested + "<w:p/>"))));
  EXPECT_EQ(dump(result),
            "[Table 2×2]\n"
            "  | before\nn1\n\nn2\nn3\nafter | right |\n"
            "  | n1\n\nn2\nn3\n |\n");
  ASSERT_EQ(result.blocks.size(), 1u);
}

TEST_F(DocxTables, PicturesInCellsAreDropped) {
  const Members members{{std::string(kRels), relsXml({{"rId1", "media/image1.png"}})},
                        {"word/media/image1.png", kPng}};
  EXPECT_EQ(dumpBody(table(row(cell(para(run("x") + picture("rId1"))) + cell(para(picture("rId1"))))) +
                         para(run("after")),
                     members),
            "[Table 1×2]\n  | x |  |\n[Body] «after»\n");
}

// --- Pictures ----------------------------------------------------------------------

TEST_F(DocxPictures, PictureAloneYieldsOnlyTheImageBlock) {
  const auto result = import(para(picture("rId1")),
                             {{std::string(kRels), relsXml({{"rId1", "media/image1.png"}})},
                              {"word/media/image1.png", kPng}});
  EXPECT_EQ(dump(result), "[Image image1.png, 11 bytes]\n");
  EXPECT_EQ(std::get<ImageBlock>(result.blocks.at(0).kind),
            (ImageBlock{.data = bytesOf(kPng), .name = "image1.png"}));
}

TEST_F(DocxPictures, PictureWithTextYieldsTheParagraphThenItsImagesInOrder) {
  const Members members{{std::string(kRels), relsXml({{"rId1", "media/a.png"}, {"rId2", "media/b.jpeg"}})},
                        {"word/media/a.png", kPng},
                        {"word/media/b.jpeg", "JPEG"}};
  EXPECT_EQ(dumpBody(para(picture("rId2") + run("Caption") + picture("rId1") + picture("rId2")) +
                         para(run("next")),
                     members),
            "[Body] «Caption»\n"
            "[Image b.jpeg, 4 bytes]\n"
            "[Image a.png, 11 bytes]\n"
            "[Image b.jpeg, 4 bytes]\n"
            "[Body] «next»\n");
}

TEST_F(DocxPictures, RelationshipTargets) {
  // A leading "/" is from the package root; anything else is under "word/".
  // Decoys of other sizes sit where a wrong resolution would look.
  struct Case {
    const char* target;
    const char* expected;
  };
  const Members media{{"word/media/rel.png", "12345"},
                      {"media/rel.png", "1"},
                      {"media/root.png", "123"},
                      {"word/media/root.png", "1"},
                      {"word/media/deep/dir/pic.gif", "1234567"},
                      {"word/media/abs.png", "12"}};
  const Case cases[] = {
      {"media/rel.png", "[Image rel.png, 5 bytes]\n"},
      {"/media/root.png", "[Image root.png, 3 bytes]\n"},
      {"/word/media/abs.png", "[Image abs.png, 2 bytes]\n"},
      {"media/deep/dir/pic.gif", "[Image pic.gif, 7 bytes]\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    Members members = media;
    members.emplace(kRels, relsXml({{"rId7", c.target}}));
    EXPECT_EQ(dumpBody(para(picture("rId7")), members), c.expected);
  }
}

TEST_F(DocxPictures, UnresolvablePicturesAreSkipped) {
  // With the picture gone, a picture-only paragraph is an empty paragraph.
  struct Case {
    const char* name;
    Members members;
    std::string picture;
  };
  const std::string rels = relsXml({{"rId1", "media/image1.png"}});
  const Case cases[] = {
      {"no relationships part", {{"word/media/image1.png", kPng}}, picture("rId1")},
      {"unknown relationship id", {{std::string(kRels), rels}, {"word/media/image1.png", kPng}},
       picture("rId2")},
      {"missing member", {{std::string(kRels), rels}}, picture("rId1")},
      {"relationship attributes in other spelling",
       {{std::string(kRels),
         R"(<Relationships><Relationship id="rId1" target="media/image1.png"/></Relationships>)"},
        {"word/media/image1.png", kPng}},
       picture("rId1")},
      {"linked, not embedded", {{std::string(kRels), rels}, {"word/media/image1.png", kPng}},
       R"(<w:r><w:drawing><a:blip r:link="rId1"/></w:drawing></w:r>)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(dumpBody(para(c.picture) + para(run("x") + c.picture), c.members),
              "[Body] \n[Body] «x»\n");
  }
}

TEST_F(DocxPictures, UnprefixedEmbedAndBrokenRelationshipsPart) {
  const std::string truncatedRels =
      R"(<Relationships><Relationship Id="rId1" Target="media/image1.png"/><Relationship Id=)";
  EXPECT_EQ(dumpBody(para(R"(<w:r><w:drawing><a:blip embed="rId1"/></w:drawing></w:r>)"),
                     {{std::string(kRels), truncatedRels}, {"word/media/image1.png", kPng}}),
            "[Image image1.png, 11 bytes]\n");
}

// --- Text boxes ---------------------------------------------------------------------

TEST_F(DocxTextBoxes, ParagraphInsideAParagraphRestartsAndItsRunsAreEmittedAgain) {
  // The enclosing paragraph's own runs before the text box are lost, the runs
  // after it are ignored, and its end emits the text box's last paragraph
  // again, in that paragraph's style.
  const std::string textBox =
      "<w:r><w:pict><w:txbxContent>" + para(run("inside"), "Quote") +
      "</w:txbxContent></w:pict><w:t>same run</w:t></w:r>";
  EXPECT_EQ(dumpBody(para(run("outer start") + textBox + run("outer end"), "Heading1") +
                     para(run("next"))),
            "[Quote] «inside»\n[Quote] «inside»\n[Body] «next»\n");
}

TEST_F(DocxTextBoxes, OnlyTheLastInnerParagraphIsRepeated) {
  const std::string textBox = "<w:r><w:pict><w:txbxContent>" + para(run("A")) +
                              para(run("B", "<w:b/>")) + "</w:txbxContent></w:pict></w:r>";
  EXPECT_EQ(dumpBody(para(textBox)), "[Body] «A»\n[Body] B«B»\n[Body] B«B»\n");
}

// --- Element and attribute names ------------------------------------------------------

TEST_F(DocxXmlNames, OnlyTheLocalNameOfAnElementCounts) {
  const std::string unprefixed =
      R"(<document xmlns="http://schemas.openxmlformats.org/wordprocessingml/2006/main"><body>)"
      R"(<p><pPr><pStyle val="Heading1"/></pPr><r><rPr><b/><i val="0"/></rPr><t>x</t><tab/></r>)"
      R"(<r><footnoteReference id="1"/></r></p>)"
      R"(<tbl><tr><tc><p><r><t>c</t></r></p></tc></tr></tbl></body></document>)";
  const std::string otherPrefix =
      R"(<x:document xmlns:x="http://schemas.openxmlformats.org/wordprocessingml/2006/main"><x:body>)"
      R"(<x:p><x:pPr><x:pStyle val="Heading1"/></x:pPr><x:r><x:rPr><x:b/><x:i w:val="0"/></x:rPr>)"
      R"(<x:t>x</x:t><x:tab/></x:r><x:r><x:footnoteReference w:id="1"/></x:r></x:p>)"
      R"(<x:tbl><x:tr><x:tc><x:p><x:r><x:t>c</x:t></x:r></x:p></x:tc></x:tr></x:tbl></x:body></x:document>)";
  const char* expected = "[Heading 1] B«x\t» ^fn1«[1]»\n[Table 1×1]\n  | c |\n";
  EXPECT_EQ(dump(readPackage({{"word/document.xml", unprefixed}})), expected);
  EXPECT_EQ(dump(readPackage({{"word/document.xml", otherPrefix}})), expected);
}

TEST_F(DocxXmlNames, AttributesAreReadWithTheWordPrefixOrWithout) {
  // Any other prefix is a different attribute name: "x:val" is no value at all.
  struct Case {
    const char* props;
    const char* flags;
  };
  const Case cases[] = {
      {R"(<w:b w:val="0"/>)", ""},
      {R"(<w:b val="0"/>)", ""},
      {R"(<w:b x:val="0"/>)", "B"},
      {R"(<w:vertAlign val="superscript"/>)", "^"},
      {R"(<w:vertAlign x:val="superscript"/>)", ""},
      {R"(<w:color val="00FF00"/>)", "#00FF00"},
      {R"(<w:color w:val="00FF00" val="0000FF"/>)", "#00FF00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.props);
    EXPECT_EQ(dumpBody(para(run("x", c.props))), std::string("[Body] ") + c.flags + "«x»\n");
  }
}

// --- Identity -------------------------------------------------------------------------

TEST_F(DocxParagraphs, EveryImportMakesFreshBlockIds) {
  const auto body = para(run("a")) + table(row(cell(para(run("b"))))) + para(run("a"));
  const auto first = import(body);
  const auto second = import(body);
  EXPECT_EQ(dump(first), dump(second));
  std::set<std::string> ids;
  for (const auto* result : {&first, &second}) {
    for (const auto& block : result->blocks) ids.insert(block.id.string());
  }
  EXPECT_EQ(ids.size(), 6u);
}

// --- Failures -------------------------------------------------------------------------

TEST_F(DocxFailures, NoPackageOrNoDocumentPartIsAMissingEntry) {
  writeFile(dir_ / "text.docx", "This is plain text, not a ZIP archive.\n");
  writeFile(dir_ / "empty.docx", "");
  writePackage(dir_ / "nodocument.docx", {{"word/styles.xml", stylesXml({})}});
  for (const char* name : {"text.docx", "empty.docx", "nodocument.docx", "absent.docx"}) {
    SCOPED_TRACE(name);
    try {
      DocxReader::read(dir_ / name, {});
      ADD_FAILURE() << "no error";
    } catch (const DocxError& error) {
      EXPECT_EQ(error.kind(), DocxError::Kind::missingEntry);
      EXPECT_STREQ(error.what(), "Archive is missing word/document.xml \u2014 not a valid file.");
    }
  }
}

TEST_F(DocxFailures, DocumentPartThatIsNotWellFormedIsAParseFailure) {
  // The parts below are well-formed apart from the one fault each names.
  const std::string document = documentXml(para(run("a")));
  ASSERT_EQ(dump(readPackage({{"word/document.xml", document}})), "[Body] «a»\n");
  struct Case {
    const char* name;
    std::string document;
  };
  const Case cases[] = {
      {"truncated", document.substr(0, document.size() - 7)},
      {"unclosed paragraph", documentXml("<w:p>" + run("a"))},
      {"mismatched end tag", documentXml("<w:p><w:r><w:t>a</w:t></w:r></w:x>")},
      {"undeclared entity", documentXml(para(run("&e;")))},
      {"empty part", ""},
      {"not XML", "plain text"},
      {"document type with an entity",
       R"(<?xml version="1.0"?><!DOCTYPE w:document [<!ENTITY e "entity">]>)" +
           withoutDeclaration(documentXml(para(run("&e;"))))},
      {"document type without a subset",
       R"(<?xml version="1.0"?><!DOCTYPE w:document>)" + withoutDeclaration(document)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      readPackage({{"word/document.xml", c.document}});
      ADD_FAILURE() << "no error";
    } catch (const DocxError& error) {
      EXPECT_EQ(error.kind(), DocxError::Kind::parseFailed);
      EXPECT_STREQ(error.what(), "Could not parse the document (word/document.xml).");
    }
  }
}

TEST_F(DocxFailures, OptionalPartsThatAreBrokenAreNoErrors) {
  const Members members{{"word/document.xml", documentXml(para(run("a"), "Heading1"))},
                        {"word/styles.xml", "<w:styles><"},
                        {std::string(kRels), "<<<"},
                        {"word/footnotes.xml", "<w:footnotes"},
                        {"word/endnotes.xml", ""}};
  EXPECT_EQ(dump(readPackage(members)), "[Heading 1] «a»\n");
}

// --- Dispatch on the extension -------------------------------------------------------

TEST_F(DocxDispatch, ExtensionDecidesHowTheFileIsRead) {
  const Members word{{"word/document.xml", documentXml(para(run("word")))}};
  EXPECT_EQ(dump(readPackage(word, {}, "UPPER.DOCX")), "[Body] «word»\n");
  EXPECT_EQ(dump(readPackage(word, {}, "Mixed.DocX")), "[Body] «word»\n");

  writeFile(dir_ / "old.doc", "first\nsecond");
  writeFile(dir_ / "rich.rtf", "{\\rtf1 hi}\n");
  writeFile(dir_ / "README", "no extension");
  writeFile(dir_ / "words.docx.txt", "text");
  EXPECT_EQ(dump(DocxReader::read(dir_ / "old.doc", {})), "[Body] «first»\n[Body] «second»\n");
  EXPECT_EQ(dump(DocxReader::read(dir_ / "rich.rtf", {})), "[Body] «{\\rtf1 hi}»\n[Body] \n");
  EXPECT_EQ(dump(DocxReader::read(dir_ / "README", {})), "[Body] «no extension»\n");
  EXPECT_EQ(dump(DocxReader::read(dir_ / "words.docx.txt", {})), "[Body] «text»\n");
}

TEST_F(DocxDispatch, WorkbookIsOneTableBlock) {
  const auto result =
      testing::importXlsx(dir_, R"(<row r="1"><c r="A1" t="s"><v>0</v></c></row>)", {"a"});
  ASSERT_EQ(result.blocks.size(), 1u);
  EXPECT_TRUE(std::holds_alternative<Table>(result.blocks[0].kind));
  EXPECT_TRUE(result.footnotes.empty());
}

TEST(DocxLinkKind, ByLowerCasedExtension) {
  const std::pair<const char*, LinkKind> cases[] = {
      {"/a/story.docx", LinkKind::word},  {"/a/STORY.DOCX", LinkKind::word},
      {"/a/b.xlsx", LinkKind::excel},     {"/a/B.XlSx", LinkKind::excel},
      {"/a/old.doc", LinkKind::text},     {"/a/notes.txt", LinkKind::text},
      {"/a/README", LinkKind::text},      {"/a/x.docx.txt", LinkKind::text},
      {"/a/x.txt.docx", LinkKind::word},  {"/a/rich.rtf", LinkKind::text},
  };
  for (const auto& [path, kind] : cases) {
    EXPECT_EQ(DocxReader::linkKind(path), kind) << path;
  }
}

}  // namespace
}  // namespace inkharbour
