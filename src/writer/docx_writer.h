// DocxWriter: turns a story's blocks and footnotes into a Word package that
// the DOCX reader reads back into the same blocks and footnotes (block ids
// apart). Used to push edits into a linked document and to export a story.
#pragma once

#include <filesystem>
#include <vector>

#include "model/story.h"

namespace inkharbour::DocxWriter {

// Writes the package to `destination`, replacing any file there atomically;
// on failure the old file is left as it was. The package holds the content
// types, the package and document relationships, the styles, the document,
// the footnotes (only when there are any) and one word/media/ member per
// distinct picture.
//
// Values that a package cannot carry as they are, as a document from
// elsewhere may hold them, are made safe rather than refused: characters XML
// 1.0 forbids are dropped (malformed UTF-8 becomes U+FFFD), and a picture
// whose name could reach outside word/media/, that Windows reserves, or that
// another picture uses for other bytes, is stored under a generated name.
//
// Throws std::filesystem::filesystem_error when the file cannot be written,
// DocxError when the package cannot be built.
void write(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
           const std::filesystem::path& destination);

}  // namespace inkharbour::DocxWriter
