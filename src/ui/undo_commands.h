// The undo steps of the window. Every change of the document is one
// QUndoCommand on the document's stack, so that Edit ▸ Undo takes back
// exactly the last thing the author did, whatever it was.
//
// Document operations are undone by snapshots: the stories an operation
// touches are copied before it runs and after, and undo or redo puts one copy
// back (a story it added is found by comparing the story ids before and after).
// Text edits are undone by the block stretches they replaced, so that undoing
// a keystroke in a book touches one paragraph, not the book.
#pragma once

#include <QUndoCommand>
#include <chrono>
#include <functional>
#include <vector>

#include "app/app_state.h"

namespace inkharbour {

class DocumentCommand : public QUndoCommand {
 public:
  // `operation` runs on the first redo (when the command is pushed). The
  // command makes itself obsolete, and so is dropped by the stack, when the
  // operation changed nothing (a failure, a cancelled panel).
  DocumentCommand(AppState& state, const QString& text, std::vector<Uuid> touched,
                  std::function<void()> operation);

  void redo() override;
  void undo() override;

 private:
  AppState& state_;
  std::vector<Uuid> touched_;
  std::function<void()> operation_;
  std::vector<AppState::StorySlot> before_;
  std::vector<AppState::StorySlot> after_;
  bool done_ = false;
};

// Editing the custom Word style map.
class StyleMapCommand : public QUndoCommand {
 public:
  StyleMapCommand(AppState& state, StyleMap styleMap);

  void redo() override;
  void undo() override;

 private:
  AppState& state_;
  StyleMap before_;
  StyleMap after_;
};

// One stretch of blocks an edit in the editor replaced.
struct BlockEdit {
  std::size_t first = 0;
  std::vector<Block> removed;
  std::vector<Block> inserted;
};

// A text edit of the story editor: typing (consecutive keystrokes merge into
// one step), formatting, a paste, a cut. Its first redo is the edit the
// author already made; later ones apply it again.
class TextEditCommand : public QUndoCommand {
 public:
  // Shows a replacement in the editor when the editor shows that story.
  using ShowEdit = std::function<void(const Uuid& storyID, std::size_t first, std::size_t removed,
                                      const std::vector<Block>& inserted)>;

  // Shows the story anew, for a step of many edits (a Replace All), which is
  // quicker to load again than to show one by one.
  using Reload = std::function<void(const Uuid& storyID)>;

  TextEditCommand(AppState& state, ShowEdit showEdit, Reload reload, Uuid storyID,
                  std::vector<BlockEdit> edits, bool typing, const QString& text);

  void redo() override;
  void undo() override;
  int id() const override;
  bool mergeWith(const QUndoCommand* other) override;

 private:
  void apply(std::size_t first, std::size_t removed, const std::vector<Block>& inserted,
             bool show);

  AppState& state_;
  ShowEdit showEdit_;
  Reload reload_;
  Uuid storyID_;
  std::vector<BlockEdit> edits_;
  bool typing_;
  bool done_ = false;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace inkharbour
