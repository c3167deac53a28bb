// Writer -> reader: a story made from the input (see story_text.h), written
// with DocxWriter::write, reads back as the same blocks and footnotes apart
// from block ids whenever a package can carry all of it as it is. Anything
// else is mended on the way, once: a second round trip changes nothing.
#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "checks.h"
#include "model/style_sheet.h"
#include "story_text.h"

using namespace inkharbour;

namespace {

bool carriesAsItIs(const Paragraph& paragraph) {
  if (!StyleSheet::isStyle(paragraph.styleName)) return false;
  for (const auto& run : paragraph.runs) {
    if (!fuzz::isXmlText(run.text)) return false;
  }
  return true;
}

bool carriesAsItIs(const fuzz::TextStory& story) {
  for (const auto& block : story.blocks) {
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      if (!carriesAsItIs(*paragraph)) return false;
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      for (const auto& row : table->rows) {
        for (const auto& cell : row) {
          for (const auto& paragraph : cell.paragraphs) {
            if (!carriesAsItIs(paragraph)) return false;
          }
        }
      }
    }
  }
  std::set<std::int64_t> ids;
  for (const auto& note : story.footnotes) {
    if (!ids.insert(note.id).second) return false;
    for (const auto& paragraph : note.paragraphs) {
      if (!carriesAsItIs(paragraph)) return false;
    }
  }
  return fuzz::hasPlainPictureNames(story.blocks);
}

// Neighbouring runs of one format are one run once written.
Paragraph joinedRuns(Paragraph paragraph) {
  std::vector<TextRun> runs;
  for (auto& run : paragraph.runs) {
    if (!runs.empty() && !run.footnoteID && !runs.back().footnoteID &&
        runs.back().sameFormat(run)) {
      runs.back().text += run.text;
    } else {
      runs.push_back(std::move(run));
    }
  }
  paragraph.runs = std::move(runs);
  return paragraph;
}

fuzz::TextStory asWritten(fuzz::TextStory story) {
  for (auto& block : story.blocks) {
    block.id = Uuid{};
    if (auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      *paragraph = joinedRuns(std::move(*paragraph));
    } else if (auto* table = std::get_if<Table>(&block.kind)) {
      for (auto& row : table->rows) {
        for (auto& cell : row) {
          for (auto& paragraph : cell.paragraphs) paragraph = joinedRuns(std::move(paragraph));
        }
      }
    }
  }
  for (auto& note : story.footnotes) {
    for (auto& paragraph : note.paragraphs) paragraph = joinedRuns(std::move(paragraph));
  }
  story.footnotes = fuzz::byId(std::move(story.footnotes));
  return story;
}

void requireSame(const ImportResult& got, const std::vector<Block>& blocks,
                 const std::vector<Footnote>& footnotes, std::string_view what) {
  if (fuzz::withoutIds(got.blocks) != fuzz::withoutIds(blocks) ||
      fuzz::byId(got.footnotes) != fuzz::byId(footnotes)) {
    fuzz::fail(what, "expected:\n" + fuzz::describe(blocks, footnotes) + "got:\n" +
                         fuzz::describe(got.blocks, got.footnotes));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto story = fuzz::parseStories({reinterpret_cast<const char*>(data), size}, 1)[0];
  const ImportResult once = fuzz::writeAndRead(story.blocks, story.footnotes);
  if (carriesAsItIs(story)) {
    const auto expected = asWritten(story);
    requireSame(once, expected.blocks, expected.footnotes, "the story does not read back");
    return 0;
  }
  if (once.blocks.size() != story.blocks.size() ||
      once.footnotes.size() != story.footnotes.size()) {
    fuzz::fail("mending lost or added blocks or footnotes",
               "wrote:\n" + fuzz::describe(story.blocks, story.footnotes) + "read:\n" +
                   fuzz::describe(once.blocks, once.footnotes));
  }
  const ImportResult twice = fuzz::writeAndRead(once.blocks, once.footnotes);
  requireSame(twice, once.blocks, once.footnotes, "a mended story changes in a second round trip");
  return 0;
}
