#include "merge/summaries.h"

#include "model/text.h"

namespace inkharbour::MergeEngine {

namespace {

constexpr std::size_t kSummaryCharacters = 80;

template <typename Item>
std::string shortened(std::span<const Item> items) {
  const std::string whole = joined(items);
  const std::string_view head = text::leadingCharacters(whole, kSummaryCharacters);
  if (head.size() == whole.size()) return whole;
  return std::string(head) + "\u2026";
}

template <typename Item>
std::string summary(std::span<const Item> from, std::span<const Item> to) {
  if (!from.empty() && to.empty()) return "Deleted: " + shortened(from);
  if (from.empty() && !to.empty()) return "Inserted: " + shortened(to);
  return "Changed: " + shortened(from) + " \u2192 " + shortened(to);
}

}  // namespace

std::string joined(std::span<const Block> blocks) {
  std::string out;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (i > 0) out += '\n';
    const auto& kind = blocks[i].kind;
    if (const auto* paragraph = std::get_if<Paragraph>(&kind)) {
      for (const auto& run : paragraph->runs) out += run.text;
    } else if (const auto* table = std::get_if<Table>(&kind)) {
      out += "[Table " + std::to_string(table->rows.size()) + "\u00D7" +
             std::to_string(table->columnCount()) + "]";
    } else {
      out += "[Image " + std::get<ImageBlock>(kind).name + "]";
    }
  }
  return out;
}

std::string joined(std::span<const std::string_view> lines) {
  std::size_t size = lines.empty() ? 0 : lines.size() - 1;
  for (const auto line : lines) size += line.size();
  std::string out;
  out.reserve(size);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) out += '\n';
    out += lines[i];
  }
  return out;
}

std::string changeSummary(std::span<const Block> from, std::span<const Block> to) {
  return summary(from, to);
}

std::string changeSummary(std::span<const std::string_view> from,
                          std::span<const std::string_view> to) {
  return summary(from, to);
}

}  // namespace inkharbour::MergeEngine
