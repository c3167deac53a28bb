// The main window's commands: the edit history, the document file (new,
// open, save, recovery, recent documents, dropped files), and the story and
// link operations, each an undo step where it changes the document.
#include "ui/main_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFile>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QSettings>
#include <QUrl>
#include <QDockWidget>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTimer>
#include <QToolButton>
#include <QUndoStack>
#include <QVBoxLayout>

#include "app/app_state.h"
#include "importers/docx_reader.h"
#include "model/style_sheet.h"
#include "ui/autosave.h"
#include "ui/change_review.h"
#include "ui/dialogs.h"
#include "ui/editor_header.h"
#include "ui/find_bar.h"
#include "ui/footnotes_panel.h"
#include "ui/icons.h"
#include "ui/link_poller.h"
#include "ui/merge_forecaster.h"
#include "ui/notes_panel.h"
#include "ui/search_panel.h"
#include "ui/stories_panel.h"

namespace inkharbour {

namespace {

QString fromStd(const std::string& text) {
  return QString::fromStdString(text);
}

}  // namespace

// --- Commands ------------------------------------------------------------------

template <typename Operation>
bool MainWindow::attempt(Operation&& operation) {
  if (state_.lastError()) state_.clearLastError();
  operation();
  return !state_.lastError().has_value();
}

bool MainWindow::run(const QString& text, std::vector<Uuid> touched,
                     std::function<void()> operation) {
  if (state_.lastError()) state_.clearLastError();
  undoStack_->push(new DocumentCommand(state_, text, std::move(touched), std::move(operation)));
  return !state_.lastError().has_value();
}

void MainWindow::recordEdit(std::size_t first, std::size_t removed,
                            const std::vector<Block>& inserted) {
  if (!editorStory_) return;
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  // What the edit replaced, read from the model before it changes: undo puts it back.
  const auto& blocks = state_.document().stories[*index].blocks;
  const std::size_t from = std::min(first, blocks.size());
  const std::size_t to = std::min(first + removed, blocks.size());
  pendingEdits_.push_back(BlockEdit{
      .first = first,
      .removed = std::vector<Block>(blocks.begin() + static_cast<std::ptrdiff_t>(from),
                                    blocks.begin() + static_cast<std::ptrdiff_t>(to)),
      .inserted = inserted});
  state_.replaceBlocks(*editorStory_, first, removed, inserted);
}

void MainWindow::finishEdit(StoryEditor::EditKind kind) {
  if (pendingEdits_.empty() || !editorStory_) {
    pendingEdits_.clear();
    nextEditLabel_.clear();
    return;
  }
  const bool typing = kind == StoryEditor::EditKind::typing && nextEditLabel_.isEmpty();
  const QString text =
      !nextEditLabel_.isEmpty() ? nextEditLabel_ : typing ? tr("Typing") : tr("Edit");
  undoStack_->push(new TextEditCommand(
      state_,
      [this](const Uuid& id, std::size_t first, std::size_t removed,
             const std::vector<Block>& inserted) { showEdit(id, first, removed, inserted); },
      [this](const Uuid& id) {
        const auto index = state_.selectedStoryIndex();
        if (editorStory_ == id && index) {
          editor_->setStory(state_.document().stories[*index].blocks, true);
        }
      },
      *editorStory_, std::move(pendingEdits_), typing, text));
  pendingEdits_.clear();
  nextEditLabel_.clear();
}

void MainWindow::showEdit(const Uuid& storyID, std::size_t first, std::size_t removed,
                          const std::vector<Block>& inserted) {
  if (editorStory_ == storyID) editor_->applyEdit(first, removed, inserted);
}

void MainWindow::labelNextEdit(const QString& text) {
  nextEditLabel_ = text;
}

void MainWindow::startHistory() {
  undoStack_->clear();
  changedOutsideHistory_ = false;
  pendingEdits_.clear();
}

std::optional<Uuid> MainWindow::selectedID() const {
  const auto index = state_.selectedStoryIndex();
  if (!index) return std::nullopt;
  return state_.document().stories[*index].id;
}

void MainWindow::showMessage(const QString& text) {
  messageLabel_->setText(text);
  messageTimer_->start();
}

bool MainWindow::maybeSave() {
  if (!hasUnsavedChanges()) return true;
  const QString name = documentPath_.isEmpty() ? tr("Untitled.inkharbour")
                                               : QFileInfo(documentPath_).fileName();
  switch (dialogs_.askToSave(this, name)) {
    case Dialogs::SaveChoice::save:
      return save();
    case Dialogs::SaveChoice::discard:
      return true;
    case Dialogs::SaveChoice::cancel:
      return false;
  }
  return false;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (!maybeSave()) {
    event->ignore();
    return;
  }
  QSettings settings;
  settings.setValue(QStringLiteral("window/geometry"), saveGeometry());
  settings.setValue(QStringLiteral("window/state"), saveState());
  autosave_->discard();  // saved, or left unsaved on purpose
  event->accept();
}

bool MainWindow::acceptsDrop(const QMimeData* data) const {
  if (!data->hasUrls()) return false;
  for (const QUrl& url : data->urls()) {
    if (!url.isLocalFile()) return false;
  }
  return true;
}

void MainWindow::dropFiles(const QMimeData* data) {
  QStringList documents;
  QStringList files;
  for (const QUrl& url : data->urls()) {
    const QString path = url.toLocalFile();
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("inkharbour") || suffix == QLatin1String("quillmoor") ||
        suffix == QLatin1String("tidecopy")) {
      documents << path;
    } else {
      files << path;
    }
  }
  if (!files.isEmpty()) {
    placeFiles(files);
  } else if (!documents.isEmpty() && maybeSave()) {
    openDocumentFile(documents.front());
  }
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (acceptsDrop(event->mimeData())) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  if (!acceptsDrop(event->mimeData())) return;
  event->acceptProposedAction();
  dropFiles(event->mimeData());
}

void MainWindow::rememberRecent(const QString& path) {
  QSettings settings;
  QStringList recent = settings.value(QStringLiteral("recentDocuments")).toStringList();
  recent.removeAll(path);
  recent.prepend(path);
  while (recent.size() > 10) recent.removeLast();
  settings.setValue(QStringLiteral("recentDocuments"), recent);
}

void MainWindow::fillRecentMenu() {
  recentMenu_->clear();
  const QStringList recent =
      QSettings().value(QStringLiteral("recentDocuments")).toStringList();
  for (qsizetype i = 0; i < recent.size(); ++i) {
    const QString path = recent[i];
    QAction* action = recentMenu_->addAction(
        tr("&%1  %2").arg(i + 1 < 10 ? QString::number(i + 1) : QStringLiteral("0"),
                          QFileInfo(path).fileName()));
    action->setToolTip(QDir::toNativeSeparators(path));
    action->setStatusTip(QDir::toNativeSeparators(path));
    connect(action, &QAction::triggered, this, [this, path] {
      if (maybeSave()) openDocumentFile(path);
    });
  }
  if (recent.isEmpty()) recentMenu_->addAction(tr("No Recent Documents"))->setEnabled(false);
  recentMenu_->addSeparator();
  QAction* clear = recentMenu_->addAction(tr("Clear Menu"));
  clear->setEnabled(!recent.isEmpty());
  connect(clear, &QAction::triggered, this,
          [] { QSettings().remove(QStringLiteral("recentDocuments")); });
}

void MainWindow::newDocument() {
  if (!maybeSave()) return;
  state_.newDocument();
  documentPath_.clear();
  startHistory();
  autosave_->setDocumentPath(QString());
  refreshNow();
}

void MainWindow::openDocument() {
  if (!maybeSave()) return;
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::open,
             .title = tr("Open Inkharbour Document"),
             .filters = FileTypes::openDocument()});
  if (!chosen.isEmpty()) openDocumentFile(chosen.front());
}

bool MainWindow::openDocumentFile(const QString& path) {
  const QString absolute = QFileInfo(path).absoluteFilePath();
  QString source = absolute;
  bool recovered = false;
  if (const auto copy = Autosave::leftFor(absolute)) {
    const int answer = dialogs_.choose(
        this, tr("Recover Unsaved Changes"),
        tr("“%1” has unsaved changes from a session that ended unexpectedly (%2). Restore them?")
            .arg(QFileInfo(absolute).fileName(),
                 QLocale().toString(QFileInfo(*copy).lastModified(), QLocale::ShortFormat)),
        {tr("Restore"), tr("Discard Them")});
    if (answer == 0) {
      source = *copy;
      recovered = true;
    } else if (answer == 1) {
      QFile::remove(*copy);
    }
  }
  if (!attempt([&] { state_.openDocument(source.toStdString()); })) return false;
  relocatedShown_.clear();
  documentPath_ = absolute;
  rememberRecent(documentPath_);
  startHistory();
  autosave_->setDocumentPath(documentPath_);
  const auto& renewed = state_.renewedIds();
  // Ids that the file gave twice were renewed on open: the file differs from the document now.
  changedOutsideHistory_ = recovered || !renewed.empty();
  editorStory_.reset();  // a story of the same id in the new document is another story
  refreshNow();
  if (!renewed.empty()) {
    showMessage(tr("Some stories or blocks in “%1” had the id of another; each has an id of its "
                   "own now, which saving keeps.")
                    .arg(QFileInfo(absolute).fileName()));
  }
  editor_->setFocus();
  editor_->moveCursor(QTextCursor::Start);
  return true;
}

bool MainWindow::save() {
  if (documentPath_.isEmpty()) return saveAs();
  return saveTo(documentPath_);
}

bool MainWindow::saveAs() {
  const QString proposed = documentPath_.isEmpty() ? tr("Untitled.inkharbour") : documentPath_;
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::save,
             .title = tr("Save Inkharbour Document"),
             .proposedName = proposed,
             .filters = FileTypes::saveDocument()});
  if (chosen.isEmpty()) return false;
  QString path = chosen.front();
  if (QFileInfo(path).suffix().isEmpty()) path += QStringLiteral(".inkharbour");
  return saveTo(path);
}

bool MainWindow::saveTo(const QString& path) {
  const std::size_t relocated = state_.relocatedLinks().size();
  if (!attempt([&] { state_.saveDocument(path.toStdString()); })) return false;
  documentPath_ = QFileInfo(path).absoluteFilePath();
  rememberRecent(documentPath_);
  undoStack_->setClean();
  changedOutsideHistory_ = false;
  autosave_->setDocumentPath(documentPath_);
  autosave_->discard();
  const QString file = QFileInfo(path).fileName();
  if (relocated == 0) {
    showMessage(tr("Saved “%1”.").arg(file));
  } else {
    showMessage(relocated == 1
                    ? tr("Saved “%1”; a link now records its file's new place.").arg(file)
                    : tr("Saved “%1”; %2 links now record their files' new places.")
                          .arg(file)
                          .arg(relocated));
  }
  refreshNow();
  return true;
}

void MainWindow::newStory() {
  run(tr("New Story"), {}, [this] { state_.newStory(); });
  refreshNow();
  editor_->setFocus();
}

void MainWindow::place() {
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::openMany,
             .title = tr("Place File"),
             .filters = FileTypes::placeable()});
  if (!chosen.isEmpty()) placeFiles(chosen);
}

bool MainWindow::offerUntitledRecovery() {
  const auto copy = Autosave::leftUntitled();
  if (!copy) return false;
  const int answer = dialogs_.choose(
      this, tr("Recover Unsaved Changes"),
      tr("An untitled document has unsaved changes from a session that ended unexpectedly "
         "(%1). Restore them?")
          .arg(QLocale().toString(QFileInfo(*copy).lastModified(), QLocale::ShortFormat)),
      {tr("Restore"), tr("Discard Them")});
  if (answer < 0) return false;
  bool restored = false;
  if (answer == 0 && attempt([&] { state_.openDocument(copy->toStdString()); })) {
    startHistory();
    changedOutsideHistory_ = true;  // nothing of it is saved yet
    restored = true;
    refreshNow();
  }
  // This session's own copy takes over from here.
  if (answer == 1 || restored) QFile::remove(*copy);
  return restored;
}

bool MainWindow::placeFiles(const QStringList& paths) {
  QStringList failures;
  int placed = 0;
  // Several files placed at once are one step to undo, with progress.
  std::optional<QProgressDialog> progress;
  if (paths.size() > 1) {
    undoStack_->beginMacro(tr("Place %1 Files").arg(paths.size()));
    progress.emplace(tr("Placing files…"), tr("Stop"), 0, static_cast<int>(paths.size()), this);
    progress->setWindowTitle(tr("Place"));
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(400);
  }
  for (const QString& path : paths) {
    if (progress) {
      if (progress->wasCanceled()) break;
      progress->setLabelText(tr("Placing “%1”…").arg(QFileInfo(path).fileName()));
      progress->setValue(placed + static_cast<int>(failures.size()));
    }
    if (run(tr("Place “%1”").arg(QFileInfo(path).fileName()), {},
            [this, path] { state_.place(path.toStdString()); })) {
      ++placed;
    } else {
      failures << tr("“%1”: %2").arg(QFileInfo(path).fileName(), fromStd(*state_.lastError()));
      // With several files, every message names its file.
      if (paths.size() > 1) state_.reportError(failures.back().toStdString());
    }
  }
  if (progress) {
    progress->setValue(static_cast<int>(paths.size()));
    undoStack_->endMacro();
  }
  // Every failure stays readable, not only the last one.
  if (failures.size() > 1) state_.reportError(failures.join(QStringLiteral("  ")).toStdString());
  refreshNow();
  if (placed > 0) {
    showMessage(placed == 1 ? tr("Placed 1 file.") : tr("Placed %1 files.").arg(placed));
    editor_->setFocus();
  }
  return failures.isEmpty();
}

void MainWindow::linkToOriginal() {
  const auto id = selectedID();
  if (!id) return;
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::open,
             .title = tr("Link to Original"),
             .filters = FileTypes::placeable()});
  if (chosen.isEmpty()) return;
  const QString path = chosen.front();
  run(tr("Link to Original"), {*id},
      [this, id = *id, path] { state_.linkToOriginal(id, path.toStdString()); });
  refreshNow();
}

void MainWindow::relink() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  if (!story.link) return;
  const Uuid id = story.id;
  const QString name = fromStd(story.name);
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::open,
             .title = tr("Relink “%1”").arg(name),
             .filters = FileTypes::placeable()});
  if (chosen.isEmpty()) return;
  const QString path = chosen.front();
  if (run(tr("Relink"), {id}, [this, id, path] { state_.relink(id, path.toStdString()); })) {
    showMessage(tr("Relinked “%1” to “%2”.").arg(name, QFileInfo(path).fileName()));
  }
  refreshNow();
}

void MainWindow::unlink() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  if (!story.link) return;
  const Uuid id = story.id;
  if (!dialogs_.confirm(this, tr("Unlink"),
                        tr("Unlink “%1” from “%2”? The story keeps its text, but changes to the "
                           "file will no longer be merged in, and edits can no longer be pushed "
                           "(Edit ▸ Undo links it again).")
                            .arg(fromStd(story.name),
                                 QFileInfo(fromStd(story.link->path)).fileName()),
                        tr("Unlink"))) {
    return;
  }
  run(tr("Unlink"), {id}, [this, id] { state_.unlink(id); });
}

void MainWindow::renameStory() {
  stories_->renameSelected();
}

void MainWindow::deleteStory() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  const Uuid id = story.id;
  if (!dialogs_.confirm(this, tr("Delete Story"),
                        tr("Delete the story “%1”? Its text, footnotes and notes leave this "
                           "document (Edit ▸ Undo brings them back); a linked file is not touched.")
                            .arg(fromStd(story.name)),
                        tr("Delete"))) {
    return;
  }
  run(tr("Delete Story"), {id}, [this, id] { state_.deleteStory(id); });
}

void MainWindow::exportStory() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  const Uuid id = story.id;
  const QString linked =
      story.link ? QFileInfo(fromStd(story.link->path)).absoluteFilePath() : QString();
  const QString name = fromStd(story.name);
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::save,
             .title = tr("Export with Inkharbour"),
             .proposedName = name + QStringLiteral(".docx"),
             .filters = FileTypes::wordDocument()});
  if (chosen.isEmpty()) return;
  QString target = QFileInfo(chosen.front()).absoluteFilePath();
  if (QFileInfo(target).suffix().compare(QLatin1String("docx"), Qt::CaseInsensitive) != 0) {
    target += QStringLiteral(".docx");
  }
  // Export writes a fresh package: over the story's own linked file it would
  // throw away what the co-author's file holds beyond the story.
  if (!linked.isEmpty() && target == linked &&
      !dialogs_.confirm(this, tr("Export with Inkharbour"),
                        tr("“%1” is the file this story is linked to. Exporting over it writes "
                           "a new document in its place; to update it, use Push Edits.")
                            .arg(QFileInfo(target).fileName()),
                        tr("Replace It"))) {
    return;
  }
  if (attempt([&] { state_.exportStory(id, target.toStdString()); })) {
    startHistory();  // as after a push: the link now points at the new file
    changedOutsideHistory_ = true;
    showMessage(tr("Exported and linked to “%1”.").arg(QFileInfo(target).fileName()));
  }
}

void MainWindow::updateLink() {
  const auto id = selectedID();
  if (!id) return;
  const std::size_t notesBefore = state_.document().stories[*state_.selectedStoryIndex()].notes.size();
  if (!run(tr("Update Link"), {*id}, [this, id = *id] { state_.updateFromLinked(id); })) return;
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  // Every conflict, a paragraph's, a cell's or a footnote's, left a note.
  const std::size_t conflicts = story.notes.size() - std::min(notesBefore, story.notes.size());
  const std::size_t changes = story.lastMergeReport.size();
  const QString name = fromStd(story.name);
  const QString changed = changes == 1 ? tr("1 change") : tr("%1 changes").arg(changes);
  if (changes == 0) {
    showMessage(tr("“%1” is up to date: nothing to merge.").arg(name));
  } else if (conflicts > 0) {
    showMessage(tr("Merged “%1”: %2, %3 — your text is in Story Notes.")
                    .arg(name, changed,
                         conflicts == 1 ? tr("1 conflict") : tr("%1 conflicts").arg(conflicts)));
  } else {
    showMessage(tr("Merged “%1”: %2.").arg(name, changed));
  }
}

void MainWindow::updateAllLinks() {
  std::vector<Uuid> modified;
  QStringList names;
  for (const auto& story : state_.document().stories) {
    const auto status = state_.linkStatuses().find(story.id);
    if (status == state_.linkStatuses().end() || status->second != LinkStatus::modified) continue;
    modified.push_back(story.id);
    names << fromStd(story.name);
  }
  if (modified.empty()) return;
  // Merging many books takes a while: show how far it got, and stop between
  // stories when asked (what was merged stays, as one step to undo).
  QProgressDialog progress(tr("Updating links…"), tr("Stop"), 0, static_cast<int>(modified.size()),
                           this);
  progress.setWindowTitle(tr("Update All Links"));
  progress.setWindowModality(Qt::WindowModal);
  progress.setMinimumDuration(400);
  std::size_t done = 0;
  const bool clean = run(tr("Update All Links"), modified, [&] {
    for (; done < modified.size() && !progress.wasCanceled(); ++done) {
      progress.setLabelText(tr("Merging “%1”…").arg(names[static_cast<qsizetype>(done)]));
      progress.setValue(static_cast<int>(done));
      state_.updateFromLinked(modified[done]);
    }
  });
  progress.setValue(static_cast<int>(modified.size()));
  if (clean) {
    showMessage(done == 1 ? tr("Updated 1 link.") : tr("Updated %1 links.").arg(done));
  }
}

void MainWindow::pushEdits() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  if (!story.link) return;
  const Uuid id = story.id;
  // Excel links are one-way: the state says so without asking first.
  if (story.link->kind != LinkKind::excel) {
    const QString file = QFileInfo(fromStd(story.link->path)).fileName();
    const auto status = state_.linkStatuses().find(id);
    if (status != state_.linkStatuses().end() && status->second == LinkStatus::modified) {
      // A push now would overwrite a co-author's changes that were never merged.
      const int answer = dialogs_.choose(
          this, tr("Push Edits"),
          tr("The linked document has changes that are not in the story."),
          {tr("Update Link First"), tr("Push Anyway (their changes are lost)")});
      if (answer < 0) return;
      if (answer == 0) {
        const std::size_t notesBefore = story.notes.size();
        updateLink();
        if (state_.lastError()) return;
        // A conflict means the story now holds their text where it held
        // yours: look at the notes before anything is pushed.
        if (story.notes.size() > notesBefore) {
          showMessage(tr("Merged with conflicts: nothing was pushed. Check the Story Notes, "
                         "then push again."));
          return;
        }
      }
    } else if (!dialogs_.confirm(
                   this, tr("Push Edits"),
                   (story.link->kind == LinkKind::word
                        // A Word file is edited in place: what the story does not hold stays.
                        ? tr("Write this story into “%1”? Its text becomes the story’s; its "
                             "headers, page layout, styles and comments stay as they are. "
                             "Neither the push nor the steps before it can be undone.")
                        : tr("Replace the content of “%1” with this story? The file is "
                             "rewritten, and neither the push nor the steps before it can "
                             "be undone."))
                       .arg(file),
                   tr("Push Edits"))) {
      return;
    }
  }
  if (attempt([&] { state_.updateLinkedDocument(id); })) {
    // The file now holds this story: undoing earlier steps would bring back
    // a link that no longer matches it, so the history starts afresh.
    startHistory();
    changedOutsideHistory_ = true;
    showMessage(tr("Pushed “%1” to its linked document.").arg(fromStd(story.name)));
  }
}

void MainWindow::editStyleMap() {
  // Offer the style names of the selected story's Word file, when it has one.
  QStringList wordStyles;
  if (const auto index = state_.selectedStoryIndex()) {
    const Story& story = state_.document().stories[*index];
    if (story.link && story.link->kind == LinkKind::word) {
      for (const auto& name : DocxReader::paragraphStyleNames(story.link->path)) {
        wordStyles << fromStd(name);
      }
    }
  }
  const auto edited = dialogs_.editStyleMap(this, state_.document().styleMap, wordStyles);
  if (edited && *edited != state_.document().styleMap) {
    undoStack_->push(new StyleMapCommand(state_, *edited));
    showMessage(tr("Style mapping changed. It applies to files placed from now on, and to "
                   "paragraphs that change in an update."));
  }
}

void MainWindow::editTable(const Uuid& blockID) {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  const Uuid storyID = story.id;
  for (const auto& block : story.blocks) {
    if (block.id != blockID || !std::holds_alternative<Table>(block.kind)) continue;
    const Table table = std::get<Table>(block.kind);
    if (auto edited = dialogs_.editTable(this, table); edited && !(*edited == table)) {
      run(tr("Edit Table"), {storyID}, [this, storyID, blockID, table = std::move(*edited)] {
        state_.updateTable(storyID, blockID, table);
      });
    }
    return;
  }
}

}  // namespace inkharbour
