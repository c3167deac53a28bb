#include "cli/dump.h"

#include "importers/docx_error.h"

namespace inkharbour::cli {

namespace {

void appendRun(std::string& out, const TextRun& run) {
  if (run.bold) out += 'B';
  if (run.italic) out += 'I';
  if (run.underline) out += 'U';
  if (run.strikethrough) out += 'S';
  if (run.smallCaps) out += 'C';
  if (run.script == ScriptPosition::superscript) out += '^';
  if (run.script == ScriptPosition::subscript) out += '_';
  if (run.colorHex) out += '#' + *run.colorHex;
  if (run.footnoteID) out += "fn" + std::to_string(*run.footnoteID);
  out += "\u00ab";
  out += run.text;
  out += "\u00bb";
}

void appendBlock(std::string& out, const Block& block) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
    out += '[' + paragraph->styleName + "] ";
    for (std::size_t i = 0; i < paragraph->runs.size(); ++i) {
      if (i > 0) out += ' ';
      appendRun(out, paragraph->runs[i]);
    }
    out += '\n';
  } else if (const auto* table = std::get_if<Table>(&block.kind)) {
    out += "[Table " + std::to_string(table->rows.size()) + "\u00d7" +
           std::to_string(table->columnCount()) + "]\n";
    for (const auto& row : table->rows) {
      out += "  | ";
      for (std::size_t i = 0; i < row.size(); ++i) {
        if (i > 0) out += " | ";
        out += row[i].text();
      }
      out += " |\n";
    }
  } else if (const auto* image = std::get_if<ImageBlock>(&block.kind)) {
    out += "[Image " + image->name + ", " + std::to_string(image->data.size()) + " bytes]\n";
  }
}

}  // namespace

std::string formatDump(const ImportResult& result) {
  std::string out;
  for (const auto& block : result.blocks) appendBlock(out, block);
  for (const auto& note : result.footnotes) {
    out += "[Footnote " + std::to_string(note.id) + "] " + note.text() + '\n';
  }
  return out;
}

int runDump(const std::filesystem::path& path, std::ostream& out, std::ostream& err) {
  std::string text;
  try {
    text = formatDump(DocxReader::read(path, StyleMap{}));
  } catch (const std::exception& error) {
    err << describeError(error) << '\n';
    return 1;
  }
  out << text;
  out.flush();
  return out ? 0 : 1;
}

}  // namespace inkharbour::cli
