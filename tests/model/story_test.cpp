#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "model/story.h"

namespace inkharbour {
namespace {

Paragraph body(std::string text) { return Paragraph::make("Body", std::move(text)); }
TableCell cell(std::vector<std::string> paragraphs) {
  TableCell c;
  for (auto& p : paragraphs) c.paragraphs.push_back(body(std::move(p)));
  return c;
}

TEST(Paragraph, MakeGivesOnePlainRunOrNone) {
  const auto empty = Paragraph::make("Body", "");
  EXPECT_TRUE(empty.runs.empty());
  EXPECT_EQ(empty.text(), "");

  const auto filled = Paragraph::make("Quote", "Call me");
  ASSERT_EQ(filled.runs.size(), 1u);
  EXPECT_EQ(filled.runs[0], TextRun{.text = "Call me"});
  EXPECT_EQ(filled.styleName, "Quote");
}

TEST(Paragraph, TextConcatenatesRuns) {
  const Paragraph p{.styleName = "Body",
                    .runs = {{.text = "Hel"}, {.text = "lo", .bold = true}, {.text = "[1]", .footnoteID = 1}}};
  EXPECT_EQ(p.text(), "Hello[1]");
}

TEST(TableCell, TextJoinsParagraphsWithLineFeeds) {
  EXPECT_EQ(cell({}).text(), "");
  EXPECT_EQ(cell({"a", "b"}).text(), "a\nb");
  EXPECT_EQ(cell({"", ""}).text(), "\n");
  const Footnote note{.id = 3, .paragraphs = {body(" one"), body("two")}};
  EXPECT_EQ(note.text(), " one\ntwo");
}

TEST(Table, ContentKeyAndColumnCount) {
  const Table table{.rows = {{cell({"a"}), cell({"b"})}, {cell({"c"})}}};
  EXPECT_EQ(table.contentKey(), "a\x1f" "b\x1e" "c");
  EXPECT_EQ(table.columnCount(), 2u);

  EXPECT_EQ(Table{}.contentKey(), "");
  EXPECT_EQ(Table{}.columnCount(), 0u);
  // One empty cell and no rows at all share the empty key.
  EXPECT_EQ(Table{.rows = {{cell({""})}}}.contentKey(), "");

  const Table ragged{.rows = {{cell({}), cell({})},
                              {cell({}), cell({}), cell({}), cell({}), cell({})},
                              {cell({}), cell({}), cell({})}}};
  EXPECT_EQ(ragged.columnCount(), 5u);
  EXPECT_EQ(ragged.contentKey(), "\x1f\x1e\x1f\x1f\x1f\x1f\x1e\x1f\x1f");
}

TEST(TextRun, SameFormatIgnoresTextAndFootnoteButNotColour) {
  const TextRun plain{.text = "a"};
  EXPECT_TRUE(plain.sameFormat(TextRun{.text = "b"}));
  EXPECT_TRUE(plain.sameFormat(TextRun{.text = "a", .footnoteID = 4}));
  EXPECT_FALSE(plain.sameFormat(TextRun{.text = "a", .colorHex = "000000"}));
  EXPECT_FALSE(TextRun{.colorHex = "ff0000"}.sameFormat(TextRun{.colorHex = "FF0000"}));
  EXPECT_TRUE(TextRun{.colorHex = "FF0000"}.sameFormat(TextRun{.colorHex = "FF0000"}));

  const std::vector<TextRun> oneFlagEach{
      {.bold = true},      {.italic = true},
      {.underline = true}, {.strikethrough = true},
      {.smallCaps = true}, {.script = ScriptPosition::superscript},
      {.script = ScriptPosition::subscript}};
  for (std::size_t i = 0; i < oneFlagEach.size(); ++i) {
    EXPECT_FALSE(plain.sameFormat(oneFlagEach[i])) << i;
    for (std::size_t j = 0; j < oneFlagEach.size(); ++j) {
      EXPECT_EQ(oneFlagEach[i].sameFormat(oneFlagEach[j]), i == j) << i << "," << j;
    }
  }
}

TEST(Block, EqualityIncludesIdentity) {
  const Block a{.kind = body("x")};
  const Block b{.kind = body("x")};
  EXPECT_NE(a.id, b.id);
  EXPECT_NE(a, b);
  EXPECT_EQ(a, (Block{.id = a.id, .kind = body("x")}));
  // The same content under another alternative is a different block.
  EXPECT_NE(a, (Block{.id = a.id, .kind = Table{}}));

  Story story{.name = "s"};
  Story copy = story;
  EXPECT_EQ(story, copy);
  copy.lastMergeReport.push_back(ChangeRecord{.summary = "x"});
  EXPECT_NE(story, copy);
}

TEST(Uuid, RandomVersionFourWithUpperCaseText) {
  std::set<Uuid> seen;
  for (int i = 0; i < 100; ++i) {
    const auto id = Uuid::random();
    EXPECT_EQ(id.bytes[6] >> 4, 4);
    EXPECT_EQ(id.bytes[8] & 0xC0, 0x80);
    const auto text = id.string();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text, [&] {
      std::string upper = text;
      for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      return upper;
    }());
    EXPECT_EQ(Uuid::parse(text), id);
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(Uuid, ForkedChildNeverRepeatsItsParentsIds) {
  Uuid::random();  // the parent now holds a batch of unused random bytes
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto id = Uuid::random();
    [[maybe_unused]] auto n = ::write(fds[1], id.bytes.data(), id.bytes.size());
    ::_exit(0);
  }
  Uuid fromChild;
  ASSERT_EQ(::read(fds[0], fromChild.bytes.data(), fromChild.bytes.size()), 16);
  ::waitpid(child, nullptr, 0);
  ::close(fds[0]);
  ::close(fds[1]);
  EXPECT_NE(Uuid::random(), fromChild);
}

TEST(Uuid, ParseAcceptsEitherCaseAndRejectsOtherForms) {
  const auto id = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(id);
  EXPECT_EQ(id->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  for (const char* bad : {"", "e621e1f8c36c495a93fc0c247a3e6e5f", "e621e1f8-c36c-495a-93fc-0c247a3e6e5",
                          "g621e1f8-c36c-495a-93fc-0c247a3e6e5f", "{e621e1f8-c36c-495a-93fc-0c247a3e6e5f}"}) {
    EXPECT_FALSE(Uuid::parse(bad)) << bad;
  }
}

TEST(Enumerations, StoredNamesRoundTrip) {
  for (auto kind : {LinkKind::word, LinkKind::text, LinkKind::excel}) {
    EXPECT_EQ(parseLinkKind(name(kind)), kind);
  }
  EXPECT_EQ(name(LinkStatus::upToDate), "upToDate");
  EXPECT_EQ(name(ScriptPosition::superscript), "superscript");
  EXPECT_EQ(name(ChangeRecord::Kind::tableCells), "tableCells");
  EXPECT_EQ(parseChangeKind("externalEdit"), ChangeRecord::Kind::externalEdit);
  EXPECT_FALSE(parseScriptPosition("Superscript"));
  EXPECT_FALSE(parseLinkKind(""));
}

}  // namespace
}  // namespace inkharbour
