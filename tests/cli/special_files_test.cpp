// Files that are not what they seem, through the document commands: FIFOs, devices and
// sockets, symbolic links, files gone or unreadable, damaged notes parts, ids used twice.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "cli/document_commands.h"
#include "cli/dump.h"
#include "cli/merge_command.h"
#include "model/document_file.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using enum cli::DocumentCommand;
using ::testing::HasSubstr;
using testing::readFile, testing::writeFile, testing::writePackage;

struct Outcome {
  int status;
  std::string out, err;
};

Outcome run(const fs::path& doc, cli::DocumentRequest request) {
  request.document = doc;
  std::ostringstream out, err;
  const int status = cli::runDocumentCommand(request, out, err);
  return {status, out.str(), err.str()};
}

// Exit status 2 with `message` on err, and the document file as it was.
void expectFailure(const fs::path& doc, const cli::DocumentRequest& request,
                   const std::string& message) {
  const std::string before = readFile(doc);
  const Outcome result = run(doc, request);
  EXPECT_EQ(result.status, 2) << message;
  EXPECT_EQ(result.err, message + "\n");
  EXPECT_EQ(readFile(doc), before) << message;
}

std::string cannot(const std::string& name, const std::string& why) {
  return "The file \u201c" + name + "\u201d couldn\u2019t be " + why;
}
const std::string kNotRegular =
    "opened because it is not a regular file but a pipe, a device or a socket.";

// A document linked to a text, a Word and an Excel file.
struct Project {
  testing::TempDir dir;
  fs::path doc = dir / "book.inkharbour";
  Project() {
    writeFile(dir / "log.txt", "Dawn.");
    writePackage(
        dir / "harbour.docx",
        {{"word/document.xml", testing::documentXml("<w:p><w:r><w:t>Quiet.</w:t></w:r></w:p>")}});
    writePackage(dir / "tides.xlsx",
                 {{"xl/worksheets/sheet1.xml", testing::sheetXml("<row><c><v>12</v></c></row>")}});
    run(doc, {.command = newDocument});
    run(doc,
        {.command = place, .files = {dir / "log.txt", dir / "harbour.docx", dir / "tides.xlsx"}});
  }
  // Hidden files left beside the project's: temporaries.
  int leftovers() const {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(dir.path())) {
      count += entry.path().filename().string().starts_with(".");
    }
    return count;
  }
};

void makeSocket(const fs::path& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(fd);
}

// Nothing that could block or never end is opened: a FIFO, device or socket where a linked
// file, the document or an export was is refused with one message, and unlink still repairs.
TEST(SpecialFiles, FifosDevicesAndSocketsAreRefusedWithoutBlocking) {
  ::alarm(120);  // a regression that blocks ends the program rather than hanging it
  for (const auto make :
       {+[](const fs::path& p) { ASSERT_EQ(::mkfifo(p.c_str(), 0600), 0); },
        +[](const fs::path& p) { fs::create_symlink("/dev/zero", p); }, &makeSocket}) {
    Project project;
    for (const char* name :
         {"log.txt", "harbour.docx", "tides.xlsx", "out.docx", "doc.inkharbour"}) {
      fs::remove(project.dir / name);
      make(project.dir / name);
    }
    const Outcome shown = run(project.doc, {.command = status});
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.out.substr(0, 8) + shown.out.substr(shown.out.find('\n') + 1, 8),
              "missing\tmissing\t");
    for (const std::string file : {"log.txt", "harbour.docx", "tides.xlsx"}) {
      const std::string story = file.substr(0, file.find('.'));
      expectFailure(project.doc, {.command = update, .story = story}, cannot(file, kNotRegular));
      expectFailure(project.doc, {.command = push, .story = story},
                    story == "tides" ? "Excel links are one-way: spreadsheet data merges in, but "
                                       "stories are not pushed back to .xlsx."
                                     : cannot(file, kNotRegular));
    }
    const fs::path out = project.dir / "out.docx";
    expectFailure(project.doc, {.command = exportStory, .story = "log", .files = {out}},
                  cannot("out.docx", kNotRegular));
    expectFailure(project.doc, {.command = link, .story = "log", .files = {out}},
                  cannot("out.docx", kNotRegular));
    for (const auto command : {stories, newDocument}) {
      EXPECT_EQ(run(project.dir / "doc.inkharbour", {.command = command, .force = true}).err,
                cannot("doc.inkharbour", kNotRegular) + "\n");
    }
    for (const char* story : {"log", "harbour", "tides"}) {
      EXPECT_EQ(run(project.doc, {.command = unlink, .story = story}).status, 0) << story;
    }
    EXPECT_EQ(run(project.doc, {.command = status}).status, 0);
    EXPECT_EQ(project.leftovers(), 0);
  }
  EXPECT_EQ(run("/dev/zero", {.command = stories}).err, cannot("zero", kNotRegular) + "\n");
  ::alarm(0);
}

// Saves and pushes through a symbolic link replace the file it names and keep the link.
TEST(SpecialFiles, SavesAndPushesThroughALinkWriteTheFileItNames) {
  Project project;
  const auto& dir = project.dir;
  fs::create_directory(dir / "real");
  for (const char* name : {"book.inkharbour", "log.txt", "harbour.docx"}) {
    fs::rename(dir / name, dir / "real" / name);
    fs::create_symlink(fs::path("real") / name, dir / name);
  }
  ProjectDocument edited = DocumentFile::read(project.doc);
  for (auto& story : edited.stories)
    story.blocks = {Block{.kind = Paragraph::make("Body", "Dusk.")}};
  DocumentFile::write(edited, project.doc);
  EXPECT_EQ(run(project.doc, {.command = push, .story = "log"}).err, "");
  EXPECT_EQ(run(project.doc, {.command = push, .story = "harbour"}).err, "");
  for (const char* name : {"book.inkharbour", "log.txt", "harbour.docx"}) {
    EXPECT_TRUE(fs::is_symlink(dir / name) &&
                fs::is_regular_file(fs::symlink_status(dir / "real" / name)));
  }
  EXPECT_EQ(readFile(dir / "real" / "log.txt"), "Dusk.");
  EXPECT_EQ(testing::dump(DocxReader::read(dir / "real" / "harbour.docx", {})),
            "[Body] \u00abDusk.\u00bb\n");
  const auto base =
      DocumentFile::read(dir / "real" / "book.inkharbour").stories.at(0).link->baseBlocks;
  EXPECT_EQ(std::get<Paragraph>(base.at(0).kind).text(), "Dusk.") << "the push was saved";
  EXPECT_EQ(project.leftovers(), 0);
}

// A Word file gone or unreadable says why (a folder missing for an export is told in
// workflows_test, a file that is no package there too).
TEST(SpecialFiles, AWordFileGoneOrUnreadableSaysWhy) {
  Project project;
  const auto harbour = project.dir / "harbour.docx";
  fs::rename(harbour, project.dir / "moved.docx");
  expectFailure(project.doc, {.command = update, .story = "harbour"},
                cannot("harbour.docx", "opened because there is no such file."));
  fs::rename(project.dir / "moved.docx", harbour);
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not stop root";
  fs::permissions(harbour, fs::perms::none);
  for (const auto command : {update, push}) {
    expectFailure(
        project.doc, {.command = command, .story = "harbour"},
        cannot("harbour.docx", "opened because you don\u2019t have permission to view it."));
  }
}

// A notes part there but damaged is no "every note deleted": status shows the link missing,
// Update Link and a merge name the part, while --dump still shows what it can. So for the
// styles part, which would turn every heading into body text.
TEST(SpecialFiles, ADamagedNotesOrStylesPartIsAnErrorForStatusUpdateAndMerge) {
  testing::TempDir dir;
  const auto doc = dir / "book.inkharbour", docx = dir / "noted.docx";
  const testing::Members good{
      {"word/document.xml", testing::documentXml(R"(<w:p><w:r><w:t>Tide</w:t></w:r><w:r>)"
                                                 R"(<w:footnoteReference w:id="1"/></w:r></w:p>)")},
      {"word/footnotes.xml", testing::notesXml(R"(<w:footnote w:id="1"><w:p><w:r><w:t>High )"
                                               R"(water.</w:t></w:r></w:p></w:footnote>)")}};
  writePackage(docx, good);
  run(doc, {.command = newDocument});
  ASSERT_EQ(run(doc, {.command = place, .files = {docx}}).status, 0);
  for (const bool checksum : {false, true}) {
    testing::Members damaged = good;
    auto& notes = damaged["word/footnotes.xml"];
    if (!checksum) notes.resize(notes.size() - 20);
    writePackage(docx, damaged);
    std::string bytes = readFile(docx);
    if (checksum) {  // the stored CRC, in the local and the central header
      const auto local = bytes.find("word/footnotes.xml"),
                 central = bytes.find("word/footnotes.xml", local + 1);
      bytes[local - 30 + 14] ^= 1;
      bytes[central - 46 + 16] ^= 1;
      writeFile(docx, bytes);
    }
    EXPECT_THAT(run(doc, {.command = status}).out, ::testing::StartsWith("missing\t"));
    const std::string message = checksum ? "Could not open archive: word/footnotes.xml: CRC error"
                                         : "Could not parse the document (word/footnotes.xml).";
    expectFailure(doc, {.command = update, .story = "noted"}, message);
    std::ostringstream out, err;
    EXPECT_EQ(cli::runMerge({.base = docx, .local = docx, .external = docx}, out, err), 2);
    EXPECT_EQ(err.str(), docx.string() + ": " + message + "\n");
    EXPECT_THAT(testing::dump(DocxReader::read(docx, {})),
                ::testing::StartsWith("[Body] \u00abTide\u00bb"));
  }
  testing::Members styled = good;
  styled["word/styles.xml"] = "<w:styles><w:style w:styleId=\"H\">";
  writePackage(docx, styled);
  expectFailure(doc, {.command = update, .story = "noted"},
                "Could not parse the document (word/styles.xml).");
}

// Two stories with one id each keep their own file's status; the renewed ids are told and saved.
TEST(SpecialFiles, IdsUsedTwiceAreRenewedOnOpen) {
  Project project;
  ProjectDocument twice = DocumentFile::read(project.doc);
  twice.stories[1].id = twice.stories[0].id;
  twice.stories[0].blocks.push_back(twice.stories[0].blocks.at(0));
  DocumentFile::write(twice, project.doc);
  writeFile(project.dir / "log.txt", "Dawn, changed.");
  const Outcome shown = run(project.doc, {.command = status});
  EXPECT_THAT(shown.out, ::testing::StartsWith("modified\tlog\t"));
  EXPECT_THAT(shown.out, HasSubstr("\nupToDate\tharbour\t"));
  EXPECT_THAT(shown.err, HasSubstr("\u201charbour\u201d had the id of an earlier story in " +
                                   project.doc.string() + " and got a new one: "));
  EXPECT_THAT(
      shown.err,
      HasSubstr("In \u201clog\u201d, 1 block had the id of an earlier block and got a new one.\n"));
  run(project.doc, {.command = unlink, .story = "tides"});
  const auto saved = DocumentFile::read(project.doc).stories;
  EXPECT_NE(saved[0].id, saved[1].id);
  EXPECT_NE(saved[0].blocks[0].id, saved[0].blocks[1].id);
}

}  // namespace
}  // namespace inkharbour
