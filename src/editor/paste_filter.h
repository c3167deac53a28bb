// PasteFilter: what a paste or a drop may bring into a story, and what a copy
// gives to others. Incoming rich text is reduced to what the model holds:
// the five paragraph styles, the seven run formats and a colour, tables and
// pictures. Every block that comes in gets a fresh id.
#pragma once

#include <QMimeData>
#include <QString>

#include <vector>

#include "model/story.h"

class QTextDocument;

namespace inkharbour::PasteFilter {

// Mime data holding model blocks exactly, for copies within this program;
// it also carries the blocks as HTML and plain text for other programs.
class BlocksMimeData final : public QMimeData {
  Q_OBJECT

 public:
  static constexpr const char* kFormat = "application/x-inkharbour-blocks";

  explicit BlocksMimeData(std::vector<Block> blocks);
  const std::vector<Block>& blocks() const { return blocks_; }

 private:
  std::vector<Block> blocks_;
};

// True when the data holds anything read() takes.
bool canRead(const QMimeData& data);

// The blocks to insert: this program's own blocks as they are, else HTML
// reduced by fromDocument, else an image, image files, or plain text (as
// "Body" paragraphs). Empty when there is nothing to take.
std::vector<Block> read(const QMimeData& data);

// Foreign rich text reduced to model blocks. A paragraph's style comes from
// its heading level (1 "Heading 1", 2 and below "Heading 2"; a level-1
// heading in a font of 24 points or more is a "Title"), else from the size
// of its whole text, else from indents on both sides ("Quote"), else it is
// "Body". Tables become tables, loadable images pictures (split out of their
// paragraph). Links lose their underline and colour; black counts as no
// colour; empty paragraphs at either end are dropped.
std::vector<Block> fromDocument(const QTextDocument& document);

// One paragraph of `style` per line (\n, \r\n, \r or U+2029 end a line),
// its text in one run of `format` (whose own text is ignored).
std::vector<Block> fromPlainText(const QString& text, const std::string& style,
                                 const TextRun& format);

// The blocks as this program's mime data, with HTML (headings as h1/h2,
// quotes indented) and plain text (paragraphs as lines, table rows as lines
// of tab-separated cells) for other programs.
QMimeData* mimeData(std::vector<Block> blocks);

}  // namespace inkharbour::PasteFilter
