#include "editor/block_images.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QFontMetrics>
#include <QImageReader>
#include <QPainter>
#include <QTextDocument>
#include <QUrl>

#include <algorithm>

#include "editor/text_bridge.h"

namespace inkharbour::BlockImages {

namespace {

constexpr int kRowHeight = 22;
constexpr int kMaxPreviewRows = 12;
constexpr int kMinColumnWidth = 48;
constexpr int kMaxColumnWidth = 160;
constexpr int kCellPadding = 5;
// Pictures that cannot be decoded are shown, and sized, as this.
constexpr QSize kUndecodableSize{400, 300};

QString hexDigest(QByteArrayView bytes) {
  return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex());
}

// The picture's bytes seen without a copy; valid while the picture lives.
QByteArray viewOf(const SharedBytes& data) {
  return QByteArray::fromRawData(reinterpret_cast<const char*>(data.data()),
                                 static_cast<qsizetype>(data.size()));
}

QString plural(qsizetype count, const char* one, const char* many) {
  return QString::number(count) + QLatin1Char(' ') + QLatin1String(count == 1 ? one : many);
}

QFont previewFont() {
  QFont font;
  font.setPixelSize(12);
  return font;
}

// The first line of a cell, as the preview shows it.
QString firstLine(const TableCell& cell) {
  for (const auto& paragraph : cell.paragraphs) {
    const QString text = QString::fromStdString(paragraph.text()).trimmed();
    if (!text.isEmpty()) return text.section(QChar::LineSeparator, 0, 0);
  }
  return {};
}

QImage placeholder(const QString& caption) {
  QImage image(kUndecodableSize, QImage::Format_ARGB32_Premultiplied);
  image.fill(QColor(0xEE, 0xEE, 0xEE));
  QPainter painter(&image);
  painter.setPen(QColor(0x88, 0x88, 0x88));
  painter.drawRect(image.rect().adjusted(0, 0, -1, -1));
  painter.setFont(previewFont());
  painter.drawText(image.rect().adjusted(12, 12, -12, -12), Qt::AlignCenter | Qt::TextWordWrap,
                   caption);
  return image;
}

QSize shownSize(QSize natural) {
  if (natural.width() <= kMaxWidth) return natural;
  return QSize(kMaxWidth, std::max(1, natural.height() * kMaxWidth / natural.width()));
}

// Adds the picture under a name derived from its bytes; returns the name and
// the size it has. Bytes Qt can decode are added as they are (decoded when
// first painted); others as a placeholder image naming the file.
std::pair<QString, QSize> addPicture(QTextDocument& document, const ImageBlock& picture,
                                     Registered& registered) {
  const QByteArray bytes = viewOf(picture.data);
  const QString name = QStringLiteral("inkharbour-image:") + hexDigest(bytes);
  QBuffer buffer;
  buffer.setData(bytes);
  QImageReader reader(&buffer);
  QSize size = reader.canRead() ? reader.size() : QSize();
  if (reader.canRead() && !size.isValid()) size = reader.read().size();
  const bool decodable = size.isValid() && !size.isEmpty();
  if (!registered.contains(name)) {
    registered.insert(name);
    document.addResource(
        QTextDocument::ImageResource, QUrl(name),
        decodable ? QVariant(QByteArray(bytes.constData(), bytes.size()))  // the document's own
                  : QVariant(placeholder(QString::fromStdString(picture.name))));
  }
  return {name, decodable ? size : kUndecodableSize};
}

std::pair<QString, QSize> addTable(QTextDocument& document, const Block& block, const Table& table,
                                   Registered& registered) {
  const QString name = QStringLiteral("inkharbour-table:") +
                       QString::fromStdString(block.id.string()) + QLatin1Char('/') +
                       hexDigest(QByteArray::fromStdString(table.contentKey()));
  const QImage preview = tablePreview(table);
  if (!registered.contains(name)) {
    registered.insert(name);
    document.addResource(QTextDocument::ImageResource, QUrl(name), preview);
  }
  return {name, preview.size()};
}

}  // namespace

QImage tablePreview(const Table& table) {
  const int columns = std::max<int>(1, static_cast<int>(table.columnCount()));
  const int rows = static_cast<int>(table.rows.size());
  const int shownRows = std::min(rows, kMaxPreviewRows);
  const bool more = rows > kMaxPreviewRows;
  const int columnWidth = std::clamp(kMaxWidth / columns, kMinColumnWidth, kMaxColumnWidth);
  const int width = columns * columnWidth + 1;
  const int height = std::max(1, shownRows + (more ? 1 : 0)) * kRowHeight + 1;

  QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::white);
  QPainter painter(&image);
  const QFont font = previewFont();
  const QFontMetrics metrics(font);
  painter.setFont(font);
  for (int r = 0; r < shownRows; ++r) {
    const auto& row = table.rows[static_cast<std::size_t>(r)];
    for (int c = 0; c < columns; ++c) {
      const QRect cell(c * columnWidth, r * kRowHeight, columnWidth, kRowHeight);
      painter.setPen(QColor(0xB0, 0xB0, 0xB0));
      painter.drawRect(cell);
      if (c >= static_cast<int>(row.size())) continue;
      const QRect inner = cell.adjusted(kCellPadding, 0, -kCellPadding, 0);
      painter.setPen(Qt::black);
      painter.drawText(inner, Qt::AlignVCenter | Qt::AlignLeft,
                       metrics.elidedText(firstLine(row[static_cast<std::size_t>(c)]),
                                          Qt::ElideRight, inner.width()));
    }
  }
  if (more || rows == 0) {
    const QRect last(0, shownRows * kRowHeight, width - 1, kRowHeight);
    painter.setPen(QColor(0x70, 0x70, 0x70));
    painter.drawText(
        last.adjusted(kCellPadding, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft,
        rows == 0
            ? QStringLiteral("Empty table")
            : QStringLiteral("… and %1").arg(plural(rows - shownRows, "more row", "more rows")));
  }
  return image;
}

QString tableToolTip(const Table& table) {
  return QStringLiteral("Table, %1 × %2 — double-click to edit")
      .arg(plural(static_cast<qsizetype>(table.rows.size()), "row", "rows"),
           plural(static_cast<qsizetype>(table.columnCount()), "column", "columns"));
}

QTextImageFormat objectFormat(QTextDocument& document, std::shared_ptr<const Block> block,
                              Registered& registered) {
  std::pair<QString, QSize> image;
  QString toolTip;
  if (const auto* table = std::get_if<Table>(&block->kind)) {
    image = addTable(document, *block, *table, registered);
    toolTip = tableToolTip(*table);
  } else {
    const auto& picture = std::get<ImageBlock>(block->kind);
    image = addPicture(document, picture, registered);
    toolTip = picture.name.empty()
                  ? QStringLiteral("Picture")
                  : QStringLiteral("Picture %1").arg(QString::fromStdString(picture.name));
  }
  const QSize size = shownSize(image.second);
  QTextImageFormat format;
  format.setName(image.first);
  format.setWidth(size.width());
  format.setHeight(size.height());
  format.setToolTip(toolTip);
  format.setProperty(TextBridge::kBlockObjectProperty, QVariant::fromValue(std::move(block)));
  return format;
}

}  // namespace inkharbour::BlockImages
