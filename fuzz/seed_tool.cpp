// Seeds for the fuzz targets, made at run time:
//   fuzz_seeds unpack OUT MAX_BYTES PACKAGE...
//     writes each package as the member list the package targets read
//     (scratch.h), XML parts first, leaving out members that would pass
//     MAX_BYTES; a package whose main part does not fit is skipped.
//   fuzz_seeds documents OUT
//     writes document files of a few shapes.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/package.h"
#include "model/document_file.h"

using namespace inkharbour;
namespace fs = std::filesystem;

namespace {

void save(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

bool isMainPart(const std::string& name) {
  return name == "word/document.xml" || name.starts_with("xl/worksheets/sheet");
}

int rank(const std::string& name) {
  if (isMainPart(name)) return 0;
  if (name.ends_with(".xml") || name.ends_with(".rels")) return 1;
  return 2;
}

int unpack(const fs::path& out, std::size_t most, int count, char** packages) {
  fs::create_directories(out);
  int written = 0;
  for (int i = 0; i < count; ++i) {
    const fs::path path = packages[i];
    try {
      Package package(path);
      if (!package.opened()) continue;
      auto names = package.members();
      std::stable_sort(names.begin(), names.end(),
                       [](const auto& a, const auto& b) { return rank(a) < rank(b); });
      std::string seed;
      bool hasMain = false;
      for (const auto& name : names) {
        const auto bytes = package.readOptional(name);
        if (!bytes || name.find('\n') != std::string::npos) continue;
        const std::string member = "@@ " + name + "\n" + std::string(asText(*bytes));
        if (seed.size() + 1 + member.size() > most) continue;
        if (member.find("\n@@ ", 1) != std::string::npos) continue;
        seed += (seed.empty() ? "" : "\n") + member;
        hasMain = hasMain || isMainPart(name);
      }
      if (!hasMain) continue;
      save(out / (path.stem().string() + ".members"), seed);
      ++written;
    } catch (const std::exception&) {
      continue;  // a damaged package is seeded as it is, not unpacked
    }
  }
  std::printf("%d member lists in %s\n", written, out.c_str());
  return 0;
}

Paragraph styled(std::string style, std::vector<TextRun> runs) {
  return Paragraph{.styleName = std::move(style), .runs = std::move(runs)};
}

int documents(const fs::path& out) {
  fs::create_directories(out);
  const auto uuid = [](int n) {
    Uuid id;
    id.bytes[15] = static_cast<std::uint8_t>(n);
    return id;
  };
  const std::vector<Block> blocks{
      Block{.id = uuid(1),
            .kind = styled("Heading 1", {{.text = "One", .bold = true, .colorHex = "FF0000"}})},
      Block{.id = uuid(2),
            .kind = styled("Body", {{.text = "a \"quoted\" / \\ \u2028 text"},
                                    {.text = "up", .script = ScriptPosition::superscript},
                                    TextRun::footnoteReference(1)})},
      Block{.id = uuid(3),
            .kind = Table{.rows = {{TableCell{{Paragraph::make("Body", "a")}}, TableCell{}}, {}}}},
      Block{.id = uuid(4),
            .kind = ImageBlock{.data = {0x89, 'P', 'N', 'G', 0, 1}, .name = "p.png"}},
  };
  const std::vector<Footnote> notes{{.id = 1, .paragraphs = {Paragraph::make("Quote", "note")}}};
  ProjectDocument rich{
      .stories = {Story{.id = uuid(10),
                        .name = "Chapter",
                        .blocks = blocks,
                        .footnotes = notes,
                        .link = StoryLink{.path = "/tmp/chapter.docx",
                                          .kind = LinkKind::word,
                                          .baseBlocks = blocks,
                                          .baseFootnotes = notes,
                                          .lastSync = 123456.75},
                        .notes = {ConflictNote{.id = uuid(11),
                                               .paragraphIndex = -1,
                                               .localText = "mine",
                                               .externalText = "theirs",
                                               .date = 1e9}},
                        .lastMergeReport = {ChangeRecord{.id = uuid(12),
                                                         .kind = ChangeRecord::Kind::conflict,
                                                         .summary = "Both",
                                                         .localText = "l",
                                                         .externalText = std::nullopt}}},
                  Story{.id = uuid(13), .name = "Empty"}},
      .styleMap = {{"heading 1", "Title"}},
      .documentFolder = "/tmp"};
  save(out / "rich.inkharbour", DocumentFile::encode(rich));
  save(out / "empty.inkharbour", DocumentFile::encode(ProjectDocument{}));
  std::printf("2 documents in %s\n", out.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "unpack" && argc >= 4) {
    return unpack(argv[2], std::strtoull(argv[3], nullptr, 10), argc - 4, argv + 4);
  }
  if (mode == "documents" && argc == 3) return documents(argv[2]);
  std::fprintf(stderr, "usage: fuzz_seeds unpack OUT MAX_BYTES PACKAGE... | documents OUT\n");
  return 2;
}
