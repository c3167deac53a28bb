// The Excel reader on any file: it either reads one table or throws
// DocxError, and the table has the promised shape: rows padded to one width,
// each cell one plain "Body" paragraph.
#include <cstddef>
#include <cstdint>

#include "checks.h"
#include "importers/docx_error.h"
#include "importers/xlsx_reader.h"
#include "scratch.h"

using namespace inkharbour;

namespace {

const ImportLimits kLimits{.memberBytes = 8 << 20,
                           .compressionRatio = 100,
                           .ratioCheckAfter = 1 << 20,
                           .packageBytes = 32 << 20,
                           .textBytes = 8 << 20,
                           .items = 1 << 15,
                           .tableDepth = 64};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto path = fuzz::scratchPath("input.xlsx");
  if (!fuzz::writePackageInput(path, {data, size})) return 0;
  Table table;
  try {
    table = XlsxReader::read(path, kLimits);
  } catch (const DocxError&) {
    return 0;
  }
  const auto where = [&] { return fuzz::describe({Block{.kind = table}}, {}); };
  if (table.rows.empty()) fuzz::fail("a workbook read with no rows", where());
  const std::size_t width = table.columnCount();
  for (const auto& row : table.rows) {
    if (row.size() != width) fuzz::fail("a row is not padded to the widest", where());
    for (const auto& cell : row) {
      if (cell.paragraphs.size() != 1 ||
          cell.paragraphs[0] != Paragraph::make("Body", cell.paragraphs[0].text())) {
        fuzz::fail("a cell is not one plain Body paragraph", where());
      }
    }
  }
  return 0;
}
