// Formatting transfer: when the merge takes an external paragraph in place of
// a local one, the external side supplies the words and the local side the
// look (its paragraph style and, where uniform, its character formatting).
#pragma once

#include "model/story.h"

namespace inkharbour::MergeEngine {

// The external block with the local formatting carried over. Returns
// `external` unchanged when `local` is null (no local counterpart) or when
// either block is not a paragraph. Otherwise the result keeps the external
// id, text, run boundaries, scripts and footnote references, takes the local
// style name, and, when every local run is formatted like the first, adds
// that run's flags (a logical OR) and its colour where the external run has
// none to every external run that is not a footnote reference. Formatting is
// only ever added, and a local script is never carried over.
Block transferFormatting(const Block* local, const Block& external);

// The same, taking over the external block's runs instead of copying them;
// `external` is left valid but unspecified.
Block transferFormatting(const Block* local, Block&& external);

}  // namespace inkharbour::MergeEngine
