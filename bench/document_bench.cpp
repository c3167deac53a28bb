// Document file benchmark. Builds a large document in memory (five book-length
// linked stories with base snapshots, footnotes and a dozen 2 MB pictures),
// saves it, and measures in one run:
//
//   open: DocumentFile::read against its floor, reading the file into memory
//         and running simdjson's DOM parser over it (goal: at most 3x);
//   save: DocumentFile::encode against nlohmann::json's dump(2) of the same
//         content already built as a nlohmann::json value (goal: at most 1x).
//         DocumentFile::write (encode plus the atomic replacement) is shown
//         against the same floor, without a goal.
//
// usage: document_bench [--repetitions N] [--paragraphs N] [--check] [DIRECTORY]
//
// DIRECTORY receives the saved document (default: a folder under the system's
// temporary directory). --paragraphs sets the paragraphs per story, for
// quicker runs and profiling. --check makes a missed goal exit 1.

#include <CLI/CLI.hpp>
#include <simdjson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench_support.h"
#include "model/base64.h"
#include "model/document_file.h"
#include "random.h"

namespace inkharbour::bench {

namespace {

namespace fs = std::filesystem;

constexpr double kOpenGoal = 3.0;
constexpr double kSaveGoal = 1.0;

struct Options {
  int repetitions = 3;
  int paragraphs = 60000;  // per story
  bool check = false;
  fs::path directory = defaultDirectory();
};

struct Shape {
  int stories = 5;
  int paragraphs = 60000;  // per story, headings included
  int footnotes = 600;     // per story, each cited once
  int pictures = 12;       // spread over the stories
  std::size_t pictureBytes = 2 << 20;
  int chapterEvery = 1500;  // a "Heading 1" paragraph this often
};

// --- The document ------------------------------------------------------------

// Prose-like words; a few carry accents, curly apostrophes, a dash, a slash
// or quotes, so the writer meets multi-byte text and escapes.
const std::vector<std::string_view>& words() {
  static const std::vector<std::string_view> list = [] {
    constexpr std::string_view text =
        "the the the the the of of of and and and to to a a in in was was he she it that his her "
        "with as on at for by had not but from they were you which this all one there have been "
        "their would said into when then out up over could what more some no them him its so if "
        "harbour lighthouse keeper lantern storm tide shore cliff boat rope net gull wind rain "
        "salt sea water light dark night morning evening winter summer village house door window "
        "letter book ledger candle fire stone road path garden river bridge bell clock voice hand "
        "eyes mother father captain stranger walked turned looked waited listened remembered "
        "opened carried watched whispered knew thought felt saw heard slowly quietly again never "
        "perhaps still grey cold small great narrow heavy bright distant empty café naïve façade "
        "déjà don’t couldn’t it’s o’clock — and/or \"so\" & nothing beneath between towards";
    std::vector<std::string_view> list;
    for (std::size_t at = 0; at < text.size();) {
      const auto end = std::min(text.find(' ', at), text.size());
      list.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    return list;
  }();
  return list;
}

Paragraph bodyParagraph(Random& random, std::int64_t footnote) {
  const auto& list = words();
  const int wordCount = random.between(8, 32);
  const int runCount = random.between(2, 4);
  Paragraph paragraph{.styleName = "Body", .runs = {}};
  int written = 0;
  for (int r = 0; r < runCount; ++r) {
    const int until = wordCount * (r + 1) / runCount;
    TextRun run;
    for (; written < until; ++written) {
      run.text += list[random.next() % list.size()];
      run.text += ' ';
    }
    run.italic = random.percent(10);
    run.bold = random.percent(4);
    if (random.percent(5)) run.colorHex = "C00000";
    paragraph.runs.push_back(std::move(run));
  }
  if (footnote > 0) paragraph.runs.push_back(TextRun::footnoteReference(footnote));
  return paragraph;
}

ProjectDocument makeDocument(const Shape& shape) {
  Random random(0x1A2B3C4D5E6F7081);
  ProjectDocument document;
  document.styleMap = {{"Heading 1", "Heading"}, {"Body Text", "Body"}, {"Quote", "Quote"}};
  int picture = 0;
  for (int s = 0; s < shape.stories; ++s) {
    Story story{.name = "Book " + std::to_string(s + 1) + ".docx"};
    const int citeEvery = std::max(1, shape.paragraphs / shape.footnotes);
    std::int64_t footnote = 0;
    for (int p = 0; p < shape.paragraphs; ++p) {
      if (p % shape.chapterEvery == 0) {
        story.blocks.push_back(
            Block{.kind = Paragraph::make("Heading", "Chapter " + std::to_string(p / shape.chapterEvery + 1))});
        continue;
      }
      const bool cites = p % citeEvery == 0 && footnote < shape.footnotes;
      story.blocks.push_back(Block{.kind = bodyParagraph(random, cites ? ++footnote : 0)});
    }
    for (std::int64_t n = 1; n <= footnote; ++n) {
      story.footnotes.push_back(
          Footnote{.id = n, .paragraphs = {bodyParagraph(random, 0)}});
    }
    // This story's share of the pictures, spread through its text.
    const int share = shape.pictures / shape.stories + (s < shape.pictures % shape.stories ? 1 : 0);
    for (int i = 0; i < share; ++i, ++picture) {
      Data bytes(shape.pictureBytes);
      for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
        const std::uint64_t value = random.next();
        std::memcpy(bytes.data() + at, &value, 8);
      }
      const auto at = story.blocks.begin() + static_cast<std::ptrdiff_t>(story.blocks.size() * (i + 1) / (share + 1));
      story.blocks.insert(at, Block{.kind = ImageBlock{.data = std::move(bytes),
                                                       .name = "image" + std::to_string(picture + 1) + ".png"}});
    }
    story.link = StoryLink{.path = "/Users/author/Manuscripts/Book " + std::to_string(s + 1) + ".docx",
                           .kind = LinkKind::word,
                           .baseBlocks = story.blocks,
                           .baseFootnotes = story.footnotes,
                           .lastSync = 745000000.25 + s};
    document.stories.push_back(std::move(story));
  }
  return document;
}

// --- The same content as a nlohmann::json value --------------------------------

using nlohmann::json;

json toJson(const Paragraph& paragraph) {
  json runs = json::array();
  for (const auto& run : paragraph.runs) {
    json value{{"text", run.text},         {"bold", run.bold},
               {"italic", run.italic},     {"underline", run.underline},
               {"strikethrough", run.strikethrough}, {"smallCaps", run.smallCaps},
               {"script", name(run.script)}};
    if (run.colorHex) value["colorHex"] = *run.colorHex;
    if (run.footnoteID) value["footnoteID"] = *run.footnoteID;
    runs.push_back(std::move(value));
  }
  return json{{"styleName", paragraph.styleName}, {"runs", std::move(runs)}};
}

json toJson(const std::vector<Paragraph>& paragraphs) {
  json list = json::array();
  for (const auto& paragraph : paragraphs) list.push_back(toJson(paragraph));
  return list;
}

json toJson(const std::vector<Block>& blocks) {
  json list = json::array();
  for (const auto& block : blocks) {
    json kind;
    if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
      kind["paragraph"]["_0"] = toJson(*paragraph);
    } else if (const auto* table = std::get_if<Table>(&block.kind)) {
      json rows = json::array();
      for (const auto& row : table->rows) {
        json cells = json::array();
        for (const auto& cell : row) cells.push_back(json{{"paragraphs", toJson(cell.paragraphs)}});
        rows.push_back(std::move(cells));
      }
      kind["table"]["_0"] = json{{"rows", std::move(rows)}};
    } else {
      const auto& image = std::get<ImageBlock>(block.kind);
      std::string data;
      appendBase64(data, image.data);
      kind["image"]["_0"] = json{{"data", std::move(data)}, {"name", image.name}};
    }
    list.push_back(json{{"id", block.id.string()}, {"kind", std::move(kind)}});
  }
  return list;
}

json toJson(const std::vector<Footnote>& footnotes) {
  json list = json::array();
  for (const auto& footnote : footnotes) {
    list.push_back(json{{"id", footnote.id}, {"paragraphs", toJson(footnote.paragraphs)}});
  }
  return list;
}

json toJson(const ProjectDocument& document) {
  json stories = json::array();
  for (const auto& story : document.stories) {
    json value{{"id", story.id.string()},
               {"name", story.name},
               {"blocks", toJson(story.blocks)},
               {"footnotes", toJson(story.footnotes)},
               {"notes", json::array()},
               {"lastMergeReport", json::array()}};
    if (story.link) {
      value["link"] = json{{"path", story.link->path},
                           {"kind", name(story.link->kind)},
                           {"baseBlocks", toJson(story.link->baseBlocks)},
                           {"baseFootnotes", toJson(story.link->baseFootnotes)},
                           {"lastSync", story.link->lastSync}};
    }
    stories.push_back(std::move(value));
  }
  json styleMap = json::object();
  for (const auto& [word, style] : document.styleMap) styleMap[word] = style;
  return json{{"stories", std::move(stories)}, {"styleMap", std::move(styleMap)}};
}

// --- Floors ------------------------------------------------------------------

std::size_t openFloor(const fs::path& file) {
  simdjson::padded_string text;
  if (simdjson::padded_string::load(file.string()).get(text) != simdjson::SUCCESS) {
    throw std::runtime_error("cannot read " + file.string());
  }
  simdjson::dom::parser parser;
  simdjson::dom::element root;
  if (parser.parse(text).get(root) != simdjson::SUCCESS) {
    throw std::runtime_error(file.string() + " is not JSON");
  }
  return text.size();
}

int run(const Options& options) {
  const Shape shape{.paragraphs = options.paragraphs,
                    .footnotes = std::min(600, options.paragraphs / 10 + 1)};
  const double buildStart = cpuSeconds();
  const ProjectDocument document = makeDocument(shape);
  const double built = cpuSeconds() - buildStart;

  fs::create_directories(options.directory);
  const fs::path file = options.directory / ("document-bench-" + std::to_string(shape.paragraphs) + ".inkharbour");
  DocumentFile::write(document, file);
  const auto fileBytes = fs::file_size(file);

  std::size_t runs = 0, images = 0;
  for (const auto& story : document.stories) {
    for (const auto& block : story.blocks) {
      if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
        runs += paragraph->runs.size();
      } else {
        ++images;
      }
    }
  }

  std::printf("Inkharbour document file benchmark\n\n");
  std::printf("document  %s\n", file.c_str());
  std::printf("          %.1f MiB; %zu stories of %d paragraphs (%zu runs), %d footnotes each,\n"
              "          %zu pictures of %.0f MiB; each story linked, its base snapshot equal to it\n"
              "          (built in %.2f s CPU)\n\n",
              mebibytes(fileBytes), document.stories.size(), shape.paragraphs, runs, shape.footnotes,
              images, mebibytes(shape.pictureBytes), built);
  printCpuHeading(options.repetitions);

  // Saving first, while the nlohmann value exists; it is freed before opening.
  bool missed = false;
  {
    const double start = cpuSeconds();
    const json value = toJson(document);
    std::printf("  (nlohmann::json value built in %.2f s CPU, not timed below)\n", cpuSeconds() - start);
    std::vector<CpuCase> save;
    save.push_back({.name = "save floor: nlohmann dump(2)",
                    .run = cpuTimed([&] { return value.dump(2); })});
    save.push_back({.name = "DocumentFile::encode",
                    .run = cpuTimed([&] { return DocumentFile::encode(document); }),
                    .floor = 0,
                    .goal = kSaveGoal});
    save.push_back({.name = "DocumentFile::write (encode + replace)",
                    .run = cpuTimed([&] {
                      DocumentFile::write(document, file);
                      return 0;
                    }),
                    .floor = 0});
    runRounds(save, options.repetitions);
    missed = printCpuCases(save) || missed;
  }

  std::vector<CpuCase> open;
  open.push_back({.name = "open floor: read + simdjson DOM parse",
                  .run = cpuTimed([&] { return openFloor(file); })});
  open.push_back({.name = "DocumentFile::read",
                  .run = cpuTimed([&] { return DocumentFile::read(file); }),
                  .floor = 0,
                  .goal = kOpenGoal});
  runRounds(open, options.repetitions);
  missed = printCpuCases(open) || missed;

  if (DocumentFile::read(file) != document) throw std::runtime_error("the document did not read back equal");
  return options.check && missed ? 1 : 0;
}

}  // namespace

}  // namespace inkharbour::bench

int main(int argc, char** argv) {
  using namespace inkharbour::bench;
  return guarded("document_bench", [&] {
    Options options;
    CLI::App app{"Times opening and saving a large document file against simdjson and nlohmann.",
                 "document_bench"};
    addCount(app, "--repetitions", options.repetitions, "timed runs of each case");
    addCount(app, "--paragraphs", options.paragraphs, "paragraphs in each story");
    addCheck(app, options.check);
    addDirectory(app, options.directory, "receives the saved document");
    if (const auto status = parseCommandLine(app, argc, argv)) return *status;
    return run(options);
  });
}
