// The change review ("Last Merge — Change Review"): the selected story's
// last merge report, one row per record with its kind as an icon and a
// word and its summary, and below it the selected record's local and
// external texts side by side with the words that differ highlighted.
//
// Selecting a record says so, and names the block of the story it concerns
// when one can be found: the block that cites the footnote a footnote record
// is about, or the blocks whose text is the record's text as the merge left
// it (the external text of a taken edit or conflict, the local text of a
// kept edit). The pane holds no copy of the report; it rebuilds its rows
// only when the story or the report's records change.
#pragma once

#include <QIcon>
#include <QWidget>
#include <optional>
#include <vector>

#include "model/story.h"

class QLabel;
class QStackedWidget;
class QTextBrowser;
class QTreeWidget;
class QTreeWidgetItem;

namespace inkharbour {

class AppState;

// The word that names a kind of change, and its icon (told apart by shape
// and symbol as well as colour).
QString changeKindWord(ChangeRecord::Kind kind);
QIcon changeKindIcon(ChangeRecord::Kind kind);

// The first block of the story that the record concerns; none when it
// cannot be told.
std::optional<Uuid> blockOfRecord(const Story& story, const ChangeRecord& record);

class ChangeReview : public QWidget {
  Q_OBJECT

 public:
  explicit ChangeReview(AppState& state, QWidget* parent = nullptr);

  // Shows the selected story's last merge report; does nothing when neither
  // the story nor its records changed, so it can follow every model change.
  void refresh();

 signals:
  // A record was selected (or activated again).
  void recordActivated(const inkharbour::Uuid& recordID);
  // The block that the selected record concerns.
  void blockRequested(const inkharbour::Uuid& blockID);

 private:
  // Shows the item's record and announces it.
  void showRecord(QTreeWidgetItem* item);
  const Story* story() const;

  AppState& state_;
  QStackedWidget* pages_;
  QLabel* explanation_;
  QTreeWidget* records_;
  QLabel* heading_;
  QTextBrowser* local_;
  QTextBrowser* external_;
  bool shown_ = false;
  std::optional<Uuid> shownStory_;
  std::vector<Uuid> shownRecords_;
  bool populating_ = false;
};

}  // namespace inkharbour
