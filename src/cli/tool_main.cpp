// inkharbour-cli: headless use of the core. Exit status 0 on success, 1 when
// a command ran but found a problem (a conflict, an unreadable file), 2 on an
// error or a usage mistake.
#include <CLI/CLI.hpp>

#include <iostream>
#include <map>

#include "cli/dump.h"
#include "cli/merge_command.h"

int main(int argc, char** argv) {
  using namespace inkharbour;
  CLI::App app{"Inkharbour on the command line: import, merge and link story files."};
  app.require_subcommand(1);

  std::string dumpPath;
  auto* dump = app.add_subcommand("dump", "Print the blocks and footnotes a file imports to");
  dump->add_option("path", dumpPath, "a .docx, .xlsx or text file")->required();

  cli::MergeRequest merge;
  std::string mergeOutput;
  std::optional<LinkKind> mergeKind;
  const std::map<std::string, LinkKind> kinds{
      {"docx", LinkKind::word}, {"xlsx", LinkKind::excel}, {"text", LinkKind::text}};
  auto* mergeCommand = app.add_subcommand(
      "merge", "Merge the changes from BASE to LOCAL and from BASE to EXTERNAL, as Update Link does");
  mergeCommand->add_option("base", merge.base, "the common ancestor")->required();
  mergeCommand->add_option("local", merge.local, "your version")->required();
  mergeCommand->add_option("external", merge.external, "their version; it wins conflicts")
      ->required();
  mergeCommand->add_option("-o,--output", mergeOutput,
                           "write the merged story here (.docx, or text for other names)");
  mergeCommand->add_flag("--json", merge.json, "print the report as JSON");
  mergeCommand
      ->add_option("--type", mergeKind,
                   "read and write every file as docx, xlsx or text, whatever its name")
      ->transform(CLI::CheckedTransformer(kinds));

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    return status == 0 ? 0 : 2;
  }

  if (*dump) return cli::runDump(dumpPath, std::cout, std::cerr);
  if (*mergeCommand) {
    if (!mergeOutput.empty()) merge.output = mergeOutput;
    merge.kind = mergeKind;
    return cli::runMerge(merge, std::cout, std::cerr);
  }
  return 2;
}
