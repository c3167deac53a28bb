// The XML parts of a written Word package. Each part is built as one text by
// appending fixed fragments and escaped values; no XML library is involved.
// Internal to the DOCX writer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"
#include "writer/media.h"

namespace inkharbour::writer {

// A story's notes numbered above this are a file's endnotes: the reader
// numbers them from 10000 on.
inline constexpr std::int64_t kEndnoteOffset = 10000;

enum class NoteKind { footnote, endnote };

bool isEndnote(std::int64_t noteID);

// Which notes parts a package holds.
struct NoteParts {
  bool footnotes = false;
  bool endnotes = false;
};

// One direct run property: its local name and its XML.
struct RunProperty {
  std::string_view name;
  std::string xml;
};

// The properties a run's formatting needs, in the order bold, italic,
// underline, strike, small capitals, vertical position, colour.
std::vector<RunProperty> runProperties(const TextRun& run);

// A note reference: w:footnoteReference, or w:endnoteReference numbered back
// from kEndnoteOffset for an endnote.
void appendNoteReference(std::string& out, std::int64_t noteID);

// A run's text: split at U+2028 into w:br and at tabs into w:tab, each
// non-empty piece in a preserved w:t.
void appendRunText(std::string& out, std::string_view text);

// One run: its properties in the order bold, italic, underline, strike,
// small capitals, vertical position, colour (no w:rPr when there are none);
// then a footnote reference when the run cites a footnote, its text not being
// written, or else the text split at U+2028 into w:br and at tabs into w:tab,
// each non-empty piece in a preserved w:t.
void appendRun(std::string& out, const TextRun& run);

// A paragraph: a w:pStyle unless the style is "Body", then `leading` (fixed
// XML such as a footnote's reference mark), then the runs.
void appendParagraph(std::string& out, const Paragraph& paragraph, std::string_view leading = {});

// A table with automatic widths and single borders all round and inside.
void appendTable(std::string& out, const Table& table);

// A picture in a paragraph of its own; `number` is its drawing id. With
// `declareNamespaces` the drawing declares the prefixes it uses itself, for
// a document part whose root may not.
void appendImage(std::string& out, const MediaMember& picture, std::size_t number,
                 bool declareNamespaces = false);

// The style id written for a style name: the name with its spaces removed.
std::string styleID(std::string_view styleName);

// The parts. `media` must have been planned over the image blocks of
// `blocks`, in order.
std::string documentXml(const std::vector<Block>& blocks, const MediaPlan& media);
std::string stylesXml();
// A notes part holding `notes`, each numbered as kind's part numbers it.
std::string notesXml(const std::vector<Footnote>& notes, NoteKind kind);
std::string footnotesXml(const std::vector<Footnote>& footnotes);
// One note element. `markRun` is the run that carries the note's own mark;
// empty gives a superscript w:footnoteRef or w:endnoteRef.
void appendNote(std::string& out, const Footnote& note, NoteKind kind,
                std::string_view markRun = {});
std::string documentRelsXml(const MediaPlan& media, const NoteParts& notes);
std::string contentTypesXml(const NoteParts& notes, const std::set<std::string>& imageExtensions);
// Single entries of the relationships and content types parts.
std::string imageRelationship(std::string_view id, std::string_view mediaName);
std::string noteRelationship(std::string_view id, NoteKind kind);
std::string imageDefault(std::string_view extension);
std::string noteOverride(NoteKind kind);
std::string packageRelsXml();

}  // namespace inkharbour::writer
