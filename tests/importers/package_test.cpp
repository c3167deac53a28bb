// Package access: reading members of a ZIP package and writing a new one.
#include "importers/package.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::Members;
using ::testing::StartsWith;
using testing::TempDir;

template <typename Action>
std::optional<DocxError> docxErrorFrom(Action&& action) {
  try {
    action();
  } catch (const DocxError& error) {
    return error;
  }
  return std::nullopt;
}

Data bytesOf(const std::string& text) {
  return Data(text.begin(), text.end());
}

// Letters, blanks and line feeds in no pattern: text that deflate cannot
// shrink much, so its compressed data is long.
std::string noiseText(std::size_t size, unsigned seed) {
  static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz \n";
  std::mt19937 random(seed);
  std::uniform_int_distribution<std::size_t> pick(0, sizeof kAlphabet - 2);
  std::string text(size, ' ');
  for (auto& c : text) c = kAlphabet[pick(random)];
  return text;
}

std::string everyByte() {
  std::string bytes;
  for (int round = 0; round < 4; ++round) {
    for (int b = 0; b < 256; ++b) bytes += static_cast<char>(b);
  }
  return bytes;
}

std::set<std::string> entries(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    names.insert(entry.path().filename().string());
  return names;
}

// --- Reading the archive's own directory -----------------------------------

std::uint32_t le(const std::string& bytes, std::size_t at, int width) {
  std::uint32_t value = 0;
  for (int i = width - 1; i >= 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
  }
  return value;
}

struct Entry {
  std::string name;
  std::size_t centralHeader;
  std::size_t localHeader;
  std::size_t compressedSize;
};

// The entries of the archive's central directory, in stored order.
std::vector<Entry> centralDirectory(const std::string& zip) {
  std::vector<Entry> list;
  const auto end = zip.rfind(std::string("PK\x05\x06", 4));
  if (end == std::string::npos) return list;
  std::size_t at = le(zip, end + 16, 4);
  for (std::uint32_t i = 0, count = le(zip, end + 10, 2); i < count; ++i) {
    if (zip.compare(at, 4, std::string("PK\x01\x02", 4)) != 0) break;
    const std::size_t nameLength = le(zip, at + 28, 2);
    list.push_back({zip.substr(at + 46, nameLength), at, le(zip, at + 42, 4), le(zip, at + 20, 4)});
    at += 46 + nameLength + le(zip, at + 30, 2) + le(zip, at + 32, 2);
  }
  return list;
}

std::multiset<std::string> memberNames(const fs::path& archive) {
  std::multiset<std::string> names;
  for (const auto& entry : centralDirectory(testing::readFile(archive))) names.insert(entry.name);
  return names;
}

enum class Damage { checksum, dataMidway };

// Damages `member` in place so that it fails only after yielding some bytes:
// either its stored checksum no longer matches, or its compressed data is
// overwritten halfway through.
void damage(const fs::path& archive, const std::string& member, Damage how) {
  std::string zip = testing::readFile(archive);
  for (const auto& entry : centralDirectory(zip)) {
    if (entry.name != member) continue;
    if (how == Damage::checksum) {
      zip[entry.centralHeader + 16] = static_cast<char>(zip[entry.centralHeader + 16] ^ 0x5A);
      zip[entry.localHeader + 14] = static_cast<char>(zip[entry.localHeader + 14] ^ 0x5A);
    } else {
      const std::size_t data = entry.localHeader + 30 + le(zip, entry.localHeader + 26, 2) +
                               le(zip, entry.localHeader + 28, 2);
      ASSERT_GT(entry.compressedSize, 4096u);
      const std::size_t middle = data + entry.compressedSize / 2;
      for (std::size_t i = 0; i < 64; ++i)
        zip[middle + i] = static_cast<char>(zip[middle + i] ^ 0xA5);
    }
    testing::writeFile(archive, zip);
    return;
  }
  FAIL() << member << " not found in " << archive;
}

// --- Reading members --------------------------------------------------------

TEST(PackageRead, MembersComeBackAsStoredAbsentOnesAsNoValue) {
  TempDir dir;
  const auto path = dir / "p.docx";
  const std::string big = noiseText(300 << 10, 7);
  testing::writePackage(path, {{"word/document.xml", "<w:document/>"},
                               {"word/empty.xml", ""},
                               {"word/media/image1.bin", everyByte()},
                               {"big.txt", big}});

  Package package(path);
  const struct {
    std::string member;
    std::optional<Data> expected;
    bool listed;
  } cases[] = {
      {"word/document.xml", bytesOf("<w:document/>"), true},
      {"word/empty.xml", Data{}, true},
      {"word/media/image1.bin", bytesOf(everyByte()), true},
      {"big.txt", bytesOf(big), true},
      {"word/styles.xml", std::nullopt, false},
      {"Word/Document.xml", std::nullopt, false},
      {"document.xml", std::nullopt, false},
      {"/word/document.xml", std::nullopt, false},
      {"word/*.xml", std::nullopt, false},
      {"word/document.?ml", std::nullopt, false},
      {"word", std::nullopt, false},
      {"", std::nullopt, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("\"" + c.member + "\"");
    EXPECT_EQ(package.has(c.member), c.listed);
    EXPECT_EQ(package.read(c.member), c.expected);
    EXPECT_EQ(ZipTool::run(path, c.member), c.expected);
  }
}

TEST(PackageRead, FileThatIsNoArchiveHasNoMembers) {
  const struct {
    const char* name;
    std::optional<std::string> bytes;  // none: no file at all
  } cases[] = {
      {"plain text", std::string("word/document.xml\n")},
      {"empty file", std::string()},
      {"local header only", std::string("PK\x03\x04\x14\x00\x00\x00", 8)},
      {"no file", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "p.docx";
    if (c.bytes) testing::writeFile(path, *c.bytes);
    Package package(path);
    EXPECT_FALSE(package.has("word/document.xml"));
    EXPECT_EQ(package.read("word/document.xml"), std::nullopt);
    EXPECT_EQ(ZipTool::run(path, "word/document.xml"), std::nullopt);
  }
}

TEST(PackageRead, StreamDeliversTheBytesInOrder) {
  TempDir dir;
  const auto path = dir / "p.docx";
  const std::string big = noiseText(700 << 10, 11);
  testing::writePackage(path, {{"big.txt", big}, {"empty", ""}});
  Package package(path);

  std::string joined;
  EXPECT_TRUE(package.stream("big.txt", [&](std::string_view chunk) { joined += chunk; }));
  EXPECT_EQ(joined, big);

  bool called = false;
  EXPECT_TRUE(
      package.stream("empty", [&](std::string_view chunk) { called = called || !chunk.empty(); }));
  EXPECT_FALSE(called);

  EXPECT_FALSE(package.stream("absent", [&](std::string_view) { called = true; }));
  EXPECT_FALSE(called);
}

TEST(PackageRead, ThrowFromSinkStopsTheStream) {
  TempDir dir;
  const auto path = dir / "p.docx";
  testing::writePackage(path, {{"big.txt", noiseText(700 << 10, 3)}});
  Package package(path);

  int chunks = 0;
  EXPECT_THROW(package.stream("big.txt",
                              [&](std::string_view) {
                                ++chunks;
                                throw std::runtime_error("enough");
                              }),
               std::runtime_error);
  EXPECT_EQ(chunks, 1);
}

TEST(PackageRead, MemberFailingAfterSomeBytesIsAnArchiveError) {
  const struct {
    const char* name;
    std::string bytes;
    Damage how;
  } cases[] = {
      {"bad checksum, small member", "<w:document>hello</w:document>", Damage::checksum},
      {"bad checksum, large member", noiseText(400 << 10, 5), Damage::checksum},
      {"compressed data overwritten midway", noiseText(400 << 10, 9), Damage::dataMidway},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "p.docx";
    testing::writePackage(path, {{"word/document.xml", c.bytes}, {"word/styles.xml", "<styles/>"}});
    damage(path, "word/document.xml", c.how);

    for (const auto& error : {docxErrorFrom([&] { ZipTool::run(path, "word/document.xml"); }),
                              docxErrorFrom([&] { Package(path).read("word/document.xml"); })}) {
      ASSERT_TRUE(error.has_value());
      EXPECT_EQ(error->kind(), DocxError::Kind::unzipFailed);
      EXPECT_FALSE(error->isLimit());
      EXPECT_THAT(error->what(), StartsWith("Could not open archive: "));
    }
    // The damage is confined to its member.
    EXPECT_EQ(ZipTool::run(path, "word/styles.xml"), bytesOf("<styles/>"));
  }
}

// --- Limits -----------------------------------------------------------------

void expectLimit(const std::optional<DocxError>& error, const std::string& member,
                 const std::string& limit) {
  ASSERT_TRUE(error.has_value()) << "no limit error";
  EXPECT_EQ(error->kind(), DocxError::Kind::unzipFailed);
  EXPECT_TRUE(error->isLimit());
  EXPECT_THAT(error->what(), StartsWith("Could not open archive: "));
  EXPECT_THAT(error->what(), HasSubstr(member));
  EXPECT_THAT(error->what(), HasSubstr(limit));
}

TEST(PackageLimits, MemberInflatingPastMemberLimit) {
  TempDir dir;
  const auto path = dir / "bomb.docx";
  // Blanks compress about a thousandfold: a small file that inflates a lot.
  testing::writePackage(path, {{"word/document.xml", std::string(16 << 20, ' ')},
                               {"word/small.xml", std::string(1 << 20, ' ')}});
  ASSERT_LT(fs::file_size(path), 128u << 10);

  const ImportLimits limits{.memberBytes = 1 << 20};
  Package package(path, limits);
  // Exactly at the limit is still within it.
  EXPECT_EQ(package.read("word/small.xml"), bytesOf(std::string(1 << 20, ' ')));
  expectLimit(docxErrorFrom([&] { package.read("word/document.xml"); }), "word/document.xml",
              describeBytes(limits.memberBytes));

  std::size_t delivered = 0;
  Package streaming(path, limits);
  expectLimit(docxErrorFrom([&] {
                streaming.stream("word/document.xml",
                                 [&](std::string_view chunk) { delivered += chunk.size(); });
              }),
              "word/document.xml", describeBytes(limits.memberBytes));
  EXPECT_LE(delivered, limits.memberBytes);
}

TEST(PackageLimits, MembersTogetherInflatingPastPackageLimit) {
  TempDir dir;
  const auto path = dir / "p.docx";
  const std::string part(600 << 10, 'x');
  testing::writePackage(path, {{"one.xml", part}, {"two.xml", part}});

  const ImportLimits limits{.memberBytes = 1 << 20, .packageBytes = 1 << 20};
  Package package(path, limits);
  EXPECT_EQ(package.read("one.xml"), bytesOf(part));
  expectLimit(docxErrorFrom([&] { package.read("two.xml"); }), "two.xml",
              describeBytes(limits.packageBytes));

  // The budget belongs to one package object: another starts afresh.
  Package again(path, limits);
  EXPECT_EQ(again.read("two.xml"), bytesOf(part));
}

// --- Writing packages -------------------------------------------------------

TEST(PackageWrite, MembersComeBackByteExactUnderExactlyTheirNames) {
  TempDir dir;
  const auto path = dir / "out.docx";
  const std::string big = noiseText(1 << 20, 13);
  const Members members = {
      {"[Content_Types].xml", "<Types/>"},
      {"_rels/.rels", "<Relationships/>"},
      {"word/document.xml", "<w:document>\xC3\xA9</w:document>"},
      {"word/media/image 1.png", everyByte()},
      {"word/media/$(touch x);'q' *.bin", "odd name"},
      {"word/m\xC3\xA9"
       "dia/\xE6\x9D\xB1.xml",
       "unicode name"},
      {"empty.xml", ""},
      {"deep/a/b/c/d/e.txt", big},
  };
  testing::writePackage(path, members);

  std::multiset<std::string> expectedNames;
  for (const auto& [name, bytes] : members) {
    SCOPED_TRACE(name);
    expectedNames.insert(name);
    EXPECT_EQ(ZipTool::run(path, name), bytesOf(bytes));
  }
  EXPECT_EQ(memberNames(path), expectedNames);
  EXPECT_EQ(entries(dir.path()), (std::set<std::string>{"out.docx"}));
}

TEST(PackageWrite, WritingOntoAnExistingFileReplacesIt) {
  const struct {
    const char* name;
    std::optional<Members> before;  // none: a file that is no package
  } cases[] = {
      {"over a package", Members{{"old.xml", "old"}, {"shared.xml", "old shared"}}},
      {"over a plain file", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "out.docx";
    if (c.before) {
      testing::writePackage(path, *c.before);
    } else {
      testing::writeFile(path, std::string(100000, 'z'));
    }

    testing::writePackage(path, {{"new.xml", "new"}, {"shared.xml", "new shared"}});

    EXPECT_EQ(memberNames(path), (std::multiset<std::string>{"new.xml", "shared.xml"}));
    EXPECT_EQ(ZipTool::run(path, "shared.xml"), bytesOf("new shared"));
    EXPECT_EQ(ZipTool::run(path, "old.xml"), std::nullopt);
    EXPECT_EQ(entries(dir.path()), (std::set<std::string>{"out.docx"}));
  }
}

TEST(PackageWrite, UnusableMemberListLeavesTheOldFileAlone) {
  const std::vector<std::vector<std::string>> lists = {
      {"../x"},
      {"/abs"},
      {"a\\b"},
      {""},
      {"word/document.xml", "word/../../escape.xml"},
      {"word/document.xml", "word/document.xml"},
  };
  for (const auto& names : lists) {
    SCOPED_TRACE("\"" + names.back() + "\"");
    TempDir dir;
    const auto path = dir / "out.docx";
    testing::writePackage(path, {{"word/document.xml", "old"}});
    const std::string before = testing::readFile(path);

    std::vector<PackageMember> members;
    for (const auto& name : names) members.push_back({name, "new"});
    const auto error = docxErrorFrom([&] { ZipTool::writePackage(members, path); });

    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), DocxError::Kind::unzipFailed);
    EXPECT_THAT(error->what(), StartsWith("Could not open archive: zip failed: "));
    EXPECT_EQ(testing::readFile(path), before);
    EXPECT_EQ(entries(dir.path()), (std::set<std::string>{"out.docx"}));
    EXPECT_FALSE(fs::exists(dir.path().parent_path() / "escape.xml"));
  }
}

TEST(PackageWrite, FolderThatDoesNotExistIsAFileSystemError) {
  TempDir dir;
  const auto path = dir / "missing" / "out.docx";
  EXPECT_THROW(ZipTool::writePackage({{"a.xml", "a"}}, path), fs::filesystem_error);
  EXPECT_FALSE(fs::exists(dir / "missing"));
  EXPECT_TRUE(entries(dir.path()).empty());
}

TEST(PackageWrite, DestinationThatIsAFolderIsLeftAlone) {
  TempDir dir;
  const auto path = dir / "out.docx";
  fs::create_directory(path);
  testing::writeFile(path / "inside.txt", "keep me");

  EXPECT_THROW(ZipTool::writePackage({{"a.xml", "a"}}, path), fs::filesystem_error);

  ASSERT_TRUE(fs::is_directory(path));
  EXPECT_EQ(entries(path), (std::set<std::string>{"inside.txt"}));
  EXPECT_EQ(testing::readFile(path / "inside.txt"), "keep me");
  EXPECT_EQ(entries(dir.path()), (std::set<std::string>{"out.docx"}));
}

}  // namespace
}  // namespace inkharbour
