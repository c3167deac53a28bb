// The command line: which developer mode an argument list selects, and what
// running that mode returns.
#include "cli/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fixtures.h"

namespace inkharbour::cli {
namespace {

using Mode = CommandLine::Mode;

CommandLine parse(const std::vector<const char*>& arguments) {
  return parseCommandLine(std::span<const char* const>(arguments.data(), arguments.size()));
}

TEST(CommandLine, SelfTestWinsThenTheArgumentAfterTheFirstDump) {
  const struct {
    std::vector<const char*> arguments;  // the program path first
    Mode mode;
    const char* dumpPath;
  } cases[] = {
      {{}, Mode::application, ""},
      {{"ink", "story.docx"}, Mode::application, ""},
      {{"ink", "-NSDocumentRevisionsDebugMode", "YES", "--dump", "dir/a b.docx", "x"},
       Mode::dump, "dir/a b.docx"},
      {{"ink", "--dump", "a.docx", "--selftest"}, Mode::selftest, ""},
      {{"ink", "--selftest", "--dump", "a.docx"}, Mode::selftest, ""},
      {{"ink", "--dump", "a.docx", "--dump", "b.docx"}, Mode::dump, "a.docx"},
      {{"ink", "--dump", "--dump", "b.docx"}, Mode::dump, "--dump"},
      {{"ink", "a.docx", "--dump"}, Mode::application, ""},  // a trailing "--dump" has no path
      {{"ink", "--DUMP", "a.docx"}, Mode::application, ""},  // arguments compare exactly
      {{"ink", "--dump=a.docx"}, Mode::application, ""},
      {{"ink", "--Selftest"}, Mode::application, ""},
  };
  for (const auto& c : cases) {
    const auto commandLine = parse(c.arguments);
    std::string trace;
    for (const char* argument : c.arguments) trace += std::string(argument) + " ";
    EXPECT_EQ(commandLine.mode, c.mode) << trace;
    EXPECT_EQ(commandLine.dumpPath, std::filesystem::path(c.dumpPath)) << trace;
  }
}

TEST(CommandLine, RunningAModeReturnsItsStatus) {
  EXPECT_EQ(runDeveloperMode(CommandLine{}), std::nullopt);  // the application is the caller's
  testing::TempDir dir;
  testing::writeFile(dir / "notes.txt", "one");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(runDeveloperMode({.mode = Mode::dump, .dumpPath = dir / "notes.txt"}), 0);
  EXPECT_EQ(runDeveloperMode({.mode = Mode::dump, .dumpPath = dir / "absent.docx"}), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[Body] «one»\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "The file \u201cabsent.docx\u201d couldn\u2019t be opened because there is no such "
            "file.\n");
  ::testing::internal::CaptureStdout();
  const auto status = runDeveloperMode({.mode = Mode::selftest});
  const std::string report = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, report.ends_with(" 0 failed\n") ? 0 : 1) << report;
}

}  // namespace
}  // namespace inkharbour::cli
