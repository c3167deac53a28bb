// Stories written as text, and the readable dumps that invert them, for the
// merge tests: "*a,b|c/d," is a paragraph "a", a table of rows "b|c" and "d",
// and an empty paragraph; "" is no blocks. "*" in front of a paragraph marks a
// bold "Strong" one; in a cell, "\n" starts a new paragraph.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "merge/merge_engine.h"

namespace inkharbour::testing {

using Lines = std::vector<std::string>;

inline Lines split(const std::string& text, char separator) {
  Lines out;
  for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 1) {
    end = text.find(separator, at);
    out.push_back(text.substr(at, end - at));
  }
  return out;
}

inline std::string join(const Lines& lines, const std::string& separator) {
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) out += (i > 0 ? separator : "") + lines[i];
  return out;
}

inline Block paragraph(const std::string& text, const std::string& style = "Body") {
  return Block{.kind = Paragraph::make(style, text)};
}

inline Block styled(std::string style, std::vector<TextRun> runs) {
  return Block{.kind = Paragraph{.styleName = std::move(style), .runs = std::move(runs)}};
}

inline Block image(const std::string& name, const std::string& bytes) {
  return Block{.kind = ImageBlock{.data = Data(bytes.begin(), bytes.end()), .name = name}};
}

inline Paragraph textParagraph(const std::string& text) {
  if (!text.starts_with('*')) return Paragraph::make("Body", text);
  return Paragraph{.styleName = "Strong", .runs = {TextRun{.text = text.substr(1), .bold = true}}};
}

// The inverse of textParagraph().
inline std::string paragraphText(const Paragraph& p) {
  return (p == textParagraph("*" + p.text()) ? "*" : "") + p.text();
}

// "" as a row is a row without cells.
inline Table table(const std::string& text) {
  Table out;
  for (const auto& row : split(text, '/')) {
    auto& cells = out.rows.emplace_back();
    for (const auto& cell : row.empty() ? Lines{} : split(row, '|')) {
      auto& paragraphs = cells.emplace_back().paragraphs;
      for (const auto& line : split(cell, '\n')) paragraphs.push_back(textParagraph(line));
    }
  }
  return out;
}

inline Block tableBlock(const std::string& text) {
  return Block{.kind = table(text)};
}

// The inverse of table().
inline std::string tableText(const Table& t) {
  Lines rows;
  for (const auto& row : t.rows) {
    Lines cells;
    for (const auto& cell : row) {
      Lines paragraphs;
      for (const auto& p : cell.paragraphs) paragraphs.push_back(paragraphText(p));
      cells.push_back(join(paragraphs, "\n"));
    }
    rows.push_back(join(cells, "|"));
  }
  return join(rows, "/");
}

inline std::vector<Block> story(const std::string& text) {
  std::vector<Block> out;
  if (text.empty()) return out;
  for (const auto& line : split(text, ','))
    out.push_back(line.find('|') == std::string::npos ? Block{.kind = textParagraph(line)}
                                                      : tableBlock(line));
  return out;
}

// The inverse of story(), with "<name>" for an image.
inline std::string dump(const std::vector<Block>& blocks) {
  Lines out;
  for (const auto& block : blocks) {
    if (const auto* p = std::get_if<Paragraph>(&block.kind)) {
      out.push_back(paragraphText(*p));
    } else if (const auto* t = std::get_if<Table>(&block.kind)) {
      out.push_back(tableText(*t));
    } else {
      out.push_back("<" + std::get<ImageBlock>(block.kind).name + ">");
    }
  }
  return join(out, ",");
}

// A copy of `list` after `edits` random insertions, deletions and replacements,
// new items coming from `fresh`.
template <class T, class Fresh>
std::vector<T> edited(std::mt19937_64& random, std::vector<T> list, std::size_t edits,
                      Fresh fresh) {
  for (std::size_t e = 0; e < edits; ++e) {
    const auto at = static_cast<std::ptrdiff_t>(random() % (list.size() + 1));
    const auto kind = random() % 3;
    if (kind == 0) list.insert(list.begin() + at, fresh());
    if (kind == 1 && at < std::ssize(list)) list.erase(list.begin() + at);
    if (kind == 2 && at < std::ssize(list)) list[at] = fresh();
  }
  return list;
}

// "kind: summary [localText | externalText]" per record; "-" for an absent
// text, and no brackets when both are absent.
inline std::string report(const std::vector<ChangeRecord>& changes) {
  Lines out;
  for (const auto& c : changes) {
    out.push_back(std::string(name(c.kind)) + ": " + c.summary);
    if (c.localText || c.externalText)
      out.back() += " [" + c.localText.value_or("-") + " | " + c.externalText.value_or("-") + "]";
  }
  return join(out, "; ");
}

// "paragraphIndex: localText | externalText" per note.
inline std::string report(const std::vector<ConflictNote>& notes) {
  Lines out;
  for (const auto& n : notes)
    out.push_back(std::to_string(n.paragraphIndex) + ": " + n.localText + " | " + n.externalText);
  return join(out, "; ");
}

}  // namespace inkharbour::testing
