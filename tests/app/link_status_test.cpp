// Link status decisions: text decides, formatting does not; absent and broken files are missing;
// and a cached decision is the one a fresh read makes.
#include <gtest/gtest.h>

#include <tuple>

#include "app/link_status.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

using testing::TempDir;
namespace fs = std::filesystem;

constexpr std::int64_t kSecond = 1'000'000'000;

Block para(const std::string& text, const std::string& style = "Body") {
  return Block{.kind = Paragraph::make(style, text)};
}

// A heading, a paragraph citing a footnote, a table, a picture and the footnote; each field
// is one thing an edit can change.
struct Draft {
  std::string heading = "Chapter One", style = "Heading 1", cell = "d", image = "PNG 1";
  std::string note = "A note.";
  bool bold = false;
  std::size_t blocks = 4;  // fewer drops blocks from the end, 5 adds one
};

// Writes the draft to `path` as a .docx.
void write(const fs::path& path, const Draft& d) {
  const Paragraph cited{
      .styleName = "Body",
      .runs = {{.text = "It was late.", .bold = d.bold}, TextRun::footnoteReference(1)}};
  const auto cell = [](const char* text) { return TableCell{{Paragraph::make("Body", text)}}; };
  const Table table{.rows = {{cell("a"), cell("b")}, {cell("c"), cell(d.cell.c_str())}}};
  std::vector<Block> blocks{
      para(d.heading, d.style), Block{.kind = cited}, Block{.kind = table},
      Block{.kind = ImageBlock{.data = Data(d.image.begin(), d.image.end()), .name = "pic.png"}},
      para("The end.")};
  blocks.resize(d.blocks);
  DocxWriter::write(blocks, {{.id = 1, .paragraphs = {Paragraph::make("Body", d.note)}}}, path);
}

// A link whose base is what the reader makes of the unedited draft written to `path`.
StoryLink linkTo(const fs::path& path) {
  write(path, {});
  const auto base = DocxReader::read(path, {});
  return {.path = path.string(), .baseBlocks = base.blocks, .baseFootnotes = base.footnotes};
}

// A clock an hour ahead: every file is old enough to be trusted, so only a new identity reads.
std::int64_t anHourAhead() {
  return (static_cast<std::int64_t>(now() + kUnixToReferenceDate) + 3600) * kSecond;
}

TEST(ContentDigest, EqualExactlyWhenTheFingerprintListsAre) {
  const Paragraph split{.styleName = "Q", .runs = {{.text = "ab", .bold = true}, {.text = "c"}}};
  EXPECT_EQ(contentDigest({para("abc")}, {}), contentDigest({Block{.kind = split}}, {}));
  EXPECT_NE(contentDigest({para("ab"), para("c")}, {}), contentDigest({para("a"), para("bc")}, {}));
  EXPECT_NE(contentDigest({para("")}, {}), contentDigest({}, {}));
  EXPECT_NE(contentDigest({}, {{.id = 1}}), contentDigest({}, {{.id = 2}}));
  const Footnote two{.id = 12,
                     .paragraphs = {Paragraph::make("Body", "a"), Paragraph::make("Body", "b")}};
  EXPECT_EQ(footnoteFingerprints({two}), std::vector<std::string>{"12:a\nb"});
}

TEST(LinkStatus, TextTablesImagesAndFootnotesCountFormattingDoesNot) {
  const std::tuple<const char*, Draft, LinkStatus> cases[] = {
      {"unchanged", {}, LinkStatus::upToDate},
      {"one character", {.heading = "Chapter 0ne"}, LinkStatus::modified},
      {"paragraph style", {.style = "Title"}, LinkStatus::upToDate},
      {"bold", {.bold = true}, LinkStatus::upToDate},
      {"table cell", {.cell = "e"}, LinkStatus::modified},
      {"image bytes", {.image = "PNG 2"}, LinkStatus::modified},
      {"footnote", {.note = "A note!"}, LinkStatus::modified},
      {"block added", {.blocks = 5}, LinkStatus::modified},
      {"block removed", {.blocks = 3}, LinkStatus::modified},
  };
  for (const auto& [name, edit, expected] : cases) {
    SCOPED_TRACE(name);
    TempDir dir;
    const Uuid story = Uuid::random();
    const StoryLink link = linkTo(dir / "story.docx");
    LinkStatusCache cache(anHourAhead);
    ASSERT_EQ(cache.decide(story, link, {}), LinkStatus::upToDate);
    write(dir / "story.docx", edit);
    EXPECT_EQ(cache.decide(story, link, {}), expected);
    EXPECT_EQ(cache.decide(story, link, {}), expected) << "from the cache";
    EXPECT_EQ(cache.fileReads(), 2) << "an unchanged file is not read again";
  }
}

TEST(LinkStatus, AbsentOrBrokenFilesAreMissingUntilTheyComeBack) {
  TempDir dir;
  const auto path = dir / "story.docx";
  const Uuid story = Uuid::random();
  const StoryLink link = linkTo(path);
  const std::string good = testing::readFile(path);
  LinkStatusCache cache(anHourAhead);
  fs::remove(path);
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::missing);
  testing::writeFile(path, good);
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::upToDate);
  testing::writeFile(path, good.substr(0, good.size() / 2));
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::missing);
  const auto reads = cache.fileReads();
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::missing);
  EXPECT_EQ(cache.fileReads(), reads) << "a broken package stays broken until it changes";
}

TEST(LinkStatusCache, ARewriteWithinTheSameTimestampIsStillSeen) {
  TempDir dir;
  const auto path = dir / "notes.txt";
  const StoryLink link{
      .path = path.string(), .kind = LinkKind::text, .baseBlocks = {para("Hello world")}};
  const Uuid story = Uuid::random();
  // Whole-second times that both writes fall into, same size: only the racy rule can tell.
  const std::int64_t second = 1'700'000'000 * kSecond;
  std::int64_t clock = second + kSecond / 2;
  LinkStatusCache cache([&] { return clock; },
                        [&](const fs::path& p) {
                          auto identity = FileIdentity::of(p);
                          if (identity) identity->modifiedNs = identity->changedNs = second;
                          return identity;
                        });
  testing::writeFile(path, "Hello world");
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::upToDate);
  testing::writeFile(path, "Hello World");
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::modified);
  // Once a read starts well after the file's time, the file is trusted.
  clock = second + 10 * kSecond;
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::modified);
  const auto reads = cache.fileReads();
  EXPECT_EQ(cache.decide(story, link, {}), LinkStatus::modified);
  EXPECT_EQ(cache.fileReads(), reads);
}

}  // namespace
}  // namespace inkharbour
