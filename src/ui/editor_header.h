// The strip above the story editor: the story's name, its linked file and
// the link's status (icon and word, then a modified link's merge forecast,
// small and grey), with buttons for what applies now:
// Update Link while the file is modified, Relink while it is missing, Push
// Edits for a Word or text link, and the change review once a merge has left
// a report.
#pragma once

#include <QWidget>

class QAction;
class QLabel;
class QToolButton;

namespace inkharbour {

class AppState;
class MergeForecaster;

class EditorHeader : public QWidget {
  Q_OBJECT

 public:
  EditorHeader(AppState& state, QAction* updateLink, QAction* relink, QAction* pushEdits,
               QAction* review, QWidget* parent = nullptr);

  void refresh();
  // Shows the forecaster's forecasts from the next refresh on; none shows none.
  void setForecaster(const MergeForecaster* forecaster) { forecaster_ = forecaster; }

 private:
  void resizeEvent(QResizeEvent* event) override;
  void elidePath();

  AppState& state_;
  QLabel* name_;
  QLabel* path_;
  QLabel* statusIcon_;
  QLabel* status_;
  QLabel* forecast_;
  QToolButton* update_;
  QToolButton* relink_;
  QToolButton* push_;
  QToolButton* review_;
  QString fullPath_;
  const MergeForecaster* forecaster_ = nullptr;
};

}  // namespace inkharbour
