// Link status: whether a linked file still holds the content of the link's
// base snapshot. Content is compared by fingerprint: one string per block (its
// merge key: "P:" + text, "T:" + contentKey, "I:" + image SHA-256) and one per
// footnote (id + ":" + text), so formatting and style names never count.
//
// LinkStatusCache makes the poll cheap. It remembers, per story, the identity
// of the linked file when it was last read and a digest of that file's
// fingerprints, and a digest of the base snapshot's fingerprints. A file whose
// identity is unchanged since a read that cannot have raced with a write is
// not read again, so an unchanged file costs one stat(). The status it gives
// is always the one a full re-read would give.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
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

// What identifies one version of a file without reading it. Any write to
// the file changes the change time; a replacement by rename changes the inode.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modifiedNs = 0;  // nanoseconds since the Unix epoch
  std::int64_t changedNs = 0;

  // The identity of the file at `path` (following links), or no value when
  // there is nothing to stat there.
  static std::optional<FileIdentity> of(const std::filesystem::path& path);

  bool operator==(const FileIdentity&) const = default;
};

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

  // The status of `link`'s file for the story: missing when nothing is at
  // the path or the file cannot be read, upToDate when its fingerprints equal
  // the base snapshot's, modified otherwise. Never throws.
  LinkStatus decide(const Uuid& storyID, const StoryLink& link, const StyleMap& styleMap);

  struct LinkedRead {
    ImportResult content;
    ContentDigest digest;  // contentDigest of `content`
  };
  // Reads the file at `path` for the story's link with DocxReader::read and
  // remembers it as decide() would, so that the next decision need not read
  // it again. Throws whatever the reader throws.
  LinkedRead read(const Uuid& storyID, const std::filesystem::path& path, const StyleMap& styleMap);

  // The story's link got a new base snapshot: its digest, when the caller
  // knows it, or no value to have it computed on the next decision.
  void setBase(const Uuid& storyID, std::optional<ContentDigest> digest = {});
  // The story's link got a new path, or the story lost its link or is gone.
  void forget(const Uuid& storyID);
  // Another document was opened.
  void clear();

  // How many times a linked file has been read, for tests and benchmarks.
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
  };

  bool trusted(const FileState& state, const std::filesystem::path& path,
               const FileIdentity& identity) const;

  Clock clock_;
  Stat stat_;
  std::map<Uuid, Entry> entries_;
  std::int64_t fileReads_ = 0;
};

}  // namespace inkharbour
