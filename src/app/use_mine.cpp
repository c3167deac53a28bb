#include "app/use_mine.h"

#include <algorithm>
#include <charconv>
#include <span>
#include <variant>
#include <vector>

#include "merge/summaries.h"
#include "merge/word_diff.h"
#include "model/text.h"

namespace inkharbour {

namespace {

// --- Labels ------------------------------------------------------------------

struct Label {
  enum class Kind { cell, footnote };
  Kind kind;
  std::int64_t first = 0;   // the row, or the footnote's number
  std::int64_t second = 0;  // the column
  std::size_t length = 0;   // bytes of the label, ": " included
};

// Reads a number at `at`, moving past it.
std::optional<std::int64_t> number(std::string_view text, std::size_t& at) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), value);
  if (error != std::errc{}) return std::nullopt;
  at = static_cast<std::size_t>(end - text.data());
  return value;
}

bool skip(std::string_view text, std::size_t& at, std::string_view expected) {
  if (text.substr(at, expected.size()) != expected) return false;
  at += expected.size();
  return true;
}

// "Footnote N: " or "Cell R<r>C<c>: " at the start of a note's text.
std::optional<Label> labelOf(std::string_view text) {
  std::size_t at = 0;
  if (skip(text, at, "Footnote ")) {
    const auto id = number(text, at);
    if (!id || !skip(text, at, ": ")) return std::nullopt;
    return Label{.kind = Label::Kind::footnote, .first = *id, .length = at};
  }
  if (skip(text, at, "Cell R")) {
    const auto row = number(text, at);
    if (!row || !skip(text, at, "C")) return std::nullopt;
    const auto column = number(text, at);
    if (!column || !skip(text, at, ": ") || *row < 1 || *column < 1) return std::nullopt;
    return Label{.kind = Label::Kind::cell, .first = *row, .second = *column, .length = at};
  }
  return std::nullopt;
}

// --- Restoring paragraphs ----------------------------------------------------

struct RunSpan {
  std::size_t begin, end;
  const TextRun* run;
};

std::vector<RunSpan> runSpans(const std::vector<TextRun>& runs) {
  std::vector<RunSpan> out;
  std::size_t at = 0;
  for (const auto& run : runs) {
    out.push_back(RunSpan{at, at + run.text.size(), &run});
    at += run.text.size();
  }
  return out;
}

// The runs' text in [from, to), each piece keeping its run's formatting.
void appendSlice(std::vector<TextRun>& out, const std::vector<RunSpan>& spans, std::size_t from,
                 std::size_t to) {
  for (const auto& span : spans) {
    const std::size_t begin = std::max(span.begin, from), end = std::min(span.end, to);
    if (begin >= end) continue;
    TextRun piece = *span.run;
    piece.text = span.run->text.substr(begin - span.begin, end - begin);
    out.push_back(std::move(piece));
  }
}

// The look new words take: the first run they replace, else the run before
// them, else the run after them. A reference mark lends none, so the result never cites a footnote.
TextRun newWordsLook(const std::vector<RunSpan>& spans, std::size_t from, std::size_t to) {
  const TextRun* look = nullptr;
  for (const auto& span : spans) {
    const bool replaced = span.begin < to && span.end > from;
    const bool before = span.end == from && from == to;
    if ((replaced || before) && !span.run->footnoteID) {
      look = span.run;
      break;
    }
  }
  for (const auto& span : spans) {
    if (look == nullptr && span.begin == to && !span.run->footnoteID) look = span.run;
  }
  TextRun run = look != nullptr ? *look : TextRun{};
  run.text.clear();
  run.footnoteID.reset();
  return run;
}

void appendJoining(std::vector<TextRun>& out, TextRun run) {
  if (run.text.empty()) return;
  if (!out.empty() && !out.back().footnoteID && !run.footnoteID && out.back().sameFormat(run)) {
    out.back().text += run.text;
  } else {
    out.push_back(std::move(run));
  }
}

// Bytes shared at the start and at the end of the two texts, in whole
// tokens, so no character or word is cut; the two never overlap.
std::pair<std::size_t, std::size_t> sharedEnds(std::string_view old, std::string_view line) {
  const auto a = MergeEngine::wordTokens(old);
  const auto b = MergeEngine::wordTokens(line);
  std::size_t n = 0, prefix = 0;
  while (n < a.size() && n < b.size() && a[n] == b[n]) prefix += a[n++].size();
  std::size_t m = 0, suffix = 0;
  while (m + n < a.size() && m + n < b.size() && a[a.size() - 1 - m] == b[b.size() - 1 - m]) {
    suffix += a[a.size() - 1 - m++].size();
  }
  return {prefix, suffix};
}

// `line` in place of the old paragraph's text: the shared start and end keep
// their runs, except that a reference mark cut by the edge goes with the
// new words rather than being split.
Paragraph restoredParagraph(const Paragraph& old, std::string_view line) {
  const std::string oldText = old.text();
  auto [prefix, suffix] = sharedEnds(oldText, line);
  const auto spans = runSpans(old.runs);
  for (const auto& span : spans) {
    if (!span.run->footnoteID) continue;
    if (span.begin < prefix && prefix < span.end) prefix = span.begin;
    const std::size_t tail = oldText.size() - suffix;
    if (span.begin < tail && tail < span.end) suffix = oldText.size() - span.end;
  }
  const std::size_t oldEnd = oldText.size() - suffix;
  Paragraph out{.styleName = old.styleName, .runs = {}};
  appendSlice(out.runs, spans, 0, prefix);
  TextRun middle = newWordsLook(spans, prefix, oldEnd);
  middle.text = std::string(line.substr(prefix, line.size() - suffix - prefix));
  appendJoining(out.runs, std::move(middle));
  std::vector<TextRun> tail;
  appendSlice(tail, spans, oldEnd, oldText.size());
  for (auto& run : tail) appendJoining(out.runs, std::move(run));
  return out;
}

// Paragraphs for the lines, made from the old paragraphs at the same
// positions; lines beyond them take the style of the last old paragraph.
std::vector<Paragraph> restoredParagraphs(std::span<const Paragraph> old,
                                          const std::vector<std::string_view>& texts) {
  std::vector<Paragraph> out;
  const std::string style = old.empty() ? "Body" : old.back().styleName;
  for (std::size_t j = 0; j < texts.size(); ++j) {
    out.push_back(j < old.size() ? restoredParagraph(old[j], texts[j])
                                 : Paragraph::make(style, std::string(texts[j])));
  }
  return out;
}

// --- Finding the place -------------------------------------------------------

struct Plan {
  enum class Where { blocks, cell, footnote };
  std::size_t note = 0;  // index in the story's notes
  Where where = Where::blocks;
  std::size_t first = 0;    // the first block, the table's block, or the footnote's index
  std::size_t removed = 0;  // blocks replaced
  std::size_t row = 0, column = 0;
  std::vector<Block> blocks;
  std::vector<Paragraph> paragraphs;
};

using Outcome = std::variant<Plan, std::string_view>;

// The number of blocks from `first` on whose lines are `text`, or no value.
// An empty text stands for no block at all, never for an empty paragraph.
std::optional<std::size_t> blocksHolding(const std::vector<Block>& blocks, std::size_t first,
                                         std::string_view text) {
  if (first > blocks.size()) return std::nullopt;
  if (text.empty()) return 0;
  std::size_t at = 0;
  for (std::size_t k = first; k < blocks.size(); ++k) {
    const std::string line = MergeEngine::joined(std::span(&blocks[k], 1));
    if (text.substr(at, line.size()) != line) return std::nullopt;
    at += line.size();
    if (at == text.size()) return k + 1 - first;
    if (text[at] != '\n') return std::nullopt;
    ++at;
  }
  return std::nullopt;
}

// "[Table R×C]" or "[Image name]", as the merge report writes non-paragraphs.
bool blockPlaceholder(std::string_view line) {
  return line.ends_with(']') && (line.starts_with("[Table ") || line.starts_with("[Image "));
}

Outcome planBlocks(const Story& story, const ConflictNote& note, Plan plan) {
  if (note.paragraphIndex < 0) return kUseMinePlaceChanged;
  const auto first = static_cast<std::size_t>(note.paragraphIndex);
  const auto removed = blocksHolding(story.blocks, first, note.externalText);
  if (!removed) return kUseMinePlaceChanged;
  plan.first = first;
  plan.removed = *removed;
  if (note.localText.empty()) return plan;
  const auto old = std::span(story.blocks).subspan(first, *removed);
  const auto texts = text::lines(note.localText);
  std::string style = "Body";
  for (const auto& block : old) {
    if (const auto* p = std::get_if<Paragraph>(&block.kind)) style = p->styleName;
  }
  for (std::size_t j = 0; j < texts.size(); ++j) {
    const Block* was = j < old.size() ? &old[j] : nullptr;
    const auto* paragraph = was != nullptr ? std::get_if<Paragraph>(&was->kind) : nullptr;
    if (paragraph != nullptr) {
      plan.blocks.push_back(Block{.id = was->id, .kind = restoredParagraph(*paragraph, texts[j])});
    } else if (was != nullptr && MergeEngine::joined(std::span(was, 1)) == texts[j]) {
      plan.blocks.push_back(*was);
    } else if (blockPlaceholder(texts[j])) {
      return kUseMineNotText;
    } else if (was != nullptr) {
      // Mine had words where theirs has a table or picture: the words replace it.
      plan.blocks.push_back(
          Block{.id = was->id, .kind = Paragraph::make(style, std::string(texts[j]))});
    } else {
      plan.blocks.push_back(Block{.kind = Paragraph::make(style, std::string(texts[j]))});
    }
  }
  return plan;
}

Outcome planFootnote(const Story& story, const ConflictNote& note, const Label& label, Plan plan) {
  const std::string_view external = std::string_view(note.externalText).substr(label.length);
  const auto found = std::find_if(story.footnotes.begin(), story.footnotes.end(),
                                  [&](const Footnote& f) { return f.id == label.first; });
  if (found == story.footnotes.end() || found->text() != external) return kUseMinePlaceChanged;
  plan.where = Plan::Where::footnote;
  plan.first = static_cast<std::size_t>(found - story.footnotes.begin());
  plan.paragraphs = restoredParagraphs(
      found->paragraphs, text::lines(std::string_view(note.localText).substr(label.length)));
  return plan;
}

Outcome planCell(const Table& table, const ConflictNote& note, const Label& label, Plan plan) {
  const std::string_view external = std::string_view(note.externalText).substr(label.length);
  const auto row = static_cast<std::size_t>(label.first - 1);
  const auto column = static_cast<std::size_t>(label.second - 1);
  if (row >= table.rows.size() || column >= table.rows[row].size()) return kUseMinePlaceChanged;
  const TableCell& cell = table.rows[row][column];
  if (cell.text() != external) return kUseMinePlaceChanged;
  plan.where = Plan::Where::cell;
  plan.first = static_cast<std::size_t>(note.paragraphIndex);
  plan.row = row;
  plan.column = column;
  plan.paragraphs = restoredParagraphs(
      cell.paragraphs, text::lines(std::string_view(note.localText).substr(label.length)));
  return plan;
}

const Table* tableAt(const Story& story, std::int64_t index) {
  if (index < 0 || static_cast<std::size_t>(index) >= story.blocks.size()) return nullptr;
  return std::get_if<Table>(&story.blocks[static_cast<std::size_t>(index)].kind);
}

Outcome planFor(const Story& story, const Uuid& noteID) {
  const auto found = std::find_if(story.notes.begin(), story.notes.end(),
                                  [&](const ConflictNote& note) { return note.id == noteID; });
  if (found == story.notes.end()) return kUseMineNoteGone;
  const ConflictNote& note = *found;
  Plan plan{.note = static_cast<std::size_t>(found - story.notes.begin())};
  // A label counts only when both texts carry it and its place is of its
  // kind; a paragraph that merely begins with "Cell R1C1: " is a paragraph.
  const auto label = labelOf(note.localText);
  if (label && note.externalText.compare(0, label->length, note.localText, 0, label->length) == 0) {
    if (label->kind == Label::Kind::footnote && note.paragraphIndex == -1) {
      return planFootnote(story, note, *label, std::move(plan));
    }
    if (const Table* table = tableAt(story, note.paragraphIndex);
        table != nullptr && label->kind == Label::Kind::cell) {
      return planCell(*table, note, *label, std::move(plan));
    }
  }
  return planBlocks(story, note, std::move(plan));
}

}  // namespace

std::optional<std::string> useMineRefusal(const Story& story, const Uuid& noteID) {
  const Outcome outcome = planFor(story, noteID);
  if (const auto* message = std::get_if<std::string_view>(&outcome)) return std::string(*message);
  return std::nullopt;
}

std::optional<std::string> useMine(Story& story, const Uuid& noteID) {
  Outcome outcome = planFor(story, noteID);
  if (const auto* message = std::get_if<std::string_view>(&outcome)) return std::string(*message);
  Plan& plan = std::get<Plan>(outcome);
  switch (plan.where) {
    case Plan::Where::blocks: {
      const auto at = story.blocks.begin() + static_cast<std::ptrdiff_t>(plan.first);
      const std::int64_t gained =
          static_cast<std::int64_t>(plan.blocks.size()) - static_cast<std::int64_t>(plan.removed);
      story.blocks.erase(at, at + static_cast<std::ptrdiff_t>(plan.removed));
      story.blocks.insert(story.blocks.begin() + static_cast<std::ptrdiff_t>(plan.first),
                          std::make_move_iterator(plan.blocks.begin()),
                          std::make_move_iterator(plan.blocks.end()));
      const auto after = static_cast<std::int64_t>(plan.first + plan.removed);
      for (std::size_t n = 0; n < story.notes.size(); ++n) {
        if (n != plan.note && story.notes[n].paragraphIndex >= after) {
          story.notes[n].paragraphIndex += gained;
        }
      }
      break;
    }
    case Plan::Where::cell: {
      auto& table = std::get<Table>(story.blocks[plan.first].kind);
      table.rows[plan.row][plan.column].paragraphs = std::move(plan.paragraphs);
      break;
    }
    case Plan::Where::footnote:
      story.footnotes[plan.first].paragraphs = std::move(plan.paragraphs);
      break;
  }
  story.notes.erase(story.notes.begin() + static_cast<std::ptrdiff_t>(plan.note));
  return std::nullopt;
}

}  // namespace inkharbour
