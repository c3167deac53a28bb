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
  std::string out, err;
};

// Runs the request on the document `doc`; `state` holds the document afterwards.
Run run(AppState& state, const std::filesystem::path& doc, DocumentRequest request) {
  request.document = doc;
  std::ostringstream out, err;
  const int status = cli::runDocumentCommand(state, request, out, err);
  return {status, out.str(), err.str()};
}

Run run(const std::filesystem::path& doc, const DocumentRequest& request) {
  AppState state;
  return run(state, doc, request);
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
                                         R"(<c r="B1" t="s"><v>1</v></c></row><row r="2">)"
                                         R"(<c r="A2" t="inlineStr"><is><t>NW</t></is></c>)"
                                         R"(<c r="B2"><v>)" + knots + "</v></c></row>")}});
}

// A whole working session: place, edit on both sides, status, update with a conflict, notes,
// push, export; then the saved file must hold exactly what the application held.
TEST(DocumentCommands, PlaceEditUpdatePushExportCycle) {
  using enum DocumentCommand;
  TempDir dir;
  const auto doc = dir / "book.inkharbour", docx = dir / "harbour.docx", xlsx = dir / "tides.xlsx",
             txt = dir / "log.txt";
  writePackage(docx, {{"word/document.xml",
                       paragraphs({"The harbour was quiet.", "Gulls circled.", "Night fell."})}});
  writeWorkbook(xlsx, "12");
  writeFile(txt, "Dawn.\nThe ferry left.\nDusk.");

  EXPECT_EQ(run(doc, {.command = newDocument}).status, 0);
  const auto again = run(doc, {.command = newDocument});
  EXPECT_EQ(again.status, 2);
  EXPECT_EQ(again.err, doc.string() + " already exists; --force replaces it.\n");
  const auto placed = run(doc, {.command = place, .files = {docx, xlsx, txt}});
  ASSERT_EQ(placed.status, 0) << placed.err;
  EXPECT_THAT(placed.out, HasSubstr("Placed \u201charbour\u201d ("));
  std::vector<std::string> names;
  for (const auto& story : DocumentFile::read(doc).stories) names.push_back(story.name);
  EXPECT_THAT(names, ElementsAre("harbour", "tides", "log"));
  const auto fresh = run(doc, {.command = status});
  EXPECT_EQ(fresh.status, 0);
  EXPECT_THAT(firstFields(fresh.out), ElementsAre("upToDate", "upToDate", "upToDate"));

  // Outside edits to all three files, and a script's edit of the same Word paragraph.
  writePackage(docx, {{"word/document.xml",
                       paragraphs({"The harbour was quiet.", "Gulls circled the mast.",
                                   "Night fell."})}});
  writeWorkbook(xlsx, "15");
  writeFile(txt, "Dawn.\nThe ferry left late.\nDusk.");
  ProjectDocument edited = DocumentFile::read(doc);
  edited.stories.at(0).blocks.at(1).kind = Paragraph::make("Body", "Gulls wheeled.");
  DocumentFile::write(edited, doc);
  const auto changed = run(doc, {.command = status});
  EXPECT_EQ(changed.status, 1);
  EXPECT_THAT(firstFields(changed.out), ElementsAre("modified", "modified", "modified"));

  const std::string noteText = "Story Note at block 1: yours \u00abGulls wheeled.\u00bb, external "
                               "\u00abGulls circled the mast.\u00bb\n";
  const auto merged = run(doc, {.command = update, .story = "harbour"});
  EXPECT_EQ(merged.status, 1) << merged.err;
  EXPECT_THAT(merged.out, HasSubstr("conflict: "));
  EXPECT_THAT(merged.out, HasSubstr(noteText));
  EXPECT_THAT(run(doc, {.command = report, .story = "harbour", .json = true}).out,
              HasSubstr("\"kind\" : \"conflict\""));
  const auto rest = run(doc, {.command = updateAll});
  EXPECT_EQ(rest.status, 0) << rest.err;
  EXPECT_THAT(rest.out, HasSubstr("Updated \u201ctides\u201d:\n  "));
  EXPECT_THAT(rest.out, HasSubstr("Updated \u201clog\u201d:\n  "));
  EXPECT_THAT(rest.out, ::testing::Not(HasSubstr("harbour")));
  const auto settled = run(doc, {.command = status});
  EXPECT_EQ(settled.status, 0);
  EXPECT_THAT(firstFields(settled.out), ElementsAre("upToDate", "upToDate", "upToDate"));

  // The note, listed with its id and dismissed by it in lower case.
  std::string id = DocumentFile::read(doc).stories.at(0).notes.at(0).id.string();
  EXPECT_EQ(run(doc, {.command = notes, .story = "harbour"}).out, id + "\t" + noteText);
  for (auto& c : id) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  EXPECT_EQ(run(doc, {.command = dismissNote, .story = "harbour", .note = id}).status, 0);
  EXPECT_EQ(run(doc, {.command = notes, .story = "harbour"}).out, "");

  // Push writes the story's own content over the Word file.
  EXPECT_EQ(run(doc, {.command = push, .story = "harbour"}).status, 0);
  const Story harbour = DocumentFile::read(doc).stories.at(0);
  std::ostringstream dumped, dumpErr;
  EXPECT_EQ(cli::runDump(docx, dumped, dumpErr), 0);
  EXPECT_EQ(dumped.str(), cli::formatDump({harbour.blocks, harbour.footnotes}));
  EXPECT_THAT(dumped.str(), HasSubstr("Gulls circled the mast."));
  // A refused push reports AppState's text and leaves the file alone.
  const std::string beforeRefusal = readFile(doc);
  const auto refused = run(doc, {.command = push, .story = "tides"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err,
            "Excel links are one-way: spreadsheet data merges in, but stories are not pushed back "
            "to .xlsx.\n");
  EXPECT_EQ(readFile(doc), beforeRefusal);

  AppState state;
  const auto exported =
      run(state, doc, {.command = exportStory, .story = "log", .files = {dir / "log-copy"}});
  EXPECT_EQ(exported.status, 0) << exported.err;
  EXPECT_TRUE(std::filesystem::exists(dir / "log-copy.docx"));
  EXPECT_EQ(DocumentFile::read(doc), state.document());
  EXPECT_THAT(run(doc, {.command = stories}).out,
              HasSubstr("\tword " + (dir / "log-copy.docx").string() + "\n"));
}

TEST(DocumentCommands, UnknownUnlinkedAmbiguousOrUndecodableIsAnError) {
  using enum DocumentCommand;
  TempDir dir;
  const auto doc = dir / "book.inkharbour";
  std::filesystem::create_directories(dir / "a");
  std::filesystem::create_directories(dir / "b");
  writeFile(dir / "a/notes.txt", "first");
  writeFile(dir / "b/notes.txt", "second");
  writeFile(dir / "log.txt", "one line");
  run(doc, {.command = newDocument});
  run(doc,
      {.command = place, .files = {dir / "log.txt", dir / "a/notes.txt", dir / "b/notes.txt"}});

  const auto unknown = run(doc, {.command = update, .story = "Logs"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err, "No story named \u201cLogs\u201d in " + doc.string() + ".\n");
  EXPECT_EQ(run(doc, {.command = unlink, .story = "log"}).status, 0);
  const auto unlinked = run(doc, {.command = update, .story = "log"});
  EXPECT_EQ(unlinked.status, 2);
  EXPECT_EQ(unlinked.err, "\u201clog\u201d is not linked to a file.\n");

  const auto ambiguous = run(doc, {.command = deleteStory, .story = "notes"});
  EXPECT_EQ(ambiguous.status, 2);
  EXPECT_THAT(ambiguous.err,
              HasSubstr("2 stories are named \u201cnotes\u201d in " + doc.string() +
                        "; name one by its id: "));
  const Uuid second = DocumentFile::read(doc).stories.at(2).id;
  EXPECT_EQ(run(doc, {.command = deleteStory, .story = second.string()}).status, 0);
  const auto remaining = DocumentFile::read(doc).stories;
  ASSERT_EQ(remaining.size(), 2u);
  EXPECT_NE(remaining[1].id, second);

  writeFile(doc, R"({"stories":{}})");
  const auto broken = run(doc, {.command = stories});
  EXPECT_EQ(broken.status, 2);
  EXPECT_EQ(broken.err, "The document could not be read: \"stories\" is not an array.\n");
  EXPECT_EQ(broken.out, "");
}

}  // namespace
}  // namespace inkharbour
