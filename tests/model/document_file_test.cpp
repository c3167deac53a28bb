#include "model/document_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <limits>
#include <map>
#include <numeric>
#include <sstream>

#include "model/base64.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using ::testing::Eq, ::testing::Matcher, ::testing::Property, ::testing::StartsWith,
    ::testing::Throws;
using testing::readFile, testing::TempDir, testing::writeFile;

const auto body = [](const char* text) { return Paragraph::make("Body", text); };

// Every kind of value the file holds, optional values present and absent.
ProjectDocument richDocument() {
  const Paragraph runs{
      .styleName = "Body",
      .runs = {{.text = "Plain \"quoted\" back\\slash / tab\t line\n"},
               {.text = "Every flag \xC3\xA9 \xF0\x9F\x93\x96",
                .bold = true,
                .italic = true,
                .underline = true,
                .strikethrough = true,
                .smallCaps = true,
                .script = ScriptPosition::superscript,
                .colorHex = "FF0000"},
               {.text = "[1]", .script = ScriptPosition::subscript, .footnoteID = 1},
               {.text = "both", .colorHex = "00ff00", .footnoteID = -7},
               {.text = ""}}};
  Data everyByte(256);
  std::iota(everyByte.begin(), everyByte.end(), 0);
  const Table table{
      .rows = {{TableCell{{body("a"), body("")}}, TableCell{}}, {}, {TableCell{{runs}}}}};
  const std::vector<Footnote> footnotes{
      {.id = 1, .paragraphs = {Paragraph::make("Footnote", "A note.")}},
      {.id = std::numeric_limits<std::int64_t>::max()}};
  Story linked{
      .name = "Chapter / One",
      .blocks = {Block{.kind = runs}, Block{.kind = table},
                 Block{.kind = ImageBlock{.data = everyByte, .name = "image1.png"}},
                 Block{.kind = ImageBlock{}}},
      .footnotes = footnotes,
      .link = StoryLink{.path = "/Users/me/One.docx",
                        .baseBlocks = {Block{.kind = body("old")}},
                        .baseFootnotes = footnotes,
                        .lastSync = 712345678.125},
      .notes = {
          {.paragraphIndex = 3, .localText = "mine", .externalText = "theirs", .date = -0.5}}};
  for (int kind = 0; kind < 6; ++kind) {
    ChangeRecord record{.kind = static_cast<ChangeRecord::Kind>(kind), .summary = "Change"};
    if (kind % 2 == 0) record.localText = "local";
    if (kind % 3 == 0) record.externalText = "";
    linked.lastMergeReport.push_back(record);
  }
  return ProjectDocument{
      .stories = {linked,
                  Story{.name = "Sheet",
                        .blocks = {Block{.kind = table}},
                        .link = StoryLink{.path = "/tmp/Orders.xlsx", .kind = LinkKind::excel}},
                  Story{.name = "Notes", .link = StoryLink{.path = "n", .kind = LinkKind::text}},
                  Story{.name = ""}},
      .styleMap = {{"Heading 1", "Heading"}, {"\u00DCberschrift", "Heading"}, {"a/b", "B"}}};
}

// Fails unless each object's keys ("key" : at a line's start) strictly increase.
void expectSortedKeys(const std::string& json) {
  std::vector<std::string> lastKey{""};  // one per open object
  std::istringstream lines(json);
  for (std::string line; std::getline(lines, line);) {
    const char first = line[line.find_first_not_of(' ')];
    if (first == '}') lastKey.pop_back();
    if (const auto colon = line.find("\" : "); first == '"' && colon != std::string::npos) {
      EXPECT_LT(lastKey.back(), line.substr(0, colon)) << line;  // indented alike
      lastKey.back() = line.substr(0, colon);
    }
    if (line.back() == '{') lastKey.emplace_back();
  }
}

TEST(DocumentFile, EncodesTheStoredFormAndReadsItBackWithStableBytes) {
  const auto rich = richDocument();
  const std::string bytes = DocumentFile::encode(rich);
  EXPECT_EQ(DocumentFile::decode(bytes), rich);
  EXPECT_EQ(DocumentFile::encode(DocumentFile::decode(bytes)), bytes);
  expectSortedKeys(bytes);
  EXPECT_EQ(bytes.find("null"), std::string::npos) << "absent values are left out";
  // A picture stored twice (in the story and its base) is decoded once.
  auto twice = rich;
  twice.stories[0].link->baseBlocks = twice.stories[0].blocks;
  const auto story = DocumentFile::decode(DocumentFile::encode(twice)).stories[0];
  EXPECT_TRUE(std::get<ImageBlock>(story.blocks[2].kind).data.sharesBufferWith(
      std::get<ImageBlock>(story.link->baseBlocks[2].kind).data));

  const ProjectDocument document{
      .stories = {Story{.id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"),
                        .name = "a/b",
                        .blocks = {Block{.id = *Uuid::parse("00000000-0000-4000-8000-00000000000b"),
                                         .kind = ImageBlock{.data = {0xFF, 0xFF, 0xFF, 0xFB},
                                                            .name = "p.png"}}}}}};
  EXPECT_EQ(DocumentFile::encode(document), R"({
  "stories" : [
    {
      "blocks" : [
        {
          "id" : "00000000-0000-4000-8000-00000000000B",
          "kind" : {
            "image" : {
              "_0" : {
                "data" : "\/\/\/\/+w==",
                "name" : "p.png"
              }
            }
          }
        }
      ],
      "footnotes" : [],
      "id" : "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
      "lastMergeReport" : [],
      "name" : "a\/b",
      "notes" : []
    }
  ],
  "styleMap" : {}
})");
}

TEST(DocumentFile, TextReadsBackWhereverItsEscapesFall) {
  // The writer copies plain text eight bytes at a time: try every offset.
  Paragraph written{.styleName = "Body"}, read = written;
  const auto add = [&](const std::string& in, const std::string& out) {
    for (std::size_t offset = 0; offset <= 16; ++offset) {
      written.runs.push_back({.text = std::string(offset, 'a') + in + "bbbbbbbbb"});
      read.runs.push_back({.text = std::string(offset, 'a') + out + "bbbbbbbbb"});
    }
  };
  for (const char* same : {"\"", "\\", "/", "\n", "\x01", "\x7f", "\xC3\xA9", "\xF0\x9F\x93\x96"})
    add(same, same);
  const std::string kBad = "\xEF\xBF\xBD";  // U+FFFD, one per byte that is no UTF-8
  add("\xFF", kBad);
  add("\xC3", kBad);
  add("\xED\xA0\x80", kBad + kBad + kBad);  // a surrogate
  const std::string bytes = DocumentFile::encode(
      ProjectDocument{.stories = {Story{.name = "S", .blocks = {Block{.kind = written}}}}});
  EXPECT_EQ(std::get<Paragraph>(DocumentFile::decode(bytes).stories.at(0).blocks.at(0).kind), read);
  // Every slash is escaped: skip each escape with the character it escapes.
  for (std::size_t i = 0; i < bytes.size(); i += bytes[i] == '\\' ? 2 : 1)
    ASSERT_NE(bytes[i], '/') << "a slash left bare at byte " << i;
}

TEST(DocumentFile, LegacyDocumentReads) {
  const auto document = DocumentFile::decode(
      R"({"stories":[{"id":"8A3C6F0E-2B1D-4E5F-9A7B-0C1D2E3F4A5B","name":"Old Story","notes":[],)"
      R"("paragraphs":[{"styleName":"Body","runs":[{"text":"Once","italic":true}]}],)"
      R"("link":{"path":"\/Users\/me\/Old.docx","lastSync":0,)"
      R"("baseSnapshot":[{"styleName":"Body","runs":[{"text":"Once"}]}]}}]})");
  const Story& story = document.stories.at(0);
  ASSERT_TRUE(story.link && story.blocks.size() == 1 && story.link->baseBlocks.size() == 1);
  EXPECT_NE(story.link->baseBlocks[0].id, story.blocks[0].id);  // fresh ids, one each
  const Paragraph italic{.styleName = "Body", .runs = {{.text = "Once", .italic = true}}};
  const Story expected{.id = *Uuid::parse("8A3C6F0E-2B1D-4E5F-9A7B-0C1D2E3F4A5B"),
                       .name = "Old Story",
                       .blocks = {Block{.id = story.blocks[0].id, .kind = italic}},
                       .link = StoryLink{.path = "/Users/me/Old.docx",
                                         .kind = LinkKind::word,
                                         .baseBlocks = {Block{.id = story.link->baseBlocks[0].id,
                                                              .kind = body("Once")}}}};
  EXPECT_EQ(document, ProjectDocument{.stories = {expected}});
}

const std::string kBlockId = R"("id":"00000000-0000-4000-8000-000000000001")";

std::string withStory(const std::string& members) {
  return R"({"stories":[{"name":"S")" + members + "}]}";
}
std::string withBlock(const std::string& kind, const std::string& id = kBlockId) {
  return withStory(R"(,"blocks":[{)" + id + R"(,"kind":)" + kind + "}]");
}
std::string withRun(const std::string& run) {
  return withBlock(R"({"paragraph":{"_0":{"styleName":"Body","runs":[)" + run + "]}}}");
}

TEST(DocumentFile, MalformedDocumentsAreRejectedWithWhereAndWhat) {
  const std::string kRead = "The document could not be read: ";
  const std::string kBlock = kRead + "stories[0].blocks[0]";
  const std::string kRun = kBlock + ".kind.paragraph._0.runs[0]";
  const std::string kKinds = "Invalid number of keys found, expected one.";  // stands alone
  const std::pair<std::string, std::string> cases[] = {
      // a message ending in "(" is a prefix
      {"", kRead + "the file is empty."},
      {R"({"stories":[)", kRead + "the file is not valid JSON ("},
      {withStory(",\"x\":\"\xC3\x28\""), kRead + "the file is not valid UTF-8 text."},
      {withBlock(R"({"table":{"_0":{"rows":[[{"paragraphs":[]},{}]]}}})"),
       kBlock + ".kind.table._0.rows[0][1]: \"paragraphs\" is missing."},
      {withRun(R"({"text":"a","bold":"yes"})"), kRun + ": \"bold\" is not true or false."},
      {withRun(R"({"text":"a","footnoteID":1.5})"),
       kRun + ": \"footnoteID\" is not a whole number."},
      {withRun(R"({"text":"a","footnoteID":9223372036854775808})"),
       kRun + ": \"footnoteID\" is out of range."},
      {withBlock("{}", R"("id":"not-a-uuid")"), kBlock + ": \"id\" is not a valid identifier."},
      {withBlock(R"({"image":{"_0":{"name":"p.png","data":"AAA"}}})"),
       kBlock + ".kind.image._0: \"data\" is not valid base64."},
      {withRun(R"({"text":"a","script":"sideways"})"),
       kRun + ": \"script\" has the unknown value \"sideways\"."},
      {withBlock(R"({"paragraph":{"_0":{"styleName":"Body","runs":[]}},)"
                 R"("table":{"_0":{"rows":[]}}})"),
       kKinds},
      {withBlock("{}"), kKinds},
  };
  for (const auto& [json, message] : cases) {
    const auto expected = message.back() == '(' ? Matcher<const char*>(StartsWith(message))
                                                : Matcher<const char*>(Eq(message));
    EXPECT_THAT([&] { DocumentFile::decode(json); },
                Throws<DocumentError>(Property(&DocumentError::what, expected)))
        << json;
  }
}

TEST(DocumentFile, LenientWhereTheFormatAllows) {
  // Unknown keys are ignored, beside a kind's alternative too; null is absent; 2.0 is whole;
  // "blocks" wins over "paragraphs", which is then not even looked at.
  const auto story = DocumentFile::decode(withStory(
      R"(,"extra":[1,{"x":null}],"link":null,"paragraphs":[42],"blocks":[{"future":true,)" +
      kBlockId +
      R"(,"kind":{"comment":1,"paragraph":{"_0":{"styleName":"Body","runs":[)"
      R"({"text":"t","colorHex":null,"footnoteID":2.0,"bold":null,"script":null}]}}}}])"));
  EXPECT_FALSE(story.stories.at(0).link);
  ASSERT_EQ(story.stories[0].blocks.size(), 1u);
  EXPECT_EQ(std::get<Paragraph>(story.stories[0].blocks[0].kind).runs.at(0),
            (TextRun{.text = "t", .footnoteID = 2}));
  // "\/" and "/" read alike; keys are unescaped too.
  for (const std::string path : {R"("\/a\/b")", R"("/a/b")"}) {
    const auto linked =
        DocumentFile::decode(withStory(R"(,"link":{"p\u0061th":)" + path + R"(,"lastSync":1})"));
    EXPECT_EQ(linked.stories.at(0).link->path, "/a/b") << path;
  }
  EXPECT_EQ(DocumentFile::decode("{}"), ProjectDocument{});
}

TEST(Base64, StrictRoundTrip) {
  for (Data bytes; bytes.size() < 70; bytes.push_back(std::uint8_t(bytes.size() * 97 + 251))) {
    std::string text;
    appendBase64(text, bytes);
    EXPECT_EQ(decodeBase64(text), bytes) << text;
  }
  // Unpadded, other alphabets, padding inside, line breaks, unused bits set.
  for (const char* text : {"AAA", "ab-_", "AA==AAAA", "AAAA\nAAA", "QR==", "QUF=", "Q===", "===="})
    EXPECT_FALSE(decodeBase64(text)) << text;
}

// Every entry under `folder` (hidden ones included) with a file's bytes.
std::map<std::string, std::string> snapshot(const fs::path& folder) {
  std::map<std::string, std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    entries[fs::relative(entry.path(), folder).string()] =
        entry.is_directory() ? "<folder>" : readFile(entry.path());
  }
  return entries;
}

TEST(DocumentFile, FailedSavesLeaveTheFolderAsItWas) {
  const struct {
    const char *name, *existing, *target;  // a "locked" folder is made read-only
    bool (*arrange)();                     // in the saving child; false if it cannot be
  } cases[] = {
      {"read-only folder", "locked/Book.inkharbour", "locked/Book.inkharbour",
       [] { return geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0); }},  // not root
      {"disk full", "Book.inkharbour", "Book.inkharbour",
       [] {
         const rlimit limit{.rlim_cur = 4096, .rlim_max = 4096};  // below the document's size
         return std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0;
       }},
      {"target is a folder", "Book.inkharbour/inside", "Book.inkharbour", [] { return true; }},
  };
  for (const auto& c : cases) {
    TempDir dir;
    fs::permissions(dir.path(), fs::perms(0755));  // for the unprivileged child
    fs::create_directories((dir / c.existing).parent_path());
    writeFile(dir / c.existing, "old bytes");
    if (fs::exists(dir / "locked")) fs::permissions(dir / "locked", fs::perms(0555));
    const auto before = snapshot(dir.path());
    const pid_t pid = fork();
    if (pid == 0) {
      if (!c.arrange()) _exit(77);
      try {
        DocumentFile::write(richDocument(), dir / c.target);
      } catch (const fs::filesystem_error&) {
        _exit(10);
      } catch (...) {
      }
      _exit(1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (fs::exists(dir / "locked")) fs::permissions(dir / "locked", fs::perms(0755));
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
      std::printf("[ skipped  ] %s: cannot be arranged here\n", c.name);
      continue;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 10) << c.name << ": " << status;
    EXPECT_EQ(snapshot(dir.path()), before) << c.name;
  }
}

TEST(DocumentFile, SaveRemovesOnlyItsOwnStaleTemporaries) {
  TempDir dir;
  writeFile(dir / ".Book.inkharbour.tmp-a1B2c3", "left by a killed save");
  std::map<std::string, std::string> expected{{"Book.inkharbour", DocumentFile::encode({})}};
  for (const char* name : {".Book.inkharbour.tmp-a1B2c3d", ".Other.inkharbour.tmp-a1B2c3",
                           "Book.inkharbour.tmp-a1B2c3"}) {
    writeFile(dir / name, "not ours");
    expected[name] = "not ours";
  }
  DocumentFile::write(ProjectDocument{}, dir / "Book.inkharbour");
  EXPECT_EQ(snapshot(dir.path()), expected);
}

}  // namespace
}  // namespace inkharbour
