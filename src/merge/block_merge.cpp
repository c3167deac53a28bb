#include "merge/block_merge.h"

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

#include "merge/formatting_transfer.h"
#include "merge/lcs.h"
#include "merge/merge_engine.h"
#include "merge/merge_keys.h"
#include "merge/summaries.h"
#include "merge/table_merge.h"

namespace inkharbour::MergeEngine {

namespace {

using Ids = std::span<const std::uint32_t>;
constexpr std::size_t kNoPartner = SIZE_MAX;

// The merge is written once for three kinds of input. Over `const Block`
// every block that reaches the result is a copy; over `Block` (inputs the
// caller has given up) it is moved there, so a book's text is never held
// twice. Either way the result is the same. Over lines of plain text, each
// standing for a paragraph with that text, the result is the lines those
// paragraphs would give: the same decisions, without a block per line.
using Line = const std::string_view;

template <typename B>
concept InputBlock =
    std::same_as<B, const Block> || std::same_as<B, Block> || std::same_as<B, Line>;

template <InputBlock B>
constexpr bool kLines = std::same_as<B, Line>;

// What the result is made of, and the result itself.
template <InputBlock B>
using Output = std::conditional_t<kLines<B>, std::string_view, Block>;
template <InputBlock B>
using ResultOf = std::conditional_t<kLines<B>, LineResult, Result>;

// The block as it goes into the result: copied or moved.
template <InputBlock B>
decltype(auto) pass(B& block) {
  if constexpr (std::is_const_v<B>) {
    return block;
  } else {
    return std::move(block);
  }
}

// One side of a region: its blocks and their key ids.
template <InputBlock B>
struct Side {
  std::span<B> blocks;
  Ids keys;

  std::size_t size() const { return blocks.size(); }
  Side slice(std::size_t from, std::size_t to) const {
    return Side{blocks.subspan(from, to - from), keys.subspan(from, to - from)};
  }
};

bool sameKeys(Ids x, Ids y) {
  return std::equal(x.begin(), x.end(), y.begin(), y.end());
}

// For each index of a, its partner in b, or kNoPartner.
std::vector<std::size_t> partners(Ids a, Ids b) {
  std::vector<std::size_t> out(a.size(), kNoPartner);
  for (const auto& [i, j] : lcsMatchIds(a, b)) out[i] = j;
  return out;
}

template <InputBlock B>
void append(std::vector<Output<B>>& out, std::span<B> blocks) {
  for (B& block : blocks) out.push_back(pass(block));
}

template <InputBlock B>
std::optional<std::vector<Output<B>>> refine(const Side<B>& base, const Side<B>& ours,
                                             const Side<B>& theirs) {
  const auto mo = partners(base.keys, ours.keys);
  const auto mt = partners(base.keys, theirs.keys);
  for (std::size_t b = 0; b < base.size(); ++b) {
    if (mo[b] == kNoPartner && mt[b] == kNoPartner) return std::nullopt;
  }
  std::vector<Output<B>> out;
  std::size_t o = 0, t = 0;
  for (std::size_t b = 0;; ++b) {
    const bool end = b == base.size();
    const std::size_t oEnd = end ? ours.size() : mo[b];
    const std::size_t tEnd = end ? theirs.size() : mt[b];
    // Insertions before this base block; local ones come first.
    if (oEnd != kNoPartner) {
      append(out, ours.blocks.subspan(o, oEnd - o));
      o = oEnd;
    }
    if (tEnd != kNoPartner) {
      append(out, theirs.blocks.subspan(t, tEnd - t));
      t = tEnd;
    }
    if (end) return out;
    // A block kept on both sides stays in its local version; one gone from
    // a side was deleted there (or replaced, its new version inserted).
    if (mo[b] != kNoPartner && mt[b] != kNoPartner) out.push_back(pass(ours.blocks[mo[b]]));
    if (mo[b] != kNoPartner) o = mo[b] + 1;
    if (mt[b] != kNoPartner) t = mt[b] + 1;
  }
}

// Builds the result region by region. The texts of a region's record are
// taken before its blocks go into the result, since they may be moved there.
template <InputBlock B>
class BlockMerger {
 public:
  explicit BlockMerger(std::size_t expectedBlocks) { output().reserve(expectedBlocks); }

  ResultOf<B> take() { return std::move(result_); }

  void keepAnchor(B& local) { output().push_back(pass(local)); }

  // Resolves one unstable region; the first case that applies decides.
  void emitUnstable(const Side<B>& base, const Side<B>& ours, const Side<B>& theirs) {
    using Kind = ChangeRecord::Kind;
    if constexpr (!kLines<B>) {
      if (const auto tables = singleTables(base, ours, theirs)) {
        const auto& [b, o, t] = *tables;
        TableMergeResult merged =
            mergeTables(*b, *o, *t, static_cast<std::int64_t>(output().size()));
        output().push_back(Block{.id = ours.blocks[0].id, .kind = std::move(merged.table)});
        const std::size_t conflicts = merged.notes.size();
        for (auto& note : merged.notes) result_.notes.push_back(std::move(note));
        record(Kind::tableCells,
               "Table merged cell-by-cell (" + std::to_string(merged.externalCellChanges) +
                   " external cell change(s), " + std::to_string(conflicts) + " conflict(s))");
        return;
      }
    }
    if (sameKeys(ours.keys, base.keys)) {
      ChangeRecord change =
          makeRecord(Kind::externalEdit, changeSummary(base.blocks, theirs.blocks),
                     joined(base.blocks), joined(theirs.blocks));
      takeExternal(ours, theirs);
      result_.changes.push_back(std::move(change));
      return;
    }
    if (sameKeys(theirs.keys, base.keys)) {
      ChangeRecord change = makeRecord(Kind::localKept, changeSummary(base.blocks, ours.blocks),
                                       joined(ours.blocks), joined(base.blocks));
      append(output(), ours.blocks);
      result_.changes.push_back(std::move(change));
      return;
    }
    if (sameKeys(ours.keys, theirs.keys)) {
      ChangeRecord change = makeRecord(Kind::bothSame, changeSummary(base.blocks, ours.blocks));
      append(output(), ours.blocks);
      result_.changes.push_back(std::move(change));
      return;
    }
    std::string localText = joined(ours.blocks);
    std::string externalText = joined(theirs.blocks);
    if (auto refined = refine(base, ours, theirs)) {
      for (auto& block : *refined) output().push_back(std::move(block));
      record(Kind::structural,
             "Independent insertions/deletions merged (" + std::to_string(ours.size()) +
                 " local, " + std::to_string(theirs.size()) + " external block(s))",
             std::move(localText), std::move(externalText));
      return;
    }
    // A real conflict: the external side wins, the local text goes to a note
    // that points at the first external block.
    const auto position = static_cast<std::int64_t>(output().size());
    takeExternal(ours, theirs);
    result_.notes.push_back(ConflictNote{
        .paragraphIndex = position, .localText = localText, .externalText = externalText});
    record(Kind::conflict,
           "Both sides edited the same content \u2014 external version kept, yours saved to a "
           "Story Note",
           std::move(localText), std::move(externalText));
  }

 private:
  auto& output() {
    if constexpr (kLines<B>) {
      return result_.lines;
    } else {
      return result_.blocks;
    }
  }

  struct Tables {
    const Table* base;
    const Table* ours;
    const Table* theirs;
  };

  static std::optional<Tables> singleTables(const Side<B>& base, const Side<B>& ours,
                                            const Side<B>& theirs) {
    if (base.size() != 1 || ours.size() != 1 || theirs.size() != 1) return std::nullopt;
    const auto* b = std::get_if<Table>(&base.blocks[0].kind);
    const auto* o = std::get_if<Table>(&ours.blocks[0].kind);
    const auto* t = std::get_if<Table>(&theirs.blocks[0].kind);
    if (b == nullptr || o == nullptr || t == nullptr) return std::nullopt;
    return Tables{b, o, t};
  }

  // The external blocks, each dressed like the local block at the same
  // position in the region: blocks pair by position, not by content.
  // Lines have no look: the external ones are taken as they are.
  void takeExternal(const Side<B>& ours, const Side<B>& theirs) {
    if constexpr (kLines<B>) {
      append(output(), theirs.blocks);
    } else {
      for (std::size_t j = 0; j < theirs.size(); ++j) {
        output().push_back(transferFormatting(j < ours.size() ? &ours.blocks[j] : nullptr,
                                              pass(theirs.blocks[j])));
      }
    }
  }

  static ChangeRecord makeRecord(ChangeRecord::Kind kind, std::string summary,
                                 std::optional<std::string> localText = std::nullopt,
                                 std::optional<std::string> externalText = std::nullopt) {
    return ChangeRecord{.kind = kind,
                        .summary = std::move(summary),
                        .localText = std::move(localText),
                        .externalText = std::move(externalText)};
  }

  void record(ChangeRecord::Kind kind, std::string summary,
              std::optional<std::string> localText = std::nullopt,
              std::optional<std::string> externalText = std::nullopt) {
    result_.changes.push_back(
        makeRecord(kind, std::move(summary), std::move(localText), std::move(externalText)));
  }

  ResultOf<B> result_;
};

// The key ids of the three lists. The interner is gone when this returns,
// so its tables are not held through the rest of the merge.
struct Keys {
  std::vector<std::uint32_t> base, ours, theirs;
};

template <typename Item>
Keys keysOf(std::span<const Item> base, std::span<const Item> ours, std::span<const Item> theirs) {
  KeyInterner interner;
  Keys keys;
  keys.base = interner.addAll(base);
  keys.ours = interner.addAll(ours);
  keys.theirs = interner.addAll(theirs);
  return keys;
}

// About as many blocks as the result will hold: each side's insertions and
// deletions add to the other's. Reserving it spares the result's storage a
// doubling, which for a book would be the merge's largest allocation.
std::size_t expectedSize(std::size_t base, std::size_t ours, std::size_t theirs) {
  const std::size_t combined = ours + theirs >= base ? ours + theirs - base : 0;
  return std::max({ours, theirs, combined}) + 16;
}

template <InputBlock B>
ResultOf<B> mergeBlocks(std::span<B> base, std::span<B> ours, std::span<B> theirs) {
  using Item = const std::remove_const_t<B>;
  const Keys keys = keysOf<std::remove_const_t<B>>(std::span<Item>(base), std::span<Item>(ours),
                                                   std::span<Item>(theirs));
  const Side<B> b{base, keys.base}, o{ours, keys.ours}, t{theirs, keys.theirs};
  const auto matchOurs = partners(keys.base, keys.ours);
  const auto matchTheirs = partners(keys.base, keys.theirs);

  BlockMerger<B> merger(expectedSize(base.size(), ours.size(), theirs.size()));
  std::size_t b0 = 0, o0 = 0, t0 = 0;
  auto flush = [&](std::size_t bEnd, std::size_t oEnd, std::size_t tEnd) {
    if (bEnd > b0 || oEnd > o0 || tEnd > t0) {
      merger.emitUnstable(b.slice(b0, bEnd), o.slice(o0, oEnd), t.slice(t0, tEnd));
    }
  };
  for (std::size_t i = 0; i < base.size(); ++i) {
    const std::size_t oi = matchOurs[i], ti = matchTheirs[i];
    if (oi == kNoPartner || ti == kNoPartner) continue;
    flush(i, oi, ti);
    merger.keepAnchor(ours[oi]);
    b0 = i + 1;
    o0 = oi + 1;
    t0 = ti + 1;
  }
  flush(base.size(), ours.size(), theirs.size());
  return merger.take();
}

}  // namespace

Result merge(const std::vector<Block>& base, const std::vector<Block>& ours,
             const std::vector<Block>& theirs) {
  return mergeBlocks<const Block>(base, ours, theirs);
}

Result merge(std::vector<Block>&& base, std::vector<Block>&& ours, std::vector<Block>&& theirs) {
  return mergeBlocks<Block>(base, ours, theirs);
}

LineResult mergeLines(std::span<const std::string_view> base,
                      std::span<const std::string_view> ours,
                      std::span<const std::string_view> theirs) {
  return mergeBlocks<Line>(base, ours, theirs);
}

std::optional<std::vector<Block>> refineChunk(std::span<const Block> base,
                                              std::span<const Block> ours,
                                              std::span<const Block> theirs) {
  const Keys keys = keysOf<Block>(base, ours, theirs);
  return refine(Side<const Block>{base, keys.base}, Side<const Block>{ours, keys.ours},
                Side<const Block>{theirs, keys.theirs});
}

}  // namespace inkharbour::MergeEngine
