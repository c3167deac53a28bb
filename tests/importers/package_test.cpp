// Package access: reading members of a ZIP package and writing a new one.
#include "importers/package.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/parallel_deflate.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::Members;
using ::testing::StartsWith;
using testing::TempDir;
using testing::throwsDocxError;

const auto bytesOf = [](const std::string& text) { return Data(text.begin(), text.end()); };

// Letters and blanks in no pattern: deflate cannot shrink them much.
std::string noiseText(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string text(size, ' ');
  for (auto& c : text) c = "abcdefghijklmnopqrstuvwxyz \n"[random() % 28];
  return text;
}

std::set<fs::path> entries(const fs::path& folder) {
  return std::set<fs::path>(fs::directory_iterator(folder), fs::directory_iterator());
}

// The member count in the archive's end-of-central-directory record.
int memberCount(const fs::path& archive) {
  const std::string zip = testing::readFile(archive);
  const auto end = zip.rfind(std::string("PK\x05\x06", 4));
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(zip.at(end + at)); };
  return byte(10) | byte(11) << 8;
}

TEST(PackageRead, MembersComeBackAsStoredAbsentOnesAndNonArchivesAsNoValue) {
  TempDir dir;
  const auto expectRead = [](const fs::path& path, const std::string& member,
                             const std::optional<Data>& expected) {
    SCOPED_TRACE(path.filename().string() + ": " + member);
    EXPECT_EQ(Package(path).has(member), expected.has_value());
    EXPECT_EQ(Package(path).read(member), expected);
    EXPECT_EQ(ZipTool::run(path, member), expected);
  };
  const std::string binary("\x89PNG\0\xff\x01", 7);
  testing::writePackage(dir / "p.docx", {{"word/document.xml", "<w:document/>"},
                                         {"word/empty.xml", ""},
                                         {"word/media/image1.bin", binary}});
  expectRead(dir / "p.docx", "word/document.xml", bytesOf("<w:document/>"));
  expectRead(dir / "p.docx", "word/empty.xml", Data{});  // empty, yet present
  expectRead(dir / "p.docx", "word/media/image1.bin", bytesOf(binary));
  for (const char* absent :
       {"word/styles.xml", "Word/Document.xml", "/word/document.xml", "word/*.xml"}) {
    expectRead(dir / "p.docx", absent, std::nullopt);
  }
  // A file that is no archive, or no file at all, has no members.
  testing::writeFile(dir / "text.docx", "word/document.xml\n");
  testing::writeFile(dir / "empty.docx", "");
  testing::writeFile(dir / "header.docx", std::string("PK\x03\x04\x14\x00\x00\x00", 8));
  for (const char* file : {"text.docx", "empty.docx", "header.docx", "absent.docx"}) {
    expectRead(dir / file, "word/document.xml", std::nullopt);
  }
}

TEST(PackageRead, StreamDeliversTheBytesInOrderUntilTheSinkThrows) {
  TempDir dir;
  const std::string big = noiseText(700 << 10, 11);
  testing::writePackage(dir / "p.docx", {{"big.txt", big}, {"empty", ""}});
  Package package(dir / "p.docx");
  std::string joined;
  EXPECT_TRUE(package.stream("big.txt", [&](std::string_view chunk) { joined += chunk; }));
  EXPECT_EQ(joined, big);
  int calls = 0;
  EXPECT_TRUE(package.stream("empty", [&](std::string_view chunk) { calls += !chunk.empty(); }));
  EXPECT_FALSE(package.stream("absent", [&](std::string_view) { ++calls; }));
  EXPECT_EQ(calls, 0);
  const auto stop = [&](std::string_view) {
    ++calls;
    throw std::runtime_error("enough");
  };
  EXPECT_THROW(package.stream("big.txt", stop), std::runtime_error);
  EXPECT_EQ(calls, 1);
}

TEST(PackageRead, MemberFailingAfterSomeBytesIsAnArchiveError) {
  TempDir dir;
  const auto path = dir / "p.docx";
  const std::string member = "word/document.xml";
  testing::writePackage(path,
                        {{member, noiseText(400 << 10, 9)}, {"word/styles.xml", "<styles/>"}});
  // The name sits 30 bytes into its local header, followed by the extra field, then the data.
  std::string zip = testing::readFile(path);
  const auto name = zip.find(member);
  const auto middle = name + member.size() + static_cast<unsigned char>(zip[name - 2]) + 100000;
  ASSERT_LT(middle, zip.rfind(member));
  for (std::size_t i = 0; i < 64; ++i) zip[middle + i] ^= 0xA5;
  testing::writeFile(path, zip);
  const auto damaged = throwsDocxError(DocxError::Kind::unzipFailed, false,
                                       StartsWith("Could not open archive: word/document.xml: "));
  EXPECT_THAT([&] { ZipTool::run(path, member); }, damaged);
  EXPECT_THAT([&] { Package(path).read(member); }, damaged);
  EXPECT_EQ(ZipTool::run(path, "word/styles.xml"), bytesOf("<styles/>"));  // damage stays put
}

TEST(PackageLimits, InflatedBytesAreCountedPerMemberPerPackageObjectAndAgainstTheRatio) {
  TempDir dir;
  const auto path = dir / "bomb.docx";
  // Blanks compress about a thousandfold, noise hardly at all.
  const std::string mebibyte(1 << 20, ' ');
  const std::string text = noiseText(3 << 20, 5);
  testing::writePackage(path, {{"bomb.xml", std::string(16 << 20, ' ')},
                               {"one.xml", mebibyte},
                               {"two.xml", mebibyte},
                               {"text.xml", text}});
  const auto limitError = [](const std::string& message) {
    return throwsDocxError(DocxError::Kind::unzipFailed, true,
                           "Could not open archive: " + message);
  };
  std::size_t delivered = 0;
  const auto count = [&](std::string_view chunk) { delivered += chunk.size(); };
  const ImportLimits sizes{.memberBytes = 1 << 20, .packageBytes = 2 << 20};
  Package sized(path, sizes);
  EXPECT_THAT([&] { sized.stream("bomb.xml", count); },
              limitError("bomb.xml inflates to more than 1 MiB, the limit for one member"));
  EXPECT_LE(delivered, 1u << 20);
  EXPECT_EQ(sized.read("one.xml"), bytesOf(mebibyte));  // exactly at the member limit
  EXPECT_THAT(
      [&] { sized.read("two.xml"); },
      limitError("two.xml: the package inflates to more than 2 MiB in one import, the limit"));
  // The budget belongs to one package object: another starts afresh.
  EXPECT_EQ(Package(path, sizes).read("two.xml"), bytesOf(mebibyte));
  // A member that compresses like a bomb stops well before its 16 MiB.
  delivered = 0;
  Package ratio(path, ImportLimits{.compressionRatio = 100, .ratioCheckAfter = 2 << 20});
  EXPECT_THAT([&] { ratio.stream("bomb.xml", count); },
              limitError("bomb.xml inflates to more than 100 times its compressed size, the limit "
                         "for one member"));
  EXPECT_LT(delivered, 8u << 20);
  EXPECT_EQ(ratio.read("text.xml"), bytesOf(text));

  // The same bomb whose central directory claims 2 GiB of compressed data:
  // the ratio is judged by the bytes actually read, so it still stops.
  std::string zip = testing::readFile(path);
  const std::string record("PK\x01\x02", 4);
  auto at = zip.find(record);
  while (at != std::string::npos && zip.compare(at + 46, 8, "bomb.xml") != 0) {
    at = zip.find(record, at + 4);
  }
  ASSERT_NE(at, std::string::npos);
  zip.replace(at + 20, 4, std::string("\xff\xff\xff\x7f", 4));  // compressed size, little-endian
  testing::writeFile(dir / "liar.docx", zip);
  delivered = 0;
  Package liar(dir / "liar.docx",
               ImportLimits{.compressionRatio = 100, .ratioCheckAfter = 2 << 20});
  EXPECT_THAT([&] { liar.stream("bomb.xml", count); },
              limitError("bomb.xml inflates to more than 100 times its compressed size, the limit "
                         "for one member"));
  EXPECT_LT(delivered, 8u << 20);
}

// Raw deflate as zlib writes it with these settings, flushing every
// `flushEvery` bytes when that is not 0.
std::string deflated(std::string_view text, int level, int strategy, int flush,
                     std::size_t flushEvery) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, -15, 8, strategy), Z_OK);
  std::string out(deflateBound(&stream, text.size()) + text.size() / 1000 + 1024, '\0');
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  for (std::size_t at = 0; at < text.size() || at == 0;) {
    const std::size_t length = flushEvery ? std::min(flushEvery, text.size() - at) : text.size();
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data() + at));
    stream.avail_in = static_cast<uInt>(length);
    at += length;
    EXPECT_NE(deflate(&stream, at >= text.size() ? Z_FINISH : flush), Z_STREAM_ERROR);
    if (text.empty()) break;
  }
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string inflated(const std::string& raw) {
  DeflateBlocks blocks{.compressed = raw, .blocks = {}};
  std::string text, error;
  std::vector<char> buffer(1 << 16);
  EXPECT_TRUE(inflateNotingBlocks(
      blocks, buffer, [&](std::string_view chunk, std::uint64_t) { text += chunk; }, error))
      << error;
  return text;
}

TEST(DeflateReuse, EditedTextTakesOverTheOldBlocksOfEveryStreamShapeAndInflatesAsTheNewText) {
  std::string old;
  std::mt19937 random(7);
  while (old.size() < 700'000) {
    old += "<w:p><w:r><w:t>" + std::to_string(random()) + " words " +
           std::to_string(random() % 97) + "</w:t></w:r></w:p>";
  }
  // Edits at the very start, in the middle (replaced and deleted text) and
  // at the end, and none at all.
  const std::size_t third = old.size() / 3;
  const std::string added = "<w:p><w:r><w:t>Our own.</w:t></w:r></w:p>";
  std::string edited = added + old.substr(0, third) + added + old.substr(third + 500, third) +
                       old.substr(2 * third + 600) + added;
  const std::vector<CopiedSpan> editedSpans = {
      {0, third, added.size()},
      {third + 500, 2 * third + 500, 2 * added.size() + third},
      {2 * third + 600, old.size(), 2 * added.size() + 2 * third},
  };
  const struct {
    int level, strategy, flush;
    std::size_t flushEvery;
  } shapes[] = {
      {6, Z_DEFAULT_STRATEGY, Z_NO_FLUSH, 0}, {1, Z_DEFAULT_STRATEGY, Z_SYNC_FLUSH, 50'000},
      {9, Z_FIXED, Z_FULL_FLUSH, 70'000},     {6, Z_HUFFMAN_ONLY, Z_NO_FLUSH, 0},
      {0, Z_DEFAULT_STRATEGY, Z_NO_FLUSH, 0}, {6, Z_RLE, Z_PARTIAL_FLUSH, 30'000}};
  for (const auto& shape : shapes) {
    SCOPED_TRACE(::testing::Message() << "level " << shape.level << ", strategy " << shape.strategy
                                      << ", flush " << shape.flush);
    DeflateBlocks blocks{
        .compressed = deflated(old, shape.level, shape.strategy, shape.flush, shape.flushEvery),
        .blocks = {}};
    std::string text, error;
    // Block starts are found whatever the output buffer holds.
    std::vector<char> buffer(shape.level == 1 ? 7 : 1 << 16);
    ASSERT_TRUE(inflateNotingBlocks(
        blocks, buffer, [&](std::string_view chunk, std::uint64_t) { text += chunk; }, error));
    ASSERT_TRUE(text == old);
    EXPECT_GT(blocks.blocks.size(), 3u);

    for (const auto& [bytes, spans] :
         {std::pair{edited, editedSpans},
          std::pair{old, std::vector<CopiedSpan>{{0, old.size(), 0}}}}) {
      const auto result = deflateReusing(bytes, blocks, spans, 2);
      EXPECT_TRUE(inflated(result.data) == bytes);
      EXPECT_EQ(result.crc32, crc32(0, reinterpret_cast<const Bytef*>(bytes.data()),
                                    static_cast<uInt>(bytes.size())));
      // Huffman-only blocks are far larger than level 2 makes them: the
      // size shows they were taken over.
      if (shape.strategy == Z_HUFFMAN_ONLY) {
        EXPECT_GT(result.data.size(), deflateInParallel(bytes, 2).data.size() * 3 / 2);
      }
    }
  }
  EXPECT_EQ(inflated(deflateReusing("", DeflateBlocks{}, {}, 2).data), "");
}

TEST(DeflateReuse, APackageMemberReadNotingItsBlocksIsWrittenBackFromThem) {
  TempDir dir;
  std::string prose;
  for (unsigned i = 0; prose.size() < (5u << 20); ++i) {
    prose += std::to_string(i * 2654435761u % 100003) + (i % 7 == 0 ? "\n" : " ");
  }
  testing::writePackage(dir / "p.docx", {{"big.xml", prose}, {"small.xml", "small"}});
  Package package(dir / "p.docx");
  for (const auto& [member, text] :
       {std::pair{"big.xml", prose}, std::pair{"small.xml", std::string("small")}}) {
    DeflateBlocks blocks;
    std::string read;
    ASSERT_TRUE(package.stream(
        member, [&](std::string_view chunk) { read += chunk; }, blocks));
    EXPECT_TRUE(read == text);
    // A part too small to shrink is stored, and has no blocks.
    EXPECT_EQ(blocks.blocks.empty(), text == "small");
  }
  DeflateBlocks blocks;
  package.stream(
      "big.xml", [](std::string_view) {}, blocks);
  const std::string edited = prose.substr(0, 3u << 20) + "new" + prose.substr((3u << 20) + 10);
  ZipTool::writePackage(
      {{.path = "big.xml",
        .bytes = edited,
        .old = &blocks,
        .copied = {{0, 3u << 20, 0}, {(3u << 20) + 10, prose.size(), (3u << 20) + 3}}}},
      dir / "q.docx");
  EXPECT_EQ(Package(dir / "q.docx").read("big.xml"), bytesOf(edited));
  // A damaged stream is an archive error, as it is when read any other way.
  std::string zip = testing::readFile(dir / "p.docx");
  zip[zip.find("big.xml") + 7 + 5000] ^= 0x55;
  testing::writeFile(dir / "bad.docx", zip);
  Package bad(dir / "bad.docx");
  EXPECT_THROW(bad.stream(
                   "big.xml", [](std::string_view) {}, blocks),
               DocxError);
}

TEST(PackageWrite, MembersReplaceTheOldFileByteExactUnderExactlyTheirNames) {
  TempDir dir;
  testing::writePackage(dir / "out.docx", {{"old.xml", "old"}, {"empty.xml", "old"}});
  // Past the size from which members are deflated in 1 MiB pieces on several
  // cores, and exactly at it; the reader checks the CRC of every member.
  std::string prose;
  for (unsigned i = 0; prose.size() < (9u << 20) + 12345; ++i) {
    prose += std::to_string(i * 2654435761u % 100003) + (i % 7 == 0 ? "\n" : " ");
  }
  const Members members = {
      {"word/media/image 1.png", std::string("\x89PNG\0\xff", 6)},
      {"word/media/$(touch x);'q' *.bin", "odd name"},
      {"word/média/東.xml", "unicode name"},
      {"empty.xml", ""},
      {"deep/a/b/c/d/e.txt", noiseText(1 << 20, 13)},
      {"big.xml", prose},
      {"edge.xml", std::string(4u << 20, 'x')},
  };
  testing::writePackage(dir / "out.docx", members);
  Package package(dir / "out.docx");
  for (const auto& [name, bytes] : members) EXPECT_EQ(package.read(name), bytesOf(bytes)) << name;
  EXPECT_FALSE(package.has("old.xml"));
  EXPECT_EQ(memberCount(dir / "out.docx"), static_cast<int>(members.size()));
  EXPECT_EQ(entries(dir.path()), std::set<fs::path>{dir / "out.docx"});
}

TEST(PackageWrite, UnusableMemberListLeavesTheOldFileAlone) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"/abs"}, R"(invalid member name "/abs")"},
      {{"a\\b"}, R"(invalid member name "a\b")"},
      {{"word/document.xml", "word/../../escape.xml"},
       R"(invalid member name "word/../../escape.xml")"},
      {{"word/document.xml", "word/document.xml"}, "word/document.xml: "},
  };
  for (const auto& [names, message] : cases) {
    SCOPED_TRACE(message);
    TempDir dir;
    const auto path = dir / "out.docx";
    testing::writePackage(path, {{"word/document.xml", "old"}});
    const std::string before = testing::readFile(path);
    std::vector<PackageMember> members;
    for (const auto& name : names) members.push_back({name, "new"});
    EXPECT_THAT([&] { ZipTool::writePackage(members, path); },
                throwsDocxError(DocxError::Kind::unzipFailed, false,
                                StartsWith("Could not open archive: zip failed: " + message)));
    EXPECT_EQ(testing::readFile(path), before);
    EXPECT_EQ(entries(dir.path()), std::set<fs::path>{dir / "out.docx"});
    EXPECT_FALSE(fs::exists(dir.path().parent_path() / "escape.xml"));
  }
}

TEST(PackageWrite, DestinationThatCannotBeWrittenIsAFileSystemError) {
  TempDir dir;
  EXPECT_THROW(ZipTool::writePackage({{"a.xml", "a"}}, dir / "missing" / "out.docx"),
               fs::filesystem_error);
  EXPECT_TRUE(entries(dir.path()).empty());
  // A folder in the way is left as it was.
  fs::create_directory(dir / "out.docx");
  testing::writeFile(dir / "out.docx" / "inside.txt", "keep me");
  EXPECT_THROW(ZipTool::writePackage({{"a.xml", "a"}}, dir / "out.docx"), fs::filesystem_error);
  EXPECT_EQ(entries(dir / "out.docx"), std::set<fs::path>{dir / "out.docx" / "inside.txt"});
  EXPECT_EQ(testing::readFile(dir / "out.docx" / "inside.txt"), "keep me");
  EXPECT_EQ(entries(dir.path()), std::set<fs::path>{dir / "out.docx"});
}

}  // namespace
}  // namespace inkharbour
