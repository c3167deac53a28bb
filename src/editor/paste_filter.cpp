#include "editor/paste_filter.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QPixmap>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextTable>
#include <QUrl>

#include <algorithm>

#include "editor/text_bridge.h"
#include "model/style_sheet.h"

namespace inkharbour::PasteFilter {

namespace {

constexpr double kTitleSize = 24;
constexpr double kHeading1Size = 18;
constexpr double kHeading2Size = 15;
constexpr double kQuoteIndent = 20;

Data dataOf(const QByteArray& bytes) {
  return Data(bytes.begin(), bytes.end());
}

Block picture(const QImage& image, std::string name) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return Block{.kind = ImageBlock{.data = dataOf(bytes), .name = std::move(name)}};
}

// The picture an image character of a foreign document shows, if it can be
// loaded.
std::optional<Block> pictureOf(const QTextDocument& document, const QTextImageFormat& format) {
  const QUrl url(format.name());
  QString name = QFileInfo(url.path()).completeBaseName();
  if (name.isEmpty()) name = QStringLiteral("image");
  const QVariant resource = document.resource(QTextDocument::ImageResource, url);
  QImage image;
  if (resource.userType() == QMetaType::QImage) {
    image = resource.value<QImage>();
  } else if (resource.userType() == QMetaType::QPixmap) {
    image = resource.value<QPixmap>().toImage();
  } else if (resource.userType() == QMetaType::QByteArray) {
    const QByteArray bytes = resource.toByteArray();
    QBuffer buffer;
    buffer.setData(bytes);
    const QByteArray suffix = QImageReader(&buffer).format();
    if (!suffix.isEmpty()) {
      return Block{
          .kind = ImageBlock{
              .data = dataOf(bytes),
              .name = (name + QLatin1Char('.') + QString::fromLatin1(suffix)).toStdString()}};
    }
  }
  if (image.isNull()) return std::nullopt;
  return picture(image, (name + QStringLiteral(".png")).toStdString());
}

double pointSize(const QTextCharFormat& format) {
  if (format.hasProperty(QTextFormat::FontPointSize)) return format.fontPointSize();
  if (format.hasProperty(QTextFormat::FontPixelSize))
    return format.intProperty(QTextFormat::FontPixelSize) * 0.75;
  return 0;
}

std::string styleOf(const QTextBlock& block) {
  const QTextBlockFormat format = block.blockFormat();
  const QString own = format.stringProperty(TextBridge::kParagraphStyleProperty);
  if (StyleSheet::isStyle(own.toStdString())) return own.toStdString();
  // The smallest size of the block's visible text: a heading's size only
  // counts when all of it has that size.
  double size = 0;
  bool first = true;
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    if (it.fragment().text().trimmed().isEmpty()) continue;
    const double fragmentSize = pointSize(it.fragment().charFormat());
    size = first ? fragmentSize : std::min(size, fragmentSize);
    first = false;
  }
  const int level = format.headingLevel();
  if (level == 1) return size >= kTitleSize ? "Title" : "Heading 1";
  if (level >= 2) return "Heading 2";
  if (size >= kTitleSize) return "Title";
  if (size >= kHeading1Size) return "Heading 1";
  if (size >= kHeading2Size) return "Heading 2";
  if (format.leftMargin() >= kQuoteIndent && format.rightMargin() >= kQuoteIndent) return "Quote";
  return "Body";
}

TextRun reducedRun(const QTextCharFormat& format, bool heading) {
  TextRun run = TextBridge::runFormat(format);
  run.footnoteID.reset();
  // Headings come in bold; links underlined and coloured; text in explicit
  // black. None of that is the author's formatting.
  if (heading) run.bold = false;
  if (format.isAnchor()) {
    run.underline = false;
    run.colorHex.reset();
  }
  if (run.colorHex == "000000") run.colorHex.reset();
  return run;
}

void appendText(std::vector<TextRun>& runs, const QString& text, TextRun format) {
  if (text.isEmpty()) return;
  if (!runs.empty() && runs.back().sameFormat(format) && !runs.back().footnoteID) {
    runs.back().text += text.toStdString();
    return;
  }
  format.text = text.toStdString();
  runs.push_back(std::move(format));
}

// The paragraph(s) and pictures of one foreign block.
void readBlock(const QTextDocument& document, const QTextBlock& block, std::vector<Block>& out) {
  const std::string style = styleOf(block);
  const bool heading = block.blockFormat().headingLevel() > 0;
  Paragraph paragraph{.styleName = style, .runs = {}};
  bool pending = true;  // the paragraph belongs to the output even when empty
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    const QTextCharFormat format = fragment.charFormat();
    if (format.isImageFormat()) {
      const int images = static_cast<int>(fragment.text().count(QChar::ObjectReplacementCharacter));
      for (int i = 0; i < images; ++i) {
        if (auto image = pictureOf(document, format.toImageFormat())) {
          if (!paragraph.runs.empty()) out.push_back(Block{.kind = std::move(paragraph)});
          paragraph = Paragraph{.styleName = style, .runs = {}};
          pending = false;
          out.push_back(std::move(*image));
        }
      }
      continue;
    }
    QString text = fragment.text();
    text.remove(QChar::ObjectReplacementCharacter);
    appendText(paragraph.runs, text, reducedRun(format, heading));
    pending = true;
  }
  if (pending || !paragraph.runs.empty()) out.push_back(Block{.kind = std::move(paragraph)});
}

Table readTable(const QTextDocument& document, QTextTable& table) {
  Table result;
  for (int r = 0; r < table.rows(); ++r) {
    std::vector<TableCell> row;
    for (int c = 0; c < table.columns(); ++c) {
      const QTextTableCell cell = table.cellAt(r, c);
      // A spanning cell counts once, where it starts.
      if (cell.row() != r || cell.column() != c) continue;
      TableCell content;
      std::vector<Block> blocks;
      for (auto it = cell.begin(); !it.atEnd(); ++it) {
        if (it.currentBlock().isValid()) readBlock(document, it.currentBlock(), blocks);
      }
      for (auto& block : blocks) {
        if (auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
          content.paragraphs.push_back(std::move(*paragraph));
        }
      }
      row.push_back(std::move(content));
    }
    result.rows.push_back(std::move(row));
  }
  return result;
}

void readFrame(const QTextDocument& document, QTextFrame& frame, std::vector<Block>& out) {
  for (auto it = frame.begin(); !it.atEnd(); ++it) {
    if (QTextFrame* child = it.currentFrame()) {
      if (auto* table = qobject_cast<QTextTable*>(child)) {
        out.push_back(Block{.kind = readTable(document, *table)});
      } else {
        readFrame(document, *child, out);
      }
    } else if (it.currentBlock().isValid()) {
      readBlock(document, it.currentBlock(), out);
    }
  }
}

bool isEmptyParagraph(const Block& block) {
  const auto* paragraph = std::get_if<Paragraph>(&block.kind);
  return paragraph && paragraph->runs.empty();
}

std::vector<Block> withFreshIDs(std::vector<Block> blocks) {
  for (auto& block : blocks) block.id = Uuid::random();
  return blocks;
}

std::vector<Block> fromImageFiles(const QList<QUrl>& urls) {
  std::vector<Block> blocks;
  for (const QUrl& url : urls) {
    if (!url.isLocalFile()) continue;
    QFile file(url.toLocalFile());
    if (!file.open(QIODevice::ReadOnly)) continue;
    const QByteArray bytes = file.readAll();
    QBuffer buffer;
    buffer.setData(bytes);
    if (!QImageReader(&buffer).canRead()) continue;
    blocks.push_back(Block{.kind = ImageBlock{.data = dataOf(bytes),
                                              .name = QFileInfo(file).fileName().toStdString()}});
  }
  return blocks;
}

// --- Copy ----------------------------------------------------------------------

QString plainText(const std::vector<Block>& blocks) {
  QStringList lines;
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      lines << QString::fromStdString(paragraph->text())
                   .replace(QChar::LineSeparator, QLatin1Char('\n'));
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) {
        QStringList cells;
        for (const auto& cell : row) {
          cells << QString::fromStdString(cell.text()).replace(QLatin1Char('\n'), QLatin1Char(' '));
        }
        lines << cells.join(QLatin1Char('\t'));
      }
    }
  }
  return lines.join(QLatin1Char('\n'));
}

QString html(const std::vector<Block>& blocks) {
  QTextDocument document;
  TextBridge::load(document, blocks);
  QTextCursor cursor(&document);
  for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next()) {
    if (TextBridge::isAtomic(block)) continue;
    const QString style = TextBridge::paragraphStyle(block);
    const double size = StyleSheet::fontSize(style.toStdString());
    const int level = style == QLatin1String("Heading 2")   ? 2
                      : size > StyleSheet::fontSize("Body") ? 1
                                                            : 0;
    if (level == 0) continue;
    cursor.setPosition(block.position());
    QTextBlockFormat format = block.blockFormat();
    format.setHeadingLevel(level);
    cursor.setBlockFormat(format);
    cursor.setPosition(block.position() + block.length() - 1, QTextCursor::KeepAnchor);
    QTextCharFormat shown;
    shown.setFontPointSize(size);
    cursor.mergeCharFormat(shown);
  }
  return document.toHtml();
}

}  // namespace

BlocksMimeData::BlocksMimeData(std::vector<Block> blocks) : blocks_(std::move(blocks)) {
  setData(QString::fromLatin1(kFormat), QByteArray());
}

bool canRead(const QMimeData& data) {
  if (data.hasFormat(QString::fromLatin1(BlocksMimeData::kFormat)) || data.hasHtml() ||
      data.hasImage() || data.hasText()) {
    return true;
  }
  // Asked on every move of a drag: judged by the file names alone.
  static const QList<QByteArray> formats = QImageReader::supportedImageFormats();
  const QList<QUrl> urls = data.urls();
  return std::any_of(urls.begin(), urls.end(), [](const QUrl& url) {
    return url.isLocalFile() &&
           formats.contains(QFileInfo(url.toLocalFile()).suffix().toLower().toLatin1());
  });
}

std::vector<Block> read(const QMimeData& data) {
  if (const auto* own = qobject_cast<const BlocksMimeData*>(&data))
    return withFreshIDs(own->blocks());
  if (data.hasHtml()) {
    QTextDocument document;
    document.setHtml(data.html());
    auto blocks = fromDocument(document);
    if (!blocks.empty()) return blocks;
  }
  if (data.hasImage()) {
    const QImage image = qvariant_cast<QImage>(data.imageData());
    if (!image.isNull()) return {picture(image, "image.png")};
  }
  if (data.hasUrls()) {
    auto blocks = fromImageFiles(data.urls());
    if (!blocks.empty()) return blocks;
  }
  if (data.hasText()) return fromPlainText(data.text(), "Body", TextRun{});
  return {};
}

std::vector<Block> fromDocument(const QTextDocument& document) {
  std::vector<Block> blocks;
  readFrame(document, *document.rootFrame(), blocks);
  const auto first = std::find_if_not(blocks.begin(), blocks.end(), isEmptyParagraph);
  const auto last = std::find_if_not(blocks.rbegin(), blocks.rend(), isEmptyParagraph).base();
  if (first >= last) return {};
  return withFreshIDs(
      std::vector<Block>(std::make_move_iterator(first), std::make_move_iterator(last)));
}

std::vector<Block> fromPlainText(const QString& text, const std::string& style,
                                 const TextRun& format) {
  static const QRegularExpression lineEnd(QStringLiteral("\r\n|[\n\r\u2029]"));
  std::vector<Block> blocks;
  if (text.isEmpty()) return blocks;
  for (const QString& line : text.split(lineEnd)) {
    Paragraph paragraph{.styleName = style, .runs = {}};
    appendText(paragraph.runs, line, format);
    blocks.push_back(Block{.kind = std::move(paragraph)});
  }
  return blocks;
}

QMimeData* mimeData(std::vector<Block> blocks) {
  const QString text = plainText(blocks);
  const QString markup = html(blocks);
  QImage image;
  if (blocks.size() == 1) {
    if (const auto* one = std::get_if<ImageBlock>(&blocks.front().kind)) {
      image = QImage::fromData(one->data.data(), static_cast<int>(one->data.size()));
    }
  }
  auto* data = new BlocksMimeData(std::move(blocks));
  data->setText(text);
  data->setHtml(markup);
  if (!image.isNull()) data->setImageData(image);
  return data;
}

}  // namespace inkharbour::PasteFilter
