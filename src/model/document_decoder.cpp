// Decoding the document file: simdjson's DOM parser checks the whole text
// (grammar, UTF-8, nothing after the top value) before any of it is used, then
// the tree is walked into model values. Everything is built in locals, so a
// failure anywhere leaves nothing half-made.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <simdjson.h>
#include <string>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "model/base64.h"
#include "model/document_file.h"
#include "model/regular_file.h"

namespace inkharbour::DocumentFile {

namespace {

namespace dom = simdjson::dom;
using Type = dom::element_type;

static_assert(kMaxBytes == simdjson::SIMDJSON_MAXSIZE_BYTES);

constexpr std::string_view kKindMessage = "Invalid number of keys found, expected one.";

std::string quoted(std::string_view key) {
  std::string text("\"");
  text += key;
  text += '"';
  return text;
}

// Walks the parsed tree. The path from the top to the value at hand is kept
// as a stack of steps so that a failure can say where it happened, for
// example "stories[2].blocks[5]".
class Decoder {
 public:
  ProjectDocument document(dom::element root) {
    dom::object members;
    if (root.get_object().get(members) != simdjson::SUCCESS) fail("the top level is not an object");
    ProjectDocument document;
    for (const auto [key, value] : members) {
      if (isNull(value)) continue;
      if (key == "stories") {
        document.stories = array(value, key, [this](dom::element item) { return story(item); });
      } else if (key == "styleMap") {
        document.styleMap = styleMap(value, key);
      } else if (key == "documentFolder") {
        document.documentFolder = std::string(string(value, key));
      }
    }
    return document;
  }

 private:
  struct Step {
    std::string_view key;  // empty for an array element
    std::size_t index = 0;
  };

  // Keeps `key` on the path while the member's value is decoded.
  class Entered {
   public:
    Entered(Decoder& decoder, std::string_view key) : path_(decoder.path_) {
      path_.push_back(Step{.key = key});
    }
    ~Entered() { path_.pop_back(); }
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;

   private:
    std::vector<Step>& path_;
  };

  std::string where() const {
    std::string text;
    for (const auto& step : path_) {
      if (step.key.empty()) {
        text += '[';
        text += std::to_string(step.index);
        text += ']';
      } else {
        if (!text.empty()) text += '.';
        text += step.key;
      }
    }
    return text;
  }

  // Fails about the value at the end of the path, or (with a key) about one
  // member of the object at the end of the path.
  [[noreturn]] void fail(std::string_view what, std::string_view key = {}) const {
    std::string message("The document could not be read: ");
    const std::string path = where();
    if (!key.empty()) {
      if (!path.empty()) message += path + ": ";
      message += quoted(key) + ' ';
    } else if (!path.empty()) {
      message += path + ' ';
    }
    message += what;
    message += '.';
    throw DocumentError(message);
  }

  [[noreturn]] void missing(std::string_view key) const { fail("is missing", key); }

  // A JSON null counts as absent for a key that may be missing; a required
  // key must hold a value of its type.
  static bool isNull(dom::element value) { return value.type() == Type::NULL_VALUE; }

  dom::object object(dom::element value, std::string_view key) const {
    if (value.type() != Type::OBJECT) fail("is not an object", key);
    return value.get_object().value_unsafe();
  }

  std::string_view string(dom::element value, std::string_view key) const {
    if (value.type() != Type::STRING) fail("is not a string", key);
    return value.get_string().value_unsafe();
  }

  bool boolean(dom::element value, std::string_view key) const {
    if (value.type() != Type::BOOL) fail("is not true or false", key);
    return value.get_bool().value_unsafe();
  }

  // Any JSON number; dates are doubles.
  double number(dom::element value, std::string_view key) const {
    switch (value.type()) {
      case Type::INT64: return static_cast<double>(value.get_int64().value_unsafe());
      case Type::UINT64: return static_cast<double>(value.get_uint64().value_unsafe());
      case Type::DOUBLE: return value.get_double().value_unsafe();
      default: fail("is not a number", key);
    }
  }

  // A number that is a whole value within the 64-bit range; "3.0" is 3.
  std::int64_t integer(dom::element value, std::string_view key) const {
    switch (value.type()) {
      case Type::INT64: return value.get_int64().value_unsafe();
      case Type::UINT64: fail("is out of range", key);
      case Type::DOUBLE: {
        const double d = value.get_double().value_unsafe();
        if (d != std::trunc(d)) fail("is not a whole number", key);
        // -2^63 is exact in a double; 2^63 is the first value above the range.
        if (d < -9223372036854775808.0 || d >= 9223372036854775808.0) fail("is out of range", key);
        return static_cast<std::int64_t>(d);
      }
      default: fail("is not a number", key);
    }
  }

  Uuid uuid(dom::element value, std::string_view key) const {
    const auto id = Uuid::parse(string(value, key));
    if (!id) fail("is not a valid identifier", key);
    return *id;
  }

  template <typename Enum>
  Enum enumeration(dom::element value, std::string_view key,
                   std::optional<Enum> (*parse)(std::string_view)) const {
    const auto text = string(value, key);
    const auto parsed = parse(text);
    if (!parsed) fail("has the unknown value " + quoted(text), key);
    return *parsed;
  }

  // Decodes each element of the array held by member `key` with `decode`.
  template <typename Decode>
  auto array(dom::element value, std::string_view key, Decode decode)
      -> std::vector<decltype(decode(value))> {
    if (value.type() != Type::ARRAY) fail("is not an array", key);
    const auto items = value.get_array().value_unsafe();
    std::vector<decltype(decode(value))> result;
    result.reserve(items.size());
    // An array that is itself an array element has no key of its own.
    std::optional<Entered> entered;
    if (!key.empty()) entered.emplace(*this, key);
    path_.push_back(Step{});
    for (const auto item : items) {
      result.push_back(decode(item));
      ++path_.back().index;
    }
    path_.pop_back();
    return result;
  }

  // The object that is the current array element.
  dom::object element(dom::element value) const { return object(value, {}); }

  StyleMap styleMap(dom::element value, std::string_view key) {
    const auto members = object(value, key);
    Entered entered(*this, key);
    StyleMap map;
    for (const auto [wordStyle, style] : members) {
      map.insert_or_assign(std::string(wordStyle), std::string(string(style, wordStyle)));
    }
    return map;
  }

  Story story(dom::element value) {
    Story story;
    std::optional<Uuid> id;
    bool hasName = false;
    std::optional<dom::element> blocks, legacyParagraphs;
    for (const auto [key, member] : element(value)) {
      if (key == "name") {
        story.name = string(member, key);
        hasName = true;
        continue;
      }
      if (isNull(member)) continue;
      if (key == "blocks") {
        blocks = member;
      } else if (key == "paragraphs") {
        legacyParagraphs = member;
      } else if (key == "id") {
        id = uuid(member, key);
      } else if (key == "footnotes") {
        story.footnotes = array(member, key, [this](dom::element item) { return footnote(item); });
      } else if (key == "link") {
        const auto members = object(member, key);
        Entered entered(*this, key);
        story.link = link(members);
      } else if (key == "notes") {
        story.notes = array(member, key, [this](dom::element item) { return note(item); });
      } else if (key == "lastMergeReport") {
        story.lastMergeReport =
            array(member, key, [this](dom::element item) { return changeRecord(item); });
      }
    }
    if (!hasName) missing("name");
    // The legacy key counts only when the current one is absent.
    if (blocks) {
      story.blocks = array(*blocks, "blocks", [this](dom::element item) { return block(item); });
    } else if (legacyParagraphs) {
      story.blocks = paragraphBlocks(*legacyParagraphs, "paragraphs");
    }
    if (id) story.id = *id;  // else the fresh one it was made with
    return story;
  }

  // An older layout's array of paragraphs, each made a block with a fresh id.
  std::vector<Block> paragraphBlocks(dom::element value, std::string_view key) {
    return array(value, key, [this](dom::element item) {
      return Block{.id = Uuid::random(), .kind = paragraph(element(item))};
    });
  }

  StoryLink link(dom::object members) {
    StoryLink link;
    bool hasPath = false, hasLastSync = false;
    std::optional<dom::element> baseBlocks, legacySnapshot;
    for (const auto [key, member] : members) {
      if (key == "path") {
        link.path = string(member, key);
        hasPath = true;
      } else if (key == "lastSync") {
        link.lastSync = number(member, key);
        hasLastSync = true;
      } else if (isNull(member)) {
        continue;
      } else if (key == "kind") {
        link.kind = enumeration(member, key, parseLinkKind);
      } else if (key == "baseBlocks") {
        baseBlocks = member;
      } else if (key == "baseSnapshot") {
        legacySnapshot = member;
      } else if (key == "baseFootnotes") {
        link.baseFootnotes =
            array(member, key, [this](dom::element item) { return footnote(item); });
      }
    }
    if (!hasPath) missing("path");
    if (!hasLastSync) missing("lastSync");
    if (baseBlocks) {
      link.baseBlocks =
          array(*baseBlocks, "baseBlocks", [this](dom::element item) { return block(item); });
    } else if (legacySnapshot) {
      link.baseBlocks = paragraphBlocks(*legacySnapshot, "baseSnapshot");
    }
    return link;
  }

  Block block(dom::element value) {
    std::optional<Uuid> id;
    std::optional<Block::Kind> kind;
    for (const auto [key, member] : element(value)) {
      if (key == "id") {
        id = uuid(member, key);
      } else if (key == "kind") {
        const auto members = object(member, key);
        Entered entered(*this, key);
        kind = blockKind(members);
      }
    }
    if (!id) missing("id");
    if (!kind) missing("kind");
    return Block{.id = *id, .kind = std::move(*kind)};
  }

  // {"paragraph" | "table" | "image" : {"_0" : payload}}. Keys that name no
  // alternative are ignored like unknown keys anywhere else.
  Block::Kind blockKind(dom::object members) {
    constexpr unsigned kParagraph = 1, kTable = 2, kImage = 4;
    unsigned found = 0;
    std::string_view alternative;
    dom::element payload;
    for (const auto [key, member] : members) {
      const unsigned which = key == "paragraph" ? kParagraph
                             : key == "table"   ? kTable
                             : key == "image"   ? kImage
                                                : 0u;
      if (which == 0) continue;
      found |= which;
      alternative = key;
      payload = member;
    }
    if (found != kParagraph && found != kTable && found != kImage) {
      throw DocumentError(std::string(kKindMessage));
    }
    const auto wrapper = object(payload, alternative);
    Entered entered(*this, alternative);
    dom::element content;
    if (wrapper["_0"].get(content) != simdjson::SUCCESS) missing("_0");
    const auto contentObject = object(content, "_0");
    Entered inner(*this, "_0");
    switch (found) {
      case kParagraph: return paragraph(contentObject);
      case kTable: return table(contentObject);
      default: return image(contentObject);
    }
  }

  Paragraph paragraph(dom::object members) {
    Paragraph paragraph;
    bool hasStyle = false, hasRuns = false;
    for (const auto [key, member] : members) {
      if (key == "runs") {
        paragraph.runs = array(member, key, [this](dom::element item) { return run(item); });
        hasRuns = true;
      } else if (key == "styleName") {
        paragraph.styleName = string(member, key);
        hasStyle = true;
      }
    }
    if (!hasStyle) missing("styleName");
    if (!hasRuns) missing("runs");
    return paragraph;
  }

  std::vector<Paragraph> paragraphs(dom::element value, std::string_view key) {
    return array(value, key, [this](dom::element item) { return paragraph(element(item)); });
  }

  TextRun run(dom::element value) {
    TextRun run;
    bool hasText = false;
    for (const auto [key, member] : element(value)) {
      if (key == "text") {
        run.text = string(member, key);
        hasText = true;
      } else if (isNull(member)) {
        continue;
      } else if (key == "bold") {
        run.bold = boolean(member, key);
      } else if (key == "italic") {
        run.italic = boolean(member, key);
      } else if (key == "underline") {
        run.underline = boolean(member, key);
      } else if (key == "strikethrough") {
        run.strikethrough = boolean(member, key);
      } else if (key == "smallCaps") {
        run.smallCaps = boolean(member, key);
      } else if (key == "script") {
        run.script = enumeration(member, key, parseScriptPosition);
      } else if (key == "colorHex") {
        run.colorHex = string(member, key);
      } else if (key == "footnoteID") {
        run.footnoteID = integer(member, key);
      }
    }
    if (!hasText) missing("text");
    return run;
  }

  Table table(dom::object members) {
    dom::element rows;
    if (members["rows"].get(rows) != simdjson::SUCCESS) missing("rows");
    return Table{.rows = array(rows, "rows", [this](dom::element row) {
      return array(row, {}, [this](dom::element cell) {
        dom::element content;
        if (element(cell)["paragraphs"].get(content) != simdjson::SUCCESS) missing("paragraphs");
        return TableCell{.paragraphs = paragraphs(content, "paragraphs")};
      });
    })};
  }

  ImageBlock image(dom::object members) {
    ImageBlock image;
    bool hasData = false, hasName = false;
    for (const auto [key, member] : members) {
      if (key == "data") {
        image.data = picture(string(member, key), key);
        hasData = true;
      } else if (key == "name") {
        image.name = string(member, key);
        hasName = true;
      }
    }
    if (!hasData) missing("data");
    if (!hasName) missing("name");
    return image;
  }

  // Equal pictures (a story's and its base snapshot's, one placed many
  // times) are decoded once and share their bytes.
  SharedBytes picture(std::string_view base64, std::string_view key) {
    const auto [found, fresh] = pictures_.try_emplace(base64);
    if (fresh) {
      auto bytes = decodeBase64(base64);
      if (!bytes) fail("is not valid base64", key);
      found->second = std::move(*bytes);
    }
    return found->second;
  }

  Footnote footnote(dom::element value) {
    Footnote footnote;
    bool hasId = false, hasParagraphs = false;
    for (const auto [key, member] : element(value)) {
      if (key == "id") {
        footnote.id = integer(member, key);
        hasId = true;
      } else if (key == "paragraphs") {
        footnote.paragraphs = paragraphs(member, key);
        hasParagraphs = true;
      }
    }
    if (!hasId) missing("id");
    if (!hasParagraphs) missing("paragraphs");
    return footnote;
  }

  ConflictNote note(dom::element value) {
    ConflictNote note;
    unsigned found = 0;
    for (const auto [key, member] : element(value)) {
      if (key == "id") {
        note.id = uuid(member, key);
        found |= 1;
      } else if (key == "paragraphIndex") {
        note.paragraphIndex = integer(member, key);
        found |= 2;
      } else if (key == "localText") {
        note.localText = string(member, key);
        found |= 4;
      } else if (key == "externalText") {
        note.externalText = string(member, key);
        found |= 8;
      } else if (key == "date") {
        note.date = number(member, key);
        found |= 16;
      }
    }
    requireAll(found, {"id", "paragraphIndex", "localText", "externalText", "date"});
    return note;
  }

  ChangeRecord changeRecord(dom::element value) {
    ChangeRecord record;
    unsigned found = 0;
    for (const auto [key, member] : element(value)) {
      if (key == "id") {
        record.id = uuid(member, key);
        found |= 1;
      } else if (key == "kind") {
        record.kind = enumeration(member, key, parseChangeKind);
        found |= 2;
      } else if (key == "summary") {
        record.summary = string(member, key);
        found |= 4;
      } else if (isNull(member)) {
        continue;
      } else if (key == "localText") {
        record.localText = string(member, key);
      } else if (key == "externalText") {
        record.externalText = string(member, key);
      }
    }
    requireAll(found, {"id", "kind", "summary"});
    return record;
  }

  // Fails on the first key whose bit is not set in `found`.
  void requireAll(unsigned found, std::initializer_list<std::string_view> keys) const {
    unsigned bit = 1;
    for (const auto key : keys) {
      if ((found & bit) == 0) missing(key);
      bit <<= 1;
    }
  }

  std::vector<Step> path_;
  // By their text, which lives as long as the parsed tree.
  std::unordered_map<std::string_view, SharedBytes> pictures_;
};

std::string parseFailure(simdjson::error_code error) {
  std::string message("The document could not be read: ");
  switch (error) {
    case simdjson::EMPTY: return message + "the file is empty.";
    case simdjson::UTF8_ERROR: return message + "the file is not valid UTF-8 text.";
    case simdjson::CAPACITY: return message + "the file is too large.";
    case simdjson::MEMALLOC: return message + "there is not enough memory.";
    default: return message + "the file is not valid JSON (" + simdjson::error_message(error) + ")";
  }
}

ProjectDocument decodeParsed(simdjson::simdjson_result<dom::element> parsed) {
  dom::element root;
  if (const auto error = parsed.get(root); error != simdjson::SUCCESS) {
    throw DocumentError(parseFailure(error));
  }
  return Decoder().document(root);
}

[[noreturn]] void failToRead(const std::filesystem::path& path, int error) {
  throw std::filesystem::filesystem_error("Cannot read the file", path,
                                          std::error_code(error, std::generic_category()));
}

}  // namespace

ProjectDocument decode(std::string_view json) {
  if (json.empty()) throw DocumentError(parseFailure(simdjson::EMPTY));
  dom::parser parser;
  // The parser copies the text into a buffer with the padding it reads ahead into.
  return decodeParsed(parser.parse(json.data(), json.size(), true));
}

ProjectDocument read(const std::filesystem::path& path) {
  // Regular files only: a FIFO would wait for a writer, /dev/zero never ends.
  std::error_code openError;
  const int fd = openRegularFile(path, openError);
  if (fd < 0) throw std::filesystem::filesystem_error("Cannot read the file", path, openError);
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    const int error = errno;
    ::close(fd);
    failToRead(path, error);
  }
  // Read straight into a padded buffer so that the parser needs no copy.
  std::size_t capacity = static_cast<std::size_t>(status.st_size);
  auto tooLarge = [&] {
    ::close(fd);
    throw DocumentError(parseFailure(simdjson::CAPACITY));
  };
  auto noMemory = [&] {
    ::close(fd);
    throw DocumentError(parseFailure(simdjson::MEMALLOC));
  };
  if (capacity > kMaxBytes) tooLarge();
  simdjson::padded_string text(capacity);
  if (text.data() == nullptr) noMemory();
  std::size_t size = 0;
  char probe[4096];
  for (;;) {
    // Once the expected size is in, a small read tells the end from a file
    // that grew meanwhile.
    const bool full = size == capacity;
    char* to = full ? probe : text.data() + size;
    const ssize_t n = ::read(fd, to, full ? sizeof probe : capacity - size);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      failToRead(path, error);
    }
    if (n == 0) break;
    if (full) {
      // A file that keeps growing past what the parser takes is refused
      // rather than followed.
      if (size + static_cast<std::size_t>(n) > kMaxBytes) tooLarge();
      capacity = std::min<std::size_t>(capacity * 2 + sizeof probe, kMaxBytes);
      simdjson::padded_string larger(capacity);
      if (larger.data() == nullptr) noMemory();
      std::memcpy(larger.data(), text.data(), size);
      std::memcpy(larger.data() + size, probe, static_cast<std::size_t>(n));
      text.swap(larger);
    }
    size += static_cast<std::size_t>(n);
  }
  ::close(fd);
  dom::parser parser;
  const auto parsed = parser.parse(text.data(), size, false);
  // The tree holds its own copies of the strings, so the file's text goes
  // before the tree is walked: with large pictures, the text, the tree's
  // copy and the decoded bytes would otherwise all be held at once.
  simdjson::padded_string().swap(text);
  return decodeParsed(parsed);
}

}  // namespace inkharbour::DocumentFile
