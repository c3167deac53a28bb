#include "writer/text_writer.h"

#include "model/atomic_file.h"

namespace inkharbour::TextWriter {

namespace {

std::string rowLine(const std::vector<TableCell>& row) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (i > 0) line += '\t';
    line += row[i].text();
  }
  return line;
}

}  // namespace

std::string text(const std::vector<Block>& blocks) {
  // Sized first: grown by doubling, a book's text would pass through several
  // buffers larger than it needs.
  std::size_t size = 0;
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      for (const auto& run : paragraph->runs) size += run.text.size();
      ++size;
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) size += rowLine(row).size() + 1;
    }
  }
  std::string out;
  out.reserve(size);
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      for (const auto& run : paragraph->runs) out += run.text;
      out += '\n';
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) (out += rowLine(row)) += '\n';
    }
  }
  if (!out.empty()) out.pop_back();  // line feeds separate lines; the last ends nothing
  return out;
}

void write(const std::vector<Block>& blocks, const std::filesystem::path& path) {
  writeFileAtomically(path, text(blocks));
}

}  // namespace inkharbour::TextWriter
