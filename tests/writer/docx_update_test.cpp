// Pushing into an existing Word file keeps everyone else's work: other parts
// byte for byte, unchanged paragraphs and notes byte for byte, the look of
// changed ones; and the file reads back as the story.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "importers/docx_reader.h"
#include "importers/package.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::Members;

std::vector<Block> withoutIds(std::vector<Block> blocks) {
  for (auto& block : blocks) block.id = Uuid{};
  return blocks;
}

Members membersOf(const fs::path& file) {
  Package package(file);
  Members members;
  for (const auto& name : package.members()) {
    if (const auto bytes = package.read(name)) members[name] = std::string(asText(*bytes));
  }
  return members;
}

// Pushes the story and checks that the file reads back as it.
void push(const ImportResult& story, const fs::path& file, const std::string& label) {
  DocxWriter::update(story.blocks, story.footnotes, file, StyleMap{});
  const auto back = DocxReader::read(file, StyleMap{});
  EXPECT_TRUE(withoutIds(back.blocks) == withoutIds(story.blocks) &&
              back.footnotes == story.footnotes)
      << label << "\nexpected:\n"
      << testing::dump(story) << "got:\n"
      << testing::dump(back);
}

Paragraph* firstParagraphWithText(std::vector<Block>& blocks) {
  for (auto& block : blocks) {
    if (auto* paragraph = std::get_if<Paragraph>(&block.kind);
        paragraph && !paragraph->runs.empty() && !paragraph->runs.back().footnoteID) {
      return paragraph;
    }
  }
  return nullptr;
}

// A few edits an author makes: a sentence added to a paragraph, a paragraph
// inserted and one deleted, a table cell and a note reworded.
void edit(ImportResult& story) {
  if (auto* paragraph = firstParagraphWithText(story.blocks)) {
    paragraph->runs.back().text += " One more sentence.";
  }
  std::size_t middle = story.blocks.size() / 2;
  story.blocks.insert(story.blocks.begin() + static_cast<std::ptrdiff_t>(middle),
                      Block{.kind = Paragraph::make("Body", "A paragraph of our own.")});
  if (story.blocks.size() > 3) story.blocks.erase(story.blocks.end() - 2);
  for (auto& block : story.blocks) {
    if (auto* table = std::get_if<Table>(&block.kind);
        table && !table->rows.empty() && !table->rows[0].empty()) {
      table->rows[0][0].paragraphs = {Paragraph::make("Body", "changed cell")};
      break;
    }
  }
  if (!story.footnotes.empty()) {
    story.footnotes.front().paragraphs = {Paragraph::make("Body", " A reworded note.")};
  }
}

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(DocxUpdate, AChangedParagraphKeepsItsLookAndUnchangedOnesStayByteForByte) {
  testing::TempDir dir;
  const std::string kept =
      R"(<w:p w:rsidR="1"><w:pPr><w:spacing w:after="240"/></w:pPr><w:r><w:t>Untouched.</w:t></w:r></w:p>)";
  const std::string section = R"(<w:sectPr><w:pgSz w:w="11906" w:h="16838"/></w:sectPr>)";
  const std::string font = R"(<w:rFonts w:ascii="Garamond"/>)";
  const fs::path file = dir / "linked.docx";
  testing::writePackage(
      file,
      {{"word/document.xml",
        testing::documentXml(
            R"(<w:p><w:pPr><w:jc w:val="center"/></w:pPr><w:bookmarkStart w:id="0" w:name="b"/>)"
            "<w:r><w:rPr>" +
            font + "<w:b/></w:rPr><w:t>Bold words</w:t></w:r><w:r><w:rPr>" + font +
            R"(</w:rPr><w:t> plain words</w:t></w:r><w:bookmarkEnd w:id="0"/></w:p>)" + kept +
            R"(<w:tbl><w:tblPr><w:tblStyle w:val="Grid"/></w:tblPr><w:tr><w:tc><w:tcPr><w:shd w:fill="FF0000"/></w:tcPr><w:p><w:r><w:t>a</w:t></w:r></w:p></w:tc>)"
            R"(<w:tc><w:p><w:r><w:t>b</w:t></w:r></w:p></w:tc></w:tr></w:tbl>)" +
            section)},
       {"word/styles.xml", testing::stylesXml({{"Heading1", "heading 1"}})},
       {"word/theme/theme1.xml", "<theme/>"}});
  auto story = DocxReader::read(file, StyleMap{});
  auto& first = std::get<Paragraph>(story.blocks[0].kind);
  first.runs[1].text = " other words";
  first.runs.push_back(TextRun{.text = " new", .italic = true});
  story.blocks.insert(story.blocks.begin() + 2, Block{.kind = Paragraph::make("Body", "Added.")});
  story.blocks.push_back(Block{.kind = Paragraph::make("Heading 1", "A heading")});
  std::get<Table>(story.blocks[3].kind).rows[0][0].paragraphs = {Paragraph::make("Body", "c")};

  push(story, file, "made-up");
  auto after = membersOf(file);
  const auto& document = after["word/document.xml"];
  EXPECT_EQ(after["word/theme/theme1.xml"], "<theme/>");
  for (
      const auto& part :
      {kept, section, std::string(R"(<w:jc w:val="center"/>)"),
       std::string(R"(<w:bookmarkStart w:id="0" w:name="b"/>)"),
       "<w:rPr>" + font + "<w:b/></w:rPr><w:t>Bold words</w:t></w:r>",         // before the change
       "<w:rPr>" + font + "</w:rPr><w:t xml:space=\"preserve\"> other words",  // same look
       "<w:rPr>" + font + "<w:i/></w:rPr>",                                    // new look
       std::string(
           R"(<w:p><w:pPr><w:spacing w:after="240"/></w:pPr><w:r><w:t xml:space="preserve">Added.)"),
       std::string(R"(<w:tblStyle w:val="Grid"/>)"),
       std::string(R"(<w:tc><w:tcPr><w:shd w:fill="FF0000"/></w:tcPr><w:p>)"),
       std::string(R"(<w:tc><w:p><w:r><w:t>b</w:t></w:r></w:p></w:tc>)"),
       std::string(R"(<w:pStyle w:val="Heading1"/>)")}) {
    EXPECT_TRUE(holds(document, part)) << part << "\n" << document;
  }
  // The section properties stay last.
  EXPECT_TRUE(document.ends_with(section + "</w:body></w:document>")) << document;
}

TEST(DocxUpdate, AnEditedParagraphKeepsTrackedChangesLinksAndFieldsOutsideTheChangedWords) {
  testing::TempDir dir;
  // A co-author's tracked changes, a hyperlink and a field, before the words edited.
  const std::string
      insertion = R"(<w:ins w:id="1" w:author="Co"><w:r><w:t>inserted</w:t></w:r></w:ins>)",
      deletion = R"(<w:del w:id="2" w:author="Co"><w:r><w:delText>gone</w:delText></w:r></w:del>)",
      link =
          R"(<w:hyperlink r:id="rId9"><w:r><w:t xml:space="preserve"> link</w:t></w:r></w:hyperlink>)",
      field = R"(<w:r><w:instrText>PAGE</w:instrText></w:r>)";
  const std::string tracked =
      R"(<w:p><w:r><w:t xml:space="preserve">Start </w:t></w:r>)" + insertion + deletion + link +
      R"(<w:r><w:fldChar w:fldCharType="begin"/></w:r>)" + field +
      R"(<w:r><w:fldChar w:fldCharType="separate"/></w:r>)" +
      R"(<w:r><w:t>1</w:t></w:r><w:r><w:fldChar w:fldCharType="end"/></w:r>)" +
      R"(<w:r><w:t xml:space="preserve"> end.</w:t></w:r></w:p>)";
  const fs::path file = dir / "linked.docx";
  testing::writePackage(
      file, {{"word/document.xml",
              testing::documentXml(tracked + "<w:p><w:r><w:t>Next.</w:t></w:r></w:p>")}});
  auto story = DocxReader::read(file, StyleMap{});
  auto& edited = std::get<Paragraph>(story.blocks[0].kind);
  ASSERT_EQ(edited.text(), "Start inserted link1 end.");
  edited.runs.back().text += " More.";
  push(story, file, "tracked");
  const auto document = membersOf(file)["word/document.xml"];
  for (const auto& part : {insertion, deletion, link, field, std::string(" More.</w:t>")}) {
    EXPECT_TRUE(holds(document, part)) << part << "\n" << document;
  }
}

TEST(DocxUpdate, ParagraphsInsertedBeforeEditedOnesLeaveThemTheirOwnProperties) {
  testing::TempDir dir;
  const fs::path file = dir / "linked.docx";
  const std::string
      alpha =
          R"(<w:p><w:pPr><w:jc w:val="right"/></w:pPr><w:r><w:t>Alpha first.</w:t></w:r></w:p>)",
      beta = R"(<w:p><w:pPr><w:ind w:left="720"/></w:pPr><w:r><w:t>Beta second.</w:t></w:r></w:p>)";
  testing::writePackage(file, {{"word/document.xml", testing::documentXml(alpha + beta)}});
  auto story = DocxReader::read(file, StyleMap{});
  for (auto& block : story.blocks) std::get<Paragraph>(block.kind).runs.back().text += " Edited.";
  story.blocks.insert(story.blocks.begin(), Block{.kind = Paragraph::make("Body", "Inserted.")});
  push(story, file, "inserted");
  const auto document = membersOf(file)["word/document.xml"];
  for (const auto& part : {alpha.substr(0, alpha.size() - 10), beta.substr(0, beta.size() - 10)}) {
    EXPECT_TRUE(holds(document, part)) << part << "\n" << document;
  }
}

// Run or paragraph properties that hold text of their own (a tab) are not
// lent to other words, which would then read with it.
TEST(DocxUpdate, PropertiesThatReadAsTextAreNotLent) {
  testing::TempDir dir;
  const fs::path file = dir / "linked.docx";
  testing::writePackage(
      file,
      {{"word/document.xml",
        testing::documentXml(R"(<w:p><w:r><w:rPr><w:b/><w:tab/></w:rPr><w:t>Bold</w:t></w:r></w:p>)"
                             R"(<w:p><w:pPr><w:r><w:t>odd</w:t></w:r></w:pPr></w:p>)")}});
  auto story = DocxReader::read(file, StyleMap{});
  firstParagraphWithText(story.blocks)->runs.push_back(TextRun{.text = " plain"});
  story.blocks.push_back(Block{.kind = Paragraph::make("Body", "Ours.")});
  push(story, file, "tab in run properties");
}

TEST(DocxUpdate, PicturesAndNotesGainPartsRelationshipsAndContentTypes) {
  testing::TempDir dir;
  const fs::path file = dir / "linked.docx";
  const std::string types =
      R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
      R"(<Default Extension="xml" ContentType="application/xml"/></Types>)";
  const std::string second =
      R"(<w:footnote w:id="2"><w:p><w:r><w:footnoteRef/></w:r><w:r><w:t> Two</w:t></w:r></w:p></w:footnote>)";
  testing::writePackage(
      file,
      {{"[Content_Types].xml", types},
       {"word/document.xml",
        testing::documentXml(
            R"(<w:p><w:r><w:t>Text</w:t></w:r><w:r><w:footnoteReference w:id="1"/></w:r>)"
            R"(<w:r><w:footnoteReference w:id="2"/></w:r></w:p>)")},
       {"word/footnotes.xml",
        testing::notesXml(
            R"(<w:footnote w:id="1"><w:p><w:pPr><w:jc w:val="both"/></w:pPr><w:r><w:rPr><w:rStyle w:val="FootnoteReference"/></w:rPr><w:footnoteRef/></w:r><w:r><w:t> One</w:t></w:r></w:p></w:footnote>)" +
            second)}});
  auto story = DocxReader::read(file, StyleMap{});
  story.footnotes[0].paragraphs = {Paragraph::make("Body", " One, reworded")};
  story.blocks.push_back(
      Block{.kind = ImageBlock{.data = {'G', 'I', 'F', '8', '9', 'a'}, .name = "x.gif"}});
  std::get<Paragraph>(story.blocks[0].kind).runs.push_back(TextRun::footnoteReference(10001));
  story.footnotes.push_back(
      Footnote{.id = 10001, .paragraphs = {Paragraph::make("Body", " An endnote")}});

  push(story, file, "notes and pictures");
  auto after = membersOf(file);
  EXPECT_TRUE(holds(after["word/footnotes.xml"], second));
  EXPECT_TRUE(holds(
      after["word/footnotes.xml"],
      R"(<w:jc w:val="both"/></w:pPr><w:r><w:rPr><w:rStyle w:val="FootnoteReference"/></w:rPr><w:footnoteRef/></w:r>)"));
  EXPECT_TRUE(holds(after["word/endnotes.xml"], R"(<w:endnote w:id="1">)"));
  EXPECT_TRUE(holds(after["word/document.xml"], R"(<w:endnoteReference w:id="1"/>)"));
  EXPECT_EQ(after["word/media/x.gif"], "GIF89a");
  for (const char* part : {R"(Target="media/x.gif")", R"(Target="endnotes.xml")"}) {
    EXPECT_TRUE(holds(after["word/_rels/document.xml.rels"], part)) << part;
  }
  for (const char* part : {R"(<Default Extension="gif" ContentType="image/gif"/>)",
                           R"(PartName="/word/endnotes.xml")"}) {
    EXPECT_TRUE(holds(after["[Content_Types].xml"], part)) << part;
  }
}

TEST(DocxUpdate, WithoutAWordFileAFreshPackageIsWritten) {
  testing::TempDir dir;
  const ImportResult story{.blocks = {Block{.kind = Paragraph::make("Heading 1", "Title")}}};
  for (const auto* name : {"absent.docx", "text.docx"}) {
    if (std::string(name) == "text.docx") testing::writeFile(dir / name, "not a package");
    push(story, dir / name, name);
  }
  // Headings carry outline levels for other programs' navigation.
  EXPECT_TRUE(
      holds(membersOf(dir / "absent.docx")["word/styles.xml"], R"(<w:outlineLvl w:val="0"/>)"));
}

TEST(DocxUpdate, EveryCorpusFileKeepsItsOtherPartsAndReadsBackAsTheStory) {
  const char* corpus = std::getenv("INKHARBOUR_CORPUS");
  if (corpus == nullptr || !fs::exists(fs::path(corpus) / "docx")) GTEST_SKIP() << "no corpus";
  testing::TempDir dir;
  int pushed = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(corpus) / "docx")) {
    ImportResult story;
    try {
      story = DocxReader::read(entry.path(), StyleMap{});
    } catch (const std::exception&) {
      continue;  // files that do not import are not pushed to
    }
    const fs::path file = dir / "linked.docx";
    fs::copy_file(entry.path(), file, fs::copy_options::overwrite_existing);
    Members before;
    try {
      before = membersOf(file);
    } catch (const DocxError&) {
      // A damaged part cannot be kept, so the push refuses and leaves the file.
      EXPECT_THROW(DocxWriter::update(story.blocks, story.footnotes, file, StyleMap{}), DocxError);
      EXPECT_EQ(testing::readFile(file), testing::readFile(entry.path()));
      continue;
    }

    // Nothing changed: the file is left as it was.
    const std::string label = entry.path().filename().string();
    try {
      push(story, file, label);
    } catch (const std::exception& error) {
      ADD_FAILURE() << label << ": " << error.what();
      continue;
    }
    EXPECT_TRUE(testing::readFile(file) == testing::readFile(entry.path()))
        << label << ": written although nothing changed";

    edit(story);
    push(story, file, label + " (edited)");
    auto after = membersOf(file);
    Package original(entry.path()), written(file);
    for (const auto& [name, bytes] : before) {
      if (name == "word/document.xml" || name == "word/footnotes.xml" ||
          name == "word/endnotes.xml" || name.ends_with('/')) {
        continue;
      }
      EXPECT_TRUE(after.contains(name) && after[name] == bytes)
          << entry.path().filename() << ": " << name << " changed";
      // Not even compressed again.
      DeflateBlocks was, is;
      original.stream(
          name, [](std::string_view) {}, was);
      written.stream(
          name, [](std::string_view) {}, is);
      EXPECT_TRUE(was.compressed == is.compressed) << label << ": " << name << " recompressed";
    }
    ++pushed;
  }
  EXPECT_GT(pushed, 100);
}

}  // namespace
}  // namespace inkharbour
