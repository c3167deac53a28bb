#include "merge/word_diff.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "model/text.h"

namespace inkharbour::MergeEngine {
namespace {

std::string joinTokens(std::string_view text) {
  std::string out;
  for (const auto token : wordTokens(text)) out += (out.empty() ? "" : "|") + std::string(token);
  return out;
}

// The text with each changed span in brackets.
std::string marked(std::string_view text, const std::vector<WordSpan>& spans) {
  std::string out;
  for (const auto& span : spans) {
    const auto piece = std::string(text.substr(span.begin, span.end - span.begin));
    out += span.changed ? "[" + piece + "]" : piece;
  }
  return out;
}

TEST(WordTokens, WordsSeparatorsAndWholeCharacters) {
  const struct {
    const char* name;
    std::string text, tokens;
  } cases[] = {
      {"empty", "", ""},
      {"words and the runs between them", "Hello, world!", "Hello|, |world|!"},
      {"an apostrophe between letters stays in the word", "don't 'go'", "don't| '|go|'"},
      {"a decomposed accent stays on its letter", "cafe\u0301 noir", "cafe\u0301| |noir"},
      {"each ideograph and kana alone", "東京へ tower", "東|京|へ| |tower"},
      {"CJK punctuation is between words", "猫。犬", "猫|。|犬"},
      {"an emoji with joiners is one token", "a\U0001F468\u200D\U0001F469\u200D\U0001F467b",
       "a|\U0001F468\u200D\U0001F469\u200D\U0001F467|b"},
      {"a skin tone stays with its emoji", "\U0001F44D\U0001F3FD\U0001F44D",
       "\U0001F44D\U0001F3FD|\U0001F44D"},
      {"flags pair their regional indicators", "\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA",
       "\U0001F1EB\U0001F1F7|\U0001F1E9\U0001F1EA"},
      {"a malformed byte joins the separators", "a\xff b", "a|\xff |b"},
  };
  for (const auto& c : cases) EXPECT_EQ(joinTokens(c.text), c.tokens) << c.name;
}

// Every token edge is an edge of a user-perceived character, as the
// summaries count them, and the tokens give back the text.
TEST(WordTokens, NeverCutACharacterOnRandomText) {
  const std::vector<std::string> pieces = {
      "a",          "e\u0301",    " ",  ", ", "\u0301", "\u200D", "\U0001F468", "\U0001F3FD",
      "\U0001F1EB", "\U0001F1F7", "漢", "'",  "\xff",   "\u2019", "x",          "\r\n"};
  std::mt19937_64 random(7);
  for (int round = 0; round < 500; ++round) {
    std::string text;
    for (std::size_t k = random() % 12; k > 0; --k) text += pieces[random() % pieces.size()];
    std::vector<std::size_t> edges;
    for (std::size_t count = 0;; ++count) {
      edges.push_back(text::leadingCharacters(text, count).size());
      if (edges.back() == text.size()) break;
    }
    std::string rebuilt;
    for (const auto token : wordTokens(text)) {
      EXPECT_FALSE(token.empty());
      rebuilt += token;
      EXPECT_TRUE(std::find(edges.begin(), edges.end(), rebuilt.size()) != edges.end())
          << "cut inside a character after \"" << rebuilt << "\" in \"" << text << "\"";
    }
    EXPECT_EQ(rebuilt, text);
  }
}

TEST(WordDiff, MarksChangedWords) {
  const struct {
    const char* name;
    std::string local, external, markedLocal, markedExternal;
  } cases[] = {
      {"identical", "Same text.", "Same text.", "Same text.", "Same text."},
      {"both empty", "", "", "", ""},
      {"local empty", "", "All new", "", "[All new]"},
      {"external empty", "All gone", "", "[All gone]", ""},
      {"a word in the middle", "the quick brown fox", "the slow brown fox", "the [quick] brown fox",
       "the [slow] brown fox"},
      {"an inserted word", "a b", "a new b", "a b", "a [new ]b"},
      {"punctuation only", "Stop.", "Stop!", "Stop[.]", "Stop[!]"},
      {"a rewrite is one change, not words around a space", "one two", "three four", "[one two]",
       "[three four]"},
      {"a decomposed accent against a composed one", "cafe\u0301 au lait", "caf\u00E9 au lait",
       "[cafe\u0301] au lait", "[caf\u00E9] au lait"},
      {"one ideograph", "我喜欢猫", "我喜欢狗", "我喜欢[猫]", "我喜欢[狗]"},
      {"a skin tone", "ok \U0001F44D\U0001F3FB thanks", "ok \U0001F44D\U0001F3FF thanks",
       "ok [\U0001F44D\U0001F3FB] thanks", "ok [\U0001F44D\U0001F3FF] thanks"},
      {"one member of a family", "\U0001F468\u200D\U0001F469\u200D\U0001F467 home",
       "\U0001F468\u200D\U0001F469\u200D\U0001F466 home",
       "[\U0001F468\u200D\U0001F469\u200D\U0001F467] home",
       "[\U0001F468\u200D\U0001F469\u200D\U0001F466] home"},
      {"one flag of two", "\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA",
       "\U0001F1EB\U0001F1F7\U0001F1EE\U0001F1F9", "\U0001F1EB\U0001F1F7[\U0001F1E9\U0001F1EA]",
       "\U0001F1EB\U0001F1F7[\U0001F1EE\U0001F1F9]"},
  };
  for (const auto& c : cases) {
    const WordDiff diff = wordDiff(c.local, c.external);
    EXPECT_EQ(marked(c.local, diff.local), c.markedLocal) << c.name;
    EXPECT_EQ(marked(c.external, diff.external), c.markedExternal) << c.name;
  }
}

}  // namespace
}  // namespace inkharbour::MergeEngine
