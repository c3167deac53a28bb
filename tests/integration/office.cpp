#include "integration/office.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <span>
#include <sstream>
#include <string_view>
#include <thread>

#include "importers/xml_parser.h"

namespace inkharbour::testing {

namespace fs = std::filesystem;

namespace {

// All conversions of one call end by then; a process that hangs on a file is
// killed, and the others go on without that file.
constexpr int kTotalSeconds = 200;
// One process stops quietly (exit status 0) after a few hundred documents,
// so each converts at most this many, and two run side by side.
constexpr std::size_t kFilesPerProcess = 100;
constexpr int kProcesses = 2;

std::string shellQuoted(const fs::path& path) {
  std::string out = "'";
  for (const char c : path.string()) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

bool isParagraph(std::string_view name) {
  return name == "p" || name == "h";
}

// Content the office program computes or never shows as text.
bool isHidden(std::string_view name) {
  return name == "note-citation" || name == "number" || name == "binary-data" || name == "title" ||
         name == "desc" || name == "meta";
}

// Fields whose text changes from one conversion to the next: the clock, the
// page count, and figure numbers and cross-references, which LibreOffice
// computes differently from run to run. They show as one placeholder.
bool isVolatileField(std::string_view name) {
  return name == "date" || name == "time" || name == "page-number" || name == "page-count" ||
         name == "sequence" || name == "sequence-ref" || name == "bookmark-ref" ||
         name == "note-ref";
}

// Collects paragraph texts. Paragraphs nest (a note, a comment or a text box
// sits inside the paragraph that anchors it), so each open paragraph has its
// own buffer; a comment's frame swallows its author and date.
class ShownTextHandler : public XmlHandler {
 public:
  ShownText result;

  void startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (hiddenDepth_ > 0) {
      ++hiddenDepth_;
    } else if (isParagraph(name) || name == "annotation") {
      open_.push_back({.isParagraph = isParagraph(name)});
    } else if (name == "note") {
      result.noteClasses.emplace_back(attributes.get("text:note-class").value_or(""));
    } else if (isHidden(name) || isVolatileField(name)) {
      if (isVolatileField(name) && !open_.empty()) open_.back().text += " <field> ";
      hiddenDepth_ = 1;
    } else if (!open_.empty() && (name == "s" || name == "tab" || name == "line-break")) {
      open_.back().text += ' ';
    }
    setWantsCharacters(!open_.empty() && hiddenDepth_ == 0);
  }

  void endElement(std::string_view name) override {
    if (hiddenDepth_ > 0) {
      --hiddenDepth_;
    } else if ((isParagraph(name) || name == "annotation") && !open_.empty()) {
      std::string line = collapsed(open_.back().text);
      if (open_.back().isParagraph && !line.empty()) result.lines.push_back(std::move(line));
      open_.pop_back();
    }
    setWantsCharacters(!open_.empty() && hiddenDepth_ == 0);
  }

  void characters(std::string_view text) override {
    if (!open_.empty() && hiddenDepth_ == 0) open_.back().text += text;
  }

 private:
  struct Frame {
    bool isParagraph = true;
    std::string text;
  };

  static std::string collapsed(std::string_view text) {
    std::string out;
    bool space = false;
    for (const char c : text) {
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
        space = !out.empty();
      } else {
        if (space) out += ' ';
        space = false;
        out += c;
      }
    }
    return out;
  }

  std::vector<Frame> open_;
  int hiddenDepth_ = 0;
};

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Converts `files` with as many LibreOffice processes as it takes, one after
// the other. A process that crashes, hangs or quits early is followed by a
// new one that starts after the last file the log says was converted; when
// it converted none, the first file is given up.
void convertBatch(std::span<const fs::path> files, const std::string& format,
                  const fs::path& outDir, const fs::path& profileDir,
                  std::chrono::steady_clock::time_point deadline) {
  const auto log = profileDir.string() + ".log";
  while (!files.empty()) {
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return;
    std::string command = "timeout -k 5 " + std::to_string(left.count()) +
                          " soffice --headless --norestore -env:UserInstallation=file://" +
                          profileDir.string() + " --convert-to " + format + " --outdir " +
                          shellQuoted(outDir);
    for (const auto& file : files) command += " " + shellQuoted(file);
    command += " >" + shellQuoted(log) + " 2>&1";
    const int status = std::system(command.c_str());
    const std::string output = readAll(log);
    std::size_t done = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (output.find("convert " + files[i].string() + " -> ") != std::string::npos) done = i + 1;
    }
    if (status == 0 && done == files.size()) return;
    files = files.subspan(std::max<std::size_t>(done, 1));
  }
}

}  // namespace

bool officeAvailable() {
  const char* path = std::getenv("PATH");
  std::stringstream dirs(path != nullptr ? path : "");
  for (std::string dir; std::getline(dirs, dir, ':');) {
    if (!dir.empty() && ::access((fs::path(dir) / "soffice").c_str(), X_OK) == 0) return true;
  }
  return false;
}

std::vector<fs::path> convertAll(const std::vector<fs::path>& files, const std::string& format,
                                 const fs::path& outDir, const fs::path& profileDir) {
  std::vector<fs::path> inputs;
  for (const auto& file : files) inputs.push_back(fs::absolute(file));
  fs::create_directories(outDir);
  fs::create_directories(profileDir);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kTotalSeconds);
  std::atomic<std::size_t> nextBatch = 0;
  std::vector<std::thread> workers;
  for (int w = 0; w < kProcesses; ++w) {
    workers.emplace_back([&, w] {
      for (std::size_t batch; (batch = nextBatch++) * kFilesPerProcess < inputs.size();) {
        const auto first = batch * kFilesPerProcess;
        const auto count = std::min(kFilesPerProcess, inputs.size() - first);
        convertBatch(std::span(inputs).subspan(first, count), format, fs::absolute(outDir),
                     fs::absolute(profileDir) / std::to_string(w), deadline);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  std::vector<fs::path> converted;
  for (const auto& file : files) {
    const auto target = outDir / (file.stem().string() + "." + format);
    converted.push_back(fs::exists(target) ? target : fs::path());
  }
  return converted;
}

ShownText readShownText(const fs::path& fodt) {
  ShownTextHandler handler;
  EXPECT_TRUE(XmlParser::parse(handler, readAll(fodt))) << fodt << " is not well-formed";
  return std::move(handler.result);
}

}  // namespace inkharbour::testing
