#include "cli/document_commands.h"

#include <gtest/gtest.h>

#include <sstream>

#include "app/app_state.h"
#include "cli/dump.h"
#include "model/document_file.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using cli::DocumentCommand, cli::DocumentRequest;
using ::testing::ElementsAre, ::testing::HasSubstr;
using testing::readFile, testing::TempDir, testing::writeFile, testing::writePackage;

struct Run {
  int status;
  std::string out, err;
};

// Runs the request on the document `doc`, with a fresh AppState unless `state` is given; `state`
// holds the document afterwards.
Run run(const fs::path& doc, DocumentRequest request, AppState* state = nullptr) {
  request.document = doc;
  std::ostringstream out, err;
  const int status = state ? cli::runDocumentCommand(*state, request, out, err)
                           : cli::runDocumentCommand(request, out, err);
  return {status, out.str(), err.str()};
}

// Runs a request that must fail: exit status 2, `message` as the one line on err, nothing on
// out, and the document file as it was.
void expectFailure(const fs::path& doc, const DocumentRequest& request,
                   const std::string& message) {
  const std::string before = readFile(doc);
  const Run result = run(doc, request);
  EXPECT_EQ(result.status, 2) << message;
  EXPECT_EQ(result.err, message + "\n");
  EXPECT_EQ(result.out, "") << message;
  EXPECT_EQ(readFile(doc), before) << message;
}

// The exit status of `status`, then the first tab-separated field of each line it prints.
std::vector<std::string> statuses(const fs::path& doc) {
  const Run result = run(doc, {.command = DocumentCommand::status});
  std::vector<std::string> fields{std::to_string(result.status)};
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);)
    fields.push_back(line.substr(0, line.find('\t')));
  return fields;
}

std::string paragraphs(const std::vector<std::string>& texts) {
  std::string body;
  for (const auto& text : texts) body += "<w:p><w:r><w:t>" + text + "</w:t></w:r></w:p>";
  return testing::documentXml(body);
}

// A workbook whose one cell holds `knots`.
void writeWorkbook(const fs::path& path, const std::string& knots) {
  writePackage(path, {{"xl/worksheets/sheet1.xml",
                       testing::sheetXml("<row><c><v>" + knots + "</v></c></row>")}});
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
  expectFailure(doc, {.command = newDocument},
                doc.string() + " already exists; --force replaces it.");
  const auto placed = run(doc, {.command = place, .files = {docx, xlsx, txt}});
  ASSERT_EQ(placed.status, 0) << placed.err;
  EXPECT_THAT(placed.out, HasSubstr("Placed \u201charbour\u201d ("));
  EXPECT_THAT(statuses(doc), ElementsAre("0", "upToDate", "upToDate", "upToDate"));

  // Outside edits to all three files, and a script's edit of the same Word paragraph.
  writePackage(
      docx, {{"word/document.xml",
              paragraphs({"The harbour was quiet.", "Gulls circled the mast.", "Night fell."})}});
  writeWorkbook(xlsx, "15");
  writeFile(txt, "Dawn.\nThe ferry left late.\nDusk.");
  ProjectDocument edited = DocumentFile::read(doc);
  edited.stories.at(0).blocks.at(1).kind = Paragraph::make("Body", "Gulls wheeled.");
  DocumentFile::write(edited, doc);
  EXPECT_THAT(statuses(doc), ElementsAre("1", "modified", "modified", "modified"));

  const std::string noteText =
      "Story Note at block 1: yours \u00abGulls wheeled.\u00bb, external "
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
  EXPECT_THAT(statuses(doc), ElementsAre("0", "upToDate", "upToDate", "upToDate"));

  // The note, listed with its id and dismissed by it in lower case.
  std::string id = DocumentFile::read(doc).stories.at(0).notes.at(0).id.string();
  EXPECT_EQ(run(doc, {.command = notes, .story = "harbour"}).out, id + "\t" + noteText);
  for (auto& c : id) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  EXPECT_EQ(run(doc, {.command = dismissNote, .story = "harbour", .note = id}).status, 0);
  EXPECT_EQ(run(doc, {.command = notes, .story = "harbour"}).out, "");

  // Push refuses to overwrite changes in the file that were never merged;
  // --force writes the story's own content over them.
  writePackage(docx, {{"word/document.xml", paragraphs({"Overwritten."})}});
  expectFailure(doc, {.command = push, .story = "harbour"},
                "\u201charbour.docx\u201d has changes that are not in the story: update first, or "
                "push --force to overwrite them.");
  EXPECT_EQ(run(doc, {.command = push, .story = "harbour", .force = true}).status, 0);
  const Story harbour = DocumentFile::read(doc).stories.at(0);
  std::ostringstream dumped, dumpErr;
  EXPECT_EQ(cli::runDump(docx, dumped, dumpErr), 0);
  EXPECT_EQ(dumped.str(), cli::formatDump({harbour.blocks, harbour.footnotes}));
  // A refused push reports AppState's text.
  expectFailure(doc, {.command = push, .story = "tides"},
                "Excel links are one-way: spreadsheet data merges in, but stories are not pushed "
                "back to .xlsx.");

  AppState state;
  const auto exported =
      run(doc, {.command = exportStory, .story = "log", .files = {dir / "log-copy"}}, &state);
  EXPECT_EQ(exported.status, 0) << exported.err;
  EXPECT_TRUE(fs::exists(dir / "log-copy.docx"));
  EXPECT_EQ(DocumentFile::read(doc), state.document());
  EXPECT_THAT(run(doc, {.command = stories}).out,
              HasSubstr("\tword " + (dir / "log-copy.docx").string() + "\n"));
}

TEST(DocumentCommands, UnknownUnlinkedAmbiguousOrUndecodableIsAnError) {
  using enum DocumentCommand;
  TempDir dir;
  const auto doc = dir / "book.inkharbour", broken = dir / "broken.inkharbour";
  for (const std::string folder : {"a", "b"}) {
    fs::create_directories(dir / folder);
    writeFile(dir / folder / "notes.txt", folder);
  }
  writeFile(dir / "log.txt", "one line");
  writeFile(broken, R"({"stories":{}})");
  run(doc, {.command = newDocument});
  run(doc,
      {.command = place, .files = {dir / "log.txt", dir / "a/notes.txt", dir / "b/notes.txt"}});
  EXPECT_EQ(run(doc, {.command = unlink, .story = "log"}).status, 0);
  // Placing gave "notes 2"; another program's names need not be unique.
  ProjectDocument named = DocumentFile::read(doc);
  named.stories.at(2).name = "notes";
  DocumentFile::write(named, doc);
  const auto placed = named.stories;
  expectFailure(doc, {.command = update, .story = "Logs"},
                "No story named \u201cLogs\u201d in " + doc.string() + ".");
  expectFailure(doc, {.command = update, .story = "log"},
                "\u201clog\u201d is not linked to a file.");
  expectFailure(doc, {.command = deleteStory, .story = "notes"},
                "2 stories are named \u201cnotes\u201d in " + doc.string() +
                    "; name one by its id: " + placed[1].id.string() + ", " +
                    placed[2].id.string() + ".");
  expectFailure(broken, {.command = stories},
                "The document could not be read: \"stories\" is not an array.");

  // An id names one of the stories that share a name.
  EXPECT_EQ(run(doc, {.command = deleteStory, .story = placed[2].id.string()}).status, 0);
  const auto remaining = DocumentFile::read(doc).stories;
  ASSERT_EQ(remaining.size(), 2u);
  EXPECT_NE(remaining[1].id, placed[2].id);
}

// A moved project folder: the next command that saves says which links now
// record their files' new places; relink points a link anywhere.
TEST(DocumentCommands, MovedFolderAndRelink) {
  using enum DocumentCommand;
  TempDir dir;
  fs::create_directory(dir / "before");
  for (const std::string name : {"a.txt", "b.txt"}) writeFile(dir / "before" / name, name);
  const auto first = dir / "before" / "book.inkharbour";
  run(first, {.command = newDocument});
  run(first, {.command = place, .files = {dir / "before" / "a.txt", dir / "before" / "b.txt"}});
  fs::rename(dir / "before", dir / "after");
  fs::rename(dir / "after" / "b.txt", dir / "b2.txt");
  const auto doc = dir / "after" / "book.inkharbour";
  EXPECT_THAT(statuses(doc), ElementsAre("1", "upToDate", "missing"));

  const auto relinked = run(doc, {.command = relink, .story = "b", .files = {dir / "b2.txt"}});
  EXPECT_EQ(relinked.out, "\u201ca\u201d is now linked to " + (dir / "after" / "a.txt").string() +
                              ", where its file moved with the document.\n"
                              "Relinked \u201cb\u201d to " + (dir / "b2.txt").string() +
                              ": upToDate.\n");
  EXPECT_THAT(statuses(doc), ElementsAre("0", "upToDate", "upToDate"));
}

}  // namespace
}  // namespace inkharbour
