// inkharbour-cli: headless use of the core. Exit status 0 on success, 1 when
// a command ran but found a problem (a conflict, a link modified or missing,
// a file dump cannot read), 2 on an error or a usage mistake.
#include <CLI/CLI.hpp>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <iostream>
#include <map>

#include "cli/document_commands.h"
#include "cli/dump.h"
#include "cli/merge_command.h"

int main(int argc, char** argv) {
#ifdef __GLIBC__
  // The commands build whole books in memory. Growing the heap 64 MiB at a
  // time rather than in small steps saves about 4% of a merge's time.
  mallopt(M_TOP_PAD, 64 << 20);
#endif
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

  // The document commands: each names its subcommand and what it needs.
  cli::DocumentRequest request;
  std::map<CLI::App*, cli::DocumentCommand> documentCommands;
  auto document = [&](const char* name, cli::DocumentCommand command, const char* description) {
    auto* sub = app.add_subcommand(name, description);
    sub->add_option("document", request.document, "the .inkharbour document")->required();
    documentCommands[sub] = command;
    return sub;
  };
  auto story = [&](CLI::App* sub) {
    sub->add_option("story", request.story, "a story's name or id")->required();
    return sub;
  };
  auto json = [&](CLI::App* sub) {
    sub->add_flag("--json", request.json, "print JSON");
    return sub;
  };
  using cli::DocumentCommand;
  document("new", DocumentCommand::newDocument, "Create an empty document")
      ->add_flag("--force", request.force, "replace an existing file");
  document("place", DocumentCommand::place, "Place each file as a new story linked to it")
      ->add_option("files", request.files, "a .docx, .xlsx or text file")
      ->required();
  story(document("link", DocumentCommand::link, "Link a story to a file"))
      ->add_option("file", request.files, "the file")
      ->required()
      ->expected(1);
  story(document("relink", DocumentCommand::relink,
                 "Point a story's link at its file's new place, keeping what was last synced"))
      ->add_option("file", request.files, "the file at its new place")
      ->required()
      ->expected(1);
  story(document("unlink", DocumentCommand::unlink, "Drop a story's link"));
  json(document("status", DocumentCommand::status,
                "Show each story's link status; exit 1 when one is modified or missing"));
  json(story(document("update", DocumentCommand::update,
                      "Merge the linked file's changes into a story (Update Link)")));
  document("update-all", DocumentCommand::updateAll, "Update every modified link");
  story(document("push", DocumentCommand::push, "Write a story over its linked file (Push Edits)"))
      ->add_flag("--force", request.force,
                 "push even over changes in the file that are not in the story");
  story(document("export", DocumentCommand::exportStory,
                 "Write a story to a new Word document and link it there"))
      ->add_option("output", request.files, "the new .docx")
      ->required()
      ->expected(1);
  json(story(document("notes", DocumentCommand::notes, "Show a story's Story Notes")));
  story(document("dismiss-note", DocumentCommand::dismissNote, "Remove a Story Note"))
      ->add_option("note", request.note, "the Story Note's id")
      ->required();
  json(story(document("report", DocumentCommand::report,
                      "Show a story's last merge report and its Story Notes")));
  json(document("stories", DocumentCommand::stories, "List the stories"));
  story(document("delete-story", DocumentCommand::deleteStory, "Remove a story"));

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
#ifndef __SANITIZE_ADDRESS__
    // Left to the kernel; a sanitizer build frees it, so that its leak check
    // stays quiet.
    merge.exitsAfterwards = true;
#endif
    return cli::runMerge(merge, std::cout, std::cerr);
  }
  for (const auto& [sub, command] : documentCommands) {
    if (!*sub) continue;
    request.command = command;
    return cli::runDocumentCommand(request, std::cout, std::cerr);
  }
  return 2;
}
