// The rich text bridge: model blocks to a QTextDocument and back, exactly.

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>
#include <QtTest>

#include "editor/block_images.h"
#include "editor/text_bridge.h"
#include "importers/docx_reader.h"

using namespace inkharbour;
namespace TB = inkharbour::TextBridge;

Q_DECLARE_METATYPE(std::vector<inkharbour::Block>)

namespace {

Data png(int width, int height) {
  QImage image(width, height, QImage::Format_RGB32);
  image.fill(Qt::darkCyan);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return Data(bytes.begin(), bytes.end());
}

Block paragraph(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

Table grid(int rows, int columns) {
  Table table;
  for (int r = 0; r < rows; ++r) {
    table.rows.emplace_back();
    for (int c = 0; c < columns; ++c) {
      table.rows.back().push_back(
          TableCell{{Paragraph::make("Body", "r" + std::to_string(r) + "c" + std::to_string(c))}});
    }
  }
  return table;
}

// A readable account of blocks, for failure messages.
QString describe(const std::vector<Block>& blocks) {
  QStringList lines;
  for (const auto& block : blocks) {
    QString line = QString::fromStdString(block.id.string().substr(0, 8)) + QLatin1Char(' ');
    if (const auto* p = std::get_if<Paragraph>(&block.kind)) {
      line += QString::fromStdString(p->styleName) + QLatin1Char(':');
      for (const auto& run : p->runs) {
        line += QStringLiteral(" [%1%2%3%4%5%6%7%8%9]")
                    .arg(QString::fromStdString(run.text), run.bold ? "+b" : "",
                         run.italic ? "+i" : "", run.underline ? "+u" : "",
                         run.strikethrough ? "+s" : "", run.smallCaps ? "+sc" : "",
                         run.script != ScriptPosition::normal
                             ? QString::fromUtf8(name(run.script).data())
                             : "",
                         run.colorHex ? QString::fromStdString("#" + *run.colorHex) : "",
                         run.footnoteID ? QStringLiteral("^%1").arg(*run.footnoteID) : "");
      }
    } else if (std::holds_alternative<Table>(block.kind)) {
      line += QStringLiteral("table");
    } else {
      line += QStringLiteral("picture");
    }
    lines << line;
  }
  return lines.join(QLatin1Char('\n'));
}

// What the document's fragments alone can say about the blocks: no empty
// runs, neighbours of one format joined, line and paragraph ends as line
// breaks, object characters and undecodable bytes as U+FFFD.
std::vector<Block> shown(std::vector<Block> blocks) {
  for (auto& block : blocks) {
    auto* p = std::get_if<Paragraph>(&block.kind);
    if (!p) continue;
    std::vector<TextRun> runs;
    for (auto run : p->runs) {
      QString text = QString::fromStdString(run.text);
      for (QChar& c : text) {
        if (c == u'\n' || c == u'\r' || c == QChar::ParagraphSeparator) c = QChar::LineSeparator;
        if (c == QChar::ObjectReplacementCharacter) c = QChar::ReplacementCharacter;
      }
      run.text = text.toStdString();
      if (run.text.empty()) continue;
      if (!runs.empty() && runs.back().sameFormat(run) &&
          runs.back().footnoteID == run.footnoteID) {
        runs.back().text += run.text;
      } else {
        runs.push_back(run);
      }
    }
    p->runs = runs;
  }
  return blocks;
}

void forgetMemos(QTextDocument& document) {
  for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next())
    block.setUserData(nullptr);
}

#define COMPARE_BLOCKS(actual, expected) \
  QVERIFY2(                              \
      (actual) == (expected),            \
      qPrintable(QStringLiteral("got\n%1\nwanted\n%2").arg(describe(actual), describe(expected))))

}  // namespace

class TextBridgeTest : public QObject {
  Q_OBJECT

 private slots:
  void roundTrip_data();
  void roundTrip();
  void corpusRoundTrip();
  void propertiesAreNamed();
  void loadIsSilentAndShowsTheModel();
  void editedBlocksAreRebuilt();
  void objectsAreSharedImageResources();
};

void TextBridgeTest::roundTrip_data() {
  QTest::addColumn<std::vector<Block>>("blocks");
  const TextRun plain{.text = "plain"};
  QTest::newRow("empty story") << std::vector<Block>{};
  QTest::newRow("one empty paragraph") << std::vector<Block>{paragraph("Body", {})};
  QTest::newRow("every style, unknown ones too") << std::vector<Block>{
      paragraph("Title", {plain}), paragraph("Heading 1", {plain}), paragraph("Heading 2", {plain}),
      paragraph("Body", {plain}),  paragraph("Quote", {plain}),     paragraph("Custom", {plain}),
      paragraph("", {plain})};
  QTest::newRow("every run format") << std::vector<Block>{paragraph(
      "Body",
      {TextRun{.text = "b", .bold = true}, TextRun{.text = "i", .italic = true},
       TextRun{.text = "u", .underline = true}, TextRun{.text = "s", .strikethrough = true},
       TextRun{.text = "sc", .smallCaps = true},
       TextRun{.text = "sup", .script = ScriptPosition::superscript},
       TextRun{.text = "sub", .script = ScriptPosition::subscript},
       TextRun{.text = "red", .colorHex = "C00000"}, TextRun{.text = "lower", .colorHex = "c00000"},
       TextRun{.text = "auto", .colorHex = "auto"},
       TextRun{.text = "all",
               .bold = true,
               .italic = true,
               .underline = true,
               .strikethrough = true,
               .smallCaps = true,
               .script = ScriptPosition::subscript,
               .colorHex = "00FF00"}})};
  QTest::newRow("footnote marks, breaks, tabs") << std::vector<Block>{
      paragraph("Quote", {TextRun{.text = "one\u2028two\tthree"}, TextRun::footnoteReference(1),
                          TextRun::footnoteReference(2), TextRun{.text = " after"},
                          TextRun::footnoteReference(10001)})};
  QTest::newRow("what a document cannot hold") << std::vector<Block>{paragraph(
      "Body", {TextRun{.text = ""}, TextRun{.text = "same"}, TextRun{.text = "same"},
               TextRun{.text = "line\nfeed\r\u2029obj\uFFFC"}, TextRun{.text = "bad \xFF utf8"}})};
  QTest::newRow("tables and pictures")
      << std::vector<Block>{Block{.kind = grid(3, 2)},
                            Block{.kind = Table{}},
                            Block{.kind = ImageBlock{.data = png(16, 16), .name = "image1.png"}},
                            Block{.kind = ImageBlock{.data = {1, 2, 3}, .name = "broken.emf"}},
                            paragraph("Body", {plain}),
                            Block{.kind = grid(1, 1)}};
}

void TextBridgeTest::roundTrip() {
  QFETCH(std::vector<Block>, blocks);
  QTextDocument document;
  TB::load(document, blocks);
  QCOMPARE(document.blockCount(), std::max<int>(1, static_cast<int>(blocks.size())));
  COMPARE_BLOCKS(TB::read(document), blocks);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    COMPARE_BLOCKS(
        std::vector<Block>{TB::readBlock(document.findBlockByNumber(static_cast<int>(i)))},
        std::vector<Block>{blocks[i]});
  }
  // The formats themselves carry everything but what `shown` takes away.
  forgetMemos(document);
  COMPARE_BLOCKS(TB::read(document), shown(blocks));
}

void TextBridgeTest::corpusRoundTrip() {
  const QString corpus = qEnvironmentVariable("INKHARBOUR_CORPUS");
  if (corpus.isEmpty() || !QDir(corpus + QStringLiteral("/docx")).exists()) QSKIP("no corpus");
  int files = 0;
  for (const QString& folder : {QStringLiteral("docx"), QStringLiteral("xlsx")}) {
    const QDir dir(corpus + QLatin1Char('/') + folder);
    for (const QString& name : dir.entryList(QDir::Files)) {
      ImportResult imported;
      try {
        imported = DocxReader::read(dir.filePath(name).toStdString(), {});
      } catch (const std::exception&) {
        continue;  // files the reader refuses are the importer's tests' business
      }
      QTextDocument document;
      TB::load(document, imported.blocks);
      const auto back = TB::read(document);
      QVERIFY2(back == imported.blocks, qPrintable(name));
      forgetMemos(document);
      QVERIFY2(TB::read(document) == shown(imported.blocks), qPrintable(name));
      ++files;
    }
  }
  QVERIFY(files > 100);
}

void TextBridgeTest::propertiesAreNamed() {
  const std::pair<int, const char*> names[] = {
      {TB::kParagraphStyleProperty, "inkharbour.paragraphStyle"},
      {TB::kBlockIDProperty, "inkharbour.blockID"},
      {TB::kFootnoteProperty, "inkharbour.footnote"},
      {TB::kScriptProperty, "inkharbour.script"},
      {TB::kSmallCapsProperty, "inkharbour.smallCaps"},
      {QTextFormat::FontWeight, ""},
  };
  for (const auto& [property, name] : names)
    QCOMPARE(TB::propertyName(property), QString::fromLatin1(name));
}

void TextBridgeTest::loadIsSilentAndShowsTheModel() {
  const Block heading = paragraph("Heading 1", {TextRun{.text = "Chapter"}});
  const Block quote =
      paragraph("Quote", {TextRun{.text = "said "}, TextRun{.text = "loudly", .italic = true}});
  const Block body = paragraph("Body", {TextRun{.text = "x",
                                                .bold = true,
                                                .smallCaps = true,
                                                .script = ScriptPosition::superscript,
                                                .colorHex = "C00000"},
                                        TextRun::footnoteReference(7)});
  QTextDocument document;
  QTextCursor(&document).insertText(QStringLiteral("old content"));
  TB::load(document, {heading, quote, body});
  QVERIFY(!document.isUndoAvailable() && !document.isModified());
  QVERIFY(document.isUndoRedoEnabled() && document.isLayoutEnabled());
  QCOMPARE(document.blockCount(), 3);
  const QTextBlock first = document.firstBlock();
  QCOMPARE(first.blockFormat().stringProperty(TB::kParagraphStyleProperty),
           QStringLiteral("Heading 1"));
  QCOMPARE(first.blockFormat().stringProperty(TB::kBlockIDProperty),
           QString::fromStdString(heading.id.string()));
  QCOMPARE(first.layout()->formats().value(0).format.fontPointSize(), 22.0);

  // A quote is indented and shown in italics, its italic runs upright.
  const QTextBlock second = first.next();
  QVERIFY(second.blockFormat().leftMargin() > 0 && second.blockFormat().rightMargin() > 0);
  const auto shown = second.layout()->formats();
  QCOMPARE(shown.size(), 2);
  QVERIFY(shown[0].format.fontItalic());
  QVERIFY(!shown[1].format.fontItalic());

  const QTextCharFormat x = second.next().begin().fragment().charFormat();
  QCOMPARE(x.fontWeight(), int(QFont::Bold));
  QCOMPARE(x.fontCapitalization(), QFont::SmallCaps);
  QCOMPARE(x.verticalAlignment(), QTextCharFormat::AlignSuperScript);
  QCOMPARE(x.foreground().color(), QColor(0xC0, 0, 0));
  const QTextCharFormat mark = (++second.next().begin()).fragment().charFormat();
  QCOMPARE(mark.property(TB::kFootnoteProperty).toLongLong(), 7);
}

void TextBridgeTest::editedBlocksAreRebuilt() {
  // The first block holds what fragments cannot show; the second is edited.
  const Block exact =
      paragraph("Body", {TextRun{.text = ""}, TextRun{.text = "a"}, TextRun{.text = "b"}});
  const Block edited =
      paragraph("Quote", {TextRun{.text = "x"}, TextRun{.text = "y"}, TextRun::footnoteReference(3),
                          TextRun{.text = "z", .bold = true}});
  QTextDocument document;
  TB::load(document, {exact, edited});
  QTextCursor cursor(document.findBlockByNumber(1));
  cursor.insertText(QStringLiteral("w"));  // takes the format of "x": no format at all

  const auto back = TB::read(document);
  COMPARE_BLOCKS(std::vector<Block>{back[0]}, std::vector<Block>{exact});
  const Block rebuilt{
      .id = edited.id,
      .kind = Paragraph{.styleName = "Quote",
                        .runs = {TextRun{.text = "wxy"}, TextRun::footnoteReference(3),
                                 TextRun{.text = "z", .bold = true}}}};
  COMPARE_BLOCKS(std::vector<Block>{back[1]}, std::vector<Block>{rebuilt});

  // Taking the edit back brings the loaded value back, byte for byte.
  cursor.deletePreviousChar();
  COMPARE_BLOCKS(TB::read(document), (std::vector<Block>{exact, edited}));
}

void TextBridgeTest::objectsAreSharedImageResources() {
  const Data bytes = png(800, 200);
  QTextDocument document;
  TB::load(document, {Block{.kind = ImageBlock{.data = bytes, .name = "a.png"}},
                      Block{.kind = ImageBlock{.data = bytes, .name = "b.png"}},
                      Block{.kind = grid(3, 2)}});
  const auto image = [&](int block) {
    return document.findBlockByNumber(block).begin().fragment().charFormat().toImageFormat();
  };
  QCOMPARE(image(0).name(), image(1).name());
  QVERIFY(document.resource(QTextDocument::ImageResource, QUrl(image(0).name())).isValid());
  QVERIFY(!document.toHtml().contains(QStringLiteral("base64")));
  // Scaled to the display width, in proportion.
  QCOMPARE(image(0).width(), double(BlockImages::kMaxWidth));
  QCOMPARE(image(0).height(), double(BlockImages::kMaxWidth / 4));

  // A table is a preview that says what it is.
  QCOMPARE(image(2).toolTip(), QStringLiteral("Table, 3 rows × 2 columns — double-click to edit"));
  QCOMPARE(BlockImages::tableToolTip(grid(1, 1)),
           QStringLiteral("Table, 1 row × 1 column — double-click to edit"));
  const QImage preview = BlockImages::tablePreview(grid(3, 2));
  QCOMPARE(QSizeF(preview.size()), QSizeF(image(2).width(), image(2).height()));
  // A grid line crosses the preview at every row boundary.
  QVERIFY(preview.pixelColor(preview.width() / 2, 0) != QColor(Qt::white));
}

QTEST_MAIN(TextBridgeTest)
#include "text_bridge_test.moc"
