#include "ui/stories_panel.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDir>
#include <QHeaderView>
#include <QMenu>
#include <QPainter>
#include <QStyledItemDelegate>

#include "app/app_state.h"
#include "ui/icons.h"
#include "ui/merge_forecaster.h"

namespace inkharbour {

namespace {

enum Column { kName, kLink, kStatus };

// The merge forecast of a modified story, drawn on a second line under its
// name, smaller and grey, so that the columns keep their widths.
constexpr int kForecastRole = Qt::UserRole + 1;

QFont forecastFont(QFont font) {
  font.setPointSizeF(font.pointSizeF() * 0.85);
  return font;
}

class NameDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    const QString forecast = index.data(kForecastRole).toString();
    if (forecast.isEmpty()) {
      QStyledItemDelegate::paint(painter, option, index);
      return;
    }
    QStyleOptionViewItem item(option);
    initStyleOption(&item, index);
    item.displayAlignment = Qt::AlignLeft | Qt::AlignTop;
    const QStyle* style = item.widget != nullptr ? item.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);
    const QRect text = style->subElementRect(QStyle::SE_ItemViewItemText, &item, item.widget);
    const QFont font = forecastFont(item.font);
    const QRect line(text.left(), text.top() + item.fontMetrics.height(), text.width(),
                     text.height() - item.fontMetrics.height());
    const bool selected = item.state.testFlag(QStyle::State_Selected);
    painter->save();
    painter->setFont(font);
    painter->setPen(
        item.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText));
    painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(font).elidedText(forecast, Qt::ElideRight, line.width()));
    painter->restore();
  }

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    if (!index.data(kForecastRole).toString().isEmpty()) {
      size.rheight() += QFontMetrics(forecastFont(option.font)).height() + 2;
    }
    return size;
  }
};

QString toQString(const std::string& text) {
  return QString::fromStdString(text);
}

std::optional<LinkStatus> statusOf(const AppState& state, const Story& story) {
  const auto found = state.linkStatuses().find(story.id);
  if (found == state.linkStatuses().end()) return std::nullopt;
  return found->second;
}

QString forecastOf(const MergeForecaster* forecaster, const Story& story) {
  return forecaster != nullptr ? forecaster->forecast(story.id).value_or(QString()) : QString();
}

// Everything a row shows, so that refresh() rebuilds only on a difference.
QString signature(const AppState& state, const MergeForecaster* forecaster) {
  QString out;
  for (const auto& story : state.document().stories) {
    const auto status = statusOf(state, story);
    out += toQString(story.id.string()) + toQString(story.name) + QChar(0x1f) +
           (story.link ? toQString(story.link->path) + QString::number(int(story.link->kind))
                       : QString()) +
           QChar(0x1f) + (status ? QString::number(int(*status)) : QString()) + QChar(0x1f) +
           forecastOf(forecaster, story) + QChar(0x1e);
  }
  return out;
}

}  // namespace

StoriesPanel::StoriesPanel(AppState& state, QMenu* storyMenu, QWidget* parent)
    : QTreeWidget(parent), state_(state), storyMenu_(storyMenu) {
  setColumnCount(3);
  setHeaderLabels({tr("Story"), tr("Link"), tr("Status")});
  setRootIsDecorated(false);
  setUniformRowHeights(false);  // a forecast adds a line
  setSelectionMode(QAbstractItemView::SingleSelection);
  setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
  setIconSize(QSize(16, 16));
  header()->setStretchLastSection(false);
  header()->setSectionResizeMode(kName, QHeaderView::Stretch);
  header()->setSectionResizeMode(kLink, QHeaderView::ResizeToContents);
  header()->setSectionResizeMode(kStatus, QHeaderView::ResizeToContents);
  setItemDelegateForColumn(kName, new NameDelegate(this));
  setAccessibleName(tr("Stories"));
  connect(this, &QTreeWidget::itemSelectionChanged, this, &StoriesPanel::onSelectionChanged);
  connect(this, &QTreeWidget::itemChanged, this, &StoriesPanel::onItemChanged);
}

void StoriesPanel::refresh() {
  const QString now = signature(state_, forecaster_);
  updating_ = true;
  if (now != shown_) {
    shown_ = now;
    const auto& stories = state_.document().stories;
    // Rows are reused so that an edit in progress or the scroll position survive.
    while (topLevelItemCount() > static_cast<int>(stories.size())) {
      delete takeTopLevelItem(topLevelItemCount() - 1);
    }
    for (std::size_t i = 0; i < stories.size(); ++i) {
      const Story& story = stories[i];
      QTreeWidgetItem* item = topLevelItem(static_cast<int>(i));
      if (item == nullptr) {
        item = new QTreeWidgetItem(this);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
      }
      const QString id = toQString(story.id.string());
      item->setData(kName, Qt::UserRole, id);
      if (item->text(kName) != toQString(story.name)) item->setText(kName, toQString(story.name));
      const std::optional<LinkKind> kind =
          story.link ? std::optional<LinkKind>(story.link->kind) : std::nullopt;
      item->setIcon(kLink, Icons::linkKind(kind));
      item->setText(kLink, Icons::kindWord(kind));
      const QString forecast = forecastOf(forecaster_, story);
      QString tip = story.link ? QDir::toNativeSeparators(toQString(story.link->path))
                               : tr("Not linked to a file");
      if (!forecast.isEmpty()) tip += QLatin1Char('\n') + tr("Update Link: %1").arg(forecast);
      for (int column = 0; column < columnCount(); ++column) item->setToolTip(column, tip);
      item->setData(kName, kForecastRole, forecast);
      if (const auto status = statusOf(state_, story)) {
        item->setIcon(kStatus, Icons::status(*status));
        item->setText(kStatus, Icons::statusWord(*status));
      } else {
        item->setIcon(kStatus, QIcon());
        item->setText(kStatus, story.link ? tr("Checking…") : QString());
      }
      const QString word = item->text(kStatus);
      item->setData(kStatus, Qt::AccessibleTextRole,
                    forecast.isEmpty() ? word : word + QStringLiteral(", ") + forecast);
    }
  }
  const auto selected = state_.selectedStoryIndex();
  QTreeWidgetItem* want = selected ? topLevelItem(static_cast<int>(*selected)) : nullptr;
  if (currentItem() != want || (want != nullptr && !want->isSelected())) {
    if (want != nullptr) {
      setCurrentItem(want);
    } else {
      clearSelection();
    }
  }
  updating_ = false;
}

void StoriesPanel::setForecaster(const MergeForecaster* forecaster) {
  forecaster_ = forecaster;
  shown_.clear();
}

void StoriesPanel::renameSelected() {
  if (QTreeWidgetItem* item = currentItem()) editItem(item, kName);
}

void StoriesPanel::contextMenuEvent(QContextMenuEvent* event) {
  if (QTreeWidgetItem* item = itemAt(viewport()->mapFromGlobal(event->globalPos()))) {
    setCurrentItem(item);
  }
  if (storyMenu_ != nullptr) storyMenu_->exec(event->globalPos());
}

void StoriesPanel::onSelectionChanged() {
  if (updating_) return;
  const auto items = selectedItems();
  if (items.isEmpty()) return;  // the selection follows the state, never the reverse
  const auto id = Uuid::parse(items.front()->data(kName, Qt::UserRole).toString().toStdString());
  if (id && state_.selectedStoryID() != id) state_.selectStory(id);
}

void StoriesPanel::onItemChanged(QTreeWidgetItem* item, int column) {
  if (updating_ || column != kName) return;
  const auto id = Uuid::parse(item->data(kName, Qt::UserRole).toString().toStdString());
  const QString name = item->text(kName).trimmed();
  if (!id) return;
  if (name.isEmpty()) {
    shown_.clear();  // put the old name back
    refresh();
    return;
  }
  emit renameRequested(*id, name);
}

}  // namespace inkharbour
