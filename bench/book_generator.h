// Synthetic but realistic input for the benchmarks: a book-size Word
// document and a large workbook, written as real OOXML packages.
//
// The Word book is marked up the way Word saves a manuscript that has been
// edited over many sessions: each paragraph carries revision-session ids and
// spacing, its text is split into several runs with their own session ids,
// fonts, language and the odd italic or bold stretch; chapters are "Heading 1"
// paragraphs; footnotes, tables and pictures are spread through the text.
// The workbook is an order list mixing shared strings, numbers, formulas,
// dates and booleans. For the merge benchmark, edited versions of the book
// are derived from it, as Word files and as plain text. Everything is
// deterministic: the same shape and seed give the same bytes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "model/story.h"

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

// --- Edited versions, for the merge benchmark -------------------------------

// The edits that turn a book into one side of a three-way merge. The book is
// cut into 2 x `edits` equal stretches; side 0 edits one place in each even
// stretch and side 1 one place in each odd one, away from the stretch's ends,
// so the two sides' edits never touch and a merge of them has no conflict.
struct EditShape {
  int edits = 600;
  int side = 0;  // 0 or 1
  // What an edit does, in percent; the rest delete a paragraph.
  int changedPercent = 80;   // one word of one run replaced, formatting kept
  int insertedPercent = 10;  // a new "Body" paragraph before the place
  std::uint64_t seed = 0x0F1E2D3C4B5A6978;
};

// `book` with the edits applied. Only paragraphs with text are changed or
// deleted (an edit that falls on a table or picture moves to the next
// paragraph); every other block is copied, id included.
std::vector<Block> editedBlocks(const std::vector<Block>& book, const EditShape& shape);

// The book as a plain-text file: a line per paragraph, a line per table row
// with its cells separated by tabs, pictures left out; every line ends with
// a line feed.
std::string bookText(const std::vector<Block>& blocks);

// The three files of one merge: the common base and the two edited sides.
struct MergeTriple {
  std::filesystem::path base;
  std::filesystem::path local;
  std::filesystem::path external;
};

struct MergeInputs {
  MergeTriple word;  // .docx files written by DocxWriter
  MergeTriple text;  // the same content as .txt files (bookText)
};

// The merge inputs derived from the book of `shape`: the book as imported
// is the base, editedBlocks with side 0 the local and with side 1 the
// external version, each with `edits` edits; footnotes are the same in all.
// Cached in `directory` like ensureBook.
MergeInputs ensureMergeInputs(const std::filesystem::path& directory, const BookShape& shape,
                              int edits);

}  // namespace inkharbour::bench
