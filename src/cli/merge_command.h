// `inkharbour-cli merge`: the three-way merge of "Update Link" over three
// files, usable as a git merge driver for Word documents.
#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include "importers/docx_reader.h"
#include "merge/merge_engine.h"
#include "model/story.h"

namespace inkharbour::cli {

struct MergeRequest {
  std::filesystem::path base;
  std::filesystem::path local;
  std::filesystem::path external;
  std::optional<std::filesystem::path> output;
  // Read (and write) every file as this kind instead of by its extension.
  std::optional<LinkKind> kind;
  bool json = false;
  // Set by a process that exits right after the merge: the stories are then
  // left for the kernel to reclaim, which is instant, instead of being freed
  // allocation by allocation.
  bool exitsAfterwards = false;
};

struct MergeOutcome {
  std::vector<Block> blocks;
  std::vector<Footnote> footnotes;
  std::vector<ConflictNote> notes;     // block notes, then footnote notes
  std::vector<ChangeRecord> changes;   // block records, then footnote records

  // True when any record is a conflict or any Story Note was made.
  bool hasConflicts() const;
};

// Merges the three sides' blocks and footnotes exactly as "Update Link" does.
MergeOutcome mergeContents(const ImportResult& base, const ImportResult& local,
                           const ImportResult& external);

// The same outcome, moving what it keeps out of the three sides instead of
// copying it; they are left valid but unspecified.
MergeOutcome mergeContents(ImportResult&& base, ImportResult&& local, ImportResult&& external);

// The report: one line per change record, then one per Story Note; or with
// `json` one object {"changes": [...], "notes": [...]} in the document
// file's form.
std::string formatReport(const MergeOutcome& outcome, bool json);

// Reads, merges, writes the output if asked and prints the report. Returns
// 0 without conflicts, 1 with conflicts, 2 on error (message on `err`).
int runMerge(const MergeRequest& request, std::ostream& out, std::ostream& err);

}  // namespace inkharbour::cli
