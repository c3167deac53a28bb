// The story editor, driven through real key and mouse events. After every
// step the blocks accumulated from its blocksEdited signals must equal both
// editor.blocks() and TextBridge::read of its document (the oracle), every
// table or picture must sit alone in its block, ids must be unique, and each
// user action's edits must be closed by one editFinished. Undo and redo are
// done as the window does them: the recorded edits, taken back or again,
// shown through applyEdit.

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QImage>
#include <QMainWindow>
#include <QMenu>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QtTest>

#include <functional>
#include <random>
#include <set>

#include "editor/flow_layout.h"
#include "editor/story_editor.h"
#include "editor/text_bridge.h"

using namespace inkharbour;
namespace TB = inkharbour::TextBridge;

namespace {

Block body(std::string text, std::string style = "Body") {
  return Block{.kind = Paragraph::make(std::move(style), std::move(text))};
}

Block table() {
  Table t;
  t.rows = {{TableCell{{Paragraph::make("Body", "a")}}, TableCell{{Paragraph::make("Body", "b")}}}};
  return Block{.kind = t};
}

Block picture() {
  QImage image(40, 30, QImage::Format_RGB32);
  image.fill(Qt::red);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return Block{.kind = ImageBlock{.data = Data(bytes.begin(), bytes.end()), .name = "red.png"}};
}

// "Body:text | table | picture", runs joined, for readable expectations.
QString shape(const std::vector<Block>& blocks) {
  QStringList parts;
  for (const auto& block : blocks) {
    const auto* p = std::get_if<Paragraph>(&block.kind);
    const bool isTable = std::holds_alternative<Table>(block.kind);
    parts << (p ? QString::fromStdString(p->styleName + ":" + p->text())
                : QString::fromLatin1(isTable ? "table" : "picture"));
  }
  return parts.join(QStringLiteral(" | "));
}

const Paragraph& paragraphOf(const Block& block) {
  return std::get<Paragraph>(block.kind);
}

using Kind = StoryEditor::EditKind;

// One reported edit and the blocks it replaced: enough to take it back.
struct Edit {
  std::size_t first = 0;
  std::vector<Block> removed, inserted;
};
using Action = std::vector<Edit>;

// An editor on screen, the model its signals have built, and its user
// actions as the window's undo stack holds them.
struct Harness {
  StoryEditor editor;
  std::vector<Block> model;
  int reports = 0;
  Action open;                       // edits not finished yet
  std::vector<Action> done, undone;  // for undo and redo
  std::vector<Kind> kinds;
  QString broken;

  explicit Harness(std::vector<Block> blocks) : model(blocks) {
    editor.resize(640, 480);
    editor.show();
    editor.setStory(blocks, false);
    QObject::connect(&editor, &StoryEditor::blocksEdited,
                     [this](std::size_t first, std::size_t removed, const std::vector<Block>& in) {
                       ++reports;
                       if (first + removed > model.size()) {
                         broken = QStringLiteral("an edit beyond the model");
                         return;
                       }
                       const auto at = model.begin() + static_cast<std::ptrdiff_t>(first);
                       open.push_back({first, {at, at + static_cast<std::ptrdiff_t>(removed)}, in});
                       replace(first, removed, in);
                     });
    QObject::connect(&editor, &StoryEditor::editFinished, [this](Kind kind) {
      if (open.empty()) broken = QStringLiteral("editFinished without an edit");
      kinds.push_back(kind);
      done.push_back(std::exchange(open, {}));
      undone.clear();
    });
  }

  void replace(std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
    const auto at = model.begin() + static_cast<std::ptrdiff_t>(first);
    model.insert(model.erase(at, at + static_cast<std::ptrdiff_t>(removed)), inserted.begin(),
                 inserted.end());
  }

  // A model edit shown through applyEdit, which must not report it.
  void apply(std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
    const int before = reports;
    replace(first, removed, inserted);
    editor.applyEdit(first, removed, inserted);
    if (reports != before) broken = QStringLiteral("applyEdit reported an edit");
  }

  // Takes the last action back (its edits inverted, last first), or does
  // the last one taken back again.
  void undo() { step(done, undone, true); }
  void redo() { step(undone, done, false); }
  void step(std::vector<Action>& from, std::vector<Action>& to, bool back) {
    if (from.empty()) return;
    to.push_back(std::move(from.back()));
    from.pop_back();
    for (std::size_t i = 0, n = to.back().size(); i < n; ++i) {
      const Edit& e = to.back()[back ? n - 1 - i : i];
      apply(e.first, (back ? e.inserted : e.removed).size(), back ? e.removed : e.inserted);
    }
  }

  QTextDocument& document() { return *editor.document(); }

  void caret(int block, int offset) {
    QTextCursor cursor(document().findBlockByNumber(block));
    cursor.setPosition(cursor.position() + offset);
    editor.setTextCursor(cursor);
  }

  void select(int fromBlock, int fromOffset, int toBlock, int toOffset) {
    QTextCursor cursor(&document());
    cursor.setPosition(document().findBlockByNumber(fromBlock).position() + fromOffset);
    cursor.setPosition(document().findBlockByNumber(toBlock).position() + toOffset,
                       QTextCursor::KeepAnchor);
    editor.setTextCursor(cursor);
  }

  // Empty when all is well, else what is wrong. Given `expected`, the
  // blocks must also read so, as shape gives them.
  QString problem(const QString& expected = {}) {
    if (!broken.isEmpty()) return broken;
    if (!open.empty()) return QStringLiteral("edits without editFinished");
    const auto shown = editor.blocks();
    if (shown != model)
      return "signals gave\n" + shape(model) + "\nthe editor shows\n" + shape(shown);
    if (TB::read(document()) != shown)
      return QStringLiteral("blocks() differs from TextBridge::read");
    if (document().blockCount() != std::max<int>(1, static_cast<int>(shown.size())))
      return QStringLiteral("not one document block per model block");
    std::set<Uuid> ids;
    for (const auto& block : shown) {
      if (!ids.insert(block.id).second)
        return "duplicate id " + QString::fromStdString(block.id.string());
    }
    for (QTextBlock block = document().firstBlock(); block.isValid(); block = block.next()) {
      if (!TB::isAtomic(block) && block.text().contains(QChar::ObjectReplacementCharacter)) {
        return QStringLiteral("an object shares block %1").arg(block.blockNumber());
      }
    }
    if (!expected.isNull() && shape(shown) != expected)
      return "the blocks read\n" + shape(shown) + "\nnot\n" + expected;
    return {};
  }
};

// A window that takes dropped files, as the main window does.
struct FileWindow : QMainWindow {
  QList<QUrl> dropped;
  void dragEnterEvent(QDragEnterEvent* event) override { event->acceptProposedAction(); }
  void dropEvent(QDropEvent* event) override {
    dropped += event->mimeData()->urls();
    event->acceptProposedAction();
  }
};

#define CHECK(h, ...)                             \
  do {                                            \
    const QString why = (h).problem(__VA_ARGS__); \
    QVERIFY2(why.isEmpty(), qPrintable(why));     \
  } while (false)

}  // namespace

class StoryEditorTest : public QObject {
  Q_OBJECT

 private slots:
  void typingReportsOnlyTheEditedBlockAndKeepsFootnoteMarks();
  void splittingAndJoiningKeepIDs();
  void applyEditShowsModelEdits();
  void undoKeysAndFileDropsBelongToTheWindow();
  void tablesAndPicturesAreAtomic_data();
  void tablesAndPicturesAreAtomic();
  void pasteReducesForeignRichTextAndGivesCopiesFreshIDs();
  void formatActions();
  void findReplaceAndHighlight();
  void wordCountsAndDoubleClickOnATable();
  void reloadKeepsThePlaceAndNoStoryTakesNoTyping();
  void layoutPlacesBlocksEndToEnd();
  void randomEditsKeepTheOracle();
};

void StoryEditorTest::typingReportsOnlyTheEditedBlockAndKeepsFootnoteMarks() {
  // The third block holds what a document cannot: it must come back untouched.
  const Block odd{
      .kind = Paragraph{.styleName = "Quote",
                        .runs = {TextRun{.text = ""}, TextRun{.text = "a"}, TextRun{.text = "b"}}}};
  const Block noted{.kind =
                        Paragraph{.styleName = "Body",
                                  .runs = {TextRun::footnoteReference(4), TextRun{.text = " Text"},
                                           TextRun::footnoteReference(5)}}};
  Harness h({body("zero"), body("one", "Heading 1"), odd, noted});
  h.caret(1, 3);
  QTest::keyClicks(&h.editor, " moree");
  QTest::keyClick(&h.editor, Qt::Key_Backspace);
  CHECK(h, "Body:zero | Heading 1:one more | Quote:ab | Body:[4] Text[5]");
  QVERIFY(h.model[2] == odd);
  QCOMPARE(h.kinds, std::vector<Kind>(7, Kind::typing));
  for (const auto& a : h.done)
    QVERIFY(a.size() == 1 && a[0].first == 1 && a[0].removed.size() == 1 &&
            a[0].inserted.size() == 1);

  // Text typed beside a footnote mark is plain text of its own.
  h.caret(3, 11);  // after the last mark
  QTest::keyClicks(&h.editor, " more");
  h.caret(3, 0);  // before the first
  QTest::keyClicks(&h.editor, "Lead");
  CHECK(h);
  QVERIFY(paragraphOf(h.model[3]).runs ==
          (std::vector<TextRun>{TextRun{.text = "Lead"}, TextRun::footnoteReference(4),
                                TextRun{.text = " Text"}, TextRun::footnoteReference(5),
                                TextRun{.text = " more"}}));
  QVERIFY(!h.editor.hasCharacterFormat(StoryEditor::CharacterFormat::superscript));
}

void StoryEditorTest::splittingAndJoiningKeepIDs() {
  Harness h({body("alpha beta"), body("gamma")});
  const Uuid alpha = h.model[0].id;
  const Uuid gamma = h.model[1].id;
  h.caret(0, 5);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h, "Body:alpha | Body: beta | Body:gamma");
  QCOMPARE(h.model[0].id, alpha);

  // At the very start the text moves down and keeps its id.
  h.caret(2, 0);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h, "Body:alpha | Body: beta | Body: | Body:gamma");
  QCOMPARE(h.model[3].id, gamma);

  h.caret(1, 0);
  QTest::keyClick(&h.editor, Qt::Key_Backspace);
  CHECK(h, "Body:alpha beta | Body: | Body:gamma");
  QCOMPARE(h.model[0].id, alpha);

  // Enter in an empty paragraph keeps its style and id (Qt's own would
  // clear its format); after a heading the new paragraph is Body text; and
  // Enter over a selection only removes it.
  h.editor.setParagraphStyle(QStringLiteral("Heading 1"));
  h.caret(1, 0);
  const Uuid empty = h.model[1].id;
  h.editor.setParagraphStyle(QStringLiteral("Heading 2"));
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h, "Heading 1:alpha beta | Heading 2: | Body: | Body:gamma");
  QCOMPARE(h.model[1].id, empty);
  h.select(0, 6, 3, 2);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h, "Heading 1:alpha  | Heading 1:mma");
  QCOMPARE(h.kinds, std::vector<Kind>(7, Kind::other));
}

void StoryEditorTest::applyEditShowsModelEdits() {
  // Insertions in front, between and at the end; removals in the middle,
  // in front and down to the empty story; then back to the start.
  const std::vector<Block> start = {body("one"), body("two three")};
  Harness h(start);
  h.apply(0, 0, {body("a b"), table()});
  QCOMPARE(h.editor.textCursor().blockNumber(), 1);  // after the last block given
  h.apply(4, 0, {picture()});
  h.apply(2, 0,
          {Block{.kind = Paragraph{.styleName = "Quote", .runs = {{.text = ""}, {.text = "c"}}}}});
  CHECK(h, "Body:a b | table | Quote:c | Body:one | Body:two three | picture");
  QCOMPARE(h.editor.wordCount(), qint64(6));
  h.apply(1, 4, {});
  CHECK(h);
  QCOMPARE(h.editor.textCursor().blockNumber(), 1);  // the block after the range
  h.apply(1, 1, {});
  CHECK(h);
  h.apply(0, 1, {});
  CHECK(h);
  QCOMPARE(h.editor.wordCount(), qint64(0));
  h.apply(0, 0, start);
  CHECK(h);
  QVERIFY(h.model == start);
  QCOMPARE(h.editor.textCursor().positionInBlock(), 9);
}

void StoryEditorTest::undoKeysAndFileDropsBelongToTheWindow() {
  FileWindow window;
  window.setAcceptDrops(true);
  auto* editor = new StoryEditor;
  window.setCentralWidget(editor);
  QAction undo, redo;
  undo.setShortcut(Qt::CTRL | Qt::Key_Z);
  redo.setShortcuts({Qt::CTRL | Qt::SHIFT | Qt::Key_Z, Qt::CTRL | Qt::Key_Y});
  window.addActions({&undo, &redo});
  QSignalSpy undone(&undo, &QAction::triggered), redone(&redo, &QAction::triggered);
  window.show();
  window.activateWindow();
  QVERIFY(QTest::qWaitForWindowActive(&window));
  editor->setStory({body("text")}, false);
  editor->setFocus();
  QTest::keyClicks(editor, "ab");
  QTest::keyClick(editor, Qt::Key_Z, Qt::ControlModifier);
  QTest::keyClick(editor, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  QTest::keyClick(editor, Qt::Key_Y, Qt::ControlModifier);
  QCOMPARE(undone.count(), 1);
  QCOMPARE(redone.count(), 2);

  // So do the context menu's entries.
  QSignalSpy asked(editor, &StoryEditor::undoRequested);
  editor->setCanUndo(true);
  QContextMenuEvent click(QContextMenuEvent::Mouse, {10, 10}, editor->mapToGlobal(QPoint(10, 10)));
  QCoreApplication::sendEvent(editor->viewport(), &click);
  auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
  QVERIFY(menu && !menu->findChild<QAction*>(QStringLiteral("edit-redo"))->isEnabled());
  menu->findChild<QAction*>(QStringLiteral("edit-undo"))->trigger();
  menu->close();
  QCOMPARE(asked.count(), 1);
  QCOMPARE(shape(editor->blocks()), QStringLiteral("Body:abtext"));

  // Files dragged from a file manager pass the editor by; text does not.
  const auto drag = [&](QMimeData& data) {
    const QPoint at = editor->cursorRect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, {});
    QCoreApplication::sendEvent(editor->viewport(), &enter);
    QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, {});
    QCoreApplication::sendEvent(editor->viewport(), &drop);
  };
  const QList<QUrl> files = {QUrl::fromLocalFile(QStringLiteral("/tmp/notes.docx")),
                             QUrl::fromLocalFile(QStringLiteral("/tmp/red.png"))};
  QMimeData fileData;
  fileData.setUrls(files);
  fileData.setText(QStringLiteral("/tmp/notes.docx\n/tmp/red.png"));
  drag(fileData);
  QCOMPARE(window.dropped, files);
  QMimeData textData;
  textData.setText(QStringLiteral("dropped "));
  drag(textData);
  QCOMPARE(window.dropped, files);
  QCOMPARE(shape(editor->blocks()), QStringLiteral("Body:abdropped text"));
}

void StoryEditorTest::tablesAndPicturesAreAtomic_data() {
  // The story: 0 "first", 1 table, 2 "second", 3 picture, 4 "third". The
  // selection (a caret when empty) gets `keys` ('\b' Backspace, '\x7f'
  // Delete, '\r' Enter), or is cut when there are none.
  QTest::addColumn<QList<int>>("selection");
  QTest::addColumn<QString>("keys");
  QTest::addColumn<QString>("expected");
  const auto row = [](const char* name, QList<int> selection, const char* keys,
                      const char* expected) {
    QTest::newRow(name) << selection << QString::fromLatin1(keys) << QString::fromUtf8(expected);
  };
  row("typing after a table", {1, 1, 1, 1}, "x",
      "Body:first | table | Body:x | Body:second | picture | Body:third");
  row("typing before a picture", {3, 0, 3, 0}, "y",
      "Body:first | table | Body:second | Body:y | picture | Body:third");
  row("Enter at a table", {1, 1, 1, 1}, "\r",
      "Body:first | table | Body: | Body:second | picture | Body:third");
  row("Backspace selects, then removes", {2, 0, 2, 0}, "\b\b",
      "Body:first | Body:second | picture | Body:third");
  row("Delete selects, then removes", {2, 6, 2, 6}, "\x7f\x7f",
      "Body:first | table | Body:second | Body:third");
  row("selection through a table", {0, 2, 2, 3}, "\x7f", "Body:fiond | picture | Body:third");
  row("selection from a table into text", {1, 0, 2, 3}, "\b",
      "Body:first | Body:ond | picture | Body:third");
  row("selection from text up to a picture", {2, 3, 3, 0}, "\x7f",
      "Body:first | table | Body:sec | picture | Body:third");
  row("typing over a selection with a table", {0, 5, 2, 0}, "Z",
      "Body:firstZsecond | picture | Body:third");
  row("typing over a table selected alone", {1, 0, 1, 1}, "m",
      "Body:first | Body:m | Body:second | picture | Body:third");
  row("typing over a picture Backspace selected", {4, 0, 4, 0}, "\bm",
      "Body:first | table | Body:second | Body:m | Body:third");
  row("cut of a picture alone", {3, 0, 3, 1}, "", "Body:first | table | Body:second | Body:third");
  row("cut from inside text to after a table", {0, 3, 1, 1}, "",
      "Body:fir | Body:second | picture | Body:third");
  row("cut from before a table into text", {1, 0, 2, 2}, "",
      "Body:first | Body:cond | picture | Body:third");
}

void StoryEditorTest::tablesAndPicturesAreAtomic() {
  QFETCH(QList<int>, selection);
  QFETCH(QString, keys);
  QFETCH(QString, expected);
  const std::vector<Block> start = {body("first"), table(), body("second"), picture(),
                                    body("third")};
  Harness h(start);
  h.select(selection[0], selection[1], selection[2], selection[3]);
  if (keys.isEmpty()) h.editor.cut();
  for (const QChar key : keys) {
    // Delete is beyond keyClicks.
    key == u'\x7f' ? QTest::keyClick(&h.editor, Qt::Key_Delete)
                   : QTest::keyClicks(&h.editor, QString(key));
  }
  CHECK(h, expected);
  for (const auto& block : h.model) {
    if (std::holds_alternative<Table>(block.kind)) QVERIFY(block == start[1]);
    if (std::holds_alternative<ImageBlock>(block.kind)) QVERIFY(block == start[3]);
  }
  // Whatever happened was one action.
  QCOMPARE(h.kinds, std::vector<Kind>{Kind::other});
  h.undo();
  CHECK(h);
  QVERIFY(h.model == start);
}

void StoryEditorTest::pasteReducesForeignRichTextAndGivesCopiesFreshIDs() {
  Harness h({body("before"), body("")});
  auto* data = new QMimeData;
  data->setHtml(QStringLiteral(
      "<html><head><style>p { font-family: Georgia; }</style></head><body>"
      "<h1>Chapter <b>One</b></h1>"
      "<p style=\"font-size:11pt\">Plain <span style=\"font-weight:700\">bold</span> <i>it</i> "
      "<a href=\"http://example.com\">link</a> <span style=\"color:#000000\">black</span> "
      "<span style=\"color:#ff0000\">red</span><sup>2</sup></p>"
      "<p style=\"font-size:28pt\">Big Title</p>"
      "<blockquote>Quoted</blockquote>"
      "<h3>Small heading</h3>"
      "<table border=\"1\"><tr><td>a</td><td><b>b</b></td></tr><tr><td "
      "colspan=\"2\">c</td></tr></table>"
      "</body></html>"));
  data->setText(QStringLiteral("plain fallback"));
  QGuiApplication::clipboard()->setMimeData(data);
  h.caret(1, 0);
  h.editor.paste();
  CHECK(h,
        "Body:before | Heading 1:Chapter One | Body:Plain bold it link black red2 | "
        "Title:Big Title | Quote:Quoted | Heading 2:Small heading | table");
  const std::vector<TextRun> expected = {
      TextRun{.text = "Plain "},
      TextRun{.text = "bold", .bold = true},
      TextRun{.text = " "},
      TextRun{.text = "it", .italic = true},
      TextRun{.text = " link black "},
      TextRun{.text = "red", .colorHex = "FF0000"},
      TextRun{.text = "2", .script = ScriptPosition::superscript}};
  QVERIFY(paragraphOf(h.model[2]).runs == expected);
  QVERIFY(paragraphOf(h.model[1]).runs.size() == 1);  // the heading's own bold is not the author's
  const auto& pasted = std::get<Table>(h.model[6].kind);
  QCOMPARE(pasted.rows.size(), std::size_t(2));
  QCOMPARE(pasted.rows[1].size(), std::size_t(1));
  QVERIFY(pasted.rows[0][1].paragraphs[0].runs[0].bold);

  // The editor's own copies keep everything but the ids (CHECK finds them unique).
  Harness c({body("first"), table(), body("second"), body("end")});
  c.select(0, 3, 2, 3);
  c.editor.copy();
  c.caret(3, 3);
  c.editor.paste();
  CHECK(c, "Body:first | table | Body:second | Body:endst | table | Body:sec");
  QCOMPARE(std::get<Table>(c.model[4].kind), std::get<Table>(c.model[1].kind));

  QGuiApplication::clipboard()->setText(QStringLiteral("one\ntwo"));
  c.caret(0, 0);
  c.editor.pastePlainText();
  CHECK(c);
  QCOMPARE(shape(c.model).section(QStringLiteral(" | "), 0, 1),
           QStringLiteral("Body:one | Body:twofirst"));
}

void StoryEditorTest::formatActions() {
  using F = StoryEditor::CharacterFormat;
  Harness h({body("one two"), table(), body("three")});
  h.select(0, 4, 2, 5);
  h.editor.setCharacterFormat(F::bold, true);
  CHECK(h);
  QVERIFY(paragraphOf(h.model[0]).runs[1] == (TextRun{.text = "two", .bold = true}));
  QVERIFY(paragraphOf(h.model[2]).runs[0] == (TextRun{.text = "three", .bold = true}));
  h.editor.setParagraphStyle(QStringLiteral("Quote"));
  CHECK(h, "Quote:one two | table | Quote:three");

  h.undo();
  h.undo();
  CHECK(h, "Body:one two | table | Body:three");
  QVERIFY(paragraphOf(h.model[0]).runs.size() == 1);

  // With no selection the format applies to what is typed next; superscript
  // and subscript exclude each other.
  h.caret(2, 5);
  h.editor.setCharacterFormat(F::superscript, true);
  h.editor.setCharacterFormat(F::subscript, true);
  QVERIFY(h.editor.hasCharacterFormat(F::subscript));
  QVERIFY(!h.editor.hasCharacterFormat(F::superscript));
  QTest::keyClicks(&h.editor, "2");
  CHECK(h);
  QVERIFY(paragraphOf(h.model[2]).runs[1] ==
          (TextRun{.text = "2", .script = ScriptPosition::subscript}));
  QCOMPARE(h.editor.paragraphStyle(), QStringLiteral("Body"));
  h.caret(1, 0);
  QCOMPARE(h.editor.paragraphStyle(), QString());
}

void StoryEditorTest::findReplaceAndHighlight() {
  Harness h({body("The cat and the hat"), table(), body("the end")});
  QVERIFY(h.editor.find(QStringLiteral("the")));
  QCOMPARE(h.editor.textCursor().selectionStart(), 0);
  QVERIFY(h.editor.find(QStringLiteral("the")));
  QVERIFY(h.editor.find(QStringLiteral("the")));
  QCOMPARE(h.editor.textCursor().block().blockNumber(), 2);
  QVERIFY(h.editor.find(QStringLiteral("the")));  // wraps around
  QCOMPARE(h.editor.textCursor().selectionStart(), 0);
  QVERIFY(h.editor.find(QStringLiteral("the"), true, true));
  QCOMPARE(h.editor.textCursor().block().blockNumber(), 2);
  QVERIFY(!h.editor.find(QStringLiteral("dog")));

  h.editor.highlight(QStringLiteral("the"));
  QCOMPARE(h.editor.highlightCount(), 3);
  QCOMPARE(h.editor.extraSelections().size(), 3);
  h.editor.highlight(QStringLiteral("the"), true);
  QCOMPARE(h.editor.highlightCount(), 2);
  QVERIFY(!h.document().isModified());
  QCOMPARE(h.reports, 0);
  h.editor.highlight(QString());
  QCOMPARE(h.editor.extraSelections().size(), 0);

  const Block formatted{
      .kind = Paragraph{.styleName = "Body",
                        .runs = {TextRun{.text = "The "}, TextRun{.text = "cat", .bold = true},
                                 TextRun{.text = " sat; "}, TextRun{.text = "THE", .italic = true},
                                 TextRun{.text = " end"}}}};
  const Block noted{.kind =
                        Paragraph{.styleName = "Quote",
                                  .runs = {TextRun{.text = "a cat"}, TextRun::footnoteReference(1),
                                           TextRun{.text = " at 1"}}}};
  const std::vector<Block> start = {formatted, table(), noted, picture(), body("the last")};
  Harness r(start);
  // Not at a hit: only the next one (wrapping around) is selected.
  r.caret(2, 5);
  QVERIFY(!r.editor.replaceSelection(QStringLiteral("cat"), QStringLiteral("dog")));
  QVERIFY(!r.editor.replaceSelection(QStringLiteral("CAT"), QStringLiteral("dog"), true));
  QCOMPARE(r.reports, 0);
  QCOMPARE(r.editor.textCursor().selectedText(), QStringLiteral("cat"));
  QCOMPARE(r.editor.textCursor().blockNumber(), 0);
  QVERIFY(r.editor.replaceSelection(QStringLiteral("cat"), QStringLiteral("dog")));
  CHECK(r);
  QCOMPARE(r.editor.textCursor().blockNumber(), 2);  // the next hit
  QCOMPARE(r.editor.textCursor().selectedText(), QStringLiteral("cat"));

  // Hits in every paragraph, in runs of their own formats; none in the table
  // (whose cells hold "a" and "b") nor in a footnote mark ("[1]").
  QCOMPARE(r.editor.replaceAll(QStringLiteral("b"), QStringLiteral("x"), true), 0);
  QCOMPARE(r.editor.replaceAll(QStringLiteral("the"), QStringLiteral("a")), 3);
  CHECK(r);
  QCOMPARE(r.done.back().size(), std::size_t(2));  // the changed paragraphs, one by one
  for (const Edit& edit : r.done.back()) {
    QVERIFY(edit.first == 0 || edit.first == 4);
    QVERIFY(edit.removed.size() == 1 && edit.inserted.size() == 1);
    QCOMPARE(edit.inserted[0].id, edit.removed[0].id);
  }
  QCOMPARE(r.editor.replaceAll(QStringLiteral("1"), QStringLiteral("one\ntwo"), true), 1);
  CHECK(r,
        "Body:a dog sat; a end | table | "
        "Quote:a cat[1] at one\u2028two | picture | Body:a last");
  QVERIFY(paragraphOf(r.model[0]).runs ==
          (std::vector<TextRun>{TextRun{.text = "a "}, TextRun{.text = "dog", .bold = true},
                                TextRun{.text = " sat; "}, TextRun{.text = "a", .italic = true},
                                TextRun{.text = " end"}}));
  QVERIFY(paragraphOf(r.model[2]).runs[1] == TextRun::footnoteReference(1));
  QVERIFY(r.model[1] == start[1] && r.model[3] == start[3]);
  QCOMPARE(r.kinds, std::vector<Kind>(3, Kind::other));
  while (!r.done.empty()) r.undo();
  CHECK(r);
  QVERIFY(r.model == start);
}

void StoryEditorTest::wordCountsAndDoubleClickOnATable() {
  const Block noted{
      .kind = Paragraph{.styleName = "Body",
                        .runs = {TextRun{.text = "Two words"}, TextRun::footnoteReference(12)}}};
  Harness h({body("One, two — three."), noted, table()});
  QCOMPARE(h.editor.wordCount(), qint64(5));
  QSignalSpy changed(&h.editor, &StoryEditor::wordCountChanged);
  h.caret(1, 0);
  QTest::keyClicks(&h.editor, "More ");
  QCOMPARE(h.editor.wordCount(), qint64(6));
  QVERIFY(changed.count() >= 1);
  h.select(0, 5, 1, 4);  // "two — three." and "More"
  QCOMPARE(h.editor.selectedWordCount(), qint64(3));

  // A double click opens the table, and only the table.
  QSignalSpy opened(&h.editor, &StoryEditor::tableActivated);
  const QRectF rect = h.document().documentLayout()->blockBoundingRect(h.document().lastBlock());
  const QPoint inside =
      rect.topLeft().toPoint() + QPoint(20, 10) -
      QPoint(h.editor.horizontalScrollBar()->value(), h.editor.verticalScrollBar()->value());
  QTest::mouseDClick(h.editor.viewport(), Qt::LeftButton, {}, inside);
  QCOMPARE(opened.count(), 1);
  QCOMPARE(opened.at(0).at(0).value<Uuid>(), h.model[2].id);
  QTest::mouseDClick(h.editor.viewport(), Qt::LeftButton, {}, QPoint(10, 8));
  QCOMPARE(opened.count(), 1);
}

void StoryEditorTest::reloadKeepsThePlaceAndNoStoryTakesNoTyping() {
  std::vector<Block> blocks;
  for (int i = 0; i < 300; ++i) blocks.push_back(body("Paragraph number " + std::to_string(i)));
  Harness h(blocks);
  h.caret(200, 4);
  h.editor.ensureCursorVisible();
  const int scroll = h.editor.verticalScrollBar()->value();
  QVERIFY(scroll > 0);
  blocks.insert(blocks.begin(), body("a new first paragraph"));
  h.editor.setStory(blocks, true);
  QCOMPARE(h.editor.textCursor().blockNumber(), 201);
  QCOMPARE(h.editor.textCursor().positionInBlock(), 4);
  QCOMPARE(h.editor.verticalScrollBar()->value(), scroll);
  QVERIFY(!h.document().isUndoRedoEnabled());  // the window's undo has it all

  h.editor.scrollToBlock(blocks[30].id);
  QCOMPARE(h.editor.textCursor().blockNumber(), 30);
  QVERIFY(h.editor.viewport()->rect().contains(h.editor.cursorRect()));

  // With no story the editor takes nothing.
  h.editor.clearStory();
  QVERIFY(h.editor.isReadOnly());
  QTest::keyClicks(&h.editor, "typed");
  QVERIFY(h.editor.blocks().empty());
  QCOMPARE(h.editor.wordCount(), qint64(0));

  // An empty story takes what is typed as a Body paragraph.
  h.editor.setStory({}, false);
  h.model.clear();
  QVERIFY(h.editor.blocks().empty());
  QTest::keyClicks(&h.editor, "a");
  CHECK(h, "Body:a");
}

void StoryEditorTest::layoutPlacesBlocksEndToEnd() {
  // Long enough to be laid out in the background, after the first paint.
  std::vector<Block> blocks;
  for (int i = 0; i < 6000; ++i) {
    blocks.push_back(i % 500 == 7
                         ? table()
                         : body(std::string(static_cast<std::size_t>(i % 7) * 40, 'w') + " end",
                                i % 50 == 0 ? "Heading 1" : "Body"));
  }
  Harness h(blocks);
  auto* layout = h.document().documentLayout();
  // The view stays on the same text while the blocks above it are laid out.
  h.editor.verticalScrollBar()->setValue(h.editor.verticalScrollBar()->maximum() / 2);
  const int shown = h.editor.cursorForPosition(QPoint(5, 5)).blockNumber();
  QTRY_VERIFY_WITH_TIMEOUT(static_cast<FlowLayout*>(layout)->isComplete(), 20000);
  QCoreApplication::processEvents();
  QCOMPARE(h.editor.cursorForPosition(QPoint(5, 5)).blockNumber(), shown);

  h.caret(3000, 0);
  QTest::keyClicks(&h.editor, std::string(300, 'x').c_str());  // the paragraph grows by lines
  QTest::keyClick(&h.editor, Qt::Key_Return);
  h.caret(507, 0);  // at a table: the text goes into a new paragraph in front of it
  QTest::keyClicks(&h.editor, "m");
  // Most paragraphs one line longer, each edited by itself.
  QVERIFY(h.editor.replaceAll(QStringLiteral("w end"), QStringLiteral("w\nend")) > 4000);
  CHECK(h);
  QCOMPARE(shape({h.model.begin() + 507, h.model.begin() + 509}), QStringLiteral("Body:m | table"));
  // Every block where a fresh layout of the same text puts it.
  std::unique_ptr<QTextDocument> copy(h.document().clone());
  copy->setDocumentMargin(h.document().documentMargin());
  copy->setDefaultFont(h.document().defaultFont());
  copy->setDocumentLayout(new FlowLayout(copy.get()));
  copy->setPageSize(h.document().pageSize());
  for (QTextBlock block = copy->firstBlock(); block.isValid(); block = block.next())
    TB::decorate(block, false);
  qreal bottom = layout->blockBoundingRect(h.document().firstBlock()).top();
  QTextBlock fresh = copy->firstBlock();
  for (QTextBlock block = h.document().firstBlock(); block.isValid();
       block = block.next(), fresh = fresh.next()) {
    const QRectF rect = layout->blockBoundingRect(block);
    QCOMPARE(rect.top(), bottom);
    QCOMPARE(rect, copy->documentLayout()->blockBoundingRect(fresh));
    bottom = rect.bottom();
    if (block.blockNumber() % 97 == 0) {
      QCOMPARE(h.document().findBlock(layout->hitTest(rect.center(), Qt::FuzzyHit)), block);
    }
  }
  QCOMPARE(layout->documentSize().height(), bottom + h.document().documentMargin());
}

void StoryEditorTest::randomEditsKeepTheOracle() {
  std::vector<Block> start;
  for (int i = 0; i < 12; ++i) {
    start.push_back(i % 4 == 1 ? table()
                    : i % 4 == 3
                        ? picture()
                        : body("paragraph " + std::to_string(i), i == 0 ? "Title" : "Body"));
  }
  Harness h(start);
  std::mt19937 random(20240611);
  const auto pick = [&](int n) {
    return static_cast<int>(random() % static_cast<unsigned>(std::max(n, 1)));
  };
  const auto anywhere = [&] { return pick(h.document().characterCount()); };
  const auto key = [&](Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
    QTest::keyClick(&h.editor, key, modifiers);
  };
  const std::function<void()> actions[] = {
      [&] { QTest::keyClicks(&h.editor, "ab c"); },
      [&] { key(Qt::Key_Return, Qt::ShiftModifier); },
      [&] { key(Qt::Key_Return); },
      [&] { key(Qt::Key_Backspace); },
      [&] { key(Qt::Key_Delete); },
      [&] { key(pick(2) ? Qt::Key_Backspace : Qt::Key_Delete, Qt::ControlModifier); },
      [&] { h.editor.cut(); },
      [&] {
        auto* data = new QMimeData;
        data->setHtml(
            QStringLiteral("<p>x<b>y</b></p><table><tr><td>q</td></tr></table><h1>H</h1>"));
        QGuiApplication::clipboard()->setMimeData(data);
        h.editor.paste();
      },
      [&] {
        h.editor.copy();
        h.editor.setTextCursor(QTextCursor(h.document().findBlock(anywhere())));
        h.editor.paste();
      },
      [&] {
        h.editor.setParagraphStyle(pick(2) ? QStringLiteral("Heading 2") : QStringLiteral("Quote"));
      },
      [&] { h.editor.setCharacterFormat(StoryEditor::CharacterFormat::italic, pick(2) == 0); },
      [&] { h.undo(), key(Qt::Key_Z, Qt::ControlModifier); },  // the key is the window's
      [&] { h.redo(); },
      [&] {  // the first selects a hit, the second replaces it
        h.editor.replaceSelection(QStringLiteral("AB"), QStringLiteral("q"));
        h.editor.replaceSelection(QStringLiteral("AB"), QStringLiteral("q"));
      },
      [&] { h.editor.replaceAll(QStringLiteral("c"), QStringLiteral("\nC"), pick(2) == 0); },
  };
  for (int step = 0; step < 400; ++step) {
    QTextCursor cursor(&h.document());
    cursor.setPosition(anywhere());
    if (pick(3) == 0) cursor.setPosition(anywhere(), QTextCursor::KeepAnchor);
    h.editor.setTextCursor(cursor);
    const std::size_t chosen = pick(std::size(actions)), before = h.kinds.size();
    actions[chosen]();
    // Enter, word erasing, cutting, pasting and formatting are never typing.
    if (chosen == 2 || chosen > 4)
      QVERIFY(!std::count(h.kinds.begin() + before, h.kinds.end(), Kind::typing));
    const QString why = h.problem();
    QVERIFY2(why.isEmpty(), qPrintable(QStringLiteral("step %1: %2").arg(step).arg(why)));
  }
  // Undoing everything gives back the story, ids included.
  while (!h.done.empty()) h.undo();
  CHECK(h);
  QVERIFY2(h.model == start, qPrintable(shape(h.model)));
}

QTEST_MAIN(StoryEditorTest)
#include "story_editor_test.moc"
