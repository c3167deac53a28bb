#include "importers/docx_reader.h"

#include <algorithm>

#include "importers/docx_body.h"
#include "importers/docx_error.h"
#include "importers/package.h"
#include "importers/text_reader.h"
#include "importers/xlsx_reader.h"
#include "importers/xml_parser.h"
#include "model/text.h"

namespace inkharbour {

namespace {

using docx::StyleNames;

constexpr std::string_view kDocumentPart = "word/document.xml";

std::string lowerExtension(const std::filesystem::path& path) {
  auto extension = path.extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  return text::lowercased(extension);
}

// Reads an optional part: one that is absent reads as nothing. One that is
// present but damaged reads as far as it is well-formed, or is an error
// naming it when `damaged` says so.
template <typename Parser>
Parser parseOptional(Package& package, std::string_view member, Parser parser,
                     DocxReader::DamagedParts damaged = DocxReader::DamagedParts::readAsAbsent) {
  const bool strict = damaged == DocxReader::DamagedParts::fail && package.has(member);
  const auto bytes = strict ? package.read(member) : package.readOptional(member);
  if (!bytes) {
    // Listed but unreadable from its first byte (an unknown method, a
    // damaged start): no value from read(), but no absent part either.
    if (strict) throw DocxError::unzipFailed(std::string(member) + ": the part cannot be read");
    return parser;
  }
  XmlParser xml(parser);
  xml.feed(asText(*bytes), true);
  if (strict && !xml.succeeded()) throw DocxError::parseFailed(std::string(member));
  return parser;
}

std::vector<Footnote> readNotes(Package& package, std::string_view member,
                                const StyleNames& styleNames, const StyleMap& styleMap,
                                std::string_view element, std::int64_t idOffset,
                                DocxReader::DamagedParts damaged) {
  return std::move(parseOptional(package, member,
                                 docx::NotesParser(styleNames, styleMap, package.budget(),
                                                   std::string(member), element, idOffset),
                                 damaged)
                       .footnotes());
}

ImportResult readDocx(const std::filesystem::path& path, const StyleMap& styleMap,
                      const ImportLimits& limits, DocxReader::DamagedParts damagedParts) {
  Package package(path, limits);
  if (!package.has(kDocumentPart)) {
    // A file that is gone or unreadable says so; one that opens is no package.
    package.checkOpened();
    throw DocxError::missingEntry(std::string(kDocumentPart));
  }

  const StyleNames styleNames =
      parseOptional(package, "word/styles.xml", docx::StylesParser{}, damagedParts).map;
  const auto relationships = parseOptional(package, "word/_rels/document.xml.rels",
                                           docx::RelationshipsParser{}, damagedParts)
                                 .map;

  auto loadImage = [&](std::string_view id) { return docx::loadImage(package, relationships, id); };

  docx::BodyParser body(styleNames, styleMap, loadImage, package.budget(),
                        std::string(kDocumentPart));
  XmlParser xml(body);
  // The part is parsed while it inflates; after a parse failure the rest is
  // still inflated, so that a damaged archive is reported as such.
  const bool present =
      package.stream(kDocumentPart, [&](std::string_view chunk) { xml.feed(chunk, false); });
  if (!present) throw DocxError::missingEntry(std::string(kDocumentPart));
  xml.feed({}, true);
  if (!xml.succeeded()) throw DocxError::parseFailed(std::string(kDocumentPart));

  ImportResult result{.blocks = std::move(body.blocks()), .footnotes = {}};
  result.footnotes =
      readNotes(package, "word/footnotes.xml", styleNames, styleMap, "footnote", 0, damagedParts);
  auto endnotes =
      readNotes(package, "word/endnotes.xml", styleNames, styleMap, "endnote", 10000, damagedParts);
  for (auto& note : endnotes) result.footnotes.push_back(std::move(note));
  return result;
}

}  // namespace

namespace DocxReader {

std::vector<std::string> paragraphStyleNames(const std::filesystem::path& path) {
  try {
    Package package(path, ImportLimits{});
    auto names = parseOptional(package, "word/styles.xml", docx::StylesParser{}).paragraphNames;
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
  } catch (const std::exception&) {
    return {};
  }
}

ImportResult read(const std::filesystem::path& path, const StyleMap& styleMap,
                  const ImportLimits& limits, DamagedParts damagedParts) {
  return readAs(path, linkKind(path), styleMap, limits, damagedParts);
}

ImportResult readAs(const std::filesystem::path& path, LinkKind kind, const StyleMap& styleMap,
                    const ImportLimits& limits, DamagedParts damagedParts) {
  switch (kind) {
    case LinkKind::word:
      return readDocx(path, styleMap, limits, damagedParts);
    case LinkKind::excel: {
      ImportResult result;
      result.blocks.push_back(Block{.id = Uuid::random(), .kind = XlsxReader::read(path, limits)});
      return result;
    }
    case LinkKind::text:
      break;
  }
  return ImportResult{.blocks = TextReader::read(path, limits), .footnotes = {}};
}

LinkKind linkKind(const std::filesystem::path& path) {
  const auto extension = lowerExtension(path);
  if (extension == "docx") return LinkKind::word;
  if (extension == "xlsx") return LinkKind::excel;
  return LinkKind::text;
}

}  // namespace DocxReader

}  // namespace inkharbour
