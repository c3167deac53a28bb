#include "importers/xlsx_reader.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <limits>

#include "importers/docx_body.h"
#include "importers/docx_error.h"
#include "importers/package.h"
#include "importers/xml_parser.h"

namespace inkharbour::XlsxReader {

namespace {

constexpr std::string_view kSharedStringsPart = "xl/sharedStrings.xml";
constexpr std::string_view kFirstSheetPart = "xl/worksheets/sheet1.xml";

// The leading run of letters of a cell reference: "C" of "C12".
std::string_view leadingLetters(std::string_view reference) {
  std::size_t i = 0;
  while (i < reference.size()) {
    const unsigned char byte = static_cast<unsigned char>(reference[i]);
    if (byte < 0x80) {
      if (!((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z')) break;
      ++i;
      continue;
    }
    utf8proc_int32_t codePoint = 0;
    const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(reference.data()) + i,
                                    static_cast<utf8proc_ssize_t>(reference.size() - i), &codePoint);
    if (n <= 0) break;
    const auto category = utf8proc_category(codePoint);
    if (category < UTF8PROC_CATEGORY_LU || category > UTF8PROC_CATEGORY_LO) break;
    i += static_cast<std::size_t>(n);
  }
  return reference.substr(0, i);
}

class SharedStringsParser final : public XmlHandler {
 public:
  void startElement(std::string_view name, const XmlAttributes&) override {
    if (name == "si") {
      current.clear();
    } else if (name == "t") {
      inT = true;
      setWantsCharacters(true);
    }
  }
  void endElement(std::string_view name) override {
    if (name == "t") {
      inT = false;
      setWantsCharacters(false);
    } else if (name == "si") {
      strings.push_back(current);
    }
  }
  void characters(std::string_view text) override {
    if (inT) current.append(text);
  }

  std::vector<std::string> strings;
  std::string current;
  bool inT = false;

  SharedStringsParser() { setWantsCharacters(false); }
};

TableCell cellOf(std::string text);

class SheetParser final : public XmlHandler {
 public:
  SheetParser(const std::vector<std::string>& sharedStrings, ImportBudget& budget,
              std::string_view member)
      : sharedStrings_(sharedStrings), budget_(budget), member_(member) {
    setWantsCharacters(false);
  }

  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (name == "row") {
      rowFinished_ = false;
      currentRow_.clear();
      currentRow_.reserve(lastWidth_);
      currentColumn_ = 0;
    } else if (name == "c") {
      const auto type = attributes.get("t");
      cellType_ = !type ? CellType::other
                  : *type == "s" ? CellType::sharedString
                  : *type == "b" ? CellType::boolean
                                 : CellType::other;
      valueText_.clear();
      if (const auto reference = attributes.get("r")) {
        currentColumn_ = columnIndex(leadingLetters(*reference));
        padTo(currentColumn_);
      }
    } else if (name == "v") {
      inValue_ = true;
    } else if (name == "is") {
      inInlineString_ = true;
    } else if (name == "t") {
      if (inInlineString_) inValue_ = true;
    }
    setWantsCharacters(inValue_);
  }

  void endElement(std::string_view name) override {
    if (name == "v" || name == "t") {
      inValue_ = false;
      setWantsCharacters(false);
    } else if (name == "is") {
      inInlineString_ = false;
    } else if (name == "c") {
      std::string text = cellText();
      padTo(currentColumn_);
      budget_.addItems(member_, 1);
      budget_.addParagraphs(member_, 1);  // a cell holds one paragraph
      budget_.addText(member_, text.size());
      row().push_back(cellOf(std::move(text)));
    } else if (name == "row") {
      if (rowFinished_) {
        rows.push_back(rows.back());
      } else {
        lastWidth_ = currentRow_.size();
        rows.push_back(std::move(currentRow_));
        currentRow_.clear();
        rowFinished_ = true;
      }
    }
  }

  void characters(std::string_view text) override {
    if (inValue_) valueText_.append(text);
  }

  std::vector<std::vector<TableCell>> rows;

 private:
  // The open row. A row's end hands its cells over to `rows`; a cell met
  // before the next row start goes on from that row's content.
  std::vector<TableCell>& row() {
    if (rowFinished_) {
      currentRow_ = rows.back();
      rowFinished_ = false;
    }
    return currentRow_;
  }

  void padTo(std::int64_t column) {
    auto& cells = row();
    const auto target = static_cast<std::uint64_t>(column);
    if (target <= cells.size()) return;
    budget_.addItems(member_, target - cells.size());
    budget_.addParagraphs(member_, target - cells.size());
    cells.resize(target, cellOf({}));
  }

  std::string cellText() const {
    if (cellType_ == CellType::sharedString) {
      const auto index = docx::parseInteger(valueText_);
      if (!index || *index < 0 || static_cast<std::uint64_t>(*index) >= sharedStrings_.size()) {
        return {};
      }
      return sharedStrings_[static_cast<std::size_t>(*index)];
    }
    if (cellType_ == CellType::boolean) return valueText_ == "1" ? "TRUE" : "FALSE";
    return valueText_;
  }

  const std::vector<std::string>& sharedStrings_;
  ImportBudget& budget_;
  std::string_view member_;
  std::vector<TableCell> currentRow_;
  std::size_t lastWidth_ = 0;
  bool rowFinished_ = false;
  std::int64_t currentColumn_ = 0;
  // Only "s" and "b" change how a value reads; every other type is raw text.
  enum class CellType { other, sharedString, boolean };
  CellType cellType_ = CellType::other;
  bool inValue_ = false;
  bool inInlineString_ = false;
  std::string valueText_;
};

using Rows = std::vector<std::vector<TableCell>>;

enum class Outcome { absent, parsed, malformed };

// Parses a worksheet part while it inflates, leaving its rows in `rows` when
// it is well-formed. With `probing`, a part that fails to read is absent.
Outcome parseSheet(Package& package, const std::string& part,
                   const std::vector<std::string>& sharedStrings, std::optional<Rows>& rows,
                   bool probing) {
  SheetParser parser(sharedStrings, package.budget(), part);
  XmlParser xml(parser);
  bool present = false;
  try {
    present = package.stream(part, [&](std::string_view chunk) { xml.feed(chunk, false); });
  } catch (const DocxError& error) {
    if (!probing || error.isLimit()) throw;
    return Outcome::absent;
  }
  if (!present) return Outcome::absent;
  xml.feed({}, true);
  if (!xml.succeeded()) return Outcome::malformed;
  rows = std::move(parser.rows);
  return Outcome::parsed;
}

TableCell cellOf(std::string text) {
  // Built in place: a workbook has hundreds of thousands of these.
  TableCell cell;
  auto& paragraph = cell.paragraphs.emplace_back();
  paragraph.styleName = "Body";
  if (!text.empty()) paragraph.runs.emplace_back().text = std::move(text);
  return cell;
}

}  // namespace

std::int64_t columnIndex(std::string_view letters) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  std::int64_t value = 0;
  std::size_t i = 0;
  while (i < letters.size()) {
    const unsigned char byte = static_cast<unsigned char>(letters[i]);
    std::int64_t digit = 0;
    if (byte < 0x80) {
      digit = (byte >= 'a' && byte <= 'z' ? byte - 32 : byte) - 64;
      ++i;
    } else {
      utf8proc_int32_t codePoint = 0;
      const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(letters.data()) + i,
                                      static_cast<utf8proc_ssize_t>(letters.size() - i), &codePoint);
      if (n <= 0) break;
      i += static_cast<std::size_t>(n);
      digit = utf8proc_toupper(codePoint) - 64;
    }
    // Absurdly long references saturate; the row limit stops them later.
    if (__builtin_mul_overflow(value, 26, &value) || __builtin_add_overflow(value, digit, &value)) {
      value = kMax;
    }
  }
  return std::max<std::int64_t>(value - 1, 0);
}

std::vector<std::string> parseSharedStrings(std::string_view xml) {
  SharedStringsParser parser;
  XmlParser::parse(parser, xml);
  return std::move(parser.strings);
}

Table read(const std::filesystem::path& path, const ImportLimits& limits) {
  Package package(path, limits);

  std::vector<std::string> sharedStrings;
  if (const auto bytes = package.readOptional(kSharedStringsPart)) {
    sharedStrings = parseSharedStrings(asText(*bytes));
  }

  // The first worksheet part by file name; the workbook's sheet order is not
  // consulted. A part that fails to read while probing counts as absent.
  std::string part;
  std::optional<Rows> rows;
  for (int number = 1; number <= 9 && part.empty(); ++number) {
    const std::string candidate = "xl/worksheets/sheet" + std::to_string(number) + ".xml";
    if (parseSheet(package, candidate, sharedStrings, rows, true) != Outcome::absent) {
      part = candidate;
    }
  }
  if (part.empty()) {
    // Read sheet1 once more so that its own failure, if any, is reported.
    part = kFirstSheetPart;
    if (parseSheet(package, part, sharedStrings, rows, false) == Outcome::absent) {
      package.checkOpened();  // a file gone or unreadable says so
      throw DocxError::missingEntry(part);
    }
  }
  if (!rows) throw DocxError::parseFailed(part);
  auto& parsedRows = *rows;

  std::size_t width = 0;
  for (const auto& row : parsedRows) width = std::max(width, row.size());
  if (parsedRows.empty()) throw DocxError::parseFailed("worksheet has no rows");
  // Padding the rows to the widest one must stay within the limit too.
  std::uint64_t parsedCells = 0;
  for (const auto& row : parsedRows) parsedCells += row.size();
  std::uint64_t cells = 0;
  if (__builtin_mul_overflow(static_cast<std::uint64_t>(width), parsedRows.size(), &cells)) {
    cells = std::numeric_limits<std::uint64_t>::max();
  }
  package.budget().addItems(part, cells - parsedCells);
  package.budget().addParagraphs(part, cells - parsedCells);

  Table table;
  table.rows = std::move(parsedRows);
  for (auto& row : table.rows) {
    while (row.size() < width) row.push_back(cellOf({}));
  }
  return table;
}

}  // namespace inkharbour::XlsxReader
