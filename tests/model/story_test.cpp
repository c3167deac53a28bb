#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "model/story.h"

namespace inkharbour {
namespace {

Paragraph body(std::string text) { return Paragraph::make("Body", std::move(text)); }
TableCell cell(const char* text) { return {{body(text)}}; }

TEST(Paragraph, MakeAndTheTextOfParagraphsCellsAndFootnotes) {
  EXPECT_EQ(Paragraph::make("Body", ""), (Paragraph{.styleName = "Body", .runs = {}}));
  EXPECT_EQ(Paragraph::make("Quote", "Call me"),
            (Paragraph{.styleName = "Quote", .runs = {{.text = "Call me"}}}));
  const Paragraph p{
      .styleName = "Body",
      .runs = {{.text = "Hel"}, {.text = "lo", .bold = true}, {.text = "[1]", .footnoteID = 1}}};
  EXPECT_EQ(p.text(), "Hello[1]");
  EXPECT_EQ(TableCell{}.text(), "");
  EXPECT_EQ((TableCell{{body("a"), body("b")}}).text(), "a\nb");
  EXPECT_EQ((TableCell{{body(""), body("")}}).text(), "\n");
  EXPECT_EQ((Footnote{.id = 3, .paragraphs = {body(" one"), body("two")}}).text(), " one\ntwo");
}

TEST(Table, ContentKeyAndColumnCount) {
  const struct { Table table; std::string key; std::size_t columns; } cases[] = {
      {{.rows = {{cell("a"), cell("b")}, {cell("c")}}}, "a\x1f" "b\x1e" "c", 2},
      {{}, "", 0},
      {{.rows = {{cell("")}}}, "", 1},  // shares the key of no rows at all
      {{.rows = {std::vector<TableCell>(2), std::vector<TableCell>(5), std::vector<TableCell>(3)}},
       "\x1f\x1e\x1f\x1f\x1f\x1f\x1e\x1f\x1f", 5},
  };
  for (const auto& [table, key, columns] : cases) {
    EXPECT_EQ(table.contentKey(), key);
    EXPECT_EQ(table.columnCount(), columns) << key;
  }
}

TEST(TextRun, SameFormatIgnoresTextAndFootnoteButNotColour) {
  const TextRun plain{.text = "a"};
  EXPECT_TRUE(plain.sameFormat(TextRun{.text = "b", .footnoteID = 4}));
  EXPECT_FALSE(plain.sameFormat(TextRun{.text = "a", .colorHex = "000000"}));
  EXPECT_FALSE(TextRun{.colorHex = "ff0000"}.sameFormat(TextRun{.colorHex = "FF0000"}));
  EXPECT_TRUE(TextRun{.colorHex = "FF0000"}.sameFormat(TextRun{.colorHex = "FF0000"}));
  const TextRun oneFlagEach[] = {{.bold = true}, {.italic = true}, {.underline = true},
                                 {.strikethrough = true}, {.smallCaps = true},
                                 {.script = ScriptPosition::superscript},
                                 {.script = ScriptPosition::subscript}};
  for (std::size_t i = 0; i < std::size(oneFlagEach); ++i) {
    EXPECT_FALSE(plain.sameFormat(oneFlagEach[i])) << i;
    for (std::size_t j = 0; j < std::size(oneFlagEach); ++j)
      EXPECT_EQ(oneFlagEach[i].sameFormat(oneFlagEach[j]), i == j) << i << "," << j;
  }
}

TEST(SharedBytes, CopiesShareOneBufferAndEqualityComparesTheBytes) {
  const SharedBytes bytes(Data{1, 2, 3});
  const ImageBlock image{.data = bytes, .name = "a.png"};
  EXPECT_TRUE(ImageBlock(image).data.sharesBufferWith(bytes));
  EXPECT_EQ(SharedBytes(Data{1, 2, 3}), bytes);
  EXPECT_FALSE(SharedBytes(Data{1, 2, 3}).sharesBufferWith(bytes));
  EXPECT_NE(SharedBytes({1, 2}), bytes);
  EXPECT_EQ(SharedBytes(), SharedBytes(Data{}));
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.end()), (Data{1, 2, 3}));
}

TEST(Block, EqualityIncludesIdentity) {
  const Block a{.kind = body("x")};
  EXPECT_NE(a, (Block{.kind = body("x")}));
  EXPECT_EQ(a, (Block{.id = a.id, .kind = body("x")}));
}

TEST(Uuid, RandomVersionFourWithUpperCaseText) {
  std::set<Uuid> seen;
  for (int i = 0; i < 100; ++i) {
    const auto id = Uuid::random();
    EXPECT_EQ(id.bytes[6] >> 4, 4);
    EXPECT_EQ(id.bytes[8] & 0xC0, 0x80);
    const auto text = id.string();
    EXPECT_EQ(text.size(), 36u);
    EXPECT_EQ(text.find_first_of("abcdef"), std::string::npos) << text;
    EXPECT_EQ(Uuid::parse(text), id);
    EXPECT_TRUE(seen.insert(id).second) << "repeated " << text;
  }
}

TEST(Uuid, ForkedChildNeverRepeatsItsParentsIds) {
  Uuid::random();  // the parent now holds a batch of unused random bytes
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  if (::fork() == 0) {
    const auto id = Uuid::random();
    ::_exit(::write(fds[1], id.bytes.data(), id.bytes.size()) == 16 ? 0 : 1);
  }
  Uuid fromChild;
  ASSERT_EQ(::read(fds[0], fromChild.bytes.data(), fromChild.bytes.size()), 16);
  ::wait(nullptr);
  for (const int fd : fds) ::close(fd);
  EXPECT_NE(Uuid::random(), fromChild);
}

TEST(Uuid, ParseAcceptsEitherCaseAndRejectsOtherForms) {
  const std::string good = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";
  EXPECT_EQ(Uuid::parse(good).value().string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  for (const std::string& bad : {std::string(), std::string("e621e1f8c36c495a93fc0c247a3e6e5f"),
                                 good.substr(0, 35), "g" + good.substr(1), "{" + good + "}"})
    EXPECT_FALSE(Uuid::parse(bad)) << bad;
}

TEST(Enumerations, StoredNamesRoundTrip) {
  for (auto kind : {LinkKind::word, LinkKind::text, LinkKind::excel})
    EXPECT_EQ(parseLinkKind(name(kind)), kind);
  EXPECT_EQ(name(LinkStatus::upToDate), "upToDate");
  EXPECT_EQ(name(ScriptPosition::superscript), "superscript");
  EXPECT_EQ(name(ChangeRecord::Kind::tableCells), "tableCells");
  EXPECT_EQ(parseChangeKind("externalEdit"), ChangeRecord::Kind::externalEdit);
  EXPECT_FALSE(parseScriptPosition("Superscript") || parseLinkKind(""));
}

}  // namespace
}  // namespace inkharbour
