// Uuid: a 128-bit random identifier of stories, blocks, Story Notes and change
// records. Files hold its standard 36-character text form in upper case.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace inkharbour {

struct Uuid {
  std::array<std::uint8_t, 16> bytes{};

  // A fresh random (version 4) identifier.
  static Uuid random();
  // Parses the 36-character form in either case; no value for anything else.
  static std::optional<Uuid> parse(std::string_view text);
  // The upper-case 36-character form, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
  std::string string() const;

  auto operator<=>(const Uuid&) const = default;
  bool operator==(const Uuid&) const = default;
};

}  // namespace inkharbour
