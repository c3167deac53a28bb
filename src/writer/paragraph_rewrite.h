// Rewriting one paragraph of a Word file in place: the story's text and
// look, written with as much of the old paragraph as still fits — its
// paragraph properties (alignment, spacing, numbering), the run properties
// of words whose look is unchanged, its bookmarks and comment anchors.
// Internal to the DOCX writer.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "importers/docx_body.h"
#include "importers/import_limits.h"
#include "model/story.h"

namespace inkharbour::writer {

// The reader's view of one file's formatting, so that what a rewrite writes
// reads back as the story has it.
class ReaderView {
 public:
  ReaderView(const docx::StyleNames& fileStyles, std::vector<std::string> paragraphStyleIDs,
             const StyleMap& styleMap);

  // The formatting the reader gives a run with these properties (a w:rPr,
  // or nothing).
  const TextRun& formatOf(std::string_view runProperties);

  // True when a run with these properties reads as its own text and no more
  // (properties holding a tab or a break of their own add to it).
  bool addsNoText(std::string_view runProperties);

  // The style the reader gives a paragraph with these properties (a w:pPr,
  // or nothing).
  const std::string& styleOf(std::string_view paragraphProperties);

  // True when a paragraph with these properties and nothing else reads as
  // empty.
  bool holdsNoText(std::string_view paragraphProperties);

  // The paragraph the reader reads from a lone w:p, when it reads as exactly
  // one paragraph (pictures read as nothing here).
  std::optional<Paragraph> paragraphOf(const std::string& paragraphXml);

  // The w:pStyle value that the reader reads as the style; empty for "Body",
  // which needs none.
  const std::string& styleIDFor(const std::string& styleName);

  // Paragraph styles the styles part must gain so that styleIDFor's answers
  // hold: (style id, style name). Needed only when the file gives our id to
  // a style of another meaning.
  const std::vector<std::pair<std::string, std::string>>& addedStyles() const { return added_; }

 private:
  const docx::StyleNames& fileStyles_;
  std::vector<std::string> paragraphStyleIDs_;
  const StyleMap& styleMap_;
  ImportBudget budget_;
  std::map<std::string, TextRun, std::less<>> formats_;
  std::map<std::string, std::string, std::less<>> styles_;
  std::set<std::string, std::less<>> textual_;  // properties that read as text
  std::map<std::string, std::string, std::less<>> styleIDs_;
  std::vector<std::pair<std::string, std::string>> added_;
};

// What a paragraph written in place of an old one can keep of it.
struct OldParagraph {
  struct Look {
    TextRun format;          // as the reader reads it
    std::string properties;  // the w:rPr as it was, or empty
  };
  std::string style;                                   // as the reader reads it
  std::string properties;                              // the w:pPr as it was, or empty
  std::vector<Look> looks;                             // of each run that holds text
  std::optional<std::string> noteReferenceProperties;  // w:rPr of a run citing a note
  std::string noteMark;                                // the run holding a note's own mark
  std::string leading, trailing;  // bookmarks, comment anchors, field runs around the text
  std::string xml;                // the whole w:p
};

// Reads a w:p element. No value when it is not well-formed.
std::optional<OldParagraph> readOldParagraph(std::string_view xml, ReaderView& view);

// How the old paragraph relates to the one written: the paragraph it
// replaces keeps its anchors and section break; a neighbour of the same
// style lends only its properties.
enum class Kinship { replaced, neighbour };

// Writes the paragraph. `markRun` goes before the runs (a note's own mark).
void appendRewritten(std::string& out, const Paragraph& paragraph, const OldParagraph* old,
                     Kinship kinship, ReaderView& view, std::string_view markRun = {});

}  // namespace inkharbour::writer
