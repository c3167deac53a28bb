#include "cli/merge_command.h"

#include <future>
#include <memory>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "importers/text_reader.h"
#include "model/document_json.h"
#include "model/json_writer.h"
#include "writer/docx_writer.h"
#include "writer/text_writer.h"

namespace inkharbour::cli {

namespace {

// A report line never breaks: line feeds inside texts are shown as "\n".
std::string oneLine(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else {
      line += c;
    }
  }
  return line;
}

LinkKind kindOf(const std::filesystem::path& path, const std::optional<LinkKind>& kind) {
  return kind.value_or(DocxReader::linkKind(path));
}

// A failure names the file: with three inputs the message alone would not say which.
template <typename Read>
auto readSide(const std::filesystem::path& path, const Read& read) {
  try {
    return read(path);
  } catch (const std::exception& error) {
    throw std::runtime_error(path.string() + ": " + describeError(error));
  }
}

template <typename Side>
struct Sides {
  Side base;
  Side local;
  Side external;
};

// The readers are pure, so the three files are read at once. Failures are
// reported in the order base, local, external, as when they are read in turn.
template <typename Read>
auto readSides(const MergeRequest& request, const Read& read) {
  auto one = [&](const std::filesystem::path& path) { return readSide(path, read); };
  auto base = std::async(std::launch::async, one, request.base);
  auto local = std::async(std::launch::async, one, request.local);
  auto external = std::async(std::launch::deferred, one, request.external);
  external.wait();
  // Braced initialisers run in order, so the base's failure comes first.
  using Side = decltype(one(request.base));
  return std::make_unique<Sides<Side>>(
      Sides<Side>{.base = base.get(), .local = local.get(), .external = external.get()});
}

template <typename Write>
void writeTo(const std::filesystem::path& path, const Write& write) {
  try {
    write(path);
  } catch (const std::filesystem::filesystem_error& error) {
    throw std::runtime_error("Could not write " + path.string() + ": " + error.code().message() +
                             ".");
  }
}

void writeOutput(const MergeOutcome& outcome, const std::filesystem::path& path,
                 const std::optional<LinkKind>& kind) {
  switch (kindOf(path, kind)) {
    case LinkKind::word:
      writeTo(path,
              [&](const auto& to) { DocxWriter::write(outcome.blocks, outcome.footnotes, to); });
      return;
    case LinkKind::excel:
      throw std::invalid_argument(
          "Workbooks are read only: write the merge to a .docx or a text file.");
    case LinkKind::text:
      writeTo(path, [&](const auto& to) { TextWriter::write(outcome.blocks, to); });
      return;
  }
}

// Plain texts in, plain text out: merged as lines, which decide as
// paragraphs would, without a block per line.
bool mergesAsLines(const MergeRequest& request) {
  auto text = [&](const std::filesystem::path& path) {
    return kindOf(path, request.kind) == LinkKind::text;
  };
  return text(request.base) && text(request.local) && text(request.external) &&
         (!request.output || text(*request.output));
}

MergeOutcome mergeLineFiles(const MergeRequest& request) {
  const auto sides = readSides(
      request, [](const std::filesystem::path& path) { return TextReader::readLines(path); });
  auto merged =
      MergeEngine::mergeLines(sides->base.lines, sides->local.lines, sides->external.lines);
  if (request.output) {
    writeTo(*request.output, [&](const auto& to) { TextWriter::write(merged.lines, to); });
  }
  return MergeOutcome{.notes = std::move(merged.notes), .changes = std::move(merged.changes)};
}

MergeOutcome mergeBlockFiles(const MergeRequest& request) {
  auto sides = readSides(request, [&](const std::filesystem::path& path) {
    // A damaged notes, styles or relationships part is an error, not a
    // side that deleted every note, heading or picture.
    return DocxReader::readAs(path, kindOf(path, request.kind), StyleMap{}, {},
                              DocxReader::DamagedParts::fail);
  });
  MergeOutcome outcome =
      mergeContents(std::move(sides->base), std::move(sides->local), std::move(sides->external));
  if (request.exitsAfterwards) {
    [[maybe_unused]] auto* left = sides.release();
    if (request.output) writeOutput(outcome, *request.output, request.kind);
  } else {
    // What the merge did not take (the base, replaced and deleted blocks)
    // is freed on another core while the output is written.
    auto freed =
        std::async(std::launch::async, [rest = std::move(sides)]() mutable { rest.reset(); });
    if (request.output) writeOutput(outcome, *request.output, request.kind);
    freed.get();
  }
  return outcome;
}

// The block merge's results, then the footnote merge's.
MergeOutcome combined(MergeEngine::Result blocks, MergeEngine::FootnoteResult notes) {
  MergeOutcome outcome{.blocks = std::move(blocks.blocks),
                       .footnotes = std::move(notes.footnotes),
                       .notes = std::move(blocks.notes),
                       .changes = std::move(blocks.changes)};
  for (auto& note : notes.notes) outcome.notes.push_back(std::move(note));
  for (auto& change : notes.changes) outcome.changes.push_back(std::move(change));
  return outcome;
}

}  // namespace

bool MergeOutcome::hasConflicts() const {
  if (!notes.empty()) return true;
  for (const auto& change : changes) {
    if (change.kind == ChangeRecord::Kind::conflict) return true;
  }
  return false;
}

MergeOutcome mergeContents(const ImportResult& base, const ImportResult& local,
                           const ImportResult& external) {
  auto blocks = MergeEngine::merge(base.blocks, local.blocks, external.blocks);
  auto notes = MergeEngine::mergeFootnotes(base.footnotes, local.footnotes, external.footnotes);
  return combined(std::move(blocks), std::move(notes));
}

MergeOutcome mergeContents(ImportResult&& base, ImportResult&& local, ImportResult&& external) {
  auto blocks = MergeEngine::merge(std::move(base.blocks), std::move(local.blocks),
                                   std::move(external.blocks));
  auto notes = MergeEngine::mergeFootnotes(std::move(base.footnotes), std::move(local.footnotes),
                                           std::move(external.footnotes));
  return combined(std::move(blocks), std::move(notes));
}

std::string formatReport(const MergeOutcome& outcome, bool json) {
  if (json) {
    JsonWriter writer;
    writer.beginObject();
    writer.key("changes");
    writer.beginArray();
    for (const auto& change : outcome.changes) DocumentJson::write(writer, change);
    writer.endArray();
    writer.key("notes");
    writer.beginArray();
    for (const auto& note : outcome.notes) DocumentJson::write(writer, note);
    writer.endArray();
    writer.endObject();
    return writer.take() + '\n';
  }
  std::string report;
  for (const auto& change : outcome.changes) {
    report += std::string(name(change.kind)) + ": " + oneLine(change.summary) + '\n';
  }
  for (const auto& note : outcome.notes) {
    report += "Story Note at block " + std::to_string(note.paragraphIndex) + ": yours \u00ab" +
              oneLine(note.localText) + "\u00bb, external \u00ab" + oneLine(note.externalText) +
              "\u00bb\n";
  }
  return report;
}

int runMerge(const MergeRequest& request, std::ostream& out, std::ostream& err) {
  auto outcome = std::make_unique<MergeOutcome>();
  try {
    *outcome = mergesAsLines(request) ? mergeLineFiles(request) : mergeBlockFiles(request);
  } catch (const std::exception& error) {
    err << describeError(error) << '\n';
    return 2;
  }
  out << formatReport(*outcome, request.json);
  out.flush();
  const int status = outcome->hasConflicts() ? 1 : 0;
  if (request.exitsAfterwards) {
    [[maybe_unused]] auto* left = outcome.release();
  }
  return status;
}

}  // namespace inkharbour::cli
