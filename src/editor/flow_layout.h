// FlowLayout: the editor's document layout, made for book-length stories.
//
// A story is one flow of blocks (no frames, no Qt tables). Qt's own layout
// moves every block after an edit, which costs tens of milliseconds per
// keystroke in the middle of a long book; this one keeps the block heights
// in an array and each block's top as a running sum over it, recomputed
// from the first changed block only when asked. An edit lays out the changed
// blocks and nothing else.
//
// Blocks never laid out count with an estimated height. Those that are drawn
// or asked about are laid out at once; the rest in the background, a few
// milliseconds at a time. When that changes the height of blocks above the
// view's top (setViewTop), anchorShifted reports by how much, so that the
// view can keep showing the same text.
//
// Pictures and table previews are drawn from the document's image resources.
#pragma once

#include <QAbstractTextDocumentLayout>
#include <QBasicTimer>

#include <memory>
#include <vector>

class QTextBlock;

namespace inkharbour {

class FlowLayout final : public QAbstractTextDocumentLayout {
  Q_OBJECT
  // QWidgetTextControl reads and writes the caret width through this name.
  Q_PROPERTY(int cursorWidth READ cursorWidth WRITE setCursorWidth)

 public:
  explicit FlowLayout(QTextDocument* document);
  ~FlowLayout() override;

  void draw(QPainter* painter, const PaintContext& context) override;
  int hitTest(const QPointF& point, Qt::HitTestAccuracy accuracy) const override;
  int pageCount() const override { return 1; }
  QSizeF documentSize() const override;
  QRectF frameBoundingRect(QTextFrame* frame) const override;
  QRectF blockBoundingRect(const QTextBlock& block) const override;

  int cursorWidth() const { return cursorWidth_; }
  void setCursorWidth(int width) { cursorWidth_ = width; }

  // The top of the view, in document coordinates.
  void setViewTop(qreal y) { viewTop_ = y; }
  // While lazy, changed blocks count with an estimate, as blocks never laid
  // out do: for edits of many blocks one at a time, most of them out of view.
  void setLazy(bool lazy) { lazy_ = lazy; }
  // True once every block is laid out (no estimate left).
  bool isComplete() const;
  // Lays out every block now.
  void completeLayout();

 signals:
  // Blocks wholly above the view's top changed their total height by `delta`.
  void anchorShifted(qreal delta);

 protected:
  void documentChanged(int from, int charsRemoved, int charsAdded) override;
  void timerEvent(QTimerEvent* event) override;

 private:
  struct Flow;

  void relayoutAll();
  void scheduleSizeChange();

  std::unique_ptr<Flow> flow_;
  std::unique_ptr<QObject> images_;
  int cursorWidth_ = 1;
  qreal viewTop_ = 0;
  bool lazy_ = false;
  QBasicTimer background_;
  QBasicTimer sizeChange_;
};

}  // namespace inkharbour
