#include "service/Merge.h"

#include <algorithm>
#include <set>

#include "service/JsonTree.h"
#include "service/MergeTree.h"
#include "service/PathSet.h"
#include "service/PointerClash.h"
#include "service/QueueMerge.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;
using Kel::KelType;

namespace {

bool isEntity(Difference const& d) { return !d.run && (!d.attr || d.attr->instantiating()); }
bool isThere(Difference const& d, bool after) {
  return d.kind != (after ? DifferenceKind::deleted : DifferenceKind::created);
}
bool onlyDeletions(std::vector<Difference const*> const& list) {
  return std::all_of(list.begin(), list.end(),
                     [](Difference const* d) { return d->kind == DifferenceKind::deleted && !d->run; });
}
std::vector<Path> pathsOf(std::vector<Difference const*> const& list) {
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

class Merger {
 public:
  explicit Merger(MergeInput const& input) : in_(input) {
    for (Difference const& d : in_.edits) top_.add(d, true);
    for (Difference const& d : in_.changes) top_.add(d, false);
  }

  Merged run() {
    pointers_ = clashingPointers(in_);
    for (PointerClash& clash : pointers_) decide(clash);
    Places at;
    children(top_, at);
    settlePointers();
    keepTargets();
    restoreTargets();
    return std::move(out_);
  }

 private:
  // The side that a conflict gets. Lists the conflict unless it is settled.
  Side side(Conflict conflict) {
    if (auto const settled = in_.settled ? in_.settled(conflict) : std::nullopt) return *settled;
    out_.conflicts.push_back(std::move(conflict));
    return in_.otherwise;
  }
  bool keepsOwn(Difference const& change) const { return in_.keepsOwn && in_.keepsOwn(change); }

  void emit(Path const& path, KelType const* type, KelAttr const* attr, bool before, Json beforeContent, bool after,
            Json afterContent) {
    if (!before && !after) return;
    DifferenceKind const kind = !before  ? DifferenceKind::created
                                : !after ? DifferenceKind::deleted
                                         : DifferenceKind::changed;
    out_.changes.push_back({kind, path, type, attr, std::move(beforeContent), std::move(afterContent), std::nullopt});
  }
  void take(Difference const& change, Places const& at) {
    Difference taken = change;
    taken.path = at.session;
    out_.changes.push_back(std::move(taken));
  }

  static Json contentAt(Tree const& tree, Path const& path) {
    Entity::Ptr const e = entityAt(tree.dir, path);
    return e ? exportEntity(*e, *tree.dir) : Json();
  }

  void children(MergeNode& node, Places& at);
  void visit(MergeNode& node, Places& at);
  void entity(MergeNode& node, Places& at);
  void value(MergeNode& node, Places const& at);
  void queue(MergeNode& owner, KelAttr const& attr, Places& at);
  void decide(PointerClash& clash);
  void settlePointers();
  void settlePointer(PointerClash const& clash, PathSet const& entities);
  void keepTargets();
  void restoreTargets();

  MergeInput const& in_;
  MergeNode top_;
  std::vector<PointerClash> pointers_;
  Merged out_;
  // The paths of entities that one side deleted, and that are kept because pointers lead to them.
  std::unordered_set<std::string> keptForSession_, restoredForRunning_;
  std::unordered_set<std::string> pointerPlaces_;  // where a pointer clash decides
};

// --- The walk ---

void Merger::children(MergeNode& node, Places& at) {
  std::vector<KelAttr const*> queues;
  for (auto const& child : node.children) {
    KelAttr const* const attr = child->step.attr;
    if (!attr || !attr->isQueue()) {
      at.push(child->step);
      visit(*child, at);
      at.pop();
    } else if (std::find(queues.begin(), queues.end(), attr) == queues.end()) {
      queues.push_back(attr);
      queue(node, *attr, at);
    }
  }
}

void Merger::visit(MergeNode& node, Places& at) {
  Difference const* const any = node.edit ? node.edit : node.change;
  if (!any) return children(node, at);
  if (isEntity(*any)) return entity(node, at);
  value(node, at);
}

void Merger::value(MergeNode& node, Places const& at) {
  if (!node.change || pointerPlaces_.count(at.ancestor.text())) return;
  Difference const& change = *node.change;
  if (!node.edit) {
    if (!keepsOwn(change)) take(change, at);
    return;
  }
  Difference const& edit = *node.edit;
  bool const mine = isThere(edit, true), theirs = isThere(change, true);
  if (mine == theirs && edit.after == change.after) return;
  Conflict const conflict{at.ancestor, ConflictKind::value, change.type, change.attr, change.before,
                          edit.after,  change.after,        {},          {},          {}};
  if (side(conflict) == Side::running)
    emit(at.session, change.type, change.attr, mine, edit.after, theirs, change.after);
}

void Merger::entity(MergeNode& node, Places& at) {
  std::string const text = at.ancestor.text();
  std::vector<Difference const*> const editsBelow = node.below(true), changesBelow = node.below(false);
  Difference const& any = node.edit ? *node.edit : *node.change;
  Conflict conflict{at.ancestor, ConflictKind::existence, any.type, any.attr, any.before, {}, {}, {}, {}, {}};
  if (node.edit && node.change) {
    if (node.edit->after == node.change->after && node.edit->kind == node.change->kind) return;
    conflict.session = node.edit->after;
    conflict.running = node.change->after;
    if (side(conflict) == Side::running)
      emit(at.session, any.type, any.attr, isThere(*node.edit, true), node.edit->after, isThere(*node.change, true),
           node.change->after);
    return;
  }
  if (node.edit) {
    bool const clash =
        !changesBelow.empty() && !(node.edit->kind == DifferenceKind::deleted && onlyDeletions(changesBelow));
    bool const restored = restoredForRunning_.count(text) != 0;
    if (!clash && !restored) return;
    conflict.session = node.edit->after;
    conflict.running = contentAt(in_.running, at.running);
    conflict.nodes = pathsOf(changesBelow);
    Side const winner = clash ? side(conflict) : Side::running;
    if (winner == Side::running) restoredForRunning_.insert(text);
    if (winner == Side::running || restored)
      emit(at.session, any.type, any.attr, isThere(*node.edit, true), node.edit->after, true, conflict.running);
    return;
  }
  Difference const& change = *node.change;
  bool const clash = !editsBelow.empty() && !(change.kind == DifferenceKind::deleted && onlyDeletions(editsBelow));
  bool const kept = keptForSession_.count(text) != 0 || keepsOwn(change);
  Json mine = editsBelow.empty() ? change.before : contentAt(in_.session, at.session);
  if (clash) {
    conflict.session = mine;
    conflict.running = change.after;
    conflict.nodes = pathsOf(editsBelow);
    if (side(conflict) == Side::session) {
      keptForSession_.insert(text);
      return;
    }
  }
  if (kept) return;
  emit(at.session, any.type, any.attr, isThere(change, false), std::move(mine), isThere(change, true), change.after);
}

// --- Pointers whose targets the other side deleted ---

void Merger::decide(PointerClash& clash) {
  pointerPlaces_.insert(clash.conflict.path.text());
  clash.winner = side(clash.conflict);
  for (Path const& deleted : clash.deleted) {
    if (clash.byEdit && clash.winner == Side::session) keptForSession_.insert(deleted.text());
    if (!clash.byEdit && clash.winner == Side::running) restoredForRunning_.insert(deleted.text());
  }
}

void Merger::settlePointers() {
  PathSet entities;
  for (Difference const& d : out_.changes)
    if (isEntity(d)) entities.add(d.path);
  for (PointerClash const& clash : pointers_) settlePointer(clash, entities);
}

void Merger::settlePointer(PointerClash const& clash, PathSet const& entities) {
  if (clash.winner == Side::session) return;
  Conflict const& c = clash.conflict;
  bool const before = clash.inSession, after = clash.inRunning;
  if (!before && !after) return;
  // The content of an entity that only running has comes with the entity.
  if (!before && !entityAt(in_.session.dir, c.path.parent())) return;
  // What running made of an entity around it holds its pointers, too.
  if (entities.isAround(c.path)) return;
  if (before == after && c.session == c.running) return;
  emit(c.path, c.type, c.attr, before, c.session, after || !c.path.steps.back().key, c.running);
}

// An entity that is kept may point to one that is not; then that one is kept, too.
void Merger::keepTargets() {
  std::unordered_map<std::string, std::size_t> deletions;
  for (std::size_t i = 0; i < out_.changes.size(); ++i)
    if (Difference const& d = out_.changes[i]; isEntity(d) && d.kind == DifferenceKind::deleted)
      deletions.emplace(d.path.text(), i);
  std::vector<bool> kept(out_.changes.size(), false);
  followPointers(in_.session, keptForSession_, [&](std::string const& place) {
    auto const found = deletions.find(place);
    if (found == deletions.end() || kept[found->second]) return false;
    kept[found->second] = true;
    return true;
  });
  std::size_t at = 0;
  std::erase_if(out_.changes, [&](Difference const&) { return kept[at++]; });
}

void Merger::restoreTargets() {
  std::unordered_map<std::string, Difference const*> deletions;
  for (Difference const& d : in_.edits)
    if (isEntity(d) && d.kind == DifferenceKind::deleted) deletions.emplace(d.path.text(), &d);
  std::set<Difference const*> restored;  // in their order in the list
  followPointers(in_.running, restoredForRunning_, [&](std::string const& place) {
    auto const found = deletions.find(place);
    if (found == deletions.end() || restoredForRunning_.count(place)) return false;
    return restored.insert(found->second).second;
  });
  for (Difference const* d : restored) {
    restoredForRunning_.insert(d->path.text());
    emit(d->path, d->type, d->attr, false, {}, true, contentAt(in_.running, d->path));
  }
}

// --- Queues ---

namespace {

// One item of the merged queue: one of the session's, or a new one.
struct MergedItem {
  std::optional<std::size_t> session;
  Json content;
};

Json itemsAt(Tree const& tree, Path const& owner, KelAttr const& attr) {
  Entity::Ptr const e = entityAt(tree.dir, owner);
  return e ? exportAttribute(*e, attr, *tree.dir) : Json::array();
}

std::size_t countAt(Tree const& tree, Path const& owner, KelAttr const& attr) {
  Entity::Ptr const e = entityAt(tree.dir, owner);
  return e ? attr.access().count(attr, *e) : 0;
}

}  // namespace

void Merger::queue(MergeNode& owner, KelAttr const& attr, Places& at) {
  MergeNode* runs = nullptr;
  std::vector<std::pair<std::size_t, MergeNode*>> nested;
  for (auto const& child : owner.children) {
    if (child->step.attr != &attr) continue;
    if (child->step.key)
      nested.emplace_back(child->step.key->attrVal<Kel::U32>(), child.get());
    else
      runs = child.get();
  }
  std::size_t const items = countAt(in_.ancestor, at.ancestor, attr);
  static std::vector<Difference const*> const none;
  QueueSide mine(items, runs ? runs->editRuns : none), theirs(items, runs ? runs->changeRuns : none);
  QueueSide const session = mine;  // where the session's items stand
  std::vector<Json> restored(items);
  std::vector<std::size_t> keptOnly;  // items that running deleted and the session keeps

  Path const queuePath = at.ancestor / attributeStep(attr);
  KelType const* const type =
      runs ? (runs->editRuns.empty() ? runs->changeRuns.empty() ? nullptr : runs->changeRuns[0]->type
                                     : runs->editRuns[0]->type)
           : nullptr;
  // Items that one side removed and the other changed inside.
  for (auto const& [position, node] : nested) {
    if (position >= items || mine.removed[position] == theirs.removed[position]) continue;
    bool const byEdit = mine.removed[position];
    auto const inside = node->below(!byEdit);
    if (inside.empty()) continue;
    Conflict conflict{at.ancestor / queueStep(attr, position),
                      ConflictKind::existence,
                      type,
                      &attr,
                      {},
                      {},
                      {},
                      pathsOf(inside),
                      {},
                      {}};
    conflict.ancestor = contentAt(in_.ancestor, conflict.path);
    Json const other =
        contentAt(byEdit ? in_.running : in_.session,
                  (byEdit ? at.running : at.session) / queueStep(attr, (byEdit ? theirs : mine).positions[position]));
    (byEdit ? conflict.running : conflict.session) = other;
    Side const winner = side(conflict);
    if (byEdit && winner == Side::running) {
      mine.removed[position] = false;
      restored[position] = other;
    } else if (!byEdit && winner == Side::session) {
      theirs.removed[position] = false;
      keptOnly.push_back(position);
    }
  }

  std::vector<MergedItem> next;
  auto const takeSession = [&](std::size_t item) {
    if (!restored[item].is_null())
      next.push_back({std::nullopt, restored[item]});
    else
      next.push_back({session.positions[item], {}});
  };
  auto const addRunning = [&](std::size_t gap, std::size_t from) {
    for (std::size_t i = from; i < theirs.added[gap].size(); ++i)
      next.push_back({std::nullopt, *theirs.added[gap][i].content});
  };
  auto const addSession = [&](std::size_t gap) {
    for (auto const& added : mine.added[gap]) next.push_back({added.position, {}});
  };
  std::vector<QueueClash> const clashes = clashesOf(mine, theirs);
  auto clash = clashes.begin();
  for (std::size_t i = 0; i <= items; ++i) {
    bool const clashesHere = clash != clashes.end() && clash->begin == i;
    auto const &ours = mine.added[i], &others = theirs.added[i];
    // Whether the items added here are part of the clashing run.
    auto const startsRun = [&](QueueSide const& s) { return clashesHere && i < items && s.removed[i]; };
    if (!startsRun(mine) && !startsRun(theirs)) {
      // The items with which both insertions begin are taken once.
      std::size_t alike = 0;
      while (alike < ours.size() && alike < others.size() && *ours[alike].content == *others[alike].content) ++alike;
      for (std::size_t n = 0; n < alike; ++n) next.push_back({ours[n].position, {}});
      addRunning(i, alike);
      for (std::size_t n = alike; n < ours.size(); ++n) next.push_back({ours[n].position, {}});
    } else {
      if (!startsRun(theirs)) addRunning(i, 0);
      if (!startsRun(mine)) addSession(i);
    }
    if (!clashesHere) {
      if (i < items && !mine.removed[i] && !theirs.removed[i]) takeSession(i);
      continue;
    }
    Conflict conflict{queuePath,     ConflictKind::order, type, &attr, Json::array(),
                      Json::array(), Json::array(),       {},   {},    Difference::Run{static_cast<Kel::U32>(i), 0}};
    Json const was = itemsAt(in_.ancestor, at.ancestor, attr), here = itemsAt(in_.session, at.session, attr),
               there = itemsAt(in_.running, at.running, attr);
    for (std::size_t n = i; n < clash->end; ++n) {
      conflict.ancestor.push_back(was[n]);
      bool const first = n == i;
      if (!first || startsRun(mine))
        for (auto const& added : mine.added[n]) conflict.session.push_back(*added.content);
      if (!mine.removed[n]) conflict.session.push_back(here[session.positions[n]]);
      if (!first || startsRun(theirs))
        for (auto const& added : theirs.added[n]) conflict.running.push_back(*added.content);
      if (!theirs.removed[n]) conflict.running.push_back(there[theirs.positions[n]]);
    }
    bool const running = conflict.session != conflict.running && side(conflict) == Side::running;
    std::size_t const begin = i;
    for (std::size_t n = begin; n < clash->end; ++n) {
      bool const first = n == begin;
      if (running) {
        if (!first || startsRun(theirs)) addRunning(n, 0);
        if (!theirs.removed[n]) {
          if (mine.removed[n])
            next.push_back({std::nullopt, there[theirs.positions[n]]});
          else
            takeSession(n);
        }
      } else {
        if (!first || startsRun(mine)) addSession(n);
        if (!mine.removed[n]) takeSession(n);
      }
    }
    i = clash->end - 1;
    ++clash;
  }

  // Changes inside of items that stay.
  for (auto const& [position, node] : nested) {
    if (position >= items || session.removed[position] || theirs.removed[position]) continue;
    if (std::find(keptOnly.begin(), keptOnly.end(), position) != keptOnly.end()) continue;
    Places inside = at;
    inside.ancestor.steps.push_back(queueStep(attr, position));
    inside.session.steps.push_back(queueStep(attr, session.positions[position]));
    inside.running.steps.push_back(queueStep(attr, theirs.positions[position]));
    children(*node, inside);
  }

  // The runs in which the merged queue differs from the session's.
  std::size_t const length = countAt(in_.session, at.session, attr);
  Json here;
  auto const contentOf = [&](std::size_t position) -> Json const& {
    if (here.is_null()) here = itemsAt(in_.session, at.session, attr);
    return here[position];
  };
  std::size_t from = 0, to = 0;
  for (std::size_t n = 0; n <= next.size(); ++n) {
    if (n < next.size() && !next[n].session) continue;
    std::size_t const stays = n < next.size() ? *next[n].session : length;
    if (stays > from || n > to) {
      Json before = Json::array(), after = Json::array();
      for (std::size_t p = from; p < stays; ++p) before.push_back(contentOf(p));
      for (std::size_t p = to; p < n; ++p) after.push_back(next[p].content);
      bool const had = !before.empty(), has = !after.empty();
      emit(at.session / attributeStep(attr), type, &attr, had, had ? std::move(before) : Json(), has,
           has ? std::move(after) : Json());
      out_.changes.back().run = {static_cast<Kel::U32>(from), static_cast<Kel::U32>(to)};
    }
    from = stays + 1;
    to = n + 1;
  }
}

}  // namespace

Merged merge(MergeInput const& input) { return Merger(input).run(); }

}  // namespace Cli::Service
