// Link status: whether a linked file still holds the content of the link's
// base snapshot. Content is compared by fingerprint: one string per block (its
// merge key: "P:" + text, "T:" + contentKey, "I:" + image SHA-256) and one per
// footnote (id + ":" + text), so formatting and style names never count.
// Both sides have their notes numbered in reading order first (linkDigest):
// another program that renumbers the notes on saving makes no change.
//
// LinkStatusCache makes the poll cheap. It remembers, per story, the identity
// of the linked file when it was last read and a digest of that file's
// fingerprints, and a digest of the base snapshot's fingerprints. A file whose
// identity is unchanged since a read that cannot have raced with a write is
// not read again, so an unchanged file costs one stat(). The status it gives
// is always the one a full re-read would give.
//
// A decision comes in two halves, so that the window can read a changed file
// on a worker thread: poll() settles everything a stat() can settle and
// otherwise hands out a LinkReadRequest; readLinkedFile() reads on copies and
// touches no cache; apply() takes the result in, unless the cache was told of
// a change to the story's link since the request. decide() is both halves in
// one call.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "importers/docx_reader.h"
#include "model/story.h"

namespace inkharbour {

// The fingerprint of each block, in order: exactly its merge key.
std::vector<std::string> blockFingerprints(const std::vector<Block>& blocks);
// The fingerprint of each footnote, in order: its id in decimal, ":", its text.
std::vector<std::string> footnoteFingerprints(const std::vector<Footnote>& footnotes);

using ContentDigest = std::array<std::uint8_t, 32>;

// SHA-256 over both fingerprint lists, each written as its length followed by
// every string as its length and bytes (lengths as 8 little-endian bytes).
// Two contents have equal digests exactly when both lists are equal.
ContentDigest contentDigest(const std::vector<Block>& blocks,
                            const std::vector<Footnote>& footnotes);

// The digest the status compares: contentDigest of the content with its
// notes and marks renumbered by MergeEngine::readingOrderNumbers, the notes
// listed in that order. Contents that differ only in how their notes are
// numbered (MergeEngine::alignNotes undoes such a difference) or listed get
// equal digests, so a file's digest needs no base to be compared with.
ContentDigest linkDigest(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes);

// What identifies one version of a file without reading it. Any write to
// the file changes the change time; a replacement by rename changes the inode.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modifiedNs = 0;  // nanoseconds since the Unix epoch
  std::int64_t changedNs = 0;

  // The identity of the regular file at `path` (following links), or no
  // value when there is none: nothing there, or a folder, FIFO, device or
  // socket. Such a path is never opened, so a FIFO cannot stall the caller.
  static std::optional<FileIdentity> of(const std::filesystem::path& path);

  bool operator==(const FileIdentity&) const = default;
};

// Which read of which file a request asks for. The result carries it back,
// so that the cache can tell whether it still applies.
struct LinkReadTicket {
  Uuid storyID;
  std::filesystem::path path;
  FileIdentity identity;         // the file as stat() saw it when the read was asked for
  std::int64_t readStartNs = 0;  // the clock just before that stat()
  std::uint64_t generation = 0;  // the cache's version of the story's entry then

  bool operator==(const LinkReadTicket&) const = default;
};

// A linked file to read off the caller's thread. It holds copies only.
struct LinkReadRequest {
  LinkReadTicket ticket;
  StyleMap styleMap;
  // The link's base snapshot, when the cache does not know its digest yet:
  // the reader digests it beside the file.
  std::optional<ImportResult> base;
};

struct LinkReadResult {
  LinkReadTicket ticket;
  std::optional<ContentDigest> digest;  // of the file's content; none: it could not be read
  // The read failed with something other than a DocxError (no memory, too
  // many open files), which may pass: the file is asked for again next time.
  // A DocxError means the file itself is broken, and stays so until it changes.
  bool passingFailure = false;
  std::optional<ContentDigest> base;  // the digest of the request's base, when it had one
};

// Reads the requested file with DocxReader::read and digests it (and the
// base, when the request carries one). Here a damaged notes part makes the
// file unreadable: read as no notes, it would differ from the base. Pure and
// safe on any thread; never throws: a failure is part of the result.
LinkReadResult readLinkedFile(const LinkReadRequest& request);

class LinkStatusCache {
 public:
  using Clock = std::function<std::int64_t()>;  // wall-clock nanoseconds since the Unix epoch
  using Stat = std::function<std::optional<FileIdentity>(const std::filesystem::path&)>;

  // A file whose modification or change time is less than this before the
  // start of the read that took its digest may have been written again in
  // the same timestamp tick, unseen; such a file is read again on the next
  // decision. Two seconds cover FAT's two-second times, the one-second times
  // of older and network file systems, and a second of skew between a file
  // server's clock and ours.
  static constexpr std::int64_t kRacyMarginNs = 2'000'000'000;

  // `clock` and `stat` stand in for the system's in tests.
  explicit LinkStatusCache(Clock clock = {}, Stat stat = {});

  // The status of `link`'s file for the story: missing when no regular file
  // is at the path or the file cannot be read, upToDate when its
  // fingerprints equal the base snapshot's, modified otherwise. Reads the
  // file when poll() would ask for a read. Never throws.
  LinkStatus decide(const Uuid& storyID, const StoryLink& link, const StyleMap& styleMap);

  // The first half of decide(), at the cost of a stat(): the status when it
  // needs no read (missing, or the file is unchanged since a trusted read),
  // otherwise the read to make. Never throws. Until the read's result is
  // applied, every poll asks for it again.
  std::variant<LinkStatus, LinkReadRequest> poll(const Uuid& storyID, const StoryLink& link,
                                                 const StyleMap& styleMap);
  // The second half: remembers the read and returns the status that decide()
  // would have given from it. No value, and nothing remembered, when the
  // result is stale: the story's entry changed since the request (the link
  // got a new base or path, it was read or found missing meanwhile, or the
  // cache was cleared).
  std::optional<LinkStatus> apply(const LinkReadResult& result);

  struct LinkedRead {
    ImportResult content;
    ContentDigest digest;  // linkDigest of `content`
  };
  // Reads the file at `path` for the story's link with DocxReader::read, a
  // damaged notes part failing as in readLinkedFile, and remembers it as
  // decide() would, so that the next decision need not read it again.
  // Throws whatever the reader throws.
  LinkedRead read(const Uuid& storyID, const std::filesystem::path& path, const StyleMap& styleMap);

  // The story's link got a new base snapshot: its digest, when the caller
  // knows it, or no value to have it computed on the next decision.
  void setBase(const Uuid& storyID, std::optional<ContentDigest> digest = {});
  // The story's link got a new path, or the story lost its link or is gone.
  void forget(const Uuid& storyID);
  // Another document was opened.
  void clear();

  // How many reads of a linked file were taken in (by decide(), read() and
  // apply()), for tests and benchmarks.
  std::int64_t fileReads() const { return fileReads_; }

 private:
  struct FileState {
    std::filesystem::path path;
    FileIdentity identity;
    std::int64_t readStartNs = 0;
    std::optional<ContentDigest> digest;  // no value: the file could not be read
  };
  struct Entry {
    std::optional<FileState> file;
    std::optional<ContentDigest> base;
    std::uint64_t generation = 0;  // new at every change; a ticket names the one it saw
  };

  bool trusted(const FileState& state, const std::filesystem::path& path,
               const FileIdentity& identity) const;
  // The story's entry, made when absent.
  Entry& entry(const Uuid& storyID);
  // The story's entry, about to change.
  Entry& change(const Uuid& storyID);
  std::variant<LinkStatus, LinkReadRequest> poll(const Uuid& storyID, const StoryLink& link,
                                                 const StyleMap& styleMap, bool copyBase);

  Clock clock_;
  Stat stat_;
  std::map<Uuid, Entry> entries_;
  // Generations come from one counter, so that an entry forgotten and made
  // again never repeats one that a ticket holds.
  std::uint64_t lastGeneration_ = 0;
  std::int64_t fileReads_ = 0;
};

}  // namespace inkharbour
