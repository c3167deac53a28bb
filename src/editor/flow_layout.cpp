#include "editor/flow_layout.h"

#include <QElapsedTimer>
#include <QFontMetricsF>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFragment>
#include <QTextLayout>
#include <QTimerEvent>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace inkharbour {

namespace {

// Changes of more blocks than this are laid out in the background, like a
// freshly loaded story, rather than before the edit returns.
constexpr int kImmediateBlocks = 200;
// Stories up to this many blocks are laid out completely at once.
constexpr int kImmediateStory = 2000;
// One background step stops after this long.
constexpr qint64 kStepNs = 6'000'000;

constexpr qreal kEndless = 1e9;

// Draws the image characters: pictures and table previews, both document
// image resources (bytes are decoded once, on first use).
class ImageObjects final : public QObject, public QTextObjectInterface {
  Q_OBJECT
  Q_INTERFACES(QTextObjectInterface)

 public:
  QSizeF intrinsicSize(QTextDocument* document, int, const QTextFormat& format) override {
    const QTextImageFormat image = format.toImageFormat();
    if (image.hasProperty(QTextFormat::ImageWidth) && image.hasProperty(QTextFormat::ImageHeight)) {
      return {image.width(), image.height()};
    }
    return imageOf(document, image).size();
  }

  void drawObject(QPainter* painter, const QRectF& rect, QTextDocument* document, int,
                  const QTextFormat& format) override {
    const QImage image = imageOf(document, format.toImageFormat());
    if (image.isNull()) {
      painter->fillRect(rect, Qt::lightGray);
      return;
    }
    painter->save();
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->drawImage(rect, image);
    painter->restore();
  }

 private:
  static QImage imageOf(QTextDocument* document, const QTextImageFormat& format) {
    const QUrl name(format.name());
    const QVariant resource = document->resource(QTextDocument::ImageResource, name);
    if (resource.userType() == QMetaType::QImage) return resource.value<QImage>();
    if (resource.userType() == QMetaType::QPixmap) return resource.value<QPixmap>().toImage();
    QImage image;
    if (resource.userType() == QMetaType::QByteArray &&
        image.loadFromData(resource.toByteArray())) {
      document->addResource(QTextDocument::ImageResource, name, image);
    }
    return image;
  }
};

}  // namespace

// The heights of the blocks, and their tops as running sums.
struct FlowLayout::Flow {
  QTextDocument* document = nullptr;
  qreal width = 0;  // of the text area; 0 until the document has a page width
  std::vector<qreal> heights;
  std::vector<char> exact;  // laid out (else estimated)
  std::vector<qreal> tops;  // heights.size() + 1 entries; [0, validTops) are right
  qreal total = 0;          // the sum of the heights (whole pixels: exact)
  std::size_t validTops = 0;
  std::size_t estimates = 0;
  std::size_t nextEstimate = 0;  // where the background step looks first
  qreal charWidth = 7;
  qreal lineHeight = 17;
  bool stale = true;  // the document changed while layout was off

  qreal margin() const { return document->documentMargin(); }
  std::size_t size() const { return heights.size(); }

  qreal top(std::size_t index) {
    if (tops.size() != heights.size() + 1) {
      tops.resize(heights.size() + 1);
      validTops = std::min(validTops, tops.size());
    }
    if (validTops == 0) {
      tops[0] = margin();
      validTops = 1;
    }
    for (; validTops <= index; ++validTops) {
      tops[validTops] = tops[validTops - 1] + heights[validTops - 1];
    }
    return tops[index];
  }

  qreal bottom() const { return margin() + total; }

  // The block whose span holds y, clamped to the first and last block.
  std::size_t indexAt(qreal y) {
    if (size() == 0) return 0;
    top(size());
    const auto end = tops.begin() + static_cast<std::ptrdiff_t>(size());
    const auto it = std::upper_bound(tops.begin(), end, y);
    if (it == tops.begin()) return 0;
    return static_cast<std::size_t>(it - tops.begin() - 1);
  }

  void setHeight(std::size_t index, qreal height) {
    if (heights[index] == height) return;
    total += height - heights[index];
    heights[index] = height;
    validTops = std::min(validTops, index + 1);
  }

  qreal estimate(const QTextBlock& block) const {
    const QTextBlockFormat format = block.blockFormat();
    const qreal spacing = format.topMargin() + format.bottomMargin();
    const int length = block.length() - 1;
    if (length == 1 && block.text().at(0) == QChar::ObjectReplacementCharacter) {
      const QTextCharFormat object = block.begin().fragment().charFormat();
      if (object.isImageFormat()) return std::ceil(object.toImageFormat().height()) + spacing;
    }
    const qreal available = std::max<qreal>(width - format.leftMargin() - format.rightMargin(), 1);
    const qreal lines = std::max<qreal>(1, std::ceil(length * charWidth / available));
    return lines * lineHeight + spacing;
  }

  qreal layOut(const QTextBlock& block) const {
    QTextLayout* layout = block.layout();
    const QTextBlockFormat format = block.blockFormat();
    QTextOption option = document->defaultTextOption();
    if (format.hasProperty(QTextFormat::BlockAlignment)) option.setAlignment(format.alignment());
    layout->setTextOption(option);
    const qreal left = format.leftMargin() + format.indent() * document->indentWidth();
    const qreal lineWidth = std::max<qreal>(width - left - format.rightMargin(), 1);
    qreal y = format.topMargin();
    layout->beginLayout();
    for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
      line.setLineWidth(lineWidth);
      line.setPosition(QPointF(left, y));
      y += std::ceil(line.height());
    }
    layout->endLayout();
    return y + format.bottomMargin();
  }

  // False between a change of the block count and its documentChanged, as
  // inside an edit block: block numbers past the change then name other
  // entries than their own, and a height measured now would land on the
  // wrong block (a table's span taken by the paragraph typed in front of
  // it). Until the change arrives the entries are read as they are.
  bool inStep() const { return document->blockCount() == static_cast<int>(heights.size()); }

  // Lays the block out unless it is; returns whether its height changed.
  bool makeExact(std::size_t index, const QTextBlock& block) {
    if (!inStep() || (exact[index] && block.layout()->lineCount() > 0)) return false;
    if (!exact[index]) {
      exact[index] = 1;
      --estimates;
    }
    const qreal before = heights[index];
    setHeight(index, layOut(block));
    return heights[index] != before;
  }

  // Blocks [first, first + removed) gave way to `count` ones of no height,
  // to be laid out or estimated. Entries are reused where the counts allow,
  // so that the edit of one block moves none.
  void splice(std::size_t first, std::size_t removed, std::size_t count) {
    for (std::size_t i = first; i < first + removed; ++i) {
      estimates -= exact[i] ? 0 : 1;
      total -= heights[i];
    }
    const std::size_t common = std::min(removed, count);
    std::fill_n(heights.begin() + static_cast<std::ptrdiff_t>(first), common, 0);
    std::fill_n(exact.begin() + static_cast<std::ptrdiff_t>(first), common, 0);
    const auto at = static_cast<std::ptrdiff_t>(first + common);
    if (removed > common) {
      const auto gone = static_cast<std::ptrdiff_t>(removed - common);
      heights.erase(heights.begin() + at, heights.begin() + at + gone);
      exact.erase(exact.begin() + at, exact.begin() + at + gone);
    } else {
      heights.insert(heights.begin() + at, count - common, 0);
      exact.insert(exact.begin() + at, count - common, 0);
    }
    estimates += count;
    validTops = std::min(validTops, first + 1);
    if (nextEstimate > size()) nextEstimate = first;
  }
};

FlowLayout::FlowLayout(QTextDocument* document)
    : QAbstractTextDocumentLayout(document),
      flow_(std::make_unique<Flow>()),
      images_(std::make_unique<ImageObjects>()) {
  flow_->document = document;
  registerHandler(QTextFormat::ImageObject, images_.get());
}

FlowLayout::~FlowLayout() = default;

// --- Geometry --------------------------------------------------------------------

QSizeF FlowLayout::documentSize() const {
  Flow& flow = *flow_;
  return {flow.width + 2 * flow.margin(), flow.bottom() + flow.margin()};
}

QRectF FlowLayout::frameBoundingRect(QTextFrame*) const {
  return {QPointF(0, 0), documentSize()};
}

QRectF FlowLayout::blockBoundingRect(const QTextBlock& block) const {
  Flow& flow = *flow_;
  if (!block.isValid() || flow.width <= 0) return {};
  const auto index = static_cast<std::size_t>(block.blockNumber());
  if (index >= flow.size()) return {};
  if (flow.makeExact(index, block)) const_cast<FlowLayout*>(this)->scheduleSizeChange();
  return {flow.margin(), flow.top(index), flow.width, flow.heights[index]};
}

int FlowLayout::hitTest(const QPointF& point, Qt::HitTestAccuracy accuracy) const {
  Flow& flow = *flow_;
  if (flow.size() == 0 || flow.width <= 0) return accuracy == Qt::ExactHit ? -1 : 0;
  const std::size_t index = flow.indexAt(point.y());
  const QTextBlock block = document()->findBlockByNumber(static_cast<int>(index));
  if (!block.isValid()) return accuracy == Qt::ExactHit ? -1 : 0;
  if (flow.makeExact(index, block)) const_cast<FlowLayout*>(this)->scheduleSizeChange();
  const QPointF local = point - QPointF(flow.margin(), flow.top(index));
  const QTextLayout* layout = block.layout();
  if (layout->lineCount() == 0) return accuracy == Qt::ExactHit ? -1 : block.position();
  QTextLine line = layout->lineAt(layout->lineCount() - 1);
  for (int i = 0; i < layout->lineCount(); ++i) {
    if (local.y() < layout->lineAt(i).y() + layout->lineAt(i).height()) {
      line = layout->lineAt(i);
      break;
    }
  }
  if (accuracy == Qt::ExactHit) {
    const bool inside = local.y() >= line.y() && local.y() < line.y() + line.height() &&
                        local.x() >= line.x() && local.x() < line.x() + line.naturalTextWidth();
    if (!inside) return -1;
    return block.position() + line.xToCursor(local.x(), QTextLine::CursorOnCharacter);
  }
  return block.position() + line.xToCursor(local.x());
}

// --- Drawing ---------------------------------------------------------------------

void FlowLayout::draw(QPainter* painter, const PaintContext& context) {
  Flow& flow = *flow_;
  if (flow.size() == 0 || flow.width <= 0) return;
  const QRectF clip = context.clip.isValid() ? context.clip : QRectF(0, 0, kEndless, kEndless);
  std::size_t index = flow.indexAt(clip.top());
  qreal y = flow.top(index);
  bool changed = false;
  painter->setPen(context.palette.color(QPalette::Text));
  for (QTextBlock block = document()->findBlockByNumber(static_cast<int>(index));
       block.isValid() && index < flow.size() && y < clip.bottom(); block = block.next(), ++index) {
    changed |= flow.makeExact(index, block);
    const QPointF origin(flow.margin(), y);
    const int start = block.position();
    const int end = start + block.length();
    QList<QTextLayout::FormatRange> ranges;
    for (const auto& selection : context.selections) {
      const int from = std::max(selection.cursor.selectionStart(), start);
      const int to = std::min(selection.cursor.selectionEnd(), end);
      if (from < to) ranges.append({from - start, to - from, selection.format});
    }
    QTextLayout* layout = block.layout();
    layout->draw(painter, origin, ranges, clip);
    if (context.cursorPosition >= start && context.cursorPosition < end) {
      layout->drawCursor(painter, origin, context.cursorPosition - start, cursorWidth_);
    }
    y += flow.heights[index];
  }
  if (changed) scheduleSizeChange();
}

// --- Changes ---------------------------------------------------------------------

void FlowLayout::documentChanged(int from, int charsRemoved, int charsAdded) {
  Flow& flow = *flow_;
  QTextDocument* document = this->document();
  if (!document->isLayoutEnabled()) {
    flow.stale = true;
    return;
  }
  const qreal pageWidth = document->pageSize().width();
  const qreal width = pageWidth > 0 ? std::max<qreal>(pageWidth - 2 * flow.margin(), 1) : 0;
  const int length = document->characterCount();
  const bool whole = from == 0 && charsRemoved == 0 && charsAdded == length;
  if (flow.stale || whole || width != flow.width) {
    relayoutAll();
    return;
  }
  const QTextBlock first = document->findBlock(from);
  const QTextBlock last = document->findBlock(std::min(from + charsAdded, length - 1));
  const int firstIndex = first.blockNumber();
  const int count = last.blockNumber() - firstIndex + 1;
  const int removed = count - (document->blockCount() - static_cast<int>(flow.size()));
  if (!first.isValid() || !last.isValid() || removed < 0 ||
      firstIndex + removed > static_cast<int>(flow.size())) {
    relayoutAll();
    return;
  }
  const auto at = static_cast<std::size_t>(firstIndex);
  const qreal top = flow.top(at);
  const qreal before = flow.bottom();
  flow.splice(at, static_cast<std::size_t>(removed), static_cast<std::size_t>(count));
  QTextBlock block = first;
  for (std::size_t i = at; i < at + static_cast<std::size_t>(count); ++i, block = block.next()) {
    if (flow.width <= 0) {
      flow.setHeight(i, flow.lineHeight);  // no page yet: nothing to lay out against
    } else if (count <= kImmediateBlocks && !lazy_) {
      flow.makeExact(i, block);
    } else {
      flow.setHeight(i, flow.estimate(block));
    }
  }
  if (flow.width > 0 && flow.estimates > 0 && !background_.isActive()) background_.start(0, this);
  const bool moved = count != removed || flow.bottom() != before;
  emit update(QRectF(0, top, kEndless,
                     moved ? kEndless : flow.top(at + static_cast<std::size_t>(count)) - top));
  if (moved) emit documentSizeChanged(documentSize());
}

void FlowLayout::relayoutAll() {
  Flow& flow = *flow_;
  QTextDocument* document = this->document();
  const qreal pageWidth = document->pageSize().width();
  const qreal width = pageWidth > 0 ? std::max<qreal>(pageWidth - 2 * flow.margin(), 1) : 0;
  const auto count = static_cast<std::size_t>(document->blockCount());
  // A change of page size alone keeps what is laid out at this width.
  const bool keep = !flow.stale && width == flow.width && count == flow.size();
  flow.stale = false;
  flow.width = width;
  const QFontMetricsF metrics(document->defaultFont(), paintDevice());
  flow.charWidth = metrics.averageCharWidth();
  flow.lineHeight = std::ceil(metrics.height());
  flow.heights.resize(count);
  flow.exact.resize(count);
  flow.estimates = 0;
  std::size_t index = 0;
  for (QTextBlock block = document->begin(); block.isValid() && index < count;
       block = block.next(), ++index) {
    if (keep && flow.exact[index] && block.layout()->lineCount() > 0) continue;
    flow.exact[index] = 0;
    ++flow.estimates;
    flow.heights[index] = width > 0 ? flow.estimate(block) : flow.lineHeight;
  }
  flow.total = std::accumulate(flow.heights.begin(), flow.heights.end(), qreal(0));
  flow.validTops = 0;
  flow.nextEstimate = 0;
  if (width > 0 && count <= static_cast<std::size_t>(kImmediateStory)) completeLayout();
  if (width > 0 && flow.estimates > 0) background_.start(0, this);
  emit documentSizeChanged(documentSize());
  emit update();
}

bool FlowLayout::isComplete() const {
  return flow_->estimates == 0;
}

void FlowLayout::completeLayout() {
  Flow& flow = *flow_;
  if (flow.width <= 0) return;
  std::size_t index = 0;
  for (QTextBlock block = document()->begin(); block.isValid() && index < flow.size();
       block = block.next(), ++index) {
    flow.makeExact(index, block);
  }
  background_.stop();
  scheduleSizeChange();
}

void FlowLayout::scheduleSizeChange() {
  if (!sizeChange_.isActive()) sizeChange_.start(0, this);
}

void FlowLayout::timerEvent(QTimerEvent* event) {
  Flow& flow = *flow_;
  if (event->timerId() == sizeChange_.timerId()) {
    sizeChange_.stop();
    emit documentSizeChanged(documentSize());
    emit update();
    return;
  }
  if (event->timerId() != background_.timerId()) {
    QAbstractTextDocumentLayout::timerEvent(event);
    return;
  }
  if (flow.estimates == 0 || flow.width <= 0) {
    background_.stop();
    return;
  }
  if (!flow.inStep()) return;  // a change is on its way: the next tick goes on
  // Blocks above the view first stand where they stand; what their layout
  // adds or takes away is handed to the view to scroll by.
  QElapsedTimer clock;
  clock.start();
  const std::size_t anchor = flow.indexAt(viewTop_);
  qreal shift = 0;
  if (flow.nextEstimate >= flow.size()) flow.nextEstimate = 0;
  std::size_t index = flow.nextEstimate;
  QTextBlock block = document()->findBlockByNumber(static_cast<int>(index));
  while (flow.estimates > 0 && clock.nsecsElapsed() < kStepNs) {
    if (!block.isValid() || index >= flow.size()) {
      index = 0;
      block = document()->begin();
      continue;
    }
    if (!flow.exact[index]) {
      const qreal before = flow.heights[index];
      flow.makeExact(index, block);
      if (index < anchor) shift += flow.heights[index] - before;
    }
    block = block.next();
    ++index;
  }
  flow.nextEstimate = index;
  if (flow.estimates == 0) background_.stop();
  emit documentSizeChanged(documentSize());
  if (shift != 0) emit anchorShifted(shift);
  emit update();
}

}  // namespace inkharbour

#include "flow_layout.moc"
