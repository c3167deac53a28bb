// The link workflows end to end on real files, and their failures.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "app/app_state.h"
#include "app/link_status.h"
#include "app/merge_forecast.h"
#include "merge/merge_keys.h"
#include "model/document_file.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

using testing::readFile, testing::TempDir, testing::writeFile;
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
  const auto footnotes = footnote.empty() ? std::vector<Footnote>{} : std::vector{note(footnote)};
  DocxWriter::write(paragraphs(lines), footnotes, path);
}

// The story's base holds what its file holds now, and the poll agrees.
void expectInSync(AppState& app, std::size_t index) {
  const Story story = app.document().stories.at(index);
  const auto file = DocxReader::read(story.link.value().path, {});
  EXPECT_EQ(contentDigest(story.link->baseBlocks, story.link->baseFootnotes),
            contentDigest(file.blocks, file.footnotes));
  app.tick();
  EXPECT_EQ(app.linkStatuses().at(story.id), LinkStatus::upToDate);
}

std::string noSuchFile(const std::string& name) {
  return "The file \u201c" + name + "\u201d couldn\u2019t be opened because there is no such file.";
}

std::string noFolder(const std::string& name, const fs::path& folder) {
  return "The file \u201c" + name + "\u201d couldn\u2019t be saved because the folder \u201c" +
         folder.string() + "\u201d doesn\u2019t exist.";
}

TEST(Workflows, PlacedFilesBecomeLinkedStoriesAndPushOrExportMakeTheFileTheBase) {
  TempDir dir;
  writeDocx(dir / "Chapter One.docx", {"It begins."}, "A note.");
  testing::writePackage(dir / "Sales.xlsx", {{"xl/worksheets/sheet1.xml",
                                              testing::sheetXml("<row><c><v>12</v></c></row>")}});
  writeFile(dir / "notes.txt", "one\ntwo");
  const std::tuple<std::string, std::string, LinkKind, Lines> cases[] = {
      {"Chapter One.docx", "Chapter One", LinkKind::word, {"P:It begins."}},
      {"Sales.xlsx", "Sales", LinkKind::excel, {"T:12"}},
      {"notes.txt", "notes", LinkKind::text, {"P:one", "P:two"}}};
  AppState app;
  for (const auto& [file, name, kind, content] : cases) {
    const Date before = now();
    app.place(dir / file);
    const Story& story = app.document().stories.back();
    EXPECT_EQ(story.name, name);
    EXPECT_EQ(keys(story.blocks), content);
    ASSERT_TRUE(story.link);
    EXPECT_GE(story.link->lastSync, before);
    EXPECT_EQ(*story.link, (StoryLink{.path = (dir / file).string(),
                                      .kind = kind,
                                      .baseBlocks = story.blocks,
                                      .baseFootnotes = story.footnotes,
                                      .lastSync = story.link->lastSync}));
    EXPECT_EQ(app.selectedStoryID(), story.id);
    EXPECT_EQ(app.linkStatuses().at(story.id), LinkStatus::upToDate);
  }
  EXPECT_EQ(app.document().stories[0].footnotes, std::vector{note("A note.")});
  EXPECT_EQ(app.editorReloadToken(), 3);

  // Pushed content becomes the base; a text link gets plain text, never a Word package.
  const auto& stories = app.document().stories;
  app.replaceStoryContent(stories[0].id, paragraphs({"It begins.", "Beta, mine"}), {note("Mine.")});
  app.updateLinkedDocument(stories[0].id);
  EXPECT_EQ(stories[0].link->baseBlocks, stories[0].blocks);
  EXPECT_EQ(stories[0].link->baseFootnotes, stories[0].footnotes);
  expectInSync(app, 0);
  auto blocks = paragraphs({"first, bold", "second"});
  std::get<Paragraph>(blocks[0].kind).runs[0].bold = true;
  blocks.push_back(Block{.kind = Table{.rows = {{TableCell{{Paragraph::make("Body", "a")}},
                                                 TableCell{{Paragraph::make("Body", "b")}}}}}});
  app.replaceStoryContent(stories[2].id, blocks, {});
  app.updateLinkedDocument(stories[2].id);
  EXPECT_EQ(readFile(dir / "notes.txt"), "first, bold\nsecond\na\tb");
  expectInSync(app, 2);

  app.newStory();
  app.exportStory(stories[3].id, dir / "Chapter");
  EXPECT_EQ(*stories[3].link, (StoryLink{.path = (dir / "Chapter.docx").string(),
                                         .kind = LinkKind::word,
                                         .baseBlocks = stories[3].blocks,
                                         .lastSync = stories[3].link->lastSync}));
  expectInSync(app, 3);
  EXPECT_FALSE(app.lastError());
}

TEST(Workflows, AFailureLeavesTheDocumentAsItWasAndSaysWhy) {
  TempDir dir;
  fs::create_directory(dir / "gone");
  writeDocx(dir / "gone" / "story.docx", {"Alpha"});
  writeDocx(dir / "broken.docx", {"Alpha"});
  testing::writePackage(dir / "sheet.xlsx", {{"xl/worksheets/sheet1.xml",
                                              testing::sheetXml("<row><c><v>1</v></c></row>")}});
  writeFile(dir / "plain.docx", "not a package");
  writeFile(dir / "latin1.txt", "caf\xe9");
  writeFile(dir / "empty.inkharbour", "");
  AppState app;
  for (const char* name : {"gone/story.docx", "broken.docx", "sheet.xlsx"}) app.place(dir / name);
  const auto& stories = app.document().stories;
  app.replaceStoryContent(stories[2].id, {}, {});  // the sheet story differs from its file
  fs::remove_all(dir / "gone");
  writeFile(dir / "broken.docx", "PK broken");
  const std::string sheet = readFile(dir / "sheet.xlsx");
  const auto before = app.document();
  const std::string kNotAPackage = "Archive is missing word/document.xml \u2014 not a valid file.";
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { app.place(dir / "plain.docx"); }, kNotAPackage},
      {[&] { app.place(dir / "absent.txt"); }, noSuchFile("absent.txt")},
      {[&] { app.place(dir / "latin1.txt"); },
       "The file \u201clatin1.txt\u201d couldn\u2019t be opened using text encoding Unicode "
       "(UTF-8)."},
      {[&] { app.updateFromLinked(stories[1].id); }, kNotAPackage},
      {[&] { app.updateLinkedDocument(stories[2].id); },
       "Excel links are one-way: spreadsheet data merges in, but stories are not pushed back to "
       ".xlsx."},
      {[&] { app.updateLinkedDocument(stories[0].id); }, noFolder("story.docx", dir / "gone")},
      {[&] { app.exportStory(stories[2].id, dir / "missing" / "Chapter"); },
       noFolder("Chapter.docx", dir / "missing")},
      {[&] { app.openDocument(dir / "absent.inkharbour"); }, noSuchFile("absent.inkharbour")},
      {[&] { app.openDocument(dir / "empty.inkharbour"); },
       "The document could not be read: the file is empty."},
      {[&] { app.saveDocument(dir / "missing" / "doc.inkharbour"); },
       noFolder("doc.inkharbour", dir / "missing")},
  };
  for (const auto& [act, error] : cases) {
    app.clearLastError();
    act();
    EXPECT_EQ(app.lastError(), error);
    EXPECT_EQ(app.document(), before) << error;
    EXPECT_EQ(app.editorReloadToken(), 3) << error;
  }
  EXPECT_EQ(readFile(dir / "sheet.xlsx"), sheet);
}

TEST(Workflows, ADocumentTooLargeToOpenAgainIsNeitherGrownNorSaved) {
  TempDir dir;
  writeFile(dir / "a.txt", "A");
  AppState app;
  app.place(dir / "a.txt");
  // One mebibyte shown 3100 times: held once, but over 4 GiB of base64 in the file.
  const Block picture{.kind = ImageBlock{.data = Data(1 << 20, 7), .name = "p.png"}};
  app.replaceStoryContent(app.document().stories[0].id, std::vector<Block>(3100, picture), {});
  const auto before = app.document();
  app.place(dir / "a.txt");
  EXPECT_EQ(app.lastError(), "\u201ca.txt\u201d cannot be placed: the document file would be "
                             "larger than 4 GiB, the most that can be opened again.");
  EXPECT_EQ(app.document(), before);
  app.clearLastError();
  app.saveDocument(dir / "doc.inkharbour");
  EXPECT_EQ(app.lastError(), "The document cannot be saved: its file would be larger than 4 GiB, "
                             "the most that can be opened again.");
  EXPECT_FALSE(fs::exists(dir / "doc.inkharbour"));
}

TEST(UpdateFromLinked, MergesBothSidesAndKeepsLocalTextOfConflictsInNotes) {
  TempDir dir;
  const auto path = dir / "story.docx";
  writeDocx(path, {"Alpha", "Beta", "Gamma", "Delta", "Epsilon"}, "Note.");
  AppState app;
  app.place(path);
  const Story& story = app.document().stories.at(0);
  const Uuid id = story.id;
  // A local edit, an external one, and a conflict, between untouched paragraphs.
  const Lines theirs = {"Alpha", "Beta", "Gamma, theirs", "Delta", "Epsilon, theirs"};
  const Lines mine = {"Alpha, mine", "Beta", "Gamma, mine", "Delta", "Epsilon"};
  app.replaceStoryContent(id, paragraphs(mine), story.footnotes);
  writeDocx(path, theirs, "Note, theirs.");
  app.tick();
  EXPECT_EQ(app.linkStatuses().at(id), LinkStatus::modified);
  const Date before = now();
  app.updateFromLinked(id);
  EXPECT_EQ(keys(story.blocks),
            (Lines{"P:Alpha, mine", "P:Beta", "P:Gamma, theirs", "P:Delta", "P:Epsilon, theirs"}));
  EXPECT_EQ(story.footnotes, std::vector{note("Note, theirs.")});
  ASSERT_EQ(story.notes.size(), 1u);
  EXPECT_EQ(story.notes[0].localText, "Gamma, mine");
  EXPECT_EQ(story.notes[0].externalText, "Gamma, theirs");
  EXPECT_EQ(story.lastMergeReport.size(), 4u);  // three regions, one footnote
  EXPECT_GE(story.link->lastSync, before);
  EXPECT_EQ(app.editorReloadToken(), 2);
  expectInSync(app, 0);

  // A footnote conflict: its note follows the earlier one; the report is this merge's alone.
  const auto firstNote = story.notes[0];
  app.replaceStoryContent(id, story.blocks, {note("Note, mine.")});
  writeDocx(path, theirs, "Note, theirs again.");
  app.updateFromLinked(id);
  ASSERT_EQ(story.notes.size(), 2u);
  EXPECT_EQ(story.notes[0], firstNote);
  EXPECT_EQ(story.notes[1].localText, "Footnote 1: Note, mine.");
  ASSERT_EQ(story.lastMergeReport.size(), 2u);  // "Alpha, mine" kept, then the conflict
  EXPECT_EQ(story.lastMergeReport[1].kind, ChangeRecord::Kind::conflict);
  app.dismissNote(id, firstNote.id);
  EXPECT_EQ(story.notes.size(), 1u);
  EXPECT_FALSE(app.lastError());
}

TEST(UpdateAllLinks, MergesOnlyStoriesWhoseFilesChangedLikeAStoryLinkedToAnOriginal) {
  TempDir dir;
  AppState app;
  for (const std::string name : {"changed.txt", "gone.txt", "same.txt"}) {
    writeFile(dir / name, "text");
    app.place(dir / name);
  }
  // Linked to an original, the story is the base, so the file's differences are modified.
  writeDocx(dir / "original.docx", {"Alpha", "Beta, edited"});
  app.newStory();
  const auto& stories = app.document().stories;
  app.replaceStoryContent(stories[3].id, paragraphs({"Alpha", "Beta"}), {});
  app.linkToOriginal(stories[3].id, dir / "original.docx");
  EXPECT_EQ(stories[3].link->kind, LinkKind::word);
  EXPECT_EQ(stories[3].link->baseBlocks, stories[3].blocks);
  EXPECT_EQ(app.linkStatuses().at(stories[3].id), LinkStatus::modified);

  // A local edit leaves its link up to date; only a changed file is modified.
  app.replaceStoryContent(stories[2].id, paragraphs({"text, mine"}), {});
  writeFile(dir / "changed.txt", "text, theirs");
  fs::remove(dir / "gone.txt");
  app.tick();
  EXPECT_EQ(app.modifiedLinkCount(), 2u);
  const auto before = app.document();
  app.updateAllLinks();
  EXPECT_EQ(keys(stories[0].blocks), Lines{"P:text, theirs"});
  EXPECT_EQ(stories[1], before.stories[1]);
  EXPECT_EQ(stories[2], before.stories[2]);
  EXPECT_EQ(keys(stories[3].blocks), (Lines{"P:Alpha", "P:Beta, edited"}));
  EXPECT_EQ(app.editorReloadToken(), 6);  // four new stories, two merges
  EXPECT_EQ(app.modifiedLinkCount(), 0u);

  // A file that is there but no package is missing, and deciding so is no error.
  writeFile(dir / "broken.xlsx", "not a package");
  app.linkToOriginal(stories[3].id, dir / "broken.xlsx");
  EXPECT_EQ(stories[3].link->kind, LinkKind::excel);
  EXPECT_EQ(app.linkStatuses().at(stories[3].id), LinkStatus::missing);
  EXPECT_FALSE(app.lastError());
  app.unlink(stories[3].id);
  EXPECT_FALSE(stories[3].link);
  EXPECT_FALSE(app.linkStatuses().contains(stories[3].id));
}


// A project folder moved with its linked files: each link is found at the same
// place relative to the document, and the next save stores the new path.
TEST(MovedDocument, LinksAreFoundBesideItAndTheNextSaveStoresTheirPaths) {
  TempDir dir;
  const auto before = dir / "before", after = dir / "after";
  fs::create_directories(before / "sources");
  writeDocx(before / "one.docx", {"Alpha"});
  writeFile(before / "sources" / "two.txt", "beta");
  {
    AppState app;
    app.place(before / "one.docx");
    app.place(before / "sources" / "two.txt");
    app.saveDocument(before / "book.inkharbour");
  }
  fs::rename(before, after);
  fs::rename(after / "sources" / "two.txt", dir / "two.txt");  // not synced yet

  AppState app;
  app.openDocument(after / "book.inkharbour");
  const auto& stories = app.document().stories;
  EXPECT_EQ(stories[0].link->path, (after / "one.docx").string());
  EXPECT_EQ(app.linkStatuses().at(stories[0].id), LinkStatus::upToDate);
  EXPECT_EQ(app.linkStatuses().at(stories[1].id), LinkStatus::missing);
  EXPECT_EQ(app.relocatedLinks(), std::vector{stories[0].id});

  // The window's poll finds the file once it arrives, and reads it there.
  writeFile(after / "sources" / "two.txt", "beta, theirs");
  for (const auto& request : app.pollWithoutReading()) {
    if (request.ticket.storyID == stories[1].id) {
      EXPECT_EQ(request.ticket.path, after / "sources" / "two.txt");
    }
    app.applyLinkRead(AppState::readLinkedFile(request));
  }
  EXPECT_EQ(app.linkStatuses().at(stories[1].id), LinkStatus::modified);
  app.updateFromLinked(stories[1].id);
  EXPECT_EQ(keys(stories[1].blocks), Lines{"P:beta, theirs"});

  app.saveDocument(after / "book.inkharbour");
  EXPECT_TRUE(app.relocatedLinks().empty());
  ProjectDocument saved = DocumentFile::read(after / "book.inkharbour");
  EXPECT_EQ(saved, app.document());
  EXPECT_EQ(saved.documentFolder, after.string());

  // A file written before documents recorded their folder opens and
  // round-trips unchanged; its links are taken as they stand.
  saved.documentFolder.reset();
  saved.stories[0].link->path = (before / "one.docx").string();
  const std::string bytes = DocumentFile::encode(saved);
  writeFile(after / "old.inkharbour", bytes);
  app.openDocument(after / "old.inkharbour");
  EXPECT_EQ(app.document(), saved);
  EXPECT_EQ(app.linkStatuses().at(stories[0].id), LinkStatus::missing);
  EXPECT_EQ(DocumentFile::encode(app.document()), bytes);
}

TEST(Relink, KeepsTheBaseSoUpdateStillMergesThreeWays) {
  TempDir dir;
  writeDocx(dir / "story.docx", {"Alpha", "Beta"});
  AppState app;
  app.place(dir / "story.docx");
  const Story& story = app.document().stories.at(0);
  StoryLink link = *story.link;
  app.replaceStoryContent(story.id, paragraphs({"Alpha, mine", "Beta"}), {});
  fs::remove(dir / "story.docx");
  writeDocx(dir / "moved.docx", {"Alpha", "Beta, theirs"});
  app.relink(story.id, dir / "moved.docx");
  link.path = (dir / "moved.docx").string();
  EXPECT_EQ(*story.link, link);
  EXPECT_EQ(app.linkStatuses().at(story.id), LinkStatus::modified);
  app.updateFromLinked(story.id);
  EXPECT_EQ(keys(story.blocks), (Lines{"P:Alpha, mine", "P:Beta, theirs"}));
  EXPECT_TRUE(story.notes.empty());
}

TEST(Place, AFileNamedLikeAStoryGetsTheFirstFreeNumber) {
  TempDir dir;
  writeFile(dir / "chapter.txt", "text");
  AppState app;
  for (int i = 0; i < 3; ++i) app.place(dir / "chapter.txt");
  app.renameStory(app.document().stories[0].id, "prologue");
  app.place(dir / "chapter.txt");
  Lines names;
  for (const auto& story : app.document().stories) names.push_back(story.name);
  EXPECT_EQ(names, (Lines{"prologue", "chapter 2", "chapter 3", "chapter"}));
}

// Another program's save renumbers notes (LibreOffice from 2, Word after an inserted one):
// they stay the notes they were, marks included.
struct Cited {
  std::string text;
  std::int64_t id;
  std::string note;
};

std::vector<Block> citing(const std::vector<Cited>& paragraphs) {
  std::vector<Block> out;
  for (const auto& p : paragraphs) {
    out.push_back(
        Block{.kind = Paragraph{.styleName = "Body",
                                .runs = {{.text = p.text}, TextRun::footnoteReference(p.id)}}});
  }
  return out;
}

void writeCited(const fs::path& path, const std::vector<Cited>& paragraphs) {
  std::vector<Footnote> notes;
  for (const auto& p : paragraphs) {
    notes.push_back({.id = p.id, .paragraphs = {Paragraph::make("Body", p.note)}});
  }
  DocxWriter::write(citing(paragraphs), notes, path);
}

// "1 A|2 B": the story's notes with their numbers.
std::string notesOf(const Story& story) {
  std::string out;
  for (const auto& note : story.footnotes) {
    out += (out.empty() ? "" : "|") + std::to_string(note.id) + " " + note.text();
  }
  return out;
}

TEST(UpdateFromLinked, NotesRenumberedByAnotherProgramAreTheNotesTheyWere) {
  TempDir dir;
  const auto path = dir / "story.docx";
  writeCited(path, {{"One", 1, "A"}, {"Two", 2, "B"}});
  AppState app;
  app.place(path);
  const Story& story = app.document().stories.at(0);
  const Uuid id = story.id;
  const auto updated = [&](LinkStatus status) {
    app.tick();
    EXPECT_EQ(app.linkStatuses().at(id), status);
    app.updateFromLinked(id);
    app.tick();
    EXPECT_EQ(app.linkStatuses().at(id), LinkStatus::upToDate);
    EXPECT_TRUE(story.notes.empty());
  };

  // Saved again with no edit: nothing to merge, nothing recorded or changed.
  writeCited(path, {{"One", 2, "A"}, {"Two", 3, "B"}});
  EXPECT_EQ(describe(*runForecast(*forecastRequest(app.document(), id))), "no changes to merge");
  const Story before = story;
  updated(LinkStatus::upToDate);
  EXPECT_TRUE(story.lastMergeReport.empty());
  EXPECT_EQ(story.blocks, before.blocks);
  EXPECT_EQ(story.footnotes, before.footnotes);

  // A co-author's edit of one note merges in beside local edits of the other note and of
  // a paragraph that cites one.
  app.replaceStoryContent(
      id, citing({{"One, mine", 1, ""}, {"Two", 2, ""}}),
      {note("A"), {.id = 2, .paragraphs = {Paragraph::make("Body", "B, mine")}}});
  writeCited(path, {{"One", 2, "A, theirs"}, {"Two", 3, "B"}});
  updated(LinkStatus::modified);
  EXPECT_EQ(keys(story.blocks), (Lines{"P:One, mine[1]", "P:Two[2]"}));
  EXPECT_EQ(notesOf(story), "1 A, theirs|2 B, mine");

  // A note inserted before the first is one note added; the others keep their numbers.
  writeCited(path, {{"Zero", 1, "New"}, {"One", 2, "A, theirs"}, {"Two", 3, "B"}});
  updated(LinkStatus::modified);
  EXPECT_EQ(keys(story.blocks), (Lines{"P:Zero[3]", "P:One, mine[1]", "P:Two[2]"}));
  EXPECT_EQ(notesOf(story), "1 A, theirs|2 B, mine|3 New");
  EXPECT_EQ(keys(story.link->baseBlocks), (Lines{"P:Zero[3]", "P:One[1]", "P:Two[2]"}));
}

}  // namespace
}  // namespace inkharbour
