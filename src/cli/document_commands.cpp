#include "cli/document_commands.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "app/app_state.h"
#include "cli/merge_command.h"
#include "importers/docx_error.h"
#include "model/document_file.h"
#include "model/document_json.h"
#include "model/json_writer.h"
#include "model/regular_file.h"

namespace inkharbour::cli {

namespace {

namespace fs = std::filesystem;

// Ends a command with exit status 2; what() is the line for the user.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string inQuotes(std::string_view text) {
  return "\u201c" + std::string(text) + "\u201d";
}

std::string counted(std::size_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

// Runs one AppState operation and turns the error it leaves into a Failure.
// The error is cleared first, so that only this operation's counts.
void perform(AppState& state, const std::function<void()>& operation) {
  state.clearLastError();
  operation();
  if (state.lastError()) throw Failure(*state.lastError());
}

const Story& storyWithID(const AppState& state, const Uuid& id) {
  for (const auto& story : state.document().stories) {
    if (story.id == id) return story;
  }
  throw std::logic_error("story vanished: " + id.string());
}

// The story the user named: the one with that id, else the only one with
// that name.
Uuid resolveStory(const AppState& state, const DocumentRequest& request) {
  const auto& stories = state.document().stories;
  if (const auto id = Uuid::parse(request.story)) {
    for (const auto& story : stories) {
      if (story.id == *id) return story.id;
    }
  }
  std::vector<Uuid> named;
  for (const auto& story : stories) {
    if (story.name == request.story) named.push_back(story.id);
  }
  if (named.empty()) {
    throw Failure("No story named " + inQuotes(request.story) + " in " + request.document.string() +
                  ".");
  }
  if (named.size() > 1) {
    std::string ids;
    for (const auto& id : named) ids += (ids.empty() ? "" : ", ") + id.string();
    throw Failure(std::to_string(named.size()) + " stories are named " + inQuotes(request.story) +
                  " in " + request.document.string() + "; name one by its id: " + ids + ".");
  }
  return named.front();
}

// The named story, which must be linked: AppState would pass over an
// unlinked one without a word.
Uuid resolveLinkedStory(const AppState& state, const DocumentRequest& request) {
  const Uuid id = resolveStory(state, request);
  const Story& story = storyWithID(state, id);
  if (!story.link) throw Failure(inQuotes(story.name) + " is not linked to a file.");
  return id;
}

// Opens the document, and tells on `err` (so that JSON output stays one
// value) of ids the file gave twice, which opening renewed.
void open(AppState& state, const fs::path& document, std::ostream& err) {
  perform(state, [&] { state.openDocument(document); });
  const auto& renewed = state.renewedIds();
  for (const auto& id : renewed.stories) {
    err << inQuotes(storyWithID(state, id).name) << " had the id of an earlier story in "
        << document.string() << " and got a new one: " << id.string() << ".\n";
  }
  for (const auto& [id, count] : renewed.blocks) {
    err << "In " << inQuotes(storyWithID(state, id).name) << ", " << counted(count, "block")
        << (count == 1 ? " had the id of an earlier block and got a new one.\n"
                       : " had the ids of earlier blocks and got new ones.\n");
  }
}

// Saves, and tells of the links that the save points at their files' new
// places beside the moved document (not in JSON output, which stays one
// JSON value).
void save(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const std::vector<Uuid> relocated = request.json ? std::vector<Uuid>{} : state.relocatedLinks();
  perform(state, [&] { state.saveDocument(request.document); });
  for (const auto& id : relocated) {
    const Story& story = storyWithID(state, id);
    out << inQuotes(story.name) << " is now linked to " << story.link->path
        << ", where its file moved with the document.\n";
  }
}

// A path that names nothing, or no regular file, is a mistake here, not a
// link to show as missing.
void requireFile(const fs::path& file) {
  std::error_code error;
  const auto status = fs::status(file, error);
  if (!fs::exists(status)) {
    throw Failure(describeError(fs::filesystem_error(
        "link", file, std::make_error_code(std::errc::no_such_file_or_directory))));
  }
  if (!fs::is_regular_file(status)) {
    throw Failure(describeError(fs::filesystem_error(
        "link", file,
        fs::is_directory(status) ? std::make_error_code(std::errc::is_a_directory)
                                 : make_error_code(FileError::notRegularFile))));
  }
}

std::optional<LinkStatus> statusOf(const AppState& state, const Uuid& id) {
  const auto found = state.linkStatuses().find(id);
  if (found == state.linkStatuses().end()) return std::nullopt;
  return found->second;
}

// --- Commands that change the document ----------------------------------------

int newDocument(AppState& state, const DocumentRequest& request, std::ostream& out,
                std::ostream& err) {
  std::error_code error;
  if (fs::exists(request.document, error) && !request.force) {
    throw Failure(request.document.string() + " already exists; --force replaces it.");
  }
  // AppState has no "close"; an empty document written and opened is one.
  try {
    DocumentFile::write(ProjectDocument{}, request.document);
  } catch (const std::exception& failure) {
    throw Failure(describeError(failure));
  }
  open(state, request.document, err);
  out << "Created " << request.document.string() << ".\n";
  return 0;
}

int place(AppState& state, const DocumentRequest& request, std::ostream& out) {
  std::vector<Uuid> placed;
  for (const auto& file : request.files) {
    perform(state, [&] { state.place(file); });
    placed.push_back(*state.selectedStoryID());  // place selects the new story
  }
  save(state, request, out);
  for (const auto& id : placed) {
    const Story& story = storyWithID(state, id);
    out << "Placed " << inQuotes(story.name) << " (" << id.string() << ").\n";
  }
  return 0;
}

int link(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveStory(state, request);
  const fs::path& file = request.files.at(0);
  requireFile(file);
  perform(state, [&] { state.linkToOriginal(id, file); });
  save(state, request, out);
  const Story& story = storyWithID(state, id);
  const auto status = statusOf(state, id);
  out << "Linked " << inQuotes(story.name) << " to " << story.link->path << ": "
      << (status ? name(*status) : "not decided") << ".\n";
  return 0;
}

int relink(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveLinkedStory(state, request);
  const fs::path& file = request.files.at(0);
  requireFile(file);
  perform(state, [&] { state.relink(id, file); });
  save(state, request, out);
  const Story& story = storyWithID(state, id);
  const auto status = statusOf(state, id);
  out << "Relinked " << inQuotes(story.name) << " to " << story.link->path << ": "
      << (status ? name(*status) : "not decided") << ".\n";
  return 0;
}

int unlink(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveLinkedStory(state, request);
  perform(state, [&] { state.unlink(id); });
  save(state, request, out);
  out << "Unlinked " << inQuotes(storyWithID(state, id).name) << ".\n";
  return 0;
}

int update(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveLinkedStory(state, request);
  const std::size_t notesBefore = storyWithID(state, id).notes.size();
  perform(state, [&] { state.updateFromLinked(id); });
  save(state, request, out);
  const Story& story = storyWithID(state, id);
  MergeOutcome outcome{.changes = story.lastMergeReport};
  outcome.notes.assign(story.notes.begin() + static_cast<std::ptrdiff_t>(notesBefore),
                       story.notes.end());
  out << formatReport(outcome, request.json);
  return outcome.hasConflicts() ? 1 : 0;
}

// Every modified link, as updateAllLinks chooses them, one at a time so that
// a failure stops the command before anything is saved.
int updateAll(AppState& state, const DocumentRequest& request, std::ostream& out) {
  std::vector<Uuid> modified;
  for (const auto& story : state.document().stories) {
    if (statusOf(state, story.id) == LinkStatus::modified) modified.push_back(story.id);
  }
  if (modified.empty()) {
    out << "No link is modified.\n";
    return 0;
  }
  std::string report;
  bool conflicts = false;
  for (const auto& id : modified) {
    const std::size_t notesBefore = storyWithID(state, id).notes.size();
    perform(state, [&] { state.updateFromLinked(id); });
    const Story& story = storyWithID(state, id);
    MergeOutcome outcome{.changes = story.lastMergeReport};
    outcome.notes.assign(story.notes.begin() + static_cast<std::ptrdiff_t>(notesBefore),
                         story.notes.end());
    conflicts = conflicts || outcome.hasConflicts();
    report += "Updated " + inQuotes(story.name) + ":\n";
    const std::string lines = formatReport(outcome, false);
    for (std::size_t start = 0; start < lines.size();) {
      const std::size_t end = lines.find('\n', start);
      report += "  " + lines.substr(start, end - start + 1);
      start = end + 1;
    }
  }
  save(state, request, out);
  out << report;
  return conflicts ? 1 : 0;
}

int push(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveLinkedStory(state, request);
  // Opening decided the status: modified means a co-author's changes that a
  // push would overwrite unseen.
  const StoryLink& link = *storyWithID(state, id).link;
  if (statusOf(state, id) == LinkStatus::modified && !request.force &&
      link.kind != LinkKind::excel) {
    const fs::path file(link.path);
    throw Failure(inQuotes(file.filename().string()) +
                  " has changes that are not in the story: update first, or push --force to "
                  "overwrite them.");
  }
  perform(state, [&] { state.updateLinkedDocument(id); });
  save(state, request, out);
  const Story& story = storyWithID(state, id);
  out << "Pushed " << inQuotes(story.name) << " to " << story.link->path << ".\n";
  return 0;
}

int exportStory(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveStory(state, request);
  perform(state, [&] { state.exportStory(id, request.files.at(0)); });
  save(state, request, out);
  const Story& story = storyWithID(state, id);
  out << "Exported " << inQuotes(story.name) << " to " << story.link->path << ".\n";
  return 0;
}

int dismissNote(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid storyID = resolveStory(state, request);
  const Story& story = storyWithID(state, storyID);
  const auto noteID = Uuid::parse(request.note);
  const bool known =
      noteID && std::any_of(story.notes.begin(), story.notes.end(),
                            [&](const ConflictNote& note) { return note.id == *noteID; });
  if (!known) {
    throw Failure("No Story Note " + inQuotes(request.note) + " in " + inQuotes(story.name) + ".");
  }
  perform(state, [&] { state.dismissNote(storyID, *noteID); });
  save(state, request, out);
  out << "Dismissed Story Note " << noteID->string() << ".\n";
  return 0;
}

int deleteStory(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Uuid id = resolveStory(state, request);
  const std::string name = storyWithID(state, id).name;
  perform(state, [&] { state.deleteStory(id); });
  save(state, request, out);
  out << "Deleted " << inQuotes(name) << ".\n";
  return 0;
}

// --- Commands that only show -------------------------------------------------

int status(AppState& state, const DocumentRequest& request, std::ostream& out) {
  // Opening decided every link already.
  bool attention = false;
  JsonWriter json;
  json.beginArray();
  for (const auto& story : state.document().stories) {
    const auto decided = statusOf(state, story.id);
    attention = attention || (decided && *decided != LinkStatus::upToDate);
    if (request.json) {
      json.beginObject();
      json.key("id");
      json.string(story.id.string());
      if (story.link) {
        json.key("kind");
        json.string(name(story.link->kind));
      }
      json.key("name");
      json.string(story.name);
      if (story.link) {
        json.key("path");
        json.string(story.link->path);
      }
      if (decided) {
        json.key("status");
        json.string(name(*decided));
      }
      json.endObject();
      continue;
    }
    out << (decided ? name(*decided) : "not linked") << '\t' << story.name << '\t'
        << story.id.string();
    if (story.link) out << '\t' << story.link->path;
    out << '\n';
  }
  json.endArray();
  if (request.json) out << json.text() << '\n';
  return attention ? 1 : 0;
}

int notes(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Story& story = storyWithID(state, resolveStory(state, request));
  if (request.json) {
    JsonWriter json;
    json.beginArray();
    for (const auto& note : story.notes) DocumentJson::write(json, note);
    json.endArray();
    out << json.text() << '\n';
    return 0;
  }
  for (const auto& note : story.notes) {
    out << note.id.string() << '\t' << formatReport(MergeOutcome{.notes = {note}}, false);
  }
  return 0;
}

int report(AppState& state, const DocumentRequest& request, std::ostream& out) {
  const Story& story = storyWithID(state, resolveStory(state, request));
  out << formatReport(MergeOutcome{.notes = story.notes, .changes = story.lastMergeReport},
                      request.json);
  return 0;
}

int stories(AppState& state, const DocumentRequest& request, std::ostream& out) {
  JsonWriter json;
  json.beginArray();
  for (const auto& story : state.document().stories) {
    if (request.json) {
      json.beginObject();
      json.key("blocks");
      json.integer(static_cast<std::int64_t>(story.blocks.size()));
      json.key("footnotes");
      json.integer(static_cast<std::int64_t>(story.footnotes.size()));
      json.key("id");
      json.string(story.id.string());
      if (story.link) {
        json.key("link");
        json.beginObject();
        json.key("kind");
        json.string(name(story.link->kind));
        json.key("lastSync");
        json.number(story.link->lastSync);
        json.key("path");
        json.string(story.link->path);
        json.endObject();
      }
      json.key("name");
      json.string(story.name);
      json.key("notes");
      json.integer(static_cast<std::int64_t>(story.notes.size()));
      json.endObject();
      continue;
    }
    out << story.name << '\t' << story.id.string() << '\t' << counted(story.blocks.size(), "block")
        << ", " << counted(story.footnotes.size(), "footnote") << ", "
        << counted(story.notes.size(), "note") << '\t';
    if (story.link) {
      out << name(story.link->kind) << ' ' << story.link->path << '\n';
    } else {
      out << "not linked\n";
    }
  }
  json.endArray();
  if (request.json) out << json.text() << '\n';
  return 0;
}

int dispatch(AppState& state, const DocumentRequest& request, std::ostream& out,
             std::ostream& err) {
  if (request.command == DocumentCommand::newDocument) {
    return newDocument(state, request, out, err);
  }
  open(state, request.document, err);
  switch (request.command) {
    case DocumentCommand::newDocument:
      break;
    case DocumentCommand::place:
      return place(state, request, out);
    case DocumentCommand::link:
      return link(state, request, out);
    case DocumentCommand::relink:
      return relink(state, request, out);
    case DocumentCommand::unlink:
      return unlink(state, request, out);
    case DocumentCommand::status:
      return status(state, request, out);
    case DocumentCommand::update:
      return update(state, request, out);
    case DocumentCommand::updateAll:
      return updateAll(state, request, out);
    case DocumentCommand::push:
      return push(state, request, out);
    case DocumentCommand::exportStory:
      return exportStory(state, request, out);
    case DocumentCommand::notes:
      return notes(state, request, out);
    case DocumentCommand::dismissNote:
      return dismissNote(state, request, out);
    case DocumentCommand::report:
      return report(state, request, out);
    case DocumentCommand::stories:
      return stories(state, request, out);
    case DocumentCommand::deleteStory:
      return deleteStory(state, request, out);
  }
  throw std::logic_error("unknown document command");
}

}  // namespace

int runDocumentCommand(AppState& state, const DocumentRequest& request, std::ostream& out,
                       std::ostream& err) {
  int status = 2;
  try {
    status = dispatch(state, request, out, err);
  } catch (const std::exception& error) {
    err << describeError(error) << '\n';
    return 2;
  }
  out.flush();
  return status;
}

int runDocumentCommand(const DocumentRequest& request, std::ostream& out, std::ostream& err) {
  AppState state;
  return runDocumentCommand(state, request, out, err);
}

}  // namespace inkharbour::cli
