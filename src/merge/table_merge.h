// Table merge: one table changed on both sides of a merge is merged cell by
// cell, in the shape of the external table.
#pragma once

#include <cstdint>

#include "merge/merge_engine.h"

namespace inkharbour::MergeEngine {

// Merges three versions of one table. The result has exactly the external
// table's rows and cells. A cell at a position missing from the base or the
// local table is taken from the external table as it is. Otherwise, cells
// compared by text: an unchanged external cell keeps the local cell; a
// changed one is taken with the local cell's formatting carried over
// paragraph by paragraph, and counted; when the local cell changed too, and
// differently, a note labelled "Cell R<row>C<column>: " (1-based) records
// both texts, with `blockIndex` as its paragraphIndex.
TableMergeResult mergeTables(const Table& base, const Table& ours, const Table& theirs,
                             std::int64_t blockIndex);

}  // namespace inkharbour::MergeEngine
