// Shows on a terminal that a command takes long.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace Shell {

// If it lives for more than half a second, a line on standard error says what is running and for how long. The
// destructor removes the line. A thread of its own writes the line, and does nothing else.
class Progress {
 public:
  Progress(std::string what, bool on);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

 private:
  void run();

  std::string const what_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

}  // namespace Shell
