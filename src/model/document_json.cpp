#include "model/document_json.h"

namespace inkharbour::DocumentJson {

void write(JsonWriter& json, const ChangeRecord& record) {
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

void write(JsonWriter& json, const ConflictNote& note) {
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

}  // namespace inkharbour::DocumentJson
