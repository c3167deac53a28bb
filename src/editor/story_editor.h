// StoryEditor: the rich text editor of one story, embedded by the main window.
//
// It shows the story's blocks through TextBridge (one QTextBlock per model
// block) and reports every user edit (typing, formatting, paste, cut, drop,
// replacing) as the stretch of model blocks it replaced, mapping back only
// the blocks the edit touched; editFinished closes the edits of one user
// action. Ids follow the text: a block keeps its id through edits, the new
// half of a split paragraph gets a fresh one, and a join keeps the first
// block's id.
//
// The editor keeps no undo history: the document's own is off, and Undo and
// Redo (their keys and the context menu's entries) are the window's, which
// shows the blocks it brings back through applyEdit.
//
// Tables and pictures are atomic. Typing, Enter or a paste at one goes into a
// new paragraph beside it; Backspace or Delete next to one first selects it,
// and a second press (or any deletion of a selection that holds it) removes
// it whole; typing over one selected alone puts a "Body" paragraph with the
// text in its place. After every edit each table or picture is alone in its
// block.
//
// Files dragged in from a file manager are not for the text: the drag passes
// the editor by, to the window around it.
//
// Search highlights and word counts never touch the document.
#pragma once

#include <QString>
#include <QTextCharFormat>
#include <QTextEdit>
#include <QTimer>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "model/story.h"

class QMimeData;
class QTextBlock;
class QTextCursor;

namespace inkharbour {

class FlowLayout;

class StoryEditor : public QTextEdit {
  Q_OBJECT

 public:
  enum class CharacterFormat {
    bold,
    italic,
    underline,
    strikethrough,
    smallCaps,
    superscript,
    subscript
  };

  // What a user action was, so that the window can merge consecutive typing
  // into one undo step. `typing`: characters typed, or one erased by
  // Backspace or Delete, within one paragraph (a line break typed with
  // Shift+Enter included). `other`: everything else (Enter, joins, paste,
  // cut, drops, formatting, anything at a table or picture).
  enum class EditKind { typing, other };
  Q_ENUM(EditKind)

  explicit StoryEditor(QWidget* parent = nullptr);
  ~StoryEditor() override;

  // Shows the blocks, editable. With `keepPosition` the caret stays in the
  // block of the same id (else the same number) and the view keeps its scroll
  // position, as after a reload of the same story; otherwise the caret goes
  // to the start.
  void setStory(const std::vector<Block>& blocks, bool keepPosition);
  // Nothing to edit: empty and read-only.
  void clearStory();

  // The model of what the editor shows now.
  std::vector<Block> blocks() const;

  // Shows model blocks [first, first + removed) replaced by `inserted`, as
  // the window's undo and redo of an edit do: no blocksEdited, and the
  // blocks read back as exactly `inserted`, ids included. The caret goes to
  // the end of the last inserted block (with none, to the start of the block
  // after the range) and is scrolled into view. Costs in proportion to the
  // edit, not the story. Nothing happens without a story or when the range
  // lies beyond it.
  void applyEdit(std::size_t first, std::size_t removed, const std::vector<Block>& inserted);

  // Turns a character format on or off for the selection (one user action,
  // tables and pictures left alone) or, with none, for the text typed next.
  // Superscript and subscript exclude each other.
  void setCharacterFormat(CharacterFormat format, bool on);
  // Whether the format applies at the caret (to the text typed next).
  bool hasCharacterFormat(CharacterFormat format) const;
  // Gives every paragraph the selection touches this style (one action).
  void setParagraphStyle(const QString& styleName);
  // The caret's paragraph style; empty at a table or picture.
  QString paragraphStyle() const;

  // Selects the next occurrence of `text` after the caret (before it when
  // `backward`), wrapping around the story; false when there is none.
  bool find(const QString& text, bool backward = false, bool caseSensitive = false);
  // Replacing, one user action each. A hit is an occurrence of `text` in a
  // paragraph (never in a table or picture) that takes in no part of a
  // footnote mark; the new text takes the format of the first character it
  // replaces, and line ends in it become line breaks.
  //
  // With the selection a hit, replaces it and selects the next hit (wrapping,
  // as find() does); otherwise only selects the next. True when it replaced.
  bool replaceSelection(const QString& text, const QString& replacement,
                        bool caseSensitive = false);
  // Replaces every hit in the story, reporting only the paragraphs it
  // changed; returns how many it replaced.
  int replaceAll(const QString& text, const QString& replacement, bool caseSensitive = false);

  // Marks the occurrences of `text` (none for an empty text) with extra
  // selections. Every occurrence is counted; only those near the visible part
  // are marked, and the marks follow scrolling and edits.
  void highlight(const QString& text, bool caseSensitive = false);
  // The number of occurrences of the highlighted text.
  int highlightCount() const { return highlightCount_; }

  // Words in the story; counted once per block and again only for changed
  // blocks. A word holds at least one letter or digit; footnote marks,
  // tables and pictures have none.
  qint64 wordCount() const;
  qint64 selectedWordCount() const;

  // Puts the caret at the start of the block with this id and scrolls it into
  // view; nothing when no block has it.
  void scrollToBlock(const Uuid& blockID);

  // Pastes the clipboard's text without its formatting (one action).
  void pastePlainText();

 public slots:
  // Enable the context menu's Undo and Redo (both off at first), which ask
  // for them through undoRequested and redoRequested.
  void setCanUndo(bool can) { canUndo_ = can; }
  void setCanRedo(bool can) { canRedo_ = can; }

 signals:
  // After a user edit: model blocks [first, first + removed) were replaced by
  // `inserted`. A user action may report several edits, which apply in order.
  void blocksEdited(std::size_t first, std::size_t removed,
                    const std::vector<inkharbour::Block>& inserted);
  // Once after the last blocksEdited of a user action, before the action
  // returns; never for an action that edited nothing.
  void editFinished(inkharbour::StoryEditor::EditKind kind);
  // The context menu's Undo or Redo was chosen.
  void undoRequested();
  void redoRequested();
  // The formats or paragraph style at the caret may have changed.
  void formatChanged();
  void wordCountChanged();
  // A table preview was double-clicked.
  void tableActivated(const inkharbour::Uuid& blockID);

 protected:
  bool event(QEvent* event) override;
  bool viewportEvent(QEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void inputMethodEvent(QInputMethodEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void scrollContentsBy(int dx, int dy) override;
  bool canInsertFromMimeData(const QMimeData* source) const override;
  void insertFromMimeData(const QMimeData* source) override;
  QMimeData* createMimeDataFromSelection() const override;

 private:
  // Edits not reported yet: the document blocks that were [first, first +
  // removed) at the last report are now [first, first + count).
  struct Pending {
    int first = 0;
    int removed = 0;
    int count = 0;
  };

  class UserAction;

  void attach(QTextDocument* document);
  void onContentsChange(int position, int removed, int added);
  void settle();
  void report();
  void finishAction();
  void countWords(const QTextBlock& block);
  FlowLayout* flow() const;

  bool deleteNextToAtomic(bool backward);
  void makeRoomForText(QTextCursor& cursor);
  void splitParagraph();
  void pasteBlocks(const std::vector<Block>& blocks);
  void cleanTypingFormat();
  QTextCharFormat typingFormat() const;

  void refreshHighlights();
  void markVisibleHits();

  std::shared_ptr<qint64> words_ = std::make_shared<qint64>(0);
  int modelCount_ = 0;      // model blocks as last reported
  int documentBlocks_ = 0;  // document blocks as of the last contentsChange
  std::optional<Pending> pending_;
  bool settling_ = false;
  bool applying_ = false;  // applyEdit at work: nothing to mend or report

  // The user action at hand: handlers nest, and the outermost one ends it.
  int actionDepth_ = 0;
  int actionEdits_ = 0;        // blocksEdited so far
  bool typingKey_ = false;     // a key that types or erases one character
  bool oneParagraph_ = true;   // every edit replaced one paragraph by one
  bool reported_ = false;      // changes settled in this action
  bool wordsChanged_ = false;  // and the word count changed with them
  bool canUndo_ = false;
  bool canRedo_ = false;

  QString highlightText_;
  bool highlightCase_ = false;
  int highlightCount_ = 0;
  QTimer highlightTimer_;
};

}  // namespace inkharbour
