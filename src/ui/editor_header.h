// The strip above the story editor: the story's name, its linked file and
// the link's status (icon and word), with buttons for what applies now:
// Update Link while the file is modified, Push Edits for a Word link.
#pragma once

#include <QWidget>

class QAction;
class QLabel;
class QToolButton;

namespace inkharbour {

class AppState;

class EditorHeader : public QWidget {
  Q_OBJECT

 public:
  EditorHeader(AppState& state, QAction* updateLink, QAction* pushEdits,
               QWidget* parent = nullptr);

  void refresh();

 private:
  void resizeEvent(QResizeEvent* event) override;
  void elidePath();

  AppState& state_;
  QLabel* name_;
  QLabel* path_;
  QLabel* statusIcon_;
  QLabel* status_;
  QToolButton* update_;
  QToolButton* push_;
  QString fullPath_;
};

}  // namespace inkharbour
