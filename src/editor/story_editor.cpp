#include "editor/story_editor.h"

#include <QApplication>
#include <QClipboard>
#include <QDropEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>
#include <utility>

#include "editor/document_edits.h"
#include "editor/flow_layout.h"
#include "editor/paste_filter.h"
#include "editor/text_bridge.h"
#include "model/style_sheet.h"

namespace inkharbour {

namespace {

namespace TB = TextBridge;
namespace Edits = DocumentEdits;

// Search hits are marked this many blocks above and below the view, and no
// more than kMaxMarks of them.
constexpr int kMarkMargin = 60;
// White space around the text, so that it does not touch the frame.
constexpr int kPageMargin = 24;
constexpr int kMaxMarks = 2000;
constexpr int kHighlightDelayMs = 150;

bool isObject(const QTextCharFormat& format) {
  return TB::objectOf(format) != nullptr;
}

// The change a character format action merges into the text.
QTextCharFormat formatChange(StoryEditor::CharacterFormat format, bool on) {
  using F = StoryEditor::CharacterFormat;
  QTextCharFormat change;
  switch (format) {
    case F::bold:
      change.setFontWeight(on ? QFont::Bold : QFont::Normal);
      break;
    case F::italic:
      change.setFontItalic(on);
      break;
    case F::underline:
      change.setFontUnderline(on);
      break;
    case F::strikethrough:
      change.setFontStrikeOut(on);
      break;
    case F::smallCaps:
      change.setFontCapitalization(on ? QFont::SmallCaps : QFont::MixedCase);
      change.setProperty(TB::kSmallCapsProperty, on);
      break;
    case F::superscript:
    case F::subscript: {
      const bool super = format == F::superscript;
      const ScriptPosition script = !on     ? ScriptPosition::normal
                                    : super ? ScriptPosition::superscript
                                            : ScriptPosition::subscript;
      change.setVerticalAlignment(!on     ? QTextCharFormat::AlignNormal
                                  : super ? QTextCharFormat::AlignSuperScript
                                          : QTextCharFormat::AlignSubScript);
      change.setProperty(TB::kScriptProperty, static_cast<int>(script));
      break;
    }
  }
  return change;
}

// The format text typed after one in `format` gets: text typed at a footnote
// mark is ordinary text, and text next to an object has no format.
QTextCharFormat withoutMark(QTextCharFormat format) {
  if (isObject(format) || format.isImageFormat()) return QTextCharFormat();
  if (format.hasProperty(TB::kFootnoteProperty)) {
    format.clearProperty(TB::kFootnoteProperty);
    format.clearProperty(TB::kScriptProperty);
    format.setVerticalAlignment(QTextCharFormat::AlignNormal);
  }
  return format;
}

// Undo and Redo belong to the window: their keys pass the editor by.
bool isUndoOrRedo(const QKeyEvent* event) {
  const auto modifiers = event->modifiers() & ~Qt::KeypadModifier;
  return event->matches(QKeySequence::Undo) || event->matches(QKeySequence::Redo) ||
         (event->key() == Qt::Key_Y && modifiers == Qt::ControlModifier) ||
         (event->key() == Qt::Key_Z && modifiers == (Qt::ControlModifier | Qt::ShiftModifier));
}

// The events whose handling may make several edits, which are one user
// action: a key, a drag (started on a mouse move, and ended by the drop
// and the removal of what was moved) or a drop.
bool mayEdit(QEvent::Type type) {
  return type == QEvent::KeyPress || type == QEvent::InputMethod || type == QEvent::MouseMove ||
         type == QEvent::Drop;
}

// Files dragged in from a file manager are the window's to place or open:
// data whose links all name local files is not for the text.
bool onlyLocalFiles(const QMimeData& data) {
  const QList<QUrl> urls = data.urls();
  return !urls.isEmpty() &&
         std::all_of(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
}

bool isFileDrag(const QEvent* event) {
  const QEvent::Type type = event->type();
  if (type != QEvent::DragEnter && type != QEvent::DragMove && type != QEvent::Drop) return false;
  const QMimeData* data = static_cast<const QDropEvent*>(event)->mimeData();
  return data && onlyLocalFiles(*data);
}

}  // namespace

// One user action, for as long as its handler runs: the edits reported
// meanwhile are followed by one editFinished when the outermost handler
// returns. Edits outside any (Qt's own cut(), the context menu's Delete)
// are actions by themselves.
class StoryEditor::UserAction {
 public:
  explicit UserAction(StoryEditor& editor) : editor_(editor) { ++editor_.actionDepth_; }
  ~UserAction() {
    if (--editor_.actionDepth_ == 0) editor_.finishAction();
  }
  UserAction(const UserAction&) = delete;
  UserAction& operator=(const UserAction&) = delete;

 private:
  StoryEditor& editor_;
};

StoryEditor::StoryEditor(QWidget* parent) : QTextEdit(parent) {
  QFont font = this->font();
  font.setPointSizeF(StyleSheet::fontSize("Body"));
  setFont(font);
  setTabChangesFocus(false);
  highlightTimer_.setSingleShot(true);
  highlightTimer_.setInterval(kHighlightDelayMs);
  connect(&highlightTimer_, &QTimer::timeout, this, &StoryEditor::refreshHighlights);
  connect(this, &QTextEdit::cursorPositionChanged, this, &StoryEditor::formatChanged);
  connect(this, &QTextEdit::currentCharFormatChanged, this, &StoryEditor::formatChanged);
  clearStory();
}

StoryEditor::~StoryEditor() = default;

// --- Loading ---------------------------------------------------------------------

void StoryEditor::setStory(const std::vector<Block>& blocks, bool keepPosition) {
  const QTextCursor old = textCursor();
  const int oldNumber = old.blockNumber();
  const int oldOffset = old.positionInBlock();
  const auto oldID = TB::blockID(old.block());
  const int oldScroll = verticalScrollBar()->value();

  auto* document = new QTextDocument(this);
  document->setDocumentMargin(kPageMargin);
  document->setDocumentLayout(new FlowLayout(document));
  TB::load(*document, blocks);
  words_ = std::make_shared<qint64>(0);
  for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
    countWords(block);
    auto* memo = static_cast<TB::BlockMemo*>(block.userData());
    memo->last = memo->original;  // what the model holds
  }
  modelCount_ = static_cast<int>(blocks.size());
  setReadOnly(false);
  attach(document);

  if (keepPosition) {
    QTextBlock block = document->findBlockByNumber(std::min(oldNumber, document->blockCount() - 1));
    if (oldID && TB::blockID(block) != oldID) {
      for (QTextBlock candidate = document->begin(); candidate.isValid();
           candidate = candidate.next()) {
        if (TB::blockID(candidate) == oldID) {
          block = candidate;
          break;
        }
      }
    }
    QTextCursor cursor(block);
    cursor.setPosition(block.position() + std::min(oldOffset, block.length() - 1));
    setTextCursor(cursor);
    verticalScrollBar()->setValue(oldScroll);
  }
  refreshHighlights();
  emit wordCountChanged();
  emit formatChanged();
}

void StoryEditor::clearStory() {
  auto* document = new QTextDocument(this);
  document->setDocumentMargin(kPageMargin);
  document->setDocumentLayout(new FlowLayout(document));
  TB::load(*document, {});
  words_ = std::make_shared<qint64>(0);
  modelCount_ = 0;
  attach(document);
  setReadOnly(true);
  refreshHighlights();
  emit wordCountChanged();
  emit formatChanged();
}

void StoryEditor::attach(QTextDocument* document) {
  // The window's undo takes in every edit; a history here would go stale
  // with each new document.
  document->setUndoRedoEnabled(false);
  pending_.reset();
  setExtraSelections({});
  // The text control deletes only the document it made itself; the ones
  // made here are ours to delete.
  QTextDocument* old = this->document();
  const bool ours = old && old->parent() == this;
  setDocument(document);
  if (ours) old->deleteLater();
  documentBlocks_ = document->blockCount();
  connect(document, &QTextDocument::contentsChange, this, &StoryEditor::onContentsChange);
  connect(document, &QTextDocument::contentsChanged, this, &StoryEditor::settle);
  FlowLayout* layout = flow();
  layout->setViewTop(verticalScrollBar()->value());
  connect(layout, &FlowLayout::anchorShifted, this, [this](qreal delta) {
    verticalScrollBar()->setValue(verticalScrollBar()->value() + qRound(delta));
  });
}

FlowLayout* StoryEditor::flow() const {
  return static_cast<FlowLayout*>(document()->documentLayout());
}

std::vector<Block> StoryEditor::blocks() const {
  return TB::read(*document());
}

// --- Following edits -----------------------------------------------------------

void StoryEditor::onContentsChange(int position, int removed, int added) {
  (void)removed;
  QTextDocument* document = this->document();
  const QTextBlock first = document->findBlock(position);
  const QTextBlock last =
      document->findBlock(std::min(position + added, document->characterCount() - 1));
  const int f = first.blockNumber();
  const int count = last.blockNumber() - f + 1;
  const int gone = count - (document->blockCount() - documentBlocks_);
  documentBlocks_ = document->blockCount();
  for (QTextBlock block = first; block.isValid(); block = block.next()) {
    TB::decorate(block, true);
    if (block == last) break;
  }
  if (!pending_) {
    pending_ = Pending{f, gone, count};
    return;
  }
  // Joins this change (of the current blocks [f, f + gone)) with the one
  // pending (old blocks [first, first + removed) are current [first, first + count)).
  Pending& p = *pending_;
  const int end = std::max(p.first + p.count, f + gone);
  const int start = std::min(p.first, f);
  const int oldEnd = end + (p.removed - p.count);
  p = Pending{start, oldEnd - start, end + (count - gone) - start};
}

void StoryEditor::settle() {
  if (settling_ || applying_ || !pending_) return;
  settling_ = true;
  Edits::mend(*document(), pending_->first, pending_->first + pending_->count - 1);
  report();
  settling_ = false;
}

void StoryEditor::countWords(const QTextBlock& block) {
  auto* memo = dynamic_cast<TB::BlockMemo*>(block.userData());
  if (!memo) {
    memo = new TB::BlockMemo();
    QTextBlock(block).setUserData(memo);
  }
  memo->setWords(Edits::countWords(block, 0, block.length() - 1), words_);
}

void StoryEditor::report() {
  const Pending change = *pending_;
  pending_.reset();
  QTextDocument* document = this->document();
  const qint64 wordsBefore = *words_;
  const bool emptyNow = TB::isEmptyStory(*document);
  const bool whole = modelCount_ == 0 || emptyNow;
  const int first = whole ? 0 : change.first;
  const int count = whole ? (emptyNow ? 0 : document->blockCount()) : change.count;
  const int removed = whole ? modelCount_ : change.removed;

  std::vector<Block> inserted;
  inserted.reserve(static_cast<std::size_t>(count));
  bool same = count == removed;
  QTextBlock block = document->findBlockByNumber(first);
  for (int i = 0; i < count && block.isValid(); ++i, block = block.next()) {
    auto value = TB::readShared(block);
    auto* memo = dynamic_cast<TB::BlockMemo*>(block.userData());
    if (!memo) {
      memo = new TB::BlockMemo();
      block.setUserData(memo);
    }
    same = same && value == memo->last;
    memo->last = value;
    inserted.push_back(*value);
    countWords(block);
  }
  if (emptyNow) countWords(document->firstBlock());
  modelCount_ = emptyNow ? 0 : document->blockCount();
  if (!same) {
    ++actionEdits_;
    oneParagraph_ = oneParagraph_ && removed == 1 && count == 1 &&
                    std::holds_alternative<Paragraph>(inserted.front().kind);
    emit blocksEdited(static_cast<std::size_t>(first), static_cast<std::size_t>(removed), inserted);
  }
  wordsChanged_ = wordsChanged_ || *words_ != wordsBefore;
  reported_ = true;
  if (!highlightText_.isEmpty()) highlightTimer_.start();
  if (actionDepth_ == 0) finishAction();
}

// The signals about the state after an action go once, however many
// changes it made (a Replace All makes thousands).
void StoryEditor::finishAction() {
  const int edits = std::exchange(actionEdits_, 0);
  const bool typing = std::exchange(typingKey_, false) && edits == 1 && oneParagraph_;
  oneParagraph_ = true;
  if (std::exchange(wordsChanged_, false)) emit wordCountChanged();
  if (std::exchange(reported_, false)) emit formatChanged();
  if (edits > 0) emit editFinished(typing ? EditKind::typing : EditKind::other);
}

void StoryEditor::applyEdit(std::size_t first, std::size_t removed,
                            const std::vector<Block>& inserted) {
  const auto model = static_cast<std::size_t>(modelCount_);
  if (isReadOnly() || first > model || removed > model - first) return;
  if (removed == 0 && inserted.empty()) return;
  QTextDocument* document = this->document();
  const qint64 wordsBefore = *words_;
  const int at = static_cast<int>(first);
  auto blocks = static_cast<int>(inserted.size());  // written, from block `at` on
  QTextCursor cursor(document);
  applying_ = true;
  cursor.beginEditBlock();
  int caret = 0;
  if (modelCount_ == 0) {
    caret = TB::replaceBlocks(cursor, 0, 1, inserted);  // the empty story's block
  } else if (removed > 0) {
    caret = TB::replaceBlocks(cursor, at, static_cast<int>(removed), inserted);
  } else if (at > 0) {
    const QTextBlock before = document->findBlockByNumber(at - 1);
    cursor.setPosition(before.position() + before.length() - 1);
    cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
    caret = TB::writeBlocks(cursor, inserted);
  } else {
    // Blocks split off in front of the first would leave its memo behind:
    // the first block is written again after the new ones.
    std::vector<Block> written = inserted;
    written.push_back(TB::readBlock(document->firstBlock()));
    TB::replaceBlocks(cursor, 0, 1, written);
    const QTextBlock last = document->findBlockByNumber(blocks - 1);
    caret = last.position() + last.length() - 1;
    ++blocks;
  }
  cursor.endEditBlock();
  applying_ = false;
  pending_.reset();
  modelCount_ += static_cast<int>(inserted.size()) - static_cast<int>(removed);
  QTextBlock block = document->findBlockByNumber(at);
  for (int i = 0; i < blocks && block.isValid(); ++i, block = block.next()) {
    countWords(block);
    auto* memo = static_cast<TB::BlockMemo*>(block.userData());
    memo->last = memo->original;
  }
  if (modelCount_ == 0) countWords(document->firstBlock());
  cursor.setPosition(std::min(caret, document->characterCount() - 1));
  setTextCursor(cursor);
  ensureCursorVisible();
  if (*words_ != wordsBefore) emit wordCountChanged();
  if (!highlightText_.isEmpty()) highlightTimer_.start();
  emit formatChanged();
}

// --- Editing helpers -------------------------------------------------------------

void StoryEditor::pasteBlocks(const std::vector<Block>& blocks) {
  if (blocks.empty() || isReadOnly()) return;
  QTextCursor cursor = textCursor();
  cursor.beginEditBlock();
  Edits::claimEmptyStory(cursor);
  if (cursor.hasSelection()) {
    const int at = Edits::touchesAtomic(cursor) ? Edits::removeSelection(cursor) : -1;
    if (at >= 0) {
      cursor.setPosition(at);
    } else {
      cursor.removeSelectedText();
    }
  }
  if (TB::isAtomic(cursor.block())) cursor.setPosition(Edits::openParagraphBeside(cursor));
  const int caret = Edits::insertBlocks(cursor, blocks);
  cursor.endEditBlock();
  cursor.setPosition(caret);
  setTextCursor(cursor);
  ensureCursorVisible();
}

bool StoryEditor::deleteNextToAtomic(bool backward) {
  QTextCursor cursor = textCursor();
  const QTextBlock block = cursor.block();
  const auto select = [&](const QTextBlock& object) {
    cursor.setPosition(object.position());
    cursor.setPosition(object.position() + 1, QTextCursor::KeepAnchor);
    setTextCursor(cursor);
    return true;
  };
  if (TB::isAtomic(block)) return select(block);
  const bool atStart = cursor.positionInBlock() == 0;
  const bool atEnd = cursor.positionInBlock() == block.length() - 1;
  const QTextBlock neighbour = backward ? block.previous() : block.next();
  if (!(backward ? atStart : atEnd) || !neighbour.isValid() || !TB::isAtomic(neighbour))
    return false;
  if (block.length() > 1) return select(neighbour);
  // An empty paragraph beside a table or picture goes by itself.
  cursor.beginEditBlock();
  const int next = TB::replaceBlocks(cursor, block.blockNumber(), 1, {});
  cursor.endEditBlock();
  const QTextBlock landing = backward ? neighbour : document()->findBlock(next);
  cursor.setPosition(backward ? landing.position() + landing.length() - 1 : landing.position());
  setTextCursor(cursor);
  return true;
}

QTextCharFormat StoryEditor::typingFormat() const {
  return withoutMark(textCursor().charFormat());
}

void StoryEditor::cleanTypingFormat() {
  QTextCursor cursor = textCursor();
  const QTextCharFormat current = cursor.charFormat();
  if (!current.hasProperty(TB::kFootnoteProperty) && !isObject(current)) return;
  cursor.setCharFormat(typingFormat());
  setTextCursor(cursor);
}

// --- Events ----------------------------------------------------------------------

bool StoryEditor::event(QEvent* event) {
  if (event->type() == QEvent::ShortcutOverride && isUndoOrRedo(static_cast<QKeyEvent*>(event))) {
    event->ignore();  // so that the window's shortcut takes the key
    return false;
  }
  if (!mayEdit(event->type())) return QTextEdit::event(event);
  const UserAction action(*this);
  return QTextEdit::event(event);
}

bool StoryEditor::viewportEvent(QEvent* event) {
  if (isFileDrag(event)) {
    // Left unaccepted, the drag goes on to the widgets around the editor.
    event->ignore();
    return true;
  }
  if (!mayEdit(event->type())) return QTextEdit::viewportEvent(event);
  const UserAction action(*this);
  return QTextEdit::viewportEvent(event);
}

// Qt's menu, with Undo and Redo asking the window instead of the document.
void StoryEditor::contextMenuEvent(QContextMenuEvent* event) {
  const QPoint scroll(horizontalScrollBar()->value(), verticalScrollBar()->value());
  QMenu* menu = createStandardContextMenu(event->pos() + scroll);
  for (QAction* own : menu->actions()) {
    const bool undo = own->objectName() == QLatin1String("edit-undo");
    if (!undo && own->objectName() != QLatin1String("edit-redo")) continue;
    auto* action = new QAction(own->icon(), own->text(), menu);
    action->setObjectName(own->objectName());
    action->setEnabled(!isReadOnly() && (undo ? canUndo_ : canRedo_));
    connect(action, &QAction::triggered, this,
            undo ? &StoryEditor::undoRequested : &StoryEditor::redoRequested);
    menu->insertAction(own, action);
    delete own;
  }
  menu->setAttribute(Qt::WA_DeleteOnClose);
  menu->popup(event->globalPos());
}

void StoryEditor::keyPressEvent(QKeyEvent* event) {
  if (isUndoOrRedo(event)) {
    event->ignore();
    return;
  }
  if (isReadOnly()) {
    QTextEdit::keyPressEvent(event);
    return;
  }
  QTextCursor cursor = textCursor();
  const int key = event->key();
  const bool plain =
      !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier));
  const bool wordErase =
      event == QKeySequence::DeleteStartOfWord || event == QKeySequence::DeleteEndOfWord;
  const bool erase = (plain && (key == Qt::Key_Backspace || key == Qt::Key_Delete)) || wordErase;
  if (erase || event == QKeySequence::Cut) {
    if (cursor.hasSelection() && Edits::touchesAtomic(cursor)) {
      if (event == QKeySequence::Cut) copy();
      cursor.beginEditBlock();
      const int caret = Edits::removeSelection(cursor);
      cursor.endEditBlock();
      cursor.setPosition(caret);
      setTextCursor(cursor);
      return;
    }
    const bool backward = key == Qt::Key_Backspace || event == QKeySequence::DeleteStartOfWord;
    if (erase && !cursor.hasSelection() && deleteNextToAtomic(backward)) return;
    typingKey_ = erase && !wordErase && !cursor.hasSelection();
    QTextEdit::keyPressEvent(event);
    return;
  }
  if (event == QKeySequence::InsertParagraphSeparator) {
    splitParagraph();
    return;
  }
  const QString text = event->text();
  const bool typing =
      event == QKeySequence::InsertLineSeparator ||
      (plain && !text.isEmpty() && (text.front().isPrint() || text == QLatin1String("\t")));
  if (!typing) {
    QTextEdit::keyPressEvent(event);
    return;
  }
  const bool atomicSelection = cursor.hasSelection() && Edits::touchesAtomic(cursor);
  const bool emptyStory = TB::isEmptyStory(*document());
  if (!atomicSelection && !emptyStory && !TB::isAtomic(cursor.block())) {
    cleanTypingFormat();
    typingKey_ = !cursor.hasSelection();
    QTextEdit::keyPressEvent(event);
    return;
  }
  // One change of the document with the key's own edit.
  cursor.beginEditBlock();
  makeRoomForText(cursor);
  setTextCursor(cursor);
  cleanTypingFormat();
  QTextEdit::keyPressEvent(event);
  cursor.endEditBlock();
  ensureCursorVisible();  // where the layout has the new paragraph now
}

// Text typed at a table or picture goes into a paragraph beside it; typed
// over one selected alone, into a paragraph in its place; and the empty
// story's block becomes a paragraph.
void StoryEditor::makeRoomForText(QTextCursor& cursor) {
  Edits::claimEmptyStory(cursor);
  if (cursor.hasSelection() && Edits::touchesAtomic(cursor)) {
    const int replaced = Edits::replaceObjectByParagraph(cursor);
    cursor.setPosition(replaced >= 0 ? replaced : Edits::removeSelection(cursor));
  }
  if (TB::isAtomic(cursor.block())) cursor.setPosition(Edits::openParagraphBeside(cursor));
}

// Qt's own Enter clears the format of an empty paragraph (and, with a
// selection, of every selected one), which would take styles and ids along.
void StoryEditor::splitParagraph() {
  QTextCursor cursor = textCursor();
  cursor.beginEditBlock();
  Edits::claimEmptyStory(cursor);
  if (cursor.hasSelection() && Edits::touchesAtomic(cursor)) {
    cursor.setPosition(Edits::removeSelection(cursor));
  } else {
    cursor.removeSelectedText();
  }
  if (TB::isAtomic(cursor.block())) {
    cursor.setPosition(Edits::openParagraphBeside(cursor));
  } else {
    // The new half copies the format, id included; mend() gives it its own.
    QTextBlockFormat format = cursor.blockFormat();
    const QString style = TB::paragraphStyle(cursor.block());
    if (cursor.atBlockEnd() && (style == QLatin1String("Title") || style.startsWith(QLatin1String("Heading")))) {
      // After a title or heading the author goes on with body text.
      format.setProperty(TB::kParagraphStyleProperty, QStringLiteral("Body"));
    }
    cursor.insertBlock(format, withoutMark(cursor.charFormat()));
  }
  cursor.endEditBlock();
  setTextCursor(cursor);
  ensureCursorVisible();
}

void StoryEditor::inputMethodEvent(QInputMethodEvent* event) {
  if (isReadOnly() || event->commitString().isEmpty()) {
    QTextEdit::inputMethodEvent(event);
    return;
  }
  QTextCursor cursor = textCursor();
  typingKey_ = !cursor.hasSelection();
  cursor.beginEditBlock();
  makeRoomForText(cursor);
  setTextCursor(cursor);
  cleanTypingFormat();
  QTextEdit::inputMethodEvent(event);
  cursor.endEditBlock();
  ensureCursorVisible();
}

void StoryEditor::mouseDoubleClickEvent(QMouseEvent* event) {
  const QPointF point =
      event->position() + QPointF(horizontalScrollBar()->value(), verticalScrollBar()->value());
  const int position = document()->documentLayout()->hitTest(point, Qt::ExactHit);
  if (position >= 0) {
    const QTextBlock block = document()->findBlock(position);
    if (TB::isAtomic(block)) {
      const auto object = TB::readShared(block);
      if (std::holds_alternative<Table>(object->kind)) {
        event->accept();
        emit tableActivated(object->id);
        return;
      }
    }
  }
  QTextEdit::mouseDoubleClickEvent(event);
}

void StoryEditor::resizeEvent(QResizeEvent* event) {
  QTextEdit::resizeEvent(event);
  markVisibleHits();
}

void StoryEditor::scrollContentsBy(int dx, int dy) {
  QTextEdit::scrollContentsBy(dx, dy);
  flow()->setViewTop(verticalScrollBar()->value());
  if (dy != 0) markVisibleHits();
}

// --- Clipboard -------------------------------------------------------------------

bool StoryEditor::canInsertFromMimeData(const QMimeData* source) const {
  return source && !onlyLocalFiles(*source) && PasteFilter::canRead(*source);
}

void StoryEditor::insertFromMimeData(const QMimeData* source) {
  const UserAction action(*this);
  if (source) pasteBlocks(PasteFilter::read(*source));
}

QMimeData* StoryEditor::createMimeDataFromSelection() const {
  return PasteFilter::mimeData(Edits::selectedBlocks(textCursor()));
}

void StoryEditor::pastePlainText() {
  const QMimeData* data = QGuiApplication::clipboard()->mimeData();
  if (!data || !data->hasText()) return;
  const UserAction action(*this);
  TextRun format = TB::runFormat(typingFormat());
  format.footnoteID.reset();
  const QString style =
      TB::isAtomic(textCursor().block()) ? QStringLiteral("Body") : paragraphStyle();
  pasteBlocks(PasteFilter::fromPlainText(data->text(), style.toStdString(), format));
}

// --- Formatting ------------------------------------------------------------------

void StoryEditor::setCharacterFormat(CharacterFormat format, bool on) {
  if (isReadOnly()) return;
  const QTextCharFormat change = formatChange(format, on);
  QTextCursor cursor = textCursor();
  if (!cursor.hasSelection()) {
    cleanTypingFormat();
    mergeCurrentCharFormat(change);
    emit formatChanged();
    return;
  }
  const UserAction action(*this);
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  cursor.beginEditBlock();
  const QTextBlock last = document()->findBlock(end);
  for (QTextBlock block = document()->findBlock(start); block.isValid(); block = block.next()) {
    if (!TB::isAtomic(block)) {
      QTextCursor range(document());
      range.setPosition(std::max(start, block.position()));
      range.setPosition(std::min(end, block.position() + block.length() - 1),
                        QTextCursor::KeepAnchor);
      if (range.hasSelection()) range.mergeCharFormat(change);
    }
    if (block == last) break;
  }
  cursor.endEditBlock();
  emit formatChanged();
}

bool StoryEditor::hasCharacterFormat(CharacterFormat format) const {
  const TextRun run = TB::runFormat(typingFormat());
  using F = CharacterFormat;
  switch (format) {
    case F::bold:
      return run.bold;
    case F::italic:
      return run.italic;
    case F::underline:
      return run.underline;
    case F::strikethrough:
      return run.strikethrough;
    case F::smallCaps:
      return run.smallCaps;
    case F::superscript:
      return run.script == ScriptPosition::superscript;
    case F::subscript:
      return run.script == ScriptPosition::subscript;
  }
  return false;
}

void StoryEditor::setParagraphStyle(const QString& styleName) {
  if (isReadOnly()) return;
  const UserAction action(*this);
  QTextCursor cursor = textCursor();
  const QTextBlock last = document()->findBlock(cursor.selectionEnd());
  cursor.beginEditBlock();
  QTextCursor change(document());
  for (QTextBlock block = document()->findBlock(cursor.selectionStart()); block.isValid();
       block = block.next()) {
    if (!TB::isAtomic(block) && TB::paragraphStyle(block) != styleName) {
      change.setPosition(block.position());
      change.setBlockFormat(
          TB::paragraphFormat(styleName, TB::blockID(block).value_or(Uuid::random())));
    }
    if (block == last) break;
  }
  cursor.endEditBlock();
  emit formatChanged();
}

QString StoryEditor::paragraphStyle() const {
  const QTextBlock block = textCursor().block();
  if (TB::isAtomic(block)) return {};
  return TB::paragraphStyle(block);
}

// --- Find, highlights, word counts ---------------------------------------------------

bool StoryEditor::find(const QString& text, bool backward, bool caseSensitive) {
  if (text.isEmpty()) return false;
  QTextDocument::FindFlags flags;
  if (backward) flags |= QTextDocument::FindBackward;
  if (caseSensitive) flags |= QTextDocument::FindCaseSensitively;
  QTextCursor found = document()->find(text, textCursor(), flags);
  if (found.isNull()) {
    QTextCursor from(document());
    if (backward) from.movePosition(QTextCursor::End);
    found = document()->find(text, from, flags);
  }
  if (found.isNull()) return false;
  setTextCursor(found);
  ensureCursorVisible();
  return true;
}

bool StoryEditor::replaceSelection(const QString& text, const QString& replacement,
                                   bool caseSensitive) {
  if (isReadOnly() || text.isEmpty()) return false;
  const Qt::CaseSensitivity sensitivity = caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
  QTextCursor cursor = textCursor();
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  const QTextBlock block = document()->findBlock(start);
  const bool hit = cursor.hasSelection() &&
                   Edits::isPlainText(block, start - block.position(), end - block.position()) &&
                   cursor.selectedText().compare(text, sensitivity) == 0;
  if (hit) {
    const UserAction action(*this);
    cursor.beginEditBlock();
    const int after = Edits::replaceText(cursor, start, end, replacement);
    cursor.endEditBlock();
    cursor.setPosition(after);
    setTextCursor(cursor);
  }
  find(text, false, caseSensitive);
  return hit;
}

int StoryEditor::replaceAll(const QString& text, const QString& replacement, bool caseSensitive) {
  if (isReadOnly() || text.isEmpty()) return 0;
  const Qt::CaseSensitivity sensitivity = caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
  const UserAction action(*this);
  QTextCursor cursor(document());
  int replaced = 0;
  // Each changed paragraph is a change of the document by itself, and so an
  // edit of its own block: the paragraphs between are never read back. The
  // changed ones are laid out when shown, or else in the background.
  flow()->setLazy(true);
  for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
    const auto found = Edits::hits(block, text, sensitivity);
    if (found.empty()) continue;
    const int position = block.position();
    cursor.beginEditBlock();
    for (auto it = found.rbegin(); it != found.rend(); ++it) {
      Edits::replaceText(cursor, position + it->first, position + it->second, replacement);
    }
    cursor.endEditBlock();
    replaced += static_cast<int>(found.size());
    block = document()->findBlock(position);  // mend() may have rebuilt blocks here
  }
  flow()->setLazy(false);
  return replaced;
}

void StoryEditor::highlight(const QString& text, bool caseSensitive) {
  highlightText_ = text;
  highlightCase_ = caseSensitive;
  highlightTimer_.stop();
  refreshHighlights();
}

void StoryEditor::refreshHighlights() {
  highlightCount_ = 0;
  if (!highlightText_.isEmpty()) {
    const Qt::CaseSensitivity sensitivity =
        highlightCase_ ? Qt::CaseSensitive : Qt::CaseInsensitive;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
      const QString text = block.text();
      for (qsizetype at = text.indexOf(highlightText_, 0, sensitivity); at >= 0;
           at = text.indexOf(highlightText_, at + highlightText_.size(), sensitivity)) {
        ++highlightCount_;
      }
    }
  }
  markVisibleHits();
}

void StoryEditor::markVisibleHits() {
  QList<ExtraSelection> marks;
  if (highlightText_.isEmpty() || highlightCount_ == 0) {
    if (!extraSelections().isEmpty()) setExtraSelections(marks);
    return;
  }
  const Qt::CaseSensitivity sensitivity = highlightCase_ ? Qt::CaseSensitive : Qt::CaseInsensitive;
  QTextCharFormat mark;
  mark.setBackground(QColor(0xFF, 0xE0, 0x70));
  const int top = cursorForPosition(QPoint(0, 0)).blockNumber();
  const int bottom =
      cursorForPosition(QPoint(viewport()->width(), viewport()->height())).blockNumber();
  QTextBlock block = document()->findBlockByNumber(std::max(0, top - kMarkMargin));
  const int last = bottom + kMarkMargin;
  for (; block.isValid() && block.blockNumber() <= last && marks.size() < kMaxMarks;
       block = block.next()) {
    const QString text = block.text();
    for (qsizetype at = text.indexOf(highlightText_, 0, sensitivity);
         at >= 0 && marks.size() < kMaxMarks;
         at = text.indexOf(highlightText_, at + highlightText_.size(), sensitivity)) {
      QTextCursor hit(document());
      hit.setPosition(block.position() + static_cast<int>(at));
      hit.setPosition(block.position() + static_cast<int>(at + highlightText_.size()),
                      QTextCursor::KeepAnchor);
      marks.append({hit, mark});
    }
  }
  setExtraSelections(marks);
}

qint64 StoryEditor::wordCount() const {
  return *words_;
}

qint64 StoryEditor::selectedWordCount() const {
  const QTextCursor cursor = textCursor();
  if (!cursor.hasSelection()) return 0;
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  const QTextBlock last = document()->findBlock(end);
  qint64 words = 0;
  for (QTextBlock block = document()->findBlock(start); block.isValid(); block = block.next()) {
    const int from = std::max(start - block.position(), 0);
    const int to = std::min(end - block.position(), block.length() - 1);
    const auto* memo = dynamic_cast<const TB::BlockMemo*>(block.userData());
    if (from == 0 && to == block.length() - 1 && memo && memo->words() >= 0) {
      words += memo->words();
    } else {
      words += Edits::countWords(block, from, to);
    }
    if (block == last) break;
  }
  return words;
}

void StoryEditor::scrollToBlock(const Uuid& blockID) {
  for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
    if (TB::blockID(block) != blockID) continue;
    setTextCursor(QTextCursor(block));
    const QRectF rect = document()->documentLayout()->blockBoundingRect(block);
    verticalScrollBar()->setValue(static_cast<int>(rect.top()));
    ensureCursorVisible();
    return;
  }
}

}  // namespace inkharbour
