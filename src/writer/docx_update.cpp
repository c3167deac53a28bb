// Pushing a story into an existing Word file in place (DocxWriter::update).

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>

#include "importers/docx_body.h"
#include "importers/docx_error.h"
#include "importers/package.h"
#include "importers/xml_parser.h"
#include "merge/lcs.h"
#include "merge/merge_keys.h"
#include "model/text.h"
#include "writer/docx_layout.h"
#include "writer/docx_parts.h"
#include "writer/docx_writer.h"
#include "writer/media.h"
#include "writer/paragraph_rewrite.h"
#include "writer/xml_fragment.h"
#include "writer/xml_text.h"

namespace inkharbour::DocxWriter {

namespace {

using namespace writer;

constexpr std::string_view kDocumentPart = "word/document.xml";
constexpr std::string_view kDocumentRels = "word/_rels/document.xml.rels";
constexpr std::string_view kContentTypes = "[Content_Types].xml";
constexpr std::string_view kStylesPart = "word/styles.xml";
constexpr std::string_view kRelationshipsNamespace =
    "http://schemas.openxmlformats.org/package/2006/relationships";

std::string_view text(const Data& bytes) {
  return asText(bytes);
}

// The relationships of the document part, with their types.
class RelationshipList final : public XmlHandler {
 public:
  RelationshipList() { setWantsCharacters(false); }
  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (name != "Relationship") return;
    const auto id = attributes.get("Id");
    if (!id) return;
    ids.emplace(*id);
    const auto type = attributes.get("Type");
    const auto target = attributes.get("Target");
    const auto mode = attributes.get("TargetMode");
    if (target && mode != "External") {
      targets[std::string(*id)] = std::string(*target);
      if (type && type->ends_with("/image")) images.emplace_back(*id, *target);
    }
  }
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}

  std::set<std::string, std::less<>> ids;
  docx::Relationships targets;
  std::vector<std::pair<std::string, std::string>> images;  // id, target
};

// The default extensions a content types part declares, lower-cased.
class ContentTypeList final : public XmlHandler {
 public:
  ContentTypeList() { setWantsCharacters(false); }
  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (name == "Default") {
      if (const auto extension = attributes.get("Extension")) {
        extensions.insert(text::lowercased(*extension));
      }
    } else if (name == "Override") {
      if (const auto part = attributes.get("PartName")) parts.insert(text::lowercased(*part));
    }
  }
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}

  std::set<std::string> extensions;
  std::set<std::string> parts;
};

template <typename Handler>
Handler parsed(const Data* bytes) {
  Handler handler;
  if (bytes) XmlParser::parse(handler, text(*bytes));
  return handler;
}

// `entries` inserted before the closing tag of the part's root element.
void insertBeforeClose(std::string& part, std::string_view entries) {
  const auto close = part.rfind("</");
  if (close == std::string::npos) throw DocxError::parseFailed("a package part");
  part.insert(close, entries);
}

// The part with the prefix "w" bound to its root element's namespace, which
// is what our markup uses: as it is when the root already binds it so, with
// one more declaration on the root when it uses another prefix ("ns0:"). No
// value when "w" is bound to something else.
std::optional<std::string> withWordPrefix(std::string_view xml) {
  // The first tag that is not a declaration, instruction or comment.
  std::size_t open = xml.find('<');
  while (open != std::string_view::npos && open + 1 < xml.size() &&
         (xml[open + 1] == '?' || xml[open + 1] == '!')) {
    open = xml.find('<', open + 1);
  }
  if (open == std::string_view::npos) return std::nullopt;
  const auto close = xml.find('>', open);
  if (close == std::string_view::npos) return std::nullopt;
  const std::string_view tag = xml.substr(open, close - open);
  const auto nameEnd = tag.find_first_of(" \t\r\n/");
  const std::string_view name =
      tag.substr(1, nameEnd == std::string_view::npos ? tag.size() - 1 : nameEnd - 1);
  const auto colon = name.find(':');
  const std::string prefix(colon == std::string_view::npos ? "" : name.substr(0, colon));
  auto declared = [&](const std::string& attribute) -> std::optional<std::string_view> {
    for (const char quote : {'"', '\''}) {
      const std::string key = " " + attribute + "=" + quote;
      if (const auto at = tag.find(key); at != std::string_view::npos) {
        const auto start = at + key.size();
        const auto end = tag.find(quote, start);
        if (end != std::string_view::npos) return tag.substr(start, end - start);
      }
    }
    return std::nullopt;
  };
  const auto ours = declared(prefix.empty() ? "xmlns" : "xmlns:" + prefix);
  if (prefix == "w") return std::string(xml);
  if (!ours) return std::nullopt;
  if (const auto w = declared("xmlns:w")) {
    if (*w != *ours) return std::nullopt;
    return std::string(xml);
  }
  std::string out(xml);
  out.insert(open + 1 + name.size(), " xmlns:w=\"" + std::string(*ours) + "\"");
  return out;
}

// The package's members in order, every one read: a member that cannot be
// read is not silently dropped from the file.
struct Members {
  std::vector<std::string> order;
  std::map<std::string, Data, std::less<>> bytes;

  const Data* find(std::string_view name) const {
    const auto found = bytes.find(name);
    return found == bytes.end() ? nullptr : &found->second;
  }
};

Members readMembers(Package& package, std::string_view skipped) {
  Members members;
  for (auto& name : package.members()) {
    if (name.ends_with('/') || members.bytes.contains(name)) continue;  // folders are no parts
    if (name == skipped) {
      members.order.push_back(std::move(name));
      continue;
    }
    auto bytes = package.read(name);
    if (!bytes) {
      throw DocxError::unzipFailed(name + " cannot be read, so the file cannot be kept as it is");
    }
    members.bytes.emplace(name, std::move(*bytes));
    members.order.push_back(std::move(name));
  }
  return members;
}

// The largest drawing id a part uses, so that new drawings take fresh ones.
std::int64_t largestDrawingID(std::string_view xml) {
  std::int64_t largest = 0;
  for (std::size_t at = xml.find("docPr "); at != std::string_view::npos;
       at = xml.find("docPr ", at + 1)) {
    const auto close = xml.find('>', at);
    const auto id = xml.substr(at, close == std::string_view::npos ? 0 : close - at).find(" id=\"");
    if (id == std::string_view::npos) continue;
    const char* first = xml.data() + at + id + 5;
    std::int64_t value = 0;
    std::from_chars(first, xml.data() + xml.size(), value);
    largest = std::max(largest, value);
  }
  return largest;
}

// Everything a push changes in the package besides the document and notes
// parts: new pictures and notes parts, with their relationships and content
// types, and styles the file lacks.
class PackageAdditions {
 public:
  PackageAdditions(const Members& members, const RelationshipList& relationships)
      : members_(members), relationships_(relationships) {
    for (const auto& [id, target] : relationships.images) {
      if (const auto* bytes = members.find(docx::memberOfTarget(target))) {
        known_.emplace(text(*bytes), id);
      }
    }
    for (const auto& name : members.order) taken_.insert(text::lowercased(name));
  }

  // The relationship id of a picture with these bytes, added when new.
  std::string relationshipFor(const ImageBlock& image) {
    const std::string_view bytes(reinterpret_cast<const char*>(image.data.data()),
                                 image.data.size());
    if (const auto found = known_.find(bytes); found != known_.end()) return found->second;
    // The picture's own extension when it has a usable one, else png.
    const auto plan = planMedia({&image});
    const auto& planned = plan.members.front().name;
    const auto dot = planned.rfind('.');
    const std::string extension =
        text::lowercased(dot == std::string::npos ? std::string("png") : planned.substr(dot + 1));
    // The picture's own name, which the reader gives back, unless the
    // package has a member of that name.
    std::string name = planned;
    const std::string stem = dot == std::string::npos ? planned : planned.substr(0, dot);
    for (int n = 2; taken_.contains(text::lowercased("word/media/" + name)); ++n) {
      name = stem + "-" + std::to_string(n) + "." + extension;
    }
    taken_.insert(text::lowercased("word/media/" + name));
    const std::string id = freshID();
    media_.push_back({"word/media/" + name, &image.data});
    relationships_entries_ += imageRelationship(id, name);
    extensions_.insert(extension);
    known_.emplace(bytes, id);
    return id;
  }

  void addNotesPart(NoteKind kind) {
    relationships_entries_ += noteRelationship(freshID(), kind);
    notesParts_.push_back(kind);
  }

  // The relationships and content types parts with the additions; no value
  // for a part that stays as it was.
  std::optional<std::string> relationshipsPart() const {
    if (relationships_entries_.empty()) return std::nullopt;
    const auto* old = members_.find(kDocumentRels);
    std::string part = old ? std::string(text(*old))
                           : "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
                             "<Relationships xmlns=\"" +
                                 std::string(kRelationshipsNamespace) + "\"></Relationships>";
    insertBeforeClose(part, relationships_entries_);
    return part;
  }

  std::optional<std::string> contentTypesPart() const {
    const auto* old = members_.find(kContentTypes);
    if (!old) return std::nullopt;
    const auto declared = parsed<ContentTypeList>(old);
    std::string entries;
    for (const auto& extension : extensions_) {
      if (!declared.extensions.contains(extension)) entries += imageDefault(extension);
    }
    for (const auto kind : notesParts_) {
      const auto part = kind == NoteKind::endnote ? "/word/endnotes.xml" : "/word/footnotes.xml";
      if (!declared.parts.contains(part)) entries += noteOverride(kind);
    }
    if (entries.empty()) return std::nullopt;
    std::string part(text(*old));
    insertBeforeClose(part, entries);
    return part;
  }

  const std::vector<std::pair<std::string, const SharedBytes*>>& media() const { return media_; }

 private:
  std::string freshID() {
    std::string id;
    for (int n = 1; id.empty() || relationships_.ids.contains(id) || usedIDs_.contains(id); ++n) {
      id = "rIdInk" + std::to_string(n);
    }
    usedIDs_.insert(id);
    return id;
  }

  const Members& members_;
  const RelationshipList& relationships_;
  std::unordered_map<std::string_view, std::string> known_;  // picture bytes -> relationship id
  std::set<std::string> taken_;
  std::set<std::string> usedIDs_;
  std::string relationships_entries_;
  std::set<std::string> extensions_;
  std::vector<NoteKind> notesParts_;
  std::vector<std::pair<std::string, const SharedBytes*>> media_;
};

// The document part rewritten: the elements whose blocks the story kept,
// byte for byte, and the story's other blocks written around them.
class DocumentRewrite {
 public:
  DocumentRewrite(std::string_view xml, std::string prologue, const DocumentLayout& layout,
                  const std::vector<Block>& story, ReaderView& view, PackageAdditions& additions,
                  MergeEngine::KeyInterner& interner, const std::vector<std::uint32_t>& storyKeys)
      : xml_(xml),
        prologue_(std::move(prologue)),
        layout_(layout),
        story_(story),
        view_(view),
        additions_(additions),
        interner_(interner),
        storyKeys_(storyKeys),
        nextDrawing_(0) {}

  // The new part; `changed` tells whether it differs from the old one in
  // more than the declaration of "w".
  std::string run() {
    match();
    std::string out;
    out.reserve(xml_.size() + xml_.size() / 8);
    if (prologue_ == xml_.substr(0, layout_.body.start)) {
      copy(out, 0, layout_.body.start);
    } else {
      out += prologue_;
    }
    std::size_t nextStory = 0;
    std::size_t previousEnd = layout_.body.start;
    std::vector<std::size_t> gap;
    for (std::size_t e = 0; e < layout_.elements.size(); ++e) {
      const auto& element = layout_.elements[e];
      if (!kept(element)) {
        gap.push_back(e);
        continue;
      }
      const std::size_t first = *storyOfOld_[element.firstBlock];
      writeGap(out, gap, nextStory, first, previousEnd);
      gap.clear();
      // The element with whatever lay between it and the one before.
      copy(out, gapWritten_ ? element.span.start : previousEnd, element.span.end);
      previousEnd = element.span.end;
      nextStory = first + element.blockCount;
    }
    writeGap(out, gap, nextStory, story_.size(), previousEnd);
    copy(out, gapWritten_ ? layout_.body.end : previousEnd, xml_.size());
    flush(out);
    return out;
  }

  bool changed() const { return changed_; }
  // Where the new part repeats the old one.
  const std::vector<CopiedSpan>& copied() const { return copied_; }

 private:
  // Kept bytes are copied in runs as long as possible.
  void copy(std::string& out, std::size_t from, std::size_t to) {
    if (from != copyTo_) flush(out);
    if (copyFrom_ == copyTo_) copyFrom_ = from;
    copyTo_ = to;
  }
  void flush(std::string& out) {
    if (copyTo_ > copyFrom_) copied_.push_back({copyFrom_, copyTo_, out.size()});
    out += xml_.substr(copyFrom_, copyTo_ - copyFrom_);
    copyFrom_ = copyTo_ = 0;
  }

  void pair(std::size_t a, std::size_t b, bool same) {
    storyOfOld_[a] = b;
    oldOfStory_[b] = a;
    same_[a] = same;
  }

  // True when old block `i` and story block `j` differ because a block was
  // inserted or deleted next to them (in the walk's direction), not edited:
  // then the text matching decides, and no paragraph is taken for another.
  bool insertionOrDeletion(std::size_t i, std::size_t j, int step) const {
    const auto& old = layout_.blocks;
    const auto next = [](std::size_t k, int by, std::size_t size) {
      return by > 0 ? (k + 1 < size ? std::optional(k + 1) : std::nullopt)
                    : (k > 0 ? std::optional(k - 1) : std::nullopt);
    };
    const auto nextOld = next(i, step, old.size());
    const auto nextStory = next(j, step, story_.size());
    return (nextStory && old[i].kind == story_[*nextStory].kind) ||
           (nextOld && old[*nextOld].kind == story_[j].kind);
  }

  // Pairs the file's blocks with the story's. Edits in place are found by
  // walking from the start and from the end; between the first insertion
  // or deletion and the last, blocks are matched by their text as the
  // merge matches them.
  void match() {
    const auto& old = layout_.blocks;
    storyOfOld_.assign(old.size(), std::nullopt);
    oldOfStory_.assign(story_.size(), std::nullopt);
    same_.assign(old.size(), false);
    std::size_t i = 0, j = 0;
    while (i < old.size() && j < story_.size()) {
      if (old[i].kind == story_[j].kind) {
        pair(i++, j++, true);
      } else if (!insertionOrDeletion(i, j, +1) &&
                 ((i + 1 == old.size() && j + 1 == story_.size()) ||
                  (i + 1 < old.size() && j + 1 < story_.size() &&
                   old[i + 1].kind == story_[j + 1].kind))) {
        pair(i++, j++, false);  // one block edited
      } else {
        break;
      }
    }
    // The same walk from the end, down to where the first one stopped.
    std::size_t n = old.size(), m = story_.size();
    while (n > i && m > j) {
      if (old[n - 1].kind == story_[m - 1].kind) {
        pair(--n, --m, true);
      } else if (!insertionOrDeletion(n - 1, m - 1, -1) && n - 1 > i && m - 1 > j &&
                 old[n - 2].kind == story_[m - 2].kind) {
        pair(--n, --m, false);
      } else {
        break;
      }
    }
    if (i < n && j < m) {
      const auto oldKeys = interner_.addAll(std::span(old).subspan(i, n - i));
      const auto newKeys = std::span(storyKeys_).subspan(j, m - j);
      for (const auto& [a, b] : MergeEngine::lcsMatchIds(oldKeys, newKeys)) {
        pair(i + a, j + b, old[i + a].kind == story_[j + b].kind);
      }
    }
    elementOfBlock_.assign(layout_.blocks.size(), 0);
    for (std::size_t e = 0; e < layout_.elements.size(); ++e) {
      const auto& element = layout_.elements[e];
      for (std::size_t k = 0; k < element.blockCount; ++k)
        elementOfBlock_[element.firstBlock + k] = e;
      // A framed paragraph (a drop cap) lends its look to nobody.
      if (simpleParagraph(e) && bytesOf(e).find("framePr") == std::string_view::npos) {
        const auto& paragraph = std::get<Paragraph>(layout_.blocks[element.firstBlock].kind);
        byStyle_[paragraph.styleName].push_back(e);
      }
      if (element.name == "tbl") tables_.push_back(e);
    }
  }

  // A paragraph element that reads as one paragraph, perhaps followed by
  // its pictures: one whose properties can serve another paragraph. (One
  // that holds text boxes reads as several.)
  bool simpleParagraph(std::size_t e) const {
    const auto& element = layout_.elements[e];
    if (element.name != "p" || element.blockCount == 0 ||
        !std::holds_alternative<Paragraph>(layout_.blocks[element.firstBlock].kind)) {
      return false;
    }
    for (std::size_t k = 1; k < element.blockCount; ++k) {
      if (!std::holds_alternative<ImageBlock>(layout_.blocks[element.firstBlock + k].kind))
        return false;
    }
    return true;
  }

  bool kept(const BodyElement& element) const {
    if (element.blockCount == 0) return false;
    const auto first = storyOfOld_[element.firstBlock];
    if (!first) return false;
    for (std::size_t k = 0; k < element.blockCount; ++k) {
      const std::size_t block = element.firstBlock + k;
      if (!same_[block] || storyOfOld_[block] != *first + k) return false;
    }
    return true;
  }

  // Writes story blocks [from, to) in place of the gap's old elements. The
  // elements without blocks (bookmarks, the final section properties) stay:
  // those before the gap's last paragraph or table before the new blocks,
  // the others after them, so the section properties stay last.
  void writeGap(std::string& out, const std::vector<std::size_t>& gap, std::size_t from,
                std::size_t to, std::size_t& previousEnd) {
    const bool onlyMarks = std::all_of(
        gap.begin(), gap.end(), [&](std::size_t e) { return layout_.elements[e].blockCount == 0; });
    if (from == to && onlyMarks) {
      // Nothing was written here: the marks stay with the bytes around them.
      if (!gap.empty()) {
        const std::size_t end = layout_.elements[gap.back()].span.end;
        copy(out, previousEnd, end);
        previousEnd = end;
      }
      gapWritten_ = false;
      return;
    }
    gapWritten_ = true;
    changed_ = true;
    flush(out);
    std::size_t lastBearing = gap.size();
    for (std::size_t i = 0; i < gap.size(); ++i) {
      if (layout_.elements[gap[i]].blockCount > 0) lastBearing = i;
    }
    // The gap's old blocks that no story block matched, by kind.
    std::deque<std::size_t> unmatchedOld[3];
    for (const auto e : gap) {
      const auto& element = layout_.elements[e];
      for (std::size_t k = 0; k < element.blockCount; ++k) {
        const std::size_t block = element.firstBlock + k;
        if (!storyOfOld_[block]) unmatchedOld[layout_.blocks[block].kind.index()].push_back(block);
      }
    }
    for (std::size_t i = 0; i < gap.size(); ++i) {
      const auto& element = layout_.elements[gap[i]];
      if (element.blockCount == 0 && lastBearing != gap.size() && i < lastBearing) {
        out += xml_.substr(element.span.start, element.span.size());
      }
    }
    // Blocks the story changed pair with the gap's unmatched old blocks of
    // their kind, in order; where one side has more, paragraphs pair with
    // those that read most alike.
    std::vector<std::optional<std::size_t>> partners(to - from);
    for (std::size_t kind = 0; kind < 3; ++kind) {
      std::vector<std::size_t> changed;
      for (std::size_t j = from; j < to; ++j) {
        if (!oldOfStory_[j] && story_[j].kind.index() == kind) changed.push_back(j);
      }
      const std::vector<std::size_t> old(unmatchedOld[kind].begin(), unmatchedOld[kind].end());
      for (const auto& [j, block] : pairedInOrder(changed, old, kind == 0)) {
        partners[j - from] = block;
      }
    }
    for (std::size_t j = from; j < to; ++j) {
      const auto partner = oldOfStory_[j] ? oldOfStory_[j] : partners[j - from];
      writeBlock(out, story_[j], partner, gap.empty() ? 0 : gap.front());
    }
    for (std::size_t i = 0; i < gap.size(); ++i) {
      const auto& element = layout_.elements[gap[i]];
      if (element.blockCount == 0 && (lastBearing == gap.size() || i > lastBearing)) {
        out += xml_.substr(element.span.start, element.span.size());
      }
    }
  }

  // Pairs story blocks with old blocks, both in order, as many as can be;
  // among the ways to leave the extra ones out, paragraphs take the one
  // whose pairs share the most text at their starts and ends. (In order
  // from the front when the choice would take too long to weigh.)
  std::vector<std::pair<std::size_t, std::size_t>> pairedInOrder(
      const std::vector<std::size_t>& story, const std::vector<std::size_t>& old,
      bool paragraphs) const {
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    const std::size_t n = story.size(), m = old.size();
    if (!paragraphs || n == m || n == 0 || m == 0 || n * m > 250'000) {
      for (std::size_t i = 0; i < std::min(n, m); ++i) pairs.emplace_back(story[i], old[i]);
      return pairs;
    }
    std::vector<std::string> storyText(n), oldText(m);
    for (std::size_t i = 0; i < n; ++i)
      storyText[i] = std::get<Paragraph>(story_[story[i]].kind).text();
    for (std::size_t k = 0; k < m; ++k) {
      oldText[k] = std::get<Paragraph>(layout_.blocks[old[k]].kind).text();
    }
    const auto alike = [&](std::size_t i, std::size_t k) -> std::uint64_t {
      const std::string& a = storyText[i];
      const std::string& b = oldText[k];
      // A rough measure: no more than a line's worth from each end.
      const std::size_t shortest = std::min({a.size(), b.size(), std::size_t{256}});
      std::size_t prefix = 0;
      while (prefix < shortest && a[prefix] == b[prefix]) ++prefix;
      std::size_t suffix = 0;
      while (suffix < shortest - prefix && a[a.size() - 1 - suffix] == b[b.size() - 1 - suffix]) {
        ++suffix;
      }
      return prefix + suffix;
    };
    // Every pair first counts far more than any text can.
    constexpr std::uint64_t kPair = std::uint64_t{1} << 40;
    std::vector<std::uint64_t> best((n + 1) * (m + 1), 0);
    const auto at = [&](std::size_t i, std::size_t k) -> std::uint64_t& {
      return best[i * (m + 1) + k];
    };
    for (std::size_t i = 1; i <= n; ++i) {
      for (std::size_t k = 1; k <= m; ++k) {
        at(i, k) =
            std::max({at(i - 1, k), at(i, k - 1), at(i - 1, k - 1) + kPair + alike(i - 1, k - 1)});
      }
    }
    for (std::size_t i = n, k = m; i > 0 && k > 0;) {
      if (at(i, k) == at(i - 1, k)) {
        --i;
      } else if (at(i, k) == at(i, k - 1)) {
        --k;
      } else {
        pairs.emplace_back(story[i - 1], old[k - 1]);
        --i;
        --k;
      }
    }
    return pairs;
  }

  std::string_view bytesOf(std::size_t element) const {
    const auto& span = layout_.elements[element].span;
    return xml_.substr(span.start, span.size());
  }

  // The old paragraph an element holds, read once.
  const OldParagraph* oldParagraph(std::size_t element) {
    auto found = paragraphs_.find(element);
    if (found == paragraphs_.end()) {
      found =
          paragraphs_
              .emplace(element, simpleParagraph(element) ? readOldParagraph(bytesOf(element), view_)
                                                         : std::nullopt)
              .first;
    }
    return found->second ? &*found->second : nullptr;
  }

  // The paragraph element of this style nearest to `near`, earlier ones first.
  std::optional<std::size_t> neighbour(const std::string& style, std::size_t near) const {
    const auto found = byStyle_.find(style);
    if (found == byStyle_.end() || found->second.empty()) return std::nullopt;
    const auto& list = found->second;
    const auto after = std::upper_bound(list.begin(), list.end(), near);
    if (after != list.begin()) return *std::prev(after);
    return list.front();
  }

  void writeBlock(std::string& out, const Block& block, std::optional<std::size_t> partner,
                  std::size_t near) {
    const std::optional<std::size_t> element =
        partner ? std::optional<std::size_t>(elementOfBlock_.at(*partner)) : std::nullopt;
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      // The paragraph it replaces, when that was a paragraph element of its own.
      if (element && simpleParagraph(*element) &&
          layout_.elements[*element].firstBlock == *partner) {
        appendRewritten(out, *paragraph, oldParagraph(*element), Kinship::replaced, view_);
        return;
      }
      const auto lender = neighbour(paragraph->styleName, element.value_or(near));
      appendRewritten(out, *paragraph, lender ? oldParagraph(*lender) : nullptr, Kinship::neighbour,
                      view_);
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      if (element && layout_.elements[*element].name == "tbl") {
        const auto* old = std::get_if<Table>(&layout_.blocks[*partner].kind);
        if (old && patchTable(out, *table, *old, bytesOf(*element))) return;
      }
      std::optional<std::size_t> model;
      if (element && layout_.elements[*element].name == "tbl") {
        model = element;
      } else if (!tables_.empty()) {
        model = tables_.front();
      }
      writeTable(out, *table, model ? bytesOf(*model) : std::string_view{});
    } else {
      const auto& image = std::get<ImageBlock>(block.kind);
      MediaMember member{.name = image.name,
                         .data = &image.data,
                         .relationshipID = additions_.relationshipFor(image),
                         .extent = imageExtent(image.data)};
      // New drawings take ids above every one the part uses.
      if (nextDrawing_ == 0) nextDrawing_ = largestDrawingID(xml_) + 1;
      appendImage(out, member, static_cast<std::size_t>(nextDrawing_++), true);
    }
  }

  // The cells' paragraphs, each rewritten on the old cell's paragraphs.
  void writeCellContent(std::string& out, const TableCell& cell, const XmlFragment* fragment,
                        const XmlNode* oldCell) {
    std::vector<std::optional<OldParagraph>> old;
    if (fragment && oldCell) {
      for (const int index : oldCell->children) {
        const auto& node = fragment->node(index);
        if (node.name == "p") old.push_back(readOldParagraph(fragment->bytes(node), view_));
      }
    }
    for (std::size_t k = 0; k < cell.paragraphs.size(); ++k) {
      const OldParagraph* model = nullptr;
      if (!old.empty()) {
        const auto& chosen = old[std::min(k, old.size() - 1)];
        model = chosen ? &*chosen : nullptr;
      }
      appendRewritten(out, cell.paragraphs[k], model,
                      k < old.size() ? Kinship::replaced : Kinship::neighbour, view_);
    }
    // Word refuses a cell without a paragraph.
    if (cell.paragraphs.empty()) out += "<w:p></w:p>";
  }

  // A table of the same shape keeps everything but the cells that changed,
  // and those keep their cell properties. False when the shapes differ.
  bool patchTable(std::string& out, const Table& table, const Table& old, std::string_view xml) {
    const auto fragment = XmlFragment::parse(xml);
    if (!fragment || table.rows.size() != old.rows.size()) return false;
    std::vector<std::vector<const XmlNode*>> cells;
    for (const int index : fragment->root().children) {
      const auto& row = fragment->node(index);
      if (row.name != "tr") continue;
      auto& list = cells.emplace_back();
      for (const int cell : row.children) {
        if (fragment->node(cell).name == "tc") list.push_back(&fragment->node(cell));
      }
    }
    if (cells.size() != old.rows.size()) return false;
    for (std::size_t r = 0; r < cells.size(); ++r) {
      if (cells[r].size() != old.rows[r].size() || table.rows[r].size() != old.rows[r].size()) {
        return false;
      }
    }
    std::size_t copied = 0;
    for (std::size_t r = 0; r < cells.size(); ++r) {
      for (std::size_t c = 0; c < cells[r].size(); ++c) {
        if (table.rows[r][c] == old.rows[r][c]) continue;
        const auto& node = *cells[r][c];
        out += xml.substr(copied, node.start - copied);
        out += "<w:tc>";
        if (const auto* properties = fragment->child(node, "tcPr"))
          out += fragment->bytes(*properties);
        writeCellContent(out, table.rows[r][c], &*fragment, &node);
        out += "</w:tc>";
        copied = node.end;
      }
    }
    out += xml.substr(copied);
    return true;
  }

  // A table of another shape: the model table's own properties, our cells.
  void writeTable(std::string& out, const Table& table, std::string_view model) {
    const auto fragment = model.empty() ? std::nullopt : XmlFragment::parse(model);
    const auto* properties = fragment ? fragment->child(fragment->root(), "tblPr") : nullptr;
    if (!properties) {
      appendTable(out, table);  // rewritten below only in its paragraphs' styles
      return;
    }
    out += "<w:tbl>";
    out += fragment->bytes(*properties);
    for (const auto& row : table.rows) {
      out += "<w:tr>";
      for (const auto& cell : row) {
        out += "<w:tc><w:tcPr><w:tcW w:w=\"0\" w:type=\"auto\"/></w:tcPr>";
        writeCellContent(out, cell, nullptr, nullptr);
        out += "</w:tc>";
      }
      out += "</w:tr>";
    }
    out += "</w:tbl>";
  }

  std::string_view xml_;
  std::string prologue_;  // up to and with <w:body>
  const DocumentLayout& layout_;
  const std::vector<Block>& story_;
  ReaderView& view_;
  PackageAdditions& additions_;
  MergeEngine::KeyInterner& interner_;
  const std::vector<std::uint32_t>& storyKeys_;
  std::int64_t nextDrawing_;
  std::vector<std::optional<std::size_t>> storyOfOld_, oldOfStory_;
  std::vector<bool> same_;
  std::vector<std::size_t> elementOfBlock_;
  std::size_t copyFrom_ = 0, copyTo_ = 0;
  std::vector<CopiedSpan> copied_;
  bool changed_ = false;
  std::map<std::string, std::vector<std::size_t>, std::less<>> byStyle_;
  std::vector<std::size_t> tables_;
  std::map<std::size_t, std::optional<OldParagraph>> paragraphs_;
  bool gapWritten_ = false;
};

// A notes part rewritten note by note: unchanged notes and the separators
// byte for byte, changed ones on their old paragraphs, new ones on the
// first note's.
std::string rewriteNotes(std::string_view xml, std::string_view prologue, const NotesLayout& layout,
                         const std::vector<Footnote>& notes, NoteKind kind, ReaderView& view) {
  std::map<std::int64_t, std::size_t> elementOf;
  std::map<std::int64_t, const Footnote*> oldNote;
  for (std::size_t i = 0; i < layout.notes.size(); ++i) {
    if (layout.notes[i].number && !layout.notes[i].separator) {
      elementOf.emplace(*layout.notes[i].number, i);
    }
  }
  for (const auto& note : layout.footnotes) oldNote.emplace(note.id, &note);

  std::string out(prologue);
  for (const auto& element : layout.notes) {
    if (element.separator || !element.number)
      out += xml.substr(element.span.start, element.span.size());
  }
  const auto firstNote =
      elementOf.empty() ? std::nullopt : std::optional<std::size_t>(elementOf.begin()->second);
  const std::string_view name = kind == NoteKind::endnote ? "endnote" : "footnote";
  for (const auto& note : notes) {
    const auto element = elementOf.find(note.id);
    const auto old = oldNote.find(note.id);
    if (element != elementOf.end() && old != oldNote.end() && *old->second == note) {
      const auto& span = layout.notes[element->second].span;
      out += xml.substr(span.start, span.size());
      continue;
    }
    // The old note's paragraphs, or the first note's for a new one.
    const bool replaced = element != elementOf.end();
    std::vector<std::optional<OldParagraph>> paragraphs;
    const auto modelElement = replaced ? std::optional<std::size_t>(element->second) : firstNote;
    if (modelElement) {
      const auto& span = layout.notes[*modelElement].span;
      if (const auto fragment = XmlFragment::parse(xml.substr(span.start, span.size()))) {
        for (const int index : fragment->root().children) {
          const auto& node = fragment->node(index);
          if (node.name == "p") paragraphs.push_back(readOldParagraph(fragment->bytes(node), view));
        }
      }
    }
    std::string mark;
    if (!paragraphs.empty() && paragraphs.front()) mark = paragraphs.front()->noteMark;
    if (mark.empty()) {
      mark = kind == NoteKind::endnote
                 ? "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:endnoteRef/></w:r>"
                 : "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:footnoteRef/></w:r>";
    }
    out += "<w:" + std::string(name) + " w:id=\"";
    out += std::to_string(kind == NoteKind::endnote ? note.id - kEndnoteOffset : note.id);
    out += "\">";
    if (note.paragraphs.empty()) out += "<w:p>" + mark + "</w:p>";
    for (std::size_t k = 0; k < note.paragraphs.size(); ++k) {
      const OldParagraph* model = nullptr;
      if (!paragraphs.empty()) {
        const auto& chosen = paragraphs[std::min(k, paragraphs.size() - 1)];
        model = chosen ? &*chosen : nullptr;
      }
      const auto kinship =
          replaced && k < paragraphs.size() ? Kinship::replaced : Kinship::neighbour;
      appendRewritten(out, note.paragraphs[k], model, kinship, view,
                      k == 0 ? std::string_view(mark) : std::string_view{});
    }
    out += "</w:" + std::string(name) + ">";
  }
  out += xml.substr(layout.content.end);
  return out;
}

// The style definitions a push needs that the file lacks.
std::string addedStyles(const ReaderView& view) {
  std::string out;
  for (const auto& [id, name] : view.addedStyles()) {
    out += "<w:style w:type=\"paragraph\" w:customStyle=\"1\" w:styleId=\"";
    appendEscaped(out, id, XmlContext::attribute);
    out += "\"><w:name w:val=\"";
    appendEscaped(out, name, XmlContext::attribute);
    out += "\"/></w:style>";
  }
  return out;
}

// Chunks of the document part inflating on one thread, parsed on another
// up to a split that the first thread sets once it holds the whole part.
class ChunkPipe {
 public:
  void push(std::string_view chunk) {
    std::lock_guard lock(mutex_);
    chunks_.emplace_back(chunk);
    ready_.notify_one();
  }
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    ready_.notify_one();
  }
  // Sets the split to `choose(bytes handed out so far)`, which must not be less.
  std::size_t split(const std::function<std::size_t(std::size_t)>& choose) {
    std::lock_guard lock(mutex_);
    split_ = choose(popped_);
    ready_.notify_one();
    return split_;
  }
  // The next chunk, cut at the split; no value past the split or at the end.
  std::optional<std::string> pop() {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [&] { return closed_ || !chunks_.empty() || popped_ >= split_; });
    if (chunks_.empty() || popped_ >= split_) return std::nullopt;
    std::string chunk = std::move(chunks_.front());
    chunks_.pop_front();
    if (chunk.size() > split_ - popped_) chunk.resize(split_ - popped_);
    popped_ += chunk.size();
    return chunk;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::string> chunks_;
  std::size_t popped_ = 0;
  std::size_t split_ = std::string::npos;
  bool closed_ = false;
};

// Where the part may be cut between two body elements, at or after `from`:
// just after a paragraph or table that ends where another element starts.
// Only a guess, which the parse of the first piece confirms or refutes.
std::size_t boundaryAfter(std::string_view xml, std::size_t from) {
  for (std::size_t at = xml.find("</w:", from); at != std::string_view::npos;
       at = xml.find("</w:", at + 4)) {
    const auto tag = xml.substr(at + 4, 4);
    if (!tag.starts_with("p>") && !tag.starts_with("tbl>")) continue;
    const std::size_t end = xml.find('>', at) + 1;
    const auto next = xml.find_first_not_of(" \t\r\n", end);
    if (next != std::string_view::npos && xml.substr(next, 4) == "<w:p") return end;
  }
  return std::string_view::npos;
}

constexpr std::string_view kBodyOpening = "<w:document><w:body>";

}  // namespace

void update(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
            const std::filesystem::path& destination, const StyleMap& styleMap) {
  Package package(destination);
  // A file that is there but cannot be read is not written over.
  if (package.openError() && package.openError() != std::errc::no_such_file_or_directory) {
    package.checkOpened();
  }
  if (!package.opened() || !package.has(kDocumentPart)) {
    write(blocks, footnotes, destination);
    return;
  }
  const auto stylesBytes = package.read(kStylesPart);
  const auto relationshipsBytes = package.read(kDocumentRels);
  const auto styles = parsed<docx::StylesParser>(stylesBytes ? &*stylesBytes : nullptr);
  const auto relationships =
      parsed<RelationshipList>(relationshipsBytes ? &*relationshipsBytes : nullptr);

  // The document part inflates on a second thread while this one parses
  // it. Once inflated, the second thread reads its last three tenths itself,
  // then every other part, and numbers the story's blocks.
  ChunkPipe pipe;
  std::string document;
  std::size_t split = std::string::npos;
  std::optional<DocumentLayout> secondPiece;
  DeflateBlocks oldBlocks;
  Members members;
  MergeEngine::KeyInterner interner;
  std::vector<std::uint32_t> storyKeys;
  std::exception_ptr sideError;
  std::jthread side([&] {
    try {
      Package own(destination);
      // Parts are read through both openings and kept parts copied from the
      // first: a file saved over in between would mix two versions.
      if (!own.sameFileAs(package)) {
        throw DocxError::unzipFailed(destination.filename().string() +
                                     " changed while it was being read; nothing was written");
      }
      own.stream(
          kDocumentPart,
          [&](std::string_view chunk) {
            document += chunk;
            pipe.push(chunk);
          },
          oldBlocks);
      split = pipe.split([&](std::size_t handedOut) {
        return boundaryAfter(document, std::max(handedOut, document.size() / 10 * 7));
      });
      pipe.close();
      if (split != std::string::npos) {
        ImportBudget ownBudget;
        DocumentScanner scanner(
            styles.map, styleMap,
            [&](std::string_view id) { return docx::loadImage(own, relationships.targets, id); },
            ownBudget);
        scanner.feed(kBodyOpening);
        scanner.feed(std::string_view(document).substr(split));
        secondPiece = scanner.finish();
      }
      members = readMembers(own, kDocumentPart);
      storyKeys = interner.addAll(blocks);
    } catch (...) {
      sideError = std::current_exception();
      pipe.close();
    }
  });

  ImportBudget budget;
  DocumentScanner scanner(
      styles.map, styleMap,
      [&](std::string_view id) { return docx::loadImage(package, relationships.targets, id); },
      budget);
  try {
    while (auto chunk = pipe.pop()) scanner.feed(*chunk);
  } catch (...) {
    // Let the other thread finish before the error leaves.
    while (pipe.pop()) {
    }
    throw;
  }
  side.join();
  if (sideError) std::rethrow_exception(sideError);
  std::optional<DocumentLayout> layout;
  if (secondPiece && scanner.betweenBodyElements()) {
    layout = scanner.takeSoFar();
    const std::size_t shift = split - kBodyOpening.size();
    const std::size_t firstBlocks = layout->blocks.size();
    for (auto& element : secondPiece->elements) {
      element.span.start += shift;
      element.span.end += shift;
      element.firstBlock += firstBlocks;
      layout->elements.push_back(std::move(element));
    }
    std::move(secondPiece->blocks.begin(), secondPiece->blocks.end(),
              std::back_inserter(layout->blocks));
    layout->body.end = secondPiece->body.end + shift;
  } else {
    // The cut was not between two body elements: the first parse reads on.
    if (split != std::string::npos) scanner.feed(std::string_view(document).substr(split));
    layout = scanner.finish();
  }
  if (!layout) throw DocxError::parseFailed(std::string(kDocumentPart));
  auto prologue = withWordPrefix(std::string_view(document).substr(0, layout->body.start));
  if (!prologue) {
    // Our markup needs the prefix "w"; a part that gives it another meaning
    // cannot take it, so the package is written afresh.
    write(blocks, footnotes, destination);
    return;
  }

  ReaderView view(styles.map, styles.paragraphIDs, styleMap);
  PackageAdditions additions(members, relationships);
  std::map<std::string, std::string, std::less<>> replaced;
  DocumentRewrite rewrite(document, std::move(*prologue), *layout, blocks, view, additions,
                          interner, storyKeys);
  auto rewritten = rewrite.run();
  // A part that comes out as it went in stays as it was, without even the
  // declaration of "w".
  if (rewrite.changed()) replaced.emplace(kDocumentPart, std::move(rewritten));

  std::vector<Footnote> notesOf[2];
  for (const auto& note : footnotes) notesOf[isEndnote(note.id) ? 1 : 0].push_back(note);
  for (const auto kind : {NoteKind::footnote, NoteKind::endnote}) {
    const bool endnote = kind == NoteKind::endnote;
    const std::string part = endnote ? "word/endnotes.xml" : "word/footnotes.xml";
    const auto& notes = notesOf[endnote ? 1 : 0];
    if (const auto* old = members.find(part)) {
      const auto notesLayout =
          scanNotes(text(*old), endnote ? "endnote" : "footnote", endnote ? kEndnoteOffset : 0,
                    styles.map, styleMap, budget);
      if (!notesLayout) throw DocxError::parseFailed(part);
      if (notesLayout->footnotes == notes) continue;
      const auto notesPrologue = withWordPrefix(text(*old).substr(0, notesLayout->content.start));
      if (!notesPrologue) throw DocxError::parseFailed(part);
      replaced.emplace(part,
                       rewriteNotes(text(*old), *notesPrologue, *notesLayout, notes, kind, view));
    } else if (!notes.empty()) {
      replaced.emplace(part, notesXml(notes, kind));
      additions.addNotesPart(kind);
    }
  }
  if (const auto extra = addedStyles(view); !extra.empty() && stylesBytes) {
    std::string part(text(*stylesBytes));
    insertBeforeClose(part, extra);
    replaced.emplace(kStylesPart, std::move(part));
  }
  if (auto part = additions.relationshipsPart()) replaced[std::string(kDocumentRels)] = *part;
  if (auto part = additions.contentTypesPart()) replaced[std::string(kContentTypes)] = *part;

  // A file that already holds the story is left alone, its time included.
  if (replaced.empty() && additions.media().empty()) return;

  std::vector<PackageMember> out;
  for (const auto& name : members.order) {
    const auto changed = replaced.find(name);
    if (changed == replaced.end()) {
      // A kept part keeps its compressed bytes too.
      out.push_back({.path = name,
                     .bytes = name == kDocumentPart ? document : text(members.bytes.at(name)),
                     .unchangedIn = &package});
    } else if (name == kDocumentPart) {
      // Its unchanged stretches keep their compressed form.
      out.push_back(
          {.path = name, .bytes = changed->second, .old = &oldBlocks, .copied = rewrite.copied()});
    } else {
      out.push_back({name, changed->second});
    }
  }
  for (const auto& [name, bytes] : replaced) {
    if (!members.find(name) && name != kDocumentPart) out.push_back({name, bytes});
  }
  for (const auto& [name, data] : additions.media()) out.push_back({name, asText(*data)});
  ZipTool::writePackage(out, destination);
}

}  // namespace inkharbour::DocxWriter
