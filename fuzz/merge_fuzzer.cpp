// The merge on three stories made from the input (base, local, external;
// see story_text.h): it never throws, a change on one side only comes
// through whole, the moving overloads agree with the copying ones, lines
// merge as the paragraphs they stand for, and every merged story can be
// written and read back.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks.h"
#include "merge/merge_engine.h"
#include "merge/merge_keys.h"
#include "story_text.h"

using namespace inkharbour;
using MergeEngine::merge;
using MergeEngine::mergeFootnotes;

namespace {

using Blocks = std::vector<Block>;
using Notes = std::vector<Footnote>;

std::vector<std::string> keys(const Blocks& blocks) {
  std::vector<std::string> out;
  for (const auto& block : blocks) out.push_back(MergeEngine::mergeKey(block));
  return out;
}

std::vector<std::size_t> shape(const Table& table) {
  std::vector<std::size_t> out;
  for (const auto& row : table.rows) out.push_back(row.size());
  return out;
}

// A table merged cell by cell takes the external table's shape, so a local
// change of a table comes through whole only where all tables have one shape.
bool tablesShareOneShape(const std::vector<const Blocks*>& stories, bool& anyTable) {
  std::optional<std::vector<std::size_t>> first;
  for (const auto* blocks : stories) {
    for (const auto& block : *blocks) {
      const auto* table = std::get_if<Table>(&block.kind);
      if (table == nullptr) continue;
      anyTable = true;
      if (!first) first = shape(*table);
      if (*first != shape(*table)) return false;
    }
  }
  return true;
}

// Pictures pair by their bytes, so a kept one keeps its local name.
Blocks withoutIdsOrNames(Blocks blocks) {
  for (auto& block : blocks) {
    block.id = Uuid{};
    if (auto* image = std::get_if<ImageBlock>(&block.kind)) image->name.clear();
  }
  return blocks;
}

bool onlyParagraphs(const Blocks& blocks) {
  for (const auto& block : blocks) {
    if (!std::holds_alternative<Paragraph>(block.kind)) return false;
  }
  return true;
}

// The first footnote of each id, by id: what the footnote merge counts.
Notes firstOfEachId(const Notes& notes) {
  Notes out;
  for (const auto& note : fuzz::byId(notes)) {
    if (out.empty() || out.back().id != note.id) out.push_back(note);
  }
  return out;
}

std::vector<std::pair<std::int64_t, std::string>> texts(const Notes& notes) {
  std::vector<std::pair<std::int64_t, std::string>> out;
  for (const auto& note : notes) out.emplace_back(note.id, note.text());
  return out;
}

// Records and Story Notes apart from their fresh ids and dates.
std::string report(const std::vector<ChangeRecord>& changes,
                   const std::vector<ConflictNote>& notes) {
  std::string out;
  for (const auto& c : changes) {
    out += std::string(name(c.kind)) + ": " + c.summary + " [" + c.localText.value_or("-") + " | " +
           c.externalText.value_or("-") + "]\n";
  }
  for (const auto& n : notes) {
    out += std::to_string(n.paragraphIndex) + ": " + n.localText + " | " + n.externalText + "\n";
  }
  return out;
}

void require(bool holds, std::string_view what, const Blocks& got, const Blocks& expected) {
  if (!holds) {
    fuzz::fail(what,
               "got:\n" + fuzz::describe(got, {}) + "expected:\n" + fuzz::describe(expected, {}));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto stories = fuzz::parseStories({reinterpret_cast<const char*>(data), size}, 3);
  const auto& [base, local, external] = std::tie(stories[0], stories[1], stories[2]);
  const Blocks& b = base.blocks;
  const Blocks& x = local.blocks;
  const Blocks& y = external.blocks;

  bool anyTable = false;
  const bool oneShape = tablesShareOneShape({&b, &x, &y}, anyTable);
  const auto fromLocal = merge(b, x, b);
  if (oneShape) require(fromLocal.blocks == x, "merge(b, x, b) is not x", fromLocal.blocks, x);
  const auto fromBoth = merge(b, x, x);
  require(fromBoth.blocks == x, "merge(b, x, x) is not x", fromBoth.blocks, x);
  // External text arrives in the local look, so beyond its keys the result
  // is the external story only where there is no look to carry over.
  const auto fromExternal = merge(b, b, y);
  require(keys(fromExternal.blocks) == keys(y), "merge(b, b, y) does not have the keys of y",
          fromExternal.blocks, y);
  if (base.plain && external.plain) {
    require(withoutIdsOrNames(fromExternal.blocks) == withoutIdsOrNames(y),
            "merge(b, b, y) is not y", fromExternal.blocks, y);
  }

  const auto merged = merge(b, x, y);
  std::size_t conflicts = 0;
  for (const auto& change : merged.changes)
    conflicts += change.kind == ChangeRecord::Kind::conflict;
  if (!anyTable && merged.notes.size() != conflicts) {
    fuzz::fail("conflict records and Story Notes do not pair up",
               report(merged.changes, merged.notes));
  }
  Blocks b2 = b, x2 = x, y2 = y;
  const auto moved = merge(std::move(b2), std::move(x2), std::move(y2));
  require(moved.blocks == merged.blocks, "the moving merge differs", moved.blocks, merged.blocks);
  if (report(moved.changes, moved.notes) != report(merged.changes, merged.notes)) {
    fuzz::fail("the moving merge reports differently",
               report(moved.changes, moved.notes) + "---\n" + report(merged.changes, merged.notes));
  }

  if (base.plain && local.plain && external.plain && onlyParagraphs(b) && onlyParagraphs(x) &&
      onlyParagraphs(y)) {
    const auto lines = [](const Blocks& blocks) {
      std::vector<std::string> out;
      for (const auto& block : blocks) out.push_back(std::get<Paragraph>(block.kind).text());
      return out;
    };
    const auto bl = lines(b), xl = lines(x), yl = lines(y);
    const std::vector<std::string_view> bv(bl.begin(), bl.end()), xv(xl.begin(), xl.end()),
        yv(yl.begin(), yl.end());
    const auto byLines = MergeEngine::mergeLines(bv, xv, yv);
    const std::vector<std::string> got(byLines.lines.begin(), byLines.lines.end());
    if (got != lines(merged.blocks) ||
        report(byLines.changes, byLines.notes) != report(merged.changes, merged.notes)) {
      fuzz::fail(
          "lines merge unlike their paragraphs",
          report(byLines.changes, byLines.notes) + "---\n" + report(merged.changes, merged.notes));
    }
  }

  // Footnotes: one side's change comes through; by text where the other
  // side's unchanged copy may be taken instead.
  const Notes &bn = base.footnotes, &xn = local.footnotes, &yn = external.footnotes;
  if (texts(mergeFootnotes(bn, xn, bn).footnotes) != texts(firstOfEachId(xn))) {
    fuzz::fail("mergeFootnotes(b, x, b) does not have the texts of x");
  }
  if (mergeFootnotes(bn, bn, yn).footnotes != firstOfEachId(yn)) {
    fuzz::fail("mergeFootnotes(b, b, y) is not y");
  }
  const auto notes = mergeFootnotes(bn, xn, yn);
  Notes bn2 = bn, xn2 = xn, yn2 = yn;
  const auto movedNotes = mergeFootnotes(std::move(bn2), std::move(xn2), std::move(yn2));
  if (movedNotes.footnotes != notes.footnotes ||
      report(movedNotes.changes, movedNotes.notes) != report(notes.changes, notes.notes)) {
    fuzz::fail("the moving footnote merge differs");
  }

  const auto back = fuzz::writeAndRead(merged.blocks, notes.footnotes);
  require(back.blocks.size() == merged.blocks.size(), "a merged story does not read back whole",
          back.blocks, merged.blocks);
  return 0;
}
