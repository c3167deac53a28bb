#include "importers/xml_parser.h"

#include <expat.h>

#include <climits>
#include <cstring>
#include <new>
#include <string>

#include "importers/docx_error.h"

namespace inkharbour {

namespace {

// The part of a qualified name after its last ":", found in one pass.
std::string_view localName(const char* qualified) {
  const char* start = qualified;
  const char* p = qualified;
  for (; *p != '\0'; ++p) {
    if (*p == ':') start = p + 1;
  }
  return std::string_view(start, static_cast<std::size_t>(p - start));
}

// True when the NUL-terminated `name` is exactly `wanted`, without measuring it.
bool sameName(const char* name, std::string_view wanted) {
  return std::strncmp(name, wanted.data(), wanted.size()) == 0 && name[wanted.size()] == '\0';
}

}  // namespace

std::optional<std::string_view> XmlAttributes::get(std::string_view qualifiedName) const {
  if (pairs_ == nullptr) return std::nullopt;
  for (const char** p = pairs_; p[0] != nullptr; p += 2) {
    if (sameName(p[0], qualifiedName)) return std::string_view(p[1]);
  }
  return std::nullopt;
}

std::optional<std::string_view> XmlAttributes::get(std::string_view a, std::string_view b) const {
  if (auto value = get(a)) return value;
  return get(b);
}

XmlParser::XmlParser(XmlHandler& handler) : handler_(handler), parser_(XML_ParserCreate(nullptr)) {
  if (parser_ == nullptr) throw std::bad_alloc();
  XML_SetUserData(parser_, this);
  XML_SetElementHandler(parser_, &XmlParser::onStart, &XmlParser::onEnd);
  XML_SetCharacterDataHandler(parser_, &XmlParser::onCharacters);
  XML_SetStartDoctypeDeclHandler(parser_, &XmlParser::onDoctype);
  followCharacterWish();
}

void XmlParser::followCharacterWish() {
  if (handler_.wantsCharacters() == charactersOn_) return;
  charactersOn_ = handler_.wantsCharacters();
  XML_SetCharacterDataHandler(parser_, charactersOn_ ? &XmlParser::onCharacters : nullptr);
}

XmlParser::~XmlParser() { XML_ParserFree(parser_); }

void XmlParser::stop() {
  failed_ = true;
  XML_StopParser(parser_, XML_FALSE);
}

void XmlParser::onStart(void* self, const char* name, const char** attributes) {
  auto* parser = static_cast<XmlParser*>(self);
  try {
    // Unclosed elements cost the parser memory each: a few kilobytes of
    // start tags must not take gigabytes.
    if (++parser->depth_ > kMaxDepth) {
      throw DocxError::limitExceeded("an XML part nests elements more than " +
                                     std::to_string(kMaxDepth) + " deep, the limit");
    }
    parser->handler_.startElement(localName(name), XmlAttributes(attributes));
    parser->followCharacterWish();
  } catch (...) {
    parser->error_ = std::current_exception();
    parser->stop();
  }
}

void XmlParser::onEnd(void* self, const char* name) {
  auto* parser = static_cast<XmlParser*>(self);
  --parser->depth_;
  try {
    parser->handler_.endElement(localName(name));
    parser->followCharacterWish();
  } catch (...) {
    parser->error_ = std::current_exception();
    parser->stop();
  }
}

void XmlParser::onCharacters(void* self, const char* text, int length) {
  auto* parser = static_cast<XmlParser*>(self);
  try {
    parser->handler_.characters(std::string_view(text, static_cast<std::size_t>(length)));
  } catch (...) {
    parser->error_ = std::current_exception();
    parser->stop();
  }
}

void XmlParser::onDoctype(void* self, const char*, const char*, const char*, int) {
  auto* parser = static_cast<XmlParser*>(self);
  parser->refusedDoctype_ = true;
  parser->stop();
}

void XmlParser::feed(std::string_view chunk, bool last) {
  if (failed_ || finished_) return;
  // expat takes an int length; larger chunks go in pieces.
  while (chunk.size() > static_cast<std::size_t>(INT_MAX / 2)) {
    const auto piece = chunk.substr(0, INT_MAX / 2);
    chunk.remove_prefix(piece.size());
    if (XML_Parse(parser_, piece.data(), static_cast<int>(piece.size()), XML_FALSE) !=
        XML_STATUS_OK) {
      failed_ = true;
      break;
    }
  }
  if (!failed_ &&
      XML_Parse(parser_, chunk.data(), static_cast<int>(chunk.size()), last ? XML_TRUE : XML_FALSE) !=
          XML_STATUS_OK) {
    failed_ = true;
  }
  if (error_) {
    auto error = error_;
    error_ = nullptr;
    std::rethrow_exception(error);
  }
  if (last) finished_ = true;
}

std::uint64_t XmlParser::eventOffset() const {
  return static_cast<std::uint64_t>(XML_GetCurrentByteIndex(parser_));
}

std::size_t XmlParser::eventLength() const {
  return static_cast<std::size_t>(XML_GetCurrentByteCount(parser_));
}

bool XmlParser::parse(XmlHandler& handler, std::string_view document) {
  XmlParser parser(handler);
  parser.feed(document, true);
  return parser.succeeded();
}

}  // namespace inkharbour
