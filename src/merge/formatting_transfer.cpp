#include "merge/formatting_transfer.h"

#include <algorithm>

namespace inkharbour::MergeEngine {

Block transferFormatting(const Block* local, const Block& external) {
  return transferFormatting(local, Block(external));
}

Block transferFormatting(const Block* local, Block&& external) {
  if (local == nullptr) return std::move(external);
  const auto* from = std::get_if<Paragraph>(&local->kind);
  auto* to = std::get_if<Paragraph>(&external.kind);
  if (from == nullptr || to == nullptr) return std::move(external);

  Paragraph paragraph{.styleName = from->styleName, .runs = std::move(to->runs)};
  // Mixed local formatting cannot be mapped onto new words, so only the
  // style name travels then.
  const bool uniform = !from->runs.empty() &&
                       std::all_of(from->runs.begin(), from->runs.end(), [&](const TextRun& run) {
                         return run.sameFormat(from->runs.front());
                       });
  if (uniform) {
    const TextRun& look = from->runs.front();
    for (auto& run : paragraph.runs) {
      // A reference mark keeps the look the importer gave it.
      if (run.footnoteID) continue;
      run.bold = run.bold || look.bold;
      run.italic = run.italic || look.italic;
      run.underline = run.underline || look.underline;
      run.strikethrough = run.strikethrough || look.strikethrough;
      run.smallCaps = run.smallCaps || look.smallCaps;
      if (!run.colorHex) run.colorHex = look.colorHex;
    }
  }
  return Block{.id = external.id, .kind = std::move(paragraph)};
}

}  // namespace inkharbour::MergeEngine
