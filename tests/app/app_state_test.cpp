// AppState's document operations, selection, change notification, and restoring snapshots.
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

TEST(AppState, NewStoriesTakeTheFirstFreeNameAndDeletingMovesTheSelectionToANeighbour) {
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

  app.newStory();  // stories a b c d; b selected and deleted selects c, in its place
  const auto a = story(app, 0).id, c = story(app, 2).id;
  app.selectStory(story(app, 1).id);
  app.deleteStory(story(app, 1).id);
  EXPECT_EQ(app.selectedStoryID(), c);
  app.deleteStory(story(app, 2).id);  // d, not selected
  EXPECT_EQ(app.selectedStoryID(), c);
  app.deleteStory(c);  // the last: the one before
  EXPECT_EQ(app.selectedStoryID(), a);
  app.deleteStory(a);
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

// What undo rests on: a snapshot restored gives back the exact document.
TEST(AppState, RestoringSnapshotsUndoesUpdatesDeletionsAndPlacesExactly) {
  TempDir dir;
  writeFile(dir / "a.txt", "one\ntwo\nthree");
  AppState app;
  app.newStory();
  app.place(dir / "a.txt");
  app.newStory();
  const ProjectDocument start = app.document();
  const Uuid linked = story(app, 1).id;

  // Update Link undone: blocks, notes, report, base and lastSync come back,
  // and the link shows modified again.
  app.replaceBlocks(linked, 1, 1, {Block{.kind = Paragraph::make("Body", "mine")}});
  writeFile(dir / "a.txt", "one\ntheirs\nthree");
  app.refreshAllLinkStatuses();
  const ProjectDocument beforeUpdate = app.document();
  const auto before = app.snapshot({linked});
  app.updateFromLinked(linked);
  ASSERT_EQ(story(app, 1).notes.size(), 1u);
  const auto after = app.snapshot({linked});
  app.restore(before);
  EXPECT_EQ(app.document(), beforeUpdate);
  EXPECT_EQ(app.linkStatuses().at(linked), LinkStatus::modified);
  app.restore(after);
  EXPECT_EQ(app.linkStatuses().at(linked), LinkStatus::upToDate);
  app.restore(before);

  // A deleted story comes back at its place; a placed one goes again.
  const auto ids = app.storyIDs();
  const auto deleted = app.snapshot({ids[0]});
  app.deleteStory(ids[0]);
  app.restore(deleted);
  EXPECT_EQ(app.document(), beforeUpdate);
  const auto absent = app.snapshot({Uuid::random()});
  ASSERT_FALSE(absent[0].story);
  app.place(dir / "a.txt");
  const Uuid placed = story(app, 3).id;
  app.restore({AppState::StorySlot{.id = placed}});
  EXPECT_EQ(app.document(), beforeUpdate);
  EXPECT_FALSE(app.linkStatuses().contains(placed));
  EXPECT_NE(start, beforeUpdate);
}

}  // namespace
}  // namespace inkharbour
