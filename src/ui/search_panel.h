// Find in all stories: every paragraph, table cell and footnote of the
// document that holds the text, as a list; activating a hit selects its
// story and shows the place.
#pragma once

#include <QWidget>

#include "model/uuid.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QTimer;
class QTreeWidget;

namespace inkharbour {

class AppState;

class SearchPanel : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kMaxHits = 500;

  explicit SearchPanel(AppState& state, QWidget* parent = nullptr);

  // Focuses the field with `text` in it and searches.
  void start(const QString& text);
  // Searches again (the field's text, over the document as it is now).
  void search();
  QTreeWidget* results() const { return results_; }

 signals:
  // A hit was chosen: its story, and its block when it is in one.
  void hitActivated(const inkharbour::Uuid& storyID, const inkharbour::Uuid& blockID,
                    const QString& text, bool caseSensitive);

 private:
  AppState& state_;
  QLineEdit* field_;
  QCheckBox* matchCase_;
  QLabel* summary_;
  QTreeWidget* results_;
  QTimer* delay_;
};

}  // namespace inkharbour
