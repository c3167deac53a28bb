// Package access: reading members of a ZIP package (a .docx or .xlsx) and
// writing a new one. This is the one place that touches ZIP archives.
//
// A member that is absent, or a file that is no ZIP archive at all (missing,
// unreadable, truncated, an encrypted Office file), reads as no value
// (openError() tells a file that could not be opened); which members are
// required is the readers' decision. A member that fails after producing some
// bytes (bad CRC, corrupt deflate data) is DocxError::unzipFailed.
#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "importers/import_limits.h"
#include "importers/parallel_deflate.h"
#include "model/story.h"

struct zip;
struct zip_source;
struct zip_stat;

namespace inkharbour {

// One package opened for one import. Counts every byte it inflates against
// the import's budget.
class Package {
 public:
  explicit Package(const std::filesystem::path& archive, const ImportLimits& limits = {});
  ~Package();
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;

  // True when the file opened as a ZIP archive.
  bool opened() const { return archive_ != nullptr; }

  // True when both opened the same file in the same state (device, inode,
  // size and modification time), so that parts read through each belong to
  // one version of it.
  bool sameFileAs(const Package& other) const {
    return opened() && other.opened() && identity_ == other.identity_;
  }

  // Why the file itself could not be opened: no such file, no permission,
  // a folder, or no regular file (a FIFO, device or socket is never opened).
  // None when it opened, or is a readable file that is no ZIP archive.
  const std::error_code& openError() const { return openError_; }
  // Throws std::filesystem::filesystem_error naming the file with
  // openError(), when there is one: a reader reports that rather than a
  // missing member.
  void checkOpened() const;

  // The names of the archive's members in the order the archive lists them,
  // Windows separators turned into "/". Empty when it did not open.
  std::vector<std::string> members() const;

  // True when the archive opened and lists the member (its data may still
  // turn out unreadable).
  bool has(std::string_view member) const;

  // The member's bytes, or no value when it is absent. Member names are exact
  // (no wildcards); a package written with backslash separators is also
  // found. Throws DocxError as described above, or when a limit is passed.
  std::optional<Data> read(std::string_view member);

  // As read(), but a member that fails to read counts as absent, as an
  // optional part does. A safety limit still throws: it stops the import.
  std::optional<Data> readOptional(std::string_view member);

  // A picture's bytes as readOptional() gives them, inflated once per
  // package: every later call for the same member shares that buffer. Each
  // call counts the bytes against the import's picture limit, for each
  // reference is a picture of its own in the story and the document file.
  std::optional<SharedBytes> readPicture(std::string_view member);

  // Hands the member's bytes to `sink` in chunks, in order. Returns false
  // when the member is absent, in which case `sink` was never called. Throws
  // as read() does; a throw from `sink` stops the stream and propagates.
  bool stream(std::string_view member, const std::function<void(std::string_view)>& sink);

  // As stream(), and for a deflated member also keeps its compressed bytes
  // and where each of its blocks begins, so that a new version of the member
  // can take over the blocks it leaves unchanged. `blocks` stays empty for a
  // member stored some other way.
  bool stream(std::string_view member, const std::function<void(std::string_view)>& sink,
              DeflateBlocks& blocks);

  ImportBudget& budget() { return budget_; }

  // A libzip source for `into` that copies the member's bytes as they lie in
  // the file, compressed or not (`stored`); no source when the member is
  // absent or libzip refuses. The package must stay open until `into` is
  // closed.
  struct Copied {
    zip_source* source = nullptr;
    bool stored = false;
  };
  Copied copiedSource(zip* into, std::string_view member) const;

 private:
  struct CountingSource;

  std::int64_t locate(std::string_view member) const;
  std::span<char> bufferFor(const zip_stat& stat);
  void countInflated(const std::string& name, std::uint64_t delivered, std::uint64_t count,
                     std::uint64_t compressed);

  std::filesystem::path path_;
  std::error_code openError_;
  std::array<std::uint64_t, 5> identity_{};
  zip* archive_ = nullptr;
  CountingSource* source_ = nullptr;  // the archive's file, owned by archive_
  ImportBudget budget_;
  std::unique_ptr<char[]> buffer_;  // inflate buffer, shared by this package's reads
  std::size_t bufferSize_ = 0;
  std::map<std::string, std::optional<SharedBytes>, std::less<>> pictures_;  // by member
};

// A member's bytes seen as text, for the XML parser.
inline std::string_view asText(std::span<const std::uint8_t> bytes) {
  return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

struct PackageMember {
  std::string path;        // relative, forward slashes: "word/document.xml"
  std::string_view bytes;  // must stay alive until writePackage returns
  // The member as it was, when the bytes repeat much of it: the blocks of
  // its old deflate stream that lie inside the copied spans are taken over
  // rather than compressed again.
  const DeflateBlocks* old = nullptr;
  std::vector<CopiedSpan> copied = {};
  // The package that holds these very bytes under the same name, whose
  // compressed form is then copied instead of compressing them again.
  const Package* unchangedIn = nullptr;
};

namespace ZipTool {

// Reads one member of a package: its bytes, or no value when the member is
// absent or the file is not a ZIP archive. Throws DocxError::unzipFailed when
// the member fails after producing bytes.
std::optional<Data> run(const std::filesystem::path& archive, std::string_view member);

// Writes a package holding exactly `members`, under exactly their paths, to
// `destination`, replacing it atomically: on any failure the old destination
// is untouched and no temporary file is left. Throws DocxError::unzipFailed
// ("zip failed: ...") for an unusable member list, std::filesystem_error when
// the file cannot be written.
void writePackage(const std::vector<PackageMember>& members,
                  const std::filesystem::path& destination);

}  // namespace ZipTool

}  // namespace inkharbour
