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
#include <zip.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench_support.h"
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
  fs::path directory = defaultDirectory();
  fs::path peakChild;  // set in the child that measures one import
};

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

// --- Peak memory -------------------------------------------------------------

struct PeakMemory {
  long baselineKiB = 0;  // the child's peak just before the import
  long peakKiB = 0;      // the child's peak over its whole life
  long growthKiB() const { return peakKiB - baselineKiB; }
};

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
  const ChildExit child = runSelf(self, {std::string(kPeakChildFlag), file.string()});
  if (!child.succeeded) {
    throw std::runtime_error("the measuring child failed on " + file.string());
  }
  PeakMemory memory{.baselineKiB = 0, .peakKiB = child.usage.ru_maxrss};
  std::from_chars(child.output.data(), child.output.data() + child.output.size(),
                  memory.baselineKiB);
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

  std::vector<CpuCase> cases;
  cases.push_back({.name = "docx floor: libzip + expat",
                   .run = cpuTimed([&] { return floorPass(book, docxParts); })});
  cases.push_back({.name = "DocxReader::read (.docx)",
                   .run = cpuTimed([&] { return DocxReader::read(book, StyleMap{}); }),
                   .floor = 0,
                   .goal = kCpuGoal});
  cases.push_back({.name = "xlsx floor: libzip + expat",
                   .run = cpuTimed([&] { return floorPass(workbook, xlsxParts); })});
  cases.push_back({.name = "XlsxReader::read",
                   .run = cpuTimed([&] { return XlsxReader::read(workbook); }),
                   .floor = 2,
                   .goal = kCpuGoal});
  cases.push_back({.name = "DocxReader::read (.xlsx)",
                   .run = cpuTimed([&] { return DocxReader::read(workbook, StyleMap{}); }),
                   .floor = 2,
                   .goal = kCpuGoal});
  runRounds(cases, options.repetitions);

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

  printCpuHeading(options.repetitions);
  bool missed = printCpuCases(cases);

  const double bookRatio =
      static_cast<double>(bookMemory.growthKiB()) * 1024.0 / static_cast<double>(docxInflated);
  const double workbookRatio =
      static_cast<double>(workbookMemory.growthKiB()) * 1024.0 / static_cast<double>(xlsxInflated);
  missed = missed || bookRatio > kMemoryGoal;
  std::printf("\nPeak memory of one import (child process, ru_maxrss from wait4)\n");
  std::printf("  %-40s %9s %11s   %6s\n", "", "parts MiB", "growth MiB", "ratio");
  std::printf("  %-40s %9.1f %11.1f   %5.2fx  goal <= %.1fx  %s\n", "DocxReader::read (.docx)",
              mebibytes(docxInflated), bookMemory.growthKiB() / 1024.0, bookRatio, kMemoryGoal,
              mark(bookRatio <= kMemoryGoal));
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
  return guarded("import_bench", [&] {
    Options options{.self = selfPath(argv[0])};
    CLI::App app{"Times the readers against the least work any reader of the same files must do.",
                 "import_bench"};
    addCount(app, "--repetitions", options.repetitions, "timed runs of each case");
    addCount(app, "--paragraphs", options.paragraphs, "paragraphs in the generated book");
    addCount(app, "--rows", options.rows, "rows in the generated workbook");
    addCheck(app, options.check);
    addDirectory(app, options.directory, "keeps the generated book and workbook between runs");
    // Hidden: this program started again to import one file and report its
    // peak memory.
    app.add_option(std::string(kPeakChildFlag), options.peakChild)->group("");
    if (const auto status = parseCommandLine(app, argc, argv)) return *status;
    if (!options.peakChild.empty()) return runPeakChild(options.peakChild);
    return run(options);
  });
}
