// Every real file of the shared corpus (written by Word, Excel, LibreOffice,
// libraries and fuzzers) either imports or fails with a clear DocxError
// message: never a crash, a hang or a runaway allocation. Each file is read
// in a child process so that one bad file cannot take the others down.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kSecondsPerFile = 5;
constexpr long kMaxResidentKiB = 1024 * 1024;  // 1 GiB

struct Outcome {
  std::string problem;  // empty when the file behaved
  std::string summary;  // what the child reported
};

// Reads the file in a child; the child reports "ok", "error: <message>" or
// "other: <message>" on a pipe.
Outcome importInChild(const fs::path& file) {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) return {"pipe failed", ""};
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipeFds[0]);
    ::alarm(kSecondsPerFile);
    std::string report;
    try {
      const auto result = DocxReader::read(file, StyleMap{});
      report = "ok " + std::to_string(result.blocks.size()) + " blocks, " +
               std::to_string(result.footnotes.size()) + " notes";
    } catch (const DocxError& error) {
      report = std::string("error: ") + error.what();
    } catch (const std::exception& error) {
      report = std::string("other: ") + error.what();
    }
    [[maybe_unused]] auto written = ::write(pipeFds[1], report.data(), report.size());
    ::_exit(0);
  }
  ::close(pipeFds[1]);
  std::string report;
  char buffer[4096];
  for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;) report.append(buffer, n);
  ::close(pipeFds[0]);

  int status = 0;
  struct rusage usage {};
  ::wait4(child, &status, 0, &usage);
  if (WIFSIGNALED(status)) {
    return {WTERMSIG(status) == SIGALRM ? "took longer than 5 s"
                                        : "crashed with signal " + std::to_string(WTERMSIG(status)),
            report};
  }
  if (usage.ru_maxrss > kMaxResidentKiB) {
    return {"used " + std::to_string(usage.ru_maxrss / 1024) + " MiB", report};
  }
  if (report.starts_with("other: ")) return {"failed without a DocxError", report};
  if (report.starts_with("error: ")) {
    const std::string message = report.substr(7);
    const bool known = message.starts_with("Could not open archive: ") ||
                       (message.starts_with("Archive is missing ") &&
                        message.ends_with(" \u2014 not a valid file.")) ||
                       (message.starts_with("Could not parse the document (") &&
                        message.ends_with(")."));
    if (!known) return {"unexpected message", report};
  }
  return {"", report};
}

void checkFolder(const std::string& name) {
  const char* root = std::getenv("INKHARBOUR_CORPUS");
  const fs::path folder = fs::path(root != nullptr ? root : "") / name;
  if (root == nullptr || !fs::is_directory(folder)) {
    GTEST_SKIP() << "no corpus folder at " << folder << "; set INKHARBOUR_CORPUS";
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty());

  int imported = 0;
  for (const auto& file : files) {
    const auto outcome = importInChild(file);
    EXPECT_EQ(outcome.problem, "") << file.filename() << ": " << outcome.summary;
    if (outcome.summary.starts_with("ok")) ++imported;
  }
  // Most of the corpus is ordinary documents; a reader that fails on them all is broken.
  EXPECT_GT(imported, static_cast<int>(files.size()) / 2);
}

TEST(Corpus, WordFilesImportOrFailCleanly) { checkFolder("docx"); }
TEST(Corpus, WorkbooksImportOrFailCleanly) { checkFolder("xlsx"); }

}  // namespace
}  // namespace inkharbour
