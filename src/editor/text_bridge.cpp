#include "editor/text_bridge.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>

#include <array>

#include "editor/block_images.h"
#include "model/style_sheet.h"

namespace inkharbour::TextBridge {

namespace {

constexpr double kBodySize = 13;
constexpr double kQuoteIndent = 36;
constexpr double kParagraphSpacing = 6;
constexpr double kHeadingSpacing = 12;

// Characters a QTextDocument would turn into block or frame boundaries, or
// take for an embedded object, are shown as a line break or a replacement
// character instead; a block holding them reads back as loaded while it is
// not edited.
QString displayText(std::string_view utf8) {
  QString text = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
  for (QChar& c : text) {
    const char16_t u = c.unicode();
    if (u == u'\n' || u == u'\r' || u == QChar::ParagraphSeparator) {
      c = QChar::LineSeparator;
    } else if (u == QChar::ObjectReplacementCharacter || u == 0xFDD0 || u == 0xFDD1) {
      c = QChar::ReplacementCharacter;
    }
  }
  return text;
}

bool sameRunFormat(const TextRun& a, const TextRun& b) {
  return a.sameFormat(b) && a.footnoteID == b.footnoteID;
}

// The runs as the document shows them: display text, no empty runs, and
// neighbours of the same format and footnote joined.
std::vector<TextRun> displayRuns(const std::vector<TextRun>& runs) {
  std::vector<TextRun> shown;
  for (const auto& run : runs) {
    std::string text = displayText(run.text).toStdString();
    if (text.empty()) continue;
    if (!shown.empty() && sameRunFormat(shown.back(), run)) {
      shown.back().text += text;
      continue;
    }
    TextRun copy = run;
    copy.text = std::move(text);
    shown.push_back(std::move(copy));
  }
  return shown;
}

// True when `candidate` is what a block with this id and content shows.
bool shows(const Block& candidate, const std::optional<Uuid>& id, const Paragraph& content) {
  if (!id || candidate.id != *id) return false;
  const auto* paragraph = std::get_if<Paragraph>(&candidate.kind);
  if (!paragraph || paragraph->styleName != content.styleName) return false;
  return paragraph->runs == content.runs || displayRuns(paragraph->runs) == content.runs;
}

// The object a table or picture block shows; null for any other block.
std::shared_ptr<const Block> atomicObject(const QTextBlock& block) {
  if (block.length() != 2) return nullptr;
  const auto it = block.begin();
  if (it.atEnd()) return nullptr;
  const QTextFragment fragment = it.fragment();
  if (fragment.length() != 1 || fragment.text() != QString(QChar::ObjectReplacementCharacter)) {
    return nullptr;
  }
  return objectOf(fragment.charFormat());
}

// Appends the fragment's characters [from, to) of the block to `runs`.
void appendRuns(std::vector<TextRun>& runs, const QTextFragment& fragment, int from, int to) {
  const QTextCharFormat format = fragment.charFormat();
  QString text = fragment.text().mid(from, to - from);
  if (format.isImageFormat() || format.hasProperty(kBlockObjectProperty)) {
    // A stray object belongs to no run; the editor never leaves one here.
    text.remove(QChar::ObjectReplacementCharacter);
  }
  if (text.isEmpty()) return;
  TextRun run = runFormat(format);
  if (!runs.empty() && sameRunFormat(runs.back(), run)) {
    runs.back().text += text.toStdString();
    return;
  }
  run.text = text.toStdString();
  runs.push_back(std::move(run));
}

Paragraph paragraphFromFragments(const QTextBlock& block) {
  Paragraph paragraph{.styleName = paragraphStyle(block).toStdString(), .runs = {}};
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    appendRuns(paragraph.runs, fragment, 0, fragment.length());
  }
  return paragraph;
}

// A few recent run formats and their character formats: a book has few
// distinct ones, and building a QTextCharFormat costs several allocations.
class FormatCache {
 public:
  const QTextCharFormat& operator[](const TextRun& run) {
    for (auto& entry : entries_) {
      if (sameRunFormat(entry.first, run)) return entry.second;
    }
    TextRun key = run;
    key.text.clear();
    auto& slot = entries_[next_];
    next_ = (next_ + 1) % entries_.size();
    slot = {std::move(key), charFormat(run)};
    return slot.second;
  }

 private:
  std::array<std::pair<TextRun, QTextCharFormat>, 16> entries_{};
  std::size_t next_ = 0;
};

QTextBlockFormat blockFormatOf(const Block& block) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
    return paragraphFormat(QString::fromStdString(paragraph->styleName), block.id);
  }
  return atomicFormat(block.id);
}

void writeContent(QTextCursor& cursor, const std::shared_ptr<const Block>& block,
                  FormatCache& formats, BlockImages::Registered& registered) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block->kind)) {
    for (const auto& run : paragraph->runs) {
      if (!run.text.empty()) cursor.insertText(displayText(run.text), formats[run]);
    }
  } else {
    cursor.insertText(QString(QChar::ObjectReplacementCharacter),
                      BlockImages::objectFormat(*cursor.document(), block, registered));
  }
}

}  // namespace

QString propertyName(int property) {
  switch (property) {
    case kParagraphStyleProperty:
      return QStringLiteral("inkharbour.paragraphStyle");
    case kBlockIDProperty:
      return QStringLiteral("inkharbour.blockID");
    case kFootnoteProperty:
      return QStringLiteral("inkharbour.footnote");
    case kScriptProperty:
      return QStringLiteral("inkharbour.script");
    case kSmallCapsProperty:
      return QStringLiteral("inkharbour.smallCaps");
    case kColorProperty:
      return QStringLiteral("inkharbour.color");
    case kBlockObjectProperty:
      return QStringLiteral("inkharbour.blockObject");
    default:
      return {};
  }
}

// --- BlockMemo ------------------------------------------------------------------

BlockMemo::BlockMemo(std::shared_ptr<const Block> original) : original(std::move(original)) {}

BlockMemo::~BlockMemo() {
  if (tally_ && words_ > 0) *tally_ -= words_;
}

void BlockMemo::setWords(qint64 words, std::shared_ptr<qint64> tally) {
  if (tally_ && words_ > 0) *tally_ -= words_;
  tally_ = std::move(tally);
  words_ = words;
  if (tally_ && words_ > 0) *tally_ += words_;
}

// --- Formats ----------------------------------------------------------------------

QTextBlockFormat paragraphFormat(const QString& style, const Uuid& id) {
  QTextBlockFormat format;
  format.setProperty(kParagraphStyleProperty, style);
  format.setProperty(kBlockIDProperty, QString::fromStdString(id.string()));
  format.setBottomMargin(kParagraphSpacing);
  if (style == QLatin1String("Quote")) {
    format.setLeftMargin(kQuoteIndent);
    format.setRightMargin(kQuoteIndent);
  } else if (StyleSheet::fontSize(style.toStdString()) > kBodySize) {
    format.setTopMargin(kHeadingSpacing);
  }
  return format;
}

QTextBlockFormat atomicFormat(const Uuid& id) {
  QTextBlockFormat format;
  format.setProperty(kBlockIDProperty, QString::fromStdString(id.string()));
  format.setBottomMargin(kParagraphSpacing);
  return format;
}

std::shared_ptr<const Block> objectOf(const QTextCharFormat& format) {
  const QVariant value = format.property(kBlockObjectProperty);
  if (!value.isValid()) return nullptr;
  return value.value<std::shared_ptr<const Block>>();
}

QTextCharFormat charFormat(const TextRun& run) {
  QTextCharFormat format;
  if (run.bold) format.setFontWeight(QFont::Bold);
  if (run.italic) format.setFontItalic(true);
  if (run.underline) format.setFontUnderline(true);
  if (run.strikethrough) format.setFontStrikeOut(true);
  if (run.smallCaps) {
    format.setFontCapitalization(QFont::SmallCaps);
    format.setProperty(kSmallCapsProperty, true);
  }
  if (run.script != ScriptPosition::normal) {
    format.setVerticalAlignment(run.script == ScriptPosition::superscript
                                    ? QTextCharFormat::AlignSuperScript
                                    : QTextCharFormat::AlignSubScript);
    format.setProperty(kScriptProperty, static_cast<int>(run.script));
  }
  if (run.colorHex) {
    const QString hex = QString::fromStdString(*run.colorHex);
    format.setProperty(kColorProperty, hex);
    const QColor color(QLatin1Char('#') + hex);
    if (hex.size() == 6 && color.isValid()) format.setForeground(color);
  }
  if (run.footnoteID) {
    // An int where it fits: the document hashes ints by value, other types
    // by name only.
    const std::int64_t id = *run.footnoteID;
    format.setProperty(kFootnoteProperty, id == static_cast<int>(id)
                                              ? QVariant(static_cast<int>(id))
                                              : QVariant(static_cast<qlonglong>(id)));
  }
  return format;
}

TextRun runFormat(const QTextCharFormat& format) {
  TextRun run;
  run.bold = format.fontWeight() >= QFont::DemiBold;
  run.italic = format.fontItalic();
  run.underline = format.fontUnderline();
  run.strikethrough = format.fontStrikeOut();
  run.smallCaps = format.hasProperty(kSmallCapsProperty)
                      ? format.boolProperty(kSmallCapsProperty)
                      : format.fontCapitalization() == QFont::SmallCaps;
  if (format.hasProperty(kScriptProperty)) {
    const int script = format.intProperty(kScriptProperty);
    if (script >= 0 && script <= 2) run.script = static_cast<ScriptPosition>(script);
  } else if (format.verticalAlignment() == QTextCharFormat::AlignSuperScript) {
    run.script = ScriptPosition::superscript;
  } else if (format.verticalAlignment() == QTextCharFormat::AlignSubScript) {
    run.script = ScriptPosition::subscript;
  }
  if (format.hasProperty(kColorProperty)) {
    run.colorHex = format.stringProperty(kColorProperty).toStdString();
  } else if (format.hasProperty(QTextFormat::ForegroundBrush) &&
             format.foreground().style() != Qt::NoBrush) {
    run.colorHex = format.foreground().color().name().mid(1).toUpper().toStdString();
  }
  if (format.hasProperty(kFootnoteProperty)) {
    run.footnoteID = format.property(kFootnoteProperty).toLongLong();
  }
  return run;
}

// --- Reading ----------------------------------------------------------------------

std::optional<Uuid> blockID(const QTextBlock& block) {
  const QVariant value = block.blockFormat().property(kBlockIDProperty);
  if (!value.isValid()) return std::nullopt;
  return Uuid::parse(value.toString().toStdString());
}

QString paragraphStyle(const QTextBlock& block) {
  const QVariant value = block.blockFormat().property(kParagraphStyleProperty);
  return value.isValid() ? value.toString() : QStringLiteral("Body");
}

bool isAtomic(const QTextBlock& block) {
  return atomicObject(block) != nullptr;
}

bool isEmptyStory(const QTextDocument& document) {
  const QTextBlock first = document.firstBlock();
  return document.blockCount() == 1 && first.length() == 1 && !blockID(first);
}

std::shared_ptr<const Block> readShared(const QTextBlock& block) {
  const auto id = blockID(block);
  if (auto object = atomicObject(block)) {
    if (id && object->id == *id) return object;
    return std::make_shared<const Block>(
        Block{.id = id.value_or(Uuid::random()), .kind = object->kind});
  }
  Paragraph content = paragraphFromFragments(block);
  if (const auto* memo = dynamic_cast<const BlockMemo*>(block.userData())) {
    for (const auto& candidate : {memo->original, memo->last}) {
      if (candidate && shows(*candidate, id, content)) return candidate;
    }
  }
  return std::make_shared<const Block>(
      Block{.id = id.value_or(Uuid::random()), .kind = std::move(content)});
}

Block readBlock(const QTextBlock& block) {
  return *readShared(block);
}

std::vector<TextRun> runs(const QTextBlock& block, int from, int to) {
  std::vector<TextRun> result;
  for (auto it = block.begin(); !it.atEnd(); ++it) {
    const QTextFragment fragment = it.fragment();
    const int start = fragment.position() - block.position();
    const int begin = std::max(from, start);
    const int end = std::min(to, start + fragment.length());
    if (begin < end) appendRuns(result, fragment, begin - start, end - start);
  }
  return result;
}

std::vector<Block> read(const QTextDocument& document) {
  std::vector<Block> blocks;
  if (isEmptyStory(document)) return blocks;
  blocks.reserve(static_cast<std::size_t>(document.blockCount()));
  for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next()) {
    blocks.push_back(readBlock(block));
  }
  return blocks;
}

// --- Writing ----------------------------------------------------------------------

int writeBlocks(QTextCursor& cursor, const std::vector<Block>& blocks) {
  FormatCache formats;
  BlockImages::Registered registered;
  bool first = true;
  for (const auto& block : blocks) {
    auto shared = std::make_shared<const Block>(block);
    if (first) {
      cursor.setBlockFormat(blockFormatOf(block));
      cursor.setBlockCharFormat(QTextCharFormat());
      first = false;
    } else {
      cursor.insertBlock(blockFormatOf(block), QTextCharFormat());
    }
    writeContent(cursor, shared, formats, registered);
    cursor.block().setUserData(new BlockMemo(std::move(shared)));
  }
  return cursor.position();
}

int replaceBlocks(QTextCursor& cursor, int first, int count, const std::vector<Block>& blocks) {
  QTextDocument& document = *cursor.document();
  const QTextBlock begin = document.findBlockByNumber(first);
  const QTextBlock last = document.findBlockByNumber(first + count - 1);
  const int end = last.position() + last.length() - 1;
  if (!blocks.empty()) {
    cursor.setPosition(begin.position());
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    return writeBlocks(cursor, blocks);
  }
  // Removing a separator joins the block after it into the one before, which
  // keeps its own format: so the range goes with the separator before it.
  if (const QTextBlock before = begin.previous(); before.isValid()) {
    cursor.setPosition(before.position() + before.length() - 1);
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    return cursor.position() + 1;
  }
  const QTextBlock after = last.next();
  cursor.setPosition(0);
  cursor.setPosition(after.isValid() ? after.position() : end, QTextCursor::KeepAnchor);
  if (!after.isValid()) {
    cursor.removeSelectedText();
    cursor.setBlockFormat(QTextBlockFormat());
    cursor.setBlockCharFormat(QTextCharFormat());
    cursor.block().setUserData(nullptr);
    return 0;
  }
  // At the very start the block after the range takes the first one's place.
  const QTextBlockFormat format = after.blockFormat();
  const QTextCharFormat charFormat = after.charFormat();
  const auto* memo = dynamic_cast<const BlockMemo*>(after.userData());
  auto moved = memo ? std::make_unique<BlockMemo>(memo->original) : nullptr;
  if (moved) moved->last = memo->last;
  cursor.removeSelectedText();
  cursor.setBlockFormat(format);
  cursor.setBlockCharFormat(charFormat);
  cursor.block().setUserData(moved.release());
  return 0;
}

void load(QTextDocument& document, const std::vector<Block>& blocks) {
  document.setUndoRedoEnabled(false);
  document.setLayoutEnabled(false);
  document.clear();
  QFont font = document.defaultFont();
  font.setPointSizeF(kBodySize);
  document.setDefaultFont(font);
  QTextCursor cursor(&document);
  // One edit block: a cursor outside one measures its position after every
  // insertion, which costs a text layout each time.
  cursor.beginEditBlock();
  writeBlocks(cursor, blocks);
  for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next()) {
    decorate(block, false);
  }
  cursor.endEditBlock();
  document.setLayoutEnabled(true);
  document.setUndoRedoEnabled(true);
  document.setModified(false);
}

// --- Display ----------------------------------------------------------------------

void decorate(const QTextBlock& block, bool reconsider) {
  const QVariant style = block.blockFormat().property(kParagraphStyleProperty);
  const bool quote = style.isValid() && style.toString() == QLatin1String("Quote");
  const double size =
      style.isValid() ? StyleSheet::fontSize(style.toString().toStdString()) : kBodySize;
  QList<QTextLayout::FormatRange> ranges;
  if (quote) {
    for (auto it = block.begin(); !it.atEnd(); ++it) {
      const QTextFragment fragment = it.fragment();
      QTextCharFormat shown;
      shown.setFontItalic(!fragment.charFormat().fontItalic());
      if (size != kBodySize) shown.setFontPointSize(size);
      ranges.append({fragment.position() - block.position(), fragment.length(), shown});
    }
  } else if (size != kBodySize && block.length() > 1) {
    QTextCharFormat shown;
    shown.setFontPointSize(size);
    ranges.append({0, block.length() - 1, shown});
  }
  // Fresh blocks have no display formats to take away.
  if (ranges.isEmpty() && !reconsider) return;
  QTextLayout* layout = block.layout();
  if (!layout || layout->formats() == ranges) return;
  // setFormats marks the block changed without telling anyone; handing the
  // change to the layout now keeps it out of the next edit's contentsChange.
  layout->setFormats(ranges);
  const_cast<QTextDocument*>(block.document())->markContentsDirty(block.position(), block.length());
}

}  // namespace inkharbour::TextBridge
