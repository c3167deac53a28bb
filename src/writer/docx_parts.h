// The XML parts of a written Word package. Each part is built as one text by
// appending fixed fragments and escaped values; no XML library is involved.
// Internal to the DOCX writer.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"
#include "writer/media.h"

namespace inkharbour::writer {

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

// A picture in a paragraph of its own; `number` is its drawing id.
void appendImage(std::string& out, const MediaMember& picture, std::size_t number);

// The style id written for a style name: the name with its spaces removed.
std::string styleID(std::string_view styleName);

// The parts. `media` must have been planned over the image blocks of
// `blocks`, in order.
std::string documentXml(const std::vector<Block>& blocks, const MediaPlan& media);
std::string stylesXml();
std::string footnotesXml(const std::vector<Footnote>& footnotes);
std::string documentRelsXml(const MediaPlan& media, bool hasFootnotes);
std::string contentTypesXml(bool hasFootnotes, const std::set<std::string>& imageExtensions);
std::string packageRelsXml();

}  // namespace inkharbour::writer
