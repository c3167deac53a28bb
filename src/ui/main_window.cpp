#include "ui/main_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QSignalBlocker>
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
#include <QMessageBox>
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
#include <algorithm>

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

constexpr std::array<StoryEditor::CharacterFormat, 7> kFormats = {
    StoryEditor::CharacterFormat::bold,          StoryEditor::CharacterFormat::italic,
    StoryEditor::CharacterFormat::underline,     StoryEditor::CharacterFormat::strikethrough,
    StoryEditor::CharacterFormat::smallCaps,     StoryEditor::CharacterFormat::superscript,
    StoryEditor::CharacterFormat::subscript,
};

QString fromStd(const std::string& text) {
  return QString::fromStdString(text);
}

QAction* makeAction(QObject* parent, const QString& name, const QString& text,
                    const QList<QKeySequence>& keys = {}, const QIcon& icon = {}) {
  auto* action = new QAction(icon, text, parent);
  action->setObjectName(name);
  action->setShortcuts(keys);
  action->setShortcutContext(Qt::WindowShortcut);
  return action;
}

}  // namespace

MainWindow::MainWindow(AppState& state, Dialogs& dialogs, QWidget* parent)
    : QMainWindow(parent), state_(state), dialogs_(dialogs) {
  setObjectName(QStringLiteral("mainWindow"));
  createActions();
  setCentralWidget(createCentre());
  createDocks();
  createMenus();
  createToolBar();

  errorLabel_ = new QLabel(this);
  errorLabel_->setTextFormat(Qt::PlainText);
  errorLabel_->setStyleSheet(QStringLiteral("QLabel { color: #b3261e; }"));
  errorDismiss_ = new QToolButton(this);
  errorDismiss_->setIcon(style()->standardIcon(QStyle::SP_DialogCloseButton));
  errorDismiss_->setToolTip(tr("Dismiss this message"));
  errorDismiss_->setAutoRaise(true);
  connect(errorDismiss_, &QToolButton::clicked, this, [this] { state_.clearLastError(); });
  // Not QStatusBar::showMessage: a passing message must never hide an error.
  messageLabel_ = new QLabel(this);
  messageLabel_->setTextFormat(Qt::PlainText);
  messageTimer_ = new QTimer(this);
  messageTimer_->setSingleShot(true);
  messageTimer_->setInterval(8000);
  connect(messageTimer_, &QTimer::timeout, messageLabel_, &QLabel::clear);
  wordsLabel_ = new QLabel(this);
  linksLabel_ = new QLabel(this);
  statusBar()->addWidget(errorDismiss_);
  statusBar()->addWidget(errorLabel_);
  statusBar()->addWidget(messageLabel_, 1);
  statusBar()->addPermanentWidget(wordsLabel_);
  statusBar()->addPermanentWidget(linksLabel_);

  poller_ = new LinkPoller(state_, this);
  // What Update Link would do, worked out off the UI thread for modified links.
  forecaster_ = new MergeForecaster(state_, this);
  stories_->setForecaster(forecaster_);
  header_->setForecaster(forecaster_);
  connect(forecaster_, &MergeForecaster::forecastChanged, this, &MainWindow::scheduleRefresh);
  autosave_ = new Autosave(state_, [this] { return hasUnsavedChanges(); }, this);
  state_.setObserver([this] { scheduleRefresh(); });
  connect(editor_, &StoryEditor::blocksEdited, this, &MainWindow::recordEdit);
  connect(editor_, &StoryEditor::wordCountChanged, this, &MainWindow::updateStatusBar);
  connect(editor_, &QTextEdit::selectionChanged, this, &MainWindow::updateStatusBar);
  connect(editor_, &StoryEditor::formatChanged, this, &MainWindow::updateActions);
  // The table editor opens once the double-click is over: a dialog run inside
  // the mouse handler would leave the editor believing the button still down,
  // and the next move would start dragging the table.
  connect(editor_, &StoryEditor::tableActivated, this, [this](const Uuid& blockID) {
    QTimer::singleShot(0, this, [this, blockID] { editTable(blockID); });
  });
  connect(editor_, &StoryEditor::editFinished, this, &MainWindow::finishEdit);
  connect(editor_, &StoryEditor::undoRequested, undoStack_, &QUndoStack::undo);
  connect(editor_, &StoryEditor::redoRequested, undoStack_, &QUndoStack::redo);
  connect(undoStack_, &QUndoStack::canUndoChanged, editor_, &StoryEditor::setCanUndo);
  connect(undoStack_, &QUndoStack::canRedoChanged, editor_, &StoryEditor::setCanRedo);
  connect(undoStack_, &QUndoStack::cleanChanged, this, &MainWindow::scheduleRefresh);
  connect(stories_, &StoriesPanel::renameRequested, this, [this](const Uuid& id, const QString& name) {
    run(tr("Rename Story"), {id}, [this, id, name] { state_.renameStory(id, name.toStdString()); });
  });
  connect(footnotes_, &FootnotesPanel::footnoteEdited, this,
          [this](const Uuid& id, const Footnote& footnote) {
            run(tr("Edit Footnote"), {id}, [this, id, footnote] { state_.replaceFootnote(id, footnote); });
          });
  connect(notes_, &NotesPanel::dismissRequested, this, [this](const Uuid& id, const Uuid& note) {
    run(tr("Dismiss Note"), {id}, [this, id, note] { state_.dismissNote(id, note); });
  });
  connect(editor_, &QTextEdit::copyAvailable, cutAction_, &QAction::setEnabled);
  connect(editor_, &QTextEdit::copyAvailable, copyAction_, &QAction::setEnabled);

  resize(1280, 820);
  setAcceptDrops(true);
  // Where the author left the window and its panels.
  QSettings settings;
  restoreGeometry(settings.value(QStringLiteral("window/geometry")).toByteArray());
  restoreState(settings.value(QStringLiteral("window/state")).toByteArray());
  refreshNow();
}

MainWindow::~MainWindow() {
  state_.setObserver({});
  // The children outlive this destructor (QWidget deletes them later), and
  // some signal on their way out (the undo stack's clean state, a worker's
  // result): none of that may reach a window that is half gone.
  for (QObject* child : findChildren<QObject*>()) QObject::disconnect(child, nullptr, this, nullptr);
}

QAction* MainWindow::action(const QString& objectName) const {
  return findChild<QAction*>(objectName);
}

bool MainWindow::hasUnsavedChanges() const {
  return !undoStack_->isClean() || changedOutsideHistory_;
}

// --- Building the window -----------------------------------------------------

void MainWindow::createActions() {
  QStyle* s = style();
  newDocumentAction_ = makeAction(this, "newDocument", tr("&New Document"),
                                  {QKeySequence(tr("Ctrl+N"))}, s->standardIcon(QStyle::SP_FileIcon));
  openAction_ = makeAction(this, "open", tr("&Open…"), {QKeySequence(tr("Ctrl+O"))},
                           s->standardIcon(QStyle::SP_DialogOpenButton));
  saveAction_ = makeAction(this, "save", tr("&Save"), {QKeySequence(tr("Ctrl+S"))},
                           s->standardIcon(QStyle::SP_DialogSaveButton));
  saveAsAction_ = makeAction(this, "saveAs", tr("Save &As…"), {QKeySequence(tr("Ctrl+Shift+S"))});
  quitAction_ = makeAction(this, "quit", tr("&Quit"), {QKeySequence(tr("Ctrl+Q"))});
  connect(newDocumentAction_, &QAction::triggered, this, &MainWindow::newDocument);
  connect(openAction_, &QAction::triggered, this, &MainWindow::openDocument);
  connect(saveAction_, &QAction::triggered, this, &MainWindow::save);
  connect(saveAsAction_, &QAction::triggered, this, &MainWindow::saveAs);
  connect(quitAction_, &QAction::triggered, this, &QWidget::close);

  // One history for the whole document: typing, formatting and every
  // document operation; the menu names the step ("Undo Update Link").
  undoStack_ = new QUndoStack(this);
  undoAction_ = undoStack_->createUndoAction(this, tr("&Undo"));
  undoAction_->setObjectName(QStringLiteral("undo"));
  undoAction_->setShortcuts({QKeySequence(tr("Ctrl+Z"))});
  redoAction_ = undoStack_->createRedoAction(this, tr("&Redo"));
  redoAction_->setObjectName(QStringLiteral("redo"));
  redoAction_->setShortcuts({QKeySequence(tr("Ctrl+Shift+Z")), QKeySequence(tr("Ctrl+Y"))});
  cutAction_ = makeAction(this, "cut", tr("Cu&t"), {QKeySequence(tr("Ctrl+X"))});
  copyAction_ = makeAction(this, "copy", tr("&Copy"), {QKeySequence(tr("Ctrl+C"))});
  pasteAction_ = makeAction(this, "paste", tr("&Paste"), {QKeySequence(tr("Ctrl+V"))});
  pastePlainAction_ = makeAction(this, "pastePlainText", tr("Paste as Plain &Text"),
                                 {QKeySequence(tr("Ctrl+Shift+V"))});
  findAction_ = makeAction(this, "find", tr("&Find…"), {QKeySequence(tr("Ctrl+F"))});
  findNextAction_ = makeAction(this, "findNext", tr("Find &Next"), {QKeySequence(tr("F3"))});
  findPreviousAction_ =
      makeAction(this, "findPrevious", tr("Find Pre&vious"), {QKeySequence(tr("Shift+F3"))});
  reviewAction_ = makeAction(this, "changeReview", tr("Last Merge — Change &Review"),
                             {QKeySequence(tr("Ctrl+Shift+R"))});
  reviewAction_->setIconText(tr("Review"));
  reviewAction_->setToolTip(tr("What the last Update Link of this story did"));
  replaceAction_ = makeAction(this, "replace", tr("Find and &Replace…"),
                              {QKeySequence(tr("Ctrl+H"))});
  findAllAction_ = makeAction(this, "findAll", tr("Find in &All Stories…"),
                              {QKeySequence(tr("Ctrl+Shift+F"))});
  for (QAction* action : {cutAction_, copyAction_}) action->setEnabled(false);

  newStoryAction_ = makeAction(this, "newStory", tr("New &Story"),
                               {QKeySequence(tr("Ctrl+Shift+N"))}, Icons::linkKind(std::nullopt));
  placeAction_ = makeAction(this, "place", tr("&Place…"), {QKeySequence(tr("Ctrl+Shift+I"))},
                            Icons::placeFile());
  placeAction_->setToolTip(tr("Place a Word, Excel or text file as a new linked story"));
  linkAction_ = makeAction(this, "linkToOriginal", tr("&Link to Original…"));
  unlinkAction_ = makeAction(this, "unlink", tr("U&nlink"));
  relinkAction_ = makeAction(this, "relink", tr("Re&link…"));
  relinkAction_->setToolTip(
      tr("Point the link at the file's new place; Update Link still merges from the last sync"));
  renameAction_ = makeAction(this, "renameStory", tr("&Rename Story"), {QKeySequence(tr("F2"))});
  deleteAction_ = makeAction(this, "deleteStory", tr("&Delete Story…"), {},
                             s->standardIcon(QStyle::SP_TrashIcon));
  exportAction_ = makeAction(this, "export", tr("&Export with Inkharbour…"),
                             {QKeySequence(tr("Ctrl+E"))}, Icons::exportDocument());
  exportAction_->setToolTip(tr("Write this story to a new Word document and link it there"));
  updateAction_ = makeAction(this, "updateLink", tr("&Update Link (Merge External Changes)"),
                             {QKeySequence(tr("Ctrl+Shift+U"))},
                             s->standardIcon(QStyle::SP_BrowserReload));
  updateAction_->setIconText(tr("Update Link"));
  updateAction_->setToolTip(tr("Merge the linked file's changes into this story"));
  updateAllAction_ = makeAction(this, "updateAllLinks", tr("Update All Links (0)"),
                                {QKeySequence(tr("Ctrl+Alt+Shift+U"))});
  pushAction_ = makeAction(this, "pushEdits", tr("Update Linked Document (&Push Edits)"),
                           {QKeySequence(tr("Ctrl+Shift+P"))},
                           s->standardIcon(QStyle::SP_ArrowUp));
  pushAction_->setIconText(tr("Push Edits"));
  pushAction_->setToolTip(tr("Write this story's text over its linked Word document"));
  connect(newStoryAction_, &QAction::triggered, this, &MainWindow::newStory);
  connect(placeAction_, &QAction::triggered, this, &MainWindow::place);
  connect(linkAction_, &QAction::triggered, this, &MainWindow::linkToOriginal);
  connect(unlinkAction_, &QAction::triggered, this, &MainWindow::unlink);
  connect(relinkAction_, &QAction::triggered, this, &MainWindow::relink);
  connect(renameAction_, &QAction::triggered, this, &MainWindow::renameStory);
  connect(deleteAction_, &QAction::triggered, this, &MainWindow::deleteStory);
  connect(exportAction_, &QAction::triggered, this, &MainWindow::exportStory);
  connect(updateAction_, &QAction::triggered, this, &MainWindow::updateLink);
  connect(updateAllAction_, &QAction::triggered, this, &MainWindow::updateAllLinks);
  connect(pushAction_, &QAction::triggered, this, &MainWindow::pushEdits);
  styleMapAction_ = makeAction(this, "styleMapping", tr("Style &Mapping…"));
  styleMapAction_->setToolTip(tr("Map Word paragraph style names to Inkharbour styles"));
  connect(styleMapAction_, &QAction::triggered, this, &MainWindow::editStyleMap);

  styleGroup_ = new QActionGroup(this);
  for (std::size_t i = 0; i < StyleSheet::styles.size(); ++i) {
    const QString name = QString::fromUtf8(StyleSheet::styles[i].name.data(),
                                           static_cast<qsizetype>(StyleSheet::styles[i].name.size()));
    QAction* action = makeAction(this, QStringLiteral("style%1").arg(i + 1), name,
                                 {QKeySequence(tr("Ctrl+%1").arg(i + 1))});
    action->setCheckable(true);
    action->setActionGroup(styleGroup_);
    connect(action, &QAction::triggered, this, [this, name] {
      labelNextEdit(tr("Style %1").arg(name));
      editor_->setParagraphStyle(name);
      editor_->setFocus();
    });
    styleActions_[i] = action;
  }
  const std::array<QString, 7> names = {"bold",      "italic",      "underline", "strikethrough",
                                        "smallCaps", "superscript", "subscript"};
  const std::array<QString, 7> texts = {tr("&Bold"),         tr("&Italic"),
                                        tr("&Underline"),    tr("&Strikethrough"),
                                        tr("Small &Capitals"), tr("Su&perscript"),
                                        tr("Subs&cript")};
  const std::array<QList<QKeySequence>, 7> keys = {
      QList<QKeySequence>{QKeySequence(tr("Ctrl+B"))}, {QKeySequence(tr("Ctrl+I"))},
      {QKeySequence(tr("Ctrl+U"))}, {}, {}, {QKeySequence(tr("Ctrl+Shift+="))},
      {QKeySequence(tr("Ctrl+="))}};
  const std::array<QIcon, 7> icons = {
      Icons::letters("B", true, false, false, false),  Icons::letters("I", false, true, false, false),
      Icons::letters("U", false, false, true, false),  Icons::letters("S", false, false, false, true),
      Icons::letters("Sc", false, false, false, false), Icons::letters("x²", false, false, false, false),
      Icons::letters("x₂", false, false, false, false)};
  for (std::size_t i = 0; i < kFormats.size(); ++i) {
    QAction* action = makeAction(this, names[i], texts[i], keys[i], icons[i]);
    action->setCheckable(true);
    const auto format = kFormats[i];
    const QString label = texts[i];
    connect(action, &QAction::triggered, this, [this, format, label](bool on) {
      labelNextEdit(QString(label).remove(QLatin1Char('&')));
      editor_->setCharacterFormat(format, on);
      editor_->setFocus();
    });
    formatActions_[i] = action;
  }
}

void MainWindow::createMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  file->addActions({newDocumentAction_, openAction_});
  recentMenu_ = file->addMenu(tr("Open &Recent"));
  recentMenu_->setObjectName(QStringLiteral("recentMenu"));
  connect(recentMenu_, &QMenu::aboutToShow, this, &MainWindow::fillRecentMenu);
  file->addSeparator();
  file->addActions({saveAction_, saveAsAction_});
  file->addSeparator();
  file->addAction(quitAction_);

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  edit->addActions({undoAction_, redoAction_});
  edit->addSeparator();
  edit->addActions({cutAction_, copyAction_, pasteAction_, pastePlainAction_});
  edit->addSeparator();
  edit->addActions(
      {findAction_, findNextAction_, findPreviousAction_, replaceAction_, findAllAction_});

  menuBar()->addMenu(storyMenu_);
  storyMenu_->addActions({newStoryAction_, placeAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({updateAction_, updateAllAction_, pushAction_, reviewAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({linkAction_, relinkAction_, unlinkAction_, exportAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({renameAction_, deleteAction_});

  QMenu* format = menuBar()->addMenu(tr("F&ormat"));
  for (QAction* action : styleActions_) format->addAction(action);
  format->addSeparator();
  for (QAction* action : formatActions_) format->addAction(action);
  format->addSeparator();
  format->addAction(styleMapAction_);

  QMenu* view = menuBar()->addMenu(tr("&View"));
  for (QDockWidget* dock : findChildren<QDockWidget*>()) view->addAction(dock->toggleViewAction());

  QMenu* help = menuBar()->addMenu(tr("&Help"));
  help->addAction(tr("&About Inkharbour"), this, [this] {
    QMessageBox::about(
        this, tr("About Inkharbour"),
        tr("<h3>Inkharbour %1</h3><p>A story editor for manuscripts that live in Word, Excel "
           "and text files. Placed files stay linked: Update Link merges a co-author's changes "
           "with yours, and Push Edits writes yours back.</p>")
            .arg(QStringLiteral(INKHARBOUR_VERSION)));
  });
}

void MainWindow::createToolBar() {
  QToolBar* bar = addToolBar(tr("Main"));
  bar->setObjectName(QStringLiteral("mainToolBar"));
  bar->setMovable(false);
  bar->setIconSize(QSize(20, 20));
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  bar->addActions({newStoryAction_, placeAction_});
  bar->addSeparator();
  bar->addActions({updateAction_, updateAllAction_, pushAction_, exportAction_});
  bar->addSeparator();
  QToolBar* formatBar = addToolBar(tr("Format"));
  formatBar->setObjectName(QStringLiteral("formatToolBar"));
  formatBar->setMovable(false);
  formatBar->setIconSize(QSize(20, 20));
  formatBar->setToolButtonStyle(Qt::ToolButtonIconOnly);
  // The caret's paragraph style, and a list to give the selection another.
  auto* styleBox = styleBox_ = new QComboBox(formatBar);
  styleBox->setObjectName(QStringLiteral("styleBox"));
  styleBox->setToolTip(tr("Paragraph style (Ctrl+1 … Ctrl+5)"));
  styleBox->setAccessibleName(tr("Paragraph style"));
  styleBox->setFocusPolicy(Qt::NoFocus);  // typing stays in the story
  for (QAction* action : styleActions_) styleBox->addItem(action->text());
  styleBox->setSizeAdjustPolicy(QComboBox::AdjustToContents);
  connect(styleBox, &QComboBox::activated, this, [this](int index) {
    styleActions_[static_cast<std::size_t>(index)]->trigger();
  });
  connect(editor_, &StoryEditor::formatChanged, styleBox, [this, styleBox] {
    const QString style = editor_->paragraphStyle();  // none on a table or picture
    const QSignalBlocker quiet(styleBox);
    styleBox->setCurrentIndex(styleBox->findText(style));
    styleBox->setEnabled(!style.isEmpty());
  });
  formatBar->addWidget(styleBox);
  for (QAction* action : formatActions_) formatBar->addAction(action);
}

void MainWindow::createDocks() {
  auto dock = [this](const QString& title, const QString& name, QWidget* content,
                     Qt::DockWidgetArea area) {
    auto* widget = new QDockWidget(title, this);
    widget->setObjectName(name);
    widget->setWidget(content);
    widget->setFeatures(QDockWidget::DockWidgetClosable | QDockWidget::DockWidgetMovable);
    addDockWidget(area, widget);
    return widget;
  };
  storyMenu_ = new QMenu(tr("&Story"), this);  // filled by createMenus(); the panel shares it
  stories_ = new StoriesPanel(state_, storyMenu_, this);
  QDockWidget* storiesDock = dock(tr("Stories"), "storiesDock", stories_, Qt::LeftDockWidgetArea);
  footnotes_ = new FootnotesPanel(state_, this);
  QDockWidget* footnotesDock =
      dock(tr("Footnotes"), "footnotesDock", footnotes_, Qt::RightDockWidgetArea);
  notes_ = new NotesPanel(state_, this);
  QDockWidget* notesDock = dock(tr("Story Notes"), "notesDock", notes_, Qt::RightDockWidgetArea);
  splitDockWidget(footnotesDock, notesDock, Qt::Vertical);
  review_ = new ChangeReview(state_, this);
  reviewDock_ = dock(tr("Last Merge — Change Review"), "changeReviewDock", review_,
                     Qt::BottomDockWidgetArea);
  reviewDock_->hide();
  connect(reviewAction_, &QAction::triggered, this, [this] {
    reviewDock_->show();
    reviewDock_->raise();
    review_->setFocus();
  });
  connect(review_, &ChangeReview::blockRequested, this,
          [this](const Uuid& blockID) { editor_->scrollToBlock(blockID); });
  connect(notes_, &NotesPanel::useMineRequested, this, [this](const Uuid& id, const Uuid& note) {
    if (run(tr("Use Mine"), {id}, [this, id, note] { state_.useMine(id, note); })) {
      showMessage(tr("Your text is back in place of the external one (Edit ▸ Undo takes it "
                     "back)."));
    }
  });
  search_ = new SearchPanel(state_, this);
  QDockWidget* searchDock =
      dock(tr("Find in All Stories"), "searchDock", search_, Qt::BottomDockWidgetArea);
  tabifyDockWidget(reviewDock_, searchDock);
  searchDock->hide();
  connect(findAllAction_, &QAction::triggered, this, [this, searchDock] {
    searchDock->show();
    searchDock->raise();
    search_->start(editor_->textCursor().selectedText());
  });
  connect(search_, &SearchPanel::hitActivated, this,
          [this](const Uuid& storyID, const Uuid& blockID, const QString& text, bool caseSensitive) {
            state_.selectStory(storyID);
            refreshNow();
            if (blockID != Uuid{}) editor_->scrollToBlock(blockID);
            findBar_->showFor(text, caseSensitive);
          });
  resizeDocks({storiesDock, footnotesDock}, {320, 320}, Qt::Horizontal);
  resizeDocks({footnotesDock, notesDock}, {300, 420}, Qt::Vertical);
}

QWidget* MainWindow::createCentre() {
  centre_ = new QStackedWidget(this);
  centre_->addWidget(createEmptyPage());
  auto* page = new QWidget(centre_);
  auto* layout = new QVBoxLayout(page);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  header_ = new EditorHeader(state_, updateAction_, relinkAction_, pushAction_, reviewAction_,
                             page);
  editor_ = new StoryEditor(page);
  editor_->setObjectName(QStringLiteral("storyEditor"));
  findBar_ = new FindBar(*editor_, page);
  layout->addWidget(header_);
  layout->addWidget(editor_, 1);
  layout->addWidget(findBar_);
  centre_->addWidget(page);

  connect(cutAction_, &QAction::triggered, editor_, [this] {
    labelNextEdit(tr("Cut"));
    editor_->cut();
  });
  connect(copyAction_, &QAction::triggered, editor_, &QTextEdit::copy);
  connect(pasteAction_, &QAction::triggered, editor_, [this] {
    labelNextEdit(tr("Paste"));
    editor_->paste();
  });
  connect(pastePlainAction_, &QAction::triggered, editor_, [this] {
    labelNextEdit(tr("Paste as Plain Text"));
    editor_->pastePlainText();
  });
  connect(findAction_, &QAction::triggered, findBar_, &FindBar::open);
  connect(replaceAction_, &QAction::triggered, findBar_, &FindBar::openReplace);
  connect(findBar_, &FindBar::replacing, this, &MainWindow::labelNextEdit);
  connect(findNextAction_, &QAction::triggered, findBar_, &FindBar::findNext);
  connect(findPreviousAction_, &QAction::triggered, findBar_, &FindBar::findPrevious);
  return centre_;
}

QWidget* MainWindow::createEmptyPage() {
  auto* page = new QWidget(this);
  auto* layout = new QVBoxLayout(page);
  layout->addStretch(2);
  auto* title = new QLabel(tr("No story selected"), page);
  QFont font = title->font();
  font.setPointSizeF(font.pointSizeF() * 1.6);
  font.setBold(true);
  title->setFont(font);
  title->setAlignment(Qt::AlignCenter);
  auto* text = new QLabel(tr("Place a Word, Excel or text file to start a linked story,\n"
                             "or start a new story from scratch."),
                          page);
  text->setAlignment(Qt::AlignCenter);
  text->setForegroundRole(QPalette::PlaceholderText);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  for (QAction* action : {placeAction_, newStoryAction_}) {
    auto* button = new QPushButton(action->icon(), action->text().remove(QLatin1Char('&')), page);
    connect(button, &QPushButton::clicked, action, &QAction::trigger);
    buttons->addWidget(button);
  }
  buttons->addStretch(1);
  layout->addWidget(title);
  layout->addSpacing(6);
  layout->addWidget(text);
  layout->addSpacing(14);
  layout->addLayout(buttons);
  layout->addStretch(3);
  return page;
}

// --- Keeping the views in line -------------------------------------------------

void MainWindow::scheduleRefresh() {
  if (refreshQueued_) return;
  refreshQueued_ = true;
  QMetaObject::invokeMethod(this, &MainWindow::refresh, Qt::QueuedConnection);
}

void MainWindow::refreshNow() {
  refresh();
}

void MainWindow::refresh() {
  refreshQueued_ = false;
  syncEditor();
  forecaster_->refresh();
  stories_->refresh();
  header_->refresh();
  footnotes_->refresh();
  notes_->refresh();
  review_->refresh();
  updateActions();
  updateStatusBar();
  updateTitle();
  QString links;
  for (const auto& story : state_.document().stories) {
    if (story.link) links += fromStd(story.link->path) + QChar(0x1e);
  }
  if (links != watchedLinks_) {
    watchedLinks_ = links;
    poller_->watchLinkedFiles();
  }
  const std::vector<Uuid> relocated = state_.relocatedLinks();
  const auto fresh = std::find_if(relocated.begin(), relocated.end(), [&](const Uuid& id) {
    return std::find(relocatedShown_.begin(), relocatedShown_.end(), id) == relocatedShown_.end();
  });
  if (fresh != relocated.end()) {
    QString name;
    for (const auto& story : state_.document().stories) {
      if (story.id == *fresh) name = fromStd(story.name);
    }
    showMessage(relocated.size() == 1
                    ? tr("The file of “%1” moved with the document and was found at its new "
                         "place; saving the document records it.")
                          .arg(name)
                    : tr("%1 linked files moved with the document and were found at their new "
                         "places; saving the document records them.")
                          .arg(relocated.size()));
  }
  relocatedShown_ = relocated;
}

void MainWindow::syncEditor() {
  const auto index = state_.selectedStoryIndex();
  if (!index) {
    if (editorStory_) editor_->clearStory();
    editorStory_.reset();
    centre_->setCurrentIndex(0);
    return;
  }
  centre_->setCurrentIndex(1);
  const Story& story = state_.document().stories[*index];
  if (editorStory_ != story.id) {
    const bool hadFocus = editor_->hasFocus();
    editor_->setStory(story.blocks, false);
    editorStory_ = story.id;
    editorToken_ = state_.editorReloadToken();
    editor_->moveCursor(QTextCursor::Start);
    if (hadFocus || QApplication::focusWidget() == nullptr) editor_->setFocus();
    findBar_->updateHighlight();
  } else if (editorToken_ != state_.editorReloadToken()) {
    editor_->setStory(story.blocks, true);
    editorToken_ = state_.editorReloadToken();
    findBar_->updateHighlight();
  }
}

void MainWindow::updateActions() {
  const auto index = state_.selectedStoryIndex();
  const Story* story = index ? &state_.document().stories[*index] : nullptr;
  const bool linked = story != nullptr && story->link.has_value();
  for (QAction* action : {linkAction_, renameAction_, deleteAction_, exportAction_}) {
    action->setEnabled(story != nullptr);
  }
  for (QAction* action : {unlinkAction_, updateAction_, pushAction_}) action->setEnabled(linked);
  // Offered where it helps: a link whose file cannot be found.
  const auto status = story != nullptr ? state_.linkStatuses().find(story->id)
                                       : state_.linkStatuses().end();
  const bool missing = linked && status != state_.linkStatuses().end() &&
                       status->second == LinkStatus::missing;
  relinkAction_->setEnabled(missing);
  relinkAction_->setVisible(missing);
  const std::size_t modified = state_.modifiedLinkCount();
  updateAllAction_->setText(tr("Update All Links (%1)").arg(modified));
  updateAllAction_->setEnabled(modified > 0);
  const bool editing = story != nullptr;
  pasteAction_->setEnabled(editing);
  pastePlainAction_->setEnabled(editing);
  for (QAction* action : {findAction_, findNextAction_, findPreviousAction_, replaceAction_}) {
    action->setEnabled(editing);
  }
  const QString style = editing ? editor_->paragraphStyle() : QString();
  styleBox_->setEnabled(!style.isEmpty());
  if (styleBox_->currentText() != style) {
    const QSignalBlocker quiet(styleBox_);
    styleBox_->setCurrentIndex(styleBox_->findText(style));
  }
  for (QAction* action : styleActions_) {
    action->setEnabled(editing);
    action->setChecked(editing && action->text() == style);
  }
  for (std::size_t i = 0; i < formatActions_.size(); ++i) {
    formatActions_[i]->setEnabled(editing);
    formatActions_[i]->setChecked(editing && editor_->hasCharacterFormat(kFormats[i]));
  }
}

void MainWindow::updateStatusBar() {
  const auto& error = state_.lastError();
  errorLabel_->setText(error ? fromStd(*error) : QString());
  errorLabel_->setToolTip(error ? fromStd(*error) : QString());
  errorDismiss_->setVisible(error.has_value());

  if (editorStory_) {
    const qint64 words = editor_->wordCount();
    const qint64 selected = editor_->selectedWordCount();
    QString text = words == 1 ? tr("1 word") : tr("%1 words").arg(QLocale().toString(words));
    if (editor_->textCursor().hasSelection()) {
      text += tr(" (%1 selected)").arg(QLocale().toString(selected));
    }
    wordsLabel_->setText(text);
  } else {
    wordsLabel_->clear();
  }

  std::size_t linked = 0;
  std::array<std::size_t, 3> counts{};
  for (const auto& story : state_.document().stories) {
    if (story.link) ++linked;
  }
  for (const auto& [id, status] : state_.linkStatuses()) ++counts[static_cast<std::size_t>(status)];
  QString links = linked == 1 ? tr("1 link") : tr("%1 links").arg(linked);
  QStringList parts;
  if (counts[static_cast<std::size_t>(LinkStatus::modified)] > 0) {
    parts << tr("%1 modified").arg(counts[static_cast<std::size_t>(LinkStatus::modified)]);
  }
  if (counts[static_cast<std::size_t>(LinkStatus::missing)] > 0) {
    parts << tr("%1 missing").arg(counts[static_cast<std::size_t>(LinkStatus::missing)]);
  }
  if (!parts.isEmpty()) links += QStringLiteral(": ") + parts.join(QStringLiteral(", "));
  linksLabel_->setText(links);
}

void MainWindow::updateTitle() {
  const QString name = documentPath_.isEmpty() ? tr("Untitled.inkharbour")
                                               : QFileInfo(documentPath_).fileName();
  setWindowTitle(tr("%1[*] — Inkharbour").arg(name));
  setWindowModified(hasUnsavedChanges());
}

}  // namespace inkharbour
