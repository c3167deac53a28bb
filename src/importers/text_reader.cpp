#include "importers/text_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

#include "importers/docx_error.h"
#include "model/text.h"

namespace inkharbour::TextReader {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path, std::errc code) {
  throw std::filesystem::filesystem_error("Cannot read the text file", path,
                                          std::make_error_code(code));
}

[[noreturn]] void failErrno(const std::filesystem::path& path, int error) {
  throw std::filesystem::filesystem_error("Cannot read the text file", path,
                                          std::error_code(error, std::generic_category()));
}

std::string readAll(const std::filesystem::path& path, const ImportLimits& limits) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) failErrno(path, errno);
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};

  struct stat info {};
  if (::fstat(fd, &info) != 0) failErrno(path, errno);
  if (S_ISDIR(info.st_mode)) failErrno(path, EISDIR);
  if (static_cast<std::uint64_t>(info.st_size) > limits.textBytes) {
    throw DocxError::parseFailed(path.filename().string() + ": larger than " +
                                 describeBytes(limits.textBytes) + ", the limit for one import");
  }

  std::string bytes;
  bytes.resize(static_cast<std::size_t>(info.st_size));
  std::size_t size = 0;
  for (;;) {
    if (size == bytes.size()) {
      // The file may have grown since fstat; read on, within the limit.
      if (bytes.size() >= limits.textBytes) break;
      bytes.resize(std::min<std::uint64_t>(limits.textBytes, bytes.size() * 2 + 4096));
    }
    const ssize_t n = ::read(fd, bytes.data() + size, bytes.size() - size);
    if (n < 0) {
      if (errno == EINTR) continue;
      failErrno(path, errno);
    }
    if (n == 0) break;
    size += static_cast<std::size_t>(n);
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace

std::vector<Block> paragraphs(std::string_view text) {
  std::vector<Block> blocks;
  std::size_t start = 0;
  for (;;) {
    const auto end = text.find('\n', start);
    const auto line = text.substr(start, end == std::string_view::npos ? std::string_view::npos
                                                                        : end - start);
    blocks.push_back(Block{.id = Uuid::random(), .kind = Paragraph::make("Body", std::string(line))});
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return blocks;
}

std::vector<Block> read(const std::filesystem::path& path, const ImportLimits& limits) {
  std::string bytes = readAll(path, limits);
  std::string_view content = bytes;
  if (content.starts_with("\xEF\xBB\xBF")) content.remove_prefix(3);
  if (!text::isValidUtf8(content)) fail(path, std::errc::illegal_byte_sequence);
  const auto lines = 1 + static_cast<std::uint64_t>(std::count(content.begin(), content.end(), '\n'));
  if (lines > limits.items) {
    throw DocxError::parseFailed(path.filename().string() + ": more than " +
                                 std::to_string(limits.items) +
                                 " paragraphs, the limit for one import");
  }
  return paragraphs(content);
}

}  // namespace inkharbour::TextReader
