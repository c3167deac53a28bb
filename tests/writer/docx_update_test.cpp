// Pushing into an existing Word file keeps everyone else's work: other parts
// byte for byte, unchanged paragraphs and notes byte for byte, the look of
// changed ones; and the file reads back as the story.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "importers/docx_reader.h"
#include "importers/package.h"
#include "support/fixtures.h"
#include "writer/docx_writer.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;
using testing::Members;

std::vector<Block> withoutIds(std::vector<Block> blocks) {
  for (auto& block : blocks) block.id = Uuid{};
  return blocks;
}

Members membersOf(const fs::path& file) {
  Package package(file);
  Members members;
  for (const auto& name : package.members()) {
    if (const auto bytes = package.read(name)) members[name] = std::string(asText(*bytes));
  }
  return members;
}

// Pushes the story and checks that the file reads back as it.
void push(const ImportResult& story, const fs::path& file, const std::string& label) {
  DocxWriter::update(story.blocks, story.footnotes, file, StyleMap{});
  const auto back = DocxReader::read(file, StyleMap{});
  EXPECT_TRUE(withoutIds(back.blocks) == withoutIds(story.blocks) &&
              back.footnotes == story.footnotes)
      << label << "\nexpected:\n" << testing::dump(story) << "got:\n" << testing::dump(back);
}

Paragraph* firstParagraphWithText(std::vector<Block>& blocks) {
  for (auto& block : blocks) {
    if (auto* paragraph = std::get_if<Paragraph>(&block.kind);
        paragraph && !paragraph->runs.empty() && !paragraph->runs.back().footnoteID) {
      return paragraph;
    }
  }
  return nullptr;
}

// A few edits an author makes: a sentence added to a paragraph, a paragraph
// inserted and one deleted, a table cell and a note reworded.
void edit(ImportResult& story) {
  if (auto* paragraph = firstParagraphWithText(story.blocks)) {
    paragraph->runs.back().text += " One more sentence.";
  }
  std::size_t middle = story.blocks.size() / 2;
  story.blocks.insert(story.blocks.begin() + static_cast<std::ptrdiff_t>(middle),
                      Block{.kind = Paragraph::make("Body", "A paragraph of our own.")});
  if (story.blocks.size() > 3) story.blocks.erase(story.blocks.end() - 2);
  for (auto& block : story.blocks) {
    if (auto* table = std::get_if<Table>(&block.kind);
        table && !table->rows.empty() && !table->rows[0].empty()) {
      table->rows[0][0].paragraphs = {Paragraph::make("Body", "changed cell")};
      break;
    }
  }
  if (!story.footnotes.empty()) {
    story.footnotes.front().paragraphs = {Paragraph::make("Body", " A reworded note.")};
  }
}

TEST(DocxUpdate, EveryCorpusFileKeepsItsOtherPartsAndReadsBackAsTheStory) {
  const char* corpus = std::getenv("INKHARBOUR_CORPUS");
  if (corpus == nullptr || !fs::exists(fs::path(corpus) / "docx")) GTEST_SKIP() << "no corpus";
  testing::TempDir dir;
  int pushed = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(corpus) / "docx")) {
    ImportResult story;
    try {
      story = DocxReader::read(entry.path(), StyleMap{});
    } catch (const std::exception&) {
      continue;  // files that do not import are not pushed to
    }
    const fs::path file = dir / "linked.docx";
    fs::copy_file(entry.path(), file, fs::copy_options::overwrite_existing);
    Members before;
    try {
      before = membersOf(file);
    } catch (const DocxError&) {
      // A damaged part cannot be kept, so the push refuses and leaves the file.
      EXPECT_THROW(DocxWriter::update(story.blocks, story.footnotes, file, StyleMap{}), DocxError);
      EXPECT_EQ(testing::readFile(file), testing::readFile(entry.path()));
      continue;
    }

    // Nothing changed: the document part stays byte for byte.
    const std::string label = entry.path().filename().string();
    try {
      push(story, file, label);
    } catch (const std::exception& error) {
      ADD_FAILURE() << label << ": " << error.what();
      continue;
    }
    auto after = membersOf(file);
    EXPECT_EQ(after["word/document.xml"], before.at("word/document.xml")) << entry.path().filename();

    edit(story);
    push(story, file, label + " (edited)");
    after = membersOf(file);
    for (const auto& [name, bytes] : before) {
      if (name == "word/document.xml" || name == "word/footnotes.xml" ||
          name == "word/endnotes.xml" || name.ends_with('/')) {
        continue;
      }
      EXPECT_TRUE(after.contains(name) && after[name] == bytes)
          << entry.path().filename() << ": " << name << " changed";
    }
    ++pushed;
  }
  EXPECT_GT(pushed, 100);
}

}  // namespace
}  // namespace inkharbour
