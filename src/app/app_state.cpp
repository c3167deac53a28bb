#include "app/app_state.h"

#include <algorithm>
#include <set>

#include "app/link_status.h"
#include "app/use_mine.h"
#include "importers/docx_error.h"
#include "model/document_file.h"

namespace inkharbour {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNewStoryName = "Untitled Story";

// The folder holding the file at `path`, absolute.
fs::path folderOf(const fs::path& path) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  return (error ? path : absolute).lexically_normal().parent_path();
}

// Gives each story or block whose id an earlier one has a fresh id.
AppState::RenewedIds renewDuplicateIds(ProjectDocument& document) {
  AppState::RenewedIds renewed;
  std::set<Uuid> storyIDs;
  for (auto& story : document.stories) {
    if (!storyIDs.insert(story.id).second) {
      do {
        story.id = Uuid::random();
      } while (!storyIDs.insert(story.id).second);
      renewed.stories.push_back(story.id);
    }
  }
  for (auto& story : document.stories) {
    std::set<Uuid> blockIDs;
    std::size_t count = 0;
    for (auto& block : story.blocks) {
      if (blockIDs.insert(block.id).second) continue;
      do {
        block.id = Uuid::random();
      } while (!blockIDs.insert(block.id).second);
      ++count;
    }
    if (count > 0) renewed.blocks.emplace_back(story.id, count);
  }
  return renewed;
}

}  // namespace

AppState::AppState() : statusCache_(std::make_unique<LinkStatusCache>()) {}

AppState::~AppState() = default;

void AppState::setObserver(std::function<void()> willChange) {
  observer_ = std::move(willChange);
}

std::optional<std::size_t> AppState::selectedStoryIndex() const {
  if (!selectedStoryID_) return std::nullopt;
  for (std::size_t i = 0; i < document_.stories.size(); ++i) {
    if (document_.stories[i].id == *selectedStoryID_) return i;
  }
  return std::nullopt;
}

std::size_t AppState::modifiedLinkCount() const {
  return static_cast<std::size_t>(
      std::count_if(linkStatuses_.begin(), linkStatuses_.end(),
                    [](const auto& entry) { return entry.second == LinkStatus::modified; }));
}

// --- Private helpers ---------------------------------------------------------

Story* AppState::findStory(const Uuid& storyID) {
  for (auto& story : document_.stories) {
    if (story.id == storyID) return &story;
  }
  return nullptr;
}

std::string AppState::unusedStoryName(const std::string& name) const {
  auto taken = [&](const std::string& candidate) {
    return std::any_of(document_.stories.begin(), document_.stories.end(),
                       [&](const Story& story) { return story.name == candidate; });
  };
  std::string unused = name;
  for (int number = 2; taken(unused); ++number) unused = name + " " + std::to_string(number);
  return unused;
}

bool AppState::findMovedFile(Story& story) {
  if (!story.link || !documentFolder_ || !document_.documentFolder) return false;
  const fs::path stored(story.link->path);
  if (FileIdentity::of(stored)) return false;
  // Relative to the folder the document was saved in, the path may climb out
  // of it ("../sources/a.docx"): a project is often more than one folder.
  const fs::path relative = stored.lexically_relative(*document_.documentFolder);
  if (relative.empty()) return false;
  const fs::path found = (*documentFolder_ / relative).lexically_normal();
  if (found == stored || !FileIdentity::of(found)) return false;
  changeDocument();
  story.link->path = found.string();
  statusCache_->forget(story.id);
  const std::pair<Uuid, std::string> entry{story.id, story.link->path};
  if (std::find(relocated_.begin(), relocated_.end(), entry) == relocated_.end()) {
    relocated_.push_back(entry);
  }
  return true;
}

std::vector<Uuid> AppState::relocatedLinks() const {
  std::vector<Uuid> ids;
  for (const auto& [id, path] : relocated_) {
    const bool stillThere =
        std::any_of(document_.stories.begin(), document_.stories.end(), [&](const Story& story) {
          return story.id == id && story.link && story.link->path == path;
        });
    if (stillThere && std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
  }
  return ids;
}

void AppState::willChange() {
  if (observer_) observer_();
}

void AppState::changeDocument() {
  willChange();
  ++documentRevision_;
}

void AppState::setStatus(const Uuid& storyID, LinkStatus status) {
  willChange();
  linkStatuses_[storyID] = status;
}

void AppState::removeStatus(const Uuid& storyID) {
  willChange();
  linkStatuses_.erase(storyID);
}

void AppState::fail(const std::exception& error) {
  failWith(describeError(error));
}

void AppState::failWith(std::string message) {
  willChange();
  lastError_ = std::move(message);
}

void AppState::bumpReloadToken() {
  willChange();
  ++editorReloadToken_;
}

// --- Setters -------------------------------------------------------------------

void AppState::selectStory(std::optional<Uuid> storyID) {
  willChange();
  selectedStoryID_ = storyID;
}

void AppState::replaceStoryContent(const Uuid& storyID, std::vector<Block> blocks,
                                   std::vector<Footnote> footnotes) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  changeDocument();
  story->blocks = std::move(blocks);
  story->footnotes = std::move(footnotes);
}

void AppState::replaceBlocks(const Uuid& storyID, std::size_t first, std::size_t removed,
                             std::vector<Block> inserted) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  auto& blocks = story->blocks;
  first = std::min(first, blocks.size());
  removed = std::min(removed, blocks.size() - first);
  changeDocument();
  const auto at = blocks.begin() + static_cast<std::ptrdiff_t>(first);
  // Overwrite in place where the counts allow, so a keystroke moves no block.
  const std::size_t common = std::min(removed, inserted.size());
  std::move(inserted.begin(), inserted.begin() + static_cast<std::ptrdiff_t>(common), at);
  if (removed > common) {
    blocks.erase(at + static_cast<std::ptrdiff_t>(common), at + static_cast<std::ptrdiff_t>(removed));
  } else if (inserted.size() > common) {
    blocks.insert(at + static_cast<std::ptrdiff_t>(common),
                  std::make_move_iterator(inserted.begin() + static_cast<std::ptrdiff_t>(common)),
                  std::make_move_iterator(inserted.end()));
  }
}

void AppState::replaceFootnote(const Uuid& storyID, Footnote footnote) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  for (auto& existing : story->footnotes) {
    if (existing.id != footnote.id) continue;
    changeDocument();
    existing = std::move(footnote);
    return;
  }
}

void AppState::renameStory(const Uuid& storyID, std::string name) {
  Story* story = findStory(storyID);
  if (story == nullptr || name.empty() || story->name == name) return;
  changeDocument();
  story->name = std::move(name);
}

void AppState::reportError(std::string message) {
  failWith(std::move(message));
}

void AppState::clearLastError() {
  willChange();
  lastError_.reset();
}

// --- Link statuses -----------------------------------------------------------

void AppState::refreshLinkStatus(const Uuid& storyID) {
  Story* story = findStory(storyID);
  if (story == nullptr || !story->link) {
    statusCache_->forget(storyID);
    removeStatus(storyID);
    return;
  }
  auto status = statusCache_->decide(storyID, *story->link, document_.styleMap);
  // Looked for only once the link shows missing: a present file costs no extra stat().
  if (status == LinkStatus::missing && findMovedFile(*story)) {
    status = statusCache_->decide(storyID, *story->link, document_.styleMap);
  }
  setStatus(storyID, status);
}

void AppState::refreshAllLinkStatuses() {
  std::vector<Uuid> ids;
  ids.reserve(document_.stories.size());
  for (const auto& story : document_.stories) ids.push_back(story.id);
  for (const auto& id : ids) refreshLinkStatus(id);
}

std::vector<LinkReadRequest> AppState::pollWithoutReading() {
  std::vector<Uuid> ids;
  ids.reserve(document_.stories.size());
  for (const auto& story : document_.stories) ids.push_back(story.id);
  std::vector<LinkReadRequest> reads;
  for (const auto& id : ids) {
    Story* story = findStory(id);
    if (story == nullptr || !story->link) {
      statusCache_->forget(id);
      removeStatus(id);
      continue;
    }
    auto next = statusCache_->poll(id, *story->link, document_.styleMap);
    const auto* decided = std::get_if<LinkStatus>(&next);
    if (decided && *decided == LinkStatus::missing && findMovedFile(*story)) {
      next = statusCache_->poll(id, *story->link, document_.styleMap);
    }
    if (const auto* status = std::get_if<LinkStatus>(&next)) {
      setStatus(id, *status);
    } else {
      reads.push_back(std::move(std::get<LinkReadRequest>(next)));
    }
  }
  return reads;
}

LinkReadResult AppState::readLinkedFile(const LinkReadRequest& request) {
  return inkharbour::readLinkedFile(request);
}

void AppState::applyLinkRead(const LinkReadResult& result) {
  const Uuid& id = result.ticket.storyID;
  const Story* story = findStory(id);
  if (story == nullptr || !story->link ||
      std::filesystem::path(story->link->path) != result.ticket.path) {
    return;
  }
  if (const auto status = statusCache_->apply(result)) setStatus(id, *status);
}

// --- Document operations -----------------------------------------------------

void AppState::newStory() {
  Story story{.name = unusedStoryName(std::string(kNewStoryName)),
              .blocks = {Block{.kind = Paragraph::make("Body", "")}}};
  const Uuid id = story.id;
  changeDocument();
  document_.stories.push_back(std::move(story));
  selectStory(id);
  bumpReloadToken();
}

void AppState::deleteStory(const Uuid& storyID) {
  auto& stories = document_.stories;
  const auto found = std::find_if(stories.begin(), stories.end(),
                                  [&](const Story& story) { return story.id == storyID; });
  if (found == stories.end()) return;
  const auto index = static_cast<std::size_t>(found - stories.begin());
  const bool wasSelected = selectedStoryID_ == storyID;
  changeDocument();
  stories.erase(found);
  statusCache_->forget(storyID);
  removeStatus(storyID);
  if (!wasSelected) return;
  std::optional<Uuid> next;
  if (index < stories.size()) {
    next = stories[index].id;
  } else if (index > 0) {
    next = stories[index - 1].id;
  }
  selectStory(next);
  bumpReloadToken();
}

void AppState::unlink(const Uuid& storyID) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  if (story->link) {
    changeDocument();
    story->link.reset();
  }
  statusCache_->forget(storyID);
  removeStatus(storyID);
}

void AppState::dismissNote(const Uuid& storyID, const Uuid& noteID) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  auto& notes = story->notes;
  const auto found = std::find_if(notes.begin(), notes.end(),
                                  [&](const ConflictNote& note) { return note.id == noteID; });
  if (found == notes.end()) return;
  changeDocument();
  notes.erase(found);
}

void AppState::useMine(const Uuid& storyID, const Uuid& noteID) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  // Checked first, so that the observer still sees the story as it was.
  if (auto refusal = useMineRefusal(*story, noteID)) {
    failWith(std::move(*refusal));
    return;
  }
  changeDocument();
  inkharbour::useMine(*story, noteID);
  bumpReloadToken();
}

void AppState::updateTable(const Uuid& storyID, const Uuid& blockID, Table newTable) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  for (auto& block : story->blocks) {
    if (block.id != blockID) continue;
    if (!std::holds_alternative<Table>(block.kind)) return;
    changeDocument();
    block.kind = std::move(newTable);
    bumpReloadToken();
    return;
  }
}

std::vector<Uuid> AppState::storyIDs() const {
  std::vector<Uuid> ids;
  ids.reserve(document_.stories.size());
  for (const auto& story : document_.stories) ids.push_back(story.id);
  return ids;
}

std::vector<AppState::StorySlot> AppState::snapshot(const std::vector<Uuid>& storyIDs) const {
  std::vector<StorySlot> slots;
  for (const auto& id : storyIDs) {
    StorySlot slot{.id = id};
    for (std::size_t i = 0; i < document_.stories.size(); ++i) {
      if (document_.stories[i].id != id) continue;
      slot.index = i;
      slot.story = document_.stories[i];
      if (const auto status = linkStatuses_.find(id); status != linkStatuses_.end()) {
        slot.status = status->second;
      }
      break;
    }
    slots.push_back(std::move(slot));
  }
  return slots;
}

void AppState::restore(const std::vector<StorySlot>& slots) {
  auto& stories = document_.stories;
  changeDocument();
  // Removals first, then insertions from the front, so that each story
  // lands at the index it had.
  for (const auto& slot : slots) {
    if (slot.story) continue;
    std::erase_if(stories, [&](const Story& story) { return story.id == slot.id; });
    statusCache_->forget(slot.id);
    removeStatus(slot.id);
  }
  std::vector<const StorySlot*> present;
  for (const auto& slot : slots) {
    if (slot.story) present.push_back(&slot);
  }
  std::sort(present.begin(), present.end(),
            [](const StorySlot* a, const StorySlot* b) { return a->index < b->index; });
  for (const StorySlot* slot : present) {
    Story* existing = findStory(slot->id);
    if (existing != nullptr) {
      *existing = *slot->story;
    } else {
      const std::size_t at = std::min(slot->index, stories.size());
      stories.insert(stories.begin() + static_cast<std::ptrdiff_t>(at), *slot->story);
    }
    // The cache's digests may belong to the base snapshot undone: read anew.
    statusCache_->forget(slot->id);
    if (slot->story->link && slot->status) {
      setStatus(slot->id, *slot->status);
    } else {
      removeStatus(slot->id);
    }
  }
  if (!selectedStoryIndex()) {
    std::optional<Uuid> next;
    if (!present.empty()) {
      next = present.front()->id;
    } else if (!stories.empty()) {
      next = stories.front().id;
    }
    selectStory(next);
  }
  bumpReloadToken();
}

void AppState::setStyleMap(StyleMap styleMap) {
  if (document_.styleMap == styleMap) return;
  changeDocument();
  document_.styleMap = std::move(styleMap);
  // Statuses read with the old map may differ under the new one.
  statusCache_->clear();
}

void AppState::newDocument() {
  changeDocument();
  document_ = ProjectDocument{};
  documentFolder_.reset();
  relocated_.clear();
  renewedIds_ = {};
  statusCache_->clear();
  willChange();
  linkStatuses_.clear();
  selectStory(std::nullopt);
  bumpReloadToken();
}

void AppState::openDocument(const std::filesystem::path& path) {
  ProjectDocument opened;
  try {
    opened = DocumentFile::read(path);
  } catch (const std::exception& error) {
    fail(error);
    return;
  }
  RenewedIds renewed = renewDuplicateIds(opened);
  changeDocument();
  document_ = std::move(opened);
  renewedIds_ = std::move(renewed);
  documentFolder_ = folderOf(path);
  relocated_.clear();
  // Statuses and cached digests belong to the old document; the same story
  // ids may well come back (the same file opened again) with other bases.
  statusCache_->clear();
  willChange();
  linkStatuses_.clear();
  selectStory(document_.stories.empty() ? std::nullopt
                                        : std::optional<Uuid>(document_.stories.front().id));
  bumpReloadToken();
  refreshAllLinkStatuses();
}

void AppState::saveDocument(const std::filesystem::path& path) {
  const fs::path folder = folderOf(path);
  // The file records where it is, which a later open compares with where it
  // is then; the in-memory document says the same as the file.
  std::optional<std::string> previous = folder.string();
  willChange();
  document_.documentFolder.swap(previous);
  try {
    DocumentFile::write(document_, path);
  } catch (const std::exception& error) {
    document_.documentFolder.swap(previous);
    fail(error);
    return;
  }
  documentFolder_ = folder;
  relocated_.clear();
}

}  // namespace inkharbour
