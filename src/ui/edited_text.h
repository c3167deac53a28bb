// Plain-text editing of formatted paragraphs (a footnote, a table cell): the
// author edits the paragraphs as lines, and what did not change keeps its
// formatting.
#pragma once

#include <QString>
#include <vector>

#include "model/story.h"

namespace inkharbour {

// The paragraphs as lines joined with a line feed.
QString plainText(const std::vector<Paragraph>& paragraphs);

// The edited lines as paragraphs. A line that reads as the paragraph at its
// position did keeps that paragraph (runs, formatting, style); a changed or
// new line is one plain run in the style of the paragraph it replaces, or
// "Body". An empty text is no paragraph at all.
std::vector<Paragraph> editedParagraphs(const std::vector<Paragraph>& old, const QString& text);

}  // namespace inkharbour
