#include "merge/table_merge.h"

#include <string>

#include "merge/formatting_transfer.h"

namespace inkharbour::MergeEngine {

namespace {

const TableCell* cellAt(const Table& table, std::size_t row, std::size_t column) {
  if (row >= table.rows.size() || column >= table.rows[row].size()) return nullptr;
  return &table.rows[row][column];
}

// The external cell's paragraphs, each dressed like the local paragraph at
// the same position when there is one.
TableCell styledCell(const TableCell& local, const TableCell& external) {
  TableCell cell;
  cell.paragraphs.reserve(external.paragraphs.size());
  for (std::size_t p = 0; p < external.paragraphs.size(); ++p) {
    if (p >= local.paragraphs.size()) {
      cell.paragraphs.push_back(external.paragraphs[p]);
      continue;
    }
    const Block from{.kind = local.paragraphs[p]};
    const Block to{.kind = external.paragraphs[p]};
    cell.paragraphs.push_back(std::get<Paragraph>(transferFormatting(&from, to).kind));
  }
  return cell;
}

std::string cellLabel(std::size_t row, std::size_t column) {
  return "Cell R" + std::to_string(row + 1) + "C" + std::to_string(column + 1) + ": ";
}

}  // namespace

TableMergeResult mergeTables(const Table& base, const Table& ours, const Table& theirs,
                             std::int64_t blockIndex) {
  TableMergeResult result;
  result.table.rows.reserve(theirs.rows.size());
  for (std::size_t r = 0; r < theirs.rows.size(); ++r) {
    auto& row = result.table.rows.emplace_back();
    row.reserve(theirs.rows[r].size());
    for (std::size_t c = 0; c < theirs.rows[r].size(); ++c) {
      const TableCell& external = theirs.rows[r][c];
      const TableCell* original = cellAt(base, r, c);
      const TableCell* local = cellAt(ours, r, c);
      if (original == nullptr || local == nullptr) {
        row.push_back(external);
        continue;
      }
      const std::string baseText = original->text();
      const std::string externalText = external.text();
      if (externalText == baseText) {
        row.push_back(*local);
        continue;
      }
      row.push_back(styledCell(*local, external));
      ++result.externalCellChanges;
      // An identical edit on both sides counts as taken but is no conflict.
      const std::string localText = local->text();
      if (localText != baseText && localText != externalText) {
        result.notes.push_back(ConflictNote{.paragraphIndex = blockIndex,
                                            .localText = cellLabel(r, c) + localText,
                                            .externalText = cellLabel(r, c) + externalText});
      }
    }
  }
  return result;
}

}  // namespace inkharbour::MergeEngine
