#include "model/base64.h"

#include <array>

namespace inkharbour {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0xFF;

constexpr std::array<std::uint8_t, 256> makeDecodeTable() {
  std::array<std::uint8_t, 256> table{};
  table.fill(kInvalid);
  for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = i;
  return table;
}

constexpr auto kDecode = makeDecodeTable();

}  // namespace

void appendBase64(std::string& out, std::span<const std::uint8_t> bytes) {
  const std::size_t start = out.size();
  out.resize(start + (bytes.size() + 2) / 3 * 4);
  char* to = out.data() + start;
  const std::uint8_t* from = bytes.data();
  const std::uint8_t* const wholeEnd = from + bytes.size() / 3 * 3;
  for (; from != wholeEnd; from += 3, to += 4) {
    const std::uint32_t triple = (std::uint32_t{from[0]} << 16) | (std::uint32_t{from[1]} << 8) | from[2];
    to[0] = kAlphabet[triple >> 18];
    to[1] = kAlphabet[(triple >> 12) & 63];
    to[2] = kAlphabet[(triple >> 6) & 63];
    to[3] = kAlphabet[triple & 63];
  }
  const std::size_t rest = bytes.size() % 3;
  if (rest == 0) return;
  const std::uint32_t partial =
      (std::uint32_t{from[0]} << 16) | (rest == 2 ? std::uint32_t{from[1]} << 8 : 0);
  to[0] = kAlphabet[partial >> 18];
  to[1] = kAlphabet[(partial >> 12) & 63];
  to[2] = rest == 2 ? kAlphabet[(partial >> 6) & 63] : '=';
  to[3] = '=';
}

std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  if (!text.empty() && text.back() == '=') padding = text[text.size() - 2] == '=' ? 2 : 1;

  std::vector<std::uint8_t> bytes(text.size() / 4 * 3 - padding);
  const auto* from = reinterpret_cast<const unsigned char*>(text.data());
  // Every group but a padded last one decodes four characters to three bytes.
  const std::size_t wholeGroups = text.size() / 4 - (padding > 0 ? 1 : 0);
  std::uint8_t* to = bytes.data();
  std::uint8_t invalid = 0;
  for (std::size_t group = 0; group < wholeGroups; ++group, from += 4, to += 3) {
    const std::uint8_t a = kDecode[from[0]], b = kDecode[from[1]], c = kDecode[from[2]],
                       d = kDecode[from[3]];
    // kInvalid is the only table entry with its top bit set.
    invalid |= a | b | c | d;
    const std::uint32_t triple = (std::uint32_t{a} << 18) | (std::uint32_t{b} << 12) |
                                 (std::uint32_t{c} << 6) | d;
    to[0] = static_cast<std::uint8_t>(triple >> 16);
    to[1] = static_cast<std::uint8_t>(triple >> 8);
    to[2] = static_cast<std::uint8_t>(triple);
  }
  if (invalid & 0x80) return std::nullopt;
  if (padding == 0) return bytes;

  const std::uint8_t a = kDecode[from[0]], b = kDecode[from[1]];
  const std::uint8_t c = padding == 1 ? kDecode[from[2]] : 0;
  if ((a | b | c) & 0x80) return std::nullopt;
  // The bits of the last character that no byte uses must be zero.
  if (padding == 2 ? (b & 0x0F) != 0 : (c & 0x03) != 0) return std::nullopt;
  to[0] = static_cast<std::uint8_t>((a << 2) | (b >> 4));
  if (padding == 1) to[1] = static_cast<std::uint8_t>((b << 4) | (c >> 2));
  return bytes;
}

}  // namespace inkharbour
