// What the fuzz targets compare and how they report: a failed property
// aborts with a readable account, which libFuzzer keeps as a crash input.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "importers/docx_reader.h"
#include "model/story.h"

namespace inkharbour::fuzz {

// Prints `what` and `details` and aborts.
[[noreturn]] void fail(std::string_view what, std::string_view details = {});

// The dump of the command line, for messages.
std::string describe(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes);

// The blocks with every id cleared: readers give fresh ones.
std::vector<Block> withoutIds(std::vector<Block> blocks);

// The footnotes ordered by id, equal ids in their order. A package keeps
// footnotes and endnotes in two parts, so reading gives the footnotes first.
std::vector<Footnote> byId(std::vector<Footnote> footnotes);

// Writes the story with DocxWriter::write to a scratch file and reads it
// back; any exception on the way is a failure.
ImportResult writeAndRead(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
                          const ImportLimits& limits = {});

// Text a package carries as it is: well-formed UTF-8 of characters that
// XML 1.0 allows.
bool isXmlText(std::string_view text);

// Every picture has a plain file name (letters, digits, "_" and "-", then a
// dot and an extension other than "xml" or "rels"; no name Windows
// reserves), and no two pictures share a name, in any case, for different
// bytes: the writer keeps such names.
bool hasPlainPictureNames(const std::vector<Block>& blocks);

}  // namespace inkharbour::fuzz
