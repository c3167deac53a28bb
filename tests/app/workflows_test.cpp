// The link workflows end to end on real files, and their failures.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "app/app_state.h"
#include "app/link_status.h"
#include "merge/merge_keys.h"
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
      {[&] { app.updateLinkedDocument(stories[0].id); }, noSuchFile("story.docx")},
      {[&] { app.exportStory(stories[2].id, dir / "missing" / "Chapter"); },
       noSuchFile("Chapter.docx")},
      {[&] { app.openDocument(dir / "absent.inkharbour"); }, noSuchFile("absent.inkharbour")},
      {[&] { app.openDocument(dir / "empty.inkharbour"); },
       "The document could not be read: the file is empty."},
      {[&] { app.saveDocument(dir / "missing" / "doc.inkharbour"); }, noSuchFile("doc.inkharbour")},
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

}  // namespace
}  // namespace inkharbour
