// The desktop program's entry point. The developer modes run before any
// window or application object exists, so they work with no display.
#include <span>

#include "cli/command_line.h"
#include "ui/application.h"

int main(int argc, char** argv) {
  using namespace inkharbour::cli;
  const auto commandLine =
      parseCommandLine(std::span<const char* const>(argv, static_cast<std::size_t>(argc)));
  if (const auto status = runDeveloperMode(commandLine)) return *status;

  return inkharbour::runApplication(argc, argv);
}
