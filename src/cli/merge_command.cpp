#include "cli/merge_command.h"

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "model/atomic_file.h"
#include "model/document_json.h"
#include "model/json_writer.h"
#include "writer/docx_writer.h"

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

// A story as a plain-text file: a line per paragraph, a line per table row
// with its cells separated by tabs; pictures have no text and are left out.
std::string asText(const std::vector<Block>& blocks) {
  std::vector<std::string> lines;
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      lines.push_back(paragraph->text());
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
          if (i > 0) line += '\t';
          line += row[i].text();
        }
        lines.push_back(std::move(line));
      }
    }
  }
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) text += '\n';
    text += lines[i];
  }
  return text;
}

// A failure names the file: with three inputs the message alone would not say which.
ImportResult readSide(const std::filesystem::path& path, const std::optional<LinkKind>& kind) {
  try {
    return kind ? DocxReader::readAs(path, *kind, StyleMap{}) : DocxReader::read(path, StyleMap{});
  } catch (const std::exception& error) {
    throw std::runtime_error(path.string() + ": " + describeError(error));
  }
}

void writeOutput(const MergeOutcome& outcome, const std::filesystem::path& path,
                 const std::optional<LinkKind>& kind) {
  switch (kind.value_or(DocxReader::linkKind(path))) {
    case LinkKind::word:
      try {
        DocxWriter::write(outcome.blocks, outcome.footnotes, path);
      } catch (const std::filesystem::filesystem_error& error) {
        throw std::runtime_error("Could not write " + path.string() + ": " +
                                 error.code().message() + ".");
      }
      return;
    case LinkKind::excel:
      throw std::invalid_argument(
          "Workbooks are read only: write the merge to a .docx or a text file.");
    case LinkKind::text:
      try {
        writeFileAtomically(path, asText(outcome.blocks));
      } catch (const std::filesystem::filesystem_error& error) {
        throw std::runtime_error("Could not write " + path.string() + ": " +
                                 error.code().message() + ".");
      }
      return;
  }
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
  MergeOutcome outcome{.blocks = std::move(blocks.blocks),
                       .footnotes = std::move(notes.footnotes),
                       .notes = std::move(blocks.notes),
                       .changes = std::move(blocks.changes)};
  for (auto& note : notes.notes) outcome.notes.push_back(std::move(note));
  for (auto& change : notes.changes) outcome.changes.push_back(std::move(change));
  return outcome;
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
  MergeOutcome outcome;
  try {
    const auto base = readSide(request.base, request.kind);
    const auto local = readSide(request.local, request.kind);
    const auto external = readSide(request.external, request.kind);
    outcome = mergeContents(base, local, external);
    if (request.output) writeOutput(outcome, *request.output, request.kind);
  } catch (const std::exception& error) {
    err << describeError(error) << '\n';
    return 2;
  }
  out << formatReport(outcome, request.json);
  out.flush();
  return outcome.hasConflicts() ? 1 : 0;
}

}  // namespace inkharbour::cli
