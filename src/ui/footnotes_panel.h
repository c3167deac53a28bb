// The footnotes panel: each footnote of the selected story by number, with
// its text; the selected footnote's text is edited below the list and
// reaches the story as the author types (paragraphs are lines).
#pragma once

#include <QWidget>
#include <optional>

#include "model/story.h"

class QListWidget;
class QPlainTextEdit;
class QLabel;
class QTimer;

namespace inkharbour {

class AppState;

class FootnotesPanel : public QWidget {
  Q_OBJECT

 public:
  explicit FootnotesPanel(AppState& state, QWidget* parent = nullptr);

  // Shows the selected story's footnotes; cheap when they did not change.
  void refresh();

 signals:
  // The author changed a footnote's text; the window makes it an undo step.
  void footnoteEdited(const inkharbour::Uuid& storyID, const inkharbour::Footnote& footnote);

 private:
  void showSelected();
  void commit();

  AppState& state_;
  QListWidget* list_;
  QPlainTextEdit* text_;
  QLabel* empty_;
  QTimer* commitTimer_;
  std::optional<Uuid> storyID_;
  std::optional<qint64> editing_;  // the footnote whose text the box holds
  QString shown_;
  bool updating_ = false;
  // The author typed in the text box since it was filled: only then is
  // there anything to write back, so a merged text is never overwritten.
  bool dirty_ = false;
};

}  // namespace inkharbour
