#include "editor/document_edits.h"

#include <QRegularExpression>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>

#include "editor/text_bridge.h"

namespace inkharbour::DocumentEdits {

namespace {

namespace TB = TextBridge;

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
    if (TB::objectOf(it.fragment().charFormat())) return true;
  }
  return false;
}

}  // namespace

void claimEmptyStory(QTextCursor& cursor) {
  if (!TB::isEmptyStory(*cursor.document())) return;
  cursor.setPosition(0);
  cursor.setBlockFormat(TB::paragraphFormat(QStringLiteral("Body"), Uuid::random()));
}

bool touchesAtomic(const QTextCursor& cursor) {
  const QTextDocument* document = cursor.document();
  return TB::isAtomic(document->findBlock(cursor.selectionStart())) ||
         TB::isAtomic(document->findBlock(cursor.selectionEnd()));
}

int removeSelection(QTextCursor& cursor) {
  QTextDocument* document = cursor.document();
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
  const QTextBlock caret =
      document->findBlockByNumber(std::min(firstNumber + caretBlock, document->blockCount() - 1));
  return caret.position() + std::min(caretOffset, caret.length() - 1);
}

int replaceObjectByParagraph(QTextCursor& cursor) {
  const QTextBlock block = cursor.document()->findBlock(cursor.selectionStart());
  if (!TB::isAtomic(block) || cursor.selectionStart() != block.position() ||
      cursor.selectionEnd() != block.position() + 1) {
    return -1;
  }
  return TB::replaceBlocks(cursor, block.blockNumber(), 1,
                           {paragraphBlock(Uuid::random(), "Body", {})});
}

int openParagraphBeside(QTextCursor& cursor) {
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
  cursor.document()->firstBlock().setUserData(nullptr);
  return 0;
}

int insertBlocks(QTextCursor& cursor, const std::vector<Block>& blocks) {
  const QTextBlock target = cursor.block();
  const int number = target.blockNumber();
  const int offset = cursor.positionInBlock();
  const std::string style = TB::paragraphStyle(target).toStdString();
  std::vector<TextRun> tail = TB::runs(target, offset, target.length() - 1);
  // `open` is the paragraph that pasted text joins: first the target up to
  // the caret, later the last pasted paragraph; none right after a table or
  // picture.
  std::optional<Block> open = paragraphBlock(TB::blockID(target).value_or(Uuid::random()), style,
                                             TB::runs(target, 0, offset));
  bool openIsTarget = true;
  std::vector<Block> result;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Block& block = blocks[i];
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind); paragraph && i == 0) {
      // Pasted at the start of a paragraph, the first one keeps its style.
      auto& target = std::get<Paragraph>(open->kind);
      if (offset == 0) target.styleName = paragraph->styleName;
      appendRuns(target.runs, paragraph->runs);
    } else if (paragraph) {
      if (open) result.push_back(std::move(*open));
      open = block;
      openIsTarget = false;
    } else if (i == 0 && offset == 0) {
      result.push_back(block);  // in front of the target, which stays open
    } else {
      if (open) result.push_back(std::move(*open));
      result.push_back(block);
      open.reset();
      openIsTarget = false;
    }
  }
  if (!open && tail.empty()) {
    // The paste ends with a table or picture: the caret goes after it.
    TB::replaceBlocks(cursor, number, 1, result);
    const QTextBlock last =
        cursor.document()->findBlockByNumber(number + static_cast<int>(result.size()) - 1);
    return last.position() + last.length() - 1;
  }
  if (!open) open = paragraphBlock(Uuid::random(), style, {});
  auto& openParagraph = std::get<Paragraph>(open->kind);
  const int caretBlock = static_cast<int>(result.size());
  const auto caretOffset = static_cast<int>(textLength(openParagraph.runs));
  // The target's own remaining text keeps the target's style.
  if (!tail.empty() && !openIsTarget) openParagraph.styleName = style;
  appendRuns(openParagraph.runs, std::move(tail));
  result.push_back(std::move(*open));
  TB::replaceBlocks(cursor, number, 1, result);
  return cursor.document()->findBlockByNumber(number + caretBlock).position() + caretOffset;
}

bool isPlainText(const QTextBlock& block, int from, int to) {
  if (from < 0 || to > block.length() - 1 || from >= to || TB::isAtomic(block)) return false;
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    const int start = fragment.position() - block.position();
    if (start >= to) break;
    if (start + fragment.length() > from &&
        fragment.charFormat().hasProperty(TB::kFootnoteProperty)) {
      return false;
    }
  }
  return true;
}

std::vector<std::pair<int, int>> hits(const QTextBlock& block, const QString& text,
                                      Qt::CaseSensitivity sensitivity) {
  std::vector<std::pair<int, int>> found;
  if (text.isEmpty() || TB::isAtomic(block)) return found;
  const QString content = block.text();
  const auto length = static_cast<int>(text.size());
  for (auto at = content.indexOf(text, 0, sensitivity); at >= 0;
       at = content.indexOf(text, at + length, sensitivity)) {
    const auto start = static_cast<int>(at);
    if (isPlainText(block, start, start + length)) found.emplace_back(start, start + length);
  }
  return found;
}

int replaceText(QTextCursor& cursor, int from, int to, const QString& replacement) {
  static const QRegularExpression lineEnd(QStringLiteral("\r\n|[\n\r\u2029]"));
  cursor.setPosition(from + 1);
  QTextCharFormat format = cursor.charFormat();
  if (format.hasProperty(TB::kFootnoteProperty)) {
    format.clearProperty(TB::kFootnoteProperty);
    format.clearProperty(TB::kScriptProperty);
    format.setVerticalAlignment(QTextCharFormat::AlignNormal);
  }
  QString text = replacement;
  text.replace(lineEnd, QString(QChar::LineSeparator));
  text.remove(QChar::ObjectReplacementCharacter);  // objects come only as blocks
  cursor.setPosition(from);
  cursor.setPosition(to, QTextCursor::KeepAnchor);
  if (text.isEmpty()) {
    cursor.removeSelectedText();
  } else {
    cursor.insertText(text, format);
  }
  return cursor.position();
}

std::vector<Block> selectedBlocks(const QTextCursor& selection) {
  const QTextDocument* document = selection.document();
  const int start = selection.selectionStart();
  const int end = selection.selectionEnd();
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
  return blocks;
}

void mend(QTextDocument& document, int first, int last) {
  if (TB::isEmptyStory(document)) return;
  QTextCursor cursor(&document);
  bool open = false;
  const auto edit = [&] {
    if (!open) cursor.beginEditBlock();
    open = true;
  };
  int lo = std::max(0, first - 1);
  int hi = std::min(document.blockCount() - 1, last + 1);
  // Tables and pictures alone in their blocks; no block left without a style.
  for (int i = lo; i <= hi && i < document.blockCount(); ++i) {
    const QTextBlock block = document.findBlockByNumber(i);
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
      if (block.length() == 1 && document.blockCount() > 1) {
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
  for (int i = lo; i <= hi && i < document.blockCount(); ++i) {
    const QTextBlock block = document.findBlockByNumber(i);
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

qint64 countWords(const QTextBlock& block, int from, int to) {
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
    if (format.hasProperty(TB::kFootnoteProperty) || TB::objectOf(format) ||
        format.isImageFormat()) {
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

}  // namespace inkharbour::DocumentEdits
