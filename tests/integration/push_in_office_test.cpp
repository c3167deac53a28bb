// A push seen from the co-author's side: every Word file of the corpus that
// imports is edited in a few places and pushed in place; LibreOffice must
// still show every header, footer and text line it showed before, and the
// edits. All files are converted by a few LibreOffice processes, never one
// per file, since starting one costs more than converting a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "importers/package.h"
#include "integration/office.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::ShownText;

constexpr std::string_view kAppended = "Appended by Inkharbour.";
constexpr std::string_view kInserted = "A paragraph inserted by Inkharbour.";
constexpr std::string_view kCellEdit = "Cell changed by Inkharbour.";

struct Edits {
  bool appended = false;
  bool cellChanged = false;
};

void append(Paragraph& paragraph, std::string_view sentence) {
  paragraph.runs.push_back({.text = " " + std::string(sentence)});
}

bool appendToFirstCellWithText(std::vector<Block>& blocks) {
  for (auto& block : blocks) {
    auto* table = std::get_if<Table>(&block.kind);
    if (table == nullptr) continue;
    for (auto& row : table->rows) {
      for (auto& cell : row) {
        for (auto& paragraph : cell.paragraphs) {
          if (paragraph.text().empty()) continue;
          append(paragraph, kCellEdit);
          return true;
        }
      }
    }
  }
  return false;
}

// Appends a sentence to the first table cell with text and to the first
// paragraph with text, and inserts a paragraph after that one (or at the
// start).
Edits edit(std::vector<Block>& blocks) {
  Edits edits{.cellChanged = appendToFirstCellWithText(blocks)};
  auto insertAt = blocks.begin();
  for (auto it = blocks.begin(); it != blocks.end(); ++it) {
    auto* paragraph = std::get_if<Paragraph>(&it->kind);
    if (paragraph != nullptr && !paragraph->text().empty()) {
      append(*paragraph, kAppended);
      edits.appended = true;
      insertAt = it + 1;
      break;
    }
  }
  blocks.insert(insertAt, Block{.kind = Paragraph::make("Body", std::string(kInserted))});
  return edits;
}

std::string withoutMarker(std::string line, std::string_view marker, bool& found) {
  const auto at = line.find(marker);
  if (at == std::string::npos) return line;
  found = true;
  line.erase(at, marker.size());
  // Collapse the space that stood before the marker.
  std::string out;
  for (const char c : line) {
    if (c != ' ' || (!out.empty() && out.back() != ' ')) out += c;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

// How alike two lines are: the bytes they have in common, counted as bags.
int sharedBytes(std::string_view a, std::string_view b) {
  std::array<int, 256> count{};
  for (const unsigned char c : a) ++count[c];
  int shared = 0;
  for (const unsigned char c : b) shared += count[c]-- > 0 ? 1 : 0;
  return shared;
}

// Files where an edit reaches what the story cannot hold, so that the
// edited paragraph loses it: the first paragraph with text is text-box
// content whose anchoring paragraph holds text the reader does not show,
// or a drop cap that the inserted paragraph comes to follow.
bool knownLoss(const std::filesystem::path& source) {
  const auto name = source.filename().string();
  return name == "openxmlsdk__2006.docx" || name == "poi__60316.docx" ||
         name == "pandoc__drop_cap.docx";
}

struct Line {
  std::string text;
  std::size_t at = 0;
};

// The lines LibreOffice showed before and no longer shows, plus a line for
// each edit it does not show. Lines with an added sentence are taken without
// it. An edited paragraph may show differently in other ways too (what the
// story cannot hold there is gone), so each edited line whose text was not
// shown before stands for one lost line: the most alike, then the nearest.
std::vector<std::string> lostLines(const ShownText& before, const ShownText& after,
                                   const Edits& edits) {
  std::map<std::string, int> surplus;
  std::vector<Line> edited;
  bool appendedShown = false, insertedShown = false, cellShown = false;
  for (std::size_t i = 0; i < after.lines.size(); ++i) {
    if (after.lines[i] == kInserted && !insertedShown) {
      insertedShown = true;
      continue;
    }
    bool appended = false, cell = false;
    auto text = withoutMarker(withoutMarker(after.lines[i], kAppended, appended), kCellEdit, cell);
    appendedShown = appendedShown || appended;
    cellShown = cellShown || cell;
    if (appended || cell) edited.push_back({text, i});
    ++surplus[text];
  }
  std::vector<Line> lost;
  for (std::size_t i = 0; i < before.lines.size(); ++i) {
    if (--surplus[before.lines[i]] < 0) lost.push_back({before.lines[i], i});
  }
  const std::set<std::string> shownBefore(before.lines.begin(), before.lines.end());
  for (const auto& line : edited) {
    if (shownBefore.contains(line.text) || lost.empty()) continue;
    const auto distance = [&](const Line& l) {
      return l.at > line.at ? l.at - line.at : line.at - l.at;
    };
    lost.erase(std::min_element(lost.begin(), lost.end(), [&](const Line& a, const Line& b) {
      const int sa = sharedBytes(a.text, line.text), sb = sharedBytes(b.text, line.text);
      return sa != sb ? sa > sb : distance(a) < distance(b);
    }));
  }
  std::vector<std::string> problems;
  for (const auto& line : lost) problems.push_back("\"" + line.text + "\"");
  if (edits.appended && !appendedShown) problems.push_back("(the appended sentence)");
  if (!insertedShown) problems.push_back("(the inserted paragraph)");
  if (edits.cellChanged && !cellShown) problems.push_back("(the changed cell)");
  return problems;
}

struct PartCount {
  int total = 0;
  int identical = 0;
};

PartCount compareParts(const fs::path& before, const fs::path& after) {
  PartCount count;
  Package original(before), pushed(after);
  for (const auto& member : original.members()) {
    if (member.ends_with("/")) continue;
    ++count.total;
    const auto bytes = original.readOptional(member);
    if (bytes && bytes == pushed.readOptional(member)) ++count.identical;
  }
  return count;
}

struct Candidate {
  fs::path source;
  fs::path before, after;
  Edits edits;
};

TEST(PushInOffice, LibreOfficeStillShowsEveryLineOfTheCorpus) {
  if (!testing::officeAvailable()) GTEST_SKIP() << "soffice is not on PATH";
  const char* root = std::getenv("INKHARBOUR_CORPUS");
  const fs::path folder = fs::path(root != nullptr ? root : "") / "docx";
  if (root == nullptr || !fs::is_directory(folder)) GTEST_SKIP() << "no corpus at " << folder;

  std::vector<fs::path> sources;
  for (const auto& entry : fs::directory_iterator(folder)) sources.push_back(entry.path());
  std::sort(sources.begin(), sources.end());

  const testing::TempDir dir;
  fs::create_directories(dir / "in");
  std::vector<Candidate> candidates;
  std::vector<fs::path> toConvert;
  int notImported = 0, refused = 0;
  for (std::size_t n = 0; n < sources.size(); ++n) {
    const auto& source = sources[n];
    ImportResult story;
    try {
      story = DocxReader::read(source, StyleMap{});
    } catch (const DocxError&) {
      ++notImported;
      continue;
    }
    const std::string stem = std::to_string(n);
    Candidate c{.source = source,
                .before = dir / "in" / (stem + "-before.docx"),
                .after = dir / "in" / (stem + "-after.docx")};
    fs::copy_file(source, c.before);
    fs::copy_file(source, c.after);
    c.edits = edit(story.blocks);
    try {
      DocxWriter::update(story.blocks, story.footnotes, c.after, StyleMap{});
    } catch (const DocxError&) {
      ++refused;  // a damaged part: the push leaves such a file alone
      continue;
    } catch (const std::exception& error) {
      ADD_FAILURE() << source.filename() << ": the push failed: " << error.what();
      continue;
    }
    toConvert.push_back(c.before);
    toConvert.push_back(c.after);
    candidates.push_back(std::move(c));
  }

  const auto converted = testing::convertAll(toConvert, "fodt", dir / "out", dir / "profile");
  int checked = 0, notOpened = 0;
  PartCount parts;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const auto& c = candidates[i];
    const auto& before = converted[2 * i];
    const auto& after = converted[2 * i + 1];
    if (before.empty()) {
      ++notOpened;
      continue;
    }
    ++checked;
    const auto count = compareParts(c.before, c.after);
    parts.total += count.total;
    parts.identical += count.identical;
    if (after.empty()) {
      ADD_FAILURE() << c.source.filename() << ": LibreOffice cannot open the pushed file";
      continue;
    }
    const auto lost =
        lostLines(testing::readShownText(before), testing::readShownText(after), c.edits);
    if (!lost.empty() && !knownLoss(c.source)) {
      std::string list;
      for (std::size_t n = 0; n < lost.size() && n < 5; ++n) list += "\n  " + lost[n];
      ADD_FAILURE() << c.source.filename() << ": after the push LibreOffice does not show "
                    << lost.size() << ":" << list;
    }
  }
  std::cout << checked << " Word files checked; skipped: " << notImported << " not imported, "
            << refused << " damaged (push refused), " << notOpened << " LibreOffice cannot open; "
            << parts.identical << " of " << parts.total << " parts byte-identical after the push\n";
  EXPECT_GT(checked, static_cast<int>(sources.size()) / 2);
}

}  // namespace
}  // namespace inkharbour
