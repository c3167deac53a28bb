// The link workflows end to end on real files: place, update (merge), push,
// export, link to original and update all; and their failures, which leave
// the story as it was and say why in the user's words.
#include <gtest/gtest.h>

#include "app/app_state.h"
#include "app/link_status.h"
#include "merge/merge_keys.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

using testing::TempDir;
using testing::writeFile;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::vector<Block> paragraphs(const Lines& texts) {
  std::vector<Block> out;
  for (const auto& text : texts) out.push_back(Block{.kind = Paragraph::make("Body", text)});
  return out;
}

Lines keys(const std::vector<Block>& blocks) {
  Lines out;
  for (const auto& block : blocks) out.push_back(MergeEngine::mergeKey(block));
  return out;
}

Footnote note(const std::string& text) {
  return {.id = 1, .paragraphs = {Paragraph::make("Body", text)}};
}

void writeDocx(const fs::path& path, const Lines& lines, const std::string& footnote = "") {
  DocxWriter::write(paragraphs(lines),
                    footnote.empty() ? std::vector<Footnote>{} : std::vector{note(footnote)}, path);
}

const Story& last(const AppState& app) {
  return app.document().stories.back();
}

LinkStatus statusOf(const AppState& app, const Uuid& id) {
  return app.linkStatuses().at(id);
}

// The link's base holds what the file holds now, and the poll agrees.
void expectInSync(AppState& app, const Uuid& id) {
  const StoryLink& link = *app.document().stories.back().link;
  const auto file = DocxReader::read(link.path, {});
  EXPECT_EQ(contentDigest(link.baseBlocks, link.baseFootnotes),
            contentDigest(file.blocks, file.footnotes));
  app.tick();
  EXPECT_EQ(statusOf(app, id), LinkStatus::upToDate);
}

std::string noSuchFile(const std::string& name) {
  return "The file \u201c" + name + "\u201d couldn\u2019t be opened because there is no such file.";
}

const std::string kNotAPackage = "Archive is missing word/document.xml \u2014 not a valid file.";

TEST(Place, WordExcelAndTextFilesBecomeLinkedSelectedStories) {
  TempDir dir;
  writeDocx(dir / "Chapter One.docx", {"It begins."}, "A note.");
  testing::writePackage(dir / "Sales.xlsx", {{"xl/worksheets/sheet1.xml",
                                              testing::sheetXml("<row><c><v>12</v></c></row>")}});
  writeFile(dir / "notes.txt", "one\ntwo");
  const struct {
    std::string file, name;
    LinkKind kind;
    Lines content;
  } cases[] = {{"Chapter One.docx", "Chapter One", LinkKind::word, {"P:It begins."}},
               {"Sales.xlsx", "Sales", LinkKind::excel, {"T:12"}},
               {"notes.txt", "notes", LinkKind::text, {"P:one", "P:two"}}};
  AppState app;
  for (const auto& c : cases) {
    const Date before = now();
    app.place(dir / c.file);
    const Story& story = last(app);
    EXPECT_EQ(story.name, c.name);
    EXPECT_EQ(keys(story.blocks), c.content);
    ASSERT_TRUE(story.link);
    EXPECT_EQ(story.link->path, (dir / c.file).string());
    EXPECT_EQ(story.link->kind, c.kind);
    EXPECT_EQ(story.link->baseBlocks, story.blocks);
    EXPECT_EQ(story.link->baseFootnotes, story.footnotes);
    EXPECT_GE(story.link->lastSync, before);
    EXPECT_EQ(app.selectedStoryID(), story.id);
    EXPECT_EQ(statusOf(app, story.id), LinkStatus::upToDate);
  }
  EXPECT_EQ(app.document().stories[0].footnotes, std::vector{note("A note.")});
  EXPECT_EQ(app.editorReloadToken(), 3);
  EXPECT_FALSE(app.lastError());
}

TEST(Workflows, AFailureLeavesTheDocumentAsItWasAndSaysWhy) {
  using Act = void (*)(AppState&, const TempDir&);
  const struct {
    const char* name;
    Act act;
    std::string error;
  } cases[] = {
      {"place no package", [](AppState& a, const TempDir& d) { a.place(d / "plain.docx"); },
       kNotAPackage},
      {"place absent text", [](AppState& a, const TempDir& d) { a.place(d / "absent.txt"); },
       noSuchFile("absent.txt")},
      {"place Latin-1 text", [](AppState& a, const TempDir& d) { a.place(d / "latin1.txt"); },
       "The file \u201clatin1.txt\u201d couldn\u2019t be opened using text encoding Unicode "
       "(UTF-8)."},
      {"update from a broken file",
       [](AppState& a, const TempDir& d) {
         writeFile(d / "story.docx", "PK broken");
         a.updateFromLinked(a.document().stories[0].id);
       },
       kNotAPackage},
      {"push to Excel", [](AppState& a, const TempDir&) { a.updateLinkedDocument(last(a).id); },
       "Excel links are one-way: spreadsheet data merges in, but stories are not pushed back to "
       ".xlsx."},
      {"push to a vanished folder",
       [](AppState& a, const TempDir& d) {
         fs::remove_all(d.path());
         a.updateLinkedDocument(a.document().stories[0].id);
       },
       noSuchFile("story.docx")},
      {"export to a missing folder",
       [](AppState& a, const TempDir& d) { a.exportStory(last(a).id, d / "missing" / "Chapter"); },
       noSuchFile("Chapter.docx")},
  };
  for (const auto& c : cases) {
    TempDir dir;
    writeDocx(dir / "story.docx", {"Alpha"});
    testing::writePackage(dir / "sheet.xlsx", {{"xl/worksheets/sheet1.xml",
                                                testing::sheetXml("<row><c><v>1</v></c></row>")}});
    writeFile(dir / "plain.docx", "not a package");
    writeFile(dir / "latin1.txt", "caf\xe9");
    const std::string sheet = testing::readFile(dir / "sheet.xlsx");
    AppState app;
    app.place(dir / "story.docx");
    app.place(dir / "sheet.xlsx");
    app.replaceStoryContent(last(app).id, {}, {});
    const auto before = app.document();
    c.act(app, dir);
    EXPECT_EQ(app.lastError(), c.error) << c.name;
    EXPECT_EQ(app.document(), before) << c.name;
    EXPECT_EQ(app.editorReloadToken(), 2) << c.name;
    if (fs::exists(dir / "sheet.xlsx")) {
      EXPECT_EQ(testing::readFile(dir / "sheet.xlsx"), sheet);
    }
  }
}

TEST(UpdateFromLinked, MergesBothSidesAndKeepsLocalTextOfConflictsInNotes) {
  TempDir dir;
  const auto path = dir / "story.docx";
  writeDocx(path, {"Alpha", "Beta", "Gamma", "Delta", "Epsilon"}, "Note.");
  AppState app;
  app.place(path);
  const Uuid id = last(app).id;

  // A local edit, an external one, and a conflict, between paragraphs that
  // neither side touched.
  const Lines theirs = {"Alpha", "Beta", "Gamma, theirs", "Delta", "Epsilon, theirs"};
  app.replaceStoryContent(id,
                          paragraphs({"Alpha, mine", "Beta", "Gamma, mine", "Delta", "Epsilon"}),
                          last(app).footnotes);
  writeDocx(path, theirs, "Note, theirs.");
  app.tick();
  EXPECT_EQ(statusOf(app, id), LinkStatus::modified);
  const Date before = now();
  app.updateFromLinked(id);
  EXPECT_EQ(keys(last(app).blocks),
            (Lines{"P:Alpha, mine", "P:Beta", "P:Gamma, theirs", "P:Delta", "P:Epsilon, theirs"}));
  EXPECT_EQ(last(app).footnotes, std::vector{note("Note, theirs.")});
  ASSERT_EQ(last(app).notes.size(), 1u);
  EXPECT_EQ(last(app).notes[0].localText, "Gamma, mine");
  EXPECT_EQ(last(app).notes[0].externalText, "Gamma, theirs");
  EXPECT_EQ(last(app).lastMergeReport.size(), 4u);  // three regions, one footnote
  EXPECT_GE(last(app).link->lastSync, before);
  EXPECT_EQ(app.editorReloadToken(), 2);
  expectInSync(app, id);

  // A footnote conflict: its note follows the earlier one, and the report is
  // this merge's alone, footnote records last.
  const auto firstNote = last(app).notes[0];
  app.replaceStoryContent(id, last(app).blocks, {note("Note, mine.")});
  writeDocx(path, theirs, "Note, theirs again.");
  app.updateFromLinked(id);
  ASSERT_EQ(last(app).notes.size(), 2u);
  EXPECT_EQ(last(app).notes[0], firstNote);
  EXPECT_EQ(last(app).notes[1].localText, "Footnote 1: Note, mine.");
  ASSERT_EQ(last(app).lastMergeReport.size(), 2u);  // "Alpha, mine" kept, the conflict
  EXPECT_EQ(last(app).lastMergeReport[1].kind, ChangeRecord::Kind::conflict);

  app.dismissNote(id, firstNote.id);
  EXPECT_EQ(last(app).notes.size(), 1u);
  EXPECT_FALSE(app.lastError());
}

TEST(UpdateLinkedDocument, PushedContentBecomesTheBase) {
  TempDir dir;
  writeDocx(dir / "story.docx", {"Alpha"});
  AppState app;
  app.place(dir / "story.docx");
  const Uuid id = last(app).id;
  app.replaceStoryContent(id, paragraphs({"Alpha", "Beta, mine"}), {note("Mine.")});
  app.updateLinkedDocument(id);
  EXPECT_FALSE(app.lastError());
  EXPECT_EQ(last(app).link->baseBlocks, last(app).blocks);
  EXPECT_EQ(last(app).link->baseFootnotes, last(app).footnotes);
  expectInSync(app, id);
}

TEST(UpdateLinkedDocument, ATextLinkGetsPlainTextNeverAWordPackage) {
  TempDir dir;
  writeFile(dir / "notes.txt", "first\nsecond");
  AppState app;
  app.place(dir / "notes.txt");
  const Uuid id = last(app).id;
  auto blocks = paragraphs({"first, bold", "second"});
  std::get<Paragraph>(blocks[0].kind).runs[0].bold = true;
  blocks.push_back(Block{.kind = Table{.rows = {{TableCell{{Paragraph::make("Body", "a")}},
                                                 TableCell{{Paragraph::make("Body", "b")}}}}}});
  app.replaceStoryContent(id, blocks, {});
  app.updateLinkedDocument(id);
  EXPECT_FALSE(app.lastError());
  EXPECT_EQ(testing::readFile(dir / "notes.txt"), "first, bold\nsecond\na\tb");
  // The base is what the file now reads as, so the link is honestly up to date.
  expectInSync(app, id);
}

TEST(ExportStory, WritesAWordDocumentAndLinksTheStoryToIt) {
  TempDir dir;
  AppState app;
  app.newStory();
  const Uuid id = last(app).id;
  app.exportStory(id, dir / "Chapter");
  EXPECT_EQ(last(app).link->path, (dir / "Chapter.docx").string());
  EXPECT_EQ(last(app).link->kind, LinkKind::word);
  EXPECT_EQ(last(app).link->baseBlocks, last(app).blocks);
  expectInSync(app, id);
}

TEST(LinkToOriginal, TheStoryIsTheBaseSoTheFilesDifferencesAreModified) {
  TempDir dir;
  writeDocx(dir / "original.docx", {"Alpha", "Beta, edited"});
  AppState app;
  app.newStory();
  const Uuid id = last(app).id;
  app.replaceStoryContent(id, paragraphs({"Alpha", "Beta"}), {});
  app.linkToOriginal(id, dir / "original.docx");
  EXPECT_EQ(last(app).link->kind, LinkKind::word);
  EXPECT_EQ(last(app).link->baseBlocks, last(app).blocks);
  EXPECT_EQ(statusOf(app, id), LinkStatus::modified);
  app.updateFromLinked(id);
  EXPECT_EQ(keys(last(app).blocks), (Lines{"P:Alpha", "P:Beta, edited"}));

  app.linkToOriginal(id, dir / "absent.xlsx");
  EXPECT_EQ(last(app).link->kind, LinkKind::excel);
  EXPECT_EQ(statusOf(app, id), LinkStatus::missing);
  EXPECT_FALSE(app.lastError());
}

TEST(UpdateAllLinks, MergesOnlyModifiedStories) {
  TempDir dir;
  AppState app;
  for (const std::string name : {"changed.txt", "gone.txt", "same.txt"}) {
    writeFile(dir / name, "text");
    app.place(dir / name);
  }
  const auto& stories = app.document().stories;
  app.replaceStoryContent(stories[2].id, paragraphs({"text, mine"}), {});
  writeFile(dir / "changed.txt", "text, theirs");
  fs::remove(dir / "gone.txt");
  app.tick();
  const auto before = app.document();
  app.updateAllLinks();
  EXPECT_EQ(keys(stories[0].blocks), Lines{"P:text, theirs"});
  EXPECT_EQ(stories[1], before.stories[1]);
  EXPECT_EQ(stories[2], before.stories[2]);
  EXPECT_EQ(app.editorReloadToken(), 4);
  EXPECT_EQ(app.modifiedLinkCount(), 0u);
  EXPECT_FALSE(app.lastError());
}

}  // namespace
}  // namespace inkharbour
