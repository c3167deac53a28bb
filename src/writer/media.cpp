#include "writer/media.h"

#include <stb_image.h>

#include <array>
#include <climits>
#include <functional>
#include <map>
#include <utility>

#include "writer/xml_text.h"

namespace inkharbour::writer {

namespace {

constexpr std::size_t kMaxNameBytes = 200;
constexpr int kMaxWidthPixels = 576;
constexpr std::int64_t kEmuPerPixel = 9525;

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

std::string asciiLowered(std::string_view s) {
  std::string out(s);
  for (auto& c : out) c = asciiLower(c);
  return out;
}

bool isAlnum(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The text after the last dot when it can name a content type: a few ASCII
// letters or digits, and not one of the two extensions the package itself
// uses for its XML parts.
std::string_view usableExtension(std::string_view name) {
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos) return {};
  const auto extension = name.substr(dot + 1);
  if (extension.empty() || extension.size() > 10) return {};
  for (const char c : extension) {
    if (!isAlnum(c)) return {};
  }
  const auto lower = asciiLowered(extension);
  if (lower == "xml" || lower == "rels") return {};
  return extension;
}

bool isReservedDeviceName(std::string_view name) {
  auto stem = name.substr(0, name.find('.'));
  while (!stem.empty() && stem.back() == ' ') stem.remove_suffix(1);
  const auto lower = asciiLowered(stem);
  if (lower == "con" || lower == "prn" || lower == "aux" || lower == "nul" || lower == "conin$" ||
      lower == "conout$") {
    return true;
  }
  return lower.size() == 4 && (lower.starts_with("com") || lower.starts_with("lpt")) &&
         lower[3] >= '0' && lower[3] <= '9';
}

bool startsWith(std::span<const std::uint8_t> data, std::size_t offset, std::string_view magic) {
  if (data.size() < offset + magic.size()) return false;
  for (std::size_t i = 0; i < magic.size(); ++i) {
    if (data[offset + i] != static_cast<unsigned char>(magic[i])) return false;
  }
  return true;
}

// An extension for bytes whose name offers none.
std::string_view sniffExtension(std::span<const std::uint8_t> data) {
  using namespace std::string_view_literals;
  if (startsWith(data, 0, "\x89PNG"sv)) return "png";
  if (startsWith(data, 0, "\xFF\xD8\xFF"sv)) return "jpeg";
  if (startsWith(data, 0, "GIF8"sv)) return "gif";
  if (startsWith(data, 0, "BM"sv)) return "bmp";
  if (startsWith(data, 0, "II*\0"sv) || startsWith(data, 0, "MM\0*"sv)) return "tiff";
  if (startsWith(data, 0, "RIFF"sv) && startsWith(data, 8, "WEBP"sv)) return "webp";
  if (startsWith(data, 0, "\xD7\xCD\xC6\x9A"sv)) return "wmf";
  if (startsWith(data, 40, " EMF"sv)) return "emf";
  return "png";
}

class Planner {
 public:
  explicit Planner(MediaPlan& plan) : plan_(plan) {}

  // Stores the image under `name` unless that name (in any case) holds other
  // bytes. Returns false when it does.
  bool tryName(const std::string& name, const ImageBlock& image) {
    const auto [slot, fresh] = claimed_.try_emplace(asciiLowered(name), plan_.members.size());
    if (fresh) {
      plan_.members.push_back(MediaMember{
          .name = name,
          .data = &image.data,
          .relationshipID = "rId" + std::to_string(plan_.members.size() + 3),
          .extent = imageExtent(image.data)});
    } else if (*plan_.members[slot->second].data != image.data) {
      return false;
    }
    assigned_ = slot->second;
    return true;
  }

  std::size_t assigned() const { return assigned_; }

 private:
  MediaPlan& plan_;
  std::map<std::string, std::size_t> claimed_;  // lower-cased name -> member
  std::size_t assigned_ = 0;
};

}  // namespace

std::set<std::string> MediaPlan::extensions() const {
  std::set<std::string> result;
  for (const auto& member : members) {
    const auto dot = member.name.rfind('.');
    result.insert(asciiLowered(dot == std::string::npos ? "" : member.name.substr(dot + 1)));
  }
  return result;
}

bool isSafeMediaName(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameBytes || name == "." || name == "..") return false;
  if (!isPlainText(name)) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    switch (name[i]) {
      case '/': case '\\': case '<': case '>': case ':': case '"': case '|': case '?': case '*':
      case '#':
        return false;
      case '%':  // a package URI reads it as an escape
        if (i + 2 >= name.size() || !isHex(name[i + 1]) || !isHex(name[i + 2])) return false;
        break;
      default:
        break;
    }
  }
  if (name.back() == '.' || name.back() == ' ') return false;
  return !isReservedDeviceName(name);
}

MediaPlan planMedia(const std::vector<const ImageBlock*>& images) {
  MediaPlan plan;
  plan.memberOfImage.assign(images.size(), 0);
  Planner planner(plan);

  // Names as given are claimed first, so that a generated name never takes
  // the name a later image brought with it.
  std::vector<std::size_t> renamed;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const auto& name = images[i]->name;
    if (isSafeMediaName(name) && !usableExtension(name).empty() && planner.tryName(name, *images[i])) {
      plan.memberOfImage[i] = planner.assigned();
    } else {
      renamed.push_back(i);
    }
  }

  // Per generated name: the count to go on from, so that many pictures under
  // one name do not probe the same taken names over and over, and the
  // members already generated for it by their bytes' hash, so that equal
  // bytes still share a member.
  std::map<std::string, int> nextCount;
  std::map<std::pair<std::string, std::size_t>, std::size_t> generated;
  for (const auto i : renamed) {
    const auto& image = *images[i];
    std::string stem = "image";
    std::string_view extension = usableExtension(image.name);
    if (isSafeMediaName(image.name)) {
      stem = extension.empty() ? image.name
                               : image.name.substr(0, image.name.size() - extension.size() - 1);
    }
    if (extension.empty()) extension = sniffExtension(image.data);

    const auto key = asciiLowered(stem) + "." + asciiLowered(extension);
    const auto hash = std::hash<std::string_view>{}(
        std::string_view(reinterpret_cast<const char*>(image.data.data()), image.data.size()));
    const auto same = generated.find({key, hash});
    if (same != generated.end() && *plan.members[same->second].data == image.data) {
      plan.memberOfImage[i] = same->second;
      continue;
    }
    int& count = nextCount.try_emplace(key, 1).first->second;
    for (int n = count;; ++n) {
      std::string name = stem;
      if (n > 1) name.append("-").append(std::to_string(n));
      name.append(".").append(extension);
      if (planner.tryName(name, image)) {
        count = n;
        break;
      }
    }
    plan.memberOfImage[i] = planner.assigned();
    generated.try_emplace({key, hash}, planner.assigned());
  }
  return plan;
}

Extent imageExtent(std::span<const std::uint8_t> data) {
  double width = 400;
  double height = 300;
  int x = 0, y = 0, components = 0;
  if (!data.empty() && data.size() <= static_cast<std::size_t>(INT_MAX) &&
      stbi_info_from_memory(data.data(), static_cast<int>(data.size()), &x, &y, &components) != 0 &&
      x > 0 && y > 0) {
    width = x;
    height = y;
  }
  if (width > kMaxWidthPixels) {
    const double scale = kMaxWidthPixels / width;
    width = kMaxWidthPixels;
    height *= scale;
  }
  return {static_cast<std::int64_t>(width * kEmuPerPixel),
          static_cast<std::int64_t>(height * kEmuPerPixel)};
}

std::string_view imageContentType(std::string_view extension) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 11> kTypes{{
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"bmp", "image/bmp"},
      {"tif", "image/tiff"},
      {"tiff", "image/tiff"},
      {"svg", "image/svg+xml"},
      {"emf", "image/x-emf"},
      {"wmf", "image/x-wmf"},
      {"webp", "image/webp"},
  }};
  for (const auto& [known, type] : kTypes) {
    if (known == extension) return type;
  }
  return "image/png";
}

}  // namespace inkharbour::writer
