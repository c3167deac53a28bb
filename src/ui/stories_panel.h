// The stories panel: every story in document order with its name, the kind
// of its link and the link's status (icon and word), the linked path as a
// tooltip, rename in place and a context menu of the story's commands.
// Selecting a row selects the story in AppState.
#pragma once

#include <QTreeWidget>

namespace inkharbour {

class AppState;

class StoriesPanel : public QTreeWidget {
  Q_OBJECT

 public:
  // `storyMenu` is shown on a right click, after the row is selected.
  StoriesPanel(AppState& state, QMenu* storyMenu, QWidget* parent = nullptr);

  // Brings the rows in line with the state: names, kinds, statuses, the
  // selection. Cheap when nothing changed.
  void refresh();
  // Starts editing the selected story's name.
  void renameSelected();

 private:
  void contextMenuEvent(QContextMenuEvent* event) override;
  void onSelectionChanged();
  void onItemChanged(QTreeWidgetItem* item, int column);

  AppState& state_;
  QMenu* storyMenu_;
  QString shown_;  // what the rows were last built from
  bool updating_ = false;
};

}  // namespace inkharbour
