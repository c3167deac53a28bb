// The main window driven as an author would: place files, type, format,
// save and reopen, an external change arriving, Update Link with a conflict,
// notes, push, export and the unsaved-changes prompt. File panels and
// questions are answered by a fake.
#include <QtTest>

#include <QComboBox>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTableWidget>
#include <QTextBlock>
#include <QToolButton>
#include <QTreeWidget>
#include <QUndoStack>

#include "app/app_state.h"
#include "importers/docx_reader.h"
#include "model/document_file.h"
#include "ui/autosave.h"
#include "ui/dialogs.h"
#include "ui/find_bar.h"
#include "ui/main_window.h"
#include "ui/search_panel.h"
#include "ui/stories_panel.h"
#include "ui/style_map_sheet.h"
#include "ui/table_editor.h"
#include "writer/docx_writer.h"

using namespace inkharbour;

namespace {

class FakeDialogs : public Dialogs {
 public:
  QList<FileRequest> requests;
  QList<QStringList> answers;  // one per panel, in order; none left = cancel
  SaveChoice saveChoice = SaveChoice::cancel;
  int askedToSave = 0;
  bool agree = true;
  QStringList questions;

  QStringList chooseFiles(QWidget*, const FileRequest& request) override {
    requests << request;
    return answers.isEmpty() ? QStringList() : answers.takeFirst();
  }
  SaveChoice askToSave(QWidget*, const QString&) override {
    ++askedToSave;
    return saveChoice;
  }
  bool confirm(QWidget*, const QString&, const QString& text, const QString&) override {
    questions << text;
    return agree;
  }
  int choose(QWidget*, const QString&, const QString& text, const QStringList& answers) override {
    questions << text + " " + answers.join('/');
    return choice;
  }
  int choice = -1;
  std::optional<Table> editTable(QWidget*, const Table&) override { return tableAnswer; }
  std::optional<StyleMap> editStyleMap(QWidget*, const StyleMap&,
                                       const QStringList& names) override {
    offeredStyles = names;
    return styleMapAnswer;
  }
  std::optional<Table> tableAnswer;
  std::optional<StyleMap> styleMapAnswer;
  QStringList offeredStyles;
};

Block para(const std::string& text, const std::string& style = "Body") {
  return Block{.kind = Paragraph::make(style, text)};
}

void writeDocx(const QString& path, const std::vector<std::string>& texts) {
  std::vector<Block> blocks;
  for (const auto& text : texts) blocks.push_back(para(text));
  DocxWriter::write(blocks, {}, path.toStdString());
}

QString blockText(const Block& block) {
  return QString::fromStdString(std::get<Paragraph>(block.kind).text());
}

}  // namespace

class MainWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void initTestCase();
  void init();
  void cleanup();

  void shortcutsReachTheirCommandsAndPlaceShowsTheLinkedStory();
  void typingAndFormattingSurviveSaveReopenAndACrash();
  void unsavedChangesPromptGuardsNewOpenAndClose();
  void pushExportAndExcelOneWay();
  void tableEditorKeepsUntouchedCells();
  void undoAndRedoWalkBackAndForthThroughEveryOperationExactly();
  void styleMappingSheetOffersTheFilesStylesAndAppliesOnPlace();
  void droppedFilesArePlacedAndRecentDocumentsReopen();
  void findInAllStoriesShowsHitsAndReplaceAllIsOneStep();
  void footnotePanelEditsAndNeverUndoesAMerge();
  void relinkButtonOnAMissingLinkKeepsTheBaseAndUndoes();

 private:
  QString file(const QString& name) const { return dir_->filePath(name); }
  const Story& selected() const {
    return state_->document().stories.at(*state_->selectedStoryIndex());
  }
  QString statusOf(int row) const { return window_->storiesPanel()->topLevelItem(row)->text(2); }

  QTemporaryDir settingsDir_;
  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<AppState> state_;
  std::unique_ptr<FakeDialogs> dialogs_;
  std::unique_ptr<MainWindow> window_;
};

// Settings (recent documents, window layout) go to a folder of the test's own.
void MainWindowTest::initTestCase() {
  QStandardPaths::setTestModeEnabled(true);
  QCoreApplication::setOrganizationName(QStringLiteral("InkharbourTests"));
  QSettings::setDefaultFormat(QSettings::IniFormat);
  QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settingsDir_.path());
}

void MainWindowTest::init() {
  dir_ = std::make_unique<QTemporaryDir>();
  state_ = std::make_unique<AppState>();
  dialogs_ = std::make_unique<FakeDialogs>();
  window_ = std::make_unique<MainWindow>(*state_, *dialogs_);
  window_->show();
  QVERIFY(QTest::qWaitForWindowExposed(window_.get()));
}

void MainWindowTest::cleanup() {
  dialogs_->saveChoice = Dialogs::SaveChoice::discard;  // let the window go
  window_.reset();
  state_.reset();
}

void MainWindowTest::shortcutsReachTheirCommandsAndPlaceShowsTheLinkedStory() {
  for (const char* pair :
       {"newDocument Ctrl+N", "open Ctrl+O", "save Ctrl+S", "saveAs Ctrl+Shift+S",
        "newStory Ctrl+Shift+N", "place Ctrl+Shift+I", "updateLink Ctrl+Shift+U",
        "updateAllLinks Ctrl+Alt+Shift+U", "pushEdits Ctrl+Shift+P", "export Ctrl+E", "bold Ctrl+B",
        "italic Ctrl+I", "underline Ctrl+U", "style1 Ctrl+1", "style5 Ctrl+5", "undo Ctrl+Z",
        "find Ctrl+F", "findNext F3", "findPrevious Shift+F3"}) {
    const QStringList nameAndKeys = QString::fromLatin1(pair).split(' ');
    QAction* action = window_->action(nameAndKeys[0]);
    QVERIFY2(action != nullptr, pair);
    QCOMPARE(action->shortcut(), QKeySequence(nameAndKeys[1]));
  }
  QCOMPARE(window_->action("redo")->shortcuts(),
           (QList<QKeySequence>{QKeySequence("Ctrl+Shift+Z"), QKeySequence("Ctrl+Y")}));

  // Place's shortcut, typed into the window, asks for the files it can link
  // and shows the story, ready to type at its start.
  writeDocx(file("chapter.docx"), {"Call me Ishmael.", "Some years ago."});
  dialogs_->answers << QStringList{file("chapter.docx")};
  QVERIFY(QTest::qWaitForWindowActive(window_.get()));
  QTest::keyClick(window_.get(), Qt::Key_I, Qt::ControlModifier | Qt::ShiftModifier);
  QTRY_COMPARE(state_->document().stories.size(), std::size_t(1));
  QCOMPARE(dialogs_->requests.size(), 1);
  QCOMPARE(dialogs_->requests[0].mode, FileRequest::Mode::openMany);
  for (const char* pattern : {"*.docx", "*.xlsx", "*.txt"})
    QVERIFY(dialogs_->requests[0].filters.join(' ').contains(pattern));

  QTreeWidget* panel = window_->storiesPanel();
  QTRY_COMPARE(panel->topLevelItemCount(), 1);
  QCOMPARE(panel->topLevelItem(0)->text(0), QString("chapter"));
  QCOMPARE(panel->topLevelItem(0)->text(1), QString("Word"));
  QCOMPARE(statusOf(0), QString("Up to date"));
  QVERIFY(panel->topLevelItem(0)->toolTip(0).endsWith("chapter.docx"));
  QVERIFY(window_->editor()->toPlainText().startsWith("Call me Ishmael."));
  QTRY_VERIFY(window_->editor()->hasFocus());
  QCOMPARE(window_->editor()->textCursor().position(), 0);
  QVERIFY(window_->isWindowModified());
}

void MainWindowTest::typingAndFormattingSurviveSaveReopenAndACrash() {
  window_->action("newStory")->trigger();
  QTRY_VERIFY(window_->editor()->hasFocus());
  StoryEditor* editor = window_->editor();
  QTest::keyClicks(editor, "Bold words");
  QTRY_COMPARE(blockText(selected().blocks.at(0)), QString("Bold words"));

  // Bold on a selection lands as a bold run; the style is a step of its own.
  QTextCursor cursor = editor->textCursor();
  cursor.setPosition(0);
  cursor.setPosition(4, QTextCursor::KeepAnchor);
  editor->setTextCursor(cursor);
  window_->action("bold")->trigger();
  window_->action("style2")->trigger();  // Heading 1
  QTRY_COMPARE(std::get<Paragraph>(selected().blocks.at(0).kind),
               (Paragraph{.styleName = "Heading 1",
                          .runs = {{.text = "Bold", .bold = true}, {.text = " words"}}}));
  QCOMPARE(window_->undoStack()->undoText(), QString("Style Heading 1"));

  // A first save shows the panel; a second one writes without asking.
  dialogs_->answers << QStringList{file("book")};
  window_->action("save")->trigger();
  QCOMPARE(dialogs_->requests.back().title, QString("Save Inkharbour Document"));
  QCOMPARE(dialogs_->requests.back().proposedName, QString("Untitled.inkharbour"));
  QVERIFY(QFileInfo::exists(file("book.inkharbour")));
  QVERIFY(!window_->isWindowModified());
  QVERIFY(window_->windowTitle().startsWith("book.inkharbour"));
  QTest::keyClicks(editor, "!");
  QTRY_VERIFY(window_->isWindowModified());
  const auto requests = dialogs_->requests.size();
  window_->action("save")->trigger();
  QCOMPARE(dialogs_->requests.size(), requests);
  QVERIFY(!window_->isWindowModified());

  const ProjectDocument saved = state_->document();
  QVERIFY(window_->openDocumentFile(file("book.inkharbour")));
  QCOMPARE(state_->document(), saved);
  QCOMPARE(DocumentFile::read(file("book.inkharbour").toStdString()), saved);

  // Unsaved work goes to a recovery copy. The session dies; the next one
  // opens the document and is offered the copy.
  QTest::keyClicks(editor, "Unsaved words");
  QTRY_VERIFY(window_->isWindowModified());
  window_->autosave()->writeNow();
  window_->autosave()->finish();
  QVERIFY(QFileInfo::exists(file(".book.inkharbour.recovery")));
  const ProjectDocument unsaved = state_->document();
  AppState state;
  FakeDialogs dialogs;
  dialogs.choice = 0;
  {
    MainWindow next(state, dialogs);
    QVERIFY(next.openDocumentFile(file("book.inkharbour")));
    QCOMPARE(dialogs.questions.size(), 1);
    QVERIFY(dialogs.questions[0].contains("ended unexpectedly"));
    QCOMPARE(state.document(), unsaved);
    QVERIFY(next.hasUnsavedChanges());
    next.action("save")->trigger();  // a clean save removes the copy
    QVERIFY(!QFileInfo::exists(file(".book.inkharbour.recovery")));
    QVERIFY(!next.hasUnsavedChanges());
    dialogs.saveChoice = Dialogs::SaveChoice::discard;
  }
  QCOMPARE(DocumentFile::read(file("book.inkharbour").toStdString()), unsaved);
}

void MainWindowTest::unsavedChangesPromptGuardsNewOpenAndClose() {
  window_->action("newStory")->trigger();
  QTRY_VERIFY(window_->isWindowModified());

  dialogs_->saveChoice = Dialogs::SaveChoice::cancel;
  window_->action("newDocument")->trigger();
  QCOMPARE(dialogs_->askedToSave, 1);
  QCOMPARE(state_->document().stories.size(), std::size_t(1));
  QVERIFY(!window_->close());
  window_->action("open")->trigger();
  QCOMPARE(dialogs_->askedToSave, 3);
  QVERIFY(dialogs_->requests.isEmpty());  // cancelled before the panel

  dialogs_->saveChoice = Dialogs::SaveChoice::discard;
  window_->action("newDocument")->trigger();
  QVERIFY(state_->document().stories.empty());
  QVERIFY(!window_->isWindowModified());
  window_->action("newDocument")->trigger();
  QCOMPARE(dialogs_->askedToSave, 4);  // nothing to save: no question

  // Save chosen but the save panel cancelled: nothing is lost.
  window_->action("newStory")->trigger();
  dialogs_->saveChoice = Dialogs::SaveChoice::save;
  window_->action("newDocument")->trigger();
  QCOMPARE(dialogs_->requests.back().title, QString("Save Inkharbour Document"));
  QCOMPARE(state_->document().stories.size(), std::size_t(1));
}

void MainWindowTest::pushExportAndExcelOneWay() {
  window_->action("newStory")->trigger();
  QTRY_VERIFY(window_->editor()->hasFocus());
  QTest::keyClicks(window_->editor(), "Exported text");
  dialogs_->answers << QStringList{file("out")};
  window_->action("export")->trigger();
  QCOMPARE(dialogs_->requests.back().proposedName, QString("Untitled Story.docx"));
  QVERIFY(QFileInfo::exists(file("out.docx")));
  QTRY_COMPARE(statusOf(0), QString("Up to date"));

  QTest::keyClicks(window_->editor(), "Pushed ");
  window_->action("pushEdits")->trigger();
  QCOMPARE(dialogs_->questions.size(), 1);
  const auto pushed = DocxReader::read(file("out.docx").toStdString(), {});
  QCOMPARE(blockText(pushed.blocks.at(0)), QString("Exported textPushed "));

  // A co-author's change not merged yet: the push asks what to do.
  writeDocx(file("out.docx"), {"Theirs"});
  QTRY_COMPARE_WITH_TIMEOUT(statusOf(0), QString("Modified"), 5000);
  window_->action("pushEdits")->trigger();  // cancelled
  QCOMPARE(dialogs_->questions.size(), 2);
  QCOMPARE(dialogs_->questions[1],
           QString("The linked document has changes that are not in the story. "
                   "Update Link First/Push Anyway (their changes are lost)"));
  QCOMPARE(statusOf(0), QString("Modified"));
  dialogs_->choice = 1;
  window_->action("pushEdits")->trigger();
  QTRY_COMPARE(statusOf(0), QString("Up to date"));
  QCOMPARE(blockText(DocxReader::read(file("out.docx").toStdString(), {}).blocks.at(0)),
           QString("Exported textPushed "));

  // Excel links are one-way: the message shows in the status bar, no question.
  const std::string xlsx = QFINDTESTDATA("../../examples/supply-log.xlsx").toStdString();
  QVERIFY(!xlsx.empty());
  QVERIFY(window_->placeFiles({QString::fromStdString(xlsx)}));
  window_->action("pushEdits")->trigger();
  QCOMPARE(dialogs_->questions.size(), 3);
  QVERIFY(state_->lastError()->starts_with("Excel links are one-way"));
  const auto labels = window_->statusBar()->findChildren<QLabel*>();
  QTRY_VERIFY(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
    return label->text().startsWith("Excel links are one-way");
  }));
}

void MainWindowTest::tableEditorKeepsUntouchedCells() {
  TextRun bold{.text = "Bold", .bold = true};
  const Table table{.rows = {{TableCell{{Paragraph{.styleName = "Body", .runs = {bold}}}},
                              TableCell{{Paragraph::make("Body", "b")}}},
                             {TableCell{{Paragraph::make("Body", "c")}}}}};
  TableEditor editor(table);
  QCOMPARE(editor.result(), table);  // rows of 2 and 1 cells stay so
  editor.grid()->item(0, 1)->setText("b1\nb2");
  editor.grid()->setCurrentCell(1, 0);
  editor.insertRow();
  editor.grid()->item(2, 1)->setText("new");
  const Table edited = editor.result();
  QCOMPARE(edited.rows.size(), std::size_t(3));
  QCOMPARE(edited.rows[0][0], table.rows[0][0]);  // bold kept
  QCOMPARE(edited.rows[0][1].text(), std::string("b1\nb2"));
  QCOMPARE(edited.rows[1], table.rows[1]);
  QCOMPARE(edited.rows[2].size(), std::size_t(2));
  QCOMPARE(edited.rows[2][1].text(), std::string("new"));
  editor.grid()->setCurrentCell(0, 0);
  editor.removeColumn();
  QCOMPARE(editor.result().rows[1].size(), std::size_t(0));
}

// Each step, undone, gives back the exact document before it; redone, the
// exact document after it.
void MainWindowTest::undoAndRedoWalkBackAndForthThroughEveryOperationExactly() {
  QUndoStack* stack = window_->undoStack();
  QList<ProjectDocument> states{state_->document()};
  QStringList labels;
  auto step = [&](const QString& label, const std::function<void()>& action) {
    window_->refreshNow();  // the actions' enabled states follow the last step
    action();
    QTRY_COMPARE(stack->count(), states.size());
    QCOMPARE(stack->undoText(), label);
    states << state_->document();
    labels << label;
  };

  writeDocx(file("a.docx"), {"One.", "Two.", "Three.", "Four."});
  step("Place “a.docx”", [&] { window_->placeFiles({file("a.docx")}); });
  StoryEditor* editor = window_->editor();
  QTextCursor cursor(editor->document()->findBlockByNumber(1));
  cursor.movePosition(QTextCursor::EndOfBlock);
  editor->setTextCursor(cursor);
  step("Typing", [&] { QTest::keyClicks(editor, " Mine"); });
  step("Edit", [&] { QTest::keyClick(editor, Qt::Key_Return); });
  step("Bold", [&] {
    QTextCursor all(editor->document());
    all.select(QTextCursor::Document);
    editor->setTextCursor(all);
    window_->action("bold")->trigger();
  });
  writeDocx(file("a.docx"), {"One.", "Two. Theirs", "Three.", "Four, changed."});
  QTRY_COMPARE_WITH_TIMEOUT(statusOf(0), QString("Modified"), 5000);
  QCOMPARE(window_->action("updateAllLinks")->text(), QString("Update All Links (1)"));
  QVERIFY(window_->action("updateAllLinks")->isEnabled());
  step("Update Link", [&] { window_->action("updateLink")->trigger(); });
  QTRY_COMPARE(statusOf(0), QString("Up to date"));
  QTRY_COMPARE(editor->blocks(), selected().blocks);
  QCOMPARE(selected().notes.size(), std::size_t(1));
  auto* notes = window_->findChild<QDockWidget*>("notesDock");
  QTRY_VERIFY(notes->widget()->findChild<QPushButton*>("dismissNote") != nullptr);
  step("Dismiss Note", [&] { notes->widget()->findChild<QPushButton*>("dismissNote")->click(); });
  QCOMPARE(window_->action("updateAllLinks")->text(), QString("Update All Links (0)"));
  step("New Story", [&] { window_->action("newStory")->trigger(); });
  step("Delete Story", [&] { window_->action("deleteStory")->trigger(); });
  const Uuid first = state_->document().stories.at(0).id;
  step("Rename Story", [&] { emit window_->storiesPanel()->renameRequested(first, "Renamed"); });
  step("Unlink", [&] { window_->action("unlink")->trigger(); });
  dialogs_->answers << QStringList{file("a.docx")};
  step("Link to Original", [&] { window_->action("linkToOriginal")->trigger(); });
  dialogs_->styleMapAnswer = StyleMap{{"Normal", "Quote"}};
  step("Edit Style Mapping", [&] { window_->action("styleMapping")->trigger(); });
  const QString example = QFINDTESTDATA("../../examples/the-lighthouse-keeper.docx");
  QFile::copy(example, file("example.docx"));
  step("Place “example.docx”", [&] { window_->placeFiles({file("example.docx")}); });
  const auto tableBlock =
      std::find_if(selected().blocks.begin(), selected().blocks.end(),
                   [](const Block& b) { return std::holds_alternative<Table>(b.kind); });
  QVERIFY(tableBlock != selected().blocks.end());
  Table table = std::get<Table>(tableBlock->kind);
  table.rows.pop_back();
  dialogs_->tableAnswer = table;
  const Uuid tableID = tableBlock->id;
  step("Edit Table", [&] { emit window_->editor()->tableActivated(tableID); });
  QVERIFY(std::any_of(selected().blocks.begin(), selected().blocks.end(), [&](const Block& b) {
    return b.id == tableID && std::get<Table>(b.kind) == table;  // changed in place
  }));
  QTRY_COMPARE(window_->editor()->blocks(), selected().blocks);
  writeDocx(file("a.docx"), {"All new."});
  QTRY_COMPARE_WITH_TIMEOUT(statusOf(0), QString("Modified"), 5000);
  step("Update All Links", [&] { window_->action("updateAllLinks")->trigger(); });

  // Back to the start, one step at a time, then forward again.
  for (qsizetype i = states.size() - 1; i > 0; --i) {
    QCOMPARE(stack->undoText(), labels[i - 1]);
    window_->action("undo")->trigger();
    QCOMPARE(state_->document(), states[i - 1]);
  }
  for (qsizetype i = 1; i < states.size(); ++i) {
    window_->action("redo")->trigger();
    QCOMPARE(state_->document(), states[i]);
  }
  // Undoing Update Link shows the link modified again, the editor the story before it.
  while (stack->undoText() != "Update Link") window_->action("undo")->trigger();
  window_->action("undo")->trigger();
  QCOMPARE(stack->redoText(), QString("Update Link"));
  QTRY_COMPARE(statusOf(0), QString("Modified"));
  QTRY_COMPARE(window_->editor()->blocks(), selected().blocks);
  QVERIFY(window_->isWindowModified());
}

void MainWindowTest::styleMappingSheetOffersTheFilesStylesAndAppliesOnPlace() {
  {
    StyleMapSheet sheet({{"Epigraph", "Quote"}, {"Odd", "Caption"}}, {"Normal", "Subtitle"});
    QCOMPARE(sheet.result(), (StyleMap{{"Epigraph", "Quote"}, {"Odd", "Caption"}}));
    auto* target = qobject_cast<QComboBox*>(sheet.table()->cellWidget(1, 1));
    QCOMPARE(target->count(), 6);  // the five styles, and the foreign one marked
    target->setCurrentText("Title");
    sheet.addRow("Subtitle", "Heading 2");
    sheet.addRow("  ", "Title");  // no name: left out
    sheet.table()->setCurrentCell(0, 0);
    sheet.removeSelectedRow();
    QCOMPARE(sheet.result(), (StyleMap{{"Odd", "Title"}, {"Subtitle", "Heading 2"}}));
    auto* name = qobject_cast<QComboBox*>(sheet.table()->cellWidget(0, 0));
    QCOMPARE(name->count(), 2);
  }

  const QString example = QFINDTESTDATA("../../examples/the-lighthouse-keeper.docx");
  QVERIFY(window_->placeFiles({example}));
  dialogs_->styleMapAnswer = StyleMap{{"heading 1", "Heading 2"}};
  window_->action("styleMapping")->trigger();
  QVERIFY(dialogs_->offeredStyles.contains("heading 1"));
  QCOMPARE(state_->document().styleMap, *dialogs_->styleMapAnswer);
  QVERIFY(window_->placeFiles({example}));
  QCOMPARE(std::get<Paragraph>(selected().blocks.at(1).kind).styleName, std::string("Heading 2"));
}

void MainWindowTest::droppedFilesArePlacedAndRecentDocumentsReopen() {
  writeDocx(file("one.docx"), {"One"});
  writeDocx(file("two.docx"), {"Two"});
  QMimeData files;
  files.setUrls({QUrl::fromLocalFile(file("one.docx")), QUrl::fromLocalFile(file("two.docx"))});
  // A drop comes after an accepted drag enter, as the windowing system sends them.
  auto dropOnWindow = [&](QMimeData& data) {
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window_.get(), &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window_.get(), &drop);
  };
  dropOnWindow(files);
  QCOMPARE(state_->document().stories.size(), std::size_t(2));
  QCOMPARE(state_->document().stories[1].name, std::string("two"));
  QCOMPARE(window_->undoStack()->undoText(), QString("Place 2 Files"));

  dialogs_->answers << QStringList{file("first.inkharbour")};
  window_->action("saveAs")->trigger();
  window_->action("newDocument")->trigger();
  QMimeData document;
  document.setUrls({QUrl::fromLocalFile(file("first.inkharbour"))});
  dropOnWindow(document);
  QCOMPARE(window_->documentPath(), file("first.inkharbour"));

  window_->action("newDocument")->trigger();
  auto* recent = window_->findChild<QMenu*>("recentMenu");
  emit recent->aboutToShow();
  QCOMPARE(recent->actions().first()->toolTip(), file("first.inkharbour"));
  recent->actions().first()->trigger();
  QCOMPARE(state_->document().stories.size(), std::size_t(2));
}

void MainWindowTest::findInAllStoriesShowsHitsAndReplaceAllIsOneStep() {
  writeDocx(file("a.docx"), {"The keeper climbs.", "Nothing here."});
  writeDocx(file("b.docx"), {"Another KEEPER, and a keeper."});
  QVERIFY(window_->placeFiles({file("a.docx"), file("b.docx")}));
  window_->action("findAll")->trigger();
  auto* panel = window_->findChild<SearchPanel*>();
  panel->start("keeper");
  QCOMPARE(panel->results()->topLevelItemCount(), 2);  // one row a paragraph
  QCOMPARE(panel->results()->topLevelItem(1)->text(0), QString("b"));
  emit panel->results()->itemActivated(panel->results()->topLevelItem(0), 0);
  QCOMPARE(selected().name, std::string("a"));
  QTRY_COMPARE(window_->editor()->highlightCount(), 1);

  // Replace All over a hundred paragraphs of the story is one step to undo.
  std::vector<Block> lines;
  for (int i = 0; i < 100; ++i) lines.push_back(para("the lamp, the light " + std::to_string(i)));
  state_->replaceBlocks(selected().id, 0, 2, lines);
  window_->action("newStory")->trigger();  // and back: the editor loads the hundred lines
  state_->selectStory(state_->document().stories[0].id);
  QTRY_COMPARE(window_->editor()->blocks().size(), std::size_t(100));
  const ProjectDocument before = state_->document();

  window_->action("replace")->trigger();
  auto* bar = window_->findChild<FindBar*>();
  for (auto* field : bar->findChildren<QLineEdit*>())
    field->setText(field->accessibleName() == "Replace with" ? "a" : "the");
  bar->replaceAll();
  QCOMPARE(window_->undoStack()->undoText(), QString("Replace All"));
  QCOMPARE(std::get<Paragraph>(selected().blocks[7].kind).text(), std::string("a lamp, a light 7"));
  const ProjectDocument after = state_->document();
  window_->action("undo")->trigger();
  QCOMPARE(state_->document(), before);
  QTRY_COMPARE(window_->editor()->blocks(), selected().blocks);
  window_->action("redo")->trigger();
  QCOMPARE(state_->document(), after);
  QTRY_COMPARE(window_->editor()->blocks(), selected().blocks);
}

void MainWindowTest::footnotePanelEditsAndNeverUndoesAMerge() {
  auto writeWithNote = [&](const std::string& note) {
    Paragraph cited = Paragraph::make("Body", "Cited.");
    cited.runs.push_back(TextRun::footnoteReference(1));
    DocxWriter::write({Block{.kind = cited}},
                      {Footnote{.id = 1, .paragraphs = {Paragraph::make("Body", note)}}},
                      file("n.docx").toStdString());
  };
  writeWithNote("Old note.");
  QVERIFY(window_->placeFiles({file("n.docx")}));
  auto* box = window_->findChild<QPlainTextEdit*>();
  QTRY_COMPARE(box->toPlainText(), QString("Old note."));

  // The co-author's new note text survives the merge and the panel's refresh.
  writeWithNote("Their note.");
  QTRY_COMPARE_WITH_TIMEOUT(statusOf(0), QString("Modified"), 5000);
  window_->action("updateLink")->trigger();
  QTRY_COMPARE(box->toPlainText(), QString("Their note."));
  QTest::qWait(600);  // longer than the panel's commit delay
  QCOMPARE(selected().footnotes.at(0).text(), std::string("Their note."));
  QCOMPARE(window_->undoStack()->undoText(), QString("Update Link"));

  // The author's own edit is one step.
  box->setFocus();
  box->moveCursor(QTextCursor::End);
  QTest::keyClicks(box, " Mine.");
  QTRY_COMPARE(selected().footnotes.at(0).text(), std::string("Their note. Mine."));
  QCOMPARE(window_->undoStack()->undoText(), QString("Edit Footnote"));
}

void MainWindowTest::relinkButtonOnAMissingLinkKeepsTheBaseAndUndoes() {
  writeDocx(file("a.docx"), {"Here."});
  QVERIFY(window_->placeFiles({file("a.docx")}));
  const StoryLink before = *selected().link;
  QAction* relink = window_->action("relink");
  QToolButton* button = nullptr;
  for (auto* each : window_->findChildren<QToolButton*>())
    if (each->defaultAction() == relink) button = each;
  QVERIFY(button != nullptr);
  QVERIFY(!button->isVisible());
  QVERIFY(QDir().mkdir(file("moved")));
  QVERIFY(QFile::rename(file("a.docx"), file("moved/a.docx")));
  QTRY_VERIFY_WITH_TIMEOUT(button->isVisible(), 5000);
  QCOMPARE(statusOf(0), QString("Missing"));
  QVERIFY(relink->isVisible());  // in the Story menu, which the stories panel shares

  dialogs_->answers << QStringList{file("moved/a.docx")};
  QTest::mouseClick(button, Qt::LeftButton);
  QCOMPARE(dialogs_->requests.last().mode, FileRequest::Mode::open);
  QCOMPARE(QString::fromStdString(selected().link->path), file("moved/a.docx"));
  QCOMPARE(selected().link->baseBlocks, before.baseBlocks);
  QCOMPARE(statusOf(0), QString("Up to date"));
  QVERIFY(!button->isVisible());
  QCOMPARE(window_->undoStack()->undoText(), QString("Relink"));
  window_->undoStack()->undo();
  QCOMPARE(*selected().link, before);
}

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
