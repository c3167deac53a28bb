// Where the content of a Word package's document and notes parts lies: each
// element directly inside w:body, with the blocks the reader makes of it, and
// each note, with its number. Lets a push copy what the story did not change
// byte for byte. Internal to the DOCX writer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "importers/docx_body.h"
#include "model/story.h"

namespace inkharbour::writer {

struct Span {
  std::size_t start = 0;
  std::size_t end = 0;

  std::size_t size() const { return end - start; }
};

struct BodyElement {
  Span span;
  std::string name;           // local name: "p", "tbl", "sdt", "sectPr", ...
  std::size_t firstBlock = 0;  // the blocks the reader makes of it
  std::size_t blockCount = 0;
};

struct DocumentLayout {
  Span body;  // between <w:body> and </w:body>
  std::vector<BodyElement> elements;
  std::vector<Block> blocks;  // as the reader reads them
};

struct NoteElement {
  Span span;
  std::optional<std::int64_t> number;  // the note's number as the reader numbers it
  bool separator = false;              // a separator or continuation note, not a note
};

struct NotesLayout {
  Span content;  // between the notes element's tags
  std::vector<NoteElement> notes;
  std::vector<Footnote> footnotes;  // as the reader reads them
};

// Reads a document part as the reader does, chunk by chunk as it inflates.
// Throws as the reader does when a limit is passed.
class DocumentScanner {
 public:
  DocumentScanner(const docx::StyleNames& styles, const StyleMap& styleMap,
                  docx::ImageLoader images, ImportBudget& budget);
  ~DocumentScanner();
  DocumentScanner(const DocumentScanner&) = delete;
  DocumentScanner& operator=(const DocumentScanner&) = delete;

  void feed(std::string_view chunk);
  // No value when the part is not well-formed or has no w:body.
  std::optional<DocumentLayout> finish();

  // For a part read in two pieces at once: true when what was fed ends
  // between two elements of the body, with nothing left open, so that the
  // rest can be read by a scanner of its own (given "<w:document><w:body>"
  // first); then the layout so far.
  bool betweenBodyElements() const;
  DocumentLayout takeSoFar();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Reads a notes part ("footnote" or "endnote" elements, numbered from
// `offset`). No value when it is not well-formed.
std::optional<NotesLayout> scanNotes(std::string_view xml, std::string_view element,
                                     std::int64_t offset, const docx::StyleNames& styles,
                                     const StyleMap& styleMap, ImportBudget& budget);

}  // namespace inkharbour::writer
