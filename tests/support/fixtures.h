// Test fixtures: packages built from inline XML, temporary folders, and a
// readable dump of imported content.
#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <string>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"

namespace inkharbour::testing {

// A folder under the system's temporary directory, removed with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

using Members = std::map<std::string, std::string>;

// Writes a ZIP package holding exactly `members` to `path`.
void writePackage(const std::filesystem::path& path, const Members& members);
// Writes raw bytes to `path`.
void writeFile(const std::filesystem::path& path, const std::string& bytes);
std::string readFile(const std::filesystem::path& path);

// Wraps body XML (paragraphs and tables) into a complete document part.
std::string documentXml(const std::string& body);
// A styles part naming each style id: {{"Heading1", "heading 1"}}.
std::string stylesXml(const std::map<std::string, std::string>& idToName);
// A footnotes (or endnotes, with element "endnote") part around the notes' XML.
std::string notesXml(const std::string& notes, const std::string& element = "footnote");
// A worksheet part around the sheetData rows' XML.
std::string sheetXml(const std::string& rows);
// A shared-strings part holding one plain item per string.
std::string sharedStringsXml(const std::vector<std::string>& strings);

// Builds a .docx in `dir` from the given body and optional extra members,
// and reads it back with no custom style map.
ImportResult importDocx(const TempDir& dir, const std::string& body, Members extra = {});
// Builds a .xlsx in `dir` from the worksheet rows and shared strings, and reads it.
ImportResult importXlsx(const TempDir& dir, const std::string& rows,
                        const std::vector<std::string>& sharedStrings = {});

// Matches a callable that throws a DocxError of `kind` whose message matches.
inline auto throwsDocxError(DocxError::Kind kind, bool isLimit,
                            ::testing::Matcher<std::string> message) {
  return ::testing::Throws<DocxError>(::testing::AllOf(
      ::testing::Property(&DocxError::kind, kind), ::testing::Property(&DocxError::isLimit, isLimit),
      ::testing::ResultOf([](const DocxError& e) { return std::string(e.what()); }, message)));
}

// The dump format of the command line, for readable assertions.
std::string dump(const ImportResult& result);

}  // namespace inkharbour::testing
