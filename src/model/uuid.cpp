#include "model/uuid.h"

#include <uuid/uuid.h>

#include <cstring>

namespace inkharbour {

Uuid Uuid::random() {
  Uuid id;
  uuid_generate_random(id.bytes.data());
  return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  // uuid_parse accepts exactly the 36-character hyphenated form, in any case.
  if (text.size() != 36) return std::nullopt;
  char buffer[37];
  std::memcpy(buffer, text.data(), 36);
  buffer[36] = '\0';
  Uuid id;
  if (uuid_parse(buffer, id.bytes.data()) != 0) return std::nullopt;
  return id;
}

std::string Uuid::string() const {
  char buffer[37];
  uuid_unparse_upper(bytes.data(), buffer);
  return std::string(buffer, 36);
}

}  // namespace inkharbour
