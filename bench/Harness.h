// Runs operations and prints what they took, in the form that tables of several programs are made from:
//
//     RESULT <program> <op> <N> <median_ns> <min_ns> <max_ns> <repetitions> <cpu_median_ns>
//     MEM <program> <op> <N> <cold_ns> <live_bytes> <peak_bytes> <source_bytes>
//
// Arguments: --n N, --budget SECONDS, --minreps R, --op NAME, --list, --mode time|mem, --with CONFIGURATION.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Bench {

struct Operation {
  std::string name;
  std::function<void()> prepare;  // before every repetition, not timed
  std::function<void()> run;      // timed
  std::function<void()> finish;   // after every repetition, not timed
  std::function<bool()> check;    // after the first run, before `finish`; not timed
};

// What the repetitions took, in ns.
struct Timing {
  double median, min, max;
  std::size_t repetitions;
  double cpuMedian;
};

// Keeps freed memory in the process: warm repetitions measure the code, not the kernel's page faults.
void keepFreedMemory();

// Repeats an operation until both minima are reached, after one warm-up; one that takes longer than 2 s is timed once,
// cold. Null when its check failed.
std::optional<Timing> measure(Operation const& operation, double budgetSeconds, std::size_t minRepetitions);

class Harness {
 public:
  // `configurations` are what `--with` takes; those that are given are appended to the program's name, as "+name".
  // Ends the process with status 2 on unusable arguments.
  Harness(std::string program, std::vector<std::string> const& configurations, int argc, char** argv);
  std::size_t n() const { return n_; }
  bool with(std::string const& configuration) const { return with_.contains(configuration); }
  void add(Operation operation) { operations_.push_back(std::move(operation)); }
  // The process's exit status: 1 when a check failed.
  int main();

 private:
  int time(Operation const& operation) const;
  void mem(Operation const& operation) const;

  std::string program_;
  std::size_t n_ = 1000;
  double budget_ = 0.3;
  std::size_t minReps_ = 3;
  std::string op_, mode_ = "time";
  std::set<std::string> with_;
  bool list_ = false;
  std::vector<Operation> operations_;
};

}  // namespace Bench
