// AppState's document operations, selection, change notification, and the
// link statuses as the poll sees them.
#include <gtest/gtest.h>

#include "app/app_state.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::TempDir;
using testing::writeFile;

const Story& story(const AppState& app, std::size_t index) {
  return app.document().stories.at(index);
}

std::optional<LinkStatus> status(const AppState& app, std::size_t index) {
  const auto found = app.linkStatuses().find(story(app, index).id);
  if (found == app.linkStatuses().end()) return std::nullopt;
  return found->second;
}

std::string noSuchFile(const std::string& name) {
  return "The file \u201c" + name + "\u201d couldn\u2019t be opened because there is no such file.";
}

TEST(AppState, NewStoriesTakeTheFirstFreeNameAndAreSelected) {
  AppState app;
  for (int i = 0; i < 3; ++i) app.newStory();
  app.deleteStory(story(app, 1).id);
  app.newStory();
  EXPECT_EQ(story(app, 0).name, "Untitled Story");
  EXPECT_EQ(story(app, 1).name, "Untitled Story 3");
  EXPECT_EQ(story(app, 2).name, "Untitled Story 2");
  EXPECT_EQ(app.selectedStoryIndex(), 2u);
  EXPECT_EQ(app.editorReloadToken(), 4);
  EXPECT_EQ(story(app, 2).blocks.size(), 1u);
  EXPECT_EQ(std::get<Paragraph>(story(app, 2).blocks[0].kind), Paragraph::make("Body", ""));
  app.selectStory(Uuid::random());
  EXPECT_FALSE(app.selectedStoryIndex());
}

TEST(AppState, DeletingTheSelectedStorySelectsTheOneInItsPlaceElseTheOneBefore) {
  AppState app;
  for (int i = 0; i < 4; ++i) app.newStory();  // 1 2 3 4
  const auto first = story(app, 0).id, third = story(app, 2).id;
  app.selectStory(story(app, 1).id);
  app.deleteStory(story(app, 1).id);
  EXPECT_EQ(app.selectedStoryID(), third);
  app.deleteStory(story(app, 2).id);  // story 4, not selected
  EXPECT_EQ(app.selectedStoryID(), third);
  app.deleteStory(third);
  EXPECT_EQ(app.selectedStoryID(), first);
  app.deleteStory(first);
  EXPECT_FALSE(app.selectedStoryID());
}

TEST(AppState, ObserverIsToldBeforeEveryWriteAndOnlyThen) {
  AppState app;
  std::vector<std::size_t> storiesSeen;
  app.setObserver([&] { storiesSeen.push_back(app.document().stories.size()); });
  app.newStory();
  EXPECT_EQ(storiesSeen.at(0), 0u);
  storiesSeen.clear();
  app.selectStory(app.selectedStoryID());
  app.selectStory(app.selectedStoryID());
  app.deleteStory(Uuid::random());
  app.updateFromLinked(story(app, 0).id);  // not linked
  EXPECT_EQ(storiesSeen.size(), 2u);
}

TEST(AppState, StatusFollowsTheLinkedFileNeverLocalEdits) {
  TempDir dir;
  writeFile(dir / "notes.txt", "one");
  AppState app;
  app.place(dir / "notes.txt");
  app.replaceStoryContent(story(app, 0).id, {}, {});
  app.tick();
  EXPECT_EQ(status(app, 0), LinkStatus::upToDate);
  EXPECT_EQ(app.editorReloadToken(), 1);
  writeFile(dir / "notes.txt", "One");
  app.tick();
  EXPECT_EQ(status(app, 0), LinkStatus::modified);
  EXPECT_EQ(app.modifiedLinkCount(), 1u);

  // A file that exists but is no package is missing, and says nothing.
  writeFile(dir / "notes.docx", "one");
  app.place(dir / "absent.docx");
  const auto error = app.lastError();
  app.linkToOriginal(story(app, 0).id, dir / "notes.docx");
  app.tick();
  EXPECT_EQ(status(app, 0), LinkStatus::missing);
  EXPECT_EQ(app.modifiedLinkCount(), 0u);
  EXPECT_EQ(app.lastError(), error);

  app.unlink(story(app, 0).id);
  EXPECT_FALSE(status(app, 0));
  EXPECT_FALSE(story(app, 0).link);
}

TEST(AppState, OpenReplacesTheDocumentAndDecidesEveryLinkAtOnce) {
  TempDir dir;
  writeFile(dir / "a.txt", "alpha");
  writeFile(dir / "b.txt", "beta");
  AppState saved;
  saved.place(dir / "a.txt");
  saved.place(dir / "b.txt");
  saved.saveDocument(dir / "doc.inkharbour");
  ASSERT_FALSE(saved.lastError());
  writeFile(dir / "b.txt", "beta, edited");

  AppState app;
  app.newStory();
  app.openDocument(dir / "doc.inkharbour");
  EXPECT_EQ(app.document(), saved.document());
  EXPECT_EQ(app.selectedStoryIndex(), 0u);
  EXPECT_EQ(app.editorReloadToken(), 2);
  EXPECT_EQ(app.linkStatuses(),
            (std::map<Uuid, LinkStatus>{{story(app, 0).id, LinkStatus::upToDate},
                                        {story(app, 1).id, LinkStatus::modified}}));
}

TEST(AppState, FailedOpenOrSaveKeepsTheDocumentAndSaysWhy) {
  TempDir dir;
  writeFile(
      dir / "two-kinds.inkharbour",
      R"({"stories":[{"name":"S","blocks":[{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
      R"("kind":{"paragraph":{"_0":{"styleName":"Body","runs":[]}},"table":{"_0":{"rows":[]}}}}]}]})");
  const struct {
    std::filesystem::path open, save;
    std::string error;
  } cases[] = {
      {dir / "absent.inkharbour", {}, noSuchFile("absent.inkharbour")},
      {dir / "two-kinds.inkharbour", {}, "Invalid number of keys found, expected one."},
      {{}, dir / "no-folder" / "doc.inkharbour", noSuchFile("doc.inkharbour")},
  };
  for (const auto& c : cases) {
    AppState app;
    app.newStory();
    const auto before = app.document();
    if (!c.open.empty()) app.openDocument(c.open);
    if (!c.save.empty()) app.saveDocument(c.save);
    EXPECT_EQ(app.lastError(), c.error);
    EXPECT_EQ(app.document(), before);
    EXPECT_EQ(app.editorReloadToken(), 1);
  }
}

}  // namespace
}  // namespace inkharbour
