// Link status decisions: text decides, formatting does not; absent and broken
// files are missing; and the cache never shows what a full re-read would not,
// including after a rewrite that keeps the file's size and times.
#include <gtest/gtest.h>

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

// A manuscript of a heading, a paragraph citing a footnote, a table and a
// picture, and the footnote; each field is one thing an edit can change.
struct Draft {
  std::string heading = "Chapter One", style = "Heading 1", cell = "d", image = "PNG 1";
  std::string note = "A note.";
  bool bold = false;
  std::size_t blocks = 4;  // fewer drops blocks from the end, 5 adds one
};

ImportResult manuscript(const Draft& d) {
  Paragraph cited{
      .styleName = "Body",
      .runs = {{.text = "It was late.", .bold = d.bold}, TextRun::footnoteReference(1)}};
  Table table;
  for (const auto* row : {"a", "c"}) {
    table.rows.push_back({{.paragraphs = {Paragraph::make("Body", row)}},
                          {.paragraphs = {Paragraph::make("Body", row[0] == 'a' ? "b" : d.cell)}}});
  }
  ImportResult out{.blocks = {para(d.heading, d.style), Block{.kind = cited}, Block{.kind = table},
                              Block{.kind = ImageBlock{.data = Data(d.image.begin(), d.image.end()),
                                                       .name = "pic.png"}},
                              para("The end.")},
                   .footnotes = {{.id = 1, .paragraphs = {Paragraph::make("Body", d.note)}}}};
  out.blocks.resize(d.blocks);
  return out;
}

void write(const fs::path& path, const ImportResult& content) {
  DocxWriter::write(content.blocks, content.footnotes, path);
}

// The decision of a poll without a cache: read everything, compare the lists.
LinkStatus fullReRead(const StoryLink& link) {
  try {
    const auto now = DocxReader::read(link.path, {});
    const bool same =
        blockFingerprints(now.blocks) == blockFingerprints(link.baseBlocks) &&
        footnoteFingerprints(now.footnotes) == footnoteFingerprints(link.baseFootnotes);
    return same ? LinkStatus::upToDate : LinkStatus::modified;
  } catch (...) {
    return LinkStatus::missing;
  }
}

// A link whose base is what the reader makes of `content` written to `path`.
StoryLink linkTo(const fs::path& path, const ImportResult& content) {
  write(path, content);
  const auto base = DocxReader::read(path, {});
  return {.path = path.string(), .baseBlocks = base.blocks, .baseFootnotes = base.footnotes};
}

// A clock an hour ahead: every file looks old enough to be trusted at once,
// so only a change of the file's identity can cause a read.
std::int64_t anHourAhead() {
  return (static_cast<std::int64_t>(now() + kUnixToReferenceDate) + 3600) * kSecond;
}

TEST(ContentDigest, EqualExactlyWhenTheFingerprintListsAre) {
  Paragraph split{.styleName = "Quote", .runs = {{.text = "ab", .bold = true}, {.text = "c"}}};
  EXPECT_EQ(contentDigest({para("abc")}, {}), contentDigest({Block{.kind = split}}, {}));
  EXPECT_NE(contentDigest({para("ab"), para("c")}, {}), contentDigest({para("a"), para("bc")}, {}));
  EXPECT_NE(contentDigest({para("")}, {}), contentDigest({}, {}));
  EXPECT_NE(contentDigest({}, {{.id = 1}}), contentDigest({}, {{.id = 2}}));
  const Footnote two{.id = 12,
                     .paragraphs = {Paragraph::make("Body", "a"), Paragraph::make("Body", "b")}};
  EXPECT_EQ(footnoteFingerprints({two}), std::vector<std::string>{"12:a\nb"});
}

TEST(LinkStatus, TextTablesImagesAndFootnotesCountFormattingDoesNot) {
  const struct {
    const char* name;
    Draft edit;
    LinkStatus expected;
  } cases[] = {
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
  for (const auto& c : cases) {
    TempDir dir;
    const auto path = dir / "story.docx";
    const Uuid story = Uuid::random();
    const StoryLink link = linkTo(path, manuscript({}));
    LinkStatusCache cache(anHourAhead);
    ASSERT_EQ(cache.decide(story, link, {}), LinkStatus::upToDate) << c.name;

    write(path, manuscript(c.edit));
    EXPECT_EQ(cache.decide(story, link, {}), c.expected) << c.name;
    EXPECT_EQ(cache.decide(story, link, {}), fullReRead(link)) << c.name;
    EXPECT_EQ(cache.fileReads(), 2) << c.name << ": an unchanged file is not read again";
  }
}

TEST(LinkStatus, AbsentOrBrokenFilesAreMissingUntilTheyComeBack) {
  TempDir dir;
  const auto path = dir / "story.docx";
  const Uuid story = Uuid::random();
  const StoryLink link = linkTo(path, manuscript({}));
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
  testing::writeFile(path, "Hello world");
  const StoryLink link{
      .path = path.string(), .kind = LinkKind::text, .baseBlocks = {para("Hello world")}};
  const Uuid story = Uuid::random();

  // On the real file system: rewritten at once, same size, same inode.
  LinkStatusCache real;
  EXPECT_EQ(real.decide(story, link, {}), LinkStatus::upToDate);
  testing::writeFile(path, "Hello World");
  EXPECT_EQ(real.decide(story, link, {}), LinkStatus::modified);

  // A file system with whole-second times, which both writes fall into: the
  // identity cannot tell them apart, so only the racy rule can.
  const std::int64_t second = 1'700'000'000 * kSecond;
  std::int64_t clock = second + kSecond / 2;
  auto coarseStat = [&](const fs::path& p) {
    auto identity = FileIdentity::of(p);
    if (identity) identity->modifiedNs = identity->changedNs = second;
    return identity;
  };
  LinkStatusCache coarse([&] { return clock; }, coarseStat);
  testing::writeFile(path, "Hello world");
  EXPECT_EQ(coarse.decide(story, link, {}), LinkStatus::upToDate);
  testing::writeFile(path, "Hello World");
  EXPECT_EQ(coarse.decide(story, link, {}), LinkStatus::modified);

  // Once a read starts well after the file's time, the file is trusted.
  clock = second + 10 * kSecond;
  EXPECT_EQ(coarse.decide(story, link, {}), LinkStatus::modified);
  const auto reads = coarse.fileReads();
  EXPECT_EQ(coarse.decide(story, link, {}), LinkStatus::modified);
  EXPECT_EQ(coarse.fileReads(), reads);
}

}  // namespace
}  // namespace inkharbour
