// Synthetic but realistic input for the import benchmarks: a book-size Word
// document and a large workbook, written as real OOXML packages.
//
// The Word book is marked up the way Word saves a manuscript that has been
// edited over many sessions: each paragraph carries revision-session ids and
// spacing, its text is split into several runs with their own session ids,
// fonts, language and the odd italic or bold stretch; chapters are "Heading 1"
// paragraphs; footnotes, tables and pictures are spread through the text.
// The workbook is an order list mixing shared strings, numbers, formulas,
// dates and booleans. Everything is deterministic: the same shape and seed
// give the same bytes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace inkharbour::bench {

struct BookShape {
  int paragraphs = 60000;  // top-level paragraphs, chapter headings included
  int chapters = 40;       // "Heading 1" paragraphs among them
  int footnotes = 600;
  int tables = 40;  // each of tableRows x tableColumns cells
  int tableRows = 5;
  int tableColumns = 4;
  int pictures = 20;   // 16 x 16 PNGs, each alone in its paragraph
  int meanWords = 20;  // words in a body paragraph, on average
  std::uint64_t seed = 0x1A2B3C4D5E6F7081;

  // The default book with every count scaled to `paragraphs` (at least one
  // of each), for quicker runs and profiling.
  static BookShape withParagraphs(int paragraphs);
};

struct WorkbookShape {
  int rows = 20000;  // the header row included
  int columns = 12;  // at most 12: the order list has that many fields
  std::uint64_t seed = 0x5E6F70811A2B3C4D;
};

// One member of a package: its path and bytes.
struct Member {
  std::string path;
  std::string bytes;
};

// The members of the Word book: content types, package relationships,
// word/document.xml, styles, settings, footnotes, the document's
// relationships and word/media/image1.png onwards.
std::vector<Member> bookMembers(const BookShape& shape);

// The members of the workbook: content types, relationships, xl/workbook.xml,
// xl/styles.xml, xl/sharedStrings.xml and xl/worksheets/sheet1.xml.
std::vector<Member> workbookMembers(const WorkbookShape& shape);

// Writes the package to `destination`, replacing any file there.
void writeBook(const std::filesystem::path& destination, const BookShape& shape);
void writeWorkbook(const std::filesystem::path& destination, const WorkbookShape& shape);

// The book (or workbook) of this shape in `directory`: a file written by an
// earlier run is reused when its name, which spells out the shape, the seed
// and the generator's version, matches; otherwise it is written first.
// Creates `directory` when needed.
std::filesystem::path ensureBook(const std::filesystem::path& directory, const BookShape& shape);
std::filesystem::path ensureWorkbook(const std::filesystem::path& directory,
                                     const WorkbookShape& shape);

}  // namespace inkharbour::bench
