#include "service/Positions.h"

#include <algorithm>

namespace Cli::Service {

bool isInQueue(Path const& path) {
  return std::any_of(path.steps.begin(), path.steps.end(),
                     [](PathStep const& step) { return step.attr && step.attr->isQueue() && step.key; });
}

Positions::Positions(std::vector<Difference> const& differences) {
  for (Difference const& d : differences) {
    if (!d.run) continue;
    Queue& queue = queues_[d.path.text()];
    queue.removed.emplace_back(d.run->from, d.before.size());
    queue.added.emplace_back(d.run->to, d.after.size());
  }
  for (auto& [path, queue] : queues_) std::sort(queue.added.begin(), queue.added.end());
}

std::optional<std::size_t> Positions::Queue::other(std::size_t position) const {
  std::size_t other = position;
  for (auto const& [at, count] : removed) {
    if (at <= position && position < at + count) return std::nullopt;
    if (at < position) other -= count;
  }
  for (auto const& [at, count] : added)
    if (at <= other) other += count;
  return other;
}

std::optional<Path> Positions::operator()(Path path) const {
  if (queues_.empty()) return path;
  Path here;
  for (PathStep& step : path.steps) {
    here.steps.push_back(step);
    if (!step.attr || !step.attr->isQueue() || !step.key) continue;
    auto const queue = queues_.find((here.parent() / attributeStep(*step.attr)).text());
    if (queue == queues_.end()) continue;
    auto const position = queue->second.other(step.key->attrVal<Kel::U32>());
    if (!position) return std::nullopt;
    step = queueStep(*step.attr, *position);
  }
  return path;
}

}  // namespace Cli::Service
