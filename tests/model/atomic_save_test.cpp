// Saves killed at random instants: the document file must always read back
// as a whole document, the one before a save or the one after it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <thread>

#include "model/atomic_file.h"
#include "model/document_file.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

namespace fs = std::filesystem;

// A document of `paragraphs` short paragraphs and one picture of
// `pictureBytes` random bytes, different for each seed.
ProjectDocument largeDocument(unsigned seed, int paragraphs, std::size_t pictureBytes) {
  Story story{.name = "Story " + std::to_string(seed)};
  for (int p = 0; p < paragraphs; ++p) {
    const auto text = "The keeper lit the lamp as the tide turned, night " + std::to_string(p);
    story.blocks.push_back(Block{.kind = Paragraph::make("Body", text)});
  }
  std::mt19937 random(seed);
  Data picture(pictureBytes);
  for (auto& byte : picture) byte = static_cast<std::uint8_t>(random());
  story.blocks.push_back(Block{.kind = ImageBlock{.data = std::move(picture), .name = "p.png"}});
  return ProjectDocument{.stories = {story}};
}

std::size_t temporaryFiles(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().starts_with(".")) ++count;
  }
  return count;
}

TEST(AtomicSave, KilledSavesLeaveTheOldOrTheNewDocument) {
  testing::TempDir dir;
  const auto target = dir / "Harbour.inkharbour";
  const auto initial = largeDocument(1, 10, 10);
  DocumentFile::write(initial, target);
  // A few MB each, mostly picture, so that writing the file is a good part
  // of a save; of different sizes, so that no mixture can pass for either.
  const ProjectDocument saved[] = {largeDocument(2, 300, 1'500'000),
                                   largeDocument(3, 200, 2'000'000)};
  const std::string encoded[] = {DocumentFile::encode(initial), DocumentFile::encode(saved[0]),
                                 DocumentFile::encode(saved[1])};
  const ProjectDocument* const documents[] = {&initial, &saved[0], &saved[1]};

  std::mt19937 random(20240601);
  int seen[3] = {0, 0, 0};
  int killedWhileWriting = 0;
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    int saves[2];
    ASSERT_EQ(pipe(saves), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Saves the two documents in turn until killed, reporting each save;
      // which comes first alternates between rounds.
      close(saves[0]);
      for (auto i = static_cast<unsigned>(round);; ++i) {
        try {
          DocumentFile::write(saved[i % 2], target);
        } catch (...) {
          _exit(1);
        }
        if (write(saves[1], "s", 1) != 1) _exit(1);
      }
    }
    close(saves[1]);
    // The kill comes at a random moment of the saves after the first, so
    // that it finds the file being written as often as the text being made.
    char done = 0;
    const bool savedOnce = read(saves[0], &done, 1) == 1;
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 30'001));
    kill(child, SIGKILL);
    close(saves[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(savedOnce && WIFSIGNALED(status))
        << "round " << round << ": the saving child failed by itself";

    const std::string bytes = testing::readFile(target);
    const auto match = std::find(std::begin(encoded), std::end(encoded), bytes);
    ASSERT_NE(match, std::end(encoded))
        << "round " << round << ": the file is no whole document but " << bytes.size() << " bytes";
    const auto which = static_cast<std::size_t>(match - std::begin(encoded));
    // The same bytes always decode alike: each document is decoded once.
    if (seen[which]++ == 0) {
      ASSERT_EQ(DocumentFile::read(target), *documents[which]) << "round " << round;
    }
    // A killed save may leave its temporary file; the next save removes it.
    const std::size_t left = temporaryFiles(dir.path());
    ASSERT_LE(left, 1u) << "round " << round;
    killedWhileWriting += static_cast<int>(left);
  }
  EXPECT_EQ(seen[0], 0) << "the first document came back";
  DocumentFile::write(saved[0], target);
  EXPECT_EQ(temporaryFiles(dir.path()), 0u);
  std::printf("[          ] %d kills, %d of them while the file was written: the first document\n"
              "[          ] was left %d times, the second %d\n",
              kRounds, killedWhileWriting, seen[1], seen[2]);
}

// A write killed midway leaves its temporary; the next write to that target removes it, but
// not the temporary of a write still under way, nor another file's. A name of 245 bytes still
// leaves room for a temporary beside it.
TEST(AtomicFile, TheNextWriteRemovesLeftoversOfKilledWritesOnly) {
  for (const std::string& name : {std::string("notes.txt"), std::string(245, 'n')}) {
    SCOPED_TRACE(name.size());
    testing::TempDir dir;
    const auto target = dir / name;
    writeFileAtomically(target, "old");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      AtomicFile file(target);
      file.write("half");
      _exit(0);  // as a kill would: no destructor runs, and the lock goes with the process
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    testing::writeFile(dir / ".other.txt.tmp-abc123", "someone else's");
    EXPECT_EQ(temporaryFiles(dir.path()), 2u);
    AtomicFile live(target);
    live.write("new");
    EXPECT_EQ(temporaryFiles(dir.path()), 2u) << "the leftover went, the live one came";
    writeFileAtomically(target, "newer");
    EXPECT_EQ(temporaryFiles(dir.path()), 2u) << "the live temporary and the other file's stay";
    live.commit();
    EXPECT_EQ(testing::readFile(target), "new");
    EXPECT_EQ(temporaryFiles(dir.path()), 1u);
  }
}

}  // namespace
}  // namespace inkharbour
