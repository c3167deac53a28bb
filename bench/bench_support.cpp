#include "bench_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace inkharbour::bench {

namespace fs = std::filesystem;

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double best(std::span<const double> samples) {
  return *std::min_element(samples.begin(), samples.end());
}

double median(std::span<const double> samples) {
  std::vector<double> sorted(samples.begin(), samples.end());
  std::sort(sorted.begin(), sorted.end());
  return sorted[sorted.size() / 2];
}

void printCpuHeading(int repetitions) {
  std::printf("CPU time, best of %d (median)                 best ms   median ms   ratio\n",
              repetitions);
}

bool printCpuCases(const std::vector<CpuCase>& cases) {
  bool missed = false;
  for (const auto& c : cases) {
    const double fastest = best(c.samples);
    std::printf("  %-40s %9.1f %11.1f", c.name.c_str(), fastest * 1e3, median(c.samples) * 1e3);
    if (c.floor >= 0) {
      const double ratio = fastest / best(cases[static_cast<std::size_t>(c.floor)].samples);
      std::printf("   %5.2fx", ratio);
      if (c.goal > 0) {
        std::printf("  goal <= %.1fx  %s", c.goal, mark(ratio <= c.goal));
        missed = missed || ratio > c.goal;
      }
    }
    std::printf("\n");
  }
  return missed;
}

fs::path selfPath(std::string_view argv0) {
  return fs::absolute(argv0.find('/') != std::string_view::npos
                          ? fs::path(argv0)
                          : fs::read_symlink("/proc/self/exe"));
}

ChildExit runSelf(const fs::path& self, const std::vector<std::string>& arguments) {
  // Everything the child needs is built before the fork: after it, the child
  // may only make system calls until exec.
  std::vector<std::string> args = {self.string()};
  args.insert(args.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (auto& arg : args) pointers.push_back(arg.data());
  pointers.push_back(nullptr);

  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    throw std::runtime_error("fork failed");
  }
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  close(fds[1]);
  ChildExit exit;
  char buffer[256];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) {
    exit.output.append(buffer, static_cast<std::size_t>(n));
  }
  close(fds[0]);
  int status = 0;
  exit.succeeded =
      wait4(pid, &status, 0, &exit.usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return exit;
}

long maxResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // KiB on Linux
}

fs::path defaultDirectory() {
  return fs::temp_directory_path() / "inkharbour-bench";
}

void addCount(CLI::App& app, const std::string& name, int& value, const std::string& description) {
  // CLI11 reads integers with strtol's base 0, which takes "010" for 8; a
  // count is decimal.
  const CLI::Validator positiveDecimal(
      [](const std::string& text) {
        int n = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n);
        return error == std::errc() && end == text.data() + text.size() && n >= 1
                   ? std::string()
                   : "not a positive number: " + text;
      },
      "");
  app.add_option(name, value, description)
      ->check(positiveDecimal)
      ->type_name("N")
      ->capture_default_str();
}

void addCheck(CLI::App& app, bool& check) {
  app.add_flag("--check", check, "exit with status 1 when a goal is missed");
}

void addDirectory(CLI::App& app, fs::path& directory, const std::string& description) {
  app.add_option("DIRECTORY", directory, description)->type_name("PATH")->capture_default_str();
}

std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return std::nullopt;
}

int guarded(std::string_view program, const std::function<int()>& body) {
  try {
    return body();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%.*s: %s\n", static_cast<int>(program.size()), program.data(),
                 error.what());
    return 2;
  }
}

double mebibytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / (1 << 20);
}

const char* mark(bool met) {
  return met ? "ok" : "MISSED";
}

}  // namespace inkharbour::bench
