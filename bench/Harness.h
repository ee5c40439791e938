// Runs operations and prints what they took, in the form that tables of several programs are made from:
//
//     RESULT <program> <op> <N> <median_ns> <min_ns> <max_ns> <repetitions> <cpu_median_ns>
//     MEM <program> <op> <N> <cold_ns> <live_bytes> <peak_bytes> <source_bytes>
//
// Arguments: --n N, --budget SECONDS, --minreps R, --op NAME, --list, --mode time|mem.
#pragma once

#include <cstddef>
#include <functional>
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

class Harness {
 public:
  // Ends the process with status 2 on unusable arguments.
  Harness(std::string program, int argc, char** argv);
  std::size_t n() const { return n_; }
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
  bool list_ = false;
  std::vector<Operation> operations_;
};

}  // namespace Bench
