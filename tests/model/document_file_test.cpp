#include "model/document_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>

#include "model/base64.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;
using ::testing::HasSubstr;

Uuid id(const char* text) { return *Uuid::parse(text); }

// Every kind of value the file holds, optional values present and absent.
ProjectDocument richDocument() {
  const Paragraph runs{
      .styleName = "Body",
      .runs = {{.text = "Plain \"quoted\" back\\slash / tab\t line\n"},
               {.text = "Every flag \xC3\xA9 \xF0\x9F\x93\x96", .bold = true, .italic = true,
                .underline = true, .strikethrough = true, .smallCaps = true,
                .script = ScriptPosition::superscript, .colorHex = "FF0000"},
               {.text = "[1]", .script = ScriptPosition::subscript, .footnoteID = 1},
               {.text = "both", .colorHex = "00ff00", .footnoteID = -7},
               {.text = ""}}};
  Data everyByte(256);
  for (std::size_t i = 0; i < 256; ++i) everyByte[i] = static_cast<std::uint8_t>(i);
  const Table table{.rows = {{TableCell{.paragraphs = {Paragraph::make("Body", "a"), Paragraph::make("Body", "")}},
                              TableCell{}},
                             {},
                             {TableCell{.paragraphs = {runs}}}}};
  const std::vector<Footnote> footnotes{
      {.id = 1, .paragraphs = {Paragraph::make("Footnote", "A note.")}},
      {.id = std::numeric_limits<std::int64_t>::max(), .paragraphs = {}}};
  Story linked{
      .name = "Chapter / One",
      .blocks = {Block{.kind = runs}, Block{.kind = table},
                 Block{.kind = ImageBlock{.data = everyByte, .name = "image1.png"}},
                 Block{.kind = ImageBlock{.data = {0xFB}, .name = "one.bin"}},
                 Block{.kind = ImageBlock{.data = {0xFB, 0xFF}, .name = "two.bin"}},
                 Block{.kind = ImageBlock{}}},
      .footnotes = footnotes,
      .link = StoryLink{.path = "/Users/me/One.docx",
                        .baseBlocks = {Block{.kind = Paragraph::make("Body", "old")}},
                        .baseFootnotes = footnotes,
                        .lastSync = 712345678.125},
      .notes = {{.paragraphIndex = 3, .localText = "mine", .externalText = "theirs", .date = -0.5}}};
  for (int kind = 0; kind < 6; ++kind) {
    ChangeRecord record{.kind = static_cast<ChangeRecord::Kind>(kind), .summary = "Change"};
    if (kind % 2 == 0) record.localText = "local";
    if (kind % 3 == 0) record.externalText = "";
    linked.lastMergeReport.push_back(record);
  }
  return ProjectDocument{
      .stories = {linked,
                  Story{.name = "Sheet", .blocks = {Block{.kind = table}},
                        .link = StoryLink{.path = "/tmp/Orders.xlsx", .kind = LinkKind::excel}},
                  Story{.name = "Notes", .link = StoryLink{.path = "notes.txt", .kind = LinkKind::text}},
                  Story{.name = ""}},
      .styleMap = {{"Heading 1", "Heading"}, {"\xC3\x9C" "berschrift", "Heading"}, {"a/b", "Body"}}};
}

// Fails unless the keys of every object in the writer's layout ("key" : at
// the start of a line) are in strictly increasing order.
void expectSortedKeys(const std::string& json) {
  std::vector<std::string> lastKey{""};  // one per open object
  std::size_t line = 0;
  for (std::size_t start = 0; start < json.size(); start = line + 1) {
    line = std::min(json.find('\n', start), json.size());
    const std::string_view text = std::string_view(json).substr(start, line - start);
    const auto first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) continue;
    if (text[first] == '}') lastKey.pop_back();
    if (text[first] == '"' && text.find("\" : ") != std::string_view::npos) {
      const std::string key(text.substr(first, text.find("\" : ") - first));
      EXPECT_LT(lastKey.back(), key) << "line: " << text;
      lastKey.back() = key;
    }
    if (text.back() == '{') lastKey.emplace_back();
  }
}

TEST(DocumentFile, RichDocumentRoundTripsWithStableBytes) {
  const auto document = richDocument();
  const std::string bytes = DocumentFile::encode(document);
  EXPECT_EQ(DocumentFile::decode(bytes), document);
  EXPECT_EQ(DocumentFile::encode(document), bytes);
  EXPECT_EQ(DocumentFile::encode(DocumentFile::decode(bytes)), bytes);
  expectSortedKeys(bytes);
  EXPECT_EQ(bytes.find("null"), std::string::npos) << "absent values are left out";

  TempDir dir;
  DocumentFile::write(document, dir / "Rich.inkharbour");
  EXPECT_EQ(readFile(dir / "Rich.inkharbour"), bytes);
  EXPECT_EQ(DocumentFile::read(dir / "Rich.inkharbour"), document);
}

TEST(DocumentFile, EncodesTheStoredForm) {
  const ProjectDocument document{
      .stories = {Story{.id = id("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"),
                        .name = "a/b",
                        .blocks = {Block{.id = id("00000000-0000-4000-8000-00000000000b"),
                                         .kind = ImageBlock{.data = {0xFF, 0xFF, 0xFF, 0xFB},
                                                            .name = "p.png"}}}}},
      .styleMap = {{"b", "Body"}, {"B", "Body"}}};
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
  "styleMap" : {
    "B" : "Body",
    "b" : "Body"
  }
})");
}

TEST(DocumentFile, TextReadsBackWhereverItsEscapesFall) {
  // The writer copies plain text eight bytes at a time, so each character
  // that needs care goes at every place of such a stretch.
  const std::string kReplacement = "\xEF\xBF\xBD";
  const struct {
    std::string written, read;
  } specials[] = {{"\"", "\""}, {"\\", "\\"}, {"/", "/"}, {"\n", "\n"}, {"\x01", "\x01"}, {"\x7f", "\x7f"},
                  {"\xC3\xA9", "\xC3\xA9"}, {"\xF0\x9F\x93\x96", "\xF0\x9F\x93\x96"},
                  // Bytes that are no UTF-8 become U+FFFD, one for each.
                  {"\xFF", kReplacement}, {"\xC3", kReplacement},
                  {"\xED\xA0\x80", kReplacement + kReplacement + kReplacement}};  // a surrogate
  Paragraph written{.styleName = "Body", .runs = {}};
  Paragraph read = written;
  for (const auto& special : specials) {
    for (std::size_t offset = 0; offset <= 16; ++offset) {
      const std::string before(offset, 'a'), after(9, 'b');
      written.runs.push_back({.text = before + special.written + after});
      read.runs.push_back({.text = before + special.read + after});
    }
  }
  const std::string bytes = DocumentFile::encode(
      ProjectDocument{.stories = {Story{.name = "S", .blocks = {Block{.kind = written}}}}});
  EXPECT_EQ(std::get<Paragraph>(DocumentFile::decode(bytes).stories.at(0).blocks.at(0).kind), read);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '\\') ++i;  // an escape and the character it escapes
    else ASSERT_NE(bytes[i], '/') << "a slash left bare at byte " << i;
  }
}

// The document of the program's earlier versions.
constexpr std::string_view kLegacyDocument = R"({
  "stories" : [ {
    "id" : "8A3C6F0E-2B1D-4E5F-9A7B-0C1D2E3F4A5B",
    "name" : "Old Story",
    "paragraphs" : [ { "styleName" : "Body", "runs" : [ { "text" : "Once", "italic" : true } ] } ],
    "notes" : [],
    "link" : { "path" : "\/Users\/me\/Old.docx",
               "baseSnapshot" : [ { "styleName" : "Body", "runs" : [ { "text" : "Once" } ] } ],
               "lastSync" : 0 }
  } ]
})";

TEST(DocumentFile, LegacyDocumentReads) {
  const auto document = DocumentFile::decode(kLegacyDocument);
  ASSERT_EQ(document.stories.size(), 1u);
  const Story& story = document.stories[0];
  ASSERT_TRUE(story.link);
  ASSERT_EQ(story.blocks.size(), 1u);
  ASSERT_EQ(story.link->baseBlocks.size(), 1u);
  // Converted paragraphs get fresh block ids of their own.
  EXPECT_NE(story.link->baseBlocks[0].id, story.blocks[0].id);
  const Story expected{
      .id = id("8A3C6F0E-2B1D-4E5F-9A7B-0C1D2E3F4A5B"),
      .name = "Old Story",
      .blocks = {Block{.id = story.blocks[0].id,
                       .kind = Paragraph{.styleName = "Body", .runs = {{.text = "Once", .italic = true}}}}},
      .link = StoryLink{.path = "/Users/me/Old.docx",
                        .kind = LinkKind::word,
                        .baseBlocks = {Block{.id = story.link->baseBlocks[0].id,
                                             .kind = Paragraph::make("Body", "Once")}},
                        .lastSync = 0}};
  EXPECT_EQ(document, ProjectDocument{.stories = {expected}});
}

const std::string kBlockId = R"("id":"00000000-0000-4000-8000-000000000001")";

// A document of one story named "S" holding `blocks` (JSON text).
std::string withBlocks(const std::string& blocks) {
  return R"({"stories":[{"name":"S","blocks":[)" + blocks + "]}]}";
}
std::string withRun(const std::string& run) {
  return withBlocks("{" + kBlockId + R"(,"kind":{"paragraph":{"_0":)"
                    R"({"styleName":"Body","runs":[)" + run + "]}}}}");
}
std::string withImage(const std::string& data) {
  return withBlocks("{" + kBlockId + R"(,"kind":{"image":{"_0":)"
                    R"({"name":"p.png","data":)" + data + "}}}}");
}
std::string withStory(const std::string& members) {
  return R"({"stories":[{"name":"S")" + members + "}]}";
}

TEST(DocumentFile, MalformedDocumentsAreRejectedWithWhereAndWhat) {
  const std::string kBlock = "stories[0].blocks[0]";
  const std::string kRun = kBlock + ".kind.paragraph._0.runs[0]";
  const std::string kImage = kBlock + ".kind.image._0";
  const std::string kKindMessage = "Invalid number of keys found, expected one.";
  const struct {
    const char* name;
    std::string json;
    std::string message;  // after "The document could not be read: "
  } cases[] = {
      {"empty", "", "the file is empty."},
      {"unclosed", R"({"stories":[)", "the file is not valid JSON ("},
      {"trailing garbage", R"({"stories":[]} x)", "the file is not valid JSON ("},
      {"invalid UTF-8", withStory(",\"x\":\"\xC3\x28\""), "the file is not valid UTF-8 text."},
      {"top level an array", "[]", "the top level is not an object."},
      {"stories not an array", R"({"stories":{}})", "\"stories\" is not an array."},
      {"story not an object", R"({"stories":[{"name":"S"},3]})", "stories[1] is not an object."},
      {"missing name", R"({"stories":[{}]})", "stories[0]: \"name\" is missing."},
      {"null name", R"({"stories":[{"name":null}]})", "stories[0]: \"name\" is not a string."},
      {"style map value", R"({"styleMap":{"Heading 1":1}})", "styleMap: \"Heading 1\" is not a string."},
      {"block id", withBlocks(R"({"id":"not-a-uuid","kind":{}})"), kBlock + ": \"id\" is not a valid identifier."},
      {"payload without _0",
       withBlocks("{" + kBlockId + R"(,"kind":{"table":{"0":{}}}})"),
       kBlock + ".kind.table: \"_0\" is missing."},
      {"run without text", withRun(R"({"bold":true})"), kRun + ": \"text\" is missing."},
      {"flag a string", withRun(R"({"text":"a","bold":"yes"})"), kRun + ": \"bold\" is not true or false."},
      {"unknown script", withRun(R"({"text":"a","script":"sideways"})"),
       kRun + ": \"script\" has the unknown value \"sideways\"."},
      {"fractional footnote reference", withRun(R"({"text":"a","footnoteID":1.5})"),
       kRun + ": \"footnoteID\" is not a whole number."},
      {"footnote reference above 64 bits", withRun(R"({"text":"a","footnoteID":9223372036854775808})"),
       kRun + ": \"footnoteID\" is out of range."},
      {"row not an array",
       withBlocks("{" + kBlockId + R"(,"kind":{"table":{"_0":{"rows":[[],{}]}}}})"),
       kBlock + ".kind.table._0.rows[1] is not an array."},
      {"cell without paragraphs",
       withBlocks("{" + kBlockId + R"(,"kind":{"table":{"_0":{"rows":[[{"paragraphs":[]},{}]]}}}})"),
       kBlock + ".kind.table._0.rows[0][1]: \"paragraphs\" is missing."},
      {"base64", withImage(R"("AAA")"), kImage + ": \"data\" is not valid base64."},
      {"footnote id a string", withStory(R"(,"footnotes":[{"id":"1","paragraphs":[]}])"),
       "stories[0].footnotes[0]: \"id\" is not a number."},
      {"payload not an object",
       withBlocks("{" + kBlockId + R"(,"kind":{"paragraph":[]}})"),
       kBlock + ".kind: \"paragraph\" is not an object."},
      {"link without lastSync", withStory(R"(,"link":{"path":"p"})"),
       "stories[0].link: \"lastSync\" is missing."},
      {"legacy snapshot paragraph", withStory(R"(,"link":{"path":"p","lastSync":0,"baseSnapshot":[{"runs":[]}]})"),
       "stories[0].link.baseSnapshot[0]: \"styleName\" is missing."},
      {"note without date",
       withStory(R"(,"notes":[{"id":"00000000-0000-4000-8000-000000000001","paragraphIndex":0,)"
                 R"("localText":"","externalText":""}])"),
       "stories[0].notes[0]: \"date\" is missing."},
      {"change kind", withStory(R"(,"lastMergeReport":[{"id":"00000000-0000-4000-8000-000000000001",)"
                                R"("kind":"merged","summary":""}])"),
       "stories[0].lastMergeReport[0]: \"kind\" has the unknown value \"merged\"."},
      // The block kind's own message stands alone.
      {"kind with two alternatives",
       withBlocks("{" + kBlockId + R"(,"kind":)"
                  R"({"paragraph":{"_0":{"styleName":"Body","runs":[]}},"table":{"_0":{"rows":[]}}}})"),
       kKindMessage},
      {"kind with no key", withBlocks("{" + kBlockId + R"(,"kind":{}})"),
       kKindMessage},
      {"kind naming no alternative",
       withBlocks("{" + kBlockId + R"(,"kind":{"video":{"_0":{}}}})"),
       kKindMessage},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      DocumentFile::decode(c.json);
      ADD_FAILURE() << "decoded";
    } catch (const DocumentError& error) {
      const std::string what = error.what();
      if (c.message == kKindMessage) {
        EXPECT_EQ(what, kKindMessage);
      } else if (c.message.back() == '(') {
        EXPECT_THAT(what, HasSubstr("The document could not be read: " + c.message));
      } else {
        EXPECT_EQ(what, "The document could not be read: " + c.message);
      }
    }
  }
}

TEST(DocumentFile, LenientWhereTheFormatAllows) {
  const std::string oneParagraph = R"({"styleName":"Body","runs":[{"text":"legacy"}]})";
  const std::string oneBlock = "{" + kBlockId + R"(,"kind":{"paragraph":{"_0":{"styleName":"Body","runs":[{"text":"current"}]}}}})";

  // "blocks" wins over "paragraphs", which is then not even looked at.
  auto story = DocumentFile::decode(withStory(R"(,"blocks":[)" + oneBlock + R"(],"paragraphs":[)" +
                                              oneParagraph + ",42]"))
                   .stories.at(0);
  ASSERT_EQ(story.blocks.size(), 1u);
  EXPECT_EQ(std::get<Paragraph>(story.blocks[0].kind).text(), "current");

  // "\/" and "/" read alike, in keys too.
  for (const std::string path : {R"("\/a\/b")", R"("/a/b")"}) {
    story = DocumentFile::decode(withStory(R"(,"link":{"p\u0061th":)" + path + R"(,"lastSync":1})"))
                .stories.at(0);
    EXPECT_EQ(story.link.value().path, "/a/b") << path;
  }

  // Unknown keys are ignored anywhere, beside a block kind's alternative too;
  // null stands for an absent optional value; 2.0 is a whole number.
  story = DocumentFile::decode(withStory(
              R"(,"extra":[1,{"x":null}],"link":null,"blocks":[{"future":true,)" + kBlockId +
              R"(,"kind":{"comment":1,"paragraph":{"_0":{"styleName":"Body","runs":[)"
              R"({"text":"t","colorHex":null,"footnoteID":2.0,"bold":null,"script":null}]}}}}])"))
              .stories.at(0);
  EXPECT_FALSE(story.link);
  EXPECT_EQ(std::get<Paragraph>(story.blocks.at(0).kind).runs.at(0),
            (TextRun{.text = "t", .footnoteID = 2}));

  // A story without an id gets a fresh one of its own.
  const auto two = DocumentFile::decode(R"({"stories":[{"name":"a"},{"name":"b"}]})");
  EXPECT_NE(two.stories[0].id, two.stories[1].id);
  EXPECT_NE(two.stories[0].id, Uuid{});
  EXPECT_EQ(DocumentFile::decode("{}"), ProjectDocument{});
}

TEST(Base64, StrictRoundTrip) {
  for (std::size_t size = 0; size < 70; ++size) {
    Data bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 97 + 251);
    std::string text;
    appendBase64(text, bytes);
    EXPECT_EQ(decodeBase64(text), bytes) << text;
  }
  EXPECT_EQ(decodeBase64("+/+/"), (Data{0xFB, 0xFF, 0xBF}));
  // Unpadded, other alphabets, padding inside, line breaks, and a last
  // character with bits that no byte uses: none is strict base64.
  for (const char* text : {"AAA", "AAAAAA", "ab-_", "AA==AAAA", "AAAA\nAAA", "QR==", "QUF=", "Q===", "===="}) {
    EXPECT_FALSE(decodeBase64(text)) << text;
  }
}

TEST(DocumentFile, ReadingAMissingFileIsAFileSystemError) {
  TempDir dir;
  EXPECT_THROW(DocumentFile::read(dir / "none.inkharbour"), fs::filesystem_error);
  EXPECT_THROW(DocumentFile::read(dir.path()), fs::filesystem_error);
}

// --- Saving -------------------------------------------------------------------

// Every entry under `folder` (hidden ones included) with a file's bytes.
std::map<std::string, std::string> snapshot(const fs::path& folder) {
  std::map<std::string, std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    entries[fs::relative(entry.path(), folder).string()] =
        entry.is_directory() ? "<folder>" : readFile(entry.path());
  }
  return entries;
}

constexpr int kSaveFailed = 10;
constexpr int kCannotArrange = 77;

// Saves `document` in a child process once `arrange` has run there, and
// returns the child's exit status: 0 saved, kSaveFailed for a
// filesystem_error, kCannotArrange when the circumstances could not be made.
int saveInChild(const ProjectDocument& document, const fs::path& target,
                const std::function<bool()>& arrange) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (!arrange()) _exit(kCannotArrange);
    try {
      DocumentFile::write(document, target);
      _exit(0);
    } catch (const fs::filesystem_error&) {
      _exit(kSaveFailed);
    } catch (...) {
      _exit(1);
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool dropPrivileges() {
  // Root writes into read-only folders anyway; become nobody.
  if (geteuid() != 0) return true;
  return setgid(65534) == 0 && setuid(65534) == 0;
}

bool limitFileSize() {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{.rlim_cur = 4096, .rlim_max = 4096};
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

TEST(DocumentFile, FailedSavesLeaveTheOldFileAlone) {
  const auto document = richDocument();  // larger than the 4096-byte limit
  const struct {
    const char* name;
    std::function<fs::path(const fs::path& folder)> prepare;  // returns the target
    std::function<bool()> arrange;
  } cases[] = {
      {"read-only folder",
       [](const fs::path& folder) {
         fs::create_directory(folder / "locked");
         writeFile(folder / "locked" / "Book.inkharbour", "old bytes");
         fs::permissions(folder / "locked", fs::perms(0555));
         return folder / "locked" / "Book.inkharbour";
       },
       dropPrivileges},
      {"disk full",
       [](const fs::path& folder) {
         writeFile(folder / "Book.inkharbour", "old bytes");
         return folder / "Book.inkharbour";
       },
       limitFileSize},
      {"target is a folder",
       [](const fs::path& folder) {
         fs::create_directory(folder / "Book.inkharbour");
         writeFile(folder / "Book.inkharbour" / "inside", "old bytes");
         return folder / "Book.inkharbour";
       },
       [] { return true; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    fs::permissions(dir.path(), fs::perms(0755));  // for the unprivileged child
    const auto target = c.prepare(dir.path());
    const auto before = snapshot(dir.path());
    const int status = saveInChild(document, target, c.arrange);
    fs::permissions(dir.path(), fs::perms(0755));
    if (fs::exists(dir / "locked")) fs::permissions(dir / "locked", fs::perms(0755));
    if (status == kCannotArrange) {
      std::printf("[ skipped  ] %s: could not be arranged here\n", c.name);
      continue;
    }
    EXPECT_EQ(status, kSaveFailed);
    EXPECT_EQ(snapshot(dir.path()), before);
  }
}

TEST(DocumentFile, SaveRemovesOnlyItsOwnStaleTemporaries) {
  TempDir dir;
  const auto target = dir / "Book.inkharbour";
  writeFile(dir / ".Book.inkharbour.tmp-a1B2c3", "left by a killed save");
  const std::vector<std::string> kept{".Book.inkharbour.tmp-a1B2c3d", ".Other.inkharbour.tmp-a1B2c3",
                                      "Book.inkharbour.tmp-a1B2c3"};
  for (const auto& name : kept) writeFile(dir / name, "not ours");

  DocumentFile::write(ProjectDocument{}, target);
  auto expected = std::map<std::string, std::string>{{"Book.inkharbour", DocumentFile::encode({})}};
  for (const auto& name : kept) expected[name] = "not ours";
  EXPECT_EQ(snapshot(dir.path()), expected);
}

}  // namespace
}  // namespace inkharbour
