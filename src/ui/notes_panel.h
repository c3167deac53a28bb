// The Story Notes panel: each note of the selected story (local text that
// lost a merge conflict) with its place, the local and the external text,
// and the buttons Use Mine and Dismiss.
#pragma once

#include <QScrollArea>

#include "model/uuid.h"

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

 signals:
  // Dismiss was pressed; the window makes it an undo step.
  void dismissRequested(const inkharbour::Uuid& storyID, const inkharbour::Uuid& noteID);
  // Use mine was pressed: the note's text is to go back in place of the
  // external text; the window makes it an undo step.
  void useMineRequested(const inkharbour::Uuid& storyID, const inkharbour::Uuid& noteID);

 private:
  AppState& state_;
  QWidget* content_;
  QVBoxLayout* layout_;
  QLabel* empty_;
  QString shown_;
};

}  // namespace inkharbour
