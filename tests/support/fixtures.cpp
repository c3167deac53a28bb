#include "support/fixtures.h"

#include <fstream>
#include <sstream>
#include <vector>

#include "cli/dump.h"
#include "importers/package.h"

namespace inkharbour::testing {

namespace fs = std::filesystem;

TempDir::TempDir()
    : path_(fs::temp_directory_path() / ("inkharbour-test-" + Uuid::random().string())) {
  fs::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void writePackage(const fs::path& path, const Members& members) {
  std::vector<PackageMember> list;
  for (const auto& [name, bytes] : members) list.push_back({name, bytes});
  ZipTool::writePackage(list, path);
}

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

std::string documentXml(const std::string& body) {
  return R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
         R"(<w:document xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main" )"
         R"(xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships" )"
         R"(xmlns:a="http://schemas.openxmlformats.org/drawingml/2006/main"><w:body>)" +
         body + "</w:body></w:document>";
}

std::string stylesXml(const std::map<std::string, std::string>& idToName) {
  std::string xml =
      R"(<w:styles xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">)";
  for (const auto& [id, name] : idToName) {
    xml += R"(<w:style w:type="paragraph" w:styleId=")" + id + R"("><w:name w:val=")" + name +
           R"("/></w:style>)";
  }
  return xml + "</w:styles>";
}

std::string notesXml(const std::string& notes, const std::string& element) {
  return "<w:" + element +
         R"(s xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">)" + notes +
         "</w:" + element + "s>";
}

std::string sheetXml(const std::string& rows) {
  return R"(<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main">)"
         "<sheetData>" +
         rows + "</sheetData></worksheet>";
}

std::string sharedStringsXml(const std::vector<std::string>& strings) {
  std::string xml = R"(<sst xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main">)";
  for (const auto& s : strings) xml += "<si><t>" + s + "</t></si>";
  return xml + "</sst>";
}

ImportResult importDocx(const TempDir& dir, const std::string& body, Members extra) {
  extra.emplace("word/document.xml", documentXml(body));
  const auto path = dir / "fixture.docx";
  writePackage(path, extra);
  return DocxReader::read(path, StyleMap{});
}

ImportResult importXlsx(const TempDir& dir, const std::string& rows,
                        const std::vector<std::string>& sharedStrings) {
  Members members{{"xl/worksheets/sheet1.xml", sheetXml(rows)}};
  if (!sharedStrings.empty()) members.emplace("xl/sharedStrings.xml", sharedStringsXml(sharedStrings));
  const auto path = dir / "fixture.xlsx";
  writePackage(path, members);
  return DocxReader::read(path, StyleMap{});
}

std::string dump(const ImportResult& result) { return cli::formatDump(result); }

}  // namespace inkharbour::testing
