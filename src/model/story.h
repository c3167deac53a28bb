// The story model: a document's stories, their blocks (paragraphs, tables,
// images), runs of formatted text, footnotes, the link of a story to an
// external file with its base snapshot, Story Notes and merge reports.
//
// Every type is a plain value: copying copies the whole content (a picture's
// bytes are immutable and shared between the copies), and equality compares
// every field, identifiers included. Fields marked with a fresh
// Uuid::random() default get a new identity unless one is given.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "model/date.h"
#include "model/shared_bytes.h"
#include "model/uuid.h"

namespace inkharbour {

using Data = std::vector<std::uint8_t>;
// Word style name -> program style name; looked up by string_view.
using StyleMap = std::map<std::string, std::string, std::less<>>;

enum class LinkKind { word, text, excel };
enum class LinkStatus { upToDate, modified, missing };
enum class ScriptPosition { normal, superscript, subscript };

struct TextRun {
  std::string text;
  bool bold = false;
  bool italic = false;
  bool underline = false;
  bool strikethrough = false;
  bool smallCaps = false;
  ScriptPosition script = ScriptPosition::normal;
  std::optional<std::string> colorHex;     // six hex digits; absent is the default colour
  std::optional<std::int64_t> footnoteID;  // set on a footnote's reference mark

  // The reference mark of a footnote as the importer makes it: the text
  // "[id]", superscript, no other formatting, citing the footnote.
  static TextRun footnoteReference(std::int64_t id);

  // True when both runs have the same flags, script and colour; text and
  // footnote reference take no part. Colours compare as exact strings.
  bool sameFormat(const TextRun& other) const;

  bool operator==(const TextRun&) const = default;
};

struct Paragraph {
  std::string styleName;
  std::vector<TextRun> runs;

  // A paragraph of the given style: one plain run holding the text, or no
  // runs at all when the text is empty.
  static Paragraph make(std::string styleName, std::string text);

  // The runs' texts concatenated.
  std::string text() const;

  bool operator==(const Paragraph&) const = default;
};

struct TableCell {
  std::vector<Paragraph> paragraphs;

  // The paragraphs' texts joined with a line feed; empty for no paragraphs.
  std::string text() const;

  bool operator==(const TableCell&) const = default;
};

struct Table {
  std::vector<std::vector<TableCell>> rows;  // rows may differ in length

  // Cell texts joined with U+001F within a row, rows joined with U+001E.
  // Identifies the table's text content; formatting takes no part.
  std::string contentKey() const;
  // The largest number of cells in any row; 0 for no rows.
  std::size_t columnCount() const;

  bool operator==(const Table&) const = default;
};

struct ImageBlock {
  SharedBytes data;  // the image file's bytes exactly as read
  std::string name;  // file name under media/ when written to a package

  bool operator==(const ImageBlock&) const = default;
};

struct Block {
  using Kind = std::variant<Paragraph, Table, ImageBlock>;

  Uuid id = Uuid::random();
  Kind kind;

  bool operator==(const Block&) const = default;
};

struct Footnote {
  std::int64_t id = 0;  // the number cited by TextRun::footnoteID
  std::vector<Paragraph> paragraphs;

  // As TableCell::text, over the footnote's paragraphs.
  std::string text() const;

  bool operator==(const Footnote&) const = default;
};

struct StoryLink {
  std::string path;  // absolute path of the linked file
  LinkKind kind = LinkKind::word;
  std::vector<Block> baseBlocks;  // the external content at the last synchronisation
  std::vector<Footnote> baseFootnotes;
  Date lastSync = 0;

  bool operator==(const StoryLink&) const = default;
};

struct ConflictNote {
  Uuid id = Uuid::random();
  std::int64_t paragraphIndex = 0;
  std::string localText;     // the local text that lost the conflict
  std::string externalText;  // the external text that won
  Date date = now();

  bool operator==(const ConflictNote&) const = default;
};

struct ChangeRecord {
  enum class Kind { externalEdit, localKept, bothSame, structural, conflict, tableCells };

  Uuid id = Uuid::random();
  Kind kind = Kind::externalEdit;
  std::string summary;
  std::optional<std::string> localText;
  std::optional<std::string> externalText;

  bool operator==(const ChangeRecord&) const = default;
};

struct Story {
  Uuid id = Uuid::random();
  std::string name;
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;
  std::optional<StoryLink> link;
  std::vector<ConflictNote> notes;
  std::vector<ChangeRecord> lastMergeReport;

  bool operator==(const Story&) const = default;
};

struct ProjectDocument {
  std::vector<Story> stories;
  StyleMap styleMap;
  // The absolute folder the document file was last saved in; none before the
  // first save and in files of older versions. A link whose file is gone is
  // looked for at the same place relative to the document's folder now, so
  // that a project folder can move with its linked files.
  std::optional<std::string> documentFolder;

  bool operator==(const ProjectDocument&) const = default;
};

// Stored names of the enumerations ("upToDate", "superscript", "excel", ...).
std::string_view name(LinkKind kind);
std::string_view name(LinkStatus status);
std::string_view name(ScriptPosition script);
std::string_view name(ChangeRecord::Kind kind);
// The case whose stored name is exactly `text`; no value for any other text.
std::optional<LinkKind> parseLinkKind(std::string_view text);
std::optional<ScriptPosition> parseScriptPosition(std::string_view text);
std::optional<ChangeRecord::Kind> parseChangeKind(std::string_view text);

}  // namespace inkharbour
