// The DOCX reader: what a Word package's body, styles, relationships,
// pictures and notes become. Assertions compare the dump text, and the model
// where the dump cannot show a difference.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::documentXml;
using testing::dump;
using testing::Members;
using testing::notesXml;
using testing::stylesXml;
using testing::throwsDocxError;
using Kind = DocxError::Kind;

std::string run(const std::string& text, const std::string& props = "") {
  const std::string rPr = props.empty() ? "" : "<w:rPr>" + props + "</w:rPr>";
  return "<w:r>" + rPr + R"(<w:t xml:space="preserve">)" + text + "</w:t></w:r>";
}

std::string para(const std::string& content, const std::string& styleID = "") {
  if (styleID.empty()) return "<w:p>" + content + "</w:p>";
  return R"(<w:p><w:pPr><w:pStyle w:val=")" + styleID + R"("/></w:pPr>)" + content + "</w:p>";
}

std::string picture(const std::string& relationshipID) {
  return R"(<w:r><w:drawing><a:graphic><a:graphicData><a:blip r:embed=")" + relationshipID +
         R"("/></a:graphicData></a:graphic></w:drawing></w:r>)";
}

const auto cell = [](const std::string& content) { return "<w:tc>" + content + "</w:tc>"; };
const auto row = [](const std::string& cells) { return "<w:tr>" + cells + "</w:tr>"; };
const auto table = [](const std::string& rows) { return "<w:tbl>" + rows + "</w:tbl>"; };

std::string note(const std::string& id, const std::string& body) {
  return R"(<w:footnote w:id=")" + id + R"(">)" + body + "</w:footnote>";
}

std::string relsXml(const std::map<std::string, std::string>& idToTarget) {
  std::string xml = "<Relationships>";
  for (const auto& [id, target] : idToTarget) {
    xml += R"(<Relationship Id=")" + id + R"(" Target=")" + target + R"("/>)";
  }
  return xml + "</Relationships>";
}

const std::string kDocument = "word/document.xml";
const std::string kRels = "word/_rels/document.xml.rels";
// Picture bytes with a NUL and high bytes, so that nothing treats them as text.
const std::string kPng("\x89PNG\r\n\x1a\n\0\x01\x02", 11);
// The members that make picture("rId1") resolve to kPng.
const Members kImage1{{kRels, relsXml({{"rId1", "media/image1.png"}})},
                      {"word/media/image1.png", kPng}};

const auto body = [](std::string text) { return Paragraph::make("Body", std::move(text)); };

ImportResult readPackage(const Members& members, const StyleMap& styleMap = {},
                         const ImportLimits& limits = {}) {
  const testing::TempDir dir;
  testing::writePackage(dir / "p.docx", members);
  return DocxReader::read(dir / "p.docx", styleMap, limits);
}

ImportResult import(const std::string& body, Members extra = {}) {
  extra.emplace(kDocument, documentXml(body));
  return readPackage(extra);
}

std::string dumpBody(const std::string& body, Members extra = {}) {
  return dump(import(body, std::move(extra)));
}

TEST(DocxParagraphs, StylesAndTextBoxes) {
  // The enclosing paragraph's runs are lost in a text box; its end emits the
  // text box's last paragraph again, in that paragraph's style.
  const auto box = [](const std::string& content) {
    return "<w:r><w:pict><w:txbxContent>" + content + "</w:txbxContent></w:pict><w:t>x</w:t></w:r>";
  };
  const std::string subStyles = stylesXml({{"Sub", "Subtitle"}, {"Sub2", "Subtitle 2"}});
  const std::string subBody = para(run("named"), "Sub") + para(run("byId"), "Sub2") +
                              para(run("unstyled")) + para(run("normal"), "Normal");
  // "Sub2" is an id, not a name; an unstyled paragraph is "Body" whatever the map says.
  const StyleMap custom{
      {"Subtitle", "Heading 2"}, {"Sub2", "Quote"}, {"Normal", "Quote"}, {"", "Title"},
      {"Body", "Title"},
  };
  const struct {
    const char* name;
    std::string styles;  // empty: no styles part
    std::string body;
    const char* expected;
    StyleMap styleMap = {};
  } cases[] = {
      {"ids map by their names; a style ends with its paragraph",
       stylesXml({{"Berschrift1", "heading 1"}, {"Zitat", "Intense Quote"}, {"Sub", "Subtitle"}}),
       para(run("a"), "Berschrift1") + para(run("b"), "Zitat") + para(run("c"), "Sub") +
           para(run("d")),
       "[Heading 1] «a»\n[Quote] «b»\n[Title] «c»\n[Body] «d»\n"},
      {"unknown id is mapped as a name", stylesXml({{"Other", "Heading 1"}}),
       para(run("a"), "Heading2") + para(run("b"), "Normal"), "[Heading 2] «a»\n[Body] «b»\n"},
      {"no styles part; a style without value or outside pPr is none", "",
       para(run("a"), "Title") + "<w:p><w:pPr><w:pStyle/></w:pPr>" + run("b") +
           R"(</w:p><w:p><w:pStyle w:val="Title"/>)" + run("c") + "</w:p>",
       "[Title] «a»\n[Body] «b»\n[Body] «c»\n"},
      {"malformed part read as far as well-formed",
       R"(<w:styles><w:style w:styleId="S"><w:name w:val="Title"/></w:style><w:style w:styleId=)",
       para(run("x"), "S"), "[Title] «x»\n"},
      {"custom style map", subStyles, subBody,
       "[Heading 2] «named»\n[Title] «byId»\n[Body] «unstyled»\n[Quote] «normal»\n", custom},
      {"built-in style map", subStyles, subBody,
       "[Title] «named»\n[Title] «byId»\n[Body] «unstyled»\n[Body] «normal»\n"},
      {"text box inside a styled paragraph", "",
       para(run("outer") + box(para(run("in"), "Quote")) + run("end"), "Heading1") +
           para(run("next")),
       "[Quote] «in»\n[Quote] «in»\n[Body] «next»\n"},
      {"text box of two paragraphs", "", para(box(para(run("A")) + para(run("B"), "Title"))),
       "[Body] «A»\n[Title] «B»\n[Title] «B»\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Members members{{kDocument, documentXml(c.body)}};
    if (!c.styles.empty()) members.emplace("word/styles.xml", c.styles);
    EXPECT_EQ(dump(readPackage(members, c.styleMap)), c.expected);
  }
}

TEST(DocxRuns, FormattingFlags) {
  const std::pair<const char*, const char*> cases[] = {
      {R"(<w:b/><w:i/><w:u/><w:strike/><w:smallCaps/><w:vertAlign w:val="subscript"/>)"
       R"(<w:color w:val="00FF00"/>)",
       "BIUSC_#00FF00"},
      // Exactly "0", "false" and "none" switch a toggle off; any other value switches it on.
      {R"(<w:b w:val="0"/>)", ""},
      {R"(<w:i w:val="false"/>)", ""},
      {R"(<w:u w:val="none"/>)", ""},
      {R"(<w:strike w:val="off"/>)", "S"},
      {R"(<w:u w:val="double"/>)", "U"},
      // The later property wins; attributes count with the "w:" prefix or none, "w:" first.
      {R"(<w:color w:val="FF0000"/><w:color w:val="auto"/><w:b/><w:b w:val="0"/>)", ""},
      {R"(<w:b x:val="0"/>)", "B"},
      {R"(<w:b val="1" w:val="0"/>)", ""},
      {"</w:rPr><w:b/><w:rPr>", ""},  // outside the run properties
  };
  for (const auto& [props, flags] : cases) {
    SCOPED_TRACE(props);
    EXPECT_EQ(dumpBody(para(run("x", props))), std::string("[Body] ") + flags + "«x»\n");
  }
}

TEST(DocxRuns, AdjacentRunsOfExactlyTheSameFormatAreJoined) {
  const auto color = [](std::string value) { return R"(<w:color w:val=")" + value + R"("/>)"; };
  EXPECT_EQ(dumpBody(para(run("Hello, ", "<w:b/>") + run("wor", R"(<w:b w:val="1"/>)") +
                          run("ld", R"(<w:b/><w:rStyle w:val="Strong"/>)") + run("!") + run("?") +
                          run("a", color("FF0000")) + run("b", color("FF0000")) +
                          run("c", color("ff0000")) + run("d", color("auto")) + run("e") +
                          run("empty", color("")))),
            "[Body] B«Hello, world» «!?» #FF0000«ab» #ff0000«c» «de» #«empty»\n");
}

TEST(DocxRuns, OnlyTextTabsAndBreaksOfRunsCountUnderAnyPrefix) {
  EXPECT_EQ(dumpBody(R"(<w:p><w:pPr><w:tabs><w:tab w:val="left" w:pos="720"/></w:tabs></w:pPr>)"
                     "<w:t>outside a run</w:t><w:r><w:instrText> PAGE </w:instrText></w:r>"
                     "<w:r><w:t>  kept </w:t><w:tab/><w:t>&amp;</w:t><w:br/></w:r>"
                     "<w:del><w:r><w:delText>deleted</w:delText></w:r></w:del>"
                     "<w:ins><w:r><w:t> inserted</w:t></w:r></w:ins>"
                     R"(<w:hyperlink r:id="rId9"><w:r><w:t> link</w:t></w:r></w:hyperlink></w:p>)"
                     "<w:sdt><w:sdtContent>" +
                     para(run("in a content control")) + "</w:sdtContent></w:sdt>"),
            "[Body] «  kept \t&\u2028 inserted link»\n[Body] «in a content control»\n");
  // Element names count after the last colon, attributes by qualified name:
  // "x:val" is neither "w:val" nor "val", so that underline stays on.
  EXPECT_EQ(dumpBody(R"(<x:p><x:r><x:rPr><x:b/><x:i val="0"/><x:u x:val="0"/></x:rPr>)"
                     "<x:t>a</x:t></x:r></x:p>"),
            "[Body] BU«a»\n");
  EXPECT_EQ(dumpBody(R"(<p><r><rPr><b/><i val="0"/><u/></rPr><t>a</t></r></p>)"), "[Body] BU«a»\n");
}

TEST(DocxNotes, ReferenceIsItsOwnSuperscriptRun) {
  // Superscript neighbours and a second reference share its format, yet none
  // is joined; nor does it take the open run's format. Outside a run it is nothing.
  const std::string sup = R"(<w:vertAlign w:val="superscript"/>)";
  EXPECT_EQ(
      dumpBody(para(run("x", sup) +
                    R"(<w:r><w:footnoteReference w:id="1"/><w:footnoteReference w:id="2"/></w:r>)" +
                    run("y", sup)) +
               para(R"(<w:r><w:rPr><w:b/><w:color w:val="FF0000"/><w:vertAlign w:val="subscript"/>)"
                    R"(</w:rPr><w:t>a</w:t><w:footnoteReference w:id="3"/><w:t>b</w:t></w:r>)") +
               para(run("c") + R"(<w:footnoteReference w:id="4"/>)" + run("d"))),
      "[Body] ^«x» ^fn1«[1]» ^fn2«[2]» ^«y»\n"
      "[Body] B_#FF0000«a» ^fn3«[3]» B_#FF0000«b»\n"
      "[Body] «cd»\n");
}

TEST(DocxNotes, IdsOfReferencesAndNotes) {
  // One optional sign, then digits; endnotes are offset by 10000. Empty: no number.
  const std::string max = "9223372036854775807", over = "9223372036854775808";
  const struct {
    std::string id, footnote, endnote;
  } cases[] = {
      {"1", "1", "10001"}, {"+5", "5", "10005"}, {"-3", "-3", "9997"},
      {max, max, ""},      {over, "", ""},       {"", "", ""},
      {"abc", "", ""},     {"+-1", "", ""},      {" 1", "", ""},
  };
  for (const auto& c : cases) {
    for (const std::string kind : {"footnote", "endnote"}) {
      SCOPED_TRACE(kind + " \"" + c.id + "\"");
      const std::string n = kind == "footnote" ? c.footnote : c.endnote;
      const std::string id = " w:id=\"" + c.id + "\"";
      const std::string reference = "<w:r><w:" + kind + "Reference" + id + "/></w:r>";
      const std::string notes = "<w:" + kind + id + ">" + para(run("n")) + "</w:" + kind + ">";
      const std::string expected =
          n.empty() ? "«ab»" : "«a» ^fn" + n + "«[" + n + "]» «b»\n[Footnote " + n + "] n";
      EXPECT_EQ(dumpBody(para(run("a") + reference + run("b")),
                         {{"word/" + kind + "s.xml", notesXml(notes, kind)}}),
                "[Body] " + expected + "\n");
    }
  }
}

TEST(DocxNotes, NotesSkipSeparatorsKeepPartOrderAndHoldParagraphsOnly) {
  const auto typed = [](const char* attributes, const char* text) {
    return std::string("<w:footnote ") + attributes + ">" + para(run(text)) + "</w:footnote>";
  };
  const std::string footnotes =
      typed(R"(w:type="separator" w:id="-1")", "-") +
      typed(R"(w:type="continuationSeparator" w:id="0")", "-") +
      typed(R"(type="separator" w:id="7")", "-") + typed("", "no id") +
      typed(R"(w:type="continuationNotice" w:id="2")", "notice") + R"(<w:footnote w:id="4"/>)" +
      // As Word writes a note: the marker run, then the text after a space.
      note("1", R"(<w:p><w:pPr><w:pStyle w:val="Quote"/></w:pPr><w:r><w:rPr><w:rStyle )"
                R"(w:val="FootnoteReference"/></w:rPr><w:footnoteRef/></w:r>)" +
                    run(" first", "<w:i/>") + run(" more", "<w:i/>") + "</w:p>" + para("") +
                    para(run("third"))) +
      note("5", para(run("before")) + table(row(cell(para(run("cell"))))) + para(run("after"))) +
      note("6", para(picture("rId1")));
  Members members = kImage1;
  members.emplace("word/footnotes.xml", notesXml(footnotes));
  members.emplace("word/endnotes.xml", notesXml(R"(<w:endnote w:id="1"/>)", "endnote"));
  const auto result = import("", members);
  EXPECT_TRUE(result.blocks.empty());
  const Paragraph quote{.styleName = "Quote", .runs = {{.text = " first more", .italic = true}}};
  EXPECT_EQ(result.footnotes,
            (std::vector<Footnote>{{.id = 2, .paragraphs = {body("notice")}},
                                   {.id = 4, .paragraphs = {}},
                                   {.id = 1, .paragraphs = {quote, body(""), body("third")}},
                                   {.id = 5, .paragraphs = {body("before"), body("after")}},
                                   {.id = 6, .paragraphs = {body("")}},
                                   {.id = 10001, .paragraphs = {}}}));
}

TEST(DocxTables, RaggedRowsEmptyParagraphsAndNestedTablesEachBlockWithAFreshId) {
  // A nested table is flattened into its cell.
  const std::string nested =
      table(row(cell(para(run("n1"))) + cell("")) + row(cell(para(run("n2")) + para(run("n3")))));
  const std::string doc = "<w:p/>" + para(run("")) +
                          table(row(cell(para(run("a"))) + cell(para(run("b")))) +
                                row(cell(para(run("c"))) + cell("") + cell(para(run("e"))))) +
                          table("") + para(run("after")) +
                          table(row(cell(para(run("before")) + nested + para(run("after"))) +
                                    cell(para(run("right")))) +
                                row(cell(nested + "<w:p/>")));
  const auto first = import(doc);
  EXPECT_EQ(dump(first),  // empty paragraphs are kept, without runs
            "[Body] \n[Body] \n[Table 2×3]\n  | a | b |\n  | c |  | e |\n[Table 0×0]\n"
            "[Body] «after»\n"
            "[Table 2×2]\n  | before\nn1\n\nn2\nn3\nafter | right |\n  | n1\n\nn2\nn3\n |\n");
  std::set<Uuid> ids;
  for (const auto& result : {first, import(doc)}) {
    for (const auto& block : result.blocks) ids.insert(block.id);
  }
  EXPECT_EQ(ids.size(), 12u);
}

TEST(DocxTables, CellsKeepStyledParagraphsButNoPictures) {
  const auto result = import(
      table(row(cell(para(run("x", "<w:b/>") + run("y", "<w:b/>"), "Heading1") + para(run("z"))) +
                cell("<w:tcPr/>") +
                cell(para(run("p") + picture("rId1")) + para(picture("rId1"))))) +
          para(run("after")),
      kImage1);
  ASSERT_EQ(result.blocks.size(), 2u);
  const Paragraph heading{.styleName = "Heading 1", .runs = {{.text = "xy", .bold = true}}};
  EXPECT_EQ(std::get<Table>(result.blocks[0].kind).rows,
            (std::vector<std::vector<TableCell>>{{{.paragraphs = {heading, body("z")}},
                                                  {.paragraphs = {body("")}},
                                                  {.paragraphs = {body("p"), body("")}}}}));
}

TEST(DocxPictures, PictureOnlyParagraphIsTheImageAloneOtherwiseImagesFollowText) {
  const std::string body =
      para(picture("rId1")) + para(picture("rId2") + run("Caption") + picture("rId1")) +
      para(run("next"));
  Members members{{kDocument, documentXml(body)},
                  {kRels, relsXml({{"rId1", "media/a.png"}, {"rId2", "media/b.jpeg"}})},
                  {"word/media/a.png", kPng},
                  {"word/media/b.jpeg", "JPEG"}};
  const auto result = readPackage(members);
  EXPECT_EQ(dump(result),
            "[Image a.png, 11 bytes]\n[Body] «Caption»\n[Image b.jpeg, 4 bytes]\n"
            "[Image a.png, 11 bytes]\n[Body] «next»\n");
  const auto& first = std::get<ImageBlock>(result.blocks.at(0).kind);
  EXPECT_EQ(first, (ImageBlock{.data = Data(kPng.begin(), kPng.end()), .name = "a.png"}));
  // A picture referenced again is the same bytes in memory, read once.
  EXPECT_TRUE(first.data.sharesBufferWith(std::get<ImageBlock>(result.blocks.at(3).kind).data));
  // Each reference counts against the picture limit: 11 + 4 + 11 bytes.
  EXPECT_EQ(readPackage(members, {}, {.pictureBytes = 26}).blocks.size(), 5u);
  EXPECT_THAT([&] { readPackage(members, {}, {.pictureBytes = 25}); },
              throwsDocxError(Kind::unzipFailed, true,
                              "Could not open archive: word/media/a.png: the imported pictures "
                              "exceed 25 bytes, the limit for one import"));
}

TEST(DocxPictures, RelationshipTargetsAndUnresolvablePictures) {
  // A leading "/" is from the package root, anything else under "word/"; decoys
  // of other sizes sit where a wrong resolution would look. A picture that
  // resolves to nothing is skipped, which leaves a picture-only paragraph empty.
  const std::string embedded = picture("rId7");
  const struct {
    const char* target;  // of rId7; null: no relationships part
    std::string blip;
    std::string image;  // empty: skipped
  } cases[] = {
      {"media/rel.png", embedded, "[Image rel.png, 5 bytes]\n"},
      {"/media/root.png", embedded, "[Image root.png, 3 bytes]\n"},
      {"/word/media/rel.png", embedded, "[Image rel.png, 5 bytes]\n"},
      {nullptr, embedded, ""},
      {"media/rel.png", picture("rId2"), ""},
      {"media/absent.png", embedded, ""},
      {"media/rel.png", R"(<w:r><w:drawing><a:blip r:link="rId7"/></w:drawing></w:r>)", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.blip + " to " + (c.target ? c.target : "no relationships"));
    Members members{{"word/media/rel.png", "12345"},
                    {"media/rel.png", "1"},
                    {"media/root.png", "123"},
                    {"word/media/root.png", "1"}};
    if (c.target) members.emplace(kRels, relsXml({{"rId7", c.target}}));
    EXPECT_EQ(dumpBody(para(c.blip) + para(run("x") + c.blip), members),
              (c.image.empty() ? "[Body] \n" : c.image) + "[Body] «x»\n" + c.image);
  }
}

TEST(DocxFailures, DocumentPartMissingMalformedOrTooDeepIsAnErrorOfItsKind) {
  const testing::TempDir dir;
  testing::writeFile(dir / "text.docx", "This is plain text, not a ZIP archive.\n");
  testing::writePackage(dir / "nodocument.docx", {{"word/styles.xml", stylesXml({})}});
  for (const char* name : {"text.docx", "nodocument.docx"}) {
    EXPECT_THAT([&] { DocxReader::read(dir / name, {}); },
                throwsDocxError(Kind::missingEntry, false,
                                "Archive is missing word/document.xml \u2014 not a valid file."))
        << name;
  }
  // A file that is not there is no invalid package: it says so, as a text file does.
  EXPECT_THROW(DocxReader::read(dir / "absent.docx", {}), std::filesystem::filesystem_error);
  // Each broken part is a variant of one that reads.
  const std::string document = documentXml(para(run("a")));
  const std::string undeclared = document.substr(document.find("?>") + 2);
  ASSERT_EQ(dump(readPackage({{kDocument, document}})), "[Body] «a»\n");
  for (const std::string& part : {document.substr(0, document.size() - 7), std::string(),
                                  R"(<!DOCTYPE w:document [<!ENTITY e "e">]>)" + undeclared,
                                  "<!DOCTYPE w:document>" + undeclared}) {
    const Members members{{kDocument, part}};
    EXPECT_THAT([&] { readPackage(members); },
                throwsDocxError(Kind::parseFailed, false,
                                "Could not parse the document (word/document.xml)."))
        << part;
  }
  const ImportLimits depth{.tableDepth = 2};
  const std::string twoDeep = table(row(cell(table(row(cell(para(run("x"))))))));
  EXPECT_EQ(dump(readPackage({{kDocument, documentXml(twoDeep)}}, {}, depth)),
            "[Table 1×1]\n  | x |\n");
  const Members threeDeep{{kDocument, documentXml(table(row(cell(twoDeep))))}};
  EXPECT_THAT([&] { readPackage(threeDeep, {}, depth); },
              throwsDocxError(Kind::unzipFailed, true,
                              "Could not open archive: word/document.xml: tables nested more than "
                              "2 deep, the limit"));
  // Unclosed elements are bounded too, in any part: a few kilobytes of start
  // tags must not take gigabytes.
  std::string unclosed;
  for (int i = 0; i < 5000; ++i) unclosed += "<w:x>";
  for (const std::string& member : {kDocument, std::string("word/styles.xml")}) {
    Members members{{kDocument, documentXml(para(run("a")))}};
    members[member] = member == kDocument ? documentXml(unclosed) : unclosed;
    EXPECT_THAT([&] { readPackage(members); },
                throwsDocxError(Kind::unzipFailed, true,
                                "Could not open archive: an XML part nests elements more than "
                                "1024 deep, the limit"))
        << member;
  }
}

TEST(DocxFailures, BrokenOptionalPartsAreReadAsFarAsWellFormed) {
  const std::string both = notesXml(note("1", para(run("kept"))) + note("2", para(run("lost"))));
  const std::pair<std::string, const char*> cases[] = {
      {both.substr(0, both.find("lost") + 4), "[Footnote 1] kept\n"},
      {R"(<!DOCTYPE w:footnotes [<!ENTITY e "e">]>)" + notesXml(note("1", para(run("&e;")))), ""},
  };
  for (const auto& [footnotes, expected] : cases) {
    EXPECT_EQ(dumpBody(para(run("body")), {{"word/footnotes.xml", footnotes}}),
              std::string("[Body] «body»\n") + expected);
  }
  EXPECT_EQ(dump(readPackage({{kDocument, documentXml(para(run("a"), "Heading1"))},
                              {"word/styles.xml", "not xml"},
                              {kRels, "<<<"},
                              {"word/footnotes.xml", "<w:footnotes"},
                              {"word/endnotes.xml", ""}})),
            "[Heading 1] «a»\n");
}

TEST(DocxReader, ExtensionDecidesHowTheFileIsRead) {
  const testing::TempDir dir;
  testing::writePackage(dir / "Mixed.DocX", {{kDocument, documentXml(para(run("w")))}});
  EXPECT_EQ(dump(DocxReader::read(dir / "Mixed.DocX", {})), "[Body] «w»\n");
  // Anything else is text, and a custom style map does not apply to it.
  testing::writeFile(dir / "words.docx.txt", "first\n\nlast");
  EXPECT_EQ(dump(DocxReader::read(dir / "words.docx.txt", {{"Body", "Heading 1"}})),
            "[Body] «first»\n[Body] \n[Body] «last»\n");
  EXPECT_EQ(DocxReader::linkKind("/a/STORY.DOCX"), LinkKind::word);
  EXPECT_EQ(DocxReader::linkKind("/a/B.XlSx"), LinkKind::excel);
  EXPECT_EQ(DocxReader::linkKind("/a/x.docx.txt"), LinkKind::text);
}

}  // namespace
}  // namespace inkharbour
