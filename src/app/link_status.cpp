#include "app/link_status.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <new>
#include <string_view>

#include "importers/docx_error.h"
#include "merge/merge_keys.h"

namespace inkharbour {

namespace {

std::string footnoteFingerprint(const Footnote& footnote) {
  return std::to_string(footnote.id) + ":" + footnote.text();
}

class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
      throw std::bad_alloc();
    }
  }

  void add(std::string_view bytes) { EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()); }

  // Lengths go in first so that no two different lists feed the same bytes.
  void addLength(std::size_t length) {
    std::array<char, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(length >> (8 * i));
    add(std::string_view(bytes.data(), bytes.size()));
  }

  void addString(std::string_view s) {
    addLength(s.size());
    add(s);
  }

  ContentDigest finish() {
    ContentDigest digest{};
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_.get(), digest.data(), &length);
    return digest;
  }

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_;
};

std::int64_t nanoseconds(const timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::int64_t wallClockNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

}  // namespace

std::vector<std::string> blockFingerprints(const std::vector<Block>& blocks) {
  std::vector<std::string> out;
  out.reserve(blocks.size());
  for (const auto& block : blocks) out.push_back(MergeEngine::mergeKey(block));
  return out;
}

std::vector<std::string> footnoteFingerprints(const std::vector<Footnote>& footnotes) {
  std::vector<std::string> out;
  out.reserve(footnotes.size());
  for (const auto& footnote : footnotes) out.push_back(footnoteFingerprint(footnote));
  return out;
}

ContentDigest contentDigest(const std::vector<Block>& blocks,
                            const std::vector<Footnote>& footnotes) {
  // One fingerprint at a time: a book's whole list would cost megabytes.
  Sha256 sha;
  sha.addLength(blocks.size());
  for (const auto& block : blocks) sha.addString(MergeEngine::mergeKey(block));
  sha.addLength(footnotes.size());
  for (const auto& footnote : footnotes) sha.addString(footnoteFingerprint(footnote));
  return sha.finish();
}

std::optional<FileIdentity> FileIdentity::of(const std::filesystem::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return FileIdentity{.device = static_cast<std::uint64_t>(info.st_dev),
                      .inode = static_cast<std::uint64_t>(info.st_ino),
                      .size = static_cast<std::int64_t>(info.st_size),
                      .modifiedNs = nanoseconds(info.st_mtim),
                      .changedNs = nanoseconds(info.st_ctim)};
}

LinkStatusCache::LinkStatusCache(Clock clock, Stat stat)
    : clock_(clock ? std::move(clock) : Clock(wallClockNs)),
      stat_(stat ? std::move(stat) : Stat(FileIdentity::of)) {}

// The identity is taken after readStartNs and before the read, so a write
// that it did not see came later and is stamped no earlier than readStartNs
// less one timestamp tick (the margin stands for the tick and for clock skew).
// If the file's newest time lies further back than that, such a write would
// have changed it. Otherwise a second write could hide behind the same times
// and size, and only reading the file again can tell. The change time counts
// because the kernel sets it on every write and nobody can set it back.
bool LinkStatusCache::trusted(const FileState& state, const std::filesystem::path& path,
                              const FileIdentity& identity) const {
  if (state.path != path || !(state.identity == identity)) return false;
  const std::int64_t newest = std::max(identity.modifiedNs, identity.changedNs);
  return newest < state.readStartNs - kRacyMarginNs;
}

LinkStatus LinkStatusCache::decide(const Uuid& storyID, const StoryLink& link,
                                   const StyleMap& styleMap) {
  try {
    const std::filesystem::path path(link.path);
    // Before the stat: see trusted().
    const std::int64_t start = clock_();
    const auto identity = stat_(path);
    Entry& entry = entries_[storyID];
    if (!identity) {
      entry.file.reset();
      return LinkStatus::missing;
    }
    if (!entry.file || !trusted(*entry.file, path, *identity)) {
      entry.file =
          FileState{.path = path, .identity = *identity, .readStartNs = start, .digest = {}};
      try {
        ++fileReads_;
        const auto content = DocxReader::read(path, styleMap);
        entry.file->digest = contentDigest(content.blocks, content.footnotes);
      } catch (const DocxError&) {
        // The package itself is broken: it stays so until the file changes.
      } catch (...) {
        // Possibly passing (no memory, too many open files): try again next time.
        entry.file.reset();
        return LinkStatus::missing;
      }
    }
    if (!entry.file->digest) return LinkStatus::missing;
    if (!entry.base) entry.base = contentDigest(link.baseBlocks, link.baseFootnotes);
    return *entry.file->digest == *entry.base ? LinkStatus::upToDate : LinkStatus::modified;
  } catch (...) {
    entries_.erase(storyID);
    return LinkStatus::missing;
  }
}

LinkStatusCache::LinkedRead LinkStatusCache::read(const Uuid& storyID,
                                                  const std::filesystem::path& path,
                                                  const StyleMap& styleMap) {
  const std::int64_t start = clock_();
  const auto identity = stat_(path);
  ++fileReads_;
  LinkedRead result{.content = DocxReader::read(path, styleMap), .digest = {}};
  result.digest = contentDigest(result.content.blocks, result.content.footnotes);
  Entry& entry = entries_[storyID];
  if (identity) {
    entry.file = FileState{
        .path = path, .identity = *identity, .readStartNs = start, .digest = result.digest};
  } else {
    entry.file.reset();
  }
  return result;
}

void LinkStatusCache::setBase(const Uuid& storyID, std::optional<ContentDigest> digest) {
  entries_[storyID].base = digest;
}

void LinkStatusCache::forget(const Uuid& storyID) {
  entries_.erase(storyID);
}

void LinkStatusCache::clear() {
  entries_.clear();
}

}  // namespace inkharbour
