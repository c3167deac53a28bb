#include "scratch.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "importers/docx_error.h"
#include "importers/package.h"

namespace inkharbour::fuzz {

namespace fs = std::filesystem;

namespace {

fs::path scratchParent() {
  if (const char* chosen = std::getenv("INKHARBOUR_FUZZ_TMP"); chosen != nullptr && *chosen) {
    return chosen;
  }
  std::error_code error;
  if (fs::is_directory("/dev/shm", error) && ::access("/dev/shm", W_OK) == 0) return "/dev/shm";
  return fs::temp_directory_path();
}

class ScratchFolder {
 public:
  ScratchFolder() : path_(scratchParent() / ("inkharbour-fuzz-" + std::to_string(::getpid()))) {
    fs::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

constexpr std::string_view kMemberMark = "@@ ";

}  // namespace

fs::path scratchPath(const char* name) {
  static const ScratchFolder folder;
  return folder.path() / name;
}

void writeBytes(const fs::path& path, Bytes bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

bool writePackageInput(const fs::path& path, Bytes input) {
  const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  if (!text.starts_with(kMemberMark)) {
    writeBytes(path, input);
    return true;
  }
  std::vector<PackageMember> members;
  std::size_t at = 0;
  while (at < text.size()) {
    at += kMemberMark.size();
    const std::size_t nameEnd = std::min(text.find('\n', at), text.size());
    const std::string_view name = text.substr(at, nameEnd - at);
    const std::size_t bodyStart = std::min(nameEnd + 1, text.size());
    // The newline that ends the name line also starts the next mark when the
    // member is empty.
    const std::size_t next = text.find("\n@@ ", nameEnd);
    const std::size_t bodyEnd =
        next == std::string_view::npos ? text.size() : std::max(next, bodyStart);
    members.push_back({std::string(name), text.substr(bodyStart, bodyEnd - bodyStart)});
    at = next == std::string_view::npos ? text.size() : next + 1;
  }
  try {
    ZipTool::writePackage(members, path);
  } catch (const DocxError&) {
    return false;
  }
  return true;
}

}  // namespace inkharbour::fuzz
