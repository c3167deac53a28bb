#include "model/document_json.h"

#include <charconv>
#include <cmath>
#include <string>
#include <type_traits>


namespace inkharbour::DocumentJson {

namespace {

// Counts what JsonWriter would write for the same calls, laid out the same
// way, without writing it: a save reserves the whole text up front instead of
// copying it each time it outgrows its buffer, which measured a third of the
// encoding time of a large document. Escapes are not counted, so the count
// is slightly low for text with quotes or slashes, and never high.
class SizeCounter {
 public:
  void beginObject() { open(); }
  void endObject() { close(); }
  void beginArray() { open(); }
  void endArray() { close(); }
  void key(std::string_view name) {
    beforeValue();
    bytes_ += name.size() + 5;  // "name" :_
    afterKey_ = true;
  }
  void string(std::string_view value) { stringOfSize(value.size()); }
  void stringOfSize(std::size_t size) {
    beforeValue();
    bytes_ += size + 2;
  }
  void number(double value) {
    beforeValue();
    if (!std::isfinite(value)) value = 0;  // as JsonWriter writes it
    char buffer[32];
    bytes_ += static_cast<std::size_t>(std::to_chars(buffer, buffer + sizeof buffer, value).ptr - buffer);
  }
  void integer(std::int64_t value) {
    beforeValue();
    char buffer[24];
    bytes_ += static_cast<std::size_t>(std::to_chars(buffer, buffer + sizeof buffer, value).ptr - buffer);
  }
  void boolean(bool value) {
    beforeValue();
    bytes_ += value ? 4 : 5;
  }

  std::size_t bytes() const { return bytes_; }

 private:
  void open() {
    beforeValue();
    ++bytes_;
    hasMembers_.push_back(false);
  }
  void close() {
    const bool any = hasMembers_.back();
    hasMembers_.pop_back();
    if (any) bytes_ += 1 + 2 * hasMembers_.size();
    ++bytes_;
  }
  void beforeValue() {
    if (afterKey_) {
      afterKey_ = false;
      return;
    }
    if (hasMembers_.empty()) return;
    if (hasMembers_.back()) ++bytes_;
    hasMembers_.back() = true;
    bytes_ += 1 + 2 * hasMembers_.size();
  }

  std::size_t bytes_ = 0;
  std::vector<bool> hasMembers_;
  bool afterKey_ = false;
};

// One encoder for both: JsonWriter writes, SizeCounter counts.
template <typename Json> void put(Json& json, const ProjectDocument& document);
template <typename Json> void put(Json& json, const Story& story);
template <typename Json> void put(Json& json, const StoryLink& link);
template <typename Json> void put(Json& json, const Block& block);
template <typename Json> void put(Json& json, const Paragraph& paragraph);
template <typename Json> void put(Json& json, const TextRun& run);
template <typename Json> void put(Json& json, const Table& table);
template <typename Json> void put(Json& json, const TableCell& cell);
template <typename Json> void put(Json& json, const ImageBlock& image);
template <typename Json> void put(Json& json, const Footnote& footnote);
template <typename Json> void put(Json& json, const ChangeRecord& record);
template <typename Json> void put(Json& json, const ConflictNote& note);

template <typename Json, typename T>
void putArray(Json& json, const std::vector<T>& values) {
  json.beginArray();
  for (const auto& value : values) put(json, value);
  json.endArray();
}

// {"<alternative>" : {"_0" : payload}}, the stored form of one Block::Kind.
template <typename Json, typename Payload>
void putKind(Json& json, std::string_view alternative, const Payload& payload) {
  json.beginObject();
  json.key(alternative);
  json.beginObject();
  json.key("_0");
  put(json, payload);
  json.endObject();
  json.endObject();
}

template <typename Json>
void put(Json& json, const ProjectDocument& document) {
  json.beginObject();
  if (document.documentFolder) {
    json.key("documentFolder");
    json.string(*document.documentFolder);
  }
  json.key("stories");
  putArray(json, document.stories);
  json.key("styleMap");
  json.beginObject();
  // The map's order is byte order, which is the sorted key order.
  for (const auto& [wordStyle, style] : document.styleMap) {
    json.key(wordStyle);
    json.string(style);
  }
  json.endObject();
  json.endObject();
}

template <typename Json>
void put(Json& json, const Story& story) {
  json.beginObject();
  json.key("blocks");
  putArray(json, story.blocks);
  json.key("footnotes");
  putArray(json, story.footnotes);
  json.key("id");
  json.string(story.id.string());
  json.key("lastMergeReport");
  putArray(json, story.lastMergeReport);
  if (story.link) {
    json.key("link");
    put(json, *story.link);
  }
  json.key("name");
  json.string(story.name);
  json.key("notes");
  putArray(json, story.notes);
  json.endObject();
}

template <typename Json>
void put(Json& json, const StoryLink& link) {
  json.beginObject();
  json.key("baseBlocks");
  putArray(json, link.baseBlocks);
  json.key("baseFootnotes");
  putArray(json, link.baseFootnotes);
  json.key("kind");
  json.string(name(link.kind));
  json.key("lastSync");
  json.number(link.lastSync);
  json.key("path");
  json.string(link.path);
  json.endObject();
}

template <typename Json>
void put(Json& json, const Block& block) {
  json.beginObject();
  json.key("id");
  json.string(block.id.string());
  json.key("kind");
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
    putKind(json, "paragraph", *paragraph);
  } else if (const auto* table = std::get_if<Table>(&block.kind)) {
    putKind(json, "table", *table);
  } else {
    putKind(json, "image", std::get<ImageBlock>(block.kind));
  }
  json.endObject();
}

template <typename Json>
void put(Json& json, const Paragraph& paragraph) {
  json.beginObject();
  json.key("runs");
  putArray(json, paragraph.runs);
  json.key("styleName");
  json.string(paragraph.styleName);
  json.endObject();
}

template <typename Json>
void put(Json& json, const TextRun& run) {
  json.beginObject();
  json.key("bold");
  json.boolean(run.bold);
  if (run.colorHex) {
    json.key("colorHex");
    json.string(*run.colorHex);
  }
  if (run.footnoteID) {
    json.key("footnoteID");
    json.integer(*run.footnoteID);
  }
  json.key("italic");
  json.boolean(run.italic);
  json.key("script");
  json.string(name(run.script));
  json.key("smallCaps");
  json.boolean(run.smallCaps);
  json.key("strikethrough");
  json.boolean(run.strikethrough);
  json.key("text");
  json.string(run.text);
  json.key("underline");
  json.boolean(run.underline);
  json.endObject();
}

template <typename Json>
void put(Json& json, const Table& table) {
  json.beginObject();
  json.key("rows");
  json.beginArray();
  for (const auto& row : table.rows) putArray(json, row);
  json.endArray();
  json.endObject();
}

template <typename Json>
void put(Json& json, const TableCell& cell) {
  json.beginObject();
  json.key("paragraphs");
  putArray(json, cell.paragraphs);
  json.endObject();
}

template <typename Json>
void put(Json& json, const ImageBlock& image) {
  json.beginObject();
  json.key("data");
  if constexpr (std::is_same_v<Json, SizeCounter>) {
    json.stringOfSize((image.data.size() + 2) / 3 * 4);
  } else {
    json.base64(image.data);
  }
  json.key("name");
  json.string(image.name);
  json.endObject();
}

template <typename Json>
void put(Json& json, const Footnote& footnote) {
  json.beginObject();
  json.key("id");
  json.integer(footnote.id);
  json.key("paragraphs");
  putArray(json, footnote.paragraphs);
  json.endObject();
}

template <typename Json>
void put(Json& json, const ChangeRecord& record) {
  json.beginObject();
  if (record.externalText) {
    json.key("externalText");
    json.string(*record.externalText);
  }
  json.key("id");
  json.string(record.id.string());
  json.key("kind");
  json.string(name(record.kind));
  if (record.localText) {
    json.key("localText");
    json.string(*record.localText);
  }
  json.key("summary");
  json.string(record.summary);
  json.endObject();
}

template <typename Json>
void put(Json& json, const ConflictNote& note) {
  json.beginObject();
  json.key("date");
  json.number(note.date);
  json.key("externalText");
  json.string(note.externalText);
  json.key("id");
  json.string(note.id.string());
  json.key("localText");
  json.string(note.localText);
  json.key("paragraphIndex");
  json.integer(note.paragraphIndex);
  json.endObject();
}

}  // namespace

std::size_t leastSize(const ProjectDocument& document) {
  SizeCounter counter;
  put(counter, document);
  return counter.bytes();
}

std::size_t sizeHint(std::size_t leastSize) {
  // Room for escapes: "\/" in base64 (one character in 64) and in paths, and
  // the odd quote.
  return leastSize + leastSize / 32 + 4096;
}

void write(JsonWriter& json, const ProjectDocument& document) { put(json, document); }
void write(JsonWriter& json, const Story& story) { put(json, story); }
void write(JsonWriter& json, const StoryLink& link) { put(json, link); }
void write(JsonWriter& json, const Block& block) { put(json, block); }
void write(JsonWriter& json, const Paragraph& paragraph) { put(json, paragraph); }
void write(JsonWriter& json, const TextRun& run) { put(json, run); }
void write(JsonWriter& json, const Table& table) { put(json, table); }
void write(JsonWriter& json, const TableCell& cell) { put(json, cell); }
void write(JsonWriter& json, const ImageBlock& image) { put(json, image); }
void write(JsonWriter& json, const Footnote& footnote) { put(json, footnote); }
void write(JsonWriter& json, const ChangeRecord& record) { put(json, record); }
void write(JsonWriter& json, const ConflictNote& note) { put(json, note); }

}  // namespace inkharbour::DocumentJson
