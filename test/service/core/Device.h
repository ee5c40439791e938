// A device of the test model with a service, and how its trees look.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "CliSession/Tree.h"
#include "Kel/AttrLog.h"
#include "Plant.h"
#include "service/JsonTree.h"
#include "service/Service.h"

namespace Tests {

namespace Sv = Cli::Service;

// The session roots that a tree has.
inline std::vector<Kel::Entity*> rootsOf(Sv::Tree const& tree) {
  std::vector<Kel::Entity*> roots;
  for (std::string const& path : *tree.roots)
    if (EntityPtr const root = tree.dir->entity(Kel::String8(path))) roots.push_back(root.ptr());
  return roots;
}

// What a copy carries, in a form that equal trees share.
inline std::string imageOf(Sv::Tree const& tree) {
  auto const roots = rootsOf(tree);
  return dump(Scope{*tree.dir, {roots.begin(), roots.end()}});
}

// The same by the service's own export, in which pointers name items of queues by their positions.
// `queues`: in their order, too.
inline nlohmann::json sorted(Sv::Json const& json, bool queues) {
  if (!json.is_structured()) return nlohmann::json::parse(json.dump());
  nlohmann::json made = json.is_object() ? nlohmann::json::object() : nlohmann::json::array();
  for (auto const& item : json.items()) {
    if (json.is_object())
      made[item.key()] = sorted(item.value(), queues);
    else
      made.push_back(sorted(item.value(), queues));
  }
  if (json.empty() || !json.is_array()) return made;
  if (!queues || (json[0].is_object() && json[0].contains("$key"))) std::sort(made.begin(), made.end());
  return made;
}
inline std::string exportOf(Sv::Tree const& tree, bool queues = true) {
  std::string text;
  for (Kel::Entity const* root : rootsOf(tree))
    text += root->fullName().str().substr(tree.dir->fullName().chars()) + " " +
            sorted(Sv::exportEntity(*root, *tree.dir), queues).dump(1) + "\n";
  return text;
}

inline Kel::Ptr<Plant::Hall> hallOf(Sv::Tree const& tree, char const* path = "hall") {
  return Kel::ptrCast<Plant::Hall>(tree.dir->entity(Kel::String8(path)));
}

struct Device {
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running = Kel::Dir::Ptr(new Kel::Dir("running", top.ptr()));
  double time = 1000;
  Sv::MemoryStore store;
  std::unique_ptr<Sv::Service> service;

  // `prepare` fills running before the service takes it.
  explicit Device(std::function<void(Plant::Hall&)> const& prepare = {}, Sv::Options options = {}) {
    running->newEntity("Plant::Hall", "hall");
    Kel::Dir::Ptr(new Kel::Dir("sys", running.ptr()))->newEntity("Plant::Hall", "annex");
    if (prepare) prepare(*hall());
    if (!options.store) options.store = &store;
    if (!options.clock) options.clock = [this] { return time; };
    service = std::make_unique<Sv::Service>(
        running, std::vector<Sv::SessionRoot>{{"hall", "Plant::Hall"}, {"sys/annex", "Plant::Hall"}},
        std::move(options));
  }
  Kel::Ptr<Plant::Hall> hall() { return Kel::ptrCast<Plant::Hall>(running->entity(Kel::String8("hall"))); }
  Sv::Session& open(std::string const& name) { return service->open(name, "user of " + name); }
  std::string image() { return imageOf(service->running()); }
};

inline Sv::Path pathIn(Sv::Tree const& tree, std::string const& text) { return Sv::parsePath(tree.dir, text); }

// The lines that tell differences and conflicts.
template <class List>
std::string linesOf(List const& list) {
  std::string lines;
  for (auto const& item : list) lines += Sv::text(item) + "\n";
  return lines;
}

// The conflicts that a call is refused with.
template <class Call>
std::vector<Sv::Conflict> conflictsOf(Call const& call) {
  try {
    call();
  } catch (Sv::ConflictError const& e) {
    return e.conflicts;
  }
  ADD_FAILURE() << "not refused";
  return {};
}

// "path: reason" of each finding that a commit is refused for.
template <class Call>
std::string findingsOf(Call const& call) {
  std::string lines;
  try {
    call();
  } catch (Sv::CheckError const& e) {
    for (auto const& finding : e.findings) lines += finding.path.text() + ": " + finding.reason + "\n";
  }
  return lines;
}

}  // namespace Tests
