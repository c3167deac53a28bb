// The window's icons, painted in code so that they show on a bare machine
// with no icon theme. Status icons differ in shape and symbol as well as in
// colour, so that no one needs colour to tell them apart.
#pragma once

#include <QIcon>
#include <functional>
#include <optional>

class QPainter;

#include "model/story.h"

namespace inkharbour::Icons {

// An icon drawn by `paint` on a 32 × 32 canvas (antialiased), at every size a
// view asks for, so that it stays crisp.
QIcon painted(const std::function<void(QPainter&)>& paint);

// Up to date: a green disc with a check; modified: an amber triangle with an
// exclamation mark; missing: a red square with a cross.
QIcon status(LinkStatus status);
// A page with the kind's letter: W (Word), X (Excel), T (text); a page
// without a link is drawn hollow.
QIcon linkKind(std::optional<LinkKind> kind);
// A page with a plus: placing a file as a new story.
QIcon placeFile();
// A Word page with an arrow leaving it: writing a story out to a new file.
QIcon exportDocument();
// A toolbar glyph: one or two letters in the given style ("B" bold, ...).
QIcon letters(const QString& text, bool bold, bool italic, bool underline, bool strike);

// The words that go with the icons.
QString statusWord(LinkStatus status);
QString kindWord(std::optional<LinkKind> kind);

}  // namespace inkharbour::Icons
