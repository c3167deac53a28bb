// LibreOffice as the co-author's office program: finding it, converting
// batches of files with it, and reading back what it shows from the flat
// OpenDocument text (.fodt) it writes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace inkharbour::testing {

// True when an executable `soffice` is on PATH.
bool officeAvailable();

// Converts every file to `format` ("fodt", "docx") into `outDir` with one
// headless LibreOffice, using a private profile under `profileDir` so that
// parallel runs never share one. A crash or hang costs only the file being
// converted: the rest are converted by a new process. Returns, per input,
// the converted file's path, or an empty path when LibreOffice made none.
std::vector<std::filesystem::path> convertAll(const std::vector<std::filesystem::path>& files,
                                              const std::string& format,
                                              const std::filesystem::path& outDir,
                                              const std::filesystem::path& profileDir);

// What a flat OpenDocument text shows.
struct ShownText {
  // The text of every paragraph and heading (body, tables, frames, notes,
  // comments, the master pages' headers and footers), one line each, with
  // white space collapsed; empty paragraphs are left out. A paragraph's line
  // holds neither the text of what is nested in it (a note, a comment, a text
  // box) nor note numbers, list labels, pictures' descriptions or embedded
  // data; a field whose text the office program computes anew each time
  // (dates, page numbers, figure numbers, cross-references) shows as
  // "<field>".
  std::vector<std::string> lines;
  // The text:note-class of every note, in document order.
  std::vector<std::string> noteClasses;
};

// Reads a .fodt; fails the current test (and returns what it has) when the
// file is not well-formed XML.
ShownText readShownText(const std::filesystem::path& fodt);

}  // namespace inkharbour::testing
