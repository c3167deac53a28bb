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
#include <functional>
#include <optional>

#include "editor/story_editor.h"
#include "model/uuid.h"
#include "ui/undo_commands.h"

class QAction;
class QActionGroup;
class QLabel;
class QStackedWidget;
class QComboBox;
class QDockWidget;
class QDragEnterEvent;
class QDropEvent;
class QMimeData;
class QTimer;
class QUndoStack;
class QToolButton;

namespace inkharbour {

class AppState;
class Autosave;
class Dialogs;
class EditorHeader;
class FindBar;
class FootnotesPanel;
class LinkPoller;
class MergeForecaster;
class ChangeReview;
class NotesPanel;
class SearchPanel;
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
  // At start without a document: offers the untitled document a crashed
  // session left, if any. True when it was restored.
  bool offerUntitledRecovery();
  Autosave* autosave() const { return autosave_; }

  // The path of the document's own file; empty while untitled.
  QString documentPath() const { return documentPath_; }
  bool hasUnsavedChanges() const;

  // For tests and scripts: the widgets and actions by name.
  StoryEditor* editor() const { return editor_; }
  StoriesPanel* storiesPanel() const { return stories_; }
  QUndoStack* undoStack() const { return undoStack_; }
  LinkPoller* poller() const { return poller_; }
  QAction* action(const QString& objectName) const;
  // Brings every view in line with the state now instead of on the next turn.
  void refreshNow();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

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
  void relink();
  void unlink();
  void renameStory();
  void deleteStory();
  void exportStory();
  void updateLink();
  void updateAllLinks();
  void pushEdits();
  void editTable(const Uuid& blockID);
  void editStyleMap();

  // Asks to save unsaved changes; false when the user cancelled.
  bool maybeSave();
  bool saveTo(const QString& path);
  // Runs an operation with a fresh error line; true when it left no error.
  template <typename Operation>
  bool attempt(Operation&& operation);
  // Runs a document operation as one undo step named `text`; `touched` are
  // the stories it changes (stories it adds are found by themselves). True
  // when it left no error.
  bool run(const QString& text, std::vector<Uuid> touched, std::function<void()> operation);
  // The editor's edits, gathered per user action into one undo step.
  void recordEdit(std::size_t first, std::size_t removed, const std::vector<Block>& inserted);
  void finishEdit(StoryEditor::EditKind kind);
  void showEdit(const Uuid& storyID, std::size_t first, std::size_t removed,
                const std::vector<Block>& inserted);
  // A format, style or clipboard action: names the editor's next undo step.
  void labelNextEdit(const QString& text);
  // Forgets the undo history: another document is open.
  void startHistory();
  // Dropped files: a document is opened, Word, Excel and text files placed.
  bool acceptsDrop(const QMimeData* data) const;
  void dropFiles(const QMimeData* data);
  // The last ten documents opened or saved, newest first.
  void rememberRecent(const QString& path);
  void fillRecentMenu();
  std::optional<Uuid> selectedID() const;
  void showMessage(const QString& text);

  AppState& state_;
  Dialogs& dialogs_;

  StoriesPanel* stories_ = nullptr;
  FootnotesPanel* footnotes_ = nullptr;
  NotesPanel* notes_ = nullptr;
  ChangeReview* review_ = nullptr;
  QDockWidget* reviewDock_ = nullptr;
  SearchPanel* search_ = nullptr;
  EditorHeader* header_ = nullptr;
  StoryEditor* editor_ = nullptr;
  FindBar* findBar_ = nullptr;
  QStackedWidget* centre_ = nullptr;
  LinkPoller* poller_ = nullptr;
  MergeForecaster* forecaster_ = nullptr;
  QLabel* errorLabel_ = nullptr;
  QToolButton* errorDismiss_ = nullptr;
  QLabel* messageLabel_ = nullptr;
  QTimer* messageTimer_ = nullptr;
  QLabel* wordsLabel_ = nullptr;
  QLabel* linksLabel_ = nullptr;
  QMenu* storyMenu_ = nullptr;
  QMenu* recentMenu_ = nullptr;
  QComboBox* styleBox_ = nullptr;

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
  QAction* findAllAction_ = nullptr;
  QAction* replaceAction_ = nullptr;
  QAction* reviewAction_ = nullptr;
  QAction* newStoryAction_ = nullptr;
  QAction* placeAction_ = nullptr;
  QAction* linkAction_ = nullptr;
  QAction* unlinkAction_ = nullptr;
  QAction* relinkAction_ = nullptr;
  QAction* renameAction_ = nullptr;
  QAction* deleteAction_ = nullptr;
  QAction* exportAction_ = nullptr;
  QAction* updateAction_ = nullptr;
  QAction* updateAllAction_ = nullptr;
  QAction* pushAction_ = nullptr;
  QAction* styleMapAction_ = nullptr;
  QActionGroup* styleGroup_ = nullptr;
  std::array<QAction*, 5> styleActions_{};
  std::array<QAction*, 7> formatActions_{};

  QUndoStack* undoStack_ = nullptr;
  Autosave* autosave_ = nullptr;
  std::vector<BlockEdit> pendingEdits_;
  QString nextEditLabel_;
  // A push or an export changed the links in a way no undo takes back.
  bool changedOutsideHistory_ = false;

  QString documentPath_;
  std::optional<Uuid> editorStory_;
  std::int64_t editorToken_ = 0;
  QString watchedLinks_;
  // The links found beside the moved document that the status bar told of.
  std::vector<Uuid> relocatedShown_;
  bool refreshQueued_ = false;
};

}  // namespace inkharbour
