#include "ui/style_map_sheet.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "model/style_sheet.h"

namespace inkharbour {

namespace {

QString styleName(std::size_t index) {
  const auto name = StyleSheet::styles[index].name;
  return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

}  // namespace

StyleMapSheet::StyleMapSheet(const StyleMap& styleMap, const QStringList& wordStyles,
                             QWidget* parent)
    : QDialog(parent), wordStyles_(wordStyles), table_(new QTableWidget(0, 2, this)) {
  setWindowTitle(tr("Style Mapping"));
  auto* explanation = new QLabel(tr("Map Word paragraph style names to Inkharbour styles. "
                                    "Applied when documents are placed or updated."),
                                 this);
  explanation->setWordWrap(true);
  table_->setHorizontalHeaderLabels({tr("Word style"), tr("Inkharbour style")});
  table_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
  table_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  table_->verticalHeader()->hide();
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setSelectionMode(QAbstractItemView::SingleSelection);
  table_->setAccessibleName(tr("Style mapping"));
  for (const auto& [word, style] : styleMap) {
    addRow(QString::fromStdString(word), QString::fromStdString(style));
  }

  auto* add = new QPushButton(tr("Add"), this);
  auto* remove = new QPushButton(tr("Remove"), this);
  for (QPushButton* button : {add, remove}) button->setAutoDefault(false);
  connect(add, &QPushButton::clicked, this, [this] {
    addRow();
    table_->setCurrentCell(table_->rowCount() - 1, 0);
    if (auto* name = qobject_cast<QComboBox*>(table_->cellWidget(table_->rowCount() - 1, 0))) {
      name->setFocus();
    }
  });
  connect(remove, &QPushButton::clicked, this, &StyleMapSheet::removeSelectedRow);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(add);
  buttons->addWidget(remove);
  buttons->addStretch(1);
  auto* box = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  connect(box, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(explanation);
  layout->addWidget(table_, 1);
  layout->addLayout(buttons);
  layout->addWidget(box);
  resize(520, 360);
}

void StyleMapSheet::addRow(const QString& wordStyle, const QString& style) {
  const int row = table_->rowCount();
  table_->insertRow(row);
  auto* name = new QComboBox(table_);
  name->setEditable(true);
  name->addItems(wordStyles_);
  name->setEditText(wordStyle);
  name->lineEdit()->setPlaceholderText(tr("Word style name (e.g. Subtitle)"));
  name->setToolTip(wordStyles_.isEmpty()
                       ? tr("Type a Word paragraph style name")
                       : tr("Pick a style of the linked Word file, or type a name"));
  table_->setCellWidget(row, 0, name);
  auto* target = new QComboBox(table_);
  for (std::size_t i = 0; i < StyleSheet::styles.size(); ++i) target->addItem(styleName(i));
  // A target that is no style (from a hand-made file) shows, marked, until changed.
  if (target->findText(style) < 0) target->addItem(style + tr(" (not a style: ignored)"), style);
  const int found = target->findText(style);
  target->setCurrentIndex(found >= 0 ? found : target->count() - 1);
  table_->setCellWidget(row, 1, target);
}

void StyleMapSheet::removeSelectedRow() {
  const int row = table_->currentRow();
  if (row >= 0) table_->removeRow(row);
}

StyleMap StyleMapSheet::result() const {
  StyleMap out;
  for (int row = 0; row < table_->rowCount(); ++row) {
    const auto* name = qobject_cast<QComboBox*>(table_->cellWidget(row, 0));
    const auto* target = qobject_cast<QComboBox*>(table_->cellWidget(row, 1));
    const QString word = name->currentText().trimmed();
    if (word.isEmpty()) continue;
    const QVariant kept = target->currentData();
    const QString style = kept.isValid() ? kept.toString() : target->currentText();
    out[word.toStdString()] = style.toStdString();
  }
  return out;
}

}  // namespace inkharbour
