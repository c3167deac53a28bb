#include "editor/story_editor.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>

#include "editor/flow_layout.h"
#include "editor/paste_filter.h"
#include "editor/text_bridge.h"
#include "model/style_sheet.h"

namespace inkharbour {

namespace {

namespace TB = TextBridge;

// Search hits are marked this many blocks above and below the view, and no
// more than kMaxMarks of them.
constexpr int kMarkMargin = 60;
constexpr int kMaxMarks = 2000;
constexpr int kHighlightDelayMs = 150;

bool isObject(const QTextCharFormat& format) { return format.hasProperty(TB::kBlockObjectProperty); }

// Words in the block's characters [from, to): stretches between white space
// that hold a letter or digit. Footnote marks and objects end a word and
// count for nothing.
qint64 wordsIn(const QTextBlock& block, int from, int to) {
  qint64 words = 0;
  bool inWord = false;
  bool counts = false;
  const auto endWord = [&] {
    if (inWord && counts) ++words;
    inWord = counts = false;
  };
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    const int start = fragment.position() - block.position();
    const int begin = std::max(from, start);
    const int end = std::min(to, start + fragment.length());
    if (begin >= end) continue;
    const QTextCharFormat format = fragment.charFormat();
    if (format.hasProperty(TB::kFootnoteProperty) || isObject(format) || format.isImageFormat()) {
      endWord();
      continue;
    }
    const QString text = fragment.text();
    for (int i = begin - start; i < end - start; ++i) {
      char32_t code = text[i].unicode();
      if (QChar::isHighSurrogate(code) && i + 1 < end - start && text[i + 1].isLowSurrogate()) {
        code = QChar::surrogateToUcs4(text[i], text[i + 1]);
        ++i;
      }
      if (QChar::isSpace(code)) {
        endWord();
      } else {
        inWord = true;
        counts = counts || QChar::isLetterOrNumber(code);
      }
    }
  }
  endWord();
  return words;
}

// The change a character format action merges into the text.
QTextCharFormat formatChange(StoryEditor::CharacterFormat format, bool on) {
  using F = StoryEditor::CharacterFormat;
  QTextCharFormat change;
  switch (format) {
    case F::bold: change.setFontWeight(on ? QFont::Bold : QFont::Normal); break;
    case F::italic: change.setFontItalic(on); break;
    case F::underline: change.setFontUnderline(on); break;
    case F::strikethrough: change.setFontStrikeOut(on); break;
    case F::smallCaps:
      change.setFontCapitalization(on ? QFont::SmallCaps : QFont::MixedCase);
      change.setProperty(TB::kSmallCapsProperty, on);
      break;
    case F::superscript:
    case F::subscript: {
      const bool super = format == F::superscript;
      const ScriptPosition script = !on ? ScriptPosition::normal
                                    : super ? ScriptPosition::superscript
                                            : ScriptPosition::subscript;
      change.setVerticalAlignment(!on ? QTextCharFormat::AlignNormal
                                  : super ? QTextCharFormat::AlignSuperScript
                                          : QTextCharFormat::AlignSubScript);
      change.setProperty(TB::kScriptProperty, static_cast<int>(script));
      break;
    }
  }
  return change;
}

void setID(QTextCursor& cursor, const QTextBlock& block, const Uuid& id) {
  cursor.setPosition(block.position());
  QTextBlockFormat format = block.blockFormat();
  format.setProperty(TB::kBlockIDProperty, QString::fromStdString(id.string()));
  cursor.setBlockFormat(format);
}

qsizetype textLength(const std::vector<TextRun>& runs) {
  qsizetype length = 0;
  for (const auto& run : runs) length += QString::fromStdString(run.text).size();
  return length;
}

void appendRuns(std::vector<TextRun>& runs, std::vector<TextRun> more) {
  for (auto& run : more) {
    if (run.text.empty()) continue;
    if (!runs.empty() && runs.back().sameFormat(run) && runs.back().footnoteID == run.footnoteID) {
      runs.back().text += run.text;
    } else {
      runs.push_back(std::move(run));
    }
  }
}

Block paragraphBlock(Uuid id, std::string style, std::vector<TextRun> runs) {
  return Block{.id = id, .kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

// A block holding a table or picture together with other characters, as
// blocks of its own: the text around each object becomes paragraphs.
std::vector<Block> separateObjects(const QTextBlock& block) {
  const bool styled = block.blockFormat().hasProperty(TB::kParagraphStyleProperty);
  const std::string style = TB::paragraphStyle(block).toStdString();
  std::optional<Uuid> id = styled ? TB::blockID(block) : std::nullopt;
  std::vector<Block> parts;
  std::vector<TextRun> text;
  const auto flush = [&] {
    if (text.empty()) return;
    parts.push_back(paragraphBlock(id.value_or(Uuid::random()), style, std::move(text)));
    id.reset();
    text.clear();
  };
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    const int start = fragment.position() - block.position();
    if (auto object = TB::objectOf(fragment.charFormat())) {
      flush();
      for (int i = 0; i < fragment.length(); ++i) parts.push_back(*object);
    } else {
      appendRuns(text, TB::runs(block, start, start + fragment.length()));
    }
  }
  flush();
  return parts;
}

bool containsObject(const QTextBlock& block) {
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    if (isObject(it.fragment().charFormat())) return true;
  }
  return false;
}

}  // namespace

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
  document->setDocumentLayout(new FlowLayout(document));
  TB::load(*document, blocks);
  words_ = std::make_shared<qint64>(0);
  for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) countWords(block);
  modelCount_ = static_cast<int>(blocks.size());
  setReadOnly(false);
  attach(document);

  if (keepPosition) {
    QTextBlock block = document->findBlockByNumber(std::min(oldNumber, document->blockCount() - 1));
    if (oldID && TB::blockID(block) != oldID) {
      for (QTextBlock candidate = document->begin(); candidate.isValid(); candidate = candidate.next()) {
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
  pending_.reset();
  setExtraSelections({});
  // The editor deletes only documents its text control owns; these are ours.
  QTextDocument* old = this->document();
  setDocument(document);
  if (old && old->parent() == this) old->deleteLater();
  documentBlocks_ = document->blockCount();
  redoSteps_ = 0;
  newCommand_ = false;
  connect(document, &QTextDocument::contentsChange, this, &StoryEditor::onContentsChange);
  connect(document, &QTextDocument::contentsChanged, this, &StoryEditor::settle);
  connect(document, &QTextDocument::undoCommandAdded, this, [this] { newCommand_ = true; });
  FlowLayout* layout = flow();
  layout->setViewTop(verticalScrollBar()->value());
  connect(layout, &FlowLayout::anchorShifted, this, [this](qreal delta) {
    verticalScrollBar()->setValue(verticalScrollBar()->value() + qRound(delta));
  });
}

FlowLayout* StoryEditor::flow() const {
  return static_cast<FlowLayout*>(document()->documentLayout());
}

std::vector<Block> StoryEditor::blocks() const { return TB::read(*document()); }

// --- Following edits -----------------------------------------------------------

void StoryEditor::onContentsChange(int position, int removed, int added) {
  (void)removed;
  QTextDocument* document = this->document();
  const QTextBlock first = document->findBlock(position);
  const QTextBlock last = document->findBlock(std::min(position + added, document->characterCount() - 1));
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
  if (settling_ || !pending_) return;
  settling_ = true;
  QTextDocument* document = this->document();
  // Undo and redo bring back states that were whole; only a new edit may
  // need mending (and must not be mended during an undo, which would cut
  // off the redo history).
  const int redo = document->availableRedoSteps();
  const bool undoOrRedo = !newCommand_ && redo != redoSteps_;
  if (!undoOrRedo) repair(pending_->first, pending_->first + pending_->count - 1);
  newCommand_ = false;
  redoSteps_ = document->availableRedoSteps();
  report();
  settling_ = false;
}

void StoryEditor::repair(int first, int last) {
  QTextDocument* document = this->document();
  if (TB::isEmptyStory(*document)) return;
  QTextCursor cursor(document);
  bool open = false;
  const auto edit = [&] {
    if (!open) cursor.joinPreviousEditBlock();
    open = true;
  };
  int lo = std::max(0, first - 1);
  int hi = std::min(document->blockCount() - 1, last + 1);
  // Tables and pictures alone in their blocks; no block left without a style.
  for (int i = lo; i <= hi && i < document->blockCount(); ++i) {
    const QTextBlock block = document->findBlockByNumber(i);
    const bool styled = block.blockFormat().hasProperty(TB::kParagraphStyleProperty);
    if (TB::isAtomic(block)) {
      if (styled) {
        edit();
        cursor.setPosition(block.position());
        cursor.setBlockFormat(TB::atomicFormat(TB::blockID(block).value_or(Uuid::random())));
      }
    } else if (containsObject(block)) {
      const auto parts = separateObjects(block);
      edit();
      TB::replaceBlocks(cursor, i, 1, parts);
      const int added = static_cast<int>(parts.size()) - 1;
      hi += added;
      i += added;
    } else if (!styled) {
      edit();
      if (block.length() == 1 && document->blockCount() > 1) {
        TB::replaceBlocks(cursor, i, 1, {});
        --i;
        --hi;
      } else {
        cursor.setPosition(block.position());
        cursor.setBlockFormat(TB::paragraphFormat(QStringLiteral("Body"),
                                                  TB::blockID(block).value_or(Uuid::random())));
      }
    }
  }
  // Every block an id of its own. Qt copies the block format on Enter: the
  // new half gets the fresh id, unless the split was at the very start, where
  // the text moves on and takes its id (and memo) along.
  for (int i = lo; i <= hi && i < document->blockCount(); ++i) {
    const QTextBlock block = document->findBlockByNumber(i);
    const auto id = TB::blockID(block);
    const QTextBlock previous = block.previous();
    const bool duplicate = id && previous.isValid() && TB::blockID(previous) == id;
    if (id && !duplicate) continue;
    edit();
    if (duplicate && previous.length() == 1 && block.length() > 1) {
      if (const auto* memo = dynamic_cast<const TB::BlockMemo*>(previous.userData())) {
        auto* moved = new TB::BlockMemo(memo->original);
        moved->last = memo->last;
        QTextBlock(block).setUserData(moved);
      }
      setID(cursor, previous, Uuid::random());
    } else {
      setID(cursor, block, Uuid::random());
    }
  }
  if (open) cursor.endEditBlock();
}

void StoryEditor::countWords(const QTextBlock& block) {
  auto* memo = dynamic_cast<TB::BlockMemo*>(block.userData());
  if (!memo) {
    memo = new TB::BlockMemo();
    QTextBlock(block).setUserData(memo);
  }
  memo->setWords(wordsIn(block, 0, block.length() - 1), words_);
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
    const auto& reported = memo->last ? memo->last : memo->original;
    same = same && value == reported;
    memo->last = value;
    inserted.push_back(*value);
    countWords(block);
  }
  if (emptyNow) countWords(document->firstBlock());
  modelCount_ = emptyNow ? 0 : document->blockCount();
  if (!same) {
    emit blocksEdited(static_cast<std::size_t>(first), static_cast<std::size_t>(removed), inserted);
  }
  if (*words_ != wordsBefore) emit wordCountChanged();
  if (!highlightText_.isEmpty()) highlightTimer_.start();
  emit formatChanged();
}

// --- Editing helpers -------------------------------------------------------------

bool StoryEditor::touchesAtomic(const QTextCursor& cursor) const {
  const QTextDocument* document = this->document();
  return TB::isAtomic(document->findBlock(cursor.selectionStart())) ||
         TB::isAtomic(document->findBlock(cursor.selectionEnd()));
}

int StoryEditor::removeSelection(QTextCursor& cursor) {
  QTextDocument* document = this->document();
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  const QTextBlock first = document->findBlock(start);
  const QTextBlock last = document->findBlock(end);
  const bool firstAtomic = TB::isAtomic(first);
  const bool lastAtomic = TB::isAtomic(last);
  std::vector<Block> kept;
  int caretBlock = 0;
  int caretOffset = 0;
  if (firstAtomic) {
    // A table or picture goes when its character is selected, not only the
    // line end after it.
    if (start > first.position()) kept.push_back(TB::readBlock(first));
    caretBlock = static_cast<int>(kept.size());
  } else {
    caretOffset = start - first.position();
    kept.push_back(paragraphBlock(TB::blockID(first).value_or(Uuid::random()),
                                  TB::paragraphStyle(first).toStdString(),
                                  TB::runs(first, 0, caretOffset)));
  }
  if (first != last) {
    if (lastAtomic) {
      if (end == last.position()) kept.push_back(TB::readBlock(last));
    } else {
      auto tail = TB::runs(last, end - last.position(), last.length() - 1);
      if (!firstAtomic) {
        appendRuns(std::get<Paragraph>(kept.back().kind).runs, std::move(tail));
      } else {
        kept.push_back(paragraphBlock(TB::blockID(last).value_or(Uuid::random()),
                                      TB::paragraphStyle(last).toStdString(), std::move(tail)));
      }
    }
  }
  const int firstNumber = first.blockNumber();
  const int count = last.blockNumber() - firstNumber + 1;
  if (kept.empty() && count == document->blockCount()) {
    kept.push_back(paragraphBlock(Uuid::random(), "Body", {}));
  }
  TB::replaceBlocks(cursor, firstNumber, count, kept);
  const QTextBlock caret = document->findBlockByNumber(
      std::min(firstNumber + caretBlock, document->blockCount() - 1));
  return caret.position() + std::min(caretOffset, caret.length() - 1);
}

int StoryEditor::openParagraphBeside(QTextCursor& cursor) {
  const QTextBlock block = cursor.block();
  const QTextBlockFormat paragraph = TB::paragraphFormat(QStringLiteral("Body"), Uuid::random());
  if (cursor.position() > block.position()) {
    cursor.setPosition(block.position() + block.length() - 1);
    cursor.insertBlock(paragraph, QTextCharFormat());
    return cursor.position();
  }
  if (const QTextBlock previous = block.previous(); previous.isValid()) {
    cursor.setPosition(previous.position() + previous.length() - 1);
    cursor.insertBlock(paragraph, QTextCharFormat());
    return cursor.position();
  }
  // Before the story's first block: split in front of the object and make
  // the (empty) first half the paragraph.
  cursor.setPosition(0);
  cursor.insertBlock(block.blockFormat(), block.charFormat());
  cursor.setPosition(0);
  cursor.setBlockFormat(paragraph);
  cursor.setBlockCharFormat(QTextCharFormat());
  document()->firstBlock().setUserData(nullptr);
  return 0;
}

int StoryEditor::insertBlocks(QTextCursor& cursor, const std::vector<Block>& blocks) {
  const QTextBlock target = cursor.block();
  const int number = target.blockNumber();
  const int offset = cursor.positionInBlock();
  const std::string style = TB::paragraphStyle(target).toStdString();
  std::vector<TextRun> tail = TB::runs(target, offset, target.length() - 1);
  // `open` is the paragraph the next pasted text joins: first the target's
  // start, later the last pasted paragraph.
  Block open = paragraphBlock(TB::blockID(target).value_or(Uuid::random()), style,
                              TB::runs(target, 0, offset));
  bool openIsTarget = true;
  std::vector<Block> result;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Block& block = blocks[i];
    auto& openRuns = std::get<Paragraph>(open.kind).runs;
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      if (i == 0) {
        // Pasted at the start of a paragraph, the first one keeps its style.
        if (offset == 0) std::get<Paragraph>(open.kind).styleName = paragraph->styleName;
        appendRuns(openRuns, paragraph->runs);
      } else {
        result.push_back(std::move(open));
        open = block;
        openIsTarget = false;
      }
    } else if (i == 0 && offset == 0) {
      result.push_back(block);
    } else {
      result.push_back(std::move(open));
      result.push_back(block);
      open = paragraphBlock(Uuid::random(), style, {});
      openIsTarget = false;
    }
  }
  auto& openParagraph = std::get<Paragraph>(open.kind);
  const int caretBlock = static_cast<int>(result.size());
  const auto caretOffset = static_cast<int>(textLength(openParagraph.runs));
  // The target's own remaining text keeps the target's style.
  if (!tail.empty() && !openIsTarget) openParagraph.styleName = style;
  appendRuns(openParagraph.runs, std::move(tail));
  result.push_back(std::move(open));
  TB::replaceBlocks(cursor, number, 1, result);
  return document()->findBlockByNumber(number + caretBlock).position() + caretOffset;
}

void StoryEditor::paste(const std::vector<Block>& blocks) {
  if (blocks.empty() || isReadOnly()) return;
  QTextCursor cursor = textCursor();
  cursor.beginEditBlock();
  if (cursor.hasSelection()) {
    const int at = touchesAtomic(cursor) ? removeSelection(cursor) : -1;
    if (at >= 0) {
      cursor.setPosition(at);
    } else {
      cursor.removeSelectedText();
    }
  }
  if (TB::isAtomic(cursor.block())) cursor.setPosition(openParagraphBeside(cursor));
  const int caret = insertBlocks(cursor, blocks);
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
  if (!(backward ? atStart : atEnd) || !neighbour.isValid() || !TB::isAtomic(neighbour)) return false;
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
  QTextCharFormat format = textCursor().charFormat();
  // Text typed at a footnote mark is ordinary text.
  if (format.hasProperty(TB::kFootnoteProperty)) {
    format.clearProperty(TB::kFootnoteProperty);
    format.clearProperty(TB::kScriptProperty);
    format.setVerticalAlignment(QTextCharFormat::AlignNormal);
  }
  if (isObject(format) || format.isImageFormat()) return QTextCharFormat();
  return format;
}

void StoryEditor::cleanTypingFormat() {
  QTextCursor cursor = textCursor();
  const QTextCharFormat current = cursor.charFormat();
  if (!current.hasProperty(TB::kFootnoteProperty) && !isObject(current)) return;
  cursor.setCharFormat(typingFormat());
  setTextCursor(cursor);
}

// --- Events ----------------------------------------------------------------------

void StoryEditor::keyPressEvent(QKeyEvent* event) {
  if (isReadOnly()) {
    QTextEdit::keyPressEvent(event);
    return;
  }
  QTextCursor cursor = textCursor();
  const int key = event->key();
  const bool plain = !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier));
  const bool erase = plain && (key == Qt::Key_Backspace || key == Qt::Key_Delete);
  if (erase || event == QKeySequence::Cut) {
    if (cursor.hasSelection() && touchesAtomic(cursor)) {
      if (event == QKeySequence::Cut) copy();
      cursor.beginEditBlock();
      const int caret = removeSelection(cursor);
      cursor.endEditBlock();
      cursor.setPosition(caret);
      setTextCursor(cursor);
      return;
    }
    if (erase && !cursor.hasSelection() && deleteNextToAtomic(key == Qt::Key_Backspace)) return;
    QTextEdit::keyPressEvent(event);
    return;
  }
  const bool enter = key == Qt::Key_Return || key == Qt::Key_Enter;
  const QString text = event->text();
  const bool typing = plain && !text.isEmpty() && (text.front().isPrint() || text == QLatin1String("\t"));
  if (!enter && !typing) {
    QTextEdit::keyPressEvent(event);
    return;
  }
  const bool atomicSelection = cursor.hasSelection() && touchesAtomic(cursor);
  if (!atomicSelection && !TB::isAtomic(cursor.block())) {
    if (typing) cleanTypingFormat();
    QTextEdit::keyPressEvent(event);
    return;
  }
  // At a table or picture the text goes into a paragraph beside it, all in
  // one undo step with the key's own edit.
  cursor.beginEditBlock();
  if (atomicSelection) cursor.setPosition(removeSelection(cursor));
  const bool needsParagraph = TB::isAtomic(cursor.block());
  if (needsParagraph) cursor.setPosition(openParagraphBeside(cursor));
  setTextCursor(cursor);
  if (typing) {
    cleanTypingFormat();
    QTextEdit::keyPressEvent(event);
  } else if (!needsParagraph) {
    QTextEdit::keyPressEvent(event);
  }
  cursor.endEditBlock();
}

void StoryEditor::inputMethodEvent(QInputMethodEvent* event) {
  if (isReadOnly() || event->commitString().isEmpty()) {
    QTextEdit::inputMethodEvent(event);
    return;
  }
  QTextCursor cursor = textCursor();
  cursor.beginEditBlock();
  if (cursor.hasSelection() && touchesAtomic(cursor)) cursor.setPosition(removeSelection(cursor));
  if (TB::isAtomic(cursor.block())) cursor.setPosition(openParagraphBeside(cursor));
  setTextCursor(cursor);
  cleanTypingFormat();
  QTextEdit::inputMethodEvent(event);
  cursor.endEditBlock();
}

void StoryEditor::mouseDoubleClickEvent(QMouseEvent* event) {
  const QPointF point = event->position() + QPointF(horizontalScrollBar()->value(), verticalScrollBar()->value());
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
  return source && PasteFilter::canRead(*source);
}

void StoryEditor::insertFromMimeData(const QMimeData* source) {
  if (source) paste(PasteFilter::read(*source));
}

QMimeData* StoryEditor::createMimeDataFromSelection() const {
  const QTextCursor cursor = textCursor();
  const QTextDocument* document = this->document();
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  std::vector<Block> blocks;
  const QTextBlock last = document->findBlock(end);
  for (QTextBlock block = document->findBlock(start); block.isValid(); block = block.next()) {
    const int from = std::max(start - block.position(), 0);
    const int to = std::min(end - block.position(), block.length() - 1);
    if (TB::isAtomic(block)) {
      if (from == 0 && to == 1) blocks.push_back(TB::readBlock(block));
    } else {
      blocks.push_back(paragraphBlock(Uuid::random(), TB::paragraphStyle(block).toStdString(),
                                      TB::runs(block, from, to)));
    }
    if (block == last) break;
  }
  return PasteFilter::mimeData(std::move(blocks));
}

void StoryEditor::pastePlainText() {
  const QMimeData* data = QGuiApplication::clipboard()->mimeData();
  if (!data || !data->hasText()) return;
  TextRun format = TB::runFormat(typingFormat());
  format.footnoteID.reset();
  const QString style = TB::isAtomic(textCursor().block()) ? QStringLiteral("Body") : paragraphStyle();
  paste(PasteFilter::fromPlainText(data->text(), style.toStdString(), format));
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
  const int start = cursor.selectionStart();
  const int end = cursor.selectionEnd();
  cursor.beginEditBlock();
  const QTextBlock last = document()->findBlock(end);
  for (QTextBlock block = document()->findBlock(start); block.isValid(); block = block.next()) {
    if (!TB::isAtomic(block)) {
      QTextCursor range(document());
      range.setPosition(std::max(start, block.position()));
      range.setPosition(std::min(end, block.position() + block.length() - 1), QTextCursor::KeepAnchor);
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
    case F::bold: return run.bold;
    case F::italic: return run.italic;
    case F::underline: return run.underline;
    case F::strikethrough: return run.strikethrough;
    case F::smallCaps: return run.smallCaps;
    case F::superscript: return run.script == ScriptPosition::superscript;
    case F::subscript: return run.script == ScriptPosition::subscript;
  }
  return false;
}

void StoryEditor::setParagraphStyle(const QString& styleName) {
  if (isReadOnly()) return;
  QTextCursor cursor = textCursor();
  const QTextBlock last = document()->findBlock(cursor.selectionEnd());
  cursor.beginEditBlock();
  QTextCursor change(document());
  for (QTextBlock block = document()->findBlock(cursor.selectionStart()); block.isValid();
       block = block.next()) {
    if (!TB::isAtomic(block) && TB::paragraphStyle(block) != styleName) {
      change.setPosition(block.position());
      change.setBlockFormat(TB::paragraphFormat(styleName, TB::blockID(block).value_or(Uuid::random())));
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

void StoryEditor::highlight(const QString& text, bool caseSensitive) {
  highlightText_ = text;
  highlightCase_ = caseSensitive;
  highlightTimer_.stop();
  refreshHighlights();
}

void StoryEditor::refreshHighlights() {
  highlightCount_ = 0;
  if (!highlightText_.isEmpty()) {
    const Qt::CaseSensitivity sensitivity = highlightCase_ ? Qt::CaseSensitive : Qt::CaseInsensitive;
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
  const int bottom = cursorForPosition(QPoint(viewport()->width(), viewport()->height())).blockNumber();
  QTextBlock block = document()->findBlockByNumber(std::max(0, top - kMarkMargin));
  const int last = bottom + kMarkMargin;
  for (; block.isValid() && block.blockNumber() <= last && marks.size() < kMaxMarks; block = block.next()) {
    const QString text = block.text();
    for (qsizetype at = text.indexOf(highlightText_, 0, sensitivity); at >= 0 && marks.size() < kMaxMarks;
         at = text.indexOf(highlightText_, at + highlightText_.size(), sensitivity)) {
      QTextCursor hit(document());
      hit.setPosition(block.position() + static_cast<int>(at));
      hit.setPosition(block.position() + static_cast<int>(at + highlightText_.size()), QTextCursor::KeepAnchor);
      marks.append({hit, mark});
    }
  }
  setExtraSelections(marks);
}

qint64 StoryEditor::wordCount() const { return *words_; }

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
      words += wordsIn(block, from, to);
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
