// Link status decisions: text decides, formatting does not; absent, broken and special files are
// missing; a cached decision is the one a fresh read makes; and the window's split poll (stat,
// read elsewhere, apply) decides as one call does, and drops results that came too late.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <tuple>

#include "app/app_state.h"
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

// A link whose base and file hold one paragraph, "Hello", in a package or as text by the name.
StoryLink helloAt(const fs::path& path) {
  if (path.extension() == ".txt") {
    testing::writeFile(path, "Hello");
  } else {
    DocxWriter::write({para("Hello")}, {}, path);
  }
  return {.path = path.string(), .baseBlocks = {para("Hello")}};
}

// A clock an hour ahead: every file is old enough to be trusted, so only a new identity reads.
std::int64_t anHourAhead() {
  return (static_cast<std::int64_t>(now() + kUnixToReferenceDate) + 3600) * kSecond;
}

// The two ways to decide: in one call, and as the window does, the read on another thread.
using Decide = std::function<LinkStatus(LinkStatusCache&, const Uuid&, const StoryLink&)>;

LinkStatus pollReadApply(LinkStatusCache& cache, const Uuid& story, const StoryLink& link) {
  auto next = cache.poll(story, link, {});
  if (const auto* status = std::get_if<LinkStatus>(&next)) return *status;
  const auto& request = std::get<LinkReadRequest>(next);
  const auto applied = cache.apply(std::async(std::launch::async, readLinkedFile, request).get());
  EXPECT_TRUE(applied) << "nothing happened between request and apply";
  return applied.value_or(LinkStatus::upToDate);
}

const std::pair<const char*, Decide> kModes[] = {
    {"decide", [](auto& cache, auto& story, auto& link) { return cache.decide(story, link, {}); }},
    {"poll, read, apply", pollReadApply}};

// Runs `body`, which must not block on the FIFO at `fifo`. A regression that opens it fails here
// instead of hanging: the watchdog opens the FIFO's other end until the stuck open returns.
void withWatchdog(const fs::path& fifo, const std::function<void()>& body) {
  std::packaged_task<void()> task(body);
  auto done = task.get_future();
  std::thread runner(std::move(task));
  if (done.wait_for(std::chrono::seconds(10)) == std::future_status::timeout) {
    ADD_FAILURE() << "blocked on the FIFO " << fifo;
    while (done.wait_for(std::chrono::milliseconds(10)) == std::future_status::timeout) {
      const int end = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      if (end >= 0) ::close(end);
    }
  }
  runner.join();
  done.get();
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
  for (const auto& [mode, decide] : kModes) {
    for (const auto& [name, edit, expected] : cases) {
      SCOPED_TRACE(std::string(mode) + ": " + name);
      TempDir dir;
      const Uuid story = Uuid::random();
      const StoryLink link = linkTo(dir / "story.docx");
      LinkStatusCache cache(anHourAhead);
      ASSERT_EQ(decide(cache, story, link), LinkStatus::upToDate);
      write(dir / "story.docx", edit);
      EXPECT_EQ(decide(cache, story, link), expected);
      EXPECT_EQ(decide(cache, story, link), expected) << "from the cache";
      EXPECT_EQ(cache.fileReads(), 2) << "an unchanged file is not read again";
    }
  }
}

TEST(LinkStatus, AbsentOrBrokenFilesAreMissingUntilTheyComeBack) {
  for (const auto& [mode, decide] : kModes) {
    SCOPED_TRACE(mode);
    TempDir dir;
    const auto path = dir / "story.docx";
    const Uuid story = Uuid::random();
    const StoryLink link = linkTo(path);
    const std::string good = testing::readFile(path);
    LinkStatusCache cache(anHourAhead);
    fs::remove(path);
    EXPECT_EQ(decide(cache, story, link), LinkStatus::missing);
    testing::writeFile(path, good);
    EXPECT_EQ(decide(cache, story, link), LinkStatus::upToDate);
    testing::writeFile(path, good.substr(0, good.size() / 2));
    EXPECT_EQ(decide(cache, story, link), LinkStatus::missing);
    const auto reads = cache.fileReads();
    EXPECT_EQ(decide(cache, story, link), LinkStatus::missing);
    EXPECT_EQ(cache.fileReads(), reads) << "a broken package stays broken until it changes";
  }
}

void makeFifo(const fs::path& path) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
}

const std::pair<const char*, void (*)(const fs::path&)> kSpecialFiles[] = {
    {"fifo.docx", makeFifo},
    {"fifo.txt", makeFifo},
    {"folder.docx", [](const fs::path& path) { fs::create_directory(path); }},
    {"device.txt", [](const fs::path& path) { fs::create_symlink("/dev/null", path); }},
};

// A folder, FIFO or device is never opened: opening a FIFO waits for a writer, forever.
TEST(LinkStatus, FoldersFifosAndDevicesAreMissingWithoutBeingRead) {
  for (const auto& [mode, decide] : kModes) {
    for (const auto& [name, make] : kSpecialFiles) {
      SCOPED_TRACE(std::string(mode) + ": " + name);
      TempDir dir;
      const auto path = dir / name;
      const Uuid story = Uuid::random();
      const StoryLink link = helloAt(path);
      LinkStatusCache cache(anHourAhead);
      ASSERT_EQ(decide(cache, story, link), LinkStatus::upToDate);
      fs::remove(path);
      make(path);
      withWatchdog(path, [&] { EXPECT_EQ(decide(cache, story, link), LinkStatus::missing); });
      EXPECT_EQ(cache.fileReads(), 1);
    }
  }
}

// Should a FIFO take the file's place between the stat and the read, the readers must not wait
// for a writer either: the stat here reports the regular file that was there.
TEST(LinkStatus, AFifoSwappedInAfterTheStatDoesNotBlockTheRead) {
  for (const char* name : {"swapped.docx", "swapped.txt"}) {
    SCOPED_TRACE(name);
    TempDir dir;
    const auto path = dir / name;
    const StoryLink link = helloAt(path);
    const auto regular = FileIdentity::of(path);
    fs::remove(path);
    makeFifo(path);
    LinkStatusCache cache(anHourAhead, [&](const fs::path&) { return regular; });
    withWatchdog(path,
                 [&] { EXPECT_EQ(cache.decide(Uuid::random(), link, {}), LinkStatus::missing); });
  }
}

TEST(LinkStatusCache, ARewriteWithinTheSameTimestampIsStillSeen) {
  for (const auto& [mode, decide] : kModes) {
    SCOPED_TRACE(mode);
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
    EXPECT_EQ(decide(cache, story, link), LinkStatus::upToDate);
    testing::writeFile(path, "Hello World");
    EXPECT_EQ(decide(cache, story, link), LinkStatus::modified);
    // Once a read starts well after the file's time, the file is trusted.
    clock = second + 10 * kSecond;
    EXPECT_EQ(decide(cache, story, link), LinkStatus::modified);
    const auto reads = cache.fileReads();
    EXPECT_EQ(decide(cache, story, link), LinkStatus::modified);
    EXPECT_EQ(cache.fileReads(), reads);
  }
}

// The polling thread never digests a base snapshot: the first request carries a copy of it.
TEST(LinkStatusCache, TheBaseIsDigestedBesideTheFirstRead) {
  TempDir dir;
  const auto path = dir / "story.docx";
  const Uuid story = Uuid::random();
  const StoryLink link = linkTo(path);
  LinkStatusCache cache(anHourAhead);
  const auto first = std::get<LinkReadRequest>(cache.poll(story, link, {}));
  EXPECT_EQ(first.base, (ImportResult{link.baseBlocks, link.baseFootnotes}));
  EXPECT_EQ(cache.apply(readLinkedFile(first)), LinkStatus::upToDate);
  write(path, {.heading = "Chapter 0ne"});
  const auto second = std::get<LinkReadRequest>(cache.poll(story, link, {}));
  EXPECT_FALSE(second.base);
  EXPECT_EQ(cache.apply(readLinkedFile(second)), LinkStatus::modified);
}

// The window's poll: stat here, read on a worker, apply here.
void pollAsTheWindowDoes(AppState& app) {
  for (const auto& request : app.pollWithoutReading()) {
    EXPECT_TRUE(fs::is_regular_file(request.ticket.path)) << "only regular files are read";
    app.applyLinkRead(std::async(std::launch::async, AppState::readLinkedFile, request).get());
  }
}

// Opening replaces the document and decides every link at once, as `inkharbour-cli status` shows
// it; the window's poll must agree, FIFO included.
TEST(AppStatePoll, GivesTheStatusesThatOpeningAndTickingGive) {
  TempDir dir;
  AppState polled;
  for (const char* name : {"same.docx", "text.docx", "back.txt", "fifo.txt", "folder.docx"}) {
    helloAt(dir / name);
    polled.place(dir / name);
  }
  polled.saveDocument(dir / "doc.inkharbour");
  DocxWriter::write({para("Hello!")}, {}, dir / "text.docx");
  fs::rename(dir / "back.txt", dir / "away.txt");
  fs::remove(dir / "fifo.txt");
  makeFifo(dir / "fifo.txt");
  fs::remove(dir / "folder.docx");
  fs::create_directory(dir / "folder.docx");
  auto statuses = [](const AppState& app) {
    std::vector<LinkStatus> out;
    for (const auto& story : app.document().stories) out.push_back(app.linkStatuses().at(story.id));
    return out;
  };
  using enum LinkStatus;
  AppState opened;
  opened.newStory();  // replaced by the document opened
  withWatchdog(dir / "fifo.txt", [&] {
    opened.openDocument(dir / "doc.inkharbour");
    pollAsTheWindowDoes(polled);
  });
  EXPECT_EQ(opened.document(), polled.document());
  EXPECT_EQ(opened.selectedStoryIndex(), 0u);
  EXPECT_EQ(opened.editorReloadToken(), 2);
  const std::vector<LinkStatus> expected = {upToDate, modified, missing, missing, missing};
  EXPECT_EQ(statuses(opened), expected);
  EXPECT_EQ(statuses(polled), expected);

  fs::rename(dir / "away.txt", dir / "back.txt");
  withWatchdog(dir / "fifo.txt", [&] {
    opened.tick();
    pollAsTheWindowDoes(polled);
  });
  EXPECT_EQ(statuses(polled), statuses(opened));
  EXPECT_EQ(statuses(polled)[2], upToDate);
}

// A result that arrives after the story's link changed, or after a newer decision, is dropped:
// the status stays what the change made it.
TEST(AppStatePoll, IgnoresAResultThatArrivesAfterTheLinkChanged) {
  using Change = std::function<void(AppState&, const Uuid&, const TempDir&)>;
  const std::pair<const char*, Change> between[] = {
      {"nothing", {}},
      {"updated", [](auto& app, auto& id, auto&) { app.updateFromLinked(id); }},
      {"pushed", [](auto& app, auto& id, auto&) { app.updateLinkedDocument(id); }},
      {"linked again",
       [](auto& app, auto& id, auto& dir) { app.linkToOriginal(id, dir / "a.txt"); }},
      {"linked elsewhere",
       [](auto& app, auto& id, auto& dir) { app.linkToOriginal(id, dir / "b.txt"); }},
      {"refreshed", [](auto& app, auto& id, auto&) { app.refreshLinkStatus(id); }},
      {"polled and read again", [](auto& app, auto&, auto&) { pollAsTheWindowDoes(app); }},
      {"found missing",
       [](auto& app, auto&, auto& dir) {
         fs::rename(dir / "a.txt", dir / "away.txt");
         app.pollWithoutReading();
         fs::rename(dir / "away.txt", dir / "a.txt");
       }},
      {"document opened",
       [](auto& app, auto&, auto& dir) { app.openDocument(dir / "doc.inkharbour"); }},
      {"unlinked", [](auto& app, auto& id, auto&) { app.unlink(id); }},
      {"deleted", [](auto& app, auto& id, auto&) { app.deleteStory(id); }},
  };
  for (const auto& [name, change] : between) {
    SCOPED_TRACE(name);
    TempDir dir;
    testing::writeFile(dir / "a.txt", "alpha");
    testing::writeFile(dir / "b.txt", "alpha");
    AppState app;
    app.place(dir / "a.txt");
    const Uuid id = app.document().stories.at(0).id;
    app.saveDocument(dir / "doc.inkharbour");
    testing::writeFile(dir / "a.txt", "alpha, edited");
    const auto requests = app.pollWithoutReading();
    ASSERT_EQ(requests.size(), 1u);
    const auto result = AppState::readLinkedFile(requests[0]);  // says modified
    // Every change finds the file as placed, and leaves the link up to date or gone.
    testing::writeFile(dir / "a.txt", "alpha");
    if (change) change(app, id, dir);
    const auto before = app.linkStatuses();
    app.applyLinkRead(result);
    if (change) {
      EXPECT_EQ(app.linkStatuses(), before);
    } else {
      EXPECT_EQ(app.linkStatuses().at(id), LinkStatus::modified);
    }
  }
}

}  // namespace
}  // namespace inkharbour
