// The document file's JSON form of model values. Keys are the model's field
// names, sorted; dates are seconds since 2001-01-01; ids upper-case UUIDs;
// image bytes standard base64 with padding; enumerations their case names;
// optional values are left out when absent. A block is {"id", "kind"} where
// "kind" holds one key naming the alternative ("paragraph", "table" or
// "image") whose value is {"_0": payload}.
#pragma once

#include "model/json_writer.h"
#include "model/story.h"

namespace inkharbour::DocumentJson {

void write(JsonWriter& json, const ProjectDocument& document);
void write(JsonWriter& json, const Story& story);
void write(JsonWriter& json, const StoryLink& link);
void write(JsonWriter& json, const Block& block);
void write(JsonWriter& json, const Paragraph& paragraph);
void write(JsonWriter& json, const TextRun& run);
void write(JsonWriter& json, const Table& table);
void write(JsonWriter& json, const TableCell& cell);
void write(JsonWriter& json, const ImageBlock& image);
void write(JsonWriter& json, const Footnote& footnote);
void write(JsonWriter& json, const ChangeRecord& record);
void write(JsonWriter& json, const ConflictNote& note);

// The number of bytes `document` encodes to, escapes not counted: never more
// than the encoded size, and short of it only by the escapes in its text.
// Counted without encoding, in a small fraction of the time.
std::size_t leastSize(const ProjectDocument& document);

// About the number of bytes a document of the given leastSize() encodes to,
// a little more rather than less: enough to reserve the output once.
std::size_t sizeHint(std::size_t leastSize);

}  // namespace inkharbour::DocumentJson
