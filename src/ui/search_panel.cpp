#include "ui/search_panel.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/app_state.h"

namespace inkharbour {

namespace {

enum Role { kStoryRole = Qt::UserRole, kBlockRole };

// The text around the first hit, on one line.
QString context(const QString& text, qsizetype at, qsizetype length) {
  constexpr qsizetype kAround = 40;
  const qsizetype from = std::max<qsizetype>(0, at - kAround);
  QString out = text.mid(from, length + 2 * kAround).simplified();
  if (from > 0) out.prepend(QChar(0x2026));
  if (from + length + 2 * kAround < text.size()) out.append(QChar(0x2026));
  return out;
}

}  // namespace

SearchPanel::SearchPanel(AppState& state, QWidget* parent)
    : QWidget(parent),
      state_(state),
      field_(new QLineEdit(this)),
      matchCase_(new QCheckBox(tr("Match case"), this)),
      summary_(new QLabel(this)),
      results_(new QTreeWidget(this)),
      delay_(new QTimer(this)) {
  field_->setPlaceholderText(tr("Find in all stories"));
  field_->setClearButtonEnabled(true);
  field_->setAccessibleName(tr("Find in all stories"));
  results_->setColumnCount(3);
  results_->setHeaderLabels({tr("Story"), tr("Where"), tr("Text")});
  results_->setRootIsDecorated(false);
  results_->setUniformRowHeights(true);
  results_->header()->setSectionResizeMode(2, QHeaderView::Stretch);
  results_->setAccessibleName(tr("Search results"));
  auto* top = new QHBoxLayout;
  top->addWidget(field_, 1);
  top->addWidget(matchCase_);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->addLayout(top);
  layout->addWidget(summary_);
  layout->addWidget(results_, 1);
  delay_->setSingleShot(true);
  delay_->setInterval(250);
  connect(delay_, &QTimer::timeout, this, &SearchPanel::search);
  connect(field_, &QLineEdit::textChanged, delay_, qOverload<>(&QTimer::start));
  connect(field_, &QLineEdit::returnPressed, this, &SearchPanel::search);
  connect(matchCase_, &QCheckBox::toggled, this, &SearchPanel::search);
  connect(results_, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
    const auto story = Uuid::parse(item->data(0, kStoryRole).toString().toStdString());
    const auto block = Uuid::parse(item->data(0, kBlockRole).toString().toStdString());
    if (story) emit hitActivated(*story, block.value_or(Uuid{}), field_->text(), matchCase_->isChecked());
  });
}

void SearchPanel::start(const QString& text) {
  if (!text.isEmpty()) field_->setText(text);
  field_->setFocus();
  field_->selectAll();
  search();
}

void SearchPanel::search() {
  delay_->stop();
  results_->clear();
  const QString needle = field_->text();
  if (needle.isEmpty()) {
    summary_->clear();
    return;
  }
  const Qt::CaseSensitivity sensitivity =
      matchCase_->isChecked() ? Qt::CaseSensitive : Qt::CaseInsensitive;
  int hits = 0;
  bool cut = false;
  QList<QTreeWidgetItem*> items;
  auto add = [&](const Story& story, const QString& where, const QString& text,
                 const std::optional<Uuid>& block) {
    const qsizetype at = text.indexOf(needle, 0, sensitivity);
    if (at < 0) return;
    hits += static_cast<int>(text.count(needle, sensitivity));
    if (items.size() >= kMaxHits) {
      cut = true;
      return;
    }
    auto* item = new QTreeWidgetItem(
        {QString::fromStdString(story.name), where, context(text, at, needle.size())});
    item->setData(0, kStoryRole, QString::fromStdString(story.id.string()));
    if (block) item->setData(0, kBlockRole, QString::fromStdString(block->string()));
    item->setToolTip(2, text);
    items << item;
  };
  int stories = 0;
  for (const auto& story : state_.document().stories) {
    const int before = hits;
    int paragraph = 0;
    for (const auto& block : story.blocks) {
      if (const auto* p = std::get_if<Paragraph>(&block.kind)) {
        add(story, tr("Paragraph %1").arg(++paragraph), QString::fromStdString(p->text()), block.id);
      } else if (const auto* table = std::get_if<Table>(&block.kind)) {
        for (std::size_t r = 0; r < table->rows.size(); ++r) {
          for (std::size_t c = 0; c < table->rows[r].size(); ++c) {
            add(story, tr("Table cell R%1C%2").arg(r + 1).arg(c + 1),
                QString::fromStdString(table->rows[r][c].text()), block.id);
          }
        }
      }
    }
    for (const auto& footnote : story.footnotes) {
      add(story, tr("Footnote %1").arg(footnote.id), QString::fromStdString(footnote.text()),
          std::nullopt);
    }
    if (hits > before) ++stories;
  }
  results_->addTopLevelItems(items);
  if (hits == 0) {
    summary_->setText(tr("No matches."));
  } else {
    summary_->setText((hits == 1 ? tr("1 match") : tr("%1 matches").arg(hits)) +
                      (stories == 1 ? tr(" in 1 story") : tr(" in %1 stories").arg(stories)) +
                      (cut ? tr(" (the first %1 places shown)").arg(kMaxHits) : QString()));
  }
}

}  // namespace inkharbour
