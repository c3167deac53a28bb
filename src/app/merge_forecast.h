// The merge forecast: what "Update Link" would do to a story now, counted
// from a dry run of the same merge (MergeEngine::merge and mergeFootnotes)
// on copies. Nothing is changed. The window shows the forecast beside a
// modified link ("3 external edits, 1 conflict") so that the author knows
// what to expect before asking for the merge.
//
// The window copies what a forecast needs on its own thread with
// forecastRequest() and hands the copy to runForecast() on a worker, which
// reads the linked file and merges; both are pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "importers/docx_reader.h"
#include "model/story.h"

namespace inkharbour {

struct MergeForecast {
  // The change records the merge would leave, by kind, blocks and footnotes
  // together.
  std::int64_t externalEdits = 0;
  std::int64_t localKept = 0;
  std::int64_t bothSame = 0;
  std::int64_t structural = 0;
  std::int64_t conflicts = 0;
  std::int64_t tableCells = 0;
  // Of the tables merged cell by cell, those that come out different from
  // the local table: the external side changed them.
  std::int64_t tablesChanged = 0;
  // The Story Notes the merge would add, and among them those for table
  // cells, which have no conflict record of their own.
  std::int64_t notes = 0;
  std::int64_t cellConflicts = 0;

  // The places where external content would come in: external edits,
  // independent insertions and deletions merged, tables changed.
  std::int64_t incoming() const { return externalEdits + structural + tablesChanged; }
  // Every place where both sides changed the same content: conflict records
  // and table cells edited differently on both sides.
  std::int64_t conflictCount() const { return conflicts + cellConflicts; }

  bool operator==(const MergeForecast&) const = default;
};

// Merges `external` into the local content over the link's base snapshot,
// exactly as Update Link would, and counts what the merge reports. Pure and
// safe on any thread.
MergeForecast forecastMerge(const StoryLink& link, const std::vector<Block>& local,
                            const std::vector<Footnote>& localFootnotes,
                            const ImportResult& external);

// The forecast in a few words, for the author: the incoming changes, then
// the conflicts, each counted ("3 external edits, 1 conflict", "1 conflict"),
// or "no changes to merge" when the merge would bring neither.
std::string describe(const MergeForecast& forecast);

// Copies of everything a forecast of one story needs.
struct ForecastRequest {
  Uuid storyID;
  StoryLink link;  // the file's path and the base snapshot
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;
  StyleMap styleMap;
};

// The request for the story with the given id; no value when there is no
// such story or it has no link. Costs a copy of the story and its base.
std::optional<ForecastRequest> forecastRequest(const ProjectDocument& document,
                                               const Uuid& storyID);

// Reads the linked file as Update Link does (DocxReader::read with the
// request's style map) and forecasts the merge. No value when the file
// cannot be read. Pure, safe on any thread; never throws.
std::optional<MergeForecast> runForecast(const ForecastRequest& request);

}  // namespace inkharbour
