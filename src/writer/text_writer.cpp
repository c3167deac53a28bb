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

constexpr std::size_t kPiece = 1 << 20;

// Hands the text to `sink` in pieces of about kPiece bytes: each item's
// lines by `lines(item, newLine, out)`, where newLine() starts a line.
template <typename Item, typename Lines, typename Sink>
void produce(std::span<const Item> items, Lines&& lines, Sink&& sink) {
  std::string out;
  out.reserve(kPiece + 4096);
  bool first = true;
  auto newLine = [&] {
    if (!first) out += '\n';
    first = false;
  };
  for (const auto& item : items) {
    lines(item, newLine, out);
    if (out.size() >= kPiece) {
      sink(std::string_view(out));
      out.clear();
    }
  }
  sink(std::string_view(out));
}

template <typename Sink>
void produce(const std::vector<Block>& blocks, Sink&& sink) {
  auto lines = [](const Block& block, auto& newLine, std::string& out) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      newLine();
      for (const auto& run : paragraph->runs) out += run.text;
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) {
        newLine();
        out += rowLine(row);
      }
    }
  };
  produce(std::span<const Block>(blocks), lines, sink);
}

}  // namespace

std::string text(const std::vector<Block>& blocks) {
  std::string all;
  produce(blocks, [&](std::string_view piece) { all += piece; });
  return all;
}

void write(const std::vector<Block>& blocks, const std::filesystem::path& path) {
  // Streamed: a book's text is never held whole beside the book.
  AtomicFile file(path);
  produce(blocks, [&](std::string_view piece) { file.write(piece); });
  file.commit();
}

void write(std::span<const std::string_view> lines, const std::filesystem::path& path) {
  AtomicFile file(path);
  auto line = [](std::string_view text, auto& newLine, std::string& out) {
    newLine();
    out += text;
  };
  produce(lines, line, [&](std::string_view piece) { file.write(piece); });
  file.commit();
}

}  // namespace inkharbour::TextWriter
