#include "ui/main_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/app_state.h"
#include "model/style_sheet.h"
#include "ui/dialogs.h"
#include "ui/editor_header.h"
#include "ui/find_bar.h"
#include "ui/footnotes_panel.h"
#include "ui/icons.h"
#include "ui/link_poller.h"
#include "ui/notes_panel.h"
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
  state_.setObserver([this] { scheduleRefresh(); });
  connect(editor_, &StoryEditor::blocksEdited, this,
          [this](std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
            if (editorStory_) state_.replaceBlocks(*editorStory_, first, removed, inserted);
          });
  connect(editor_, &StoryEditor::wordCountChanged, this, &MainWindow::updateStatusBar);
  connect(editor_, &QTextEdit::selectionChanged, this, &MainWindow::updateStatusBar);
  connect(editor_, &StoryEditor::formatChanged, this, &MainWindow::updateActions);
  connect(editor_, &StoryEditor::tableActivated, this, &MainWindow::editTable);
  connect(editor_, &QTextEdit::undoAvailable, undoAction_, &QAction::setEnabled);
  connect(editor_, &QTextEdit::redoAvailable, redoAction_, &QAction::setEnabled);
  connect(editor_, &QTextEdit::copyAvailable, cutAction_, &QAction::setEnabled);
  connect(editor_, &QTextEdit::copyAvailable, copyAction_, &QAction::setEnabled);

  resize(1280, 820);
  refreshNow();
}

MainWindow::~MainWindow() {
  state_.setObserver({});
}

QAction* MainWindow::action(const QString& objectName) const {
  return findChild<QAction*>(objectName);
}

bool MainWindow::hasUnsavedChanges() const {
  return state_.documentRevision() != savedRevision_;
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

  undoAction_ = makeAction(this, "undo", tr("&Undo"), {QKeySequence(tr("Ctrl+Z"))});
  redoAction_ = makeAction(this, "redo", tr("&Redo"),
                           {QKeySequence(tr("Ctrl+Shift+Z")), QKeySequence(tr("Ctrl+Y"))});
  cutAction_ = makeAction(this, "cut", tr("Cu&t"), {QKeySequence(tr("Ctrl+X"))});
  copyAction_ = makeAction(this, "copy", tr("&Copy"), {QKeySequence(tr("Ctrl+C"))});
  pasteAction_ = makeAction(this, "paste", tr("&Paste"), {QKeySequence(tr("Ctrl+V"))});
  pastePlainAction_ = makeAction(this, "pastePlainText", tr("Paste as Plain &Text"),
                                 {QKeySequence(tr("Ctrl+Shift+V"))});
  findAction_ = makeAction(this, "find", tr("&Find…"), {QKeySequence(tr("Ctrl+F"))});
  findNextAction_ = makeAction(this, "findNext", tr("Find &Next"), {QKeySequence(tr("F3"))});
  findPreviousAction_ =
      makeAction(this, "findPrevious", tr("Find Pre&vious"), {QKeySequence(tr("Shift+F3"))});
  for (QAction* action : {undoAction_, redoAction_, cutAction_, copyAction_}) {
    action->setEnabled(false);
  }

  newStoryAction_ = makeAction(this, "newStory", tr("New &Story"),
                               {QKeySequence(tr("Ctrl+Shift+N"))}, Icons::linkKind(std::nullopt));
  placeAction_ = makeAction(this, "place", tr("&Place…"), {QKeySequence(tr("Ctrl+Shift+I"))},
                            Icons::linkKind(LinkKind::word));
  placeAction_->setToolTip(tr("Place a Word, Excel or text file as a new linked story"));
  linkAction_ = makeAction(this, "linkToOriginal", tr("&Link to Original…"));
  unlinkAction_ = makeAction(this, "unlink", tr("U&nlink"));
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
  connect(renameAction_, &QAction::triggered, this, &MainWindow::renameStory);
  connect(deleteAction_, &QAction::triggered, this, &MainWindow::deleteStory);
  connect(exportAction_, &QAction::triggered, this, &MainWindow::exportStory);
  connect(updateAction_, &QAction::triggered, this, &MainWindow::updateLink);
  connect(updateAllAction_, &QAction::triggered, this, &MainWindow::updateAllLinks);
  connect(pushAction_, &QAction::triggered, this, &MainWindow::pushEdits);

  styleGroup_ = new QActionGroup(this);
  for (std::size_t i = 0; i < StyleSheet::styles.size(); ++i) {
    const QString name = QString::fromUtf8(StyleSheet::styles[i].name.data(),
                                           static_cast<qsizetype>(StyleSheet::styles[i].name.size()));
    QAction* action = makeAction(this, QStringLiteral("style%1").arg(i + 1), name,
                                 {QKeySequence(tr("Ctrl+%1").arg(i + 1))});
    action->setCheckable(true);
    action->setActionGroup(styleGroup_);
    connect(action, &QAction::triggered, this, [this, name] {
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
    connect(action, &QAction::triggered, this, [this, format](bool on) {
      editor_->setCharacterFormat(format, on);
      editor_->setFocus();
    });
    formatActions_[i] = action;
  }
}

void MainWindow::createMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  file->addActions({newDocumentAction_, openAction_});
  file->addSeparator();
  file->addActions({saveAction_, saveAsAction_});
  file->addSeparator();
  file->addAction(quitAction_);

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  edit->addActions({undoAction_, redoAction_});
  edit->addSeparator();
  edit->addActions({cutAction_, copyAction_, pasteAction_, pastePlainAction_});
  edit->addSeparator();
  edit->addActions({findAction_, findNextAction_, findPreviousAction_});

  menuBar()->addMenu(storyMenu_);
  storyMenu_->addActions({newStoryAction_, placeAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({updateAction_, updateAllAction_, pushAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({linkAction_, unlinkAction_, exportAction_});
  storyMenu_->addSeparator();
  storyMenu_->addActions({renameAction_, deleteAction_});

  QMenu* format = menuBar()->addMenu(tr("F&ormat"));
  for (QAction* action : styleActions_) format->addAction(action);
  format->addSeparator();
  for (QAction* action : formatActions_) format->addAction(action);

  QMenu* view = menuBar()->addMenu(tr("&View"));
  for (QDockWidget* dock : findChildren<QDockWidget*>()) view->addAction(dock->toggleViewAction());
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
  auto* styleButton = new QToolButton(formatBar);
  styleButton->setObjectName(QStringLiteral("styleButton"));
  styleButton->setPopupMode(QToolButton::InstantPopup);
  styleButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
  auto* styleMenu = new QMenu(styleButton);
  for (QAction* action : styleActions_) styleMenu->addAction(action);
  styleButton->setMenu(styleMenu);
  styleButton->setText(tr("Body"));
  styleButton->setToolTip(tr("Paragraph style"));
  styleButton->setMinimumWidth(fontMetrics().horizontalAdvance(tr("Heading 1")) + 36);
  connect(styleGroup_, &QActionGroup::triggered, styleButton,
          [styleButton](QAction* action) { styleButton->setText(action->text()); });
  connect(editor_, &StoryEditor::formatChanged, styleButton,
          [this, styleButton] {
            const QString style = editor_->paragraphStyle();  // none on a table or picture
            styleButton->setText(style.isEmpty() ? QStringLiteral("—") : style);
            styleButton->setEnabled(!style.isEmpty());
          });
  formatBar->addWidget(styleButton);
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
  header_ = new EditorHeader(state_, updateAction_, pushAction_, page);
  editor_ = new StoryEditor(page);
  editor_->setObjectName(QStringLiteral("storyEditor"));
  findBar_ = new FindBar(*editor_, page);
  layout->addWidget(header_);
  layout->addWidget(editor_, 1);
  layout->addWidget(findBar_);
  centre_->addWidget(page);

  connect(undoAction_, &QAction::triggered, editor_, &QTextEdit::undo);
  connect(redoAction_, &QAction::triggered, editor_, &QTextEdit::redo);
  connect(cutAction_, &QAction::triggered, editor_, &QTextEdit::cut);
  connect(copyAction_, &QAction::triggered, editor_, &QTextEdit::copy);
  connect(pasteAction_, &QAction::triggered, editor_, &QTextEdit::paste);
  connect(pastePlainAction_, &QAction::triggered, editor_, &StoryEditor::pastePlainText);
  connect(findAction_, &QAction::triggered, findBar_, &FindBar::open);
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
  stories_->refresh();
  header_->refresh();
  footnotes_->refresh();
  notes_->refresh();
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
  const std::size_t modified = state_.modifiedLinkCount();
  updateAllAction_->setText(tr("Update All Links (%1)").arg(modified));
  updateAllAction_->setEnabled(modified > 0);
  const bool editing = story != nullptr;
  pasteAction_->setEnabled(editing);
  pastePlainAction_->setEnabled(editing);
  for (QAction* action : {findAction_, findNextAction_, findPreviousAction_}) {
    action->setEnabled(editing);
  }
  const QString style = editing ? editor_->paragraphStyle() : QString();
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

// --- Commands ------------------------------------------------------------------

template <typename Operation>
bool MainWindow::attempt(Operation&& operation) {
  if (state_.lastError()) state_.clearLastError();
  operation();
  return !state_.lastError().has_value();
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
  if (maybeSave()) {
    event->accept();
  } else {
    event->ignore();
  }
}

void MainWindow::newDocument() {
  if (!maybeSave()) return;
  state_.newDocument();
  documentPath_.clear();
  savedRevision_ = state_.documentRevision();
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
  if (!attempt([&] { state_.openDocument(path.toStdString()); })) return false;
  documentPath_ = QFileInfo(path).absoluteFilePath();
  savedRevision_ = state_.documentRevision();
  editorStory_.reset();  // a story of the same id in the new document is another story
  refreshNow();
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
  const std::uint64_t revision = state_.documentRevision();
  if (!attempt([&] { state_.saveDocument(path.toStdString()); })) return false;
  documentPath_ = QFileInfo(path).absoluteFilePath();
  savedRevision_ = revision;
  showMessage(tr("Saved “%1”.").arg(QFileInfo(path).fileName()));
  refreshNow();
  return true;
}

void MainWindow::newStory() {
  state_.newStory();
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

bool MainWindow::placeFiles(const QStringList& paths) {
  QStringList failures;
  int placed = 0;
  for (const QString& path : paths) {
    if (attempt([&] { state_.place(path.toStdString()); })) {
      ++placed;
    } else {
      failures << tr("“%1”: %2").arg(QFileInfo(path).fileName(), fromStd(*state_.lastError()));
    }
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
  attempt([&] { state_.linkToOriginal(*id, chosen.front().toStdString()); });
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
                           "file will no longer be merged in, and edits can no longer be pushed.")
                            .arg(fromStd(story.name),
                                 QFileInfo(fromStd(story.link->path)).fileName()),
                        tr("Unlink"))) {
    return;
  }
  state_.unlink(id);
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
                        tr("Delete the story “%1”? Its text, footnotes and notes are removed "
                           "from this document; a linked file is not touched.")
                            .arg(fromStd(story.name)),
                        tr("Delete"))) {
    return;
  }
  state_.deleteStory(id);
}

void MainWindow::exportStory() {
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  const Uuid id = story.id;
  const QStringList chosen = dialogs_.chooseFiles(
      this, {.mode = FileRequest::Mode::save,
             .title = tr("Export with Inkharbour"),
             .proposedName = fromStd(story.name) + QStringLiteral(".docx"),
             .filters = FileTypes::wordDocument()});
  if (chosen.isEmpty()) return;
  if (attempt([&] { state_.exportStory(id, chosen.front().toStdString()); })) {
    showMessage(tr("Exported and linked to “%1”.").arg(QFileInfo(chosen.front()).fileName()));
  }
}

void MainWindow::updateLink() {
  const auto id = selectedID();
  if (!id) return;
  if (!attempt([&] { state_.updateFromLinked(*id); })) return;
  const auto index = state_.selectedStoryIndex();
  if (!index) return;
  const Story& story = state_.document().stories[*index];
  const auto conflicts = std::count_if(
      story.lastMergeReport.begin(), story.lastMergeReport.end(),
      [](const ChangeRecord& record) { return record.kind == ChangeRecord::Kind::conflict; });
  if (story.lastMergeReport.empty()) {
    showMessage(tr("“%1” is up to date: nothing to merge.").arg(fromStd(story.name)));
  } else if (conflicts > 0) {
    showMessage(tr("Merged “%1”: %2 changes, %3 in conflict — your text is in Story Notes.")
                    .arg(fromStd(story.name))
                    .arg(story.lastMergeReport.size())
                    .arg(conflicts));
  } else {
    showMessage(tr("Merged “%1”: %2 changes.")
                    .arg(fromStd(story.name))
                    .arg(story.lastMergeReport.size()));
  }
}

void MainWindow::updateAllLinks() {
  const std::size_t count = state_.modifiedLinkCount();
  if (attempt([&] { state_.updateAllLinks(); })) {
    showMessage(count == 1 ? tr("Updated 1 link.") : tr("Updated %1 links.").arg(count));
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
    if (!dialogs_.confirm(this, tr("Push Edits"),
                          tr("Replace the content of “%1” with this story? The file is "
                             "rewritten; this cannot be undone.")
                              .arg(file),
                          tr("Push Edits"))) {
      return;
    }
  }
  if (attempt([&] { state_.updateLinkedDocument(id); })) {
    showMessage(tr("Pushed “%1” to its linked document.").arg(fromStd(story.name)));
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
      state_.updateTable(storyID, blockID, std::move(*edited));
    }
    return;
  }
}

}  // namespace inkharbour
