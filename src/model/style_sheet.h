// StyleSheet: the program's five paragraph styles, their display sizes, and
// the rule that turns a Word paragraph style name into one of them.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "model/story.h"

namespace inkharbour::StyleSheet {

struct Style {
  std::string_view name;
  double fontSize;  // points
};

inline constexpr std::array<Style, 5> styles{{
    {"Title", 28},
    {"Heading 1", 22},
    {"Heading 2", 17},
    {"Body", 13},
    {"Quote", 13},
}};

// The display size of a style, compared exactly; 13 for any unknown name.
double fontSize(std::string_view styleName);

// True when the name is exactly one of the five styles.
bool isStyle(std::string_view styleName);

// The program style for a Word style name. A custom entry for exactly that
// name wins when its value is one of the five styles; otherwise the built-in
// substring rules decide ("title", then headings, then "quote"/"intense"),
// and everything else is "Body". The result always names one of `styles`.
std::string_view mapWord(std::string_view wordName,
                         const StyleMap& custom);

}  // namespace inkharbour::StyleSheet
