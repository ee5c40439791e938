// What tests of commits, updates and sessions share.
#pragma once

#include "service/core/Device.h"

namespace Tests {

// Notes what it is asked for; refuses and fails as told.
struct Agent : Sv::Participant {
  std::string log, refuses, fails, failsLater;
  std::string* undone = nullptr;  // gets the mark when it is undone
  char mark = 0;
  void verify(std::vector<Sv::Difference> const& d) override {
    if (!refuses.empty()) throw Sv::Error(refuses);
    note("verify", d);
  }
  void apply(std::vector<Sv::Difference> const& d) override {
    if (!fails.empty()) throw Sv::Error(fails);
    note("apply", d);
  }
  void undo(std::vector<Sv::Difference> const& d) override {
    if (undone) *undone += mark;
    later("undo", d);
  }
  void done(std::vector<Sv::Difference> const& d) override { later("done", d); }
  void later(char const* what, std::vector<Sv::Difference> const& d) {
    note(what, d);
    if (!failsLater.empty()) throw Sv::Error(failsLater);
  }
  void note(char const* what, std::vector<Sv::Difference> const& d) { log += what + ("\n" + linesOf(d)); }
};

struct Commits : testing::Test {
  Device device;
  Sv::Service& service = *device.service;
  Sv::Session& a = device.open("a");
  Sv::Session& b = device.open("b");
  static Plant::Hall& in(Sv::Session& s) { return *hallOf(s.tree()); }
};

}  // namespace Tests
