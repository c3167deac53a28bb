#include "ui/undo_commands.h"

#include <algorithm>


namespace inkharbour {

namespace {

constexpr int kTypingID = 1;
// A step of more edits than this is shown by loading the story again.
constexpr std::size_t kShownEdits = 64;
// Keystrokes further apart than this start a new undo step.
constexpr auto kTypingPause = std::chrono::seconds(2);

}  // namespace

DocumentCommand::DocumentCommand(AppState& state, const QString& text, std::vector<Uuid> touched,
                                 std::function<void()> operation)
    : QUndoCommand(text), state_(state), touched_(std::move(touched)),
      operation_(std::move(operation)) {}

void DocumentCommand::redo() {
  if (done_) {
    state_.restore(after_);
    return;
  }
  done_ = true;
  const std::vector<Uuid> idsBefore = state_.storyIDs();
  before_ = state_.snapshot(touched_);
  const auto revision = state_.documentRevision();
  operation_();
  operation_ = nullptr;
  if (state_.documentRevision() == revision) {
    setObsolete(true);
    return;
  }
  // Stories the operation added were not there before.
  for (const auto& id : state_.storyIDs()) {
    if (std::find(idsBefore.begin(), idsBefore.end(), id) == idsBefore.end() &&
        std::find(touched_.begin(), touched_.end(), id) == touched_.end()) {
      touched_.push_back(id);
      before_.push_back(AppState::StorySlot{.id = id});
    }
  }
  after_ = state_.snapshot(touched_);
}

void DocumentCommand::undo() {
  state_.restore(before_);
}

StyleMapCommand::StyleMapCommand(AppState& state, StyleMap styleMap)
    : QUndoCommand(QObject::tr("Edit Style Mapping")),
      state_(state),
      before_(state.document().styleMap),
      after_(std::move(styleMap)) {}

void StyleMapCommand::redo() {
  state_.setStyleMap(after_);
}

void StyleMapCommand::undo() {
  state_.setStyleMap(before_);
}

TextEditCommand::TextEditCommand(AppState& state, ShowEdit showEdit, Reload reload, Uuid storyID,
                                 std::vector<BlockEdit> edits, bool typing, const QString& text)
    : QUndoCommand(text),
      state_(state),
      showEdit_(std::move(showEdit)),
      reload_(std::move(reload)),
      storyID_(storyID),
      edits_(std::move(edits)),
      typing_(typing),
      last_(std::chrono::steady_clock::now()) {}

// The model changes first; the editor shows the same change when it shows
// the story, else it loads the story when it is selected.
void TextEditCommand::apply(std::size_t first, std::size_t removed,
                            const std::vector<Block>& inserted, bool show) {
  state_.replaceBlocks(storyID_, first, removed, inserted);
  if (show) showEdit_(storyID_, first, removed, inserted);
}

void TextEditCommand::redo() {
  if (!done_) {
    done_ = true;  // the author's own edit is in the editor and the model already
    return;
  }
  if (state_.selectedStoryID() != storyID_) state_.selectStory(storyID_);
  const bool oneByOne = edits_.size() <= kShownEdits;
  for (const auto& edit : edits_) apply(edit.first, edit.removed.size(), edit.inserted, oneByOne);
  if (!oneByOne) reload_(storyID_);
}

void TextEditCommand::undo() {
  if (state_.selectedStoryID() != storyID_) state_.selectStory(storyID_);
  const bool oneByOne = edits_.size() <= kShownEdits;
  for (auto edit = edits_.rbegin(); edit != edits_.rend(); ++edit) {
    apply(edit->first, edit->inserted.size(), edit->removed, oneByOne);
  }
  if (!oneByOne) reload_(storyID_);
}

int TextEditCommand::id() const {
  return typing_ ? kTypingID : -1;
}

bool TextEditCommand::mergeWith(const QUndoCommand* other) {
  const auto* next = static_cast<const TextEditCommand*>(other);
  if (!next->typing_ || next->storyID_ != storyID_ ||
      next->last_ - last_ > kTypingPause) {
    return false;
  }
  edits_.insert(edits_.end(), next->edits_.begin(), next->edits_.end());
  last_ = next->last_;
  return true;
}

}  // namespace inkharbour
