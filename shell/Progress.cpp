#include "Progress.h"

#include <chrono>
#include <iostream>

namespace Shell {

Progress::Progress(std::string what, bool on) : what_(std::move(what)) {
  if (on) thread_ = std::thread([this] { run(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> const lock(mutex_);
    done_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void Progress::run() {
  using namespace std::chrono;
  auto const begin = steady_clock::now();
  bool said = false;
  std::unique_lock<std::mutex> lock(mutex_);
  while (!changed_.wait_for(lock, milliseconds(500), [this] { return done_; })) {
    auto const seconds = duration<double>(steady_clock::now() - begin).count();
    std::cerr << "\r\x1b[K" << what_ << " ... " << static_cast<int>(seconds * 10) / 10.0 << " s" << std::flush;
    said = true;
  }
  if (said) std::cerr << "\r\x1b[K" << std::flush;
}

}  // namespace Shell
