// The document file decoder on any text: it either decodes a document or
// throws DocumentError, and a decoded document encodes to a file that
// decodes to the same document and encodes to the same bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "checks.h"
#include "model/document_file.h"

using namespace inkharbour;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view json(reinterpret_cast<const char*>(data), size);
  ProjectDocument document;
  try {
    document = DocumentFile::decode(json);
  } catch (const DocumentError&) {
    return 0;
  }
  const std::string encoded = DocumentFile::encode(document);
  ProjectDocument again;
  try {
    again = DocumentFile::decode(encoded);
  } catch (const DocumentError& error) {
    fuzz::fail(std::string("an encoded document does not decode: ") + error.what(), encoded);
  }
  if (again != document) fuzz::fail("a document changes through encoding", encoded);
  if (const std::string twice = DocumentFile::encode(again); twice != encoded) {
    fuzz::fail("encoding is not stable", encoded + "\n--- then ---\n" + twice);
  }
  return 0;
}
