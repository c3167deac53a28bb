// The link workflows of AppState: place, link to original, export, update
// from the linked file, push to it, update all.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <system_error>

#include "app/app_state.h"
#include "app/link_status.h"
#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "merge/merge_engine.h"
#include "merge/note_alignment.h"
#include "model/document_file.h"
#include "model/document_json.h"
#include "model/regular_file.h"
#include "writer/docx_writer.h"
#include "writer/text_writer.h"

namespace inkharbour {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kExcelIsOneWay =
    "Excel links are one-way: spreadsheet data merges in, but stories are not pushed back to "
    ".xlsx.";

// Links hold absolute paths, so a document keeps working from another
// working directory.
fs::path absolutePath(const fs::path& path) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  return error ? path : absolute.lexically_normal();
}

bool hasDocxExtension(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".docx";
}

// A linked file that is there but cannot be read (no permission, a FIFO or
// device) is not written over unseen: the push fails and says why.
void requireReadableOrAbsent(const fs::path& path) {
  std::error_code error;
  const int fd = openRegularFile(path, error);
  if (fd >= 0) {
    ::close(fd);
  } else if (error != std::errc::no_such_file_or_directory) {
    throw fs::filesystem_error("Cannot open the file", path, error);
  }
}

template <typename T>
void append(std::vector<T>& to, std::vector<T>&& from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

}  // namespace

bool AppState::fitsInDocumentFile(Story& story) {
  // Counted with the story in its place, indented as it would be saved, and
  // taken out again before anyone is told of a change.
  document_.stories.push_back(std::move(story));
  const bool fits = DocumentJson::leastSize(document_) <= DocumentFile::kMaxBytes;
  story = std::move(document_.stories.back());
  document_.stories.pop_back();
  return fits;
}

void AppState::place(const fs::path& chosen) {
  const fs::path path = absolutePath(chosen);
  // A second "chapter" placed beside the first becomes "chapter 2".
  Story story{.name = unusedStoryName(path.stem().string())};
  std::optional<LinkStatusCache::LinkedRead> read;
  bool damagedNotes = false;
  try {
    try {
      read = statusCache_->read(story.id, path, document_.styleMap);
    } catch (const DocxError&) {
      // Placing takes what it can of a file whose notes part is damaged, as
      // --dump does. That read is not the link's: nothing is remembered, and
      // the link shows missing, as its status reads the file.
      damagedNotes = true;
      auto content = DocxReader::read(path, document_.styleMap);
      const auto digest = linkDigest(content.blocks, content.footnotes);
      read = LinkStatusCache::LinkedRead{.content = std::move(content), .digest = digest};
    }
  } catch (const std::exception& error) {
    fail(error);
    return;
  }
  story.blocks = read->content.blocks;
  story.footnotes = read->content.footnotes;
  story.link = StoryLink{.path = path.string(),
                         .kind = DocxReader::linkKind(path),
                         .baseBlocks = std::move(read->content.blocks),
                         .baseFootnotes = std::move(read->content.footnotes),
                         .lastSync = now()};
  const Uuid id = story.id;
  if (!fitsInDocumentFile(story)) {
    statusCache_->forget(id);
    failWith("\u201c" + path.filename().string() +
             "\u201d cannot be placed: the document file would be larger than 4 GiB, the most "
             "that can be opened again.");
    return;
  }
  statusCache_->setBase(id, read->digest);
  changeDocument();
  document_.stories.push_back(std::move(story));
  selectStory(id);
  setStatus(id, damagedNotes ? LinkStatus::missing : LinkStatus::upToDate);
  bumpReloadToken();
}

void AppState::linkToOriginal(const Uuid& storyID, const fs::path& chosen) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  const fs::path path = absolutePath(chosen);
  changeDocument();
  story->link = StoryLink{.path = path.string(),
                          .kind = DocxReader::linkKind(path),
                          .baseBlocks = story->blocks,
                          .baseFootnotes = story->footnotes,
                          .lastSync = now()};
  statusCache_->forget(storyID);
  refreshLinkStatus(storyID);
}

void AppState::exportStory(const Uuid& storyID, const fs::path& chosen) {
  Story* story = findStory(storyID);
  if (story == nullptr) return;
  fs::path path = absolutePath(chosen);
  if (!hasDocxExtension(path)) path += ".docx";
  try {
    DocxWriter::write(story->blocks, story->footnotes, path);
  } catch (const std::exception& error) {
    fail(error);
    return;
  }
  changeDocument();
  story->link = StoryLink{.path = path.string(),
                          .kind = LinkKind::word,
                          .baseBlocks = story->blocks,
                          .baseFootnotes = story->footnotes,
                          .lastSync = now()};
  statusCache_->forget(storyID);
  setStatus(storyID, LinkStatus::upToDate);
}

void AppState::updateFromLinked(const Uuid& storyID) {
  Story* story = findStory(storyID);
  if (story == nullptr || !story->link) return;
  findMovedFile(*story);
  std::optional<LinkStatusCache::LinkedRead> read;
  try {
    read = statusCache_->read(storyID, story->link->path, document_.styleMap);
  } catch (const std::exception& error) {
    fail(error);
    return;
  }
  StoryLink& link = *story->link;
  // Under the base's note numbers: notes that another program renumbered
  // merge as the notes they are, and a note new in the file meets no other.
  const auto numbers =
      MergeEngine::alignmentNumbers(read->content.blocks, read->content.footnotes, link.baseBlocks,
                                    link.baseFootnotes, story->footnotes);
  auto external = MergeEngine::renumberNotes(
      {std::move(read->content.blocks), std::move(read->content.footnotes)}, numbers);
  // Renumbering leaves the linkDigest as it was unless some mark's text is
  // not the reader's "[n]" for its note, so a renumbered base is digested afresh.
  const ContentDigest baseDigest =
      numbers.empty() ? read->digest : linkDigest(external.blocks, external.footnotes);
  auto blocks = MergeEngine::merge(link.baseBlocks, story->blocks, external.blocks);
  auto footnotes =
      MergeEngine::mergeFootnotes(link.baseFootnotes, story->footnotes, external.footnotes);

  changeDocument();
  story->blocks = std::move(blocks.blocks);
  story->footnotes = std::move(footnotes.footnotes);
  // Earlier notes stay until the user dismisses them; the report is this merge's alone.
  append(story->notes, std::move(blocks.notes));
  append(story->notes, std::move(footnotes.notes));
  story->lastMergeReport = std::move(blocks.changes);
  append(story->lastMergeReport, std::move(footnotes.changes));
  // The renumbered content, so that story, base and the next read of the
  // file agree on every note's number.
  link.baseBlocks = std::move(external.blocks);
  link.baseFootnotes = std::move(external.footnotes);
  link.lastSync = now();
  statusCache_->setBase(storyID, baseDigest);
  setStatus(storyID, LinkStatus::upToDate);
  bumpReloadToken();
}

void AppState::updateLinkedDocument(const Uuid& storyID) {
  Story* story = findStory(storyID);
  if (story == nullptr || !story->link) return;
  if (story->link->kind == LinkKind::excel) {
    failWith(std::string(kExcelIsOneWay));
    return;
  }
  findMovedFile(*story);
  // A text link gets plain text: a Word package written over the author's
  // .txt would destroy it and leave a link to an unreadable file.
  const bool text = story->link->kind == LinkKind::text;
  ImportResult written;
  try {
    requireReadableOrAbsent(story->link->path);
    if (text) {
      TextWriter::write(story->blocks, story->link->path);
      // Plain text drops formatting and pictures; the base is what the file
      // now holds, so the link reads up to date.
      written = DocxReader::readAs(story->link->path, LinkKind::text, document_.styleMap);
    } else {
      DocxWriter::update(story->blocks, story->footnotes, story->link->path, document_.styleMap);
    }
  } catch (const std::exception& error) {
    fail(error);
    return;
  }
  changeDocument();
  story->link->baseBlocks = text ? std::move(written.blocks) : story->blocks;
  story->link->baseFootnotes = text ? std::vector<Footnote>{} : story->footnotes;
  story->link->lastSync = now();
  // What the file now holds is the reader's business: the next poll reads it.
  statusCache_->forget(storyID);
  setStatus(storyID, LinkStatus::upToDate);
}

void AppState::relink(const Uuid& storyID, const fs::path& chosen) {
  Story* story = findStory(storyID);
  if (story == nullptr || !story->link) return;
  const fs::path path = absolutePath(chosen);
  changeDocument();
  story->link->path = path.string();
  story->link->kind = DocxReader::linkKind(path);
  statusCache_->forget(storyID);
  refreshLinkStatus(storyID);
}

void AppState::updateAllLinks() {
  std::vector<Uuid> modified;
  for (const auto& story : document_.stories) {
    const auto status = linkStatuses_.find(story.id);
    if (status != linkStatuses_.end() && status->second == LinkStatus::modified) {
      modified.push_back(story.id);
    }
  }
  for (const auto& id : modified) updateFromLinked(id);
}

}  // namespace inkharbour
