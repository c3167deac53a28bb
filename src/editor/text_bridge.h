// TextBridge: a story's blocks shown as a QTextDocument, and read back.
//
// One QTextBlock per model block, always: block number i is model block i.
// A paragraph's block format carries its style name and id; its text is the
// runs' text with character formats for the run flags. A table or picture is
// one image character alone in its block; the character's format keeps the
// model Block itself, so it comes back exactly. An empty story is one empty
// block without id.
//
// What a QTextDocument cannot hold (an empty run, two adjacent runs of the
// same format, text that is no valid UTF-8) is kept by remembering each
// block's model value in a BlockMemo: a block whose content still is what
// its memo describes reads back as that value, byte for byte. So
// read(load(blocks)) == blocks, and only edited blocks are rebuilt from
// their fragments (adjacent fragments of the same format and footnote make
// one run).
#pragma once

#include <QString>
#include <QTextBlockUserData>
#include <QTextCharFormat>
#include <QTextFormat>

#include <memory>
#include <optional>
#include <vector>

#include "model/story.h"

class QTextBlock;
class QTextCursor;
class QTextDocument;

namespace inkharbour::TextBridge {

// --- Format properties --------------------------------------------------------

// Block format: the paragraph style name (QString).
inline constexpr int kParagraphStyleProperty = QTextFormat::UserProperty + 1;
// Block format: the block's id, upper-case UUID text (QString).
inline constexpr int kBlockIDProperty = QTextFormat::UserProperty + 2;
// Character format: the footnote number a reference mark cites (integer).
inline constexpr int kFootnoteProperty = QTextFormat::UserProperty + 3;
// Character format: the ScriptPosition as an integer.
inline constexpr int kScriptProperty = QTextFormat::UserProperty + 4;
// Character format: small capitals (bool).
inline constexpr int kSmallCapsProperty = QTextFormat::UserProperty + 5;
// Character format: the run's colour text exactly as the model holds it.
inline constexpr int kColorProperty = QTextFormat::UserProperty + 6;
// Character format of a table's or picture's image character: the model
// Block it shows (std::shared_ptr<const Block>).
inline constexpr int kBlockObjectProperty = QTextFormat::UserProperty + 7;

// The property's name ("inkharbour.paragraphStyle", "inkharbour.blockID",
// "inkharbour.footnote", "inkharbour.script", "inkharbour.smallCaps",
// "inkharbour.color", "inkharbour.blockObject"); empty for any other id.
QString propertyName(int property);

// --- What a block remembers -----------------------------------------------------

// The user data of a block: the model values it stood for, and its word
// count. `original` is what was loaded or inserted; `last` is free for the
// owner of the document (the editor keeps what it last reported there).
// Either is returned by a read as long as the block's content matches it.
class BlockMemo final : public QTextBlockUserData {
 public:
  explicit BlockMemo(std::shared_ptr<const Block> original = nullptr);
  ~BlockMemo() override;
  BlockMemo(const BlockMemo&) = delete;
  BlockMemo& operator=(const BlockMemo&) = delete;

  std::shared_ptr<const Block> original;
  std::shared_ptr<const Block> last;

  // The cached word count; -1 before the first count.
  qint64 words() const { return words_; }
  // Caches the count and adds it to `tally`, which it is taken off again
  // when the memo goes (or counts anew): a tally is the sum over a
  // document's living blocks.
  void setWords(qint64 words, std::shared_ptr<qint64> tally);

 private:
  qint64 words_ = -1;
  std::shared_ptr<qint64> tally_;
};

// --- The whole document -------------------------------------------------------

// Replaces the document's content with the blocks, silently: undo and layout
// are off while it is built, then on again with an empty undo stack. Each
// block gets a BlockMemo with its value (and no word count). Pictures and
// table previews are registered as image resources of the document.
void load(QTextDocument& document, const std::vector<Block>& blocks);

// The model value of one block (see the header comment). A table or picture
// block comes back as loaded, under the id in the block format. A block
// without a valid id gets a fresh one on every read.
Block readBlock(const QTextBlock& block);

// As readBlock, sharing the remembered value instead of copying it.
std::shared_ptr<const Block> readShared(const QTextBlock& block);

// The runs of the block's characters [from, to) (offsets within the block),
// rebuilt from its fragments; image characters are left out.
std::vector<TextRun> runs(const QTextBlock& block, int from, int to);

// All blocks in order; an empty list for the empty story (a single empty
// block without id).
std::vector<Block> read(const QTextDocument& document);

// --- Pieces the editor builds with -----------------------------------------------

// The block's id; none when the block format holds no valid one.
std::optional<Uuid> blockID(const QTextBlock& block);
// The style name of a paragraph block; "Body" when the format names none.
QString paragraphStyle(const QTextBlock& block);
// True when the block is a table or picture (its one image character).
bool isAtomic(const QTextBlock& block);
// True for the empty story: one empty block without id.
bool isEmptyStory(const QTextDocument& document);

// The block format of a paragraph of `style` with `id`, as load makes it
// (margins set Quote apart).
QTextBlockFormat paragraphFormat(const QString& style, const Uuid& id);
// The block format of a table or picture block with `id`.
QTextBlockFormat atomicFormat(const Uuid& id);
// The table or picture block an image character's format stands for; null
// for any other format.
std::shared_ptr<const Block> objectOf(const QTextCharFormat& format);
// The character format load gives a run (its text takes no part).
QTextCharFormat charFormat(const TextRun& run);
// The run flags, colour and footnote a character format stands for, with
// empty text. Foreign formats count as bold from weight 600.
TextRun runFormat(const QTextCharFormat& format);

// Writes `blocks` at the cursor's position, which must be at the start of an
// empty block: that block takes the first one's format, further blocks are
// inserted after it. Joins whatever edit block the caller has open. Each
// written block gets a BlockMemo. Returns the position just after the last
// block's content.
int writeBlocks(QTextCursor& cursor, const std::vector<Block>& blocks);

// Replaces blocks [first, first + count) of the document by `blocks`, as
// one edit through `cursor` (whose position is lost). `blocks` may be empty,
// which removes the range; removing every block leaves the empty story.
// Returns the position just after the last written block's content, or the
// start of the block that follows a removed range.
int replaceBlocks(QTextCursor& cursor, int first, int count, const std::vector<Block>& blocks);

// Shows the block's paragraph style: its display size and, for "Quote",
// italics (an italic run within a quote shows upright). Display formats
// only (QTextLayout::setFormats); the document and undo stay untouched.
// Without `reconsider` a block that needs no display formats is left as it
// is (a fresh block has none to take away).
void decorate(const QTextBlock& block, bool reconsider);

}  // namespace inkharbour::TextBridge
