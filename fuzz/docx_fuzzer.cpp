// The Word reader on any file: it either reads the file or throws DocxError,
// and what it reads the writer writes back to the same blocks and footnotes.
#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "checks.h"
#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "scratch.h"
#include "writer/docx_writer.h"

using namespace inkharbour;

namespace {

// Small enough that a hostile input costs milliseconds, not seconds.
const ImportLimits kLimits{.memberBytes = 8 << 20,
                           .compressionRatio = 100,
                           .ratioCheckAfter = 1 << 20,
                           .packageBytes = 32 << 20,
                           .textBytes = 8 << 20,
                           .items = 1 << 15,
                           .tableDepth = 64};

// A custom mapping, so that it takes part in the style names read.
const StyleMap kStyleMap{{"heading 1", "Quote"}, {"Title", "Heading 2"}, {"Caption", "Nothing"}};

// A note without paragraphs (an empty one, or one holding only a table) is
// written with one empty paragraph to carry its mark, and reads back so; a
// push that leaves the notes as they were keeps it without.
std::vector<Footnote> asWritten(std::vector<Footnote> notes) {
  for (auto& note : notes) {
    if (note.paragraphs.empty()) note.paragraphs.push_back(Paragraph::make("Body", ""));
  }
  return fuzz::byId(std::move(notes));
}

// A sentence added to the first paragraph with text, and a paragraph of
// our own in the middle.
ImportResult edited(ImportResult story) {
  for (auto& block : story.blocks) {
    auto* paragraph = std::get_if<Paragraph>(&block.kind);
    if (paragraph && !paragraph->runs.empty() && !paragraph->runs.back().footnoteID) {
      paragraph->runs.back().text += " One more.";
      break;
    }
  }
  const auto middle = static_cast<std::ptrdiff_t>(story.blocks.size() / 2);
  story.blocks.insert(story.blocks.begin() + middle,
                      Block{.kind = Paragraph::make("Body", "Ours.")});
  return story;
}

// Pushing an edited story into the file in place: unless the file is
// refused, it then reads back as that story.
void pushEdited(const std::filesystem::path& file, const ImportResult& read) {
  static const auto pushed = fuzz::scratchPath("pushed.docx");
  std::filesystem::copy_file(file, pushed, std::filesystem::copy_options::overwrite_existing);
  const ImportResult story = edited(read);
  try {
    DocxWriter::update(story.blocks, story.footnotes, pushed, kStyleMap);
  } catch (const DocxError&) {
    return;  // a part that cannot be kept, or one that cannot be parsed
  }
  ImportResult back;
  try {
    back = DocxReader::readAs(pushed, LinkKind::word, kStyleMap, kLimits,
                              DocxReader::DamagedParts::fail);
  } catch (const std::exception& error) {
    fuzz::fail(std::string("the pushed file does not read: ") + error.what(),
               fuzz::describe(story.blocks, story.footnotes));
  }
  if (fuzz::withoutIds(back.blocks) != fuzz::withoutIds(story.blocks) ||
      asWritten(back.footnotes) != asWritten(story.footnotes)) {
    fuzz::fail("the pushed file does not read back as the story",
               "story:\n" + fuzz::describe(story.blocks, story.footnotes) + "read back:\n" +
                   fuzz::describe(back.blocks, back.footnotes));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto path = fuzz::scratchPath("input.docx");
  if (!fuzz::writePackageInput(path, {data, size})) return 0;
  // Both treatments of a damaged notes part, chosen by the input.
  const auto damaged =
      size % 2 == 0 ? DocxReader::DamagedParts::readAsAbsent : DocxReader::DamagedParts::fail;
  ImportResult read;
  try {
    read = DocxReader::readAs(path, LinkKind::word, kStyleMap, kLimits, damaged);
  } catch (const DocxError&) {
    return 0;
  }
  DocxReader::paragraphStyleNames(path);
  if (!fuzz::hasPlainPictureNames(read.blocks)) return 0;

  const ImportResult back = fuzz::writeAndRead(read.blocks, read.footnotes, kLimits);
  if (fuzz::withoutIds(back.blocks) != fuzz::withoutIds(read.blocks) ||
      fuzz::byId(back.footnotes) != asWritten(read.footnotes)) {
    fuzz::fail("what was read does not read back the same after writing",
               "read:\n" + fuzz::describe(read.blocks, read.footnotes) + "read back:\n" +
                   fuzz::describe(back.blocks, back.footnotes));
  }
  // A quarter of the inputs, and only those read strictly, as Update Link
  // and a push read them.
  if (size % 4 == 1) pushEdited(path, read);
  return 0;
}
