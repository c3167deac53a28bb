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

// Writes the story into the Word file at `destination` in place, keeping
// everyone else's work: every part other than the document and notes parts
// stays byte for byte (the relationships and content types gain entries for
// new pictures and notes parts only); every element of the body whose blocks
// the story did not change, and every unchanged note, stays byte for byte; a
// changed paragraph keeps its paragraph properties and, where the words kept
// their look, their run properties; a new one takes the properties of a
// neighbour of its style. The file then reads back, through `styleMap`, as
// the story. When there is no file, or it is no Word package, writes a fresh
// one as write() does. Throws as write() does, and DocxError when a part of
// the file cannot be read (a damaged package is not rewritten).
void update(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
            const std::filesystem::path& destination, const StyleMap& styleMap);

}  // namespace inkharbour::DocxWriter
