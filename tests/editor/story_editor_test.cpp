// The story editor, driven through real key and mouse events. After every
// step the blocks accumulated from its blocksEdited signals must equal both
// editor.blocks() and TextBridge::read of its document (the oracle), every
// table or picture must sit alone in its block, and ids must be unique.

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QImage>
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
    if (const auto* p = std::get_if<Paragraph>(&block.kind)) {
      parts << QString::fromStdString(p->styleName + ":" + p->text());
    } else {
      parts << (std::holds_alternative<Table>(block.kind) ? QStringLiteral("table")
                                                          : QStringLiteral("picture"));
    }
  }
  return parts.join(QStringLiteral(" | "));
}

const Paragraph& paragraphOf(const Block& block) {
  return std::get<Paragraph>(block.kind);
}

// An editor on screen and the model its signals have built.
struct Harness {
  StoryEditor editor;
  std::vector<Block> model;
  int reports = 0;

  explicit Harness(std::vector<Block> blocks) : model(blocks) {
    editor.resize(640, 480);
    editor.show();
    editor.setStory(blocks, false);
    QObject::connect(
        &editor, &StoryEditor::blocksEdited,
        [this](std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
          ++reports;
          if (first + removed > model.size()) {
            removed = model.size() + 1;  // makes the check fail below
            return;
          }
          const auto at = model.begin() + static_cast<std::ptrdiff_t>(first);
          model.erase(at, at + static_cast<std::ptrdiff_t>(removed));
          model.insert(model.begin() + static_cast<std::ptrdiff_t>(first), inserted.begin(),
                       inserted.end());
        });
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

  // Empty when all is well, else what is wrong.
  QString problem() {
    const auto shown = editor.blocks();
    if (shown != model)
      return "signals gave\n" + shape(model) + "\nthe editor shows\n" + shape(shown);
    if (TB::read(document()) != shown)
      return QStringLiteral("blocks() differs from TextBridge::read");
    if (document().blockCount() != std::max<int>(1, static_cast<int>(shown.size()))) {
      return QStringLiteral("%1 document blocks for %2 model blocks")
          .arg(document().blockCount())
          .arg(shown.size());
    }
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
    return {};
  }
};

#define CHECK(h)                              \
  do {                                        \
    const QString why = (h).problem();        \
    QVERIFY2(why.isEmpty(), qPrintable(why)); \
  } while (false)

}  // namespace

class StoryEditorTest : public QObject {
  Q_OBJECT

 private slots:
  void typingReportsOnlyTheEditedBlock();
  void splittingAndJoiningKeepIDs();
  void undoRedoBringBlocksAndIDsBack();
  void tablesAndPicturesAreAtomic_data();
  void tablesAndPicturesAreAtomic();
  void typingBesideAFootnoteMark();
  void foreignRichTextIsReduced();
  void copiesPasteWithFreshIDs();
  void formatActions();
  void findAndHighlight();
  void wordCounts();
  void doubleClickOpensATable();
  void emptyStoryAndNoStory();
  void reloadKeepsThePlace();
  void layoutPlacesBlocksEndToEnd();
  void randomEditsKeepTheOracle();
};

void StoryEditorTest::typingReportsOnlyTheEditedBlock() {
  // The last block holds what a document cannot: it must come back untouched.
  const Block odd{
      .kind = Paragraph{.styleName = "Quote",
                        .runs = {TextRun{.text = ""}, TextRun{.text = "a"}, TextRun{.text = "b"}}}};
  Harness h({body("zero"), body("one", "Heading 1"), odd});
  std::vector<std::size_t> firsts;
  QObject::connect(&h.editor, &StoryEditor::blocksEdited,
                   [&](std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
                     QCOMPARE(removed, std::size_t(1));
                     QCOMPARE(inserted.size(), std::size_t(1));
                     firsts.push_back(first);
                   });
  h.caret(1, 3);
  QTest::keyClicks(&h.editor, " more");
  CHECK(h);
  QCOMPARE(firsts, std::vector<std::size_t>(5, 1));
  QCOMPARE(shape(h.model), QStringLiteral("Body:zero | Heading 1:one more | Quote:ab"));
  QVERIFY(h.model[2] == odd);
  QCOMPARE(h.model[1].id, h.editor.blocks()[1].id);
}

void StoryEditorTest::splittingAndJoiningKeepIDs() {
  Harness h({body("alpha beta"), body("gamma")});
  const Uuid alpha = h.model[0].id;
  const Uuid gamma = h.model[1].id;
  h.caret(0, 5);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:alpha | Body: beta | Body:gamma"));
  QCOMPARE(h.model[0].id, alpha);

  // At the very start the text moves down and keeps its id.
  h.caret(2, 0);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:alpha | Body: beta | Body: | Body:gamma"));
  QCOMPARE(h.model[3].id, gamma);

  h.caret(1, 0);
  QTest::keyClick(&h.editor, Qt::Key_Backspace);
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:alpha beta | Body: | Body:gamma"));
  QCOMPARE(h.model[0].id, alpha);

  // Enter in an empty paragraph keeps its style and id (Qt's own would
  // clear its format), and Enter over a selection only removes it.
  h.editor.setParagraphStyle(QStringLiteral("Heading 1"));
  h.caret(1, 0);
  const Uuid empty = h.model[1].id;
  h.editor.setParagraphStyle(QStringLiteral("Heading 2"));
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h);
  QCOMPARE(shape(h.model),
           QStringLiteral("Heading 1:alpha beta | Heading 2: | Heading 2: | Body:gamma"));
  QCOMPARE(h.model[1].id, empty);
  h.select(0, 6, 3, 2);
  QTest::keyClick(&h.editor, Qt::Key_Return);
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Heading 1:alpha  | Heading 1:mma"));
}

void StoryEditorTest::undoRedoBringBlocksAndIDsBack() {
  const std::vector<Block> start = {body("one"), body("two"), body("three")};
  Harness h(start);
  h.caret(2, 5);
  QTest::keyClicks(&h.editor, "!");
  h.select(0, 3, 2, 0);  // the end of "one", all of "two"
  QTest::keyClick(&h.editor, Qt::Key_Delete);
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:onethree!"));

  h.editor.undo();
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:one | Body:two | Body:three!"));
  QCOMPARE(h.model[1].id, start[1].id);
  QCOMPARE(h.model[2].id, start[2].id);
  h.editor.undo();
  CHECK(h);
  QVERIFY(h.model == start);
  h.editor.redo();
  h.editor.redo();
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:onethree!"));
}

void StoryEditorTest::tablesAndPicturesAreAtomic_data() {
  // The story: 0 "first", 1 table, 2 "second", 3 picture, 4 "third".
  QTest::addColumn<std::function<void(Harness&)>>("act");
  QTest::addColumn<QString>("expected");
  const auto type = [](int block, int offset, const char* text) {
    return std::function<void(Harness&)>([=](Harness& h) {
      h.caret(block, offset);
      QTest::keyClicks(&h.editor, text);
    });
  };
  const auto keys = [](int block, int offset, std::vector<Qt::Key> keys) {
    return std::function<void(Harness&)>([=](Harness& h) {
      h.caret(block, offset);
      for (const auto key : keys) QTest::keyClick(&h.editor, key);
    });
  };
  const auto selectThen = [](int b0, int o0, int b1, int o1, std::function<void(Harness&)> then) {
    return std::function<void(Harness&)>([=](Harness& h) {
      h.select(b0, o0, b1, o1);
      then(h);
    });
  };
  const auto press = [](Qt::Key key) {
    return std::function<void(Harness&)>([=](Harness& h) { QTest::keyClick(&h.editor, key); });
  };
  QTest::newRow("typing after a table")
      << type(1, 1, "x") << "Body:first | table | Body:x | Body:second | picture | Body:third";
  QTest::newRow("typing before a picture")
      << type(3, 0, "y") << "Body:first | table | Body:second | Body:y | picture | Body:third";
  QTest::newRow("Enter at a table")
      << keys(1, 1, {Qt::Key_Return})
      << "Body:first | table | Body: | Body:second | picture | Body:third";
  QTest::newRow("Backspace selects, then removes")
      << keys(2, 0, {Qt::Key_Backspace, Qt::Key_Backspace})
      << "Body:first | Body:second | picture | Body:third";
  QTest::newRow("Delete selects, then removes") << keys(2, 6, {Qt::Key_Delete, Qt::Key_Delete})
                                                << "Body:first | table | Body:second | Body:third";
  QTest::newRow("selection through a table")
      << selectThen(0, 2, 2, 3, press(Qt::Key_Delete)) << "Body:fiond | picture | Body:third";
  QTest::newRow("selection from a table into text")
      << selectThen(1, 0, 2, 3, press(Qt::Key_Backspace))
      << "Body:first | Body:ond | picture | Body:third";
  QTest::newRow("selection from text up to a picture")
      << selectThen(2, 3, 3, 0, press(Qt::Key_Delete))
      << "Body:first | table | Body:sec | picture | Body:third";
  QTest::newRow("typing over a selection with a table")
      << selectThen(0, 5, 2, 0, std::function<void(Harness&)>([](Harness& h) {
                      QTest::keyClicks(&h.editor, "Z");
                    }))
      << "Body:firstZsecond | picture | Body:third";
  QTest::newRow("cut of a picture alone")
      << selectThen(3, 0, 3, 1, std::function<void(Harness&)>([](Harness& h) { h.editor.cut(); }))
      << "Body:first | table | Body:second | Body:third";
  QTest::newRow("cut from inside text to after a table")
      << selectThen(0, 3, 1, 1, std::function<void(Harness&)>([](Harness& h) { h.editor.cut(); }))
      << "Body:fir | Body:second | picture | Body:third";
  QTest::newRow("cut from before a table into text")
      << selectThen(1, 0, 2, 2, std::function<void(Harness&)>([](Harness& h) { h.editor.cut(); }))
      << "Body:first | Body:cond | picture | Body:third";
}

void StoryEditorTest::tablesAndPicturesAreAtomic() {
  QFETCH(std::function<void(Harness&)>, act);
  QFETCH(QString, expected);
  const std::vector<Block> start = {body("first"), table(), body("second"), picture(),
                                    body("third")};
  Harness h(start);
  act(h);
  CHECK(h);
  QCOMPARE(shape(h.model), expected);
  for (const auto& block : h.model) {
    if (!std::holds_alternative<Paragraph>(block.kind)) {
      const auto& original = std::holds_alternative<Table>(block.kind) ? start[1] : start[3];
      QVERIFY(block == original);
    }
  }
  // Whatever happened was one undo step.
  h.editor.undo();
  CHECK(h);
  QVERIFY(h.model == start);
}

void StoryEditorTest::typingBesideAFootnoteMark() {
  const Block noted{.kind =
                        Paragraph{.styleName = "Body",
                                  .runs = {TextRun::footnoteReference(4), TextRun{.text = " Text"},
                                           TextRun::footnoteReference(5)}}};
  Harness h({noted});
  h.caret(0, 11);  // after the last mark
  QTest::keyClicks(&h.editor, " more");
  h.caret(0, 0);  // before the first
  QTest::keyClicks(&h.editor, "Lead");
  CHECK(h);
  const auto& runs = paragraphOf(h.model[0]).runs;
  QCOMPARE(runs.size(), std::size_t(5));
  QVERIFY(runs[0] == TextRun{.text = "Lead"});
  QVERIFY(runs[1] == TextRun::footnoteReference(4));
  QVERIFY(runs[3] == TextRun::footnoteReference(5));
  QVERIFY(runs[4] == TextRun{.text = " more"});
  QVERIFY(!h.editor.hasCharacterFormat(StoryEditor::CharacterFormat::superscript));
}

void StoryEditorTest::foreignRichTextIsReduced() {
  Harness h({body("before"), body("")});
  const auto start = h.model;
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
  CHECK(h);
  QCOMPARE(
      shape(h.model),
      QStringLiteral("Body:before | Heading 1:Chapter One | Body:Plain bold it link black red2 | "
                     "Title:Big Title | Quote:Quoted | Heading 2:Small heading | table"));
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

  h.editor.undo();
  CHECK(h);
  QVERIFY(h.model == start);
}

void StoryEditorTest::copiesPasteWithFreshIDs() {
  Harness h({body("first"), table(), body("second"), body("end")});
  h.select(0, 3, 2, 3);
  h.editor.copy();
  h.caret(3, 3);
  h.editor.paste();
  CHECK(h);
  QCOMPARE(shape(h.model),
           QStringLiteral("Body:first | table | Body:second | Body:endst | table | Body:sec"));
  QCOMPARE(std::get<Table>(h.model[4].kind), std::get<Table>(h.model[1].kind));
  QVERIFY(h.model[4].id != h.model[1].id);

  QGuiApplication::clipboard()->setText(QStringLiteral("one\ntwo"));
  h.caret(0, 0);
  h.editor.pastePlainText();
  CHECK(h);
  QCOMPARE(shape(h.model).section(QStringLiteral(" | "), 0, 1),
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
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Quote:one two | table | Quote:three"));

  h.editor.undo();
  h.editor.undo();
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:one two | table | Body:three"));
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

void StoryEditorTest::findAndHighlight() {
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
  QVERIFY(!h.document().isUndoAvailable());
  QVERIFY(!h.document().isModified());
  QCOMPARE(h.reports, 0);
  h.editor.highlight(QString());
  QCOMPARE(h.editor.extraSelections().size(), 0);
}

void StoryEditorTest::wordCounts() {
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
}

void StoryEditorTest::doubleClickOpensATable() {
  Harness h({body("before"), table()});
  QSignalSpy opened(&h.editor, &StoryEditor::tableActivated);
  const QTextBlock tableBlock = h.document().lastBlock();
  const QRectF rect = h.document().documentLayout()->blockBoundingRect(tableBlock);
  const QPoint inside =
      rect.topLeft().toPoint() + QPoint(20, 10) -
      QPoint(h.editor.horizontalScrollBar()->value(), h.editor.verticalScrollBar()->value());
  QTest::mouseDClick(h.editor.viewport(), Qt::LeftButton, {}, inside);
  QCOMPARE(opened.count(), 1);
  QCOMPARE(opened.at(0).at(0).value<Uuid>(), h.model[1].id);
  QTest::mouseDClick(h.editor.viewport(), Qt::LeftButton, {}, QPoint(10, 8));
  QCOMPARE(opened.count(), 1);
}

void StoryEditorTest::emptyStoryAndNoStory() {
  Harness h({});
  QVERIFY(h.editor.blocks().empty());
  QTest::keyClicks(&h.editor, "a");
  CHECK(h);
  QCOMPARE(shape(h.model), QStringLiteral("Body:a"));
  h.editor.undo();
  CHECK(h);
  QVERIFY(h.model.empty());

  h.editor.clearStory();
  QVERIFY(h.editor.isReadOnly());
  QTest::keyClicks(&h.editor, "typed");
  QVERIFY(h.editor.blocks().empty());
  QCOMPARE(h.editor.wordCount(), qint64(0));
}

void StoryEditorTest::reloadKeepsThePlace() {
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
  QVERIFY(!h.document().isUndoAvailable());

  h.editor.scrollToBlock(blocks[30].id);
  QCOMPARE(h.editor.textCursor().blockNumber(), 30);
  QVERIFY(h.editor.viewport()->rect().contains(h.editor.cursorRect()));
}

void StoryEditorTest::layoutPlacesBlocksEndToEnd() {
  // Long enough to be laid out in the background, after the first paint.
  std::vector<Block> blocks;
  for (int i = 0; i < 6000; ++i) {
    blocks.push_back(i % 500 == 7 ? table()
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
  CHECK(h);
  qreal bottom = layout->blockBoundingRect(h.document().firstBlock()).top();
  for (QTextBlock block = h.document().firstBlock(); block.isValid(); block = block.next()) {
    const QRectF rect = layout->blockBoundingRect(block);
    QCOMPARE(rect.top(), bottom);
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
  for (int step = 0; step < 400; ++step) {
    QTextCursor cursor(&h.document());
    cursor.setPosition(anywhere());
    if (pick(3) == 0) cursor.setPosition(anywhere(), QTextCursor::KeepAnchor);
    h.editor.setTextCursor(cursor);
    switch (pick(10)) {
      case 0:
        if (pick(4) != 0) {
          QTest::keyClicks(&h.editor, "ab c");
        } else {
          QTest::keyClick(&h.editor, Qt::Key_Return, Qt::ShiftModifier);
        }
        break;
      case 1:
        QTest::keyClick(&h.editor, Qt::Key_Return);
        break;
      case 2:
        QTest::keyClick(&h.editor, Qt::Key_Backspace);
        break;
      case 3:
        QTest::keyClick(&h.editor, Qt::Key_Delete);
        break;
      case 4:
        if (pick(2) != 0) {
          h.editor.cut();
        } else {
          QTest::keyClick(&h.editor, pick(2) ? Qt::Key_Backspace : Qt::Key_Delete,
                          Qt::ControlModifier);
        }
        break;
      case 5:
        if (pick(3) == 0) {
          auto* data = new QMimeData;
          data->setHtml(
              QStringLiteral("<p>x<b>y</b></p><table><tr><td>q</td></tr></table><h1>H</h1>"));
          QGuiApplication::clipboard()->setMimeData(data);
        } else {
          h.editor.copy();
          h.editor.setTextCursor(QTextCursor(h.document().findBlock(anywhere())));
        }
        h.editor.paste();
        break;
      case 6:
        h.editor.setParagraphStyle(pick(2) ? QStringLiteral("Heading 2") : QStringLiteral("Quote"));
        break;
      case 7:
        h.editor.setCharacterFormat(StoryEditor::CharacterFormat::italic, pick(2) == 0);
        break;
      case 8:
        if (pick(2) != 0) {
          h.editor.undo();
        } else {
          QTest::keyClick(&h.editor, Qt::Key_Z, Qt::ControlModifier);
        }
        break;
      default:
        h.editor.redo();
        break;
    }
    const QString why = h.problem();
    QVERIFY2(why.isEmpty(), qPrintable(QStringLiteral("step %1: %2").arg(step).arg(why)));
  }
  // Undoing everything gives back the story, ids included.
  while (h.document().isUndoAvailable()) h.editor.undo();
  CHECK(h);
  QVERIFY2(h.model == start, qPrintable(shape(h.model)));
}

QTEST_MAIN(StoryEditorTest)
#include "story_editor_test.moc"
