// The document file: one ProjectDocument as pretty-printed JSON with sorted
// keys (extension "inkharbour"; files named "quillmoor" or "tidecopy" by
// older versions have the same format). Older layouts ("paragraphs",
// "baseSnapshot", runs with fewer flags, links without a kind) still read.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "model/story.h"

namespace inkharbour {

// A document file that cannot be decoded; what() is the message for the user.
class DocumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

namespace DocumentFile {

// The largest document file that can be read back: the JSON parser's limit.
inline constexpr std::uint64_t kMaxBytes = 0xFFFFFFFF;

// The file's bytes for `document`. The same document always gives the same
// bytes. Throws DocumentError when they would be more than kMaxBytes, a file
// that could not be opened again; a document that certainly would be is
// refused before any of it is encoded.
std::string encode(const ProjectDocument& document);

// The document held by `json`. Throws DocumentError for malformed JSON, a
// missing required key, a wrong type, an invalid id, base64 text or
// enumeration name, or a block kind with other than one key ("Invalid number
// of keys found, expected one."); nothing is partly decoded.
ProjectDocument decode(std::string_view json);

// Reads and decodes the file. Throws DocumentError, or
// std::filesystem::filesystem_error when the file cannot be read.
ProjectDocument read(const std::filesystem::path& path);

// Encodes the document and replaces the file atomically, keeping its
// permissions: a failed save leaves the old file byte-identical. Throws
// DocumentError as encode() does, before the file is touched, or
// std::filesystem::filesystem_error.
void write(const ProjectDocument& document, const std::filesystem::path& path);

}  // namespace DocumentFile

}  // namespace inkharbour
