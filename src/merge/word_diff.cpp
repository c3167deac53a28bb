#include "merge/word_diff.h"

#include <utf8proc.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "merge/lcs.h"
#include "merge/merge_keys.h"

namespace inkharbour::MergeEngine {

namespace {

enum class Class { word, alone, between };

// Scripts written without spaces: each ideograph or kana stands for a word
// of its own, or a changed character would mark a whole sentence.
bool ideographic(utf8proc_int32_t c) {
  return (c >= 0x2E80 && c <= 0x9FFF) || (c >= 0xF900 && c <= 0xFAFF) ||
         (c >= 0xFF66 && c <= 0xFF9F) || (c >= 0x20000 && c <= 0x3FFFF);
}

bool wordCategory(utf8proc_category_t category) {
  switch (category) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
    case UTF8PROC_CATEGORY_PC:
      return true;
    default:
      return false;
  }
}

// A cluster is classed by its first code point; -1 stands for a malformed byte.
Class classOf(utf8proc_int32_t c) {
  if (c < 0) return Class::between;
  const utf8proc_property_t* property = utf8proc_get_property(c);
  switch (property->boundclass) {
    case UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC:
    case UTF8PROC_BOUNDCLASS_E_ZWG:
    case UTF8PROC_BOUNDCLASS_E_BASE:
    case UTF8PROC_BOUNDCLASS_E_BASE_GAZ:
    case UTF8PROC_BOUNDCLASS_GLUE_AFTER_ZWJ:
    case UTF8PROC_BOUNDCLASS_REGIONAL_INDICATOR:
      return Class::alone;
    default:
      break;
  }
  if (!wordCategory(static_cast<utf8proc_category_t>(property->category))) return Class::between;
  return ideographic(c) ? Class::alone : Class::word;
}

bool apostrophe(std::string_view cluster) {
  return cluster == "'" || cluster == "\u2019";
}

struct Cluster {
  std::size_t begin, end;
  Class kind;
};

std::vector<Cluster> clusters(std::string_view text) {
  std::vector<Cluster> out;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  utf8proc_int32_t previous = -1;  // -1: no code point before, or a malformed byte
  utf8proc_int32_t state = 0;
  for (std::size_t i = 0; i < text.size();) {
    utf8proc_int32_t c = -1;
    const auto n = utf8proc_iterate(bytes + i, static_cast<utf8proc_ssize_t>(text.size() - i), &c);
    const bool valid = n > 0;
    if (!valid || previous < 0) state = 0;
    const bool breaks =
        !valid || previous < 0 || utf8proc_grapheme_break_stateful(previous, c, &state);
    const std::size_t length = valid ? static_cast<std::size_t>(n) : 1;
    if (breaks) {
      out.push_back(Cluster{i, i + length, classOf(valid ? c : -1)});
    } else {
      out.back().end = i + length;
    }
    previous = valid ? c : -1;
    i += length;
  }
  return out;
}

bool whiteSpace(std::string_view token) {
  for (const char c : token) {
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') return false;
  }
  return !token.empty();
}

std::vector<std::uint32_t> idsOf(const std::vector<std::string_view>& tokens,
                                 std::unordered_map<std::string_view, std::uint32_t, KeyedHash>& numbers) {
  std::vector<std::uint32_t> ids;
  ids.reserve(tokens.size());
  for (const auto token : tokens) {
    ids.push_back(
        numbers.try_emplace(token, static_cast<std::uint32_t>(numbers.size())).first->second);
  }
  return ids;
}

std::vector<WordSpan> spansOf(std::string_view text, const std::vector<std::string_view>& tokens,
                              const std::vector<bool>& shared) {
  std::vector<WordSpan> out;
  for (std::size_t t = 0; t < tokens.size(); ++t) {
    const auto begin = static_cast<std::size_t>(tokens[t].data() - text.data());
    const std::size_t end = begin + tokens[t].size();
    if (!out.empty() && out.back().changed == !shared[t]) {
      out.back().end = end;
    } else {
      out.push_back(WordSpan{.begin = begin, .end = end, .changed = !shared[t]});
    }
  }
  return out;
}

}  // namespace

std::vector<std::string_view> wordTokens(std::string_view text) {
  const auto parts = clusters(text);
  std::vector<std::string_view> out;
  auto cluster = [&](std::size_t k) {
    return text.substr(parts[k].begin, parts[k].end - parts[k].begin);
  };
  for (std::size_t k = 0; k < parts.size();) {
    const std::size_t begin = parts[k].begin;
    const Class kind = parts[k].kind;
    ++k;
    if (kind == Class::word) {
      // "don't" is one word: an apostrophe between letters belongs to it.
      while (k < parts.size() &&
             (parts[k].kind == Class::word || (k + 1 < parts.size() && apostrophe(cluster(k)) &&
                                               parts[k + 1].kind == Class::word))) {
        ++k;
      }
    } else if (kind == Class::between) {
      while (k < parts.size() && parts[k].kind == Class::between) ++k;
    }
    const std::size_t end = parts[k - 1].end;
    out.push_back(text.substr(begin, end - begin));
  }
  return out;
}

WordDiff wordDiff(std::string_view local, std::string_view external) {
  const auto a = wordTokens(local);
  const auto b = wordTokens(external);
  std::unordered_map<std::string_view, std::uint32_t, KeyedHash> numbers;
  const auto aIds = idsOf(a, numbers);
  const auto bIds = idsOf(b, numbers);
  const MatchMap matches = lcsMatchIds(aIds, bIds);

  std::vector<bool> aShared(a.size(), false), bShared(b.size(), false);
  for (std::size_t k = 0; k < matches.size(); ++k) {
    const auto [i, j] = matches[k];
    const bool joinsBefore = k > 0 && matches[k - 1] == std::pair{i - 1, j - 1};
    const bool joinsAfter = k + 1 < matches.size() && matches[k + 1] == std::pair{i + 1, j + 1};
    const bool changeBefore = i > 0 || j > 0;
    const bool changeAfter = i + 1 < a.size() || j + 1 < b.size();
    if (!joinsBefore && !joinsAfter && changeBefore && changeAfter && whiteSpace(a[i])) continue;
    aShared[i] = true;
    bShared[j] = true;
  }
  return WordDiff{.local = spansOf(local, a, aShared), .external = spansOf(external, b, bShared)};
}

}  // namespace inkharbour::MergeEngine
