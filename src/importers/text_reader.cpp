#include "importers/text_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
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

[[noreturn]] void tooLarge(const std::filesystem::path& path, const ImportLimits& limits) {
  throw DocxError::parseFailed(path.filename().string() + ": larger than " +
                               describeBytes(limits.textBytes) + ", the limit for one import");
}

struct FileBytes {
  std::unique_ptr<char[]> data;
  std::size_t size = 0;
  std::string_view view() const { return {data.get(), size}; }
};

FileBytes readAll(const std::filesystem::path& path, const ImportLimits& limits) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) failErrno(path, errno);
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};

  struct stat info {};
  if (::fstat(fd, &info) != 0) failErrno(path, errno);
  if (S_ISDIR(info.st_mode)) failErrno(path, EISDIR);
  if (static_cast<std::uint64_t>(info.st_size) > limits.textBytes) tooLarge(path, limits);

  // One byte more than the file holds: filling it means the file grew since
  // fstat, and only then does the buffer grow. Left uninitialised, since
  // every byte used is read into.
  std::size_t capacity = static_cast<std::size_t>(info.st_size) + 1;
  std::unique_ptr<char[]> bytes(new char[capacity]);
  std::size_t size = 0;
  for (;;) {
    if (size == capacity) {
      if (capacity > limits.textBytes) break;
      const std::size_t larger = std::min<std::uint64_t>(limits.textBytes + 1, capacity * 2);
      std::unique_ptr<char[]> grown(new char[larger]);
      std::memcpy(grown.get(), bytes.get(), size);
      bytes = std::move(grown);
      capacity = larger;
    }
    const ssize_t n = ::read(fd, bytes.get() + size, capacity - size);
    if (n < 0) {
      if (errno == EINTR) continue;
      failErrno(path, errno);
    }
    if (n == 0) break;
    size += static_cast<std::size_t>(n);
  }
  if (size > limits.textBytes) tooLarge(path, limits);
  return {std::move(bytes), size};
}

}  // namespace

std::vector<Block> paragraphs(std::string_view text) {
  std::vector<Block> blocks;
  blocks.reserve(1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  std::size_t start = 0;
  for (;;) {
    const auto end = text.find('\n', start);
    const auto line = text.substr(start, end == std::string_view::npos ? std::string_view::npos
                                                                        : end - start);
    // Built in place: a book has tens of thousands of lines.
    auto& block = blocks.emplace_back(Block{.id = Uuid::random(), .kind = Paragraph{}});
    auto& paragraph = std::get<Paragraph>(block.kind);
    paragraph.styleName = "Body";
    if (!line.empty()) paragraph.runs.emplace_back().text.assign(line);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return blocks;
}

std::vector<Block> read(const std::filesystem::path& path, const ImportLimits& limits) {
  const FileBytes bytes = readAll(path, limits);
  std::string_view content = bytes.view();
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
