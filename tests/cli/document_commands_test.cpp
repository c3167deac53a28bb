#include "cli/document_commands.h"

#include <gtest/gtest.h>

#include <sstream>

#include "app/app_state.h"
#include "cli/dump.h"
#include "model/document_file.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using cli::DocumentCommand;
using cli::DocumentRequest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;
using testing::writePackage;

struct Run {
  int status;
  std::string out;
  std::string err;
};

Run run(AppState& state, const DocumentRequest& request) {
  std::ostringstream out, err;
  const int status = cli::runDocumentCommand(state, request, out, err);
  return {status, out.str(), err.str()};
}

Run run(const DocumentRequest& request) {
  AppState state;
  return run(state, request);
}

// The first tab-separated field of every line: the statuses of `status`.
std::vector<std::string> firstFields(const std::string& text) {
  std::vector<std::string> fields;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    fields.push_back(line.substr(0, line.find('\t')));
  return fields;
}

std::string paragraphs(const std::vector<std::string>& texts) {
  std::string body;
  for (const auto& text : texts) body += "<w:p><w:r><w:t>" + text + "</w:t></w:r></w:p>";
  return testing::documentXml(body);
}

void writeWorkbook(const std::filesystem::path& path, const std::string& knots) {
  writePackage(path, {{"xl/sharedStrings.xml", testing::sharedStringsXml({"Wind", "Knots"})},
                      {"xl/worksheets/sheet1.xml",
                       testing::sheetXml(R"(<row r="1"><c r="A1" t="s"><v>0</v></c>)"
                                         R"(<c r="B1" t="s"><v>1</v></c></row>)"
                                         R"(<row r="2"><c r="A2" t="inlineStr"><is><t>NW</t></is>)"
                                         R"(</c><c r="B2"><v>)" +
                                         knots + "</v></c></row>")}});
}

const Story& storyNamed(const ProjectDocument& document, const std::string& name) {
  for (const auto& story : document.stories) {
    if (story.name == name) return story;
  }
  throw std::runtime_error("no story " + name);
}

// A whole working session on one document: place, edit on both sides, status,
// update with a conflict, notes, push, export; then the saved file must hold
// exactly what the application held.
TEST(DocumentCommands, PlaceEditUpdatePushExportCycle) {
  TempDir dir;
  const auto doc = dir / "book.inkharbour";
  const auto docx = dir / "harbour.docx";
  const auto xlsx = dir / "tides.xlsx";
  const auto txt = dir / "log.txt";
  writePackage(docx, {{"word/document.xml",
                       paragraphs({"The harbour was quiet.", "Gulls circled.", "Night fell."})}});
  writeWorkbook(xlsx, "12");
  writeFile(txt, "Dawn.\nThe ferry left.\nDusk.");

  EXPECT_EQ(run({.command = DocumentCommand::newDocument, .document = doc}).status, 0);
  const auto again = run({.command = DocumentCommand::newDocument, .document = doc});
  EXPECT_EQ(again.status, 2);
  EXPECT_EQ(again.err, doc.string() + " already exists; --force replaces it.\n");

  const auto placed =
      run({.command = DocumentCommand::place, .document = doc, .files = {docx, xlsx, txt}});
  ASSERT_EQ(placed.status, 0) << placed.err;
  EXPECT_THAT(placed.out, HasSubstr("Placed \u201charbour\u201d ("));
  std::vector<std::string> names;
  for (const auto& story : DocumentFile::read(doc).stories) names.push_back(story.name);
  EXPECT_THAT(names, ElementsAre("harbour", "tides", "log"));
  const auto fresh = run({.command = DocumentCommand::status, .document = doc});
  EXPECT_EQ(fresh.status, 0);
  EXPECT_THAT(firstFields(fresh.out), ElementsAre("upToDate", "upToDate", "upToDate"));

  // Outside edits to all three files, and a script's edit of the same
  // paragraph of the Word story inside the document.
  writePackage(
      docx, {{"word/document.xml",
              paragraphs({"The harbour was quiet.", "Gulls circled the mast.", "Night fell."})}});
  writeWorkbook(xlsx, "15");
  writeFile(txt, "Dawn.\nThe ferry left late.\nDusk.");
  ProjectDocument edited = DocumentFile::read(doc);
  for (auto& story : edited.stories) {
    if (story.name == "harbour") story.blocks[1].kind = Paragraph::make("Body", "Gulls wheeled.");
  }
  DocumentFile::write(edited, doc);

  const auto changed = run({.command = DocumentCommand::status, .document = doc});
  EXPECT_EQ(changed.status, 1);
  EXPECT_THAT(firstFields(changed.out), ElementsAre("modified", "modified", "modified"));

  const auto merged =
      run({.command = DocumentCommand::update, .document = doc, .story = "harbour"});
  EXPECT_EQ(merged.status, 1) << merged.err;
  EXPECT_THAT(merged.out, HasSubstr("conflict: "));
  EXPECT_THAT(merged.out, HasSubstr("Story Note at block 1: yours \u00abGulls wheeled.\u00bb, "
                                    "external \u00abGulls circled the mast.\u00bb\n"));
  const auto report =
      run({.command = DocumentCommand::report, .document = doc, .story = "harbour", .json = true});
  EXPECT_THAT(report.out, HasSubstr("\"kind\" : \"conflict\""));

  const auto rest = run({.command = DocumentCommand::updateAll, .document = doc});
  EXPECT_EQ(rest.status, 0) << rest.err;
  EXPECT_THAT(rest.out, HasSubstr("Updated \u201ctides\u201d:\n  "));
  EXPECT_THAT(rest.out, HasSubstr("Updated \u201clog\u201d:\n  "));
  EXPECT_THAT(rest.out, ::testing::Not(HasSubstr("harbour")));
  const auto settled = run({.command = DocumentCommand::status, .document = doc});
  EXPECT_EQ(settled.status, 0);
  EXPECT_THAT(firstFields(settled.out), ElementsAre("upToDate", "upToDate", "upToDate"));

  // The note, listed with its id and dismissed by it in lower case.
  const ConflictNote note = storyNamed(DocumentFile::read(doc), "harbour").notes.at(0);
  const auto listed = run({.command = DocumentCommand::notes, .document = doc, .story = "harbour"});
  EXPECT_EQ(listed.out, note.id.string() +
                            "\tStory Note at block 1: yours \u00abGulls wheeled.\u00bb, external "
                            "\u00abGulls circled the mast.\u00bb\n");
  std::string lowerID = note.id.string();
  for (auto& c : lowerID) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  EXPECT_EQ(run({.command = DocumentCommand::dismissNote,
                 .document = doc,
                 .story = "harbour",
                 .note = lowerID})
                .status,
            0);
  EXPECT_EQ(run({.command = DocumentCommand::notes, .document = doc, .story = "harbour"}).out, "");

  // Push writes the story's own content over the Word file.
  EXPECT_EQ(run({.command = DocumentCommand::push, .document = doc, .story = "harbour"}).status, 0);
  const Story harbour = storyNamed(DocumentFile::read(doc), "harbour");
  std::ostringstream dumped, dumpErr;
  EXPECT_EQ(cli::runDump(docx, dumped, dumpErr), 0);
  EXPECT_EQ(dumped.str(), cli::formatDump({harbour.blocks, harbour.footnotes}));
  EXPECT_THAT(dumped.str(), HasSubstr("Gulls circled the mast."));

  // A refused push reports AppState's text and leaves the file alone.
  const std::string beforeRefusal = readFile(doc);
  const auto refused = run({.command = DocumentCommand::push, .document = doc, .story = "tides"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err,
            "Excel links are one-way: spreadsheet data merges in, but stories are not pushed back "
            "to .xlsx.\n");
  EXPECT_EQ(readFile(doc), beforeRefusal);

  AppState state;
  const auto exported = run(state, {.command = DocumentCommand::exportStory,
                                    .document = doc,
                                    .story = "log",
                                    .files = {dir / "log-copy"}});
  EXPECT_EQ(exported.status, 0) << exported.err;
  EXPECT_TRUE(std::filesystem::exists(dir / "log-copy.docx"));
  EXPECT_EQ(DocumentFile::read(doc), state.document());
  const auto listing = run({.command = DocumentCommand::stories, .document = doc});
  EXPECT_THAT(listing.out, HasSubstr("\tword " + (dir / "log-copy.docx").string() + "\n"));
}

TEST(DocumentCommands, UnknownOrUnlinkedStoryIsAnError) {
  TempDir dir;
  const auto doc = dir / "book.inkharbour";
  writeFile(dir / "log.txt", "one line");
  run({.command = DocumentCommand::newDocument, .document = doc});
  run({.command = DocumentCommand::place, .document = doc, .files = {dir / "log.txt"}});

  const auto unknown = run({.command = DocumentCommand::update, .document = doc, .story = "Logs"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err, "No story named \u201cLogs\u201d in " + doc.string() + ".\n");

  EXPECT_EQ(run({.command = DocumentCommand::unlink, .document = doc, .story = "log"}).status, 0);
  const auto unlinked = run({.command = DocumentCommand::update, .document = doc, .story = "log"});
  EXPECT_EQ(unlinked.status, 2);
  EXPECT_EQ(unlinked.err, "\u201clog\u201d is not linked to a file.\n");
}

TEST(DocumentCommands, AmbiguousNameAsksForTheId) {
  TempDir dir;
  const auto doc = dir / "book.inkharbour";
  std::filesystem::create_directories(dir / "a");
  std::filesystem::create_directories(dir / "b");
  writeFile(dir / "a/notes.txt", "first");
  writeFile(dir / "b/notes.txt", "second");
  run({.command = DocumentCommand::newDocument, .document = doc});
  run({.command = DocumentCommand::place,
       .document = doc,
       .files = {dir / "a/notes.txt", dir / "b/notes.txt"}});

  const auto ambiguous =
      run({.command = DocumentCommand::deleteStory, .document = doc, .story = "notes"});
  EXPECT_EQ(ambiguous.status, 2);
  EXPECT_THAT(ambiguous.err, HasSubstr("2 stories are named \u201cnotes\u201d in " + doc.string() +
                                       "; name one by its id: "));

  const Uuid second = DocumentFile::read(doc).stories.at(1).id;
  EXPECT_EQ(
      run({.command = DocumentCommand::deleteStory, .document = doc, .story = second.string()})
          .status,
      0);
  const auto remaining = DocumentFile::read(doc).stories;
  ASSERT_EQ(remaining.size(), 1u);
  EXPECT_NE(remaining[0].id, second);
}

TEST(DocumentCommands, UndecodableDocumentIsAnError) {
  TempDir dir;
  const auto doc = dir / "broken.inkharbour";
  writeFile(doc, R"({"stories": [{"name": "x", "blocks": [)");
  std::string expected;
  try {
    DocumentFile::read(doc);
  } catch (const DocumentError& error) {
    expected = error.what();
  }
  ASSERT_FALSE(expected.empty());
  const auto result = run({.command = DocumentCommand::stories, .document = doc});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, expected + "\n");
  EXPECT_EQ(result.out, "");
}

}  // namespace
}  // namespace inkharbour
