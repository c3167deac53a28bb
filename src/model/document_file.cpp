// Encoding and saving the document file. Decoding lives in
// document_decoder.cpp.
#include "model/document_file.h"

#include "model/atomic_file.h"
#include "model/document_json.h"

namespace inkharbour::DocumentFile {

namespace fs = std::filesystem;

std::string encode(const ProjectDocument& document) {
  JsonWriter json;
  json.reserve(DocumentJson::sizeHint(document));
  DocumentJson::write(json, document);
  return json.take();
}

void write(const ProjectDocument& document, const fs::path& path) {
  // A save that was killed leaves its temporary file; this one removes it.
  writeFileAtomically(path, encode(document));
}

}  // namespace inkharbour::DocumentFile
