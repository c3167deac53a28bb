// The table editor: a table's cells as an editable grid (a cell's paragraphs
// as lines), with rows and columns to add and remove. The result keeps every
// cell the author did not touch exactly as it was, formatting included.
#pragma once

#include <QDialog>
#include <vector>

#include "model/story.h"

class QTableWidget;

namespace inkharbour {

class TableEditor : public QDialog {
  Q_OBJECT

 public:
  explicit TableEditor(const Table& table, QWidget* parent = nullptr);

  // The table as edited. Rows keep their own lengths: a row ends at its last
  // cell that existed, was added with a row or column, or was given text.
  Table result() const;

  QTableWidget* grid() const { return grid_; }
  void insertRow();
  void removeRow();
  void insertColumn();
  void removeColumn();

 private:
  Table original_;
  QTableWidget* grid_;
  // For each row and column of the grid, its index in the original table,
  // or -1 when it was added here.
  std::vector<int> rowOrigin_;
  std::vector<int> columnOrigin_;
};

}  // namespace inkharbour
