// Plain-text import: one "Body" paragraph per line.
#include "importers/text_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

#include "importers/docx_error.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

const std::string kBom = "\xEF\xBB\xBF";

std::vector<Block::Kind> kindsOf(const std::vector<Block>& blocks) {
  std::vector<Block::Kind> kinds;
  for (const auto& block : blocks) kinds.push_back(block.kind);
  return kinds;
}

TEST(TextReader, EachLineFeedEndsOnePlainBodyParagraph) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"a\n\nb\n", {"a", "", "b", ""}},
      {"", {""}},
      {"a\r\nb\rc", {"a\r", "b\rc"}},
      {"a\u2028b\u2029c\u0085d", {"a\u2028b\u2029c\u0085d"}},
      {"a\n" + kBom + "b", {"a", kBom + "b"}},
      // read() drops one leading byte-order mark; paragraphs() is not given these.
      {kBom + "a\nb", {"a", "b"}},
      {kBom + kBom + "a", {kBom + "a"}},
  };
  for (const auto& [text, lines] : cases) {
    SCOPED_TRACE(::testing::PrintToString(text));
    std::vector<Block::Kind> expected;
    for (const auto& line : lines) expected.push_back(Paragraph::make("Body", line));
    TempDir dir;
    testing::writeFile(dir / "notes.txt", text);
    EXPECT_EQ(kindsOf(TextReader::read(dir / "notes.txt")), expected);
    const auto whole = TextReader::readLines(dir / "notes.txt");
    EXPECT_EQ(whole.lines, std::vector<std::string_view>(lines.begin(), lines.end()));
    if (!text.starts_with(kBom)) {
      EXPECT_EQ(kindsOf(TextReader::paragraphs(text)), expected);
    }
  }
}

template <typename Read>
std::string failureOf(const Read& read) {
  try {
    read();
  } catch (const std::exception& error) {
    return describeError(error);
  }
  return "none";
}

// Reads the file both ways, which must fail alike; throws what read() throws.
void readBothWays(const fs::path& path, const ImportLimits& limits = {}) {
  EXPECT_EQ(failureOf([&] { TextReader::readLines(path, limits); }),
            failureOf([&] { TextReader::read(path, limits); }));
  TextReader::read(path, limits);
}

TEST(TextReader, UnreadableOrNonUtf8FileIsAFileSystemError) {
  const auto failure = [](const fs::path& path) {
    try {
      readBothWays(path);
    } catch (const fs::filesystem_error& error) {
      EXPECT_EQ(error.path1(), path);
      return error.code();
    }
    ADD_FAILURE() << "read succeeded";
    return std::error_code();
  };
  TempDir dir;
  // Overlong "/", a UTF-16 surrogate, a sequence cut short at the end.
  for (const std::string bytes : {"\xC0\xAF", "\xED\xA0\x80", "ok\xE6\x9D"}) {
    testing::writeFile(dir / "notes.txt", bytes);
    EXPECT_EQ(failure(dir / "notes.txt"), std::errc::illegal_byte_sequence)
        << ::testing::PrintToString(bytes);
  }
  EXPECT_EQ(failure(dir / "missing.txt"), std::errc::no_such_file_or_directory);
  EXPECT_EQ(failure(dir.path()), std::errc::is_a_directory);
}

TEST(TextReader, FileBeyondTheLimitsIsRefused) {
  using ::testing::StrEq;
  TempDir dir;
  testing::writeFile(dir / "huge.txt", std::string(3000, 'x'));
  EXPECT_THAT([&] { readBothWays(dir / "huge.txt", {.textBytes = 2048}); },
              ::testing::ThrowsMessage<DocxError>(StrEq(
                  "Could not parse the document (huge.txt: larger than 2048 bytes, the limit for "
                  "one import).")));
  testing::writeFile(dir / "huge.txt", std::string(100, '\n'));
  for (const auto& limits : {ImportLimits{.items = 100}, ImportLimits{.paragraphs = 100}}) {
    EXPECT_THAT([&] { readBothWays(dir / "huge.txt", limits); },
                ::testing::ThrowsMessage<DocxError>(StrEq(
                    "Could not parse the document (huge.txt: more than 100 paragraphs, the limit "
                    "for one import).")));
  }
}

}  // namespace
}  // namespace inkharbour
