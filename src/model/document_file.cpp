// Encoding and saving the document file. Decoding lives in
// document_decoder.cpp.
#include "model/document_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "model/atomic_file.h"
#include "model/document_json.h"

namespace inkharbour::DocumentFile {

namespace {

namespace fs = std::filesystem;

// writeFileAtomically writes to ".<name>.tmp-" plus six random characters
// beside the target. A save that is killed leaves that file behind; the next
// save of the same document removes it.
//
// Which such files are stale is settled with flock on the folder: every save
// holds a shared lock while it writes, and the clean-up needs the exclusive
// lock, which it only tries for. So the clean-up runs only when no save is
// under way there (by this or another process), and a process that dies
// drops its lock with it.
class FolderLock {
 public:
  explicit FolderLock(const fs::path& folder)
      : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);  // closing drops the lock
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  bool tryExclusive() { return fd_ >= 0 && ::flock(fd_, LOCK_EX | LOCK_NB) == 0; }
  // Waits only for a clean-up, which takes no longer than a folder listing.
  void shared() {
    if (fd_ >= 0) ::flock(fd_, LOCK_SH);
  }

 private:
  int fd_;
};

void removeStaleTemporaries(const fs::path& folder, const fs::path& target) {
  // Appended piecewise: GCC 12 warns falsely on "." + std::string.
  std::string prefix(".");
  prefix += target.filename().string();
  prefix += ".tmp-";
  constexpr std::size_t kRandomPart = 6;  // mkstemp's XXXXXX
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.size() != prefix.size() + kRandomPart || !name.starts_with(prefix)) continue;
    std::error_code ignored;
    if (!it->is_regular_file(ignored)) continue;
    fs::remove(it->path(), ignored);
  }
}

}  // namespace

std::string encode(const ProjectDocument& document) {
  JsonWriter json;
  json.reserve(DocumentJson::sizeHint(document));
  DocumentJson::write(json, document);
  return json.take();
}

void write(const ProjectDocument& document, const fs::path& path) {
  const std::string bytes = encode(document);
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  FolderLock lock(folder);
  if (lock.tryExclusive()) removeStaleTemporaries(folder, path);
  // From exclusive to shared is not atomic, but nothing of this save exists
  // yet for another clean-up to remove in between.
  lock.shared();
  writeFileAtomically(path, bytes);
}

}  // namespace inkharbour::DocumentFile
