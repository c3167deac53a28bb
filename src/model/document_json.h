// The document file's JSON form of model values. Keys are the model's field
// names, sorted; dates are seconds since 2001-01-01; ids upper-case UUIDs;
// optional values are left out when absent.
#pragma once

#include "model/json_writer.h"
#include "model/story.h"

namespace inkharbour::DocumentJson {

void write(JsonWriter& json, const ChangeRecord& record);
void write(JsonWriter& json, const ConflictNote& note);

}  // namespace inkharbour::DocumentJson
