#include "checks.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>

#include "cli/dump.h"
#include "scratch.h"
#include "writer/docx_writer.h"

namespace inkharbour::fuzz {

void fail(std::string_view what, std::string_view details) {
  std::fprintf(stderr, "\n*** %.*s\n%.*s\n", static_cast<int>(what.size()), what.data(),
               static_cast<int>(details.size()), details.data());
  std::abort();
}

std::string describe(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes) {
  return cli::formatDump(ImportResult{.blocks = blocks, .footnotes = footnotes});
}

std::vector<Block> withoutIds(std::vector<Block> blocks) {
  for (auto& block : blocks) block.id = Uuid{};
  return blocks;
}

std::vector<Footnote> byId(std::vector<Footnote> footnotes) {
  std::stable_sort(footnotes.begin(), footnotes.end(),
                   [](const Footnote& a, const Footnote& b) { return a.id < b.id; });
  return footnotes;
}

ImportResult writeAndRead(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
                          const ImportLimits& limits) {
  static const auto path = scratchPath("written.docx");
  try {
    DocxWriter::write(blocks, footnotes, path);
    return DocxReader::readAs(path, LinkKind::word, StyleMap{}, limits,
                              DocxReader::DamagedParts::fail);
  } catch (const std::exception& error) {
    fail(std::string("writing and reading back failed: ") + error.what(),
         describe(blocks, footnotes));
  }
}

bool isXmlText(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 1;
    char32_t c = lead;
    if (lead >= 0x80) {
      if (lead >= 0xF0 && lead <= 0xF4)
        length = 4, c = lead & 0x07;
      else if (lead >= 0xE0 && lead <= 0xEF)
        length = 3, c = lead & 0x0F;
      else if (lead >= 0xC2 && lead <= 0xDF)
        length = 2, c = lead & 0x1F;
      else
        return false;
      if (i + length > text.size()) return false;
      for (std::size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) return false;
        c = (c << 6) | (next & 0x3F);
      }
      const char32_t least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
      if (c < least || c > 0x10FFFF) return false;
    }
    const bool allowed = c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
                         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
    if (!allowed) return false;
    i += length;
  }
  return true;
}

namespace {

bool isPlainName(std::string_view name) {
  const std::size_t dot = name.find('.');
  const std::string_view stem = name.substr(0, dot);
  if (stem.empty() || stem.size() > 40) return false;
  // An extension names the content type; the package's own are taken.
  if (dot == std::string_view::npos) return false;
  std::string extension(name.substr(dot + 1));
  if (extension.empty() || extension.size() > 8) return false;
  for (auto& c : extension) {
    if (!std::isalnum(static_cast<unsigned char>(c))) return false;
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (extension == "xml" || extension == "rels") return false;
  for (const char c : stem) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-') return false;
  }
  std::string upper(stem);
  for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  static constexpr std::array<std::string_view, 4> kReserved{"CON", "PRN", "AUX", "NUL"};
  if (std::find(kReserved.begin(), kReserved.end(), upper) != kReserved.end()) return false;
  const bool numbered = upper.size() == 4 &&
                        (upper.starts_with("COM") || upper.starts_with("LPT")) &&
                        std::isdigit(static_cast<unsigned char>(upper[3]));
  return !numbered;
}

}  // namespace

bool hasPlainPictureNames(const std::vector<Block>& blocks) {
  // Compared without case: some file systems do not tell the names apart.
  std::map<std::string, const SharedBytes*> bytesOf;
  for (const auto& block : blocks) {
    const auto* image = std::get_if<ImageBlock>(&block.kind);
    if (image == nullptr) continue;
    if (!isPlainName(image->name)) return false;
    std::string key(image->name);
    for (auto& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const auto [at, added] = bytesOf.emplace(std::move(key), &image->data);
    if (!added && *at->second != image->data) return false;
  }
  return true;
}

}  // namespace inkharbour::fuzz
