// XlsxReader: the first worksheet of an Excel workbook as one table of plain
// "Body" cells. Values are taken as stored: shared strings are looked up,
// booleans spelled "TRUE"/"FALSE", numbers and dates left as their raw text.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "importers/import_limits.h"
#include "model/story.h"

namespace inkharbour::XlsxReader {

// The worksheet read is xl/worksheets/sheet1.xml, or else the first of
// sheet2 to sheet9 present. Every row is padded with empty cells to the
// widest row. Throws DocxError: missingEntry for no worksheet (or no ZIP),
// parseFailed for a malformed worksheet or one with no rows.
Table read(const std::filesystem::path& path, const ImportLimits& limits = {});

// The texts of a shared-string part, rich-text runs concatenated.
std::vector<std::string> parseSharedStrings(std::string_view xml);

// "A" is 0, "Z" 25, "AA" 26; the empty text is 0.
std::int64_t columnIndex(std::string_view letters);

}  // namespace inkharbour::XlsxReader
