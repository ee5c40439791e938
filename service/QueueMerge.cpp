#include "service/QueueMerge.h"

#include <algorithm>
#include <map>

namespace Cli::Service {

QueueSide::QueueSide(std::size_t items, std::vector<Difference const*> const& runs)
    : removed(items, false), positions(items, 0), added(items + 1) {
  std::map<std::size_t, Json const*> contents;
  for (Difference const* d : runs) {
    for (std::size_t i = 0; i < d->before.size(); ++i) removed.at(d->run->from + i) = true;
    for (std::size_t i = 0; i < d->after.size(); ++i) contents[d->run->to + i] = &d->after[i];
  }
  std::size_t position = 0, gap = 0;
  auto const takeAdded = [&] {
    for (auto found = contents.find(position); found != contents.end(); found = contents.find(++position))
      added[gap].push_back({position, found->second});
  };
  for (std::size_t i = 0; i < items; ++i) {
    if (removed[i]) continue;
    takeAdded();
    positions[i] = position++;
    gap = i + 1;
  }
  takeAdded();
}

namespace {

// Adjacent items that a side removed, with what it added in their place.
struct QueueHunk {
  std::size_t begin, end;
};

std::vector<QueueHunk> hunksOf(QueueSide const& side) {
  std::vector<QueueHunk> hunks;
  for (std::size_t i = 0; i < side.added.size();) {
    std::size_t end = i;
    while (end < side.removed.size() && side.removed[end]) ++end;
    if (end > i || !side.added[i].empty()) hunks.push_back({i, end});
    i = end > i ? end : i + 1;  // what is added next to a removed run is in `added` at its start
  }
  return hunks;
}

bool overlap(QueueHunk const& a, QueueHunk const& b) {
  if (a.begin == a.end && b.begin == b.end) return false;
  if (a.begin == a.end) return b.begin < a.begin && a.begin < b.end;
  if (b.begin == b.end) return a.begin < b.begin && b.begin < a.end;
  return std::max(a.begin, b.begin) < std::min(a.end, b.end);
}

bool sameHunk(QueueSide const& edits, QueueHunk const& e, QueueSide const& changes, QueueHunk const& c) {
  if (e.begin != c.begin || e.end != c.end) return false;
  auto const &mine = edits.added[e.begin], &theirs = changes.added[c.begin];
  return std::equal(mine.begin(), mine.end(), theirs.begin(), theirs.end(),
                    [](auto const& x, auto const& y) { return *x.content == *y.content; });
}

}  // namespace

std::vector<QueueClash> clashesOf(QueueSide const& edits, QueueSide const& changes) {
  std::vector<QueueClash> clashes;
  std::vector<QueueHunk> const mine = hunksOf(edits), theirs = hunksOf(changes);
  auto first = theirs.begin();
  for (QueueHunk const& e : mine) {
    while (first != theirs.end() && first->end < e.begin) ++first;
    for (auto c = first; c != theirs.end() && c->begin <= e.end; ++c)
      if (overlap(e, *c) && !sameHunk(edits, e, changes, *c))
        clashes.push_back({std::min(e.begin, c->begin), std::max(e.end, c->end)});
  }
  std::sort(clashes.begin(), clashes.end(), [](auto const& a, auto const& b) { return a.begin < b.begin; });
  // Clashes that share a hunk are one.
  std::vector<QueueClash> joined;
  for (QueueClash const& clash : clashes) {
    if (!joined.empty() && clash.begin < joined.back().end)
      joined.back().end = std::max(joined.back().end, clash.end);
    else
      joined.push_back(clash);
  }
  return joined;
}

}  // namespace Cli::Service
