#include "service/QueueMerger.h"

#include "service/JsonTree.h"
#include "service/Walk.h"

namespace Cli::Service {

namespace {

MergeNode const* runsOf(MergeNode const& owner, Kel::KelAttr const& attr) {
  for (auto const& child : owner.children)
    if (child->step.attr == &attr && !child->step.key) return child.get();
  return nullptr;
}

std::vector<Difference const*> const& runsOn(MergeNode const* node, bool edits) {
  static std::vector<Difference const*> const none;
  return !node ? none : edits ? node->editRuns : node->changeRuns;
}

Kel::KelType const* typeOf(MergeNode const* runs) {
  for (bool const edits : {true, false})
    if (!runsOn(runs, edits).empty()) return runsOn(runs, edits)[0]->type;
  return nullptr;
}

// Whether what a side added before an item belongs to the clash: it does not where the clash begins with an item that
// the side keeps.
bool isPart(QueueSide const& side, QueueClash const& clash, std::size_t item) {
  return item != clash.begin || side.removed[item];
}

}  // namespace

QueueMerger::QueueMerger(MergeInput const& input, Whole const& whole, MergeNode const& owner, Kel::KelAttr const& attr,
                         Places const& at)
    : in_(input),
      whole_(whole),
      attr_(attr),
      at_(at),
      runs_(runsOf(owner, attr)),
      ancestorItems_{in_.ancestor, at.ancestor, {}},
      sessionItems_{in_.session, at.session, {}},
      runningItems_{in_.running, at.running, {}},
      count_(countOf(ancestorItems_)),
      session_(count_, runsOn(runs_, true)),
      mine_(session_),
      theirs_(count_, runsOn(runs_, false)),
      restored_(count_) {
  for (auto const& child : owner.children)
    if (child->step.attr == &attr && child->step.key)
      if (std::size_t const position = child->step.key->attrVal<Kel::U32>(); position < count_)
        nested_.push_back({position, child.get()});
}

void QueueMerger::run() {
  for (Difference const* change : runsOn(runs_, false))
    if (in_.keepsOwn && in_.keepsOwn(*change)) refuse(*change);
  for (Nested const& item : nested_) settleRemoved(item);
  keepPointedAt();
  mergeItems();
  for (Nested const& item : nested_) mergeInside(item);
  emitRuns();
}

Json const& QueueMerger::itemsOf(Items& items) {
  if (!items.exported) {
    Kel::Entity::Ptr const owner = entityAt(items.tree.dir, items.path);
    items.exported = owner ? exportAttribute(*owner, attr_, *items.tree.dir) : Json::array();
  }
  return *items.exported;
}

std::size_t QueueMerger::countOf(Items const& items) const {
  Kel::Entity::Ptr const owner = entityAt(items.tree.dir, items.path);
  return owner ? attr_.access().count(attr_, *owner) : 0;
}

// An item that one side removed and the other one changed inside is a conflict.
void QueueMerger::settleRemoved(Nested const& item) {
  std::size_t const position = item.position;
  if (mine_.removed[position] == theirs_.removed[position]) return;
  bool const byEdit = mine_.removed[position];
  auto const inside = item.node->below(!byEdit);
  if (inside.empty()) return;
  Conflict conflict;
  conflict.path = at_.ancestor / queueStep(attr_, position);
  conflict.kind = ConflictKind::existence;
  conflict.type = typeOf(runs_);
  conflict.attr = &attr_;
  conflict.nodes = pathsOf(inside);
  conflict.ancestor = itemsOf(ancestorItems_)[position];
  Json const& other =
      byEdit ? itemsOf(runningItems_)[theirs_.positions[position]] : itemsOf(sessionItems_)[mine_.positions[position]];
  (byEdit ? conflict.running : conflict.session) = other;
  Side const winner = whole_.side(std::move(conflict));
  if (byEdit && winner == Side::running)
    restore(position);
  else if (!byEdit && winner == Side::session)
    keep(position);
}

// Leaves out what only running did.
void QueueMerger::refuse(Difference const& change) {
  for (std::size_t n = change.run->from; n < change.run->from + change.before.size(); ++n)
    if (!mine_.removed[n]) keep(n);
  for (auto& gap : theirs_.added)
    std::erase_if(gap, [&](auto const& added) {
      return added.position >= change.run->to && added.position < change.run->to + change.after.size();
    });
}

void QueueMerger::keepPointedAt() {
  if (!attr_.instantiating() || !runs_) return;
  for (std::size_t n = 0; n < count_; ++n) {
    if (mine_.removed[n] == theirs_.removed[n]) continue;
    Path const item = at_.ancestor / queueStep(attr_, n);
    if (mine_.removed[n] && whole_.isPointedAt(item, Side::running)) restore(n);
    if (theirs_.removed[n] && whole_.isPointedAt(item, Side::session)) keep(n);
  }
}

void QueueMerger::keep(std::size_t position) {
  theirs_.removed[position] = false;
  keptOnly_.insert(position);
}

void QueueMerger::restore(std::size_t position) {
  mine_.removed[position] = false;
  restored_[position] = itemsOf(runningItems_)[theirs_.positions[position]];
}

// --- The merged queue ---

void QueueMerger::mergeItems() {
  std::vector<QueueClash> const clashes = clashesOf(mine_, theirs_);
  auto clash = clashes.begin();
  for (std::size_t i = 0; i <= count_;) {
    if (clash != clashes.end() && clash->begin == i) {
      mergeClash(*clash);
      i = clash++->end;
      continue;
    }
    mergeGap(i);
    if (i < count_ && !mine_.removed[i] && !theirs_.removed[i]) takeSession(i);
    ++i;
  }
}

// Both sides may have added items at one place. Those with which both begin are taken once; then running's come first.
void QueueMerger::mergeGap(std::size_t gap) {
  auto const &mine = mine_.added[gap], &theirs = theirs_.added[gap];
  std::size_t alike = 0;
  while (alike < mine.size() && alike < theirs.size() && *mine[alike].content == *theirs[alike].content) ++alike;
  for (std::size_t n = 0; n < alike; ++n) merged_.push_back({mine[n].position, {}});
  addRunning(gap, alike);
  for (std::size_t n = alike; n < mine.size(); ++n) merged_.push_back({mine[n].position, {}});
}

void QueueMerger::mergeClash(QueueClash const& clash) {
  if (!isPart(theirs_, clash, clash.begin)) addRunning(clash.begin);
  if (!isPart(mine_, clash, clash.begin)) addSession(clash.begin);
  Conflict conflict = conflictOf(clash);
  if (conflict.session != conflict.running && whole_.side(std::move(conflict)) == Side::running)
    takeRunningPart(clash);
  else
    takeSessionPart(clash);
}

Conflict QueueMerger::conflictOf(QueueClash const& clash) {
  Conflict conflict;
  conflict.path = at_.ancestor / attributeStep(attr_);
  conflict.kind = ConflictKind::order;
  conflict.type = typeOf(runs_);
  conflict.attr = &attr_;
  std::size_t inSession = isPart(mine_, clash, clash.begin) ? 0 : session_.added[clash.begin].size();
  for (std::size_t n = 0; n < clash.begin; ++n) inSession += session_.added[n].size() + !session_.removed[n];
  conflict.run = Difference::Run{static_cast<Kel::U32>(clash.begin), static_cast<Kel::U32>(inSession)};
  for (Json* content : {&conflict.ancestor, &conflict.session, &conflict.running}) *content = Json::array();
  auto const addAdded = [&](Json& content, QueueSide const& side, std::size_t gap) {
    if (!isPart(side, clash, gap)) return;
    for (auto const& added : side.added[gap]) content.push_back(*added.content);
  };
  for (std::size_t n = clash.begin; n < clash.end; ++n) {
    conflict.ancestor.push_back(itemsOf(ancestorItems_)[n]);
    addAdded(conflict.session, mine_, n);
    if (!mine_.removed[n]) conflict.session.push_back(sessionItem(n));
    addAdded(conflict.running, theirs_, n);
    if (!theirs_.removed[n]) conflict.running.push_back(runningItem(n));
  }
  return conflict;
}

void QueueMerger::takeSessionPart(QueueClash const& clash) {
  for (std::size_t n = clash.begin; n < clash.end; ++n) {
    if (isPart(mine_, clash, n)) addSession(n);
    if (!mine_.removed[n]) takeSession(n);
  }
}

void QueueMerger::takeRunningPart(QueueClash const& clash) {
  for (std::size_t n = clash.begin; n < clash.end; ++n) {
    if (isPart(theirs_, clash, n)) addRunning(n);
    if (theirs_.removed[n]) continue;
    if (mine_.removed[n])
      merged_.push_back({std::nullopt, runningItem(n)});
    else
      takeSession(n);
  }
}

void QueueMerger::takeSession(std::size_t item) {
  if (restored_[item].is_null())
    merged_.push_back({session_.positions[item], {}});
  else
    merged_.push_back({std::nullopt, restored_[item]});
}

void QueueMerger::addSession(std::size_t gap) {
  for (auto const& added : mine_.added[gap]) merged_.push_back({added.position, {}});
}

void QueueMerger::addRunning(std::size_t gap, std::size_t from) {
  auto const& added = theirs_.added[gap];
  for (std::size_t i = from; i < added.size(); ++i) merged_.push_back({std::nullopt, *added[i].content});
}

Json const& QueueMerger::sessionItem(std::size_t item) {
  return restored_[item].is_null() ? itemsOf(sessionItems_)[session_.positions[item]] : restored_[item];
}

Json const& QueueMerger::runningItem(std::size_t item) {
  return keptOnly_.count(item) ? sessionItem(item) : itemsOf(runningItems_)[theirs_.positions[item]];
}

// --- The changes of the session ---

// Merges inside of an item that stays on both sides.
void QueueMerger::mergeInside(Nested const& item) {
  std::size_t const position = item.position;
  if (session_.removed[position] || theirs_.removed[position] || keptOnly_.count(position)) return;
  Places inside = at_;
  inside.ancestor.steps.push_back(queueStep(attr_, position));
  inside.session.steps.push_back(queueStep(attr_, session_.positions[position]));
  inside.running.steps.push_back(queueStep(attr_, theirs_.positions[position]));
  whole_.children(*item.node, inside);
}

// The runs in which the merged queue differs from the session's lie between items that stay.
void QueueMerger::emitRuns() {
  std::size_t const length = countOf(sessionItems_);
  std::size_t from = 0, to = 0;
  for (std::size_t n = 0; n <= merged_.size(); ++n) {
    if (n < merged_.size() && !merged_[n].session) continue;
    std::size_t const stays = n < merged_.size() ? *merged_[n].session : length;
    if (stays > from || n > to) emitRun({static_cast<Kel::U32>(from), static_cast<Kel::U32>(to)}, stays, n);
    from = stays + 1;
    to = n + 1;
  }
}

void QueueMerger::emitRun(Difference::Run run, std::size_t end, std::size_t mergedEnd) {
  Json before, after;
  for (std::size_t p = run.from; p < end; ++p) before.push_back(itemsOf(sessionItems_)[p]);
  for (std::size_t p = run.to; p < mergedEnd; ++p) after.push_back(merged_[p].content);
  DifferenceKind const kind = before.is_null()  ? DifferenceKind::created
                              : after.is_null() ? DifferenceKind::deleted
                                                : DifferenceKind::changed;
  whole_.emit(
      {kind, at_.session / attributeStep(attr_), typeOf(runs_), &attr_, std::move(before), std::move(after), run});
}

}  // namespace Cli::Service
