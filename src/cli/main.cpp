// The desktop program's entry point. The developer modes run before any
// window or application object exists, so they work with no display.
#include <iostream>
#include <span>

#include "cli/command_line.h"

int main(int argc, char** argv) {
  using namespace inkharbour::cli;
  const auto commandLine =
      parseCommandLine(std::span<const char* const>(argv, static_cast<std::size_t>(argc)));
  if (const auto status = runDeveloperMode(commandLine)) return *status;

  std::cerr << "The desktop window is not available in this build yet; use --dump PATH or "
               "--selftest.\n";
  return 0;
}
