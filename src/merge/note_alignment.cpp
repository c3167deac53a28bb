#include "merge/note_alignment.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <set>
#include <utility>

#include "merge/lcs.h"

namespace inkharbour::MergeEngine {

namespace {

using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;

// Beyond this many candidate pairs in one gap, pairing goes by position alone.
constexpr std::size_t kMaxGapCells = std::size_t{1} << 20;

bool isEndnote(std::int64_t id) {
  return id >= kFirstEndnoteID;
}

// Visits the block's paragraphs, those of its table cells included, in
// reading order. `B` is Block or const Block.
template <typename B, typename Visit>
void forEachParagraph(B& block, Visit&& visit) {
  if (auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
    visit(*paragraph);
  } else if (auto* table = std::get_if<Table>(&block.kind)) {
    for (auto& row : table->rows) {
      for (auto& cell : row) {
        for (auto& cellParagraph : cell.paragraphs) visit(cellParagraph);
      }
    }
  }
}

void renumber(TextRun& run, const NoteNumbers& numbers) {
  if (!run.footnoteID) return;
  const auto found = numbers.find(*run.footnoteID);
  if (found == numbers.end()) return;
  if (run.text == TextRun::footnoteReference(found->first).text) {
    run.text = TextRun::footnoteReference(found->second).text;
  }
  run.footnoteID = found->second;
}

// The text a note is compared by, for each id of `order`: a cited id
// without a note compares equal only to another such id.
std::vector<std::string> pairingKeys(const std::vector<std::int64_t>& order,
                                     const std::vector<Footnote>& footnotes) {
  std::map<std::int64_t, const Footnote*> notes;
  for (const auto& note : footnotes) notes.try_emplace(note.id, &note);
  std::vector<std::string> keys;
  keys.reserve(order.size());
  for (const auto id : order) {
    const auto found = notes.find(id);
    keys.push_back(found == notes.end() ? "M" : "N" + found->second->text());
  }
  return keys;
}

// How alike two notes read: the length of their common start and end.
std::size_t similarity(std::string_view a, std::string_view b) {
  const std::size_t limit = std::min(a.size(), b.size());
  std::size_t start = 0;
  while (start < limit && a[start] == b[start]) ++start;
  std::size_t end = 0;
  while (end < limit - start && a[a.size() - 1 - end] == b[b.size() - 1 - end]) ++end;
  return start + end;
}

// Pairs the notes of one gap between notes that read the same: as many as
// the shorter side holds, in order. With equal counts that is by position;
// otherwise the notes left over are chosen so that the pairs read most alike
// (an edited note pairs with its original rather than with a note inserted
// before it), ties going to the earliest pairs.
void pairGap(const std::vector<std::string>& file, std::size_t fileFrom, std::size_t fileTo,
             const std::vector<std::string>& base, std::size_t baseFrom, std::size_t baseTo,
             Pairs& pairs) {
  const std::size_t fileCount = fileTo - fileFrom;
  const std::size_t baseCount = baseTo - baseFrom;
  const std::size_t paired = std::min(fileCount, baseCount);
  if (paired == 0) return;
  if (fileCount == baseCount || fileCount * baseCount > kMaxGapCells) {
    for (std::size_t i = 0; i < paired; ++i) pairs.emplace_back(fileFrom + i, baseFrom + i);
    return;
  }
  // short[i] pairs with one of long[j..]; best(i, j) is the most similarity
  // the pairs of short[i..] within long[j..] can have.
  const bool fileIsShort = fileCount < baseCount;
  const std::size_t shortCount = paired;
  const std::size_t longCount = std::max(fileCount, baseCount);
  const auto score = [&](std::size_t i, std::size_t j) {
    return fileIsShort ? similarity(file[fileFrom + i], base[baseFrom + j])
                       : similarity(file[fileFrom + j], base[baseFrom + i]);
  };
  const std::size_t width = longCount + 1;
  std::vector<std::size_t> best((shortCount + 1) * width, 0);
  for (std::size_t i = shortCount; i-- > 0;) {
    // Rows need long[j..] to hold at least the shortCount - i notes left.
    for (std::size_t j = longCount - (shortCount - i) + 1; j-- > 0;) {
      const std::size_t pair = score(i, j) + best[(i + 1) * width + j + 1];
      const bool canSkip = longCount - j > shortCount - i;
      best[i * width + j] = canSkip ? std::max(pair, best[i * width + j + 1]) : pair;
    }
  }
  for (std::size_t i = 0, j = 0; i < shortCount; ++j) {
    const bool canSkip = longCount - j > shortCount - i;
    if (canSkip && best[i * width + j + 1] > score(i, j) + best[(i + 1) * width + j + 1]) {
      continue;
    }
    pairs.emplace_back(fileIsShort ? std::pair{fileFrom + i, baseFrom + j}
                                   : std::pair{fileFrom + j, baseFrom + i});
    ++i;
  }
}

// Pairs (index in file, index in base) of notes of one kind in reading order.
Pairs pairNotes(const std::vector<std::string>& file, const std::vector<std::string>& base) {
  Pairs pairs;
  std::size_t fileFrom = 0;
  std::size_t baseFrom = 0;
  for (const auto& [f, b] : lcsMatches(file, base)) {
    pairGap(file, fileFrom, f, base, baseFrom, b, pairs);
    pairs.emplace_back(f, b);
    fileFrom = f + 1;
    baseFrom = b + 1;
  }
  pairGap(file, fileFrom, file.size(), base, baseFrom, base.size(), pairs);
  return pairs;
}

// The number after the highest of `used` within the kind, or when the kind's
// range is used up to its end, the lowest free number in it.
std::int64_t freshNumber(const std::set<std::int64_t>& used, bool endnote) {
  const std::int64_t low = endnote ? kFirstEndnoteID : 1;
  const std::int64_t high =
      endnote ? std::numeric_limits<std::int64_t>::max() : kFirstEndnoteID - 1;
  std::int64_t top = low - 1;
  if (auto above = used.upper_bound(high); above != used.begin()) {
    top = std::max(top, *std::prev(above));
  }
  if (top < high) return top + 1;
  std::int64_t free = low;
  while (used.contains(free)) ++free;
  return free;
}

}  // namespace

std::vector<std::int64_t> readingOrder(const std::vector<Block>& blocks,
                                       const std::vector<Footnote>& footnotes) {
  std::vector<std::int64_t> order;
  std::set<std::int64_t> seen;  // ids come from files: no hash table
  for (const auto& block : blocks) {
    forEachParagraph(block, [&](const Paragraph& paragraph) {
      for (const auto& run : paragraph.runs) {
        if (run.footnoteID && seen.insert(*run.footnoteID).second) order.push_back(*run.footnoteID);
      }
    });
  }
  for (const auto& note : footnotes) {
    if (seen.insert(note.id).second) order.push_back(note.id);
  }
  return order;
}

NoteNumbers readingOrderNumbers(const std::vector<Block>& blocks,
                                const std::vector<Footnote>& footnotes) {
  NoteNumbers numbers;
  std::int64_t nextFootnote = 1;
  std::int64_t nextEndnote = kFirstEndnoteID;
  for (const auto id : readingOrder(blocks, footnotes)) {
    const std::int64_t number = isEndnote(id) ? nextEndnote++ : nextFootnote++;
    if (number != id) numbers.emplace(id, number);
  }
  return numbers;
}

NoteNumbers alignmentNumbers(const std::vector<Block>& fileBlocks,
                             const std::vector<Footnote>& fileFootnotes,
                             const std::vector<Block>& baseBlocks,
                             const std::vector<Footnote>& baseFootnotes,
                             const std::vector<Footnote>& localFootnotes) {
  const auto fileOrder = readingOrder(fileBlocks, fileFootnotes);
  const auto baseOrder = readingOrder(baseBlocks, baseFootnotes);
  const auto fileKeys = pairingKeys(fileOrder, fileFootnotes);
  const auto baseKeys = pairingKeys(baseOrder, baseFootnotes);

  std::map<std::int64_t, std::int64_t> assigned;  // every file id -> its new number
  for (const bool endnotes : {false, true}) {
    std::vector<std::size_t> fileAt;
    std::vector<std::size_t> baseAt;
    std::vector<std::string> fileTexts;
    std::vector<std::string> baseTexts;
    for (std::size_t i = 0; i < fileOrder.size(); ++i) {
      if (isEndnote(fileOrder[i]) != endnotes) continue;
      fileAt.push_back(i);
      fileTexts.push_back(fileKeys[i]);
    }
    for (std::size_t i = 0; i < baseOrder.size(); ++i) {
      if (isEndnote(baseOrder[i]) != endnotes) continue;
      baseAt.push_back(i);
      baseTexts.push_back(baseKeys[i]);
    }
    for (const auto& [f, b] : pairNotes(fileTexts, baseTexts)) {
      assigned.emplace(fileOrder[fileAt[f]], baseOrder[baseAt[b]]);
    }
  }

  std::set<std::int64_t> taken(baseOrder.begin(), baseOrder.end());
  for (const auto& note : localFootnotes) taken.insert(note.id);
  std::vector<std::int64_t> renumbered;
  for (const auto id : fileOrder) {
    if (assigned.contains(id)) continue;
    if (taken.insert(id).second) {
      assigned.emplace(id, id);
    } else {
      renumbered.push_back(id);
    }
  }
  // `taken` now holds every number a note keeps: those of the base, the
  // local side and the file notes that keep their own.
  for (const auto id : renumbered) {
    const std::int64_t number = freshNumber(taken, isEndnote(id));
    taken.insert(number);
    assigned.emplace(id, number);
  }

  NoteNumbers numbers;
  for (const auto& [from, to] : assigned) {
    if (from != to) numbers.emplace(from, to);
  }
  return numbers;
}

std::optional<Block> renumberedMarks(const Block& block, const NoteNumbers& numbers) {
  if (numbers.empty()) return std::nullopt;
  bool cites = false;
  forEachParagraph(block, [&](const Paragraph& paragraph) {
    for (const auto& run : paragraph.runs) {
      if (run.footnoteID && numbers.contains(*run.footnoteID)) cites = true;
    }
  });
  if (!cites) return std::nullopt;
  Block copy = block;
  forEachParagraph(copy, [&](Paragraph& paragraph) {
    for (auto& run : paragraph.runs) renumber(run, numbers);
  });
  return copy;
}

NotedContent renumberNotes(NotedContent content, const NoteNumbers& numbers) {
  if (numbers.empty()) return content;
  for (auto& block : content.blocks) {
    forEachParagraph(block, [&](Paragraph& paragraph) {
      for (auto& run : paragraph.runs) renumber(run, numbers);
    });
  }
  for (auto& note : content.footnotes) {
    if (const auto found = numbers.find(note.id); found != numbers.end()) note.id = found->second;
  }
  return content;
}

NotedContent alignNotes(NotedContent file, const std::vector<Block>& baseBlocks,
                        const std::vector<Footnote>& baseFootnotes,
                        const std::vector<Footnote>& localFootnotes) {
  const auto numbers =
      alignmentNumbers(file.blocks, file.footnotes, baseBlocks, baseFootnotes, localFootnotes);
  return renumberNotes(std::move(file), numbers);
}

}  // namespace inkharbour::MergeEngine
