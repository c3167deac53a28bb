// Merge and export benchmark. Three goals, measured side by side in one run:
//
// 1. `inkharbour-cli merge` of a book-length text triple (base, local and
//    external, each side with its own independent edits) takes no more wall
//    time than `git merge-file -p` on the same files, and needs at most
//    64 MiB more memory than the program needs to print its help.
// 2. `inkharbour-cli merge` of the same book as three .docx files takes at
//    most 3.5 times the wall time of one import of the book.
// 3. DocxWriter::write of the book takes at most half the wall time of
//    `zip -r -X -q` over the parts of the package it writes.
// 4. DocxWriter::update, pushing three edited paragraphs into the book in
//    place, takes at most 1.5 times the wall time of DocxWriter::write.
//
// usage: merge_bench [--repetitions N] [--paragraphs N] [--edits N] [--cli PATH]
//                    [--check] [DIRECTORY]
//
// DIRECTORY holds the generated inputs between runs and the outputs of the
// timed commands (default: a folder under the system's temporary directory).
// --edits sets the number of edits on each side (default 600). --cli names
// the inkharbour-cli to run (default: the one built beside this program).
// --check makes a missed goal exit 1.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zip.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench_support.h"
#include "book_generator.h"
#include "importers/docx_reader.h"
#include "writer/docx_writer.h"

namespace inkharbour::bench {

namespace {

namespace fs = std::filesystem;

constexpr double kTextWallGoal = 1.0;      // x git merge-file
constexpr double kTextMemoryGoalMiB = 64;  // beyond inkharbour-cli --help
constexpr double kWordWallGoal = 3.5;      // x one import
constexpr double kExportWallGoal = 0.5;    // x zip -r -X -q
constexpr double kPushWallGoal = 1.5;      // x DocxWriter::write
constexpr std::string_view kChildFlag = "--run-child";

struct Options {
  fs::path self;  // this program, run again as the measuring parent of each command
  fs::path cli;
  int repetitions = 5;
  int paragraphs = BookShape{}.paragraphs;
  int edits = EditShape{}.edits;
  bool check = false;
  fs::path directory = defaultDirectory();
};

double seconds(const timeval& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

// --- Commands in child processes ---------------------------------------------
//
// A child's peak resident size (ru_maxrss) starts at the resident size of the
// process it was forked from: exec records the old address space's peak. So
// each command is started by a fresh copy of this program (kChildFlag), which
// is a few MiB, not by the benchmark that holds a book; that small parent
// times the command and reports wall time, CPU time and peak.

struct Sample {
  double wall = 0;   // seconds
  double cpu = 0;    // seconds, user + system
  long peakKiB = 0;  // 0 when measured in process
};

struct Command {
  std::vector<std::string> argv;
  fs::path output = "/dev/null";  // the command's standard output
  fs::path workingDirectory;      // empty: this one
};

// The measuring parent: runs the command once, its standard output sent to
// `output`, in `workingDirectory` unless that is "-", and prints
// "wall-seconds cpu-seconds peak-KiB exit-status".
int runChild(const fs::path& output, const fs::path& workingDirectory,
             std::vector<std::string> command) {
  if (command.empty()) return 127;
  std::vector<char*> pointers;
  for (auto& word : command) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const double start = wallSeconds();
  const pid_t pid = fork();
  if (pid < 0) return 127;
  if (pid == 0) {
    if (workingDirectory != "-" && chdir(workingDirectory.c_str()) != 0) _exit(127);
    const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0) _exit(127);
    execvp(pointers[0], pointers.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) return 127;
  const double wall = wallSeconds() - start;
  std::printf("%.9f %.9f %ld %d\n", wall, seconds(usage.ru_utime) + seconds(usage.ru_stime),
              usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  return 0;
}

struct ChildResult {
  Sample sample;
  int status = 0;
};

ChildResult measure(const fs::path& self, const Command& command) {
  std::vector<std::string> args = {
      std::string(kChildFlag), command.output.string(),
      command.workingDirectory.empty() ? std::string("-") : command.workingDirectory.string()};
  args.insert(args.end(), command.argv.begin(), command.argv.end());
  const ChildExit child = runSelf(self, args);
  ChildResult result;
  std::istringstream fields(child.output);
  if (!(fields >> result.sample.wall >> result.sample.cpu >> result.sample.peakKiB >>
        result.status) ||
      !child.succeeded) {
    throw std::runtime_error("could not run " + command.argv.front());
  }
  return result;
}

// --- Cases ---------------------------------------------------------------------

struct Case {
  std::string name;
  std::function<Sample()> run;  // one repetition
  std::vector<Sample> samples;

  std::vector<double> values(double Sample::*field) const {
    std::vector<double> values;
    for (const auto& s : samples) values.push_back(s.*field);
    return values;
  }
  double best(double Sample::*field) const { return bench::best(values(field)); }
  double median(double Sample::*field) const { return bench::median(values(field)); }
  long peakKiB() const {  // the largest: memory is judged by its worst run
    long peak = 0;
    for (const auto& s : samples) peak = std::max(peak, s.peakKiB);
    return peak;
  }
};

// A command run through the measuring parent; `accepted` tells which exit
// statuses count as success.
std::function<Sample()> child(const fs::path& self, Command command,
                              std::function<bool(int)> accepted,
                              std::function<void()> before = {}) {
  return [=] {
    if (before) before();
    const ChildResult result = measure(self, command);
    if (!accepted(result.status)) {
      throw std::runtime_error(command.argv.front() + " " + command.argv[1] + " exited with " +
                               std::to_string(result.status));
    }
    return result.sample;
  };
}

// Wall and CPU time of one call of `work` in this process. Its result is
// freed after the clocks stop: releasing an import is not part of it.
template <typename Work>
std::function<Sample()> inProcess(Work work) {
  return [work] {
    const double wall = wallSeconds();
    const double cpu = cpuSeconds();
    [[maybe_unused]] const auto result = work();
    return Sample{.wall = wallSeconds() - wall, .cpu = cpuSeconds() - cpu};
  };
}

// --- Files ---------------------------------------------------------------------

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Unpacks every member of the package under `folder`, replacing the folder.
void unpack(const fs::path& package, const fs::path& folder) {
  fs::remove_all(folder);
  int error = 0;
  std::unique_ptr<zip_t, decltype(&zip_discard)> archive(
      zip_open(package.c_str(), ZIP_RDONLY, &error), zip_discard);
  if (!archive) throw std::runtime_error("cannot open " + package.string());
  const auto count = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    if (zip_stat_index(archive.get(), index, 0, &stat) != 0) {
      throw std::runtime_error("cannot read " + package.string());
    }
    std::string bytes(stat.size, '\0');
    std::unique_ptr<zip_file_t, decltype(&zip_fclose)> file(
        zip_fopen_index(archive.get(), index, 0), zip_fclose);
    if (!file ||
        zip_fread(file.get(), bytes.data(), stat.size) != static_cast<zip_int64_t>(stat.size)) {
      throw std::runtime_error(std::string("cannot inflate ") + stat.name);
    }
    const fs::path target = folder / stat.name;
    fs::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
}

std::uint64_t folderBytes(const fs::path& folder) {
  std::uint64_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  return bytes;
}

// --- Report --------------------------------------------------------------------

int run(const Options& options) {
  const double generationStart = wallSeconds();
  const fs::path dir = fs::absolute(options.directory);
  const MergeInputs inputs =
      ensureMergeInputs(dir, BookShape::withParagraphs(options.paragraphs), options.edits);
  const double generation = wallSeconds() - generationStart;

  const fs::path gitOut = dir / "merge-git.txt";
  const fs::path textOut = dir / "merge-out.txt";
  const fs::path wordOut = dir / "merge-out.docx";
  const fs::path exported = dir / "export.docx";
  const fs::path parts = dir / "export-parts";
  const fs::path zipped = dir / "export-zip.zip";
  const fs::path pushed = dir / "push.docx";
  const std::string cli = options.cli.string();

  // The book to export: the base as imported; its parts are what zip packs.
  const ImportResult book = DocxReader::read(inputs.word.base, StyleMap{});
  DocxWriter::write(book.blocks, book.footnotes, exported);
  unpack(exported, parts);

  auto anyStatus = [](int status) { return status < 128; };  // git: the number of conflicts
  auto mergeStatus = [](int status) { return status == 0 || status == 1; };
  auto success = [](int status) { return status == 0; };

  // The story pushed: the book with a sentence added to three paragraphs.
  ImportResult edited = book;
  std::vector<Paragraph*> paragraphs;
  for (auto& block : edited.blocks) {
    if (auto* paragraph = std::get_if<Paragraph>(&block.kind)) paragraphs.push_back(paragraph);
  }
  for (const std::size_t at : {std::size_t{0}, paragraphs.size() / 2, paragraphs.size() - 1}) {
    paragraphs[at]->runs.push_back(TextRun{.text = " A sentence of our own."});
  }

  enum { kGit, kTextMerge, kHelp, kImport, kWordMerge, kZip, kExport, kPush, kCases };
  std::vector<Case> cases(kCases);
  cases[kGit] = {.name = "git merge-file -p (text)",
                 .run = child(options.self,
                              {.argv = {"git", "merge-file", "-p", inputs.text.local.string(),
                                        inputs.text.base.string(), inputs.text.external.string()},
                               .output = gitOut},
                              anyStatus)};
  cases[kTextMerge] = {
      .name = "inkharbour-cli merge (text)",
      .run = child(options.self,
                   {.argv = {cli, "merge", inputs.text.base.string(), inputs.text.local.string(),
                             inputs.text.external.string(), "-o", textOut.string()}},
                   mergeStatus)};
  cases[kHelp] = {.name = "inkharbour-cli --help",
                  .run = child(options.self, {.argv = {cli, "--help"}}, success)};
  cases[kImport] = {
      .name = "DocxReader::read (.docx)",
      .run = inProcess([&] { return DocxReader::read(inputs.word.base, StyleMap{}); })};
  cases[kWordMerge] = {
      .name = "inkharbour-cli merge (.docx)",
      .run = child(options.self,
                   {.argv = {cli, "merge", inputs.word.base.string(), inputs.word.local.string(),
                             inputs.word.external.string(), "-o", wordOut.string()}},
                   mergeStatus)};
  // zip adds to an archive that exists, so each run starts without one.
  cases[kZip] = {.name = "zip -r -X -q (export's parts)",
                 .run = child(options.self,
                              {.argv = {"zip", "-r", "-X", "-q", zipped.string(), "."},
                               .workingDirectory = parts},
                              success, [&] { fs::remove(zipped); })};
  cases[kExport] = {.name = "DocxWriter::write (.docx)",
                    .run = inProcess([&] {
                      DocxWriter::write(book.blocks, book.footnotes, exported);
                      return 0;
                    })};

  // The file is put back before each push, outside the clock.
  cases[kPush] = {.name = "DocxWriter::update (3 edits)", .run = [&] {
                    fs::copy_file(exported, pushed, fs::copy_options::overwrite_existing);
                    return inProcess([&] {
                      DocxWriter::update(edited.blocks, edited.footnotes, pushed, StyleMap{});
                      return 0;
                    })();
                  }};

  runRounds(cases, options.repetitions);

  // The text merge must agree with git, and the Word merge with both.
  const std::string gitText = slurp(gitOut);
  const bool textAgrees = slurp(textOut) == gitText;
  const bool wordAgrees = bookText(DocxReader::read(wordOut, StyleMap{}).blocks) == gitText;

  std::printf("Inkharbour merge benchmark\n\n");
  std::printf("base      %s\n          %s\n", inputs.text.base.c_str(), inputs.word.base.c_str());
  std::printf("          %zu blocks, %zu footnotes; %.1f MiB as text, %.1f MiB as .docx\n",
              book.blocks.size(), book.footnotes.size(), mebibytes(fs::file_size(inputs.text.base)),
              mebibytes(fs::file_size(inputs.word.base)));
  std::printf("edits     %d on each side, in separate places (inputs ready in %.1f s)\n",
              options.edits, generation);
  std::printf("export    %.1f MiB in %zu parts, %.1f MiB packed\n\n", mebibytes(folderBytes(parts)),
              static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(parts),
                                                     fs::recursive_directory_iterator{})),
              mebibytes(fs::file_size(exported)));

  std::printf(
      "best of %d (median)                   wall ms   (median)    CPU ms   (median)  peak MiB\n",
      options.repetitions);
  for (const auto& c : cases) {
    std::printf("  %-32s %9.1f %10.1f %9.1f %10.1f", c.name.c_str(), c.best(&Sample::wall) * 1e3,
                c.median(&Sample::wall) * 1e3, c.best(&Sample::cpu) * 1e3,
                c.median(&Sample::cpu) * 1e3);
    if (c.peakKiB() > 0) std::printf(" %9.1f", c.peakKiB() / 1024.0);
    std::printf("\n");
  }

  auto ratio = [&](int of, int to, double Sample::*field) {
    return cases[static_cast<std::size_t>(of)].best(field) /
           cases[static_cast<std::size_t>(to)].best(field);
  };
  const double textWall = ratio(kTextMerge, kGit, &Sample::wall);
  const double extraMiB = (cases[kTextMerge].peakKiB() - cases[kHelp].peakKiB()) / 1024.0;
  const double wordWall = ratio(kWordMerge, kImport, &Sample::wall);
  const double wordCpu = ratio(kWordMerge, kImport, &Sample::cpu);
  const double exportWall = ratio(kExport, kZip, &Sample::wall);
  const double exportCpu = ratio(kExport, kZip, &Sample::cpu);
  const bool textMet = textWall <= kTextWallGoal;
  const bool memoryMet = extraMiB <= kTextMemoryGoalMiB;
  const bool wordMet = wordWall <= kWordWallGoal;
  const bool exportMet = exportWall <= kExportWallGoal;
  const double pushWall = ratio(kPush, kExport, &Sample::wall);
  const double pushCpu = ratio(kPush, kExport, &Sample::cpu);
  const bool pushMet = pushWall <= kPushWallGoal;

  std::printf("\nGoals (ratios of best times)\n");
  std::printf("  1. text merge / git merge-file, wall      %5.2fx  goal <= %.1fx   %s\n", textWall,
              kTextWallGoal, mark(textMet));
  std::printf("     text merge, memory beyond --help    %6.1f MiB  goal <= %.0f MiB  %s\n",
              extraMiB, kTextMemoryGoalMiB, mark(memoryMet));
  std::printf(
      "  2. .docx merge / one import, wall         %5.2fx  goal <= %.1fx   %s"
      "   (CPU %.2fx)\n",
      wordWall, kWordWallGoal, mark(wordMet), wordCpu);
  std::printf(
      "  3. export / zip -r -X -q, wall            %5.2fx  goal <= %.1fx   %s"
      "   (CPU %.2fx)\n",
      exportWall, kExportWallGoal, mark(exportMet), exportCpu);
  std::printf(
      "  4. push in place / export, wall           %5.2fx  goal <= %.1fx   %s"
      "   (CPU %.2fx)\n",
      pushWall, kPushWallGoal, mark(pushMet), pushCpu);
  std::printf("\nChecks\n");
  std::printf("  text merge output equals git's: %s; .docx merge holds the same text: %s\n",
              textAgrees ? "yes" : "NO", wordAgrees ? "yes" : "NO");
  std::printf(
      "\n  Commands run as children of a small copy of this program; wall from fork to\n"
      "  wait4, CPU and peak (ru_maxrss) from wait4. Peaks are the largest of all rounds.\n");

  const bool missed =
      !(textMet && memoryMet && wordMet && exportMet && pushMet && textAgrees && wordAgrees);
  return options.check && missed ? 1 : 0;
}

}  // namespace

}  // namespace inkharbour::bench

int main(int argc, char** argv) {
  using namespace inkharbour::bench;
  return guarded("merge_bench", [&] {
    Options options{.self = selfPath(argv[0])};
    options.cli = options.self.parent_path().parent_path() / "src" / "inkharbour-cli";
    CLI::App app{
        "Times inkharbour-cli merge against git merge-file and one import, and the writer "
        "against zip.",
        "merge_bench"};
    addCount(app, "--repetitions", options.repetitions, "timed runs of each case");
    addCount(app, "--paragraphs", options.paragraphs, "paragraphs in the generated book");
    addCount(app, "--edits", options.edits, "edits on each side of the merge");
    app.add_option("--cli", options.cli, "the inkharbour-cli to time")
        ->type_name("PATH")
        ->capture_default_str();
    addCheck(app, options.check);
    addDirectory(app, options.directory,
                 "keeps the generated inputs between runs and receives the outputs");
    // Hidden: this program started again as the measuring parent of one
    // command, `--run-child OUTPUT WORKDIR COMMAND...`. WORKDIR lands in
    // DIRECTORY; prefix_command hands the words after it back unparsed, so
    // that the command's own options (-o, --help) stay the command's.
    fs::path childOutput;
    app.add_option(std::string(kChildFlag), childOutput)->group("");
    app.prefix_command();
    if (const auto status = parseCommandLine(app, argc, argv)) return *status;
    if (!childOutput.empty()) return runChild(childOutput, options.directory, app.remaining());
    if (!app.remaining().empty()) {
      app.exit(CLI::ExtrasError(app.remaining()));
      return 2;
    }
    options.cli = fs::absolute(options.cli);
    if (!fs::is_regular_file(options.cli)) {
      throw std::invalid_argument("no inkharbour-cli at " + options.cli.string() + " (use --cli)");
    }
    return run(options);
  });
}
