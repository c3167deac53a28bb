#include "importers/docx_body.h"

#include <charconv>

#include "importers/package.h"
#include "model/style_sheet.h"

namespace inkharbour::docx {

namespace {

enum class Tag {
  other, tbl, tr, tc, p, pPr, pStyle, r, rPr, b, i, u, strike, smallCaps, vertAlign, color,
  footnoteReference, endnoteReference, t, tab, br, blip
};

// Element local names this parser reacts to; everything else is skipped.
Tag classify(std::string_view name) {
  switch (name.size()) {
    case 1:
      switch (name[0]) {
        case 'p': return Tag::p;
        case 'r': return Tag::r;
        case 't': return Tag::t;
        case 'b': return Tag::b;
        case 'i': return Tag::i;
        case 'u': return Tag::u;
        default: return Tag::other;
      }
    case 2:
      if (name == "tr") return Tag::tr;
      if (name == "tc") return Tag::tc;
      if (name == "br") return Tag::br;
      return Tag::other;
    case 3:
      if (name == "tbl") return Tag::tbl;
      if (name == "pPr") return Tag::pPr;
      if (name == "rPr") return Tag::rPr;
      if (name == "tab") return Tag::tab;
      return Tag::other;
    case 4:
      return name == "blip" ? Tag::blip : Tag::other;
    case 5:
      return name == "color" ? Tag::color : Tag::other;
    case 6:
      if (name == "pStyle") return Tag::pStyle;
      if (name == "strike") return Tag::strike;
      return Tag::other;
    case 9:
      if (name == "smallCaps") return Tag::smallCaps;
      if (name == "vertAlign") return Tag::vertAlign;
      return Tag::other;
    case 16:
      return name == "endnoteReference" ? Tag::endnoteReference : Tag::other;
    case 17:
      return name == "footnoteReference" ? Tag::footnoteReference : Tag::other;
    default:
      return Tag::other;
  }
}

std::optional<std::string_view> value(const XmlAttributes& attributes) {
  return attributes.get("w:val", "val");
}

// A toggle property: on unless its value is exactly "0", "false" or "none".
bool flag(const XmlAttributes& attributes) {
  const auto v = value(attributes);
  if (!v) return true;
  return !(*v == "0" || *v == "false" || *v == "none");
}

std::uint64_t textSize(const std::vector<TextRun>& runs) {
  std::uint64_t size = 0;
  for (const auto& run : runs) size += run.text.size();
  return size;
}

}  // namespace

void StylesParser::startElement(std::string_view name, const XmlAttributes& attributes) {
  if (name == "style") {
    const auto id = attributes.get("w:styleId", "styleId");
    currentID_ = id ? std::optional<std::string>(*id) : std::nullopt;
    const auto type = attributes.get("w:type", "type");
    paragraphStyle_ = !type || *type == "paragraph";
  } else if (name == "name" && currentID_) {
    if (const auto value = attributes.get("w:val", "val")) {
      map[*currentID_] = std::string(*value);
      if (paragraphStyle_) {
        paragraphNames.emplace_back(*value);
        paragraphIDs.push_back(*currentID_);
      }
    }
  }
}

void StylesParser::endElement(std::string_view name) {
  if (name == "style") currentID_.reset();
}

void RelationshipsParser::startElement(std::string_view name, const XmlAttributes& attributes) {
  if (name != "Relationship") return;
  const auto id = attributes.get("Id");
  const auto target = attributes.get("Target");
  if (id && target) map[std::string(*id)] = std::string(*target);
}

std::string memberOfTarget(std::string_view target) {
  return target.starts_with('/') ? std::string(target.substr(1)) : "word/" + std::string(target);
}

namespace {

// "media/image1.png" gives "image1.png"; trailing slashes are ignored.
std::string lastPathComponent(std::string_view target) {
  while (target.size() > 1 && target.back() == '/') target.remove_suffix(1);
  if (target == "/") return std::string(target);
  const auto slash = target.rfind('/');
  return std::string(slash == std::string_view::npos ? target : target.substr(slash + 1));
}

}  // namespace

std::optional<ImageBlock> loadImage(Package& package, const Relationships& relationships,
                                    std::string_view relationshipID) {
  const auto found = relationships.find(relationshipID);
  if (found == relationships.end()) return std::nullopt;
  auto bytes = package.readPicture(memberOfTarget(found->second));
  if (!bytes) return std::nullopt;
  return ImageBlock{.data = std::move(*bytes), .name = lastPathComponent(found->second)};
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
  // One optional sign, then digits only; from_chars takes "-" but not "+".
  const bool plus = text.starts_with('+');
  if (plus) text.remove_prefix(1);
  const auto digits = !plus && text.starts_with('-') ? text.substr(1) : text;
  if (digits.empty()) return std::nullopt;
  for (const char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::vector<TextRun> mergeAdjacentRuns(const std::vector<TextRun>& runs) {
  std::vector<TextRun> merged;
  merged.reserve(runs.size());
  for (const auto& run : runs) {
    if (!merged.empty() && !run.footnoteID && !merged.back().footnoteID &&
        merged.back().sameFormat(run)) {
      merged.back().text += run.text;
    } else {
      merged.push_back(run);
    }
  }
  return merged;
}

BodyParser::BodyParser(const StyleNames& styleIDToName, const StyleMap& styleMap,
                       ImageLoader imageLoader, ImportBudget& budget, std::string member)
    : styleIDToName_(styleIDToName),
      styleMap_(styleMap),
      imageLoader_(std::move(imageLoader)),
      budget_(budget),
      member_(std::move(member)) {
  setWantsCharacters(false);
}

void BodyParser::startElement(std::string_view name, const XmlAttributes& attributes) {
  switch (classify(name)) {
    case Tag::tbl:
      budget_.checkTableDepth(member_, tableStack_.size() + 1);
      tableStack_.emplace_back();
      break;
    case Tag::tr:
      if (!tableStack_.empty()) tableStack_.back().currentRow.clear();
      break;
    case Tag::tc:
      if (!tableStack_.empty()) tableStack_.back().currentCellParagraphs.clear();
      break;
    case Tag::p:
      inParagraph_ = true;
      currentStyle_ = "Body";
      currentRuns_.clear();
      break;
    case Tag::pPr:
      if (inParagraph_) inParaProps_ = true;
      break;
    case Tag::pStyle:
      if (inParaProps_) {
        if (const auto id = value(attributes)) setParagraphStyle(*id);
      }
      break;
    case Tag::r:
      if (inParagraph_) {
        inRun_ = true;
        format_ = TextRun{};
      }
      break;
    case Tag::rPr:
      if (inRun_) inRunProps_ = true;
      break;
    case Tag::b:
      if (inRunProps_) format_.bold = flag(attributes);
      break;
    case Tag::i:
      if (inRunProps_) format_.italic = flag(attributes);
      break;
    case Tag::u:
      if (inRunProps_) format_.underline = flag(attributes);
      break;
    case Tag::strike:
      if (inRunProps_) format_.strikethrough = flag(attributes);
      break;
    case Tag::smallCaps:
      if (inRunProps_) format_.smallCaps = flag(attributes);
      break;
    case Tag::vertAlign:
      if (inRunProps_) {
        const auto v = value(attributes);
        format_.script = v == "superscript"  ? ScriptPosition::superscript
                         : v == "subscript" ? ScriptPosition::subscript
                                            : ScriptPosition::normal;
      }
      break;
    case Tag::color:
      if (inRunProps_) {
        const auto v = value(attributes);
        if (!v || *v == "auto") {
          format_.colorHex.reset();
        } else {
          format_.colorHex = std::string(*v);
        }
      }
      break;
    case Tag::footnoteReference:
      if (inRun_) appendNoteReference(attributes, false);
      break;
    case Tag::endnoteReference:
      if (inRun_) appendNoteReference(attributes, true);
      break;
    case Tag::t:
      if (inRun_) {
        inText_ = true;
        setWantsCharacters(true);
        currentText_.clear();
      }
      break;
    case Tag::tab:
      if (inRun_) appendRun("\t");
      break;
    case Tag::br:
      if (inRun_) appendRun("\u2028");
      break;
    case Tag::blip:
      if (const auto id = attributes.get("r:embed", "embed")) {
        if (auto image = imageLoader_(*id)) {
          budget_.addItems(member_, 1);
          pendingImages_.push_back(std::move(*image));
        }
      }
      break;
    case Tag::other:
      break;
  }
}

void BodyParser::endElement(std::string_view name) {
  switch (classify(name)) {
    case Tag::t:
      if (inText_) {
        appendRun(currentText_);
        inText_ = false;
        setWantsCharacters(false);
      }
      break;
    case Tag::rPr:
      inRunProps_ = false;
      break;
    case Tag::r:
      inRun_ = false;
      break;
    case Tag::pPr:
      inParaProps_ = false;
      break;
    case Tag::p:
      finishParagraph();
      break;
    case Tag::tc:
      if (!tableStack_.empty()) {
        auto& builder = tableStack_.back();
        TableCell cell;
        if (builder.currentCellParagraphs.empty()) {
          cell.paragraphs.push_back(Paragraph::make("Body", ""));
        } else {
          cell.paragraphs = std::move(builder.currentCellParagraphs);
        }
        budget_.addItems(member_, 1);
        builder.currentRow.push_back(std::move(cell));
        builder.currentCellParagraphs.clear();
      }
      break;
    case Tag::tr:
      if (!tableStack_.empty()) {
        auto& builder = tableStack_.back();
        builder.rows.push_back(std::move(builder.currentRow));
        builder.currentRow.clear();
      }
      break;
    case Tag::tbl:
      finishTable();
      break;
    default:
      break;
  }
}

void BodyParser::characters(std::string_view text) {
  if (inText_) currentText_.append(text);
}

void BodyParser::appendRun(std::string_view text) {
  if (text.empty()) return;
  TextRun run = format_;
  run.text.assign(text);
  currentRuns_.push_back(std::move(run));
}

void BodyParser::appendNoteReference(const XmlAttributes& attributes, bool endnote) {
  const auto idText = attributes.get("w:id", "id");
  if (!idText) return;
  auto number = parseInteger(*idText);
  if (!number) return;
  if (endnote && __builtin_add_overflow(*number, 10000, &*number)) return;
  // Added directly: the open run's formatting does not apply to the mark.
  currentRuns_.push_back(TextRun::footnoteReference(*number));
}

void BodyParser::setParagraphStyle(std::string_view styleID) {
  auto cached = mappedStyles_.find(styleID);
  if (cached == mappedStyles_.end()) {
    const auto known = styleIDToName_.find(styleID);
    const std::string_view wordName = known != styleIDToName_.end() ? known->second : styleID;
    cached = mappedStyles_.emplace(std::string(styleID), StyleSheet::mapWord(wordName, styleMap_))
                 .first;
  }
  currentStyle_ = cached->second;
}

void BodyParser::finishParagraph() {
  inParagraph_ = false;
  // currentRuns_ is kept: an enclosing paragraph's end emits it again.
  auto runs = mergeAdjacentRuns(currentRuns_);
  budget_.addText(member_, textSize(runs));
  budget_.addItems(member_, 1 + runs.size());
  budget_.addParagraphs(member_, 1);
  Paragraph paragraph{.styleName = std::string(currentStyle_), .runs = std::move(runs)};

  if (!tableStack_.empty()) {
    // A table cell never holds a picture.
    tableStack_.back().currentCellParagraphs.push_back(std::move(paragraph));
  } else {
    if (!(paragraph.runs.empty() && !pendingImages_.empty())) {
      blocks_.push_back(Block{.id = Uuid::random(), .kind = std::move(paragraph)});
    }
    for (auto& image : pendingImages_) {
      blocks_.push_back(Block{.id = Uuid::random(), .kind = std::move(image)});
    }
  }
  pendingImages_.clear();
}

void BodyParser::finishTable() {
  if (tableStack_.empty()) return;
  TableBuilder builder = std::move(tableStack_.back());
  tableStack_.pop_back();
  if (tableStack_.empty()) {
    blocks_.push_back(Block{.id = Uuid::random(), .kind = Table{.rows = std::move(builder.rows)}});
    return;
  }
  // A nested table is flattened into the enclosing cell, row by row and cell
  // by cell.
  auto& target = tableStack_.back().currentCellParagraphs;
  for (auto& row : builder.rows) {
    for (auto& cell : row) {
      for (auto& paragraph : cell.paragraphs) target.push_back(std::move(paragraph));
    }
  }
}

NotesParser::NotesParser(const StyleNames& styleIDToName, const StyleMap& styleMap,
                         ImportBudget& budget, std::string member, std::string_view elementName,
                         std::int64_t idOffset)
    : body_(styleIDToName, styleMap, [](std::string_view) { return std::optional<ImageBlock>(); },
            budget, std::move(member)),
      elementName_(elementName),
      idOffset_(idOffset) {
  setWantsCharacters(false);
}

void NotesParser::startElement(std::string_view name, const XmlAttributes& attributes) {
  if (name != elementName_) {
    body_.startElement(name, attributes);
    setWantsCharacters(body_.inText());
    return;
  }
  const auto type = attributes.get("w:type", "type");
  if (type == "separator" || type == "continuationSeparator") {
    currentID_.reset();
    return;
  }
  const auto idText = attributes.get("w:id", "id");
  currentID_ = idText ? parseInteger(*idText) : std::nullopt;
  blockCountAtStart_ = body_.blocks().size();
}

void NotesParser::endElement(std::string_view name) {
  if (name != elementName_) {
    body_.endElement(name);
    setWantsCharacters(body_.inText());
    return;
  }
  if (!currentID_) return;
  std::int64_t id = 0;
  const bool overflow = __builtin_add_overflow(*currentID_, idOffset_, &id);
  currentID_.reset();
  auto& blocks = body_.blocks();
  if (overflow || blockCountAtStart_ > blocks.size()) return;
  Footnote note{.id = id, .paragraphs = {}};
  // Tables inside a note are left out; only its paragraphs count.
  for (std::size_t i = blockCountAtStart_; i < blocks.size(); ++i) {
    if (auto* paragraph = std::get_if<Paragraph>(&blocks[i].kind)) {
      note.paragraphs.push_back(std::move(*paragraph));
    }
  }
  blocks.resize(blockCountAtStart_);
  footnotes_.push_back(std::move(note));
}

void NotesParser::characters(std::string_view text) {
  if (body_.inText()) body_.characters(text);
}

}  // namespace inkharbour::docx
