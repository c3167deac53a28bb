#include "writer/docx_layout.h"

#include <algorithm>

#include "importers/xml_parser.h"

namespace inkharbour::writer {

namespace {

// Tracks the depth of the parse and the spans of the elements at one depth,
// handing every event on to the reader's own parser.
template <typename Inner>
class SpanRecorder : public XmlHandler {
 public:
  explicit SpanRecorder(Inner& inner) : inner_(inner) { setWantsCharacters(false); }
  void attach(const XmlParser& parser) { parser_ = &parser; }

  void characters(std::string_view text) override { inner_.characters(text); }

 protected:
  // The span of the start tag being handled.
  Span startTag() const {
    const auto offset = static_cast<std::size_t>(parser_->eventOffset());
    return {offset, offset + parser_->eventLength()};
  }
  // Where the element whose end is being handled ends, given its start tag.
  std::size_t endOf(const Span& start) const {
    const auto offset = static_cast<std::size_t>(parser_->eventOffset());
    return std::max(start.end, offset + parser_->eventLength());
  }
  void forwardStart(std::string_view name, const XmlAttributes& attributes) {
    inner_.startElement(name, attributes);
    setWantsCharacters(inner_.wantsCharacters());
  }
  void forwardEnd(std::string_view name) {
    inner_.endElement(name);
    setWantsCharacters(inner_.wantsCharacters());
  }

  Inner& inner_;
  const XmlParser* parser_ = nullptr;
  std::size_t depth_ = 0;
};

class DocumentRecorder final : public SpanRecorder<docx::BodyParser> {
 public:
  DocumentRecorder(docx::BodyParser& body, DocumentLayout& layout)
      : SpanRecorder(body), layout_(layout) {}

  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    ++depth_;
    if (depth_ == 2 && name == "body") {
      // A part with several bodies (the reader reads them all) is taken as one.
      if (!sawBody_) layout_.body.start = startTag().end;
      inBody_ = true;
    } else if (depth_ == 3 && inBody_) {
      current_ = BodyElement{.span = startTag(), .name = std::string(name),
                             .firstBlock = inner_.blocks().size()};
    }
    forwardStart(name, attributes);
  }

  void endElement(std::string_view name) override {
    forwardEnd(name);
    if (depth_ == 3 && inBody_) {
      current_.span.end = endOf(current_.span);
      current_.blockCount = inner_.blocks().size() - current_.firstBlock;
      layout_.elements.push_back(std::move(current_));
    } else if (depth_ == 2 && inBody_) {
      layout_.body.end = static_cast<std::size_t>(parser_->eventOffset());
      inBody_ = false;
      sawBody_ = true;
    }
    --depth_;
  }

  bool sawBody() const { return sawBody_; }
  bool betweenBodyElements() const { return inBody_ && depth_ == 2 && inner_.atRest(); }

 private:
  DocumentLayout& layout_;
  BodyElement current_;
  bool inBody_ = false;
  bool sawBody_ = false;
};

class NotesRecorder final : public SpanRecorder<docx::NotesParser> {
 public:
  NotesRecorder(docx::NotesParser& notes, NotesLayout& layout, std::string_view element,
                std::int64_t offset)
      : SpanRecorder(notes), layout_(layout), element_(element), offset_(offset) {}

  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    ++depth_;
    if (depth_ == 1) {
      layout_.content.start = startTag().end;
    } else if (depth_ == 2) {
      current_ = NoteElement{.span = startTag(), .number = std::nullopt, .separator = false};
      if (name == element_) {
        const auto type = attributes.get("w:type", "type");
        // As the reader has it: every other note is a note.
        current_.separator = type == "separator" || type == "continuationSeparator";
        const auto id = attributes.get("w:id", "id");
        std::int64_t number = 0;
        if (const auto parsed = id ? docx::parseInteger(*id) : std::nullopt;
            parsed && !__builtin_add_overflow(*parsed, offset_, &number)) {
          current_.number = number;
        }
      } else {
        current_.separator = true;  // anything else between the notes stays as it is
      }
    }
    forwardStart(name, attributes);
  }

  void endElement(std::string_view name) override {
    forwardEnd(name);
    if (depth_ == 2) {
      current_.span.end = endOf(current_.span);
      layout_.notes.push_back(current_);
    } else if (depth_ == 1) {
      layout_.content.end = static_cast<std::size_t>(parser_->eventOffset());
    }
    --depth_;
  }

 private:
  NotesLayout& layout_;
  std::string_view element_;
  std::int64_t offset_;
  NoteElement current_;
};

}  // namespace

struct DocumentScanner::State {
  State(const docx::StyleNames& styles, const StyleMap& styleMap, docx::ImageLoader images,
        ImportBudget& budget)
      : body(styles, styleMap, std::move(images), budget, "word/document.xml"),
        recorder(body, layout),
        parser(recorder) {
    recorder.attach(parser);
  }

  DocumentLayout layout;
  docx::BodyParser body;
  DocumentRecorder recorder;
  XmlParser parser;
};

DocumentScanner::DocumentScanner(const docx::StyleNames& styles, const StyleMap& styleMap,
                                 docx::ImageLoader images, ImportBudget& budget)
    : state_(std::make_unique<State>(styles, styleMap, std::move(images), budget)) {}

DocumentScanner::~DocumentScanner() = default;

void DocumentScanner::feed(std::string_view chunk) { state_->parser.feed(chunk, false); }

bool DocumentScanner::betweenBodyElements() const {
  return !state_->parser.failed() && state_->recorder.betweenBodyElements();
}

DocumentLayout DocumentScanner::takeSoFar() {
  state_->layout.blocks = std::move(state_->body.blocks());
  return std::move(state_->layout);
}

std::optional<DocumentLayout> DocumentScanner::finish() {
  state_->parser.feed({}, true);
  if (!state_->parser.succeeded() || !state_->recorder.sawBody()) return std::nullopt;
  state_->layout.blocks = std::move(state_->body.blocks());
  return std::move(state_->layout);
}

std::optional<NotesLayout> scanNotes(std::string_view xml, std::string_view element,
                                     std::int64_t offset, const docx::StyleNames& styles,
                                     const StyleMap& styleMap, ImportBudget& budget) {
  NotesLayout layout;
  docx::NotesParser notes(styles, styleMap, budget, "word/" + std::string(element) + "s.xml",
                          element, offset);
  NotesRecorder recorder(notes, layout, element, offset);
  XmlParser parser(recorder);
  recorder.attach(parser);
  parser.feed(xml, true);
  if (!parser.succeeded()) return std::nullopt;
  layout.footnotes = std::move(notes.footnotes());
  return layout;
}

}  // namespace inkharbour::writer
