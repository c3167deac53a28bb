#include <gtest/gtest.h>

#include "model/style_sheet.h"
#include "model/text.h"

namespace inkharbour {
namespace {

TEST(StyleSheet, StylesAndFontSizes) {
  ASSERT_EQ(StyleSheet::styles.size(), 5u);
  EXPECT_EQ(StyleSheet::styles[0].name, "Title");
  EXPECT_EQ(StyleSheet::styles[4].name, "Quote");
  EXPECT_EQ(StyleSheet::fontSize("Title"), 28);
  EXPECT_EQ(StyleSheet::fontSize("Heading 1"), 22);
  EXPECT_EQ(StyleSheet::fontSize("Heading 2"), 17);
  EXPECT_EQ(StyleSheet::fontSize("Body"), 13);
  EXPECT_EQ(StyleSheet::fontSize("Quote"), 13);
  // Names are compared exactly, never lower-cased.
  EXPECT_EQ(StyleSheet::fontSize("heading 1"), 13);
  EXPECT_EQ(StyleSheet::fontSize(""), 13);
}

TEST(StyleSheet, BuiltInRulesInTheirOrder) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Heading 1", "Heading 1"},
      {"heading 2", "Heading 2"},
      {"Heading 4", "Heading 2"},
      {"Heading 10", "Heading 1"},
      {"Subtitle", "Title"},
      {"Title Heading", "Title"},
      {"HEADING1", "Heading 1"},
      {"h1", "Heading 1"},
      {"H2", "Heading 2"},
      {"H1 Char", "Body"},
      {"heading1 char", "Heading 2"},
      {"Intense Quote", "Quote"},
      {"Intense Emphasis", "Quote"},
      {"Quote", "Quote"},
      // Neither "quote" nor "intense" is in it.
      {"Block Quotation", "Body"},
      {"Normal", "Body"},
      {"", "Body"},
      {"\xC3\x9c" "BERSCHRIFT", "Body"},
      // İ lower-cases to i with a combining dot, so this is no title.
      {"T\xC4\xB0TLE", "Body"},
      {"\xC3\x89TITLE", "Title"},
  };
  for (const auto& [word, expected] : cases) {
    EXPECT_EQ(StyleSheet::mapWord(word, {}), expected) << word;
  }
}

TEST(StyleSheet, CustomEntriesWinOnlyWithAProgramStyle) {
  const StyleMap custom{{"Subtitle", "Heading 2"}, {"Caption", "Figure"}, {"Normal", "quote"}};
  EXPECT_EQ(StyleSheet::mapWord("Subtitle", custom), "Heading 2");
  EXPECT_EQ(StyleSheet::mapWord("Caption", custom), "Body");
  EXPECT_EQ(StyleSheet::mapWord("Normal", custom), "Body");
  // Keys match case-sensitively.
  EXPECT_EQ(StyleSheet::mapWord("subtitle", custom), "Title");

  const StyleMap invalid{{"Subtitle", "Caption"}};
  EXPECT_EQ(StyleSheet::mapWord("Subtitle", invalid), "Title");
}

TEST(Text, LowercasedFollowsUnicode) {
  EXPECT_EQ(text::lowercased("Heading ABC"), "heading abc");
  EXPECT_EQ(text::lowercased("\xC3\x9c" "BER"), "\xC3\xBC" "ber");
  EXPECT_EQ(text::lowercased("\xC4\xB0"), "i\xCC\x87");
  EXPECT_EQ(text::lowercased("\xCE\xA3"), "\xCF\x83");
  // Bytes that are no UTF-8 pass through.
  EXPECT_EQ(text::lowercased("A\xFF" "B"), "a\xFF" "b");
}

TEST(Text, Utf8Validation) {
  EXPECT_TRUE(text::isValidUtf8(""));
  EXPECT_TRUE(text::isValidUtf8("plain"));
  EXPECT_TRUE(text::isValidUtf8("\xE2\x80\xA8 \xF0\x9F\x98\x80"));
  EXPECT_FALSE(text::isValidUtf8("\xC0\xAF"));          // overlong "/"
  EXPECT_FALSE(text::isValidUtf8("\xED\xA0\x80"));      // a surrogate
  EXPECT_FALSE(text::isValidUtf8("\xF4\x90\x80\x80"));  // above U+10FFFF
  EXPECT_FALSE(text::isValidUtf8("\xE2\x80"));          // cut short
  EXPECT_FALSE(text::isValidUtf8("\xFF"));
}

}  // namespace
}  // namespace inkharbour
