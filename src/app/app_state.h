// AppState: the one application object that the interface reads and drives.
// It owns the open document, the selected story, the status of every story's
// link, the last error text and the editor's reload counter, and it carries
// out every user-level operation on them: new, open, save, delete, unlink,
// table edits, and the link workflows (place, link to original, export, update
// from the linked file, push to it, update all).
//
// Operations never throw. A failure puts its user-facing text into
// lastError() (a reader's DocxError message, a document file's error, or a
// file-system failure described by describeError) and leaves the document as
// it was. An unknown story id, or a story without a link where one is needed,
// ends an operation silently. Deciding link statuses never writes lastError().
//
// There is no timer here: the interface polls every two seconds, either with
// tick() (the command line) or, so that reading a changed book never holds up
// the window, with pollWithoutReading(), readLinkedFile() on a worker thread
// and applyLinkRead(). Thanks to the status cache a poll costs one stat() per
// unchanged linked file. Single-threaded, like everything in the core:
// readLinkedFile() alone may run on another thread, and it works on copies.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/story.h"

namespace inkharbour {

class LinkStatusCache;
struct LinkReadRequest;  // app/link_status.h
struct LinkReadResult;

class AppState {
 public:
  // The file name extensions that placing and linking to an original accept,
  // in the order the open panel lists them: Word, Excel, plain text.
  static constexpr std::array<std::string_view, 3> kPlaceableExtensions = {"docx", "xlsx", "txt"};

  // An empty document, nothing selected, no statuses, no error, token 0.
  AppState();
  ~AppState();
  AppState(const AppState&) = delete;
  AppState& operator=(const AppState&) = delete;

  // --- Published fields ------------------------------------------------------

  const ProjectDocument& document() const { return document_; }
  std::optional<Uuid> selectedStoryID() const { return selectedStoryID_; }
  // The last decided status of each linked story; no entry means not linked
  // or not decided yet.
  const std::map<Uuid, LinkStatus>& linkStatuses() const { return linkStatuses_; }
  // The message for the last failed operation. Kept until the next failure
  // or clearLastError().
  const std::optional<std::string>& lastError() const { return lastError_; }
  // Increased whenever the content the editor shows changes other than by
  // the editor itself; the editor then reloads the selected story.
  std::int64_t editorReloadToken() const { return editorReloadToken_; }
  // Increased by every change of the document's content (not of selection,
  // statuses or errors); the window compares it with the value at the last
  // save to tell whether there are unsaved changes.
  std::uint64_t documentRevision() const { return documentRevision_; }

  // `willChange` is called before every write of a published field, even one
  // that writes the same value again, while the old value is still readable.
  // It must not call back into operations that change the state.
  void setObserver(std::function<void()> willChange);

  // --- Derived ---------------------------------------------------------------

  // The position of the first story with the selected id; none when nothing
  // is selected or no story has that id.
  std::optional<std::size_t> selectedStoryIndex() const;
  // The number of links whose status is modified.
  std::size_t modifiedLinkCount() const;

  // --- What the editor and the lists set -------------------------------------

  // Selects a story (any id; none clears the selection).
  void selectStory(std::optional<Uuid> storyID);
  // The editor's edits: replaces the story's blocks and footnotes. The link
  // and its status stay as they are, and the reload token does not change,
  // since the editor already shows this content.
  void replaceStoryContent(const Uuid& storyID, std::vector<Block> blocks,
                           std::vector<Footnote> footnotes);
  // The editor's edit of a stretch: blocks [first, first + removed) of the
  // story give way to `inserted`. Out-of-range stretches are clamped.
  void replaceBlocks(const Uuid& storyID, std::size_t first, std::size_t removed,
                     std::vector<Block> inserted);
  // Replaces the footnote with the same number; nothing when there is none.
  void replaceFootnote(const Uuid& storyID, Footnote footnote);
  // Gives the story a new display name; an empty name is refused silently.
  void renameStory(const Uuid& storyID, std::string name);
  void clearLastError();
  // Shows a message of the interface's own as the last error (for example
  // one line for several failed places).
  void reportError(std::string message);

  // --- Link statuses ---------------------------------------------------------

  // Re-decides one story's status: no entry for an unknown or unlinked
  // story; a link whose file is gone is first looked for beside the moved
  // document (see relocatedLinks); missing when no regular file is at the
  // path (a FIFO, device or folder is never opened) or it cannot be read;
  // upToDate when its content fingerprints equal those of the link's base
  // snapshot; modified otherwise. Local edits never enter the decision.
  void refreshLinkStatus(const Uuid& storyID);
  // refreshLinkStatus for every story, in story order.
  void refreshAllLinkStatuses();
  // One poll of the interface's two-second timer.
  void tick() { refreshAllLinkStatuses(); }

  // --- Link statuses without blocking ----------------------------------------
  // tick() in three steps: the statuses end up as tick() would have set them.

  // Sets, as refreshLinkStatus would, every status that needs no read (at
  // the cost of a stat() per linked file): missing when no regular file is at
  // the path (a FIFO, device, socket or folder is never opened), or the
  // status of a file unchanged since a trusted read. Returns one request per
  // linked file that must be read; those statuses stay as they are until the
  // result is applied. Unlinked and unknown stories lose their entries.
  // Digests no base snapshot: a request carries a copy of the base when its
  // digest is not known yet. A file whose result is not applied yet is asked
  // for again, so the caller polls again only once the reads are in.
  std::vector<LinkReadRequest> pollWithoutReading();
  // Reads one requested file and digests it: pure, safe on any thread, never
  // throws (see readLinkedFile in app/link_status.h).
  static LinkReadResult readLinkedFile(const LinkReadRequest& request);
  // Sets the status the read gives and remembers the read, exactly as
  // refreshLinkStatus would have. A stale result is ignored, and the next
  // poll asks again: the story is gone or unlinked, its link has another
  // path, or its link status was decided or changed since the request
  // (openDocument, updateFromLinked, updateLinkedDocument, linkToOriginal,
  // a refresh).
  void applyLinkRead(const LinkReadResult& result);

  // --- Document operations ---------------------------------------------------

  // Appends an unlinked story named "Untitled Story" ("Untitled Story 2", 3,
  // ... when the name is taken) holding one empty "Body" paragraph, and
  // selects it.
  void newStory();
  // Removes the story and its status. When it was selected, the story that
  // takes its place is selected, else the one before it, else none.
  void deleteStory(const Uuid& storyID);
  // Drops the story's link and status; its content and notes stay.
  void unlink(const Uuid& storyID);
  // Removes one Story Note.
  void dismissNote(const Uuid& storyID, const Uuid& noteID);
  // "Use mine": the note's local text takes the place of the external text
  // that won, and the note goes. When that place has changed since the
  // merge, nothing changes and lastError() says why.
  void useMine(const Uuid& storyID, const Uuid& noteID);
  // Replaces the table of a table block (the table editor's result).
  void updateTable(const Uuid& storyID, const Uuid& blockID, Table newTable);
  // Replaces the document with an empty one: no stories, no statuses, nothing
  // selected.
  void newDocument();
  // Replaces the document with the file's, selects its first story and
  // decides every link's status at once. On failure the open document stays.
  void openDocument(const std::filesystem::path& path);
  // Writes the document to the file, replacing it atomically. The file
  // records its own folder, and links found beside the moved document keep
  // their new paths from now on.
  void saveDocument(const std::filesystem::path& path);

  // --- Moved documents --------------------------------------------------------
  // A project folder moved to another machine or through a sync service
  // takes its linked files along, but the links hold absolute paths. A link
  // whose file is gone from its path is looked for at the same place relative
  // to the document's folder as it was relative to the folder the document
  // was last saved in; when a file is there, the link points at it from then
  // on (status, update, push), and the next save stores that path.

  // The stories whose links were pointed at their files' new places since
  // the document was opened or last saved, in the order they were found.
  // Only stories still linked to the found file count.
  std::vector<Uuid> relocatedLinks() const;

  // --- Ids used twice ----------------------------------------------------------
  // A document file edited by hand or put together by a tool may give two
  // stories, or two blocks of one story, the same id, and then one story's
  // link status would come from the other's file. On open, every story after
  // the first with an id, and every block after the first with an id in its
  // story, gets a fresh id; the next save keeps them.

  struct RenewedIds {
    std::vector<Uuid> stories;                         // their new ids, in story order
    std::vector<std::pair<Uuid, std::size_t>> blocks;  // story id, blocks renewed in it

    bool empty() const { return stories.empty() && blocks.empty(); }
    bool operator==(const RenewedIds&) const = default;
  };
  // What the last open renewed; empty after newDocument().
  const RenewedIds& renewedIds() const { return renewedIds_; }

  // --- Snapshots, for undo ----------------------------------------------------

  // One story as it stood at a moment: its place in the document and its
  // whole value with the status its link had, or no story when it was not in
  // the document.
  struct StorySlot {
    Uuid id;
    std::size_t index = 0;
    std::optional<Story> story;
    std::optional<LinkStatus> status;

    bool operator==(const StorySlot&) const = default;
  };
  // The ids of the stories, in document order.
  std::vector<Uuid> storyIDs() const;
  // The given stories as they stand now.
  std::vector<StorySlot> snapshot(const std::vector<Uuid>& storyIDs) const;
  // Puts the stories back as the slots hold them: replaced, inserted again
  // at their place, or removed. A restored story gets its recorded status
  // back until the next poll reads its file again, and is selected when
  // nothing that exists is; the editor reloads.
  void restore(const std::vector<StorySlot>& slots);
  // Replaces the custom Word style map (the style mapping sheet's result).
  void setStyleMap(StyleMap styleMap);

  // --- Link workflows --------------------------------------------------------

  // Imports the file as a new story linked to it (named after the file
  // without its extension, base snapshot = what was imported, status
  // upToDate), appends it and selects it.
  void place(const std::filesystem::path& path);
  // Links an existing story to a file, replacing any link it had. The base
  // snapshot is the story's own current content, so a file that differs shows
  // as modified: updateFromLinked then takes the file's changes in, while
  // updateLinkedDocument overwrites it. The status is then decided as a poll
  // would; a file that cannot be read shows as missing, with no error.
  void linkToOriginal(const Uuid& storyID, const std::filesystem::path& path);
  // Writes the story to a new Word document (".docx" is appended unless the
  // name already ends so) and links the story to it, up to date.
  void exportStory(const Uuid& storyID, const std::filesystem::path& path);
  // "Update Link": merges the linked file's changes since the base snapshot
  // into the story. Conflict notes are appended to the story's notes, the
  // merge report is replaced, the imported content becomes the new base.
  void updateFromLinked(const Uuid& storyID);
  // "Push Edits": writes the story over its linked Word document; its
  // content becomes the new base. Refused for Excel links, and for a file
  // that is there but cannot be read (no permission, a FIFO or device).
  void updateLinkedDocument(const Uuid& storyID);
  // updateFromLinked for every story whose status is modified, in story order.
  void updateAllLinks();
  // Points the story's link at the file's new place. Unlike linkToOriginal
  // the base snapshot stays, so updateFromLinked still merges three ways and
  // local edits survive it; the link kind follows the new file's extension.
  // The status is then decided as a poll would.
  void relink(const Uuid& storyID, const std::filesystem::path& path);

 private:
  Story* findStory(const Uuid& storyID);
  // `name`, or the first of "name 2", "name 3", ... that no story is called.
  std::string unusedStoryName(const std::string& name) const;
  // Points a link whose file is gone at the file found beside the moved
  // document, if there is one; true when it did.
  bool findMovedFile(Story& story);
  // True when the document with `story` added would still make a file that
  // can be opened again (DocumentFile::kMaxBytes).
  bool fitsInDocumentFile(Story& story);
  void willChange();
  void changeDocument();  // willChange() for a change of the document itself
  void setStatus(const Uuid& storyID, LinkStatus status);
  void removeStatus(const Uuid& storyID);
  void fail(const std::exception& error);
  void failWith(std::string message);
  void bumpReloadToken();

  ProjectDocument document_;
  std::optional<Uuid> selectedStoryID_;
  std::map<Uuid, LinkStatus> linkStatuses_;
  std::optional<std::string> lastError_;
  std::int64_t editorReloadToken_ = 0;
  std::uint64_t documentRevision_ = 0;
  // Where the document file is now: the folder it was opened from or last
  // saved in; none for a document never saved.
  std::optional<std::filesystem::path> documentFolder_;
  // Links found moved since the open or the save: the story and its new path.
  std::vector<std::pair<Uuid, std::string>> relocated_;
  RenewedIds renewedIds_;

  std::function<void()> observer_;
  std::unique_ptr<LinkStatusCache> statusCache_;
};

}  // namespace inkharbour
