#include "model/story.h"

#include <algorithm>
#include <array>

namespace inkharbour {

namespace {

template <typename Paragraphs>
std::string joinedLines(const Paragraphs& paragraphs) {
  std::string out;
  for (std::size_t i = 0; i < paragraphs.size(); ++i) {
    if (i > 0) out += '\n';
    for (const auto& run : paragraphs[i].runs) out += run.text;
  }
  return out;
}

constexpr std::array<std::string_view, 3> kLinkKindNames{"word", "text", "excel"};
constexpr std::array<std::string_view, 3> kLinkStatusNames{"upToDate", "modified", "missing"};
constexpr std::array<std::string_view, 3> kScriptNames{"normal", "superscript", "subscript"};
constexpr std::array<std::string_view, 6> kChangeKindNames{
    "externalEdit", "localKept", "bothSame", "structural", "conflict", "tableCells"};

template <typename Enum, std::size_t N>
std::optional<Enum> parseName(const std::array<std::string_view, N>& names,
                              std::string_view text) {
  const auto found = std::find(names.begin(), names.end(), text);
  if (found == names.end()) return std::nullopt;
  return static_cast<Enum>(found - names.begin());
}

}  // namespace

TextRun TextRun::footnoteReference(std::int64_t id) {
  // Appended piecewise: GCC 12 warns falsely on "[" + std::string.
  std::string mark("[");
  mark += std::to_string(id);
  mark += ']';
  return TextRun{.text = std::move(mark), .script = ScriptPosition::superscript, .footnoteID = id};
}

bool TextRun::sameFormat(const TextRun& other) const {
  return bold == other.bold && italic == other.italic && underline == other.underline &&
         strikethrough == other.strikethrough && smallCaps == other.smallCaps &&
         script == other.script && colorHex == other.colorHex;
}

Paragraph Paragraph::make(std::string styleName, std::string text) {
  Paragraph paragraph{.styleName = std::move(styleName), .runs = {}};
  if (!text.empty()) paragraph.runs.push_back(TextRun{.text = std::move(text)});
  return paragraph;
}

std::string Paragraph::text() const {
  std::string out;
  for (const auto& run : runs) out += run.text;
  return out;
}

std::string TableCell::text() const { return joinedLines(paragraphs); }

std::string Footnote::text() const { return joinedLines(paragraphs); }

std::string Table::contentKey() const {
  std::string key;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    if (r > 0) key += '\x1e';
    for (std::size_t c = 0; c < rows[r].size(); ++c) {
      if (c > 0) key += '\x1f';
      key += rows[r][c].text();
    }
  }
  return key;
}

std::size_t Table::columnCount() const {
  std::size_t count = 0;
  for (const auto& row : rows) count = std::max(count, row.size());
  return count;
}

std::string_view name(LinkKind kind) { return kLinkKindNames[static_cast<std::size_t>(kind)]; }
std::string_view name(LinkStatus status) {
  return kLinkStatusNames[static_cast<std::size_t>(status)];
}
std::string_view name(ScriptPosition script) {
  return kScriptNames[static_cast<std::size_t>(script)];
}
std::string_view name(ChangeRecord::Kind kind) {
  return kChangeKindNames[static_cast<std::size_t>(kind)];
}

std::optional<LinkKind> parseLinkKind(std::string_view text) {
  return parseName<LinkKind>(kLinkKindNames, text);
}
std::optional<ScriptPosition> parseScriptPosition(std::string_view text) {
  return parseName<ScriptPosition>(kScriptNames, text);
}
std::optional<ChangeRecord::Kind> parseChangeKind(std::string_view text) {
  return parseName<ChangeRecord::Kind>(kChangeKindNames, text);
}

}  // namespace inkharbour
