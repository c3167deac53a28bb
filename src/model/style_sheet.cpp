#include "model/style_sheet.h"

#include "model/text.h"

namespace inkharbour::StyleSheet {

namespace {

// The static copy of a style name, so callers may keep the view.
std::string_view canonical(std::string_view styleName) {
  for (const auto& style : styles) {
    if (style.name == styleName) return style.name;
  }
  return {};
}

bool contains(std::string_view haystack, std::string_view needle) {
  return haystack.find(needle) != std::string_view::npos;
}

}  // namespace

double fontSize(std::string_view styleName) {
  for (const auto& style : styles) {
    if (style.name == styleName) return style.fontSize;
  }
  return 13;
}

bool isStyle(std::string_view styleName) { return !canonical(styleName).empty(); }

std::string_view mapWord(std::string_view wordName,
                         const StyleMap& custom) {
  if (const auto entry = custom.find(wordName); entry != custom.end()) {
    // A value that is not one of ours is ignored, as if the entry were absent.
    if (const auto name = canonical(entry->second); !name.empty()) return name;
  }
  const std::string lower = text::lowercased(wordName);
  // The order matters: the substring tests are greedy, so "Subtitle" is a
  // title and "Heading 10" a first-level heading.
  if (contains(lower, "title")) return "Title";
  if (contains(lower, "heading 1") || lower == "heading1" || lower == "h1") return "Heading 1";
  if (contains(lower, "heading 2") || lower == "heading2" || lower == "h2") return "Heading 2";
  if (contains(lower, "heading")) return "Heading 2";
  if (contains(lower, "quote") || contains(lower, "intense")) return "Quote";
  return "Body";
}

}  // namespace inkharbour::StyleSheet
