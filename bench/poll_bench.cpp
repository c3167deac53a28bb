// Poll benchmark. Places a folder of book-size Word documents as linked
// stories and times the link-status poll that the window runs every two
// seconds: a tick over files that did not change must cost a stat() each, not
// an import each (goal: at most 5 ms for the whole tick of 100 books). For
// scale it also times what a tick without the status cache would spend on one
// file (import, fingerprint both sides, compare) and the tick right after one
// file changed, which reads that file in full.
//
// usage: poll_bench [--files N] [--paragraphs N] [--ticks N] [--check] [DIRECTORY]
//
// DIRECTORY holds the generated book between runs and the linked copies
// (default: a folder under the system's temporary directory). --paragraphs
// makes a smaller book. --check makes a missed goal exit 1.

#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "app/app_state.h"
#include "app/link_status.h"
#include "book_generator.h"
#include "importers/docx_reader.h"

namespace inkharbour::bench {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double kTickGoalMs = 5.0;

struct Options {
  int files = 100;
  int paragraphs = BookShape{}.paragraphs;
  int ticks = 50;
  bool check = false;
  fs::path directory = fs::temp_directory_path() / "inkharbour-bench";
};

// Wall-clock time: a tick's cost is mostly system calls, and what the user
// feels is the time the main thread is away.
double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

template <typename Work>
double timedMs(Work work) {
  const auto start = Clock::now();
  work();
  return milliseconds(Clock::now() - start);
}

struct Samples {
  std::vector<double> ms;
  double best() const { return *std::min_element(ms.begin(), ms.end()); }
  double median() const {
    auto sorted = ms;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
};

// Files written less than the cache's racy margin ago are read again on every
// tick until they are older (a second write within the same timestamp could
// otherwise hide), so the copies get that long to settle, as a user's
// manuscripts have long had.
void waitUntilSettled() {
  std::this_thread::sleep_for(std::chrono::nanoseconds(LinkStatusCache::kRacyMarginNs) +
                              std::chrono::milliseconds(200));
}

// Replaces `target` with a fresh copy of `source`, as an application's save
// does: a new file renamed over the old one.
void rewrite(const fs::path& source, const fs::path& target) {
  const fs::path temporary = target.string() + ".new";
  fs::copy_file(source, temporary, fs::copy_options::overwrite_existing);
  fs::rename(temporary, target);
}

// What a tick without the cache spends on one file: import it, build both
// fingerprint lists, compare.
LinkStatus fullReRead(const StoryLink& link, const StyleMap& styleMap) {
  const auto now = DocxReader::read(link.path, styleMap);
  const bool same = blockFingerprints(now.blocks) == blockFingerprints(link.baseBlocks) &&
                    footnoteFingerprints(now.footnotes) == footnoteFingerprints(link.baseFootnotes);
  return same ? LinkStatus::upToDate : LinkStatus::modified;
}

void expectAllUpToDate(const AppState& app) {
  for (const auto& [id, status] : app.linkStatuses()) {
    if (status != LinkStatus::upToDate) {
      throw std::runtime_error("a linked copy of the book is " + std::string(name(status)));
    }
  }
}

Options parseOptions(int argc, char** argv) {
  Options options;
  auto number = [&](int& i) {
    if (i + 1 >= argc) throw std::invalid_argument(std::string(argv[i]) + " needs a number");
    const std::string_view text = argv[++i];
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1) {
      throw std::invalid_argument("not a positive number: " + std::string(text));
    }
    return value;
  };
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--files") {
      options.files = number(i);
    } else if (argument == "--paragraphs") {
      options.paragraphs = number(i);
    } else if (argument == "--ticks") {
      options.ticks = number(i);
    } else if (argument == "--check") {
      options.check = true;
    } else if (argument.starts_with("-")) {
      throw std::invalid_argument("unknown option " + std::string(argument));
    } else {
      options.directory = argument;
    }
  }
  return options;
}

int run(const Options& options) {
  const auto book = ensureBook(options.directory, BookShape::withParagraphs(options.paragraphs));
  const fs::path folder = options.directory / "poll-links";
  fs::remove_all(folder);
  fs::create_directories(folder);
  std::vector<fs::path> links;
  for (int i = 0; i < options.files; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "book-%03d.docx", i + 1);
    links.push_back(folder / name);
    fs::copy_file(book, links.back());
  }
  waitUntilSettled();

  AppState app;
  Samples place;
  for (const auto& link : links) {
    place.ms.push_back(timedMs([&] { app.place(link); }));
    if (app.lastError()) throw std::runtime_error(*app.lastError());
  }
  app.tick();
  expectAllUpToDate(app);

  Samples unchanged;
  for (int i = 0; i < options.ticks; ++i) unchanged.ms.push_back(timedMs([&] { app.tick(); }));
  expectAllUpToDate(app);

  const Story& first = app.document().stories.front();
  Samples reRead, import, digest;
  for (int i = 0; i < 5; ++i) {
    reRead.ms.push_back(timedMs([&] { fullReRead(*first.link, app.document().styleMap); }));
    import.ms.push_back(timedMs([&] { DocxReader::read(first.link->path, app.document().styleMap);
  }));
  digest.ms.push_back(timedMs([&] { contentDigest(first.blocks, first.footnotes); }));
}

// One file saved again: the tick after it reads that file; the next one
// reads it once more, as it was written within the racy margin of that
// read; after that the file costs a stat() again.
Samples changed, racy, settled;
for (int i = 0; i < 3; ++i) {
  rewrite(book, links[static_cast<std::size_t>(i) % links.size()]);
  changed.ms.push_back(timedMs([&] { app.tick(); }));
  racy.ms.push_back(timedMs([&] { app.tick(); }));
  waitUntilSettled();
  app.tick();
  settled.ms.push_back(timedMs([&] { app.tick(); }));
}
expectAllUpToDate(app);

rusage usage{};
getrusage(RUSAGE_SELF, &usage);

std::printf("Inkharbour poll benchmark\n\n");
std::printf("links     %d copies of %s\n", options.files, book.c_str());
std::printf("          (%.1f MiB each), placed from %s\n",
            static_cast<double>(fs::file_size(book)) / (1 << 20), folder.c_str());
std::printf("          %zu blocks and %zu footnotes a story; peak resident %.0f MiB\n\n",
            first.blocks.size(), first.footnotes.size(), usage.ru_maxrss / 1024.0);
std::printf("wall time                                        best ms   median ms\n");
auto line = [](const char* label, const Samples& samples) {
  std::printf("  %-44s %9.3f %11.3f", label, samples.best(), samples.median());
};
line("place one book", place);
std::printf("\n");
line("tick, no file changed", unchanged);
const bool missed = unchanged.median() > kTickGoalMs;
std::printf("   goal <= %.0f ms  %s\n", kTickGoalMs, missed ? "MISSED" : "ok");
std::printf("  %-44s %9.3f %11.3f\n", "  the same, per linked file (us)",
            unchanged.best() * 1e3 / options.files, unchanged.median() * 1e3 / options.files);
line("one file without the cache (read + compare)", reRead);
std::printf("\n");
line("  of which DocxReader::read", import);
std::printf("\n");
line("contentDigest of one book", digest);
std::printf("\n");
line("tick after one file was saved again", changed);
std::printf("\n");
line("the tick after that (racy re-read)", racy);
std::printf("\n");
line("a tick once that file has settled", settled);
std::printf("\n");
std::printf("\n  ticks: %d, of which the goal takes the median; the rest: 5 and 3 runs\n",
            options.ticks);
return options.check && missed ? 1 : 0;
}  // namespace

}  // namespace inkharbour::bench

}  // namespace inkharbour::bench

int main(int argc, char** argv) {
  using namespace inkharbour::bench;
  try {
    return run(parseOptions(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "poll_bench: %s\n", error.what());
    return 2;
  }
}
