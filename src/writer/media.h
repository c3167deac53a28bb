// Pictures of a written Word package: which media member each image block is
// stored in, under which file name, and at which size it is drawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/story.h"

namespace inkharbour::writer {

struct Extent {
  std::int64_t cx = 0;  // EMU
  std::int64_t cy = 0;

  bool operator==(const Extent&) const = default;
};

struct MediaMember {
  std::string name;                   // file name under word/media/
  const SharedBytes* data = nullptr;  // owned by the image block that named the member
  std::string relationshipID;         // "rId3", "rId4", ... in member order
  Extent extent;
};

struct MediaPlan {
  std::vector<MediaMember> members;        // in order of first use
  std::vector<std::size_t> memberOfImage;  // index into members, per image as given

  // The distinct lower-cased extensions of the members' names, sorted.
  std::set<std::string> extensions() const;
};

// Gives every image a media member. Images with the same bytes under the same
// name share one member. An image keeps its own name when that is a safe
// file name (isSafeMediaName) with a usable extension and no earlier image
// claimed it with other bytes; names are compared ignoring ASCII case, as
// package part names are. Every other image gets a generated name: its own
// name's stem (or "image" when the name is unsafe) with "-2", "-3", ...
// appended as needed, and its own extension, or one recognised from the bytes
// ("png" when nothing is recognised).
MediaPlan planMedia(const std::vector<const ImageBlock*>& images);

// True when `name` can be a member of word/media/ on every platform: not
// empty, "." or "..", no path separators or other characters that file
// systems or package URIs reject, no control characters, not a name Windows
// reserves for devices ("CON", "nul.png", ...), no trailing dot or blank.
bool isSafeMediaName(std::string_view name);

// The drawn size of an image: its pixel size as decoded, scaled down to 576
// pixels wide when it is 577 or wider; 400 x 300 pixels when the data does
// not decode. One pixel is 9525 EMU, truncated.
Extent imageExtent(std::span<const std::uint8_t> data);

// The content type of an image by its lower-cased extension; "image/png" for
// extensions not in the table.
std::string_view imageContentType(std::string_view extension);

}  // namespace inkharbour::writer
