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
#include "model/regular_file.h"
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

constexpr std::size_t kChunkSize = 1 << 20;

// An open text file read in chunks: a book is never held whole beside the
// paragraphs made from it.
class ChunkedFile {
 public:
  // Regular files only: a FIFO found where a file was would stall the
  // caller waiting for a writer, and a device such as /dev/zero never ends.
  ChunkedFile(const std::filesystem::path& path, const ImportLimits& limits)
      : path_(path), limits_(limits), fd_(openRegularFile(path, openError_)) {
    if (fd_ < 0) {
      throw std::filesystem::filesystem_error("Cannot read the text file", path, openError_);
    }
    struct stat info {};
    const int statError = ::fstat(fd_, &info) != 0 ? errno : 0;
    size_ = static_cast<std::uint64_t>(info.st_size);
    if (statError != 0 || size_ > limits.textBytes) {
      ::close(fd_);  // no destructor runs for a throwing constructor
      if (statError != 0) failErrno(path, statError);
      tooLarge(path, limits);
    }
  }
  ~ChunkedFile() { ::close(fd_); }
  ChunkedFile(const ChunkedFile&) = delete;
  ChunkedFile& operator=(const ChunkedFile&) = delete;

  // The size when the file was opened.
  std::uint64_t size() const { return size_; }

  // Hands each chunk to `sink`, from the start of the file; a file that grew
  // past the limit meanwhile is refused.
  template <typename Sink>
  void each(Sink&& sink) {
    if (::lseek(fd_, 0, SEEK_SET) != 0) failErrno(path_, errno);
    std::uint64_t total = 0;
    for (;;) {
      const ssize_t n = ::read(fd_, buffer_.get(), kChunkSize);
      if (n < 0) {
        if (errno == EINTR) continue;
        failErrno(path_, errno);
      }
      if (n == 0) return;
      total += static_cast<std::uint64_t>(n);
      if (total > limits_.textBytes) tooLarge(path_, limits_);
      sink(std::string_view(buffer_.get(), static_cast<std::size_t>(n)));
    }
  }

 private:
  const std::filesystem::path& path_;
  const ImportLimits& limits_;
  std::error_code openError_;
  int fd_;
  std::uint64_t size_ = 0;
  std::unique_ptr<char[]> buffer_{new char[kChunkSize]};
};

// Every line is a paragraph, and an item.
void checkLineCount(const std::filesystem::path& path, std::uint64_t lines,
                    const ImportLimits& limits) {
  const auto limit = std::min(limits.items, limits.paragraphs);
  if (lines > limit) {
    throw DocxError::parseFailed(path.filename().string() + ": more than " +
                                 std::to_string(limit) + " paragraphs, the limit for one import");
  }
}

// A leading byte-order mark is an encoding mark, not text.
void dropByteOrderMark(std::string_view& firstLine) {
  if (firstLine.starts_with("\xEF\xBB\xBF")) firstLine.remove_prefix(3);
}

void appendParagraph(std::vector<Block>& blocks, std::string_view line) {
  // Built in place: a book has tens of thousands of lines.
  auto& block = blocks.emplace_back(Block{.id = Uuid::random(), .kind = Paragraph{}});
  auto& paragraph = std::get<Paragraph>(block.kind);
  paragraph.styleName = "Body";
  if (!line.empty()) paragraph.runs.emplace_back().text.assign(line);
}

}  // namespace

std::vector<Block> paragraphs(std::string_view text) {
  std::vector<Block> blocks;
  blocks.reserve(1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  std::size_t start = 0;
  for (;;) {
    const auto end = text.find('\n', start);
    appendParagraph(
        blocks,
        text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return blocks;
}

std::vector<Block> read(const std::filesystem::path& path, const ImportLimits& limits) {
  ChunkedFile file(path, limits);

  // Counted first (from the page cache, at memchr speed) so that the blocks
  // are allocated once, at their final size.
  std::uint64_t lines = 1;
  file.each([&](std::string_view chunk) {
    lines += static_cast<std::uint64_t>(std::count(chunk.begin(), chunk.end(), '\n'));
  });
  checkLineCount(path, lines, limits);

  std::vector<Block> blocks;
  blocks.reserve(static_cast<std::size_t>(lines));
  std::string pending;  // the part of a line that a chunk boundary cut
  bool firstLine = true;
  // A line feed never occurs inside a multi-byte sequence, so each line can
  // be checked on its own.
  auto emit = [&](std::string_view line) {
    if (firstLine) {
      dropByteOrderMark(line);
      firstLine = false;
    }
    if (!text::isValidUtf8(line)) fail(path, std::errc::illegal_byte_sequence);
    appendParagraph(blocks, line);
  };
  file.each([&](std::string_view chunk) {
    std::size_t start = 0;
    for (auto end = chunk.find('\n'); end != std::string_view::npos;
         end = chunk.find('\n', start)) {
      if (pending.empty()) {
        emit(chunk.substr(start, end - start));
      } else {
        pending.append(chunk.substr(start, end - start));
        emit(pending);
        pending.clear();
      }
      start = end + 1;
    }
    pending.append(chunk.substr(start));
  });
  emit(pending);
  return blocks;
}

TextLines readLines(const std::filesystem::path& path, const ImportLimits& limits) {
  ChunkedFile file(path, limits);
  TextLines out;
  out.text.reserve(static_cast<std::size_t>(file.size()));
  file.each(
      [&](std::string_view chunk) { out.text.insert(out.text.end(), chunk.begin(), chunk.end()); });

  std::string_view rest(out.text.data(), out.text.size());
  const auto lines = 1 + static_cast<std::uint64_t>(std::count(rest.begin(), rest.end(), '\n'));
  checkLineCount(path, lines, limits);
  dropByteOrderMark(rest);
  // A line feed never occurs inside a multi-byte sequence: the whole text is
  // valid exactly when every line is.
  if (!text::isValidUtf8(rest)) fail(path, std::errc::illegal_byte_sequence);

  out.lines.reserve(static_cast<std::size_t>(lines));
  for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    out.lines.push_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  out.lines.push_back(rest);
  return out;
}

}  // namespace inkharbour::TextReader
