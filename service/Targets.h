// Finds what a pointer may point at. Not installed.
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

  // Every entity of that name that the pointer may point at.
  std::vector<Kel::Entity*> named(std::string_view name);
  // Visits every entity that the pointer may point at, until `visit` answers false.
  void each(std::function<bool(Kel::Entity&)> const& visit);

 private:
  bool isTarget(Kel::Entity const& e) const { return e.type()->isA(&wanted_); }
  // Whether members of that type are possible targets; whether there can be any below them.
  bool mayBe(Kel::KelType const& type) const;
  bool mayHold(Kel::KelType const& type);
  // Visits the owners of what may be targets, and what it itself is.
  void eachOwner(std::function<bool(Kel::Entity&)> const& visit);

  Kel::Dir const& base_;
  Kel::KelType const& wanted_;
  std::unordered_map<Kel::KelType const*, bool> holds_;
};

}  // namespace Cli::Service
