#include "ui/table_editor.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTableWidget>
#include <QVBoxLayout>

#include "ui/edited_text.h"

namespace inkharbour {

namespace {

// Edits a cell in a multi-line box: Enter starts a new paragraph of the
// cell, Ctrl+Enter (or leaving the cell) commits.
class CellDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&,
                        const QModelIndex&) const override {
    auto* editor = new QPlainTextEdit(parent);
    editor->setTabChangesFocus(true);
    return editor;
  }
  void setEditorData(QWidget* editor, const QModelIndex& index) const override {
    static_cast<QPlainTextEdit*>(editor)->setPlainText(index.data(Qt::EditRole).toString());
  }
  void setModelData(QWidget* editor, QAbstractItemModel* model,
                    const QModelIndex& index) const override {
    // A Return typed last to finish the cell is no empty paragraph of it.
    QString text = static_cast<QPlainTextEdit*>(editor)->toPlainText();
    while (text.endsWith(QLatin1Char('\n'))) text.chop(1);
    model->setData(index, text, Qt::EditRole);
  }
  void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                            const QModelIndex&) const override {
    QRect rect = option.rect;
    rect.setHeight(std::max(rect.height(), 72));
    editor->setGeometry(rect);
  }
};

constexpr int kOriginalTextRole = Qt::UserRole + 1;  // the cell's text when the grid was built

}  // namespace

TableEditor::TableEditor(const Table& table, QWidget* parent)
    : QDialog(parent), original_(table), grid_(new QTableWidget(this)) {
  setWindowTitle(tr("Edit Table"));
  const int rows = static_cast<int>(table.rows.size());
  const int columns = static_cast<int>(table.columnCount());
  grid_->setRowCount(rows);
  grid_->setColumnCount(columns);
  grid_->setItemDelegate(new CellDelegate(grid_));
  grid_->setWordWrap(true);
  grid_->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
  grid_->horizontalHeader()->setDefaultSectionSize(150);
  grid_->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
  for (int r = 0; r < rows; ++r) {
    const auto& row = table.rows[static_cast<std::size_t>(r)];
    for (int c = 0; c < columns; ++c) {
      auto* item = new QTableWidgetItem;
      if (c < static_cast<int>(row.size())) {
        const QString text = plainText(row[static_cast<std::size_t>(c)].paragraphs);
        item->setText(text);
        item->setData(kOriginalTextRole, text);
      }
      grid_->setItem(r, c, item);
    }
  }
  for (int r = 0; r < rows; ++r) rowOrigin_.push_back(r);
  for (int c = 0; c < columns; ++c) columnOrigin_.push_back(c);

  auto* hint = new QLabel(tr("Double-click a cell to edit it; each line is a paragraph of the "
                             "cell. Cells you leave alone keep their formatting."),
                          this);
  hint->setWordWrap(true);
  auto* buttons = new QHBoxLayout;
  const std::pair<QString, void (TableEditor::*)()> actions[] = {
      {tr("Add Row"), &TableEditor::insertRow},
      {tr("Remove Row"), &TableEditor::removeRow},
      {tr("Add Column"), &TableEditor::insertColumn},
      {tr("Remove Column"), &TableEditor::removeColumn}};
  for (const auto& [text, slot] : actions) {
    auto* button = new QPushButton(text, this);
    button->setAutoDefault(false);
    connect(button, &QPushButton::clicked, this, slot);
    buttons->addWidget(button);
  }
  buttons->addStretch(1);
  auto* box = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  connect(box, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(hint);
  layout->addWidget(grid_, 1);
  layout->addLayout(buttons);
  layout->addWidget(box);
  resize(720, 420);
}

// New rows and columns go after the current cell's, or at the end.
void TableEditor::insertRow() {
  const int at = grid_->currentRow() >= 0 ? grid_->currentRow() + 1 : grid_->rowCount();
  grid_->insertRow(at);
  for (int c = 0; c < grid_->columnCount(); ++c) grid_->setItem(at, c, new QTableWidgetItem);
  rowOrigin_.insert(rowOrigin_.begin() + at, -1);
  grid_->setCurrentCell(at, std::max(0, grid_->currentColumn()));
}

void TableEditor::removeRow() {
  const int row = grid_->currentRow();
  if (row < 0) return;
  grid_->removeRow(row);
  rowOrigin_.erase(rowOrigin_.begin() + row);
}

void TableEditor::insertColumn() {
  const int at = grid_->currentColumn() >= 0 ? grid_->currentColumn() + 1 : grid_->columnCount();
  grid_->insertColumn(at);
  for (int r = 0; r < grid_->rowCount(); ++r) grid_->setItem(r, at, new QTableWidgetItem);
  columnOrigin_.insert(columnOrigin_.begin() + at, -1);
  grid_->setCurrentCell(std::max(0, grid_->currentRow()), at);
}

void TableEditor::removeColumn() {
  const int column = grid_->currentColumn();
  if (column < 0) return;
  grid_->removeColumn(column);
  columnOrigin_.erase(columnOrigin_.begin() + column);
}

Table TableEditor::result() const {
  Table out;
  for (int r = 0; r < grid_->rowCount(); ++r) {
    const int fromRow = rowOrigin_[static_cast<std::size_t>(r)];
    const std::vector<TableCell>* oldRow =
        fromRow >= 0 ? &original_.rows[static_cast<std::size_t>(fromRow)] : nullptr;
    std::vector<TableCell> row;
    std::size_t length = 0;
    for (int c = 0; c < grid_->columnCount(); ++c) {
      const int fromColumn = columnOrigin_[static_cast<std::size_t>(c)];
      const TableCell* old = oldRow != nullptr && fromColumn >= 0 &&
                                     fromColumn < static_cast<int>(oldRow->size())
                                 ? &(*oldRow)[static_cast<std::size_t>(fromColumn)]
                                 : nullptr;
      const QTableWidgetItem* item = grid_->item(r, c);
      const QString text = item != nullptr ? item->text() : QString();
      TableCell cell;
      if (old != nullptr && item->data(kOriginalTextRole).toString() == text) {
        cell = *old;  // untouched: exactly as it was
      } else {
        cell.paragraphs = editedParagraphs(old ? old->paragraphs : std::vector<Paragraph>{}, text);
      }
      const bool exists = old != nullptr || fromRow < 0 || fromColumn < 0 || !text.isEmpty();
      row.push_back(std::move(cell));
      if (exists) length = row.size();
    }
    row.resize(length);
    out.rows.push_back(std::move(row));
  }
  return out;
}

}  // namespace inkharbour
