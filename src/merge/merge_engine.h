// The merge engine: the three-way merge of a story's base snapshot (the
// external content at the last synchronisation), its local blocks and the
// blocks just read from the external file.
//
// Independent changes from both sides are combined; local formatting survives
// external text changes; where both sides changed the same content the
// external version wins and the local text is kept in a ConflictNote. Tables
// that changed are merged cell by cell, footnotes one by one. Every function
// is pure and total: a conflict is data, never an error, and nothing throws.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "model/story.h"

namespace inkharbour::MergeEngine {

struct Result {
  std::vector<Block> blocks;          // the merged content, in output order
  std::vector<ConflictNote> notes;    // Story Notes made by conflicts, in creation order
  std::vector<ChangeRecord> changes;  // one record per unstable region, in output order

  bool operator==(const Result&) const = default;
};

struct LineResult {
  std::vector<std::string_view> lines;  // the merged text, views of the given lines
  std::vector<ConflictNote> notes;
  std::vector<ChangeRecord> changes;

  bool operator==(const LineResult&) const = default;
};

struct FootnoteResult {
  std::vector<Footnote> footnotes;    // ascending id
  std::vector<ConflictNote> notes;    // one per footnote edited differently on both sides
  std::vector<ChangeRecord> changes;  // one per footnote that changed, ascending id

  bool operator==(const FootnoteResult&) const = default;
};

struct TableMergeResult {
  Table table;                           // the external table's shape
  std::vector<ConflictNote> notes;       // one per cell edited differently on both sides, row-major
  std::int64_t externalCellChanges = 0;  // cells whose content came from the external table

  bool operator==(const TableMergeResult&) const = default;
};

// Merges the three block lists of one story. Blocks are paired by merge key
// (text content, never formatting); a block present unchanged on all three
// sides is kept in its local version, ids and formatting included. Each
// region between such blocks is resolved as one unit and reported by one
// ChangeRecord; the external side wins a conflict.
Result merge(const std::vector<Block>& base, const std::vector<Block>& ours,
             const std::vector<Block>& theirs);

// The same result, with the blocks that reach it moved out of the arguments
// instead of copied: for a caller that has no further use for its inputs.
// The three vectors are left valid but unspecified.
Result merge(std::vector<Block>&& base, std::vector<Block>&& ours, std::vector<Block>&& theirs);

// The merge of three plain texts given as lines, each line standing for a
// "Body" paragraph with that text in one plain run (no run when it is
// empty), as a text file is read. The lines, notes and records are those
// merge() gives for such paragraphs; no block is made for a line.
LineResult mergeLines(std::span<const std::string_view> base,
                      std::span<const std::string_view> ours,
                      std::span<const std::string_view> theirs);

// Merges footnotes matched by id and compared by text. One-sided edits and
// deletions are applied; the external footnote wins a conflict, and one
// edited differently on both sides leaves a note whose paragraphIndex is -1.
// Within one list the first footnote with a given id counts; later ones with
// the same id are ignored.
FootnoteResult mergeFootnotes(const std::vector<Footnote>& base, const std::vector<Footnote>& ours,
                              const std::vector<Footnote>& theirs);

// The same result, with the footnotes that reach it moved out of the
// arguments; the three vectors are left valid but unspecified.
FootnoteResult mergeFootnotes(std::vector<Footnote>&& base, std::vector<Footnote>&& ours,
                              std::vector<Footnote>&& theirs);

}  // namespace inkharbour::MergeEngine
