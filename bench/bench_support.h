// The harness the benchmarks share: clocks, cases measured in alternating
// rounds and summed up as best and median, this program run again as a child
// process (for peak memory, which a process cannot reset for itself), the
// command line and the pieces of the printed report.
//
// A benchmark times each case once untimed, to warm the page cache and the
// allocator, then in rounds that alternate between the cases, so that a busy
// neighbour slows all of them alike; it judges a case by its best time.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace CLI {
class App;
}

namespace inkharbour::bench {

// --- Clocks --------------------------------------------------------------------

// This process's CPU time (CLOCK_PROCESS_CPUTIME_ID), in seconds.
double cpuSeconds();

// A monotonic wall clock, in seconds from an arbitrary start.
double wallSeconds();

// The seconds `clock` advances over one call of `work`. A result `work`
// returns is freed after the clock stops: releasing, say, an import's result
// is not part of the import.
template <typename Work>
double secondsOf(double (*clock)(), Work&& work) {
  const double start = clock();
  if constexpr (std::is_void_v<std::invoke_result_t<Work&>>) {
    work();
    return clock() - start;
  } else {
    [[maybe_unused]] const auto result = work();
    return clock() - start;
  }
}

// --- Samples -------------------------------------------------------------------

// The smallest of `samples`, which must not be empty.
double best(std::span<const double> samples);

// The middle of `samples` once sorted, the upper of the two middle ones for
// an even count; `samples` must not be empty.
double median(std::span<const double> samples);

// Runs every case once untimed, then `repetitions` rounds that each append
// one result of every case to its `samples`. A case is anything with a
// callable `run` and a vector `samples` of what `run` returns.
template <typename Case>
void runRounds(std::vector<Case>& cases, int repetitions) {
  for (auto& c : cases) c.run();
  for (int round = 0; round < repetitions; ++round) {
    for (auto& c : cases) c.samples.push_back(c.run());
  }
}

// A case timed in CPU time, compared with the floor case when it has one.
struct CpuCase {
  std::string name;
  std::function<double()> run;  // one repetition; returns its CPU seconds
  int floor = -1;               // index of the case it is compared with; -1: none
  double goal = 0;              // the ratio to the floor it must not exceed; 0: none
  std::vector<double> samples;
};

// A case's `run`: the CPU time of one call of `work`.
template <typename Work>
std::function<double()> cpuTimed(Work work) {
  return [work] { return secondsOf(cpuSeconds, work); };
}

// Prints the heading of the CPU-time table (best and median in ms, ratio).
void printCpuHeading(int repetitions);

// Prints a row for each case: best and median in ms and, for a case with a
// floor, the ratio of the two best times and the verdict on its goal.
// Returns whether a goal was missed.
bool printCpuCases(const std::vector<CpuCase>& cases);

// --- Child processes -------------------------------------------------------------

// The path this program was started by, made absolute; /proc/self/exe only
// when `argv0` holds no '/', because under a profiler such as valgrind that
// link names the profiler.
std::filesystem::path selfPath(std::string_view argv0);

// How a child process ended.
struct ChildExit {
  std::string output;      // all it wrote to its standard output
  bool succeeded = false;  // it exited with status 0
  rusage usage{};          // from wait4: its CPU times and peak resident size
};

// Runs `self` (this program, as selfPath gives it) with `arguments` in a
// child process and waits for it. The child is forked, then replaced by
// exec: its ru_maxrss starts at this process's resident size at the fork,
// not at its peak. Throws std::runtime_error when no child can be started;
// a child that cannot exec exits with status 127.
ChildExit runSelf(const std::filesystem::path& self, const std::vector<std::string>& arguments);

// This process's peak resident size so far (ru_maxrss), in KiB.
long maxResidentKiB();

// --- Command line ----------------------------------------------------------------

// Where the benchmarks keep their inputs unless told: inkharbour-bench in the
// system's temporary directory.
std::filesystem::path defaultDirectory();

// Adds the option `name` (such as "--repetitions N"), a decimal whole number
// of at least 1, read into `value`; its current value is the default shown.
void addCount(CLI::App& app, const std::string& name, int& value, const std::string& description);

// Adds --check, which makes a missed goal exit 1.
void addCheck(CLI::App& app, bool& check);

// Adds the optional positional DIRECTORY, read into `directory`; its current
// value is the default shown.
void addDirectory(CLI::App& app, std::filesystem::path& directory, const std::string& description);

// Parses the command line into the options added to `app`. Returns no value
// when the benchmark should run, or the status to exit with: 0 after --help,
// 2 after a usage mistake, whose message CLI11 has printed.
std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv);

// Runs `body` and returns its status; when it throws, prints the error after
// `program` ("import_bench: ...") on stderr and returns 2.
int guarded(std::string_view program, const std::function<int()>& body);

// --- Report --------------------------------------------------------------------

double mebibytes(std::uint64_t bytes);

// "ok" or "MISSED".
const char* mark(bool met);

}  // namespace inkharbour::bench
