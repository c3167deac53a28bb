// Plain-text import: one "Body" paragraph per line.
#include "importers/text_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::TempDir;

// The paragraph a line must become: "Body", one plain run, or none at all.
Block::Kind expectedParagraph(const std::string& line) {
  Paragraph paragraph{.styleName = "Body", .runs = {}};
  if (!line.empty()) paragraph.runs.push_back(TextRun{.text = line});
  return paragraph;
}

std::vector<Block::Kind> kindsOf(const std::vector<Block>& blocks) {
  std::vector<Block::Kind> kinds;
  for (const auto& block : blocks) kinds.push_back(block.kind);
  return kinds;
}

std::vector<Block::Kind> expectedKinds(const std::vector<std::string>& lines) {
  std::vector<Block::Kind> kinds;
  for (const auto& line : lines) kinds.push_back(expectedParagraph(line));
  return kinds;
}

struct LinesCase {
  const char* name;
  std::string text;
  std::vector<std::string> lines;
};

const std::vector<LinesCase>& linesCases() {
  static const std::vector<LinesCase> cases = {
      {"blank line and final line feed", "a\n\nb\n", {"a", "", "b", ""}},
      {"empty text", "", {""}},
      {"no line feed", "just one line", {"just one line"}},
      {"a lone line feed", "\n", {"", ""}},
      {"carriage return stays with its line", "a\r\nb\r\n", {"a\r", "b\r", ""}},
      {"a lone carriage return does not split", "a\rb", {"a\rb"}},
      {"Unicode separators do not split", "a\u2028b\u2029c\u0085d", {"a\u2028b\u2029c\u0085d"}},
      {"blanks and tabs kept", "  indented\t\n\ttab  ", {"  indented\t", "\ttab  "}},
      {"multi-byte text",
       "\xE6\x9D\xB1\xE4\xBA\xAC\n\xF0\x9F\x98\x80",
       {"\xE6\x9D\xB1\xE4\xBA\xAC", "\xF0\x9F\x98\x80"}},
      {"a byte-order mark after the start is text",
       "a\n\xEF\xBB\xBF"
       "b",
       {"a",
        "\xEF\xBB\xBF"
        "b"}},
  };
  return cases;
}

TEST(TextReaderParagraphs, EachLineIsOnePlainBodyParagraph) {
  for (const auto& c : linesCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(kindsOf(TextReader::paragraphs(c.text)), expectedKinds(c.lines));
  }
}

TEST(TextReaderFile, EachLineIsOnePlainBodyParagraph) {
  for (const auto& c : linesCases()) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "notes.txt";
    testing::writeFile(path, c.text);
    EXPECT_EQ(kindsOf(TextReader::read(path)), expectedKinds(c.lines));
  }
}

TEST(TextReaderFile, LeadingByteOrderMarkIsDropped) {
  const struct {
    std::string text;
    std::vector<std::string> lines;
  } cases[] = {
      {"\xEF\xBB\xBF"
       "a\nb",
       {"a", "b"}},
      {"\xEF\xBB\xBF", {""}},
      {"\xEF\xBB\xBF\n", {"", ""}},
      {"\xEF\xBB\xBF\xEF\xBB\xBF"
       "a",
       {"\xEF\xBB\xBF"
        "a"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.text));
    TempDir dir;
    const auto path = dir / "bom.txt";
    testing::writeFile(path, c.text);
    EXPECT_EQ(kindsOf(TextReader::read(path)), expectedKinds(c.lines));
  }
}

TEST(TextReaderFile, BlocksGetFreshDistinctIds) {
  TempDir dir;
  const auto path = dir / "notes.txt";
  testing::writeFile(path, "a\nb\n\nc\n");

  const auto first = TextReader::read(path);
  const auto second = TextReader::read(path);
  std::set<Uuid> ids;
  for (const auto& block : first) ids.insert(block.id);
  for (const auto& block : second) ids.insert(block.id);
  EXPECT_EQ(ids.size(), first.size() + second.size());
  EXPECT_EQ(kindsOf(first), kindsOf(second));
}

TEST(TextReaderFile, BytesThatAreNotUtf8AreAnEncodingError) {
  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"byte FF", "ok\n\xFF"},
      {"Latin-1 text", "caf\xE9\n"},
      {"lone continuation byte", "\x80"},
      {"sequence cut short at the end", "a\xC3"},
      {"sequence cut short by ASCII",
       "\xE6\x9D"
       "a"},
      {"overlong slash", "\xC0\xAF"},
      {"overlong three-byte form", "\xE0\x80\xAF"},
      {"UTF-16 surrogate", "\xED\xA0\x80"},
      {"beyond U+10FFFF", "\xF4\x90\x80\x80"},
      {"byte-order mark then a bad byte", "\xEF\xBB\xBF\xFE"},
      {"UTF-16 little-endian with its mark", std::string("\xFF\xFE"
                                                         "a\0",
                                                         4)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "notes.txt";
    testing::writeFile(path, c.bytes);
    try {
      TextReader::read(path);
      ADD_FAILURE() << "read succeeded";
    } catch (const fs::filesystem_error& error) {
      EXPECT_EQ(error.code(), std::errc::illegal_byte_sequence);
      EXPECT_EQ(error.path1(), path);
    }
  }
}

TEST(TextReaderFile, UnreadableFileIsAFileSystemError) {
  TempDir dir;
  const struct {
    const char* name;
    fs::path path;
    std::optional<std::errc> code;
  } cases[] = {
      {"missing file", dir / "missing.txt", std::errc::no_such_file_or_directory},
      {"missing folder", dir / "missing" / "notes.txt", std::errc::no_such_file_or_directory},
      {"a folder", dir.path(), std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      TextReader::read(c.path);
      ADD_FAILURE() << "read succeeded";
    } catch (const fs::filesystem_error& error) {
      if (c.code) {
        EXPECT_EQ(error.code(), *c.code);
      }
    }
  }
}

TEST(TextReaderFile, FileBeyondTheLimitsIsRefused) {
  TempDir dir;
  const auto path = dir / "huge.txt";
  const struct {
    const char* name;
    std::string text;
    ImportLimits limits;
  } cases[] = {
      {"more bytes than the text limit", std::string(3000, 'x'), ImportLimits{.textBytes = 2048}},
      {"more lines than the item limit", std::string(200, '\n'), ImportLimits{.items = 100}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::writeFile(path, c.text);
    try {
      TextReader::read(path, c.limits);
      ADD_FAILURE() << "read succeeded";
    } catch (const DocxError& error) {
      EXPECT_THAT(error.what(), HasSubstr("huge.txt"));
    }
  }
}

TEST(TextReaderDispatch, OtherExtensionsAreReadAsText) {
  for (const char* name :
       {"notes.txt", "draft.md", "old.doc", "letter.rtf", "README", "data.xlsx.bak"}) {
    SCOPED_TRACE(name);
    TempDir dir;
    const auto path = dir / name;
    testing::writeFile(path, "first\r\n\nlast");
    const auto result = DocxReader::read(path, StyleMap{{"Body", "Heading 1"}});
    EXPECT_EQ(kindsOf(result.blocks), expectedKinds({"first\r", "", "last"}));
    EXPECT_TRUE(result.footnotes.empty());
  }
}

}  // namespace
}  // namespace inkharbour
