#include "story_text.h"

#include <charconv>

namespace inkharbour::fuzz {

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t at = 0;;) {
    const std::size_t end = text.find(separator, at);
    parts.push_back(text.substr(at, end == std::string_view::npos ? end : end - at));
    if (end == std::string_view::npos) return parts;
    at = end + 1;
  }
}

// Up to 18 digits, so that the number always fits.
std::size_t digitsAt(std::string_view text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && end - at < 18 && text[end] >= '0' && text[end] <= '9') ++end;
  return end - at;
}

std::int64_t number(std::string_view digits) {
  std::int64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

std::string styleNamed(char letter) {
  switch (letter) {
    case 'T':
      return "Title";
    case '1':
      return "Heading 1";
    case '2':
      return "Heading 2";
    case 'B':
      return "Body";
    case 'Q':
      return "Quote";
    default:
      return std::string("Style ") + letter;
  }
}

class Parser {
 public:
  std::vector<TextStory> stories(std::string_view text, std::size_t count) {
    std::vector<TextStory> out(count);
    std::size_t current = 0;
    for (const auto line : split(text, '\n')) {
      if (line == "---") {
        if (++current == count) break;
        continue;
      }
      if (count > 0) addLine(out[current], line);
    }
    return out;
  }

 private:
  void addLine(TextStory& story, std::string_view line) {
    story_ = &story;
    if (line.starts_with('|')) {
      story.blocks.push_back(Block{.id = nextId(), .kind = table(line.substr(1))});
    } else if (line.starts_with('!')) {
      line.remove_prefix(1);
      const std::size_t colon = line.find(':');
      ImageBlock image{.data = {}, .name = "image.png"};
      if (colon != std::string_view::npos) {
        image.name = line.substr(0, colon);
        line.remove_prefix(colon + 1);
      }
      image.data = Data(line.begin(), line.end());
      story.blocks.push_back(Block{.id = nextId(), .kind = std::move(image)});
    } else if (line.starts_with('^')) {
      const std::size_t digits = digitsAt(line, 1);
      Footnote note{.id = number(line.substr(1, digits)), .paragraphs = {}};
      line.remove_prefix(1 + digits);
      if (line.starts_with(' ')) line.remove_prefix(1);
      for (const auto part : split(line, '\\')) note.paragraphs.push_back(paragraph(part, "Body"));
      story.footnotes.push_back(std::move(note));
    } else if (line.size() >= 2 && line[0] == '=') {
      std::string style = styleNamed(line[1]);
      line.remove_prefix(line.size() > 2 && line[2] == ' ' ? 3 : 2);
      story.blocks.push_back(Block{.id = nextId(), .kind = paragraph(line, std::move(style))});
    } else {
      story.blocks.push_back(Block{.id = nextId(), .kind = paragraph(line, "Body")});
    }
  }

  Table table(std::string_view text) {
    Table out;
    for (const auto row : split(text, '/')) {
      auto& cells = out.rows.emplace_back();
      if (row.empty()) continue;
      for (const auto cell : split(row, '|')) {
        auto& paragraphs = cells.emplace_back().paragraphs;
        for (const auto part : split(cell, '\\')) paragraphs.push_back(paragraph(part, "Body"));
      }
    }
    return out;
  }

  Paragraph paragraph(std::string_view text, std::string style) {
    Paragraph out{.styleName = std::move(style), .runs = {}};
    TextRun format;
    std::string pending;
    const auto flush = [&] {
      if (pending.empty()) return;
      out.runs.push_back(format);
      out.runs.back().text = std::move(pending);
      pending.clear();
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      bool* flag = c == '*'   ? &format.bold
                   : c == '_' ? &format.italic
                   : c == '+' ? &format.underline
                   : c == '~' ? &format.strikethrough
                   : c == '%' ? &format.smallCaps
                              : nullptr;
      if (flag != nullptr) {
        flush();
        *flag = !*flag;
      } else if (c == '$') {
        flush();
        format.colorHex = format.colorHex ? std::nullopt : std::optional<std::string>("1F2E3D");
      } else if (c == '`') {
        flush();
        format.script = static_cast<ScriptPosition>((static_cast<int>(format.script) + 1) % 3);
      } else if (const std::size_t digits = c == '#' ? digitsAt(text, i + 1) : 0; digits > 0) {
        flush();
        out.runs.push_back(TextRun::footnoteReference(number(text.substr(i + 1, digits))));
        i += digits;
      } else {
        pending += c;
      }
    }
    flush();
    // A table's key joins its cells with U+001F and rows with U+001E, so
    // text holding them can give tables of other shapes the same key.
    const bool isPlain = out.styleName == "Body" && out.runs.size() <= 1 &&
                         (out.runs.empty() || out.runs[0] == TextRun{.text = out.runs[0].text}) &&
                         text.find_first_of("\x1E\x1F") == std::string_view::npos;
    story_->plain = story_->plain && isPlain;
    return out;
  }

  Uuid nextId() {
    Uuid id;
    ++count_;
    for (std::size_t i = 0; i < 8; ++i)
      id.bytes[15 - i] = static_cast<std::uint8_t>(count_ >> (8 * i));
    return id;
  }

  TextStory* story_ = nullptr;
  std::uint64_t count_ = 0;
};

}  // namespace

std::vector<TextStory> parseStories(std::string_view text, std::size_t count) {
  return Parser().stories(text, count);
}

}  // namespace inkharbour::fuzz
