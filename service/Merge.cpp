#include "service/Merge.h"

#include <algorithm>
#include <set>

#include "service/JsonTree.h"
#include "service/MergeTree.h"
#include "service/PathSet.h"
#include "service/PointerClash.h"
#include "service/Positions.h"
#include "service/QueueMerger.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;
using Kel::KelType;

namespace {

bool isThere(Difference const& d, bool after) {
  return d.kind != (after ? DifferenceKind::deleted : DifferenceKind::created);
}
bool onlyDeletions(std::vector<Difference const*> const& list) {
  return std::all_of(list.begin(), list.end(), [](Difference const* d) { return d->kind == DifferenceKind::deleted; });
}

class Merger {
 public:
  explicit Merger(MergeInput const& input) : in_(input), session_(input.edits) {
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
  void decide(PointerClash& clash);
  void settlePointers();
  void settlePointer(PointerClash const& clash, PathSet const& entities);
  void keepTargets();
  void restoreTargets();

  MergeInput const& in_;
  Positions const session_;  // where the ancestor's items stand in the session
  QueueMerger::Whole const whole_{[this](Conflict conflict) { return side(std::move(conflict)); },
                                  [this](MergeNode& node, Places& at) { children(node, at); },
                                  [this](Difference change) { out_.changes.push_back(std::move(change)); },
                                  [this](Path const& item, Side side) {
                                    auto const& held = side == Side::session ? keptForSession_ : restoredForRunning_;
                                    return !held.empty() && held.count(item.text()) != 0;
                                  }};
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
      QueueMerger(in_, whole_, node, *attr, at).run();
    }
  }
}

void Merger::visit(MergeNode& node, Places& at) {
  Difference const* const any = node.edit ? node.edit : node.change;
  if (!any) return children(node, at);
  if (any->isEntity()) return entity(node, at);
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
    if (d.isEntity()) entities.add(d.path);
  for (PointerClash const& clash : pointers_) settlePointer(clash, entities);
}

void Merger::settlePointer(PointerClash const& clash, PathSet const& entities) {
  if (clash.winner == Side::session) return;
  Conflict const& c = clash.conflict;
  bool const before = clash.inSession, after = clash.inRunning;
  if (!before && !after) return;
  // The content of an entity that only running has comes with the entity.
  auto const place = session_(c.path);
  if (!place || (!before && !entityAt(in_.session.dir, place->parent()))) return;
  // What running made of an entity around it holds its pointers, too.
  if (entities.isAround(c.path)) return;
  if (before == after && c.session == c.running) return;
  emit(*place, c.type, c.attr, before, c.session, after || !c.path.steps.back().key, c.running);
}

// An entity that is kept may point to one that is not; then that one is kept, too.
void Merger::keepTargets() {
  std::unordered_map<std::string, std::size_t> deletions;
  for (std::size_t i = 0; i < out_.changes.size(); ++i)
    if (Difference const& d = out_.changes[i]; d.isEntity() && d.kind == DifferenceKind::deleted)
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
    if (d.isEntity() && d.kind == DifferenceKind::deleted) deletions.emplace(d.path.text(), &d);
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

}  // namespace

Merged merge(MergeInput const& input) { return Merger(input).run(); }

}  // namespace Cli::Service
