// The developer modes the program recognises before any window exists.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace inkharbour::cli {

struct CommandLine {
  enum class Mode { application, selftest, dump };
  Mode mode = Mode::application;
  std::filesystem::path dumpPath;  // set in dump mode
};

// "--selftest" anywhere wins; otherwise the argument right after the first
// "--dump" is the file to dump. A trailing "--dump" starts the application.
// `arguments` is the full list, the program path included.
CommandLine parseCommandLine(std::span<const char* const> arguments);

// Runs the self-test or dump mode and returns the exit status; no value in
// application mode.
std::optional<int> runDeveloperMode(const CommandLine& commandLine);

}  // namespace inkharbour::cli
