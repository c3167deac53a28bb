#include <concepts>
#include <map>
#include <set>
#include <span>
#include <string>
#include <type_traits>

#include "merge/merge_engine.h"

namespace inkharbour::MergeEngine {

namespace {

// As in the block merge: over `const Footnote` the kept footnotes are
// copied, over `Footnote` (inputs the caller has given up) moved.
template <typename F>
concept InputFootnote = std::same_as<F, const Footnote> || std::same_as<F, Footnote>;

template <InputFootnote F>
using ById = std::map<std::int64_t, F*>;

template <InputFootnote F>
ById<F> index(std::span<F> footnotes) {
  ById<F> out;
  for (auto& footnote : footnotes) out.try_emplace(footnote.id, &footnote);
  return out;
}

template <InputFootnote F>
F* find(const ById<F>& footnotes, std::int64_t id) {
  const auto it = footnotes.find(id);
  return it == footnotes.end() ? nullptr : it->second;
}

// Every text a record needs is taken before the footnote is kept, since
// keeping may move it.
template <InputFootnote F>
class FootnoteMerger {
 public:
  FootnoteResult take() { return std::move(result_); }

  void mergeOne(std::int64_t id, F* b, F* o, F* t) {
    using Kind = ChangeRecord::Kind;
    if (b == nullptr) {
      // New on one side or both; the external one wins when both added it.
      if (o != nullptr && t != nullptr && o->text() != t->text()) {
        record(id, Kind::conflict, " added on both sides \u2014 external kept", o->text(),
               t->text());
      }
      if (t != nullptr)
        keep(*t);
      else if (o != nullptr)
        keep(*o);
      return;
    }
    const std::string baseText = b->text();
    if (o != nullptr && t != nullptr) {
      const std::string localText = o->text();
      const std::string externalText = t->text();
      const bool localChanged = localText != baseText;
      const bool externalChanged = externalText != baseText;
      if (!localChanged) {
        // Taken even when unchanged: the external formatting comes along.
        keep(*t);
        if (externalChanged) {
          record(id, Kind::externalEdit, " updated from the external document");
        }
      } else if (!externalChanged) {
        keep(*o);
        record(id, Kind::localKept, ": local edit kept");
      } else if (localText == externalText) {
        keep(*o);
      } else {
        keep(*t);
        record(id, Kind::conflict,
               " edited on both sides \u2014 external kept, yours in a Story Note", localText,
               externalText);
        const std::string label = "Footnote " + std::to_string(id) + ": ";
        result_.notes.push_back(ConflictNote{.paragraphIndex = -1,
                                             .localText = label + localText,
                                             .externalText = label + externalText});
      }
    } else if (t != nullptr) {
      const std::string externalText = t->text();
      if (externalText == baseText) {
        record(id, Kind::localKept, ": local deletion kept");
      } else {
        keep(*t);
        record(id, Kind::conflict, " deleted locally but edited externally \u2014 external kept",
               std::nullopt, externalText);
      }
    } else if (o != nullptr) {
      const std::string localText = o->text();
      if (localText == baseText) {
        record(id, Kind::externalEdit, " deleted externally");
      } else {
        keep(*o);
        record(id, Kind::conflict, " deleted externally but edited locally \u2014 kept yours",
               localText, std::nullopt);
      }
    }
    // Deleted on both sides: nothing to keep, nothing to report.
  }

 private:
  void keep(F& footnote) {
    if constexpr (std::is_const_v<F>) {
      result_.footnotes.push_back(footnote);
    } else {
      result_.footnotes.push_back(std::move(footnote));
    }
  }

  void record(std::int64_t id, ChangeRecord::Kind kind, std::string_view suffix,
              std::optional<std::string> localText = std::nullopt,
              std::optional<std::string> externalText = std::nullopt) {
    result_.changes.push_back(
        ChangeRecord{.kind = kind,
                     .summary = "Footnote " + std::to_string(id) + std::string(suffix),
                     .localText = std::move(localText),
                     .externalText = std::move(externalText)});
  }

  FootnoteResult result_;
};

template <InputFootnote F>
FootnoteResult mergeAll(std::span<F> base, std::span<F> ours, std::span<F> theirs) {
  const ById<F> b = index(base), o = index(ours), t = index(theirs);
  std::set<std::int64_t> ids;  // the union, ascending
  for (const ById<F>* side : {&b, &o, &t}) {
    for (const auto& entry : *side) ids.insert(entry.first);
  }
  FootnoteMerger<F> merger;
  for (const std::int64_t id : ids) merger.mergeOne(id, find(b, id), find(o, id), find(t, id));
  return merger.take();
}

}  // namespace

FootnoteResult mergeFootnotes(const std::vector<Footnote>& base, const std::vector<Footnote>& ours,
                              const std::vector<Footnote>& theirs) {
  return mergeAll<const Footnote>(base, ours, theirs);
}

FootnoteResult mergeFootnotes(std::vector<Footnote>&& base, std::vector<Footnote>&& ours,
                              std::vector<Footnote>&& theirs) {
  return mergeAll<Footnote>(base, ours, theirs);
}

}  // namespace inkharbour::MergeEngine
