// Import benchmark. Measures the readers against the floor, the least work any
// reader must do: inflate exactly the members it reads and run expat over the
// XML ones with handlers that do nothing. A reader's CPU time divided by the
// floor's is the price of everything it adds (model building, ids, limits);
// the goal is at most 1.5x. The peak memory of one book import, measured in a
// child process, is compared with the inflated size of the parts read; the
// goal is at most 3x.
//
// usage: import_bench [--repetitions N] [--paragraphs N] [--rows N] [--check] [DIRECTORY]
//
// DIRECTORY holds the generated book and workbook between runs (default: a
// folder under the system's temporary directory). --paragraphs and --rows
// make smaller inputs, for profiling. --check makes a missed goal exit 1.

#include <expat.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "book_generator.h"
#include "importers/docx_reader.h"
#include "importers/xlsx_reader.h"

namespace inkharbour::bench {

namespace {

namespace fs = std::filesystem;

// The readers inflate in chunks of this size too.
constexpr std::size_t kChunkSize = 256 * 1024;
constexpr double kCpuGoal = 1.5;
constexpr double kMemoryGoal = 3.0;
constexpr std::string_view kPeakChildFlag = "--peak-child";

struct Options {
  fs::path self;  // this program, run again to measure memory
  int repetitions = 5;
  int paragraphs = BookShape{}.paragraphs;
  int rows = WorkbookShape{}.rows;
  bool check = false;
  fs::path directory = fs::temp_directory_path() / "inkharbour-bench";
};

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// --- The floor ---------------------------------------------------------------

void ignoreStart(void*, const XML_Char*, const XML_Char**) {}
void ignoreEnd(void*, const XML_Char*) {}
void ignoreCharacters(void*, const XML_Char*, int) {}

struct ArchiveCloser {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct FileCloser {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};
struct ParserFreer {
  void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};

using Archive = std::unique_ptr<zip_t, ArchiveCloser>;

Archive openArchive(const fs::path& path) {
  int error = 0;
  Archive archive(zip_open(path.c_str(), ZIP_RDONLY, &error));
  if (!archive) throw std::runtime_error("cannot open " + path.string() + " as a ZIP archive");
  return archive;
}

// Inflates one member in chunks, running expat with empty handlers over it
// when `xml` is set. Returns the inflated size.
std::uint64_t inflate(zip_t* archive, const std::string& member, bool xml, char* buffer) {
  std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen(archive, member.c_str(), 0));
  if (!file) throw std::runtime_error("the package has no member " + member);
  std::unique_ptr<XML_ParserStruct, ParserFreer> parser;
  if (xml) {
    parser.reset(XML_ParserCreate(nullptr));
    XML_SetElementHandler(parser.get(), ignoreStart, ignoreEnd);
    XML_SetCharacterDataHandler(parser.get(), ignoreCharacters);
  }
  std::uint64_t size = 0;
  for (;;) {
    const zip_int64_t n = zip_fread(file.get(), buffer, kChunkSize);
    if (n < 0) throw std::runtime_error("cannot inflate " + member);
    if (parser && XML_Parse(parser.get(), buffer, static_cast<int>(n), n == 0) != XML_STATUS_OK) {
      throw std::runtime_error(member + " is not well-formed XML");
    }
    if (n == 0) return size;
    size += static_cast<std::uint64_t>(n);
  }
}

// The members a reader reads from one package.
struct PartsRead {
  std::vector<std::string> xml;
  std::vector<std::string> binary;
};

PartsRead bookParts(const fs::path& book) {
  PartsRead parts{.xml = {"word/document.xml", "word/styles.xml", "word/_rels/document.xml.rels",
                          "word/footnotes.xml"},
                  .binary = {}};
  const auto archive = openArchive(book);
  const auto count = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const std::string_view name = zip_get_name(archive.get(), static_cast<zip_uint64_t>(i), 0);
    if (name.starts_with("word/media/")) parts.binary.emplace_back(name);
  }
  return parts;
}

PartsRead workbookParts() {
  return PartsRead{.xml = {"xl/sharedStrings.xml", "xl/worksheets/sheet1.xml"}, .binary = {}};
}

// One floor pass over a package: opens it, inflates the parts. Returns the
// total inflated size.
std::uint64_t floorPass(const fs::path& package, const PartsRead& parts) {
  const auto archive = openArchive(package);
  const auto buffer = std::make_unique<char[]>(kChunkSize);
  std::uint64_t size = 0;
  for (const auto& member : parts.xml) size += inflate(archive.get(), member, true, buffer.get());
  for (const auto& member : parts.binary) {
    size += inflate(archive.get(), member, false, buffer.get());
  }
  return size;
}

// --- Timing ------------------------------------------------------------------

struct Case {
  std::string name;
  std::function<double()> run;  // one repetition; returns its CPU seconds
  int floor = -1;               // index of the case it is compared with
  std::vector<double> samples;

  double best() const { return *std::min_element(samples.begin(), samples.end()); }
  double median() const {
    auto sorted = samples;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
};

// CPU time of one call of `work`. Its result is freed after the clock stops:
// releasing an import's result is not part of the import.
template <typename Work>
std::function<double()> timed(Work work) {
  return [work] {
    const double start = cpuSeconds();
    [[maybe_unused]] const auto result = work();
    return cpuSeconds() - start;
  };
}

// --- Peak memory -------------------------------------------------------------

struct PeakMemory {
  long baselineKiB = 0;  // the child's peak just before the import
  long peakKiB = 0;      // the child's peak over its whole life
  long growthKiB() const { return peakKiB - baselineKiB; }
};

long maxResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // KiB on Linux
}

// The child side: report the peak so far, then import once and exit.
int runPeakChild(const fs::path& file) {
  std::printf("%ld\n", maxResidentKiB());
  std::fflush(stdout);
  const auto result = DocxReader::read(file, StyleMap{});
  return result.blocks.empty() ? 1 : 0;
}

// Imports `file` once in a fresh process (this program run again) and reads
// its peak resident size from wait4. The child starts from exec, not from a
// copy of this process, so memory this process has touched or freed cannot
// hide or inflate its figures.
PeakMemory measurePeak(const fs::path& self, const fs::path& file) {
  // The child's counter starts at this process's resident size when it
  // forks, so give back what the allocator holds first.
  malloc_trim(0);
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    execl(self.c_str(), self.c_str(), kPeakChildFlag.data(), file.c_str(), nullptr);
    _exit(127);
  }
  close(fds[1]);
  std::string output;
  char buffer[256];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(n));
  }
  close(fds[0]);
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("the measuring child failed on " + file.string());
  }
  PeakMemory memory{.baselineKiB = 0, .peakKiB = usage.ru_maxrss};
  std::from_chars(output.data(), output.data() + output.size(), memory.baselineKiB);
  return memory;
}

// --- What was imported -------------------------------------------------------

struct BookFacts {
  std::uint64_t documentBytes = 0;  // word/document.xml, inflated
  std::size_t paragraphs = 0;
  std::size_t headings = 0;
  std::size_t tables = 0;
  std::size_t images = 0;
  std::size_t footnotes = 0;
  std::size_t runs = 0;
  std::size_t words = 0;
};

std::uint64_t memberSize(const fs::path& package, const char* member) {
  const auto archive = openArchive(package);
  zip_stat_t stat;
  if (zip_stat(archive.get(), member, 0, &stat) != 0) return 0;
  return stat.size;
}

std::size_t countWords(std::string_view text) {
  std::size_t words = 0;
  bool inWord = false;
  for (const char c : text) {
    const bool space = c == ' ' || c == '\t' || c == '\n';
    if (!space && !inWord) ++words;
    inWord = !space;
  }
  return words;
}

BookFacts describeBook(const fs::path& book) {
  BookFacts facts{.documentBytes = memberSize(book, "word/document.xml")};
  const auto result = DocxReader::read(book, StyleMap{});
  for (const auto& block : result.blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      ++facts.paragraphs;
      if (paragraph->styleName != "Body") ++facts.headings;
      facts.runs += paragraph->runs.size();
      facts.words += countWords(paragraph->text());
    } else if (std::holds_alternative<Table>(block.kind)) {
      ++facts.tables;
    } else {
      ++facts.images;
    }
  }
  facts.footnotes = result.footnotes.size();
  return facts;
}

// --- Report ------------------------------------------------------------------

double mebibytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / (1 << 20);
}

std::string mark(double ratio, double goal) {
  return ratio <= goal ? "ok" : "MISSED";
}

Options parseOptions(int argc, char** argv) {
  Options options;
  // The path this program was started by; under a profiler such as valgrind
  // /proc/self/exe would name the profiler instead.
  const std::string_view started = argv[0];
  options.self =
      started.find('/') != std::string_view::npos ? fs::path(started) : fs::path("/proc/self/exe");
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
    if (argument == "--repetitions") {
      options.repetitions = number(i);
    } else if (argument == "--paragraphs") {
      options.paragraphs = number(i);
    } else if (argument == "--rows") {
      options.rows = number(i);
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
  const double generationStart = cpuSeconds();
  const auto book = ensureBook(options.directory, BookShape::withParagraphs(options.paragraphs));
  const auto workbook = ensureWorkbook(options.directory, WorkbookShape{.rows = options.rows});
  const double generation = cpuSeconds() - generationStart;

  // Memory first, while this process is still small.
  const PeakMemory bookMemory = measurePeak(options.self, book);
  const PeakMemory workbookMemory = measurePeak(options.self, workbook);

  const PartsRead docxParts = bookParts(book);
  const PartsRead xlsxParts = workbookParts();
  const std::uint64_t docxInflated = floorPass(book, docxParts);
  const std::uint64_t xlsxInflated = floorPass(workbook, xlsxParts);
  const BookFacts facts = describeBook(book);
  const Table sheet = XlsxReader::read(workbook);

  std::vector<Case> cases;
  cases.push_back({.name = "docx floor: libzip + expat",
                   .run = timed([&] { return floorPass(book, docxParts); })});
  cases.push_back({.name = "DocxReader::read (.docx)",
                   .run = timed([&] { return DocxReader::read(book, StyleMap{}); }),
                   .floor = 0});
  cases.push_back({.name = "xlsx floor: libzip + expat",
                   .run = timed([&] { return floorPass(workbook, xlsxParts); })});
  cases.push_back({.name = "XlsxReader::read",
                   .run = timed([&] { return XlsxReader::read(workbook); }),
                   .floor = 2});
  cases.push_back({.name = "DocxReader::read (.xlsx)",
                   .run = timed([&] { return DocxReader::read(workbook, StyleMap{}); }),
                   .floor = 2});

  // One untimed round warms the page cache and the allocator; the rounds
  // then alternate between cases so that a busy neighbour hurts all alike.
  for (auto& c : cases) c.run();
  for (int round = 0; round < options.repetitions; ++round) {
    for (auto& c : cases) c.samples.push_back(c.run());
  }

  std::printf("Inkharbour import benchmark\n\n");
  std::printf("book      %s\n", book.c_str());
  std::printf("          %.1f MiB on disk; word/document.xml %.1f MiB inflated\n",
              mebibytes(fs::file_size(book)), mebibytes(facts.documentBytes));
  std::printf(
      "          imported: %zu paragraphs (%zu headings), %zu runs, %zu words,\n"
      "          %zu tables, %zu pictures, %zu footnotes\n",
      facts.paragraphs, facts.headings, facts.runs, facts.words, facts.tables, facts.images,
      facts.footnotes);
  std::printf("workbook  %s\n", workbook.c_str());
  std::printf(
      "          %.1f MiB on disk; sheet1.xml %.1f MiB, sharedStrings.xml %.2f MiB inflated\n",
      mebibytes(fs::file_size(workbook)),
      mebibytes(memberSize(workbook, "xl/worksheets/sheet1.xml")),
      mebibytes(memberSize(workbook, "xl/sharedStrings.xml")));
  std::printf("          imported: %zu rows x %zu columns\n", sheet.rows.size(),
              sheet.columnCount());
  std::printf("          (inputs ready in %.2f s CPU)\n\n", generation);

  std::printf("CPU time, best of %d (median)                 best ms   median ms   ratio\n",
              options.repetitions);
  bool missed = false;
  for (const auto& c : cases) {
    std::printf("  %-40s %9.1f %11.1f", c.name.c_str(), c.best() * 1e3, c.median() * 1e3);
    if (c.floor >= 0) {
      const double ratio = c.best() / cases[static_cast<std::size_t>(c.floor)].best();
      std::printf("   %5.2fx  goal <= %.1fx  %s", ratio, kCpuGoal, mark(ratio, kCpuGoal).c_str());
      missed = missed || ratio > kCpuGoal;
    }
    std::printf("\n");
  }

  const double bookRatio =
      static_cast<double>(bookMemory.growthKiB()) * 1024.0 / static_cast<double>(docxInflated);
  const double workbookRatio =
      static_cast<double>(workbookMemory.growthKiB()) * 1024.0 / static_cast<double>(xlsxInflated);
  missed = missed || bookRatio > kMemoryGoal;
  std::printf("\nPeak memory of one import (child process, ru_maxrss from wait4)\n");
  std::printf("  %-40s %9s %11s   %6s\n", "", "parts MiB", "growth MiB", "ratio");
  std::printf("  %-40s %9.1f %11.1f   %5.2fx  goal <= %.1fx  %s\n", "DocxReader::read (.docx)",
              mebibytes(docxInflated), bookMemory.growthKiB() / 1024.0, bookRatio, kMemoryGoal,
              mark(bookRatio, kMemoryGoal).c_str());
  std::printf("  %-40s %9.1f %11.1f   %5.2fx  (no goal)\n", "DocxReader::read (.xlsx)",
              mebibytes(xlsxInflated), workbookMemory.growthKiB() / 1024.0, workbookRatio);
  std::printf(
      "  parts MiB: inflated size of the members the reader reads; growth MiB: the\n"
      "  child's peak resident size (%.1f MiB for the book) less its peak just before\n"
      "  the import (%.1f MiB)\n",
      bookMemory.peakKiB / 1024.0, bookMemory.baselineKiB / 1024.0);

  return options.check && missed ? 1 : 0;
}

}  // namespace

}  // namespace inkharbour::bench

int main(int argc, char** argv) {
  using namespace inkharbour::bench;
  try {
    if (argc == 3 && argv[1] == kPeakChildFlag) return runPeakChild(argv[2]);
    return run(parseOptions(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "import_bench: %s\n", error.what());
    return 2;
  }
}
