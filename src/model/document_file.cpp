// Encoding and saving the document file. Decoding lives in
// document_decoder.cpp.
#include "model/document_file.h"

#include "model/atomic_file.h"
#include "model/document_json.h"

namespace inkharbour::DocumentFile {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void tooLarge() {
  throw DocumentError(
      "The document cannot be saved: its file would be larger than 4 GiB, the most that can be "
      "opened again.");
}

}  // namespace

std::string encode(const ProjectDocument& document) {
  // Counting first spares building gigabytes of text only to refuse them.
  const std::size_t least = DocumentJson::leastSize(document);
  if (least > kMaxBytes) tooLarge();
  JsonWriter json;
  json.reserve(DocumentJson::sizeHint(least));
  DocumentJson::write(json, document);
  if (json.text().size() > kMaxBytes) tooLarge();
  return json.take();
}

void write(const ProjectDocument& document, const fs::path& path) {
  // A save that was killed leaves its temporary file; this one removes it.
  writeFileAtomically(path, encode(document));
}

}  // namespace inkharbour::DocumentFile
