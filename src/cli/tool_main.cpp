// inkharbour-cli: headless use of the core. Exit status 0 on success, 1 when
// a command ran but found a problem (a conflict, an unreadable file), 2 on a
// usage error.
#include <CLI/CLI.hpp>

#include <iostream>

#include "cli/dump.h"

int main(int argc, char** argv) {
  CLI::App app{"Inkharbour on the command line: import, merge and link story files."};
  app.require_subcommand(1);

  std::string dumpPath;
  auto* dump = app.add_subcommand("dump", "Print the blocks and footnotes a file imports to");
  dump->add_option("path", dumpPath, "a .docx, .xlsx or text file")->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    return status == 0 ? 0 : 2;
  }

  if (*dump) return inkharbour::cli::runDump(dumpPath, std::cout, std::cerr);
  return 2;
}
