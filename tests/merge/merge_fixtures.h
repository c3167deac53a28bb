// Small builders and a readable dump for the merge tests.
#pragma once

#include <string>
#include <vector>

#include "merge/merge_engine.h"

namespace inkharbour::testing {

inline Block paragraph(const std::string& text, const std::string& style = "Body") {
  return Block{.kind = Paragraph::make(style, text)};
}

inline std::vector<Block> paragraphs(const std::vector<std::string>& texts) {
  std::vector<Block> out;
  for (const auto& text : texts) out.push_back(paragraph(text));
  return out;
}

// A table of one plain "Body" paragraph per cell.
inline Table table(const std::vector<std::vector<std::string>>& rows) {
  Table out;
  for (const auto& row : rows) {
    auto& cells = out.rows.emplace_back();
    for (const auto& text : row) {
      cells.push_back(TableCell{.paragraphs = {Paragraph::make("Body", text)}});
    }
  }
  return out;
}

inline Block tableBlock(const std::vector<std::vector<std::string>>& rows) {
  return Block{.kind = table(rows)};
}

inline Block image(const std::string& name, const std::string& bytes) {
  return Block{.kind = ImageBlock{.data = Data(bytes.begin(), bytes.end()), .name = name}};
}

// One line per block: a paragraph's text, a table's rows as "a|b/c", or
// "<image name>".
inline std::vector<std::string> dump(const std::vector<Block>& blocks) {
  std::vector<std::string> out;
  for (const auto& block : blocks) {
    if (const auto* p = std::get_if<Paragraph>(&block.kind)) {
      out.push_back(p->text());
    } else if (const auto* t = std::get_if<Table>(&block.kind)) {
      std::string line;
      for (std::size_t r = 0; r < t->rows.size(); ++r) {
        if (r > 0) line += '/';
        for (std::size_t c = 0; c < t->rows[r].size(); ++c) {
          if (c > 0) line += '|';
          line += t->rows[r][c].text();
        }
      }
      out.push_back(line);
    } else {
      out.push_back("<" + std::get<ImageBlock>(block.kind).name + ">");
    }
  }
  return out;
}

// "kind: summary" per record.
inline std::vector<std::string> report(const std::vector<ChangeRecord>& changes) {
  std::vector<std::string> out;
  for (const auto& change : changes)
    out.push_back(std::string(name(change.kind)) + ": " + change.summary);
  return out;
}

}  // namespace inkharbour::testing
