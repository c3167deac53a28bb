#include "writer/paragraph_rewrite.h"

#include <algorithm>
#include <array>

#include "importers/xml_parser.h"
#include "model/style_sheet.h"
#include "model/text.h"
#include "writer/docx_parts.h"
#include "writer/xml_fragment.h"
#include "writer/xml_text.h"

namespace inkharbour::writer {

namespace {

// The run properties the reader reads; a rewrite replaces exactly these.
bool isModelled(std::string_view name) {
  return name == "b" || name == "i" || name == "u" || name == "strike" || name == "smallCaps" ||
         name == "vertAlign" || name == "color";
}

// Where a run property goes among its siblings: Word refuses a w:rPr whose
// children are out of the schema's order.
int rank(std::string_view name) {
  static constexpr std::array<std::string_view, 39> order = {"rStyle",
                                                             "rFonts",
                                                             "b",
                                                             "bCs",
                                                             "i",
                                                             "iCs",
                                                             "caps",
                                                             "smallCaps",
                                                             "strike",
                                                             "dstrike",
                                                             "outline",
                                                             "shadow",
                                                             "emboss",
                                                             "imprint",
                                                             "noProof",
                                                             "snapToGrid",
                                                             "vanish",
                                                             "webHidden",
                                                             "color",
                                                             "spacing",
                                                             "w",
                                                             "kern",
                                                             "position",
                                                             "sz",
                                                             "szCs",
                                                             "highlight",
                                                             "u",
                                                             "effect",
                                                             "bdr",
                                                             "shd",
                                                             "fitText",
                                                             "vertAlign",
                                                             "rtl",
                                                             "cs",
                                                             "em",
                                                             "lang",
                                                             "eastAsianLayout",
                                                             "specVanish",
                                                             "oMath"};
  if (name == "rPrChange") return static_cast<int>(order.size()) + 1;
  const auto found = std::find(order.begin(), order.end(), name);
  return found == order.end() ? static_cast<int>(order.size())
                              : static_cast<int>(found - order.begin());
}

// How many of the formatting settings differ.
int distance(const TextRun& a, const TextRun& b) {
  return (a.bold != b.bold) + (a.italic != b.italic) + (a.underline != b.underline) +
         (a.strikethrough != b.strikethrough) + (a.smallCaps != b.smallCaps) +
         (a.script != b.script) + (a.colorHex != b.colorHex);
}

std::string plainProperties(const TextRun& format) {
  const auto properties = runProperties(format);
  if (properties.empty()) return {};
  std::string out = "<w:rPr>";
  for (const auto& property : properties) out += property.xml;
  out += "</w:rPr>";
  return out;
}

// `base` with the formatting the reader reads (and the character style,
// which could bring its own) replaced by `format`'s, in schema order.
std::string reformatted(std::string_view base, const TextRun& format) {
  const auto fragment = XmlFragment::parse(base);
  if (!fragment) return plainProperties(format);
  struct Child {
    int rank;
    std::string xml;
  };
  std::vector<Child> children;
  for (const int index : fragment->root().children) {
    const auto& node = fragment->node(index);
    if (isModelled(node.name) || node.name == "rStyle") continue;
    children.push_back({rank(node.name), std::string(fragment->bytes(node))});
  }
  for (auto& property : runProperties(format)) {
    children.push_back({rank(property.name), std::move(property.xml)});
  }
  if (children.empty()) return {};
  std::stable_sort(children.begin(), children.end(),
                   [](const Child& a, const Child& b) { return a.rank < b.rank; });
  std::string out = "<w:rPr>";
  for (const auto& child : children) out += child.xml;
  out += "</w:rPr>";
  return out;
}

std::string styleElement(std::string_view id) {
  std::string out = "<w:pStyle w:val=\"";
  appendEscaped(out, id, XmlContext::attribute);
  out += "\"/>";
  return out;
}

// The old paragraph properties made to carry `style`. A neighbour's lose
// their section break and their record of a tracked change.
std::string paragraphProperties(const OldParagraph* old, const std::string& style, Kinship kinship,
                                ReaderView& view) {
  const std::string_view base = old ? std::string_view(old->properties) : std::string_view{};
  const bool restyle = !old || old->style != style;
  const auto fragment = base.empty() ? std::nullopt : XmlFragment::parse(base);
  if (!fragment) {
    const auto& id = view.styleIDFor(style);
    return id.empty() ? std::string() : "<w:pPr>" + styleElement(id) + "</w:pPr>";
  }
  const auto& root = fragment->root();
  std::string inner;
  if (restyle) {
    const auto& id = view.styleIDFor(style);
    if (!id.empty()) inner += styleElement(id);  // pStyle comes first
  }
  for (const int index : root.children) {
    const auto& node = fragment->node(index);
    if (restyle && node.name == "pStyle") continue;
    if (kinship == Kinship::neighbour &&
        (node.name == "sectPr" || node.name == "pPrChange" || node.name == "framePr")) {
      continue;
    }
    inner += fragment->bytes(node);
  }
  if (inner.empty()) return {};
  return "<w:pPr>" + inner + "</w:pPr>";
}

std::string runPropertiesFor(const TextRun& format, const OldParagraph* old, ReaderView& view) {
  if (!old || old->looks.empty()) return plainProperties(format);
  const OldParagraph::Look* closest = nullptr;
  int best = 0;
  for (const auto& look : old->looks) {
    const int d = distance(look.format, format);
    if (d == 0) return look.properties;  // the words kept their look
    if (!closest || d < best) {
      closest = &look;
      best = d;
    }
  }
  // A new look on the old run's fonts and sizes; kept only if it reads back.
  std::string properties = closest->properties.empty() ? plainProperties(format)
                                                       : reformatted(closest->properties, format);
  if (!view.formatOf(properties).sameFormat(format) || !view.addsNoText(properties)) {
    return plainProperties(format);
  }
  return properties;
}

}  // namespace

ReaderView::ReaderView(const docx::StyleNames& fileStyles,
                       std::vector<std::string> paragraphStyleIDs, const StyleMap& styleMap)
    : fileStyles_(fileStyles),
      paragraphStyleIDs_(std::move(paragraphStyleIDs)),
      styleMap_(styleMap) {}

namespace {

// The paragraph the reader reads from `xml`, a lone w:p.
std::optional<Paragraph> readAlone(const docx::StyleNames& styles, const StyleMap& styleMap,
                                   ImportBudget& budget, const std::string& xml) {
  docx::BodyParser body(
      styles, styleMap, [](std::string_view) { return std::optional<ImageBlock>(); }, budget,
      "word/document.xml");
  if (!XmlParser::parse(body, xml) || body.blocks().size() != 1) return std::nullopt;
  const auto* paragraph = std::get_if<Paragraph>(&body.blocks().front().kind);
  return paragraph ? std::optional<Paragraph>(*paragraph) : std::nullopt;
}

}  // namespace

const TextRun& ReaderView::formatOf(std::string_view runProperties) {
  if (const auto found = formats_.find(runProperties); found != formats_.end())
    return found->second;
  TextRun format;
  const auto paragraph =
      readAlone(fileStyles_, styleMap_, budget_,
                "<w:p><w:r>" + std::string(runProperties) + "<w:t>x</w:t></w:r></w:p>");
  if (paragraph && !paragraph->runs.empty()) {
    format = paragraph->runs.front();
    format.text.clear();
  }
  if (!paragraph || paragraph->text() != "x") textual_.emplace(runProperties);
  return formats_.emplace(std::string(runProperties), std::move(format)).first->second;
}

bool ReaderView::addsNoText(std::string_view runProperties) {
  formatOf(runProperties);
  return !textual_.contains(runProperties);
}

bool ReaderView::holdsNoText(std::string_view paragraphProperties) {
  styleOf(paragraphProperties);
  return !textual_.contains(paragraphProperties);
}

std::optional<Paragraph> ReaderView::paragraphOf(const std::string& paragraphXml) {
  return readAlone(fileStyles_, styleMap_, budget_, paragraphXml);
}

const std::string& ReaderView::styleOf(std::string_view paragraphProperties) {
  if (const auto found = styles_.find(paragraphProperties); found != styles_.end()) {
    return found->second;
  }
  const auto paragraph = readAlone(fileStyles_, styleMap_, budget_,
                                   "<w:p>" + std::string(paragraphProperties) + "</w:p>");
  if (paragraph && !paragraph->runs.empty()) textual_.emplace(paragraphProperties);
  return styles_
      .emplace(std::string(paragraphProperties), paragraph ? paragraph->styleName : "Body")
      .first->second;
}

const std::string& ReaderView::styleIDFor(const std::string& styleName) {
  if (const auto found = styleIDs_.find(styleName); found != styleIDs_.end()) return found->second;
  std::string id;
  if (styleName != "Body") {
    // A style of the file that reads as this one, the one of the same name first.
    std::string match;
    for (const auto& candidate : paragraphStyleIDs_) {
      const auto name = fileStyles_.find(candidate);
      if (name == fileStyles_.end() || StyleSheet::mapWord(name->second, styleMap_) != styleName) {
        continue;
      }
      if (text::lowercased(name->second) == text::lowercased(styleName)) {
        match = candidate;
        break;
      }
      if (match.empty()) match = candidate;
    }
    id = match;
    if (id.empty()) {
      // An id the file does not define is read as a style name.
      id = styleID(styleName);
      if (fileStyles_.contains(id)) {
        id = "Inkharbour" + id;
        if (!fileStyles_.contains(id)) added_.emplace_back(id, styleName);
      }
    }
  }
  return styleIDs_.emplace(styleName, std::move(id)).first->second;
}

std::optional<OldParagraph> readOldParagraph(std::string_view xml, ReaderView& view) {
  const auto fragment = XmlFragment::parse(xml);
  if (!fragment) return std::nullopt;
  const auto& root = fragment->root();
  OldParagraph old;
  old.xml = std::string(xml);
  // Properties that would add text of their own to whatever carries them
  // are not lent (a tab inside run properties, say).
  if (const auto* properties = fragment->child(root, "pPr");
      properties && view.holdsNoText(fragment->bytes(*properties))) {
    old.properties = std::string(fragment->bytes(*properties));
  }
  old.style = view.styleOf(old.properties);
  // What is kept around the text, each piece with its place.
  std::vector<std::pair<std::size_t, std::string_view>> kept;
  std::optional<std::size_t> firstText;
  for (std::size_t i = 1; i < fragment->size(); ++i) {
    const auto& node = fragment->node(static_cast<int>(i));
    // Text-box content, deleted text and moved-away text are not this
    // paragraph's text.
    if (fragment->inside(node, "txbxContent", root) || fragment->inside(node, "del", root) ||
        fragment->inside(node, "moveFrom", root) || fragment->inside(node, "r", root)) {
      continue;
    }
    const bool marker =
        node.parent == 0 && (node.name == "bookmarkStart" || node.name == "bookmarkEnd" ||
                             node.name == "commentRangeStart" || node.name == "commentRangeEnd" ||
                             node.name == "permStart" || node.name == "permEnd");
    if (marker) {
      kept.emplace_back(node.start, fragment->bytes(node));
      continue;
    }
    if (node.name != "r") continue;
    const auto* properties = fragment->child(node, "rPr");
    std::string_view runProperties = properties ? fragment->bytes(*properties) : std::string_view{};
    if (!view.addsNoText(runProperties)) runProperties = {};
    if (fragment->holds(node, "footnoteRef") || fragment->holds(node, "endnoteRef")) {
      // Only the mark: a run may hold the note's first words as well.
      if (old.noteMark.empty()) {
        const auto* mark = fragment->child(node, "footnoteRef");
        if (!mark) mark = fragment->child(node, "endnoteRef");
        old.noteMark = mark ? "<w:r>" + std::string(runProperties) +
                                  std::string(fragment->bytes(*mark)) + "</w:r>"
                            : std::string(fragment->bytes(node));
      }
    } else if (fragment->holds(node, "footnoteReference") ||
               fragment->holds(node, "endnoteReference")) {
      if (!old.noteReferenceProperties) old.noteReferenceProperties = std::string(runProperties);
    } else if (fragment->holds(node, "t") || fragment->holds(node, "tab") ||
               fragment->holds(node, "br")) {
      if (!firstText) firstText = node.start;
      old.looks.push_back({view.formatOf(runProperties), std::string(runProperties)});
    } else if (!fragment->holds(node, "blip") && !fragment->holds(node, "txbxContent")) {
      // Field codes, comment references, charts, shapes and the like: no
      // text and no picture for the reader (those are blocks of their own),
      // but they hold the paragraph's ties to the rest of the document.
      kept.emplace_back(node.start, fragment->bytes(node));
    }
  }
  for (const auto& [at, bytes] : kept) {
    (firstText && at > *firstText ? old.trailing : old.leading) += bytes;
  }
  return old;
}

namespace {

// One byte of a paragraph's text with its look; a note reference is one
// unit of its own.
struct Unit {
  const TextRun* run;
  char byte;
};

std::vector<Unit> unitsOf(const std::vector<TextRun>& runs) {
  std::vector<Unit> units;
  for (const auto& run : runs) {
    if (run.footnoteID) {
      units.push_back({&run, 0});
      continue;
    }
    for (const char c : run.text) units.push_back({&run, c});
  }
  return units;
}

bool sameUnit(const Unit& a, const Unit& b) {
  if (a.run->footnoteID || b.run->footnoteID) return *a.run == *b.run;
  return a.byte == b.byte && a.run->sameFormat(*b.run);
}

bool sameUnits(const std::vector<Unit>& units, const std::vector<Unit>& target, std::size_t at) {
  return units.size() <= target.size() - at &&
         std::equal(units.begin(), units.end(), target.begin() + static_cast<std::ptrdiff_t>(at),
                    sameUnit);
}

// The runs covering units [from, to), cut at both ends.
std::vector<TextRun> slice(const std::vector<TextRun>& runs, std::size_t from, std::size_t to) {
  std::vector<TextRun> out;
  std::size_t at = 0;
  for (const auto& run : runs) {
    const std::size_t length = run.footnoteID ? 1 : run.text.size();
    const std::size_t begin = std::max(from, at), end = std::min(to, at + length);
    if (begin < end) {
      out.push_back(run);
      if (!run.footnoteID) out.back().text = run.text.substr(begin - at, end - begin);
    }
    at += length;
  }
  return out;
}

void appendRuns(std::string& out, const std::vector<TextRun>& runs, const OldParagraph* old,
                ReaderView& view) {
  for (const auto& run : runs) {
    out += "<w:r>";
    if (run.footnoteID) {
      out += old && old->noteReferenceProperties
                 ? *old->noteReferenceProperties
                 : std::string("<w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr>");
      appendNoteReference(out, *run.footnoteID);
    } else {
      out += runPropertiesFor(run, old, view);
      appendRunText(out, run.text);
    }
    out += "</w:r>";
  }
}

// What a changed stretch of the old paragraph holds besides its text:
// bookmarks, comment anchors, deleted text, field and comment runs.
void appendTies(std::string& out, const XmlFragment& fragment, int child) {
  const auto& top = fragment.node(child);
  const auto& root = fragment.root();
  for (std::size_t i = static_cast<std::size_t>(child); i < fragment.size(); ++i) {
    const auto& node = fragment.node(static_cast<int>(i));
    if (node.start >= top.end) break;
    if (fragment.inside(node, "r", root) || fragment.inside(node, "del", root) ||
        fragment.inside(node, "moveFrom", root) || fragment.inside(node, "rPr", root)) {
      continue;
    }
    const bool marker = node.name == "bookmarkStart" || node.name == "bookmarkEnd" ||
                        node.name == "commentRangeStart" || node.name == "commentRangeEnd" ||
                        node.name == "permStart" || node.name == "permEnd" || node.name == "del" ||
                        node.name == "moveFrom";
    const bool textless = node.name == "r" && !fragment.holds(node, "t") &&
                          !fragment.holds(node, "tab") && !fragment.holds(node, "br") &&
                          !fragment.holds(node, "footnoteReference") &&
                          !fragment.holds(node, "endnoteReference");
    if (marker || textless) out += fragment.bytes(node);
  }
}

// The paragraph written over the old one where only its text changed
// between two places: every element of the old paragraph before the first
// change and after the last stays as it was (tracked changes, fields,
// hyperlinks and all), and only the stretch between is written anew. No
// value when that would not read back as the story's paragraph.
std::optional<std::string> rewrittenBetweenChanges(const Paragraph& paragraph,
                                                   const OldParagraph& old, ReaderView& view) {
  const auto fragment = XmlFragment::parse(old.xml);
  if (!fragment) return std::nullopt;
  const auto& root = fragment->root();
  // Pictures, text boxes and note marks take the whole-paragraph way.
  for (const char* name :
       {"drawing", "pict", "object", "txbxContent", "footnoteRef", "endnoteRef"}) {
    if (fragment->holds(root, name)) return std::nullopt;
  }
  std::vector<int> children;
  std::vector<std::vector<TextRun>> runs;
  for (const int index : root.children) {
    const auto& node = fragment->node(index);
    if (node.name == "pPr") continue;
    auto read = view.paragraphOf("<w:p>" + std::string(fragment->bytes(node)) + "</w:p>");
    if (!read) return std::nullopt;
    children.push_back(index);
    runs.push_back(std::move(read->runs));
  }
  const auto target = unitsOf(paragraph.runs);
  std::size_t from = 0, first = 0;
  for (; first < children.size(); ++first) {
    const auto units = unitsOf(runs[first]);
    if (!sameUnits(units, target, from)) break;
    from += units.size();
  }
  std::size_t to = target.size(), last = children.size();
  for (; last > first; --last) {
    const auto units = unitsOf(runs[last - 1]);
    if (units.size() > to - from || !sameUnits(units, target, to - units.size())) break;
    to -= units.size();
  }
  if (first == 0 && last == children.size() && !children.empty()) return std::nullopt;

  std::string out = "<w:p>";
  out += paragraphProperties(&old, paragraph.styleName, Kinship::replaced, view);
  for (std::size_t i = 0; i < first; ++i) out += fragment->bytes(fragment->node(children[i]));
  for (std::size_t i = first; i < last; ++i) appendTies(out, *fragment, children[i]);
  appendRuns(out, slice(paragraph.runs, from, to), &old, view);
  for (std::size_t i = last; i < children.size(); ++i) {
    out += fragment->bytes(fragment->node(children[i]));
  }
  out += "</w:p>";
  const auto back = view.paragraphOf(out);
  if (!back || *back != paragraph) return std::nullopt;
  return out;
}

}  // namespace

void appendRewritten(std::string& out, const Paragraph& paragraph, const OldParagraph* old,
                     Kinship kinship, ReaderView& view, std::string_view markRun) {
  const bool replaced = old && kinship == Kinship::replaced;
  if (replaced && markRun.empty() && !old->xml.empty()) {
    if (auto kept = rewrittenBetweenChanges(paragraph, *old, view)) {
      out += *kept;
      return;
    }
  }
  out += "<w:p>";
  out += paragraphProperties(old, paragraph.styleName, kinship, view);
  if (replaced) out += old->leading;
  out += markRun;
  appendRuns(out, paragraph.runs, old, view);
  if (replaced) out += old->trailing;
  out += "</w:p>";
}

}  // namespace inkharbour::writer
