#include "cli/command_line.h"

#include <iostream>
#include <string_view>

#include "cli/dump.h"
#include "cli/selftest.h"

namespace inkharbour::cli {

CommandLine parseCommandLine(std::span<const char* const> arguments) {
  for (const char* argument : arguments) {
    if (std::string_view(argument) == "--selftest") return {.mode = CommandLine::Mode::selftest};
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (std::string_view(arguments[i]) != "--dump") continue;
    if (i + 1 < arguments.size()) {
      return {.mode = CommandLine::Mode::dump, .dumpPath = arguments[i + 1]};
    }
    break;
  }
  return {};
}

std::optional<int> runDeveloperMode(const CommandLine& commandLine) {
  switch (commandLine.mode) {
    case CommandLine::Mode::selftest:
      return runSelfTests(std::cout) ? 0 : 1;
    case CommandLine::Mode::dump:
      return runDump(commandLine.dumpPath, std::cout, std::cerr);
    case CommandLine::Mode::application:
      return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace inkharbour::cli
