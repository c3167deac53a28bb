// Note alignment: which note of a linked file is which note of the base
// snapshot, when another program has renumbered them. Word renumbers every
// later note when one is inserted, and LibreOffice saves a file's notes 1 and
// 2 as 2 and 3, so a number alone says nothing across a save by another
// program; the order in which the notes are cited does.
//
// A content's notes are taken in reading order: every id that a reference
// mark (a run with a footnoteID) cites, in the order of its first mark
// through the blocks and table cells, then the notes that no mark cites, in
// list order. The file's notes are paired with the base's in that order:
// first the notes that read the same (the longest common subsequence of
// their texts), then the rest between those pairs, by position (where one
// side has more notes there, the pairs that read most alike). Footnotes
// (ids below kFirstEndnoteID) and endnotes are aligned apart, so a footnote
// never pairs with an endnote. Renumbering the file to the base's numbers
// then lets the status and the merge compare notes by number.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "model/story.h"

namespace inkharbour::MergeEngine {

// The reader numbers a file's endnotes from here on; smaller ids are footnotes.
inline constexpr std::int64_t kFirstEndnoteID = 10001;

// Old note number -> new one. A number that is not a key stays as it is.
using NoteNumbers = std::map<std::int64_t, std::int64_t>;

struct NotedContent {
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;

  bool operator==(const NotedContent&) const = default;
};

// The ids of the content's notes in reading order, each once. A mark citing
// an id that no note has counts as citing a note without text.
std::vector<std::int64_t> readingOrder(const std::vector<Block>& blocks,
                                       const std::vector<Footnote>& footnotes);

// The numbers that put every note at its place in reading order, footnotes
// from 1 and endnotes from kFirstEndnoteID. Two contents whose notes differ
// in numbering alone are equal once renumbered by their own such numbers.
// Only numbers that change are in the map: empty for notes already so.
NoteNumbers readingOrderNumbers(const std::vector<Block>& blocks,
                                const std::vector<Footnote>& footnotes);

// The numbers that align the file's notes with the base snapshot's: a paired
// note takes the number of its base note. A file note that pairs with none
// keeps its own number when no base note, local note or other file note
// (after renumbering) has it; otherwise it gets the next number above all of
// those, within its kind. So no two notes share a number afterwards and a new
// note never collides with a local one. Only numbers that change are in the map.
NoteNumbers alignmentNumbers(const std::vector<Block>& fileBlocks,
                             const std::vector<Footnote>& fileFootnotes,
                             const std::vector<Block>& baseBlocks,
                             const std::vector<Footnote>& baseFootnotes,
                             const std::vector<Footnote>& localFootnotes);

// A copy of the block whose marks cite the new numbers, or no value when it
// cites no renumbered note. A mark's text follows its number when it is the
// reader's "[n]" for the old number; any other text stays.
std::optional<Block> renumberedMarks(const Block& block, const NoteNumbers& numbers);

// The content with its notes and the marks citing them renumbered; the
// order of blocks and notes is kept.
NotedContent renumberNotes(NotedContent content, const NoteNumbers& numbers);

// `file` renumbered by alignmentNumbers().
NotedContent alignNotes(NotedContent file, const std::vector<Block>& baseBlocks,
                        const std::vector<Footnote>& baseFootnotes,
                        const std::vector<Footnote>& localFootnotes);

}  // namespace inkharbour::MergeEngine
