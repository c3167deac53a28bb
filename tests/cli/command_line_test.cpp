// The command line: which developer mode an argument list selects, and what
// running that mode returns.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/command_line.h"
#include "support/fixtures.h"

namespace inkharbour::cli {
namespace {

using Mode = CommandLine::Mode;

CommandLine parse(const std::vector<const char*>& arguments) {
  return parseCommandLine(std::span<const char* const>(arguments.data(), arguments.size()));
}

std::string describe(const std::vector<const char*>& arguments) {
  std::string text;
  for (const char* argument : arguments) text += std::string("\"") + argument + "\" ";
  return text;
}

TEST(CommandLineParse, Modes) {
  struct Case {
    std::vector<const char*> arguments;  // the program path first
    Mode mode;
    const char* dumpPath;
  };
  const Case cases[] = {
      {{"inkharbour"}, Mode::application, ""},
      {{}, Mode::application, ""},
      {{"inkharbour", "story.docx"}, Mode::application, ""},
      {{"inkharbour", "--selftest"}, Mode::selftest, ""},
      {{"inkharbour", "--dump", "a.docx"}, Mode::dump, "a.docx"},
      {{"inkharbour", "-NSDocumentRevisionsDebugMode", "YES", "--dump", "dir/a b.docx", "extra"},
       Mode::dump, "dir/a b.docx"},
      // The self-test wins wherever it stands.
      {{"inkharbour", "--dump", "--selftest"}, Mode::selftest, ""},
      {{"inkharbour", "--dump", "a.docx", "--selftest"}, Mode::selftest, ""},
      {{"inkharbour", "--selftest", "--dump", "a.docx"}, Mode::selftest, ""},
      // Only the first "--dump" counts, whatever follows it.
      {{"inkharbour", "--dump", "a.docx", "--dump", "b.docx"}, Mode::dump, "a.docx"},
      {{"inkharbour", "--dump", "--dump", "b.docx"}, Mode::dump, "--dump"},
      {{"inkharbour", "--dump", "--dump"}, Mode::dump, "--dump"},
      // A trailing "--dump" has no path: the application starts.
      {{"inkharbour", "--dump"}, Mode::application, ""},
      {{"inkharbour", "a.docx", "--dump"}, Mode::application, ""},
      // Arguments compare exactly.
      {{"inkharbour", "--DUMP", "a.docx"}, Mode::application, ""},
      {{"inkharbour", "--dump=a.docx"}, Mode::application, ""},
      {{"inkharbour", "-dump", "a.docx"}, Mode::application, ""},
      {{"inkharbour", " --dump", "a.docx"}, Mode::application, ""},
      {{"inkharbour", "--Selftest"}, Mode::application, ""},
      {{"inkharbour", "--selftest=1"}, Mode::application, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(describe(c.arguments));
    const auto commandLine = parse(c.arguments);
    EXPECT_EQ(commandLine.mode, c.mode);
    if (c.mode == Mode::dump) {
      EXPECT_EQ(commandLine.dumpPath, std::filesystem::path(c.dumpPath));
    }
  }
}

TEST(CommandLineRun, ApplicationModeIsLeftToTheCaller) {
  EXPECT_EQ(runDeveloperMode(CommandLine{}), std::nullopt);
}

TEST(CommandLineRun, DumpModePrintsToStandardOutput) {
  testing::TempDir dir;
  testing::writeFile(dir / "notes.txt", "one\ntwo");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const auto status = runDeveloperMode(parse({"inkharbour", "--dump", (dir / "notes.txt").c_str()}));
  const std::string out = ::testing::internal::GetCapturedStdout();
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out, "[Body] «one»\n[Body] «two»\n");
  EXPECT_EQ(err, "");
}

TEST(CommandLineRun, DumpModeFailureGoesToStandardError) {
  testing::TempDir dir;
  testing::writeFile(dir / "fake.docx", "plain text");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const auto status = runDeveloperMode(parse({"inkharbour", "--dump", (dir / "fake.docx").c_str()}));
  const std::string out = ::testing::internal::GetCapturedStdout();
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "Archive is missing word/document.xml \u2014 not a valid file.\n");
}

TEST(CommandLineRun, SelfTestStatusFollowsItsVerdict) {
  ::testing::internal::CaptureStdout();
  const auto status = runDeveloperMode(CommandLine{.mode = Mode::selftest});
  const std::string out = ::testing::internal::GetCapturedStdout();
  ASSERT_TRUE(status.has_value());
  const bool allPassed = out.ends_with(" 0 failed\n");
  EXPECT_EQ(*status, allPassed ? 0 : 1) << out;
}

}  // namespace
}  // namespace inkharbour::cli
