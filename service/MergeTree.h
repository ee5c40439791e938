// The differences of both sides, as a tree of paths. Not installed.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// A path at or below which at least one side differs from the ancestor.
struct MergeNode {
  PathStep step;
  Difference const *edit = nullptr, *change = nullptr;  // the session's, running's
  std::vector<Difference const*> editRuns, changeRuns;  // of a queue
  std::vector<std::unique_ptr<MergeNode>> children;
  std::unordered_map<std::string, MergeNode*> byStep;

  MergeNode& child(PathStep const& childStep) {
    std::string key = childStep.attr ? "." + childStep.attr->name().str() : "/" + childStep.entry.str();
    if (childStep.key) key += '\0' + childStep.keyText();
    MergeNode*& known = byStep[std::move(key)];
    if (!known) {
      children.push_back(std::make_unique<MergeNode>());
      known = children.back().get();
      known->step = childStep;
    }
    return *known;
  }
  void add(Difference const& d, bool isEdit) {
    MergeNode* at = this;
    for (PathStep const& s : d.path.steps) at = &at->child(s);
    if (d.run)
      (isEdit ? at->editRuns : at->changeRuns).push_back(&d);
    else
      (isEdit ? at->edit : at->change) = &d;
  }
  // The differences of one side at this path and below it.
  void collect(bool edits, std::vector<Difference const*>& list) const {
    if (Difference const* const d = edits ? edit : change) list.push_back(d);
    for (Difference const* d : edits ? editRuns : changeRuns) list.push_back(d);
    for (auto const& c : children) c->collect(edits, list);
  }
  std::vector<Difference const*> below(bool edits) const {
    std::vector<Difference const*> list;
    for (auto const& c : children) c->collect(edits, list);
    return list;
  }
};

inline std::vector<Path> pathsOf(std::vector<Difference const*> const& list) {
  std::vector<Path> paths;
  for (Difference const* d : list) paths.push_back(d->path);
  return paths;
}

// One path of the ancestor in each tree. They differ, because items of queues have other positions there.
struct Places {
  Path ancestor, session, running;
  void push(PathStep const& step) {
    for (Path* path : {&ancestor, &session, &running}) path->steps.push_back(step);
  }
  void pop() {
    for (Path* path : {&ancestor, &session, &running}) path->steps.pop_back();
  }
};

}  // namespace Cli::Service
