// DocxReader: turns a linked file into story content. A Word package becomes
// paragraphs, tables and pictures plus footnotes (then endnotes, numbered
// from 10000 on); a workbook becomes one table; any other file is read as
// UTF-8 text, one "Body" paragraph per line. Every block gets a fresh id.
#pragma once

#include <filesystem>
#include <vector>

#include "importers/import_limits.h"
#include "model/story.h"

namespace inkharbour {

struct ImportResult {
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;

  bool operator==(const ImportResult&) const = default;
};

namespace DocxReader {

// What an optional part the story depends on (the notes, the styles, the
// document's relationships) that is present but cannot be read or parsed
// stands for. Placing a file and --dump read it as absent; a link's status,
// Update Link and a merge must not, or the merge would take every note, every
// heading or every picture for deleted or changed in the file.
enum class DamagedParts { readAsAbsent, fail };

// Reads the file by its extension, lower-cased: "docx" as Word, "xlsx" as a
// workbook, anything else as plain text. Word style names are mapped through
// `styleMap` first, then the built-in rules. Throws DocxError for a package
// that cannot be read (with DamagedParts::fail, also for a damaged
// optional part, naming it), std::filesystem_error for a file that cannot be opened
// (no such file, no permission, not a regular file) and for a text file that
// is not UTF-8.
ImportResult read(const std::filesystem::path& path, const StyleMap& styleMap,
                  const ImportLimits& limits = {},
                  DamagedParts damagedParts = DamagedParts::readAsAbsent);

// Reads the file as the given kind whatever its name (a merge driver's
// temporary files have none).
ImportResult readAs(const std::filesystem::path& path, LinkKind kind, const StyleMap& styleMap,
                    const ImportLimits& limits = {},
                    DamagedParts damagedParts = DamagedParts::readAsAbsent);

// The names of the paragraph styles a Word package declares, sorted, each
// once; empty when it declares none or cannot be read.
std::vector<std::string> paragraphStyleNames(const std::filesystem::path& path);

// "docx" is word, "xlsx" excel, anything else (no extension included) text.
LinkKind linkKind(const std::filesystem::path& path);

}  // namespace DocxReader

}  // namespace inkharbour
