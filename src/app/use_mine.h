// "Use mine": a Story Note's local text put back in place of the external
// text that won the conflict, and the note removed.
//
// A note's place is found from the note itself. A note labelled
// "Footnote N: " (paragraphIndex -1) is the footnote numbered N. A note
// labelled "Cell R<r>C<c>: " whose paragraphIndex is a table is that cell of
// that table. Any other note stands for the blocks from paragraphIndex on
// whose lines (joined as in the merge report) are its external text. When
// the text there is not the note's external text any more (edited since),
// the place is lost and nothing changes.
//
// The local text comes back one paragraph per line (for blocks, an empty
// text is no paragraph at all: a deletion). Each restored
// paragraph takes the style of the paragraph it replaces, and the
// formatting of the words it shares with it at its start and end; the new
// words take the formatting of the first replaced run (a footnote's
// reference mark never lends its own). Blocks, cells and footnotes keep
// their identities. A table or picture line ("[Table 2×3]") cannot be made
// from text: it is kept when the external block there is the same, and
// otherwise the note is refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/story.h"

namespace inkharbour {

inline constexpr std::string_view kUseMineNoteGone = "This Story Note is no longer there.";
inline constexpr std::string_view kUseMinePlaceChanged =
    "The text this note replaced has changed since the merge; copy your text from the note "
    "instead.";
inline constexpr std::string_view kUseMineNotText =
    "Your version held a table or picture, which cannot be rebuilt from the note; copy your "
    "text from the note instead.";

// The message that tells why "Use mine" cannot be done for the note (one of
// the three above), or no value when it can.
std::optional<std::string> useMineRefusal(const Story& story, const Uuid& noteID);

// Puts the note's local text in place and removes the note; block notes
// further down the story have their paragraphIndex moved by the number of
// blocks gained or lost. Returns no value when done; otherwise the message
// of useMineRefusal, and the story is unchanged.
std::optional<std::string> useMine(Story& story, const Uuid& noteID);

}  // namespace inkharbour
