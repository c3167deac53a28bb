#include "app/merge_forecast.h"

#include <map>

#include "merge/merge_engine.h"
#include "merge/note_alignment.h"

namespace inkharbour {

namespace {

void count(MergeForecast& forecast, const std::vector<ChangeRecord>& changes) {
  using Kind = ChangeRecord::Kind;
  for (const auto& change : changes) {
    switch (change.kind) {
      case Kind::externalEdit:
        ++forecast.externalEdits;
        break;
      case Kind::localKept:
        ++forecast.localKept;
        break;
      case Kind::bothSame:
        ++forecast.bothSame;
        break;
      case Kind::structural:
        ++forecast.structural;
        break;
      case Kind::conflict:
        ++forecast.conflicts;
        break;
      case Kind::tableCells:
        ++forecast.tableCells;
        break;
    }
  }
}

// A table merged cell by cell keeps the local block's id, and every other
// block that keeps a local id is the local block unchanged; so a merged
// table that differs from the local table of its id took external cells.
// A table merged with only local edits comes out as the local one.
std::int64_t tablesChanged(const std::vector<Block>& local, const std::vector<Block>& merged) {
  std::map<Uuid, const Table*> localTables;
  for (const auto& block : local) {
    if (const auto* table = std::get_if<Table>(&block.kind))
      localTables.try_emplace(block.id, table);
  }
  std::int64_t changed = 0;
  for (const auto& block : merged) {
    const auto* table = std::get_if<Table>(&block.kind);
    if (table == nullptr) continue;
    const auto found = localTables.find(block.id);
    if (found != localTables.end() && table->contentKey() != found->second->contentKey()) {
      ++changed;
    }
  }
  return changed;
}

std::string counted(std::int64_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace

MergeForecast forecastMerge(const StoryLink& link, const std::vector<Block>& local,
                            const std::vector<Footnote>& localFootnotes,
                            const ImportResult& external) {
  // Aligned with the base's note numbers as Update Link aligns it; copied
  // only when some note is renumbered.
  const auto numbers = MergeEngine::alignmentNumbers(
      external.blocks, external.footnotes, link.baseBlocks, link.baseFootnotes, localFootnotes);
  std::optional<MergeEngine::NotedContent> aligned;
  if (!numbers.empty()) {
    aligned = MergeEngine::renumberNotes({external.blocks, external.footnotes}, numbers);
  }
  const auto& theirBlocks = aligned ? aligned->blocks : external.blocks;
  const auto& theirFootnotes = aligned ? aligned->footnotes : external.footnotes;
  const auto blocks = MergeEngine::merge(link.baseBlocks, local, theirBlocks);
  const auto footnotes =
      MergeEngine::mergeFootnotes(link.baseFootnotes, localFootnotes, theirFootnotes);
  MergeForecast forecast;
  count(forecast, blocks.changes);
  // Every block conflict leaves one note; the block merge's other notes are
  // for table cells.
  forecast.cellConflicts = static_cast<std::int64_t>(blocks.notes.size()) - forecast.conflicts;
  count(forecast, footnotes.changes);
  forecast.tablesChanged = tablesChanged(local, blocks.blocks);
  forecast.notes = static_cast<std::int64_t>(blocks.notes.size() + footnotes.notes.size());
  return forecast;
}

std::string describe(const MergeForecast& forecast) {
  std::string out;
  if (const auto incoming = forecast.incoming(); incoming > 0) {
    out = counted(incoming, "external edit", "external edits");
  }
  if (const auto conflicts = forecast.conflictCount(); conflicts > 0) {
    if (!out.empty()) out += ", ";
    out += counted(conflicts, "conflict", "conflicts");
  }
  return out.empty() ? "no changes to merge" : out;
}

std::optional<ForecastRequest> forecastRequest(const ProjectDocument& document,
                                               const Uuid& storyID) {
  for (const auto& story : document.stories) {
    if (story.id != storyID) continue;
    if (!story.link) return std::nullopt;
    return ForecastRequest{.storyID = story.id,
                           .link = *story.link,
                           .blocks = story.blocks,
                           .footnotes = story.footnotes,
                           .styleMap = document.styleMap};
  }
  return std::nullopt;
}

std::optional<MergeForecast> runForecast(const ForecastRequest& request) {
  try {
    // As Update Link reads it: damaged notes are no deleted notes.
    const ImportResult external =
        DocxReader::read(request.link.path, request.styleMap, {}, DocxReader::DamagedParts::fail);
    return forecastMerge(request.link, request.blocks, request.footnotes, external);
  } catch (...) {
    // A file that cannot be read has no forecast; its link shows as missing.
    return std::nullopt;
  }
}

}  // namespace inkharbour
