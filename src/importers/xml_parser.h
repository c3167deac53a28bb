// An event-driven XML parser over expat with namespace processing off: the
// handler sees each element's local name (the part after the last ":"),
// its attributes by qualified name, and character data with entities decoded.
//
// A document type declaration is refused outright, so no entity is ever
// declared, expanded or fetched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string_view>

typedef struct XML_ParserStruct* XML_Parser;

namespace inkharbour {

// The attributes of one element start, looked up by qualified name.
class XmlAttributes {
 public:
  explicit XmlAttributes(const char** pairs) : pairs_(pairs) {}

  bool empty() const { return pairs_ == nullptr || pairs_[0] == nullptr; }
  std::optional<std::string_view> get(std::string_view qualifiedName) const;
  // The first of the two names that is present: get(a), else get(b).
  std::optional<std::string_view> get(std::string_view a, std::string_view b) const;

 private:
  const char** pairs_;
};

class XmlHandler {
 public:
  virtual ~XmlHandler() = default;
  virtual void startElement(std::string_view name, const XmlAttributes& attributes) = 0;
  virtual void endElement(std::string_view name) = 0;
  // Called only while wantsCharacters() holds.
  virtual void characters(std::string_view text) = 0;

  // Whether character data is wanted now. Handlers that collect text only
  // inside certain elements switch it on and off, which spares the parser a
  // call for every stretch of text outside them.
  bool wantsCharacters() const { return wantsCharacters_; }

 protected:
  void setWantsCharacters(bool wanted) { wantsCharacters_ = wanted; }

 private:
  bool wantsCharacters_ = true;
};

class XmlParser {
 public:
  // Elements open at once past this stop the parse with DocxError's limit.
  static constexpr std::size_t kMaxDepth = 1024;

  explicit XmlParser(XmlHandler& handler);
  ~XmlParser();
  XmlParser(const XmlParser&) = delete;
  XmlParser& operator=(const XmlParser&) = delete;

  // Feeds the next chunk of the document; `last` marks the end. After a
  // failure further chunks are ignored. An exception thrown by the handler
  // stops the parse and is rethrown here.
  void feed(std::string_view chunk, bool last);

  // True once the whole document was fed and found well-formed.
  bool succeeded() const { return finished_ && !failed_; }
  bool failed() const { return failed_; }
  // True when the document declared a document type and was refused.
  bool refusedDoctype() const { return refusedDoctype_; }

  // Where the event being handled lies in the bytes fed so far: its first
  // byte and its length, which is 0 for the end of an empty element
  // ("<w:p/>"). Meaningful only inside a handler call.
  std::uint64_t eventOffset() const;
  std::size_t eventLength() const;

  // Parses a whole document; returns succeeded().
  static bool parse(XmlHandler& handler, std::string_view document);

 private:
  static void onStart(void* self, const char* name, const char** attributes);
  static void onEnd(void* self, const char* name);
  static void onCharacters(void* self, const char* text, int length);
  static void onDoctype(void* self, const char*, const char*, const char*, int);
  void stop();
  void followCharacterWish();

  XmlHandler& handler_;
  XML_Parser parser_;
  bool finished_ = false;
  bool failed_ = false;
  bool refusedDoctype_ = false;
  bool charactersOn_ = true;
  std::size_t depth_ = 0;
  std::exception_ptr error_;
};

}  // namespace inkharbour
