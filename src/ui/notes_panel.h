// The Story Notes panel: each note of the selected story (local text that
// lost a merge conflict) with its place, the local and the external text,
// and a Dismiss button.
#pragma once

#include <QScrollArea>

class QVBoxLayout;
class QLabel;

namespace inkharbour {

class AppState;

class NotesPanel : public QScrollArea {
  Q_OBJECT

 public:
  explicit NotesPanel(AppState& state, QWidget* parent = nullptr);

  // Shows the selected story's notes; cheap when they did not change.
  void refresh();

 private:
  AppState& state_;
  QWidget* content_;
  QVBoxLayout* layout_;
  QLabel* empty_;
  QString shown_;
};

}  // namespace inkharbour
