// The find bar under the story editor: a search field, Previous and Next,
// Match Case (off by default) and the number of hits, and on request a
// replace row (Replace, Replace All). Hits are highlighted without touching
// the story or its undo; each replacement is one undo step.
#pragma once

#include <QWidget>

class QLineEdit;
class QCheckBox;
class QLabel;

namespace inkharbour {

class StoryEditor;

class FindBar : public QWidget {
  Q_OBJECT

 public:
  FindBar(StoryEditor& editor, QWidget* parent = nullptr);

  // Shows the bar with the editor's selected text (if any) and focuses the field.
  void open();
  // The same, with the replace row.
  void openReplace();
  // Replaces the selected hit and selects the next; replaces every hit.
  void replace();
  void replaceAll();
  void close();
  // Selects the next (or previous) hit, wrapping around; opens the bar
  // first when it has nothing to look for.
  void findNext();
  void findPrevious();
  // Highlights the hits again (after the story changed).
  void updateHighlight();
  // Shows the bar looking for `text`, with its hits highlighted.
  void showFor(const QString& text, bool caseSensitive);

 signals:
  // A replacement is about to change the story: the name of its undo step.
  void replacing(const QString& undoText);

 private:
  void keyPressEvent(QKeyEvent* event) override;
  void find(bool backward);

  StoryEditor& editor_;
  QLineEdit* field_;
  QCheckBox* matchCase_;
  QLabel* count_;
  QWidget* replaceRow_;
  QLineEdit* replacement_;
};

}  // namespace inkharbour
