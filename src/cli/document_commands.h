// The document commands of `inkharbour-cli`: the desktop's workflows on a
// .inkharbour file without a window. Each run opens the document into an
// AppState, carries out one operation, and saves the document atomically
// when the operation changed it and succeeded.
//
// A story is named by its name or by its id (in either case). Exit status:
// 0 success; 1 when the command ran but left something for the user to look
// at (an update that made a conflict or a Story Note, a status with a link
// modified or missing); 2 on an error, whose message goes to `err` as one
// line: AppState's lastError text as it is, or the command's own. Ids that
// the document file gave twice, renewed on opening, are told on `err` too.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace inkharbour {
class AppState;
}

namespace inkharbour::cli {

enum class DocumentCommand {
  newDocument,  // new DOC [--force]
  place,        // place DOC FILE...
  link,         // link DOC STORY FILE
  relink,       // relink DOC STORY FILE
  unlink,       // unlink DOC STORY
  status,       // status DOC [--json]
  update,       // update DOC STORY
  updateAll,    // update-all DOC
  push,         // push DOC STORY [--force]
  exportStory,  // export DOC STORY OUT
  notes,        // notes DOC STORY [--json]
  dismissNote,  // dismiss-note DOC STORY NOTE
  report,       // report DOC STORY [--json]
  stories,      // stories DOC [--json]
  deleteStory,  // delete-story DOC STORY
};

struct DocumentRequest {
  DocumentCommand command = DocumentCommand::stories;
  std::filesystem::path document;
  std::string story;                         // a name, or an id in either case
  std::vector<std::filesystem::path> files;  // place: the files; link, relink, export: one
  std::string note;                          // dismiss-note: the Story Note's id
  bool json = false;
  // new: replace an existing file; push: overwrite changes in the linked
  // file that were never merged into the story
  bool force = false;
};

// Runs the command with a fresh AppState. Output goes to `out`, the one
// error line to `err`; returns the exit status.
int runDocumentCommand(const DocumentRequest& request, std::ostream& out, std::ostream& err);

// The same on the caller's AppState, which holds the document afterwards
// (as saved, when the command saved it).
int runDocumentCommand(AppState& state, const DocumentRequest& request, std::ostream& out,
                       std::ostream& err);

}  // namespace inkharbour::cli
