#include "cli/selftest.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "app/app_state.h"
#include "cli/dump.h"
#include "importers/docx_reader.h"
#include "importers/package.h"
#include "model/document_file.h"
#include "model/style_sheet.h"

namespace inkharbour::cli {

namespace {

namespace fs = std::filesystem;

struct Check {
  const char* name;
  // Returns an empty text on success, otherwise what went wrong.
  std::function<std::string(const fs::path& folder)> run;
};

std::string expectDump(const fs::path& file, const std::string& expected) {
  const std::string actual = formatDump(DocxReader::read(file, StyleMap{}));
  if (actual == expected) return {};
  return "expected:\n" + expected + "got:\n" + actual;
}

std::string readsOwnPackage(const fs::path& folder) {
  const std::string document =
      R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
      R"(<w:document xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main"><w:body>)"
      R"(<w:p><w:pPr><w:pStyle w:val="Heading1"/></w:pPr><w:r><w:t>Chapter One</w:t></w:r></w:p>)"
      R"(<w:p><w:r><w:rPr><w:b/></w:rPr><w:t xml:space="preserve">Bold </w:t></w:r>)"
      R"(<w:r><w:t>plain</w:t></w:r><w:r><w:footnoteReference w:id="1"/></w:r></w:p>)"
      R"(<w:tbl><w:tr><w:tc><w:p><w:r><w:t>a</w:t></w:r></w:p></w:tc><w:tc/></w:tr></w:tbl>)"
      R"(</w:body></w:document>)";
  const std::string styles =
      R"(<w:styles xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">)"
      R"(<w:style w:styleId="Heading1"><w:name w:val="heading 1"/></w:style></w:styles>)";
  const std::string footnotes =
      R"(<w:footnotes xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">)"
      R"(<w:footnote w:type="separator" w:id="-1"><w:p><w:r><w:separator/></w:r></w:p></w:footnote>)"
      R"(<w:footnote w:id="1"><w:p><w:r><w:t xml:space="preserve"> A note.</w:t></w:r></w:p></w:footnote>)"
      R"(</w:footnotes>)";
  const fs::path file = folder / "selftest.docx";
  ZipTool::writePackage({{"word/document.xml", document},
                         {"word/styles.xml", styles},
                         {"word/footnotes.xml", footnotes}},
                        file);
  return expectDump(file,
                    "[Heading 1] \u00abChapter One\u00bb\n"
                    "[Body] B\u00abBold \u00bb \u00abplain\u00bb ^fn1\u00ab[1]\u00bb\n"
                    "[Table 1\u00d72]\n"
                    "  | a |  |\n"
                    "[Footnote 1]  A note.\n");
}

std::string readsWorkbook(const fs::path& folder) {
  const std::string sharedStrings =
      R"(<sst xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main">)"
      R"(<si><t>Region</t></si><si><t>North</t></si></sst>)";
  const std::string sheet =
      R"(<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><sheetData>)"
      R"(<row r="1"><c r="A1" t="s"><v>0</v></c><c r="B1" t="inlineStr"><is><t>Sales</t></is></c></row>)"
      R"(<row r="2"><c r="A2" t="s"><v>1</v></c><c r="C2"><v>1234.5</v></c></row>)"
      R"(</sheetData></worksheet>)";
  const fs::path file = folder / "selftest.xlsx";
  ZipTool::writePackage(
      {{"xl/sharedStrings.xml", sharedStrings}, {"xl/worksheets/sheet1.xml", sheet}}, file);
  return expectDump(file,
                    "[Table 2\u00d73]\n"
                    "  | Region | Sales |  |\n"
                    "  | North |  | 1234.5 |\n");
}

std::string readsText(const fs::path& folder) {
  const fs::path file = folder / "selftest.txt";
  std::ofstream(file, std::ios::binary) << "a\n\nb\n";
  return expectDump(file, "[Body] \u00aba\u00bb\n[Body] \n[Body] \u00abb\u00bb\n[Body] \n");
}

std::string mapsStyles(const fs::path&) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Heading 1", "Heading 1"}, {"heading 2", "Heading 2"}, {"Heading 4", "Heading 2"},
      {"Subtitle", "Title"},      {"Intense Emphasis", "Quote"}, {"H1", "Heading 1"},
      {"Normal", "Body"},         {"", "Body"}};
  for (const auto& [word, expected] : cases) {
    const auto actual = StyleSheet::mapWord(word, {});
    if (actual != expected) {
      return "\"" + word + "\" mapped to \"" + std::string(actual) + "\", expected \"" +
             expected + "\"";
    }
  }
  const StyleMap custom{{"Subtitle", "Heading 2"}, {"Caption", "Figure"}};
  if (StyleSheet::mapWord("Subtitle", custom) != "Heading 2") return "custom entry not applied";
  if (StyleSheet::mapWord("Caption", custom) != "Body") return "invalid custom entry applied";
  return {};
}

std::string reportsMissingPackage(const fs::path& folder) {
  const fs::path file = folder / "not-a-package.docx";
  std::ofstream(file, std::ios::binary) << "plain text, not a ZIP archive";
  try {
    DocxReader::read(file, StyleMap{});
  } catch (const std::exception& error) {
    const std::string expected = "Archive is missing word/document.xml \u2014 not a valid file.";
    return error.what() == expected ? "" : std::string("wrong message: ") + error.what();
  }
  return "no error for a file that is not a package";
}

std::string decodesLegacyDocument(const fs::path&) {
  const std::string legacy = R"({"stories": [{
      "id": "5A1C3E4B-7D2F-4E1A-9B3C-0D5E6F708192",
      "name": "Old Story",
      "paragraphs": [{"styleName": "Body", "runs": [{"text": "Once upon a tide", "italic": true}]}],
      "notes": [],
      "link": {"path": "\/tmp\/old story.docx",
               "baseSnapshot": [{"styleName": "Body", "runs": [{"text": "Once upon a tide"}]}],
               "lastSync": 0}}]})";
  const ProjectDocument document = DocumentFile::decode(legacy);
  if (document.stories.size() != 1) return "expected one story";
  const Story& story = document.stories[0];
  if (story.name != "Old Story") return "wrong name: " + story.name;
  if (story.id.string() != "5A1C3E4B-7D2F-4E1A-9B3C-0D5E6F708192") return "wrong id";
  if (story.blocks.size() != 1) return "expected one block";
  const auto* paragraph = std::get_if<Paragraph>(&story.blocks[0].kind);
  if (paragraph == nullptr || paragraph->runs.size() != 1 || !paragraph->runs[0].italic) {
    return "expected one paragraph with one italic run";
  }
  if (!story.link) return "the link is missing";
  if (story.link->kind != LinkKind::word) return "expected a Word link";
  if (story.link->baseBlocks.size() != 1 ||
      !std::holds_alternative<Paragraph>(story.link->baseBlocks[0].kind)) {
    return "expected a base snapshot of one paragraph";
  }
  if (story.link->lastSync != 0) return "expected lastSync 0";
  return {};
}

std::string documentRoundTrips(const fs::path&) {
  Paragraph cited = Paragraph::make("Heading 1", "Chapter ");
  cited.runs.push_back(TextRun{.text = "red", .bold = true, .colorHex = "C00000"});
  cited.runs.push_back(TextRun::footnoteReference(1));
  const Table table{.rows = {{TableCell{.paragraphs = {Paragraph::make("Body", "cell")}}, {}}}};
  const ProjectDocument document{
      .stories = {Story{
          .name = "Round \"trip\" / story",
          .blocks = {Block{.kind = cited}, Block{.kind = table},
                     Block{.kind = ImageBlock{.data = {0x89, 'P', 'N', 'G', 0}, .name = "a.png"}}},
          .footnotes = {Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", "A note.")}}},
          .link = StoryLink{.path = "/tmp/story.docx",
                            .kind = LinkKind::text,
                            .baseBlocks = {Block{.kind = Paragraph::make("Body", "base")}},
                            .lastSync = 12.5},
          .notes = {ConflictNote{
              .paragraphIndex = 2, .localText = "mine", .externalText = "theirs"}},
          .lastMergeReport = {ChangeRecord{
              .kind = ChangeRecord::Kind::conflict, .summary = "Conflict", .localText = "mine"}}}},
      .styleMap = {{"Caption", "Quote"}}};
  const std::string bytes = DocumentFile::encode(document);
  if (DocumentFile::decode(bytes) != document) return "the decoded document differs";
  if (DocumentFile::encode(DocumentFile::decode(bytes)) != bytes) return "the bytes differ";
  return {};
}

// The desktop's everyday cycle with a text file, headless.
std::string updatesFromChangedFile(const fs::path& folder) {
  const fs::path file = folder / "cycle.txt";
  std::ofstream(file, std::ios::binary) << "first\nsecond";
  AppState state;
  state.place(file);
  if (state.lastError()) return "place failed: " + *state.lastError();
  const Uuid id = state.document().stories.at(0).id;
  std::ofstream(file, std::ios::binary | std::ios::trunc) << "first\nsecond, revised";
  state.refreshAllLinkStatuses();
  if (state.linkStatuses().at(id) != LinkStatus::modified) return "the change was not noticed";
  state.updateFromLinked(id);
  if (state.lastError()) return "update failed: " + *state.lastError();
  std::string text;
  for (const auto& block : state.document().stories.at(0).blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      text += paragraph->text() + "|";
    }
  }
  if (text != "first|second, revised|") return "the story holds " + text;
  state.refreshAllLinkStatuses();
  if (state.linkStatuses().at(id) != LinkStatus::upToDate) return "not up to date after update";
  return {};
}

}  // namespace

bool runSelfTests(std::ostream& out) {
  const std::vector<Check> checks{
      {"read a Word package written by this installation", readsOwnPackage},
      {"read the first worksheet of a workbook", readsWorkbook},
      {"read a plain-text file", readsText},
      {"map Word style names", mapsStyles},
      {"report a file that is not a package", reportsMissingPackage},
      {"decode a document in the old layout", decodesLegacyDocument},
      {"write and read back a document unchanged", documentRoundTrips},
      {"place a file, change it, update the story", updatesFromChangedFile},
  };

  std::error_code ignored;
  const fs::path folder =
      fs::temp_directory_path(ignored) / ("inkharbour-selftest-" + Uuid::random().string());
  fs::create_directories(folder, ignored);

  int passed = 0;
  int failed = 0;
  for (const auto& check : checks) {
    std::string problem;
    try {
      problem = check.run(folder);
    } catch (const std::exception& error) {
      problem = std::string("unexpected error: ") + error.what();
    }
    if (problem.empty()) {
      ++passed;
      out << "PASS " << check.name << '\n';
    } else {
      ++failed;
      out << "FAIL " << check.name << ": " << problem << '\n';
    }
  }
  fs::remove_all(folder, ignored);
  out << "selftest: " << passed << " passed, " << failed << " failed\n";
  return failed == 0;
}

}  // namespace inkharbour::cli
