// Finds the possible targets of a pointer. Not installed.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/Walk.h"

namespace Cli::Service {

class TargetFinder {
 public:
  TargetFinder(Kel::Dir const& base, Kel::KelType const& wanted) : base_(base), wanted_(wanted) {}

  // The possible targets of that name.
  std::vector<Kel::Entity*> named(std::string_view name);
  // Visits every possible target, until `visit` answers false.
  void each(std::function<bool(Kel::Entity&)> const& visit);

 private:
  bool isTarget(Kel::Entity const& e) const { return e.type()->isA(&wanted_); }
  // Whether entities of that type may be targets; whether they may own some.
  bool mayBe(Kel::KelType const& type) const;
  bool mayHold(Kel::KelType const& type);
  // Visits every entity that may own targets, until `visit` answers false.
  void eachOwner(std::function<bool(Kel::Entity&)> const& visit);

  Kel::Dir const& base_;
  Kel::KelType const& wanted_;
  std::unordered_map<Kel::KelType const*, bool> holds_;
};

}  // namespace Cli::Service
