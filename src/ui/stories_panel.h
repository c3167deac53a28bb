// The stories panel: every story in document order with its name, the kind
// of its link and the link's status (icon and word; a modified link's merge
// forecast after the word, small and grey), the linked path and the forecast
// as a tooltip, rename in place and a context menu of the story's commands.
// Selecting a row selects the story in AppState.
#pragma once

#include <QTreeWidget>

#include "model/uuid.h"

namespace inkharbour {

class AppState;
class MergeForecaster;

class StoriesPanel : public QTreeWidget {
  Q_OBJECT

 public:
  // `storyMenu` is shown on a right click, after the row is selected.
  StoriesPanel(AppState& state, QMenu* storyMenu, QWidget* parent = nullptr);

  // Brings the rows in line with the state: names, kinds, statuses, the
  // selection. Cheap when nothing changed.
  void refresh();
  // Shows the forecaster's forecasts from the next refresh on; none shows none.
  void setForecaster(const MergeForecaster* forecaster);
  // Starts editing the selected story's name.
  void renameSelected();

 signals:
  // The author renamed a story in place; the window makes it an undo step.
  void renameRequested(const inkharbour::Uuid& storyID, const QString& name);

 private:
  void contextMenuEvent(QContextMenuEvent* event) override;
  void onSelectionChanged();
  void onItemChanged(QTreeWidgetItem* item, int column);

  AppState& state_;
  QMenu* storyMenu_;
  const MergeForecaster* forecaster_ = nullptr;
  QString shown_;  // what the rows were last built from
  bool updating_ = false;
};

}  // namespace inkharbour
