// The WordprocessingML body parser: turns the paragraphs, runs, tables and
// pictures of a document part (or of a notes part) into blocks and footnotes.
// Internal to the DOCX reader.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "importers/import_limits.h"
#include "importers/xml_parser.h"
#include "model/story.h"

namespace inkharbour {
class Package;
}

namespace inkharbour::docx {

using StyleNames = std::map<std::string, std::string, std::less<>>;
using Relationships = std::map<std::string, std::string, std::less<>>;  // id -> target
using ImageLoader = std::function<std::optional<ImageBlock>(std::string_view relationshipID)>;

// A decimal integer: an optional "+" or "-", then ASCII digits only, within
// the signed 64-bit range. No value for anything else, the empty text included.
std::optional<std::int64_t> parseInteger(std::string_view text);

// Joins each run onto the previous one when neither cites a footnote and
// their formatting is the same.
std::vector<TextRun> mergeAdjacentRuns(const std::vector<TextRun>& runs);

// Collects a styles part: style id -> style name, and the names of the
// paragraph styles in the order they are declared.
class StylesParser final : public XmlHandler {
 public:
  StylesParser() { setWantsCharacters(false); }
  void startElement(std::string_view name, const XmlAttributes& attributes) override;
  void endElement(std::string_view name) override;
  void characters(std::string_view) override {}

  StyleNames map;
  std::vector<std::string> paragraphNames;
  std::vector<std::string> paragraphIDs;

 private:
  std::optional<std::string> currentID_;
  bool paragraphStyle_ = false;
};

// Collects a relationships part: relationship id -> target.
class RelationshipsParser final : public XmlHandler {
 public:
  RelationshipsParser() { setWantsCharacters(false); }
  void startElement(std::string_view name, const XmlAttributes& attributes) override;
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}

  Relationships map;
};

// The package member a target of the main document's relationships names:
// "media/a.png" is "word/media/a.png", "/media/a.png" is "media/a.png".
std::string memberOfTarget(std::string_view target);

// The picture a relationship of the main document points at, named after
// the target's last path component; no value when the relationship or its
// member is absent or unreadable. Pictures referenced again share the bytes
// read the first time (Package::readPicture).
std::optional<ImageBlock> loadImage(Package& package, const Relationships& relationships,
                                    std::string_view relationshipID);

// Parser delegate for a body of paragraphs. Paragraphs do not nest: a
// paragraph start inside an open paragraph (text-box content) starts a fresh
// one, and the enclosing paragraph's end emits the runs gathered since then
// once more.
class BodyParser final : public XmlHandler {
 public:
  BodyParser(const StyleNames& styleIDToName, const StyleMap& styleMap, ImageLoader imageLoader,
             ImportBudget& budget, std::string member);

  void startElement(std::string_view name, const XmlAttributes& attributes) override;
  void endElement(std::string_view name) override;
  void characters(std::string_view text) override;

  bool inText() const { return inText_; }
  std::vector<Block>& blocks() { return blocks_; }
  // True between the elements of a body: nothing open, nothing pending, so
  // that a fresh parser would carry on from here alike.
  bool atRest() const {
    return !inParagraph_ && !inRun_ && !inText_ && tableStack_.empty() && pendingImages_.empty();
  }

 private:
  struct TableBuilder {
    std::vector<std::vector<TableCell>> rows;
    std::vector<TableCell> currentRow;
    std::vector<Paragraph> currentCellParagraphs;
  };

  void appendRun(std::string_view text);
  void appendNoteReference(const XmlAttributes& attributes, bool endnote);
  void setParagraphStyle(std::string_view styleID);
  void finishParagraph();
  void finishTable();

  const StyleNames& styleIDToName_;
  const StyleMap& styleMap_;
  ImageLoader imageLoader_;
  ImportBudget& budget_;
  std::string member_;
  std::map<std::string, std::string_view, std::less<>> mappedStyles_;  // style id -> program style

  std::vector<Block> blocks_;
  std::vector<TableBuilder> tableStack_;
  bool inParagraph_ = false;
  bool inRun_ = false;
  bool inText_ = false;
  bool inRunProps_ = false;
  bool inParaProps_ = false;
  std::string_view currentStyle_ = "Body";
  std::vector<TextRun> currentRuns_;
  TextRun format_;  // formatting of the open run; its text is unused
  std::string currentText_;
  std::vector<ImageBlock> pendingImages_;
};

// Parser delegate for a footnotes or endnotes part: each note element (other
// than separators) becomes a Footnote numbered by its id plus `idOffset`,
// holding the paragraphs of its body.
class NotesParser final : public XmlHandler {
 public:
  NotesParser(const StyleNames& styleIDToName, const StyleMap& styleMap, ImportBudget& budget,
              std::string member, std::string_view elementName, std::int64_t idOffset);

  void startElement(std::string_view name, const XmlAttributes& attributes) override;
  void endElement(std::string_view name) override;
  void characters(std::string_view text) override;

  std::vector<Footnote>& footnotes() { return footnotes_; }

 private:
  BodyParser body_;
  std::string_view elementName_;
  std::int64_t idOffset_;
  std::vector<Footnote> footnotes_;
  std::optional<std::int64_t> currentID_;
  std::size_t blockCountAtStart_ = 0;
};

}  // namespace inkharbour::docx
