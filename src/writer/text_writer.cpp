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

// Hands the text to `sink` in pieces of about `piece` bytes.
template <typename Sink>
void produce(const std::vector<Block>& blocks, std::size_t piece, Sink&& sink) {
  std::string out;
  out.reserve(piece + 4096);
  bool first = true;
  auto newLine = [&] {
    if (!first) out += '\n';
    first = false;
  };
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      newLine();
      for (const auto& run : paragraph->runs) out += run.text;
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) {
        newLine();
        out += rowLine(row);
      }
    }
    if (out.size() >= piece) {
      sink(std::string_view(out));
      out.clear();
    }
  }
  sink(std::string_view(out));
}

}  // namespace

std::string text(const std::vector<Block>& blocks) {
  std::string all;
  produce(blocks, 1 << 20, [&](std::string_view piece) { all += piece; });
  return all;
}

void write(const std::vector<Block>& blocks, const std::filesystem::path& path) {
  // Streamed: a book's text is never held whole beside the book.
  AtomicFile file(path);
  produce(blocks, 1 << 20, [&](std::string_view piece) { file.write(piece); });
  file.commit();
}

}  // namespace inkharbour::TextWriter
