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
#include "merge/note_alignment.h"

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

ContentDigest linkDigest(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes) {
  const auto numbers = MergeEngine::readingOrderNumbers(blocks, footnotes);
  // (new number, index in footnotes), in the order of the new numbers
  std::vector<std::pair<std::int64_t, std::size_t>> notes;
  notes.reserve(footnotes.size());
  for (std::size_t i = 0; i < footnotes.size(); ++i) {
    const auto found = numbers.find(footnotes[i].id);
    notes.emplace_back(found == numbers.end() ? footnotes[i].id : found->second, i);
  }
  std::stable_sort(notes.begin(), notes.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });

  Sha256 sha;
  sha.addLength(blocks.size());
  for (const auto& block : blocks) {
    // Only blocks citing a renumbered note are copied: usually none are.
    const auto renumbered = MergeEngine::renumberedMarks(block, numbers);
    sha.addString(MergeEngine::mergeKey(renumbered ? *renumbered : block));
  }
  sha.addLength(notes.size());
  for (const auto& [number, i] : notes) {
    sha.addString(std::to_string(number) + ":" + footnotes[i].text());
  }
  return sha.finish();
}

std::optional<FileIdentity> FileIdentity::of(const std::filesystem::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  return FileIdentity{.device = static_cast<std::uint64_t>(info.st_dev),
                      .inode = static_cast<std::uint64_t>(info.st_ino),
                      .size = static_cast<std::int64_t>(info.st_size),
                      .modifiedNs = nanoseconds(info.st_mtim),
                      .changedNs = nanoseconds(info.st_ctim)};
}

LinkReadResult readLinkedFile(const LinkReadRequest& request) {
  LinkReadResult result;
  try {
    // A ticket that fails to copy keeps generation 0, which no entry has:
    // the result is then ignored and the file asked for again.
    result.ticket = request.ticket;
    try {
      const auto content = DocxReader::read(request.ticket.path, request.styleMap, {},
                                            DocxReader::DamagedParts::fail);
      result.digest = linkDigest(content.blocks, content.footnotes);
    } catch (const DocxError&) {
      // The package itself is broken: it stays so until the file changes.
    }
    if (request.base) result.base = linkDigest(request.base->blocks, request.base->footnotes);
  } catch (...) {
    result.digest.reset();
    result.passingFailure = true;
  }
  return result;
}

LinkStatusCache::LinkStatusCache(Clock clock, Stat stat)
    : clock_(clock ? std::move(clock) : Clock(wallClockNs)),
      stat_(stat ? std::move(stat) : Stat(FileIdentity::of)) {}

LinkStatusCache::Entry& LinkStatusCache::entry(const Uuid& storyID) {
  const auto [found, made] = entries_.try_emplace(storyID);
  if (made) found->second.generation = ++lastGeneration_;
  return found->second;
}

LinkStatusCache::Entry& LinkStatusCache::change(const Uuid& storyID) {
  Entry& changed = entry(storyID);
  changed.generation = ++lastGeneration_;
  return changed;
}

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

std::variant<LinkStatus, LinkReadRequest> LinkStatusCache::poll(const Uuid& storyID,
                                                                const StoryLink& link,
                                                                const StyleMap& styleMap) {
  return poll(storyID, link, styleMap, true);
}

std::variant<LinkStatus, LinkReadRequest> LinkStatusCache::poll(const Uuid& storyID,
                                                                const StoryLink& link,
                                                                const StyleMap& styleMap,
                                                                bool copyBase) {
  try {
    const std::filesystem::path path(link.path);
    // Before the stat: see trusted().
    const std::int64_t start = clock_();
    const auto identity = stat_(path);
    if (!identity) {
      // A change: a read asked for before the file went must not bring it back.
      if (entries_.contains(storyID)) change(storyID).file.reset();
      return LinkStatus::missing;
    }
    const Entry& known = entry(storyID);
    if (known.file && trusted(*known.file, path, *identity)) {
      if (!known.file->digest) return LinkStatus::missing;
      if (known.base) {
        return *known.file->digest == *known.base ? LinkStatus::upToDate : LinkStatus::modified;
      }
    }
    LinkReadRequest request{.ticket = {.storyID = storyID,
                                       .path = path,
                                       .identity = *identity,
                                       .readStartNs = start,
                                       .generation = known.generation},
                            .styleMap = styleMap,
                            .base = {}};
    // A copy costs less than the digest, which the reader's thread then makes.
    if (!known.base && copyBase) request.base = ImportResult{link.baseBlocks, link.baseFootnotes};
    return request;
  } catch (...) {
    entries_.erase(storyID);
    return LinkStatus::missing;
  }
}

std::optional<LinkStatus> LinkStatusCache::apply(const LinkReadResult& result) {
  const Uuid& storyID = result.ticket.storyID;
  const auto found = entries_.find(storyID);
  if (found == entries_.end() || found->second.generation != result.ticket.generation) {
    return std::nullopt;
  }
  const bool readable = result.digest && !result.passingFailure;
  // Only a request made without the base's copy can lack its digest here.
  if (readable && !found->second.base && !result.base) return std::nullopt;
  try {
    Entry& entry = change(storyID);
    ++fileReads_;
    if (result.base) entry.base = result.base;
    if (result.passingFailure) {
      entry.file.reset();
      return LinkStatus::missing;
    }
    entry.file = FileState{.path = result.ticket.path,
                           .identity = result.ticket.identity,
                           .readStartNs = result.ticket.readStartNs,
                           .digest = result.digest};
    if (!readable) return LinkStatus::missing;
    return *result.digest == *entry.base ? LinkStatus::upToDate : LinkStatus::modified;
  } catch (...) {
    entries_.erase(storyID);
    return LinkStatus::missing;
  }
}

LinkStatus LinkStatusCache::decide(const Uuid& storyID, const StoryLink& link,
                                   const StyleMap& styleMap) {
  auto next = poll(storyID, link, styleMap, false);
  if (const auto* status = std::get_if<LinkStatus>(&next)) return *status;
  auto result = readLinkedFile(std::get<LinkReadRequest>(next));
  try {
    // Here the base is digested only once the file proved readable, and on
    // this thread: there is no other.
    if (result.digest && !entry(storyID).base) {
      result.base = linkDigest(link.baseBlocks, link.baseFootnotes);
    }
  } catch (...) {
    entries_.erase(storyID);
    return LinkStatus::missing;
  }
  return apply(result).value_or(LinkStatus::missing);
}

LinkStatusCache::LinkedRead LinkStatusCache::read(const Uuid& storyID,
                                                  const std::filesystem::path& path,
                                                  const StyleMap& styleMap) {
  const std::int64_t start = clock_();
  const auto identity = stat_(path);
  ++fileReads_;
  LinkedRead result{.content = DocxReader::read(path, styleMap, {}, DocxReader::DamagedParts::fail),
                    .digest = {}};
  result.digest = linkDigest(result.content.blocks, result.content.footnotes);
  Entry& entry = change(storyID);
  if (identity) {
    entry.file = FileState{
        .path = path, .identity = *identity, .readStartNs = start, .digest = result.digest};
  } else {
    entry.file.reset();
  }
  return result;
}

void LinkStatusCache::setBase(const Uuid& storyID, std::optional<ContentDigest> digest) {
  change(storyID).base = digest;
}

void LinkStatusCache::forget(const Uuid& storyID) {
  entries_.erase(storyID);
}

void LinkStatusCache::clear() {
  entries_.clear();
}

}  // namespace inkharbour
