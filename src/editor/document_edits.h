// DocumentEdits: edits of a story's QTextDocument that keep it a picture of
// model blocks: one QTextBlock per block, each table or picture alone in its
// block, every block with a style and an id of its own.
//
// The editing functions work through a cursor, inside whatever edit block the
// caller holds open (so a key's own edit and these make one change of the
// document), and return the position where the caret belongs afterwards.
#pragma once

#include <QString>

#include <utility>
#include <vector>

#include "model/story.h"

class QTextBlock;
class QTextCursor;
class QTextDocument;

namespace inkharbour::DocumentEdits {

// True when the selection starts or ends in a table's or picture's block.
bool touchesAtomic(const QTextCursor& selection);

// Removes the cursor's selection so that tables and pictures go whole or not
// at all: one goes when its character is selected, not for the line end
// after it. What is left of the first paragraph keeps its style and id and
// takes in what is left of the last; text left after a table or picture
// keeps its own paragraph. Removing everything leaves one empty "Body"
// paragraph.
int removeSelection(QTextCursor& cursor);

// With the selection exactly one table's or picture's character: that block
// becomes an empty "Body" paragraph with a fresh id, so that what is typed
// takes its place. Returns the paragraph's position, or -1 (and does
// nothing) for any other selection.
int replaceObjectByParagraph(QTextCursor& cursor);

// With the cursor in a table's or picture's block: an empty "Body"
// paragraph after it (cursor after the object) or before it (cursor before).
int openParagraphBeside(QTextCursor& cursor);

// Inserts the blocks at the cursor, which is in a paragraph and selects
// nothing. A first pasted paragraph joins the text before the cursor (taking
// its style when the cursor is at the paragraph's start); the text after the
// cursor joins the last pasted paragraph, keeping the paragraph's style;
// tables and pictures get blocks of their own. The caret goes to the end of
// the pasted content.
int insertBlocks(QTextCursor& cursor, const std::vector<Block>& blocks);

// True when the block's characters [from, to) can be replaced as text: they
// lie within a paragraph and take in no part of a footnote mark.
bool isPlainText(const QTextBlock& block, int from, int to);

// Where `text` occurs in the block as plain text (see isPlainText), as
// (start, end) offsets within it, left to right and not overlapping. None in
// a table or picture, and none for an empty text.
std::vector<std::pair<int, int>> hits(const QTextBlock& block, const QString& text,
                                      Qt::CaseSensitivity sensitivity);

// Replaces the document's characters [from, to), which lie within one
// paragraph, by `replacement` in the format of the first of them (a footnote
// mark's without the mark). Line ends in `replacement` become line breaks
// within the paragraph. Returns the position after the new text.
int replaceText(QTextCursor& cursor, int from, int to, const QString& replacement);

// The selection as blocks to copy: the selected part of each paragraph it
// touches (with a fresh id) and the tables and pictures whose character it
// holds.
std::vector<Block> selectedBlocks(const QTextCursor& selection);

// The empty story's block (which has no id) becomes an empty "Body"
// paragraph with a fresh id, so that text can be typed into it.
void claimEmptyStory(QTextCursor& cursor);

// Mends document blocks [first - 1, last + 1] after an edit made by Qt's own
// means (typing, cut, drop): objects that share a block with text get
// blocks of their own, blocks without a style become "Body" paragraphs (or
// go, when empty), and repeated or missing ids are replaced; after a split at
// a paragraph's very start the text keeps its id. One edit block.
void mend(QTextDocument& document, int first, int last);

// Words in the block's characters [from, to): stretches between white space
// that hold a letter or digit. Footnote marks and objects end a word and
// count for nothing.
qint64 countWords(const QTextBlock& block, int from, int to);

}  // namespace inkharbour::DocumentEdits
