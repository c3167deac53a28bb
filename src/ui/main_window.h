// The main window: the stories panel on the left, the selected story's
// header, editor and find bar in the middle, footnotes and Story Notes on the
// right, a status bar below, and one QAction per command shared by menus,
// toolbar and context menus. It holds no second copy of the model: it reads
// AppState, calls its operations, and brings its views in line after every
// change (coalesced into one refresh per turn of the event loop).
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <array>
#include <filesystem>
#include <optional>

#include "editor/story_editor.h"
#include "model/uuid.h"

class QAction;
class QActionGroup;
class QLabel;
class QStackedWidget;
class QTimer;
class QToolButton;

namespace inkharbour {

class AppState;
class Dialogs;
class EditorHeader;
class FindBar;
class FootnotesPanel;
class LinkPoller;
class NotesPanel;
class StoriesPanel;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  // `dialogs` answers every file panel and question; both outlive the window.
  MainWindow(AppState& state, Dialogs& dialogs, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Opens a document file (no panel); false when it could not be read.
  bool openDocumentFile(const QString& path);
  // Places files as new linked stories, in order; false when any failed.
  bool placeFiles(const QStringList& paths);

  // The path of the document's own file; empty while untitled.
  QString documentPath() const { return documentPath_; }
  bool hasUnsavedChanges() const;

  // For tests and scripts: the widgets and actions by name.
  StoryEditor* editor() const { return editor_; }
  StoriesPanel* storiesPanel() const { return stories_; }
  LinkPoller* poller() const { return poller_; }
  QAction* action(const QString& objectName) const;
  // Brings every view in line with the state now instead of on the next turn.
  void refreshNow();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void createActions();
  void createMenus();
  void createToolBar();
  void createDocks();
  QWidget* createCentre();
  QWidget* createEmptyPage();

  void scheduleRefresh();
  void refresh();
  void syncEditor();
  void updateActions();
  void updateStatusBar();
  void updateTitle();

  // Commands.
  void newDocument();
  void openDocument();
  bool save();
  bool saveAs();
  void newStory();
  void place();
  void linkToOriginal();
  void unlink();
  void renameStory();
  void deleteStory();
  void exportStory();
  void updateLink();
  void updateAllLinks();
  void pushEdits();
  void editTable(const Uuid& blockID);

  // Asks to save unsaved changes; false when the user cancelled.
  bool maybeSave();
  bool saveTo(const QString& path);
  // Runs an operation with a fresh error line; true when it left no error.
  template <typename Operation>
  bool attempt(Operation&& operation);
  std::optional<Uuid> selectedID() const;
  void showMessage(const QString& text);

  AppState& state_;
  Dialogs& dialogs_;

  StoriesPanel* stories_ = nullptr;
  FootnotesPanel* footnotes_ = nullptr;
  NotesPanel* notes_ = nullptr;
  EditorHeader* header_ = nullptr;
  StoryEditor* editor_ = nullptr;
  FindBar* findBar_ = nullptr;
  QStackedWidget* centre_ = nullptr;
  LinkPoller* poller_ = nullptr;
  QLabel* errorLabel_ = nullptr;
  QToolButton* errorDismiss_ = nullptr;
  QLabel* messageLabel_ = nullptr;
  QTimer* messageTimer_ = nullptr;
  QLabel* wordsLabel_ = nullptr;
  QLabel* linksLabel_ = nullptr;
  QMenu* storyMenu_ = nullptr;

  QAction* newDocumentAction_ = nullptr;
  QAction* openAction_ = nullptr;
  QAction* saveAction_ = nullptr;
  QAction* saveAsAction_ = nullptr;
  QAction* quitAction_ = nullptr;
  QAction* undoAction_ = nullptr;
  QAction* redoAction_ = nullptr;
  QAction* cutAction_ = nullptr;
  QAction* copyAction_ = nullptr;
  QAction* pasteAction_ = nullptr;
  QAction* pastePlainAction_ = nullptr;
  QAction* findAction_ = nullptr;
  QAction* findNextAction_ = nullptr;
  QAction* findPreviousAction_ = nullptr;
  QAction* newStoryAction_ = nullptr;
  QAction* placeAction_ = nullptr;
  QAction* linkAction_ = nullptr;
  QAction* unlinkAction_ = nullptr;
  QAction* renameAction_ = nullptr;
  QAction* deleteAction_ = nullptr;
  QAction* exportAction_ = nullptr;
  QAction* updateAction_ = nullptr;
  QAction* updateAllAction_ = nullptr;
  QAction* pushAction_ = nullptr;
  QActionGroup* styleGroup_ = nullptr;
  std::array<QAction*, 5> styleActions_{};
  std::array<QAction*, 7> formatActions_{};

  QString documentPath_;
  std::uint64_t savedRevision_ = 0;
  std::optional<Uuid> editorStory_;
  std::int64_t editorToken_ = 0;
  QString watchedLinks_;
  bool refreshQueued_ = false;
};

}  // namespace inkharbour
