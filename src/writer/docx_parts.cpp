#include "writer/docx_parts.h"

#include <charconv>
#include <cstdint>

#include "model/style_sheet.h"
#include "writer/xml_text.h"

namespace inkharbour::writer {

namespace {

constexpr std::string_view kDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
constexpr std::string_view kMainNamespace =
    "http://schemas.openxmlformats.org/wordprocessingml/2006/main";
constexpr std::string_view kRelationshipType =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships/";

// The mark that opens a footnote's first paragraph; the note's own runs
// follow it unchanged (see footnotesXml).
constexpr std::string_view kFootnoteMark =
    "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:footnoteRef/></w:r>";

constexpr std::string_view kLineSeparator = "\xE2\x80\xA8";  // U+2028

// The bold styles; "Quote" is the one italic style.
bool isBoldStyle(std::string_view name) {
  return name == "Title" || name == "Heading 1" || name == "Heading 2";
}

void appendNumber(std::string& out, std::int64_t number) {
  char buffer[24];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
  out.append(buffer, end);
}

void appendAttribute(std::string& out, std::string_view value) {
  appendEscaped(out, value, XmlContext::attribute);
}

// One line of a run: tabs become w:tab, the pieces between them w:t.
void appendLine(std::string& out, std::string_view line) {
  for (;;) {
    const auto tab = line.find('\t');
    const auto piece = line.substr(0, tab);
    if (!piece.empty()) {
      out += "<w:t xml:space=\"preserve\">";
      appendEscaped(out, piece);
      out += "</w:t>";
    }
    if (tab == std::string_view::npos) return;
    out += "<w:tab/>";
    line.remove_prefix(tab + 1);
  }
}

// A generous guess at the XML a paragraph takes, so that a part is built
// without reallocating.
std::size_t estimate(const Paragraph& paragraph) {
  std::size_t size = 64 + paragraph.styleName.size();
  for (const auto& run : paragraph.runs) size += 128 + run.text.size() + run.text.size() / 16;
  return size;
}

std::size_t estimate(const std::vector<Block>& blocks) {
  std::size_t size = 1024;
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      size += estimate(*paragraph);
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      size += 512;
      for (const auto& row : table->rows) {
        size += 16;
        for (const auto& cell : row) {
          size += 80;
          for (const auto& p : cell.paragraphs) size += estimate(p);
        }
      }
    } else {
      size += 1024;
    }
  }
  return size;
}

}  // namespace

std::string styleID(std::string_view styleName) {
  std::string id;
  id.reserve(styleName.size());
  for (const char c : styleName) {
    if (c != ' ') id += c;
  }
  return id;
}

std::vector<RunProperty> runProperties(const TextRun& run) {
  std::vector<RunProperty> properties;
  if (run.bold) properties.push_back({"b", "<w:b/>"});
  if (run.italic) properties.push_back({"i", "<w:i/>"});
  if (run.underline) properties.push_back({"u", "<w:u w:val=\"single\"/>"});
  if (run.strikethrough) properties.push_back({"strike", "<w:strike/>"});
  if (run.smallCaps) properties.push_back({"smallCaps", "<w:smallCaps/>"});
  if (run.script == ScriptPosition::superscript) {
    properties.push_back({"vertAlign", "<w:vertAlign w:val=\"superscript\"/>"});
  }
  if (run.script == ScriptPosition::subscript) {
    properties.push_back({"vertAlign", "<w:vertAlign w:val=\"subscript\"/>"});
  }
  if (run.colorHex) {
    std::string color = "<w:color w:val=\"";
    appendAttribute(color, *run.colorHex);
    color += "\"/>";
    properties.push_back({"color", std::move(color)});
  }
  return properties;
}

bool isEndnote(std::int64_t noteID) { return noteID > kEndnoteOffset; }

void appendNoteReference(std::string& out, std::int64_t noteID) {
  // The reader makes the visible "[n]" mark from the reference itself.
  if (isEndnote(noteID)) {
    out += "<w:endnoteReference w:id=\"";
    appendNumber(out, noteID - kEndnoteOffset);
  } else {
    out += "<w:footnoteReference w:id=\"";
    appendNumber(out, noteID);
  }
  out += "\"/>";
}

void appendRunText(std::string& out, std::string_view text) {
  for (;;) {
    const auto separator = text.find(kLineSeparator);
    appendLine(out, text.substr(0, separator));
    if (separator == std::string_view::npos) break;
    out += "<w:br/>";
    text.remove_prefix(separator + kLineSeparator.size());
  }
}

void appendRun(std::string& out, const TextRun& run) {
  out += "<w:r>";
  const auto properties = runProperties(run);
  if (!properties.empty()) {
    out += "<w:rPr>";
    for (const auto& property : properties) out += property.xml;
    out += "</w:rPr>";
  }
  if (run.footnoteID) {
    appendNoteReference(out, *run.footnoteID);
  } else {
    appendRunText(out, run.text);
  }
  out += "</w:r>";
}

void appendParagraph(std::string& out, const Paragraph& paragraph, std::string_view leading) {
  out += "<w:p>";
  if (paragraph.styleName != "Body") {
    out += "<w:pPr><w:pStyle w:val=\"";
    appendAttribute(out, styleID(paragraph.styleName));
    out += "\"/></w:pPr>";
  }
  out += leading;
  for (const auto& run : paragraph.runs) appendRun(out, run);
  out += "</w:p>";
}

void appendTable(std::string& out, const Table& table) {
  out +=
      "<w:tbl><w:tblPr><w:tblW w:w=\"0\" w:type=\"auto\"/><w:tblBorders>"
      "<w:top w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "<w:left w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "<w:bottom w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "<w:right w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "<w:insideH w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "<w:insideV w:val=\"single\" w:sz=\"4\" w:color=\"auto\"/>"
      "</w:tblBorders></w:tblPr>";
  for (const auto& row : table.rows) {
    out += "<w:tr>";
    for (const auto& cell : row) {
      out += "<w:tc><w:tcPr><w:tcW w:w=\"0\" w:type=\"auto\"/></w:tcPr>";
      for (const auto& paragraph : cell.paragraphs) appendParagraph(out, paragraph);
      // Word refuses a cell without a paragraph. An empty one reads back as
      // the reader reads an empty cell anyway: one empty "Body" paragraph.
      if (cell.paragraphs.empty()) out += "<w:p></w:p>";
      out += "</w:tc>";
    }
    out += "</w:tr>";
  }
  out += "</w:tbl>";
}

void appendImage(std::string& out, const MediaMember& picture, std::size_t number,
                 bool declareNamespaces) {
  std::string cx, cy, id, name;
  appendNumber(cx, picture.extent.cx);
  appendNumber(cy, picture.extent.cy);
  appendNumber(id, static_cast<std::int64_t>(number));
  appendAttribute(name, picture.name);

  out += "<w:p><w:r><w:drawing><wp:inline distT=\"0\" distB=\"0\" distL=\"0\" distR=\"0\"";
  if (declareNamespaces) {
    out +=
        " xmlns:wp=\"http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing\""
        " xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\""
        " xmlns:pic=\"http://schemas.openxmlformats.org/drawingml/2006/picture\""
        " xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
  }
  out += ">";
  out += "<wp:extent cx=\"" + cx + "\" cy=\"" + cy + "\"/>";
  out += "<wp:docPr id=\"" + id + "\" name=\"" + name + "\"/>";
  out +=
      "<a:graphic><a:graphicData uri=\"http://schemas.openxmlformats.org/drawingml/2006/picture\">"
      "<pic:pic><pic:nvPicPr>";
  out += "<pic:cNvPr id=\"" + id + "\" name=\"" + name + "\"/><pic:cNvPicPr/></pic:nvPicPr>";
  out += "<pic:blipFill><a:blip r:embed=\"";
  appendAttribute(out, picture.relationshipID);
  out += "\"/><a:stretch><a:fillRect/></a:stretch></pic:blipFill>";
  out += "<pic:spPr><a:xfrm><a:off x=\"0\" y=\"0\"/><a:ext cx=\"" + cx + "\" cy=\"" + cy +
         "\"/></a:xfrm><a:prstGeom prst=\"rect\"><a:avLst/></a:prstGeom></pic:spPr>";
  out += "</pic:pic></a:graphicData></a:graphic></wp:inline></w:drawing></w:r></w:p>";
}

std::string documentXml(const std::vector<Block>& blocks, const MediaPlan& media) {
  std::string out;
  out.reserve(estimate(blocks));
  out += kDeclaration;
  out += "<w:document xmlns:w=\"";
  out += kMainNamespace;
  out +=
      "\" xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\""
      " xmlns:wp=\"http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing\""
      " xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\""
      " xmlns:pic=\"http://schemas.openxmlformats.org/drawingml/2006/picture\"><w:body>";
  std::size_t images = 0;
  for (const auto& block : blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      appendParagraph(out, *paragraph);
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      appendTable(out, *table);
    } else {
      const auto& member = media.members.at(media.memberOfImage.at(images));
      ++images;
      appendImage(out, member, images);
    }
  }
  out += "</w:body></w:document>";
  return out;
}

std::string stylesXml() {
  std::string out(kDeclaration);
  out += "<w:styles xmlns:w=\"";
  out += kMainNamespace;
  out += "\">";
  for (const auto& style : StyleSheet::styles) {
    out += "<w:style w:type=\"paragraph\" w:styleId=\"" + styleID(style.name) +
           "\"><w:name w:val=\"" + std::string(style.name) + "\"/>";
    // Outline levels let other programs' navigation and tables of contents
    // see the headings; the reader takes the style from the name alone.
    if (style.name == "Heading 1") out += "<w:pPr><w:outlineLvl w:val=\"0\"/></w:pPr>";
    if (style.name == "Heading 2") out += "<w:pPr><w:outlineLvl w:val=\"1\"/></w:pPr>";
    out += "<w:rPr><w:sz w:val=\"";
    appendNumber(out, static_cast<std::int64_t>(2 * StyleSheet::fontSize(style.name)));
    out += "\"/>";
    if (isBoldStyle(style.name)) out += "<w:b/>";
    if (style.name == "Quote") out += "<w:i/>";
    out += "</w:rPr></w:style>";
  }
  out += "</w:styles>";
  return out;
}

void appendNote(std::string& out, const Footnote& note, NoteKind kind,
                std::string_view markRun) {
  const bool endnote = kind == NoteKind::endnote;
  out += endnote ? "<w:endnote w:id=\"" : "<w:footnote w:id=\"";
  appendNumber(out, endnote ? note.id - kEndnoteOffset : note.id);
  out += "\">";
  std::string mark;
  if (markRun.empty()) {
    mark = endnote ? "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:endnoteRef/></w:r>"
                   : std::string(kFootnoteMark);
    markRun = mark;
  }
  // The mark is followed by the note's own runs, not by a space of ours: a
  // note read from Word already begins with the space Word writes, and the
  // reader keeps whatever follows the mark, so a push must add nothing.
  // A note without paragraphs still needs one to carry its mark; it reads
  // back as one empty "Body" paragraph, which has the same text.
  if (note.paragraphs.empty()) {
    out += "<w:p>";
    out += markRun;
    out += "</w:p>";
  }
  for (std::size_t i = 0; i < note.paragraphs.size(); ++i) {
    appendParagraph(out, note.paragraphs[i], i == 0 ? markRun : std::string_view{});
  }
  out += endnote ? "</w:endnote>" : "</w:footnote>";
}

std::string notesXml(const std::vector<Footnote>& notes, NoteKind kind) {
  std::size_t size = 1024;
  for (const auto& note : notes) {
    size += 128;
    for (const auto& paragraph : note.paragraphs) size += estimate(paragraph);
  }
  const std::string_view element = kind == NoteKind::endnote ? "endnote" : "footnote";
  std::string out;
  out.reserve(size);
  out += kDeclaration;
  out += "<w:" + std::string(element) + "s xmlns:w=\"";
  out += kMainNamespace;
  out += "\">";
  out += "<w:" + std::string(element) + " w:type=\"separator\" w:id=\"-1\"><w:p><w:r><w:separator/>";
  out += "</w:r></w:p></w:" + std::string(element) + ">";
  out += "<w:" + std::string(element) + " w:type=\"continuationSeparator\" w:id=\"0\"><w:p><w:r>";
  out += "<w:continuationSeparator/></w:r></w:p></w:" + std::string(element) + ">";
  for (const auto& note : notes) appendNote(out, note, kind);
  out += "</w:" + std::string(element) + "s>";
  return out;
}

std::string footnotesXml(const std::vector<Footnote>& footnotes) {
  return notesXml(footnotes, NoteKind::footnote);
}

std::string documentRelsXml(const MediaPlan& media, const NoteParts& notes) {
  std::string out(kDeclaration);
  out += "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
  out += "<Relationship Id=\"rId1\" Type=\"";
  out += kRelationshipType;
  out += "styles\" Target=\"styles.xml\"/>";
  if (notes.footnotes) {
    out += "<Relationship Id=\"rId2\" Type=\"";
    out += kRelationshipType;
    out += "footnotes\" Target=\"footnotes.xml\"/>";
  }
  if (notes.endnotes) {
    out += "<Relationship Id=\"rIdEndnotes\" Type=\"";
    out += kRelationshipType;
    out += "endnotes\" Target=\"endnotes.xml\"/>";
  }
  for (const auto& member : media.members) out += imageRelationship(member.relationshipID, member.name);
  out += "</Relationships>";
  return out;
}

std::string imageRelationship(std::string_view id, std::string_view mediaName) {
  std::string out = "<Relationship Id=\"";
  appendAttribute(out, id);
  out += "\" Type=\"";
  out += kRelationshipType;
  out += "image\" Target=\"media/";
  appendAttribute(out, mediaName);
  out += "\"/>";
  return out;
}

std::string noteRelationship(std::string_view id, NoteKind kind) {
  std::string out = "<Relationship Id=\"";
  appendAttribute(out, id);
  out += "\" Type=\"";
  out += kRelationshipType;
  out += kind == NoteKind::endnote ? "endnotes\" Target=\"endnotes.xml\"/>"
                                   : "footnotes\" Target=\"footnotes.xml\"/>";
  return out;
}

std::string imageDefault(std::string_view extension) {
  std::string out = "<Default Extension=\"";
  appendAttribute(out, extension);
  out += "\" ContentType=\"";
  out += imageContentType(extension);
  out += "\"/>";
  return out;
}

std::string noteOverride(NoteKind kind) {
  return kind == NoteKind::endnote
             ? "<Override PartName=\"/word/endnotes.xml\" ContentType=\"application/"
               "vnd.openxmlformats-officedocument.wordprocessingml.endnotes+xml\"/>"
             : "<Override PartName=\"/word/footnotes.xml\" ContentType=\"application/"
               "vnd.openxmlformats-officedocument.wordprocessingml.footnotes+xml\"/>";
}

std::string contentTypesXml(const NoteParts& notes, const std::set<std::string>& imageExtensions) {
  std::string out(kDeclaration);
  out +=
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>";
  for (const auto& extension : imageExtensions) out += imageDefault(extension);
  out +=
      "<Override PartName=\"/word/document.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml\"/>"
      "<Override PartName=\"/word/styles.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.wordprocessingml.styles+xml\"/>";
  if (notes.footnotes) out += noteOverride(NoteKind::footnote);
  if (notes.endnotes) out += noteOverride(NoteKind::endnote);
  out += "</Types>";
  return out;
}

std::string packageRelsXml() {
  std::string out(kDeclaration);
  out += "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
  out += "<Relationship Id=\"rId1\" Type=\"";
  out += kRelationshipType;
  out += "officeDocument\" Target=\"word/document.xml\"/></Relationships>";
  return out;
}

}  // namespace inkharbour::writer
