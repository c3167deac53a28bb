// How tables and pictures show in the editor: as one image character each.
// A picture shows its own image, a table a drawn preview of its grid with the
// cell texts. Images are document resources, added under a name derived from
// their content, never inlined.
#pragma once

#include <QImage>
#include <QSet>
#include <QString>
#include <QTextImageFormat>

#include <memory>

#include "model/story.h"

class QTextDocument;

namespace inkharbour::BlockImages {

// Pictures and previews wider than this many pixels are shown scaled down.
inline constexpr int kMaxWidth = 480;

// Names already added to a document during one load or insertion.
using Registered = QSet<QString>;

// The format of the image character standing for a table or picture block:
// its image (added to `document` unless `registered` has the name), display
// size, tooltip, and the block itself under kBlockObjectProperty. `block`
// must hold a Table or an ImageBlock.
QTextImageFormat objectFormat(QTextDocument& document, std::shared_ptr<const Block> block,
                              Registered& registered);

// The preview of a table: a grid of its cells' first lines, at most a dozen
// rows with a last line counting the rest.
QImage tablePreview(const Table& table);

// "Table, 3 rows × 2 columns — double-click to edit" (singular for one).
QString tableToolTip(const Table& table);

}  // namespace inkharbour::BlockImages
