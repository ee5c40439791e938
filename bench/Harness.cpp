#include "Harness.h"

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace Bench {

namespace {

double now(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

struct Sample {
  double wall, cpu;
};

Sample timed(std::function<void()> const& run) {
  double const cpu = now(CLOCK_THREAD_CPUTIME_ID), wall = now(CLOCK_MONOTONIC);
  run();
  double const wallEnd = now(CLOCK_MONOTONIC);
  return {wallEnd - wall, now(CLOCK_THREAD_CPUTIME_ID) - cpu};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void call(std::function<void()> const& f) {
  if (f) f();
}

std::size_t heapInUse() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// A line of /proc/self/status, in bytes.
std::size_t statusBytes(std::string const& key) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, key.size(), key) == 0) return std::stoul(line.substr(key.size() + 1)) * 1024;
  return 0;
}

}  // namespace

void keepFreedMemory() {
  mallopt(M_TRIM_THRESHOLD, 0x7fffffff);
  mallopt(M_MMAP_THRESHOLD, 0x7fffffff);
  mallopt(M_TOP_PAD, 64 << 20);
}

std::optional<Timing> measure(Operation const& operation, double budgetSeconds, std::size_t minRepetitions) {
  constexpr double long_ = 2e9;  // an operation this long is timed once, cold
  std::vector<double> wall, cpu;
  double total = 0;
  for (bool first = true;; first = false) {
    call(operation.prepare);
    Sample const sample = timed(operation.run);
    bool const failed = first && operation.check && !operation.check();
    call(operation.finish);
    if (failed) return std::nullopt;
    if (first && sample.wall <= long_) continue;
    wall.push_back(sample.wall);
    cpu.push_back(sample.cpu);
    total += sample.wall;
    if (first || (wall.size() >= minRepetitions && total > budgetSeconds * 1e9)) break;
  }
  auto const [low, high] = std::minmax_element(wall.begin(), wall.end());
  return Timing{median(wall), *low, *high, wall.size(), median(cpu)};
}

Harness::Harness(std::string program, std::vector<std::string> const& configurations, int argc, char** argv)
    : program_(std::move(program)) {
  CLI::App app("Measures copies and comparisons of a generated configuration");
  app.add_option("--n", n_, "ports");
  app.add_option("--budget", budget_, "seconds an operation, at least");
  app.add_option("--minreps", minReps_, "repetitions an operation, at least");
  app.add_option("--op", op_, "only this operation");
  app.add_option("--mode", mode_, "time or mem")->check(CLI::IsMember({"time", "mem"}));
  app.add_flag("--list", list_, "the names of the operations");
  if (!configurations.empty())
    app.add_option("--with", with_, "another configuration; may be repeated")->check(CLI::IsMember(configurations));
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    std::exit(app.exit(e) == 0 ? 0 : 2);
  }
  for (std::string const& configuration : configurations)
    if (with(configuration)) program_ += "+" + configuration;
  if (mode_ == "time") keepFreedMemory();
}

int Harness::main() {
  int status = 0;
  for (Operation const& operation : operations_) {
    if (list_) {
      std::printf("%s\n", operation.name.c_str());
    } else if (op_.empty() || op_ == operation.name) {
      if (mode_ == "mem")
        mem(operation);
      else
        status |= time(operation);
    }
    std::fflush(stdout);
  }
  return status;
}

int Harness::time(Operation const& operation) const {
  std::optional<Timing> const timing = measure(operation, budget_, minReps_);
  if (!timing) {
    std::printf("FAILED %s %s %zu check\n", program_.c_str(), operation.name.c_str(), n_);
    return 1;
  }
  std::printf("RESULT %s %s %zu %.0f %.0f %.0f %zu %.0f\n", program_.c_str(), operation.name.c_str(), n_,
              timing->median, timing->min, timing->max, timing->repetitions, timing->cpuMedian);
  return 0;
}

void Harness::mem(Operation const& operation) const {
  std::size_t const base = heapInUse();
  call(operation.prepare);
  malloc_trim(0);
  std::size_t const before = heapInUse();
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts over
  std::size_t const resident = statusBytes("VmRSS:");
  Sample const sample = timed(operation.run);
  std::printf("MEM %s %s %zu %.0f %ld %ld %zu\n", program_.c_str(), operation.name.c_str(), n_, sample.wall,
              static_cast<long>(heapInUse()) - static_cast<long>(before),
              static_cast<long>(statusBytes("VmHWM:")) - static_cast<long>(resident), before - base);
}

}  // namespace Bench
