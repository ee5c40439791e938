#include "service/Differ.h"

#include <algorithm>
#include <array>
#include <set>

#include "CliSession/EntityCopyCompare.h"
#include "service/JsonTree.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Change;
using Kel::ChangedEntity;
using Kel::Entity;
using Kel::heldLike;
using Kel::KelAttr;
using Kel::KelType;

namespace {

using Equal = bool (*)(Entity const& a, Entity const& b);

// `equal` compares the parameters, those after the key only if `afterKey`; null: the type has no such function.
bool sameParams(Entity const& from, Entity const& to, Equal equal, bool afterKey) {
  if (equal && equal(from, to)) return true;
  // A NaN, and a value without a comparison, do not equal themselves. Their texts are compared.
  if (equal && equal(from, from)) return false;
  for (KelAttr const* param : furtherParams(*from.type(), afterKey)) {
    Kel::GenericIf::PtrConst const x = valueOfAttr(from, *param), y = valueOfAttr(to, *param);
    if (Cli::Session::valueTypeEqual(x, y)) continue;
    if (!x || !y || param->isPtr() || x->strep() != y->strep()) return false;
  }
  return true;
}

}  // namespace

bool madeAlike(Entity const& from, Entity const& to) {
  return from.type() == to.type() && sameParams(from, to, from.type()->paramsEqual(), false);
}

std::optional<bool> sameItem(Entity const& from, Entity const& to) {
  if (from.type() != to.type()) return false;
  if (from.type()->ctorArgs().size() < 2) return std::nullopt;
  return sameParams(from, to, from.type()->furtherParamsEqual(), true);
}

// --- Contents of differences ---

Path Differ::pathOf(Frame const& at) const {
  std::vector<Frame const*> way;
  for (Frame const* f = &at; f; f = f->up) way.push_back(f);
  Path path;
  path.steps.reserve(way.size() + 3);
  for (auto it = way.rbegin(); it != way.rend(); ++it) {
    Frame const& f = **it;
    if (f.fixed)
      path.steps.push_back(*f.fixed);
    else if (!f.attr)
      path.steps.push_back(entryStep(f.member->name()));
    else if (f.attr->isQueue())
      path.steps.push_back(queueStep(*f.attr, f.position));
    else if (f.attr->isCollection())
      path.steps.push_back(memberStep(*f.attr, valueOfAttr(*f.member, *keyParam(*f.member->type()))));
    else
      path.steps.push_back(attributeStep(*f.attr));
  }
  return path;
}

void Differ::emit(DifferenceKind kind, Path path, KelType const* type, KelAttr const* attr, Json before, Json after) {
  found_.push_back({kind, std::move(path), type, attr, std::move(before), std::move(after), std::nullopt});
}

Json Differ::content(Entity const* e, Tree const& tree) const { return e ? exportEntity(*e, *tree.dir) : Json(); }

Json Differ::text(Entity const* target, Tree const& tree) const {
  std::string text = target ? targetText(*target, *tree.dir) : std::string();
  return text.empty() ? Json() : Json(std::move(text));
}

// --- Entities ---

std::vector<Difference> Differ::run() {
  walk();
  if (!changed_ || !strayPointers_) return std::move(found_);
  // There may be pointers anywhere to items that are aligned with others now, or with none.
  changed_ = nullptr;
  found_.clear();
  walk();
  return std::move(found_);
}

void Differ::walk() {
  for (std::string const& path : outerRoots(*from_.roots)) {
    Path const place = rootPath(path);
    std::deque<Frame> frames;
    for (PathStep const& step : place.steps) frames.push_back({frames.empty() ? nullptr : &frames.back(), &step});
    owned(frames.back(), rootAt(from_, path), rootAt(to_, path));
  }
}

namespace {

bool plainEqual(Entity const& from, Entity const& to) {
  auto const differences = from.type()->plainDifferences();
  return differences && differences(from, to) == 0;
}

}  // namespace

Differ::Plan const& Differ::planOf(KelType const& type) {
  auto const [found, isNew] = plans_.try_emplace(&type);
  Plan& plan = found->second;
  if (!isNew) return plan;
  for (KelAttr const* attr : type.attributeQ()) {
    if (!attr->copiable()) continue;
    plan.all.push_back(attr);
    if (!type.plainDifferences() || !attr->plainBit()) plan.further.push_back(attr);
    if (attr->instantiating()) plan.owned.push_back(attr);
  }
  return plan;
}

// Compares the entities that an attribute or a directory's entry owns on both sides.
void Differ::owned(Frame const& at, Entity const* from, Entity const* to) {
  if (!from && !to) return;
  if (from && to && madeAlike(*from, *to)) return entity(at, *from, *to);
  DifferenceKind const kind = !from ? DifferenceKind::created : !to ? DifferenceKind::deleted : DifferenceKind::changed;
  Entity const& any = from ? *from : *to;
  Json before = content(from, from_), after = content(to, to_);
  emit(kind, pathOf(at), any.parent()->type(), at.fixed ? at.fixed->attr : at.attr, std::move(before),
       std::move(after));
}

void Differ::entity(Frame const& at, Entity const& from, Entity const& to) {
  if (changed_ && !whole_) {
    ChangedEntity const* const changed = changed_->find(from);
    if (!changed) return;
    if (!changed->has(Change::whole)) return changedOnly(at, from, to, *changed);
    whole_ = true;
    entity(at, from, to);
    whole_ = false;
    return;
  }
  if (Kel::Dir const* const dir = asDir(&from)) return directory(at, *dir, static_cast<Kel::Dir const&>(to));
  Plan const& plan = planOf(*from.type());
  for (KelAttr const* attr : plainEqual(from, to) ? plan.further : plan.all) attribute(at, from, to, *attr);
}

void Differ::changedOnly(Frame const& at, Entity const& from, Entity const& to, ChangedEntity const& changed) {
  if (Kel::Dir const* const dir = asDir(&from)) return directory(at, *dir, static_cast<Kel::Dir const&>(to));
  bool const content = changed.has(Change::content);
  Plan const& plan = planOf(*from.type());
  bool const furtherOnly = content && plainEqual(from, to);
  for (KelAttr const* attr : furtherOnly ? plan.further : plan.all) {
    if (!attr->instantiating()) {
      if (content) attribute(at, from, to, *attr);
    } else if (attr->isQueue()) {
      // The items are aligned later, so it is not known which of them have changed.
      if (!changed.concerns(*attr)) continue;
      whole_ = true;
      queue(at, from, to, *attr);
      whole_ = false;
    } else if (changed.has(Change::members)) {
      attribute(at, from, to, *attr);
    } else {
      changedMembers(at, to, *attr, changed);
    }
  }
}

void Differ::changedMembers(Frame const& at, Entity const& to, KelAttr const& attr, ChangedEntity const& changed) {
  std::vector<Entity const*> candidates;
  for (auto const& [in, position, e] : changed.owned)
    if (in == attr.id()) candidates.push_back(e);
  auto const step = [&](Entity const* e) { return memberStep(attr, valueOfAttr(*e, *keyParam(*e->type()))); };
  if (attr.collectionKind() == KelAttr::Collection::orderedMap)
    std::sort(candidates.begin(), candidates.end(), [&](auto* a, auto* b) { return step(a) < step(b); });
  for (Entity const* e : candidates) owned({&at, nullptr, &attr, e}, e, heldLike(to, *e));
}

void Differ::directory(Frame const& at, Kel::Dir const& from, Kel::Dir const& to) {
  for (auto it = from.entryStateIteratorConst(); it; ++it) {
    Entity const* const mine = it->entityPtr().ptr();
    if (mine && !to.child(it->name())) owned({&at, nullptr, nullptr, mine}, mine, nullptr);
  }
  for (auto it = to.entryStateIteratorConst(); it; ++it)
    if (Entity const* const theirs = it->entityPtr().ptr())
      owned({&at, nullptr, nullptr, theirs}, from.child(it->name()), theirs);
}

void Differ::attribute(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  if (attr.isQueue()) return queue(at, from, to, attr);
  if (attr.isCollection()) return attr.instantiating() ? members(at, from, to, attr) : collection(at, from, to, attr);
  if (attr.instantiating()) return singleton(at, from, to, attr);
  if (attr.isPtr()) return pointer(at, from, to, attr);
  if (!attr.access().equal(from, to)) value(at, from, to, attr);
}

void Differ::value(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  Json before = exportValue(valueOfAttr(from, attr).ptr(), *from_.dir);
  Json after = exportValue(valueOfAttr(to, attr).ptr(), *to_.dir);
  if (before == after) return;  // a value that has no comparison, or a NaN
  Path path = pathOf(at);
  path.steps.push_back(attributeStep(attr));
  emit(DifferenceKind::changed, std::move(path), from.type(), &attr, std::move(before), std::move(after));
}

void Differ::singleton(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  Entity const *const mine = attr.access().target(from), *const theirs = attr.access().target(to);
  owned({&at, nullptr, &attr, mine ? mine : theirs}, mine, theirs);
}

// --- Pointers ---

namespace {

bool isWithin(Entity const* e, Entity const* dir) {
  while (e && e != dir) e = e->parent();
  return e != nullptr;
}

}  // namespace

Entity const* Differ::counterpart(Entity const& to) {
  if (&to == toOwner_) return fromOwner_;
  if (&to == to_.dir.ptr()) return from_.dir.ptr();
  Entity const* const toUp = to.parent();
  Entity const* const fromUp = toUp ? counterpart(*toUp) : nullptr;
  if (!fromUp) return nullptr;
  bool const isItem = !asDir(toUp) && to.parentAttr()->isQueue();
  Entity const* const from = isItem ? partner(*fromUp, *toUp, to) : heldLike(*fromUp, to);
  if (!from || from->type() != to.type()) return nullptr;
  fromOwner_ = fromUp;
  toOwner_ = toUp;
  return from;
}

bool Differ::sameTarget(Entity const& from, Entity const& to) {
  // The usual case: a neighbour of the last target.
  if (from.parent() && from.parent() == fromOwner_ && to.parent() == toOwner_ && from.type() == to.type() &&
      from.parentAttrId() == to.parentAttrId() && !asDir(fromOwner_) && !from.parentAttr()->isQueue())
    if (auto const equal = from.type()->paramsEqual(); equal && equal(from, to)) return true;
  bool const mine = isWithin(&from, from_.dir.ptr()), theirs = isWithin(&to, to_.dir.ptr());
  if (mine != theirs) return false;
  return mine ? counterpart(to) == &from : &from == &to || text(&from, from_) == text(&to, to_);
}

void Differ::pointer(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  Entity const *const mine = attr.access().target(from), *const theirs = attr.access().target(to);
  if (mine == theirs || (mine && theirs && sameTarget(*mine, *theirs))) return;
  Json before = text(mine, from_), after = text(theirs, to_);
  if (before.is_null() && after.is_null()) return;  // a pointer whose target has left the tree leads nowhere
  Path path = pathOf(at);
  path.steps.push_back(attributeStep(attr));
  emit(DifferenceKind::changed, std::move(path), from.type(), &attr, std::move(before), std::move(after));
}

// --- Collections of values and pointers ---

namespace {

class Targets final : public Kel::SameTarget {
 public:
  explicit Targets(Differ& differ) : differ_(differ) {}
  bool operator()(Entity& from, Entity& to) override { return differ_.sameTarget(from, to); }

 private:
  Differ& differ_;
};

Json memberContent(Kel::AttrIterator const& it, Entity const& base) {
  Kel::GenericIf::PtrConst const boxed = it.obj(true);
  if (!boxed) return {};
  Json content = exportValue(boxed.ptr(), base);
  if (boxed->isEntity() && content.is_string() && content.get_ref<std::string const&>().empty()) return {};
  return content;
}

}  // namespace

void Differ::collection(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  Kel::AttrAccess const& access = attr.access();
  Targets targets(*this);
  if (access.equalThrough(from, to, targets)) return;
  if (attr.keyIsPtr()) return pointerKeys(at, from, to, attr);
  auto const differs = [&](DifferenceKind kind, Kel::AttrIterator const& it, Json before, Json after) {
    Path path = pathOf(at);
    path.steps.push_back(memberStep(attr, it.key()));
    emit(kind, std::move(path), from.type(), &attr, std::move(before), std::move(after));
  };
  eachMember(from, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    Entity* target = nullptr;
    if (access.findMember(to, it, nullptr, &target) == Kel::AttrAccess::Found::absent)
      differs(DifferenceKind::deleted, it, memberContent(it, *from_.dir), {});
    return true;
  });
  eachMember(to, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    Entity* mine = nullptr;
    auto const found = access.findMember(from, it, nullptr, &mine);
    if (found == Kel::AttrAccess::Found::absent) {
      differs(DifferenceKind::created, it, {}, memberContent(it, *to_.dir));
    } else if (attr.isPtr()) {
      Entity const* const theirs = it.target();
      if (mine == theirs || (mine && theirs && sameTarget(*mine, *theirs))) return true;
      Json before = text(mine, from_), after = text(theirs, to_);
      if (before != after || (before.is_string() && mine && theirs))
        differs(DifferenceKind::changed, it, std::move(before), std::move(after));
    } else if (found == Kel::AttrAccess::Found::different) {
      Kel::GenericIf::PtrConst const key = it.key();
      Json before = exportValue(access.get(attr, &from, key.ptr(), true).ptr(), *from_.dir);
      Json after = memberContent(it, *to_.dir);
      if (before != after) differs(DifferenceKind::changed, it, std::move(before), std::move(after));
    }
    return true;
  });
}

// Pointer keys are compared by the paths of their targets.
void Differ::pointerKeys(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  struct Member {
    Entity const* key;
    Json content;
    bool matched = false;
  };
  auto const membersOf = [&](Entity const& e, Tree const& tree) {
    std::vector<Member> members;
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      members.push_back({it.keyTarget(), memberContent(it, *tree.dir)});
      return true;
    });
    return members;
  };
  std::vector<Member> mine = membersOf(from, from_), theirs = membersOf(to, to_);
  auto const differs = [&](DifferenceKind kind, Entity const* key, Tree const& tree, Json before, Json after) {
    Path path = pathOf(at);
    Json const place = text(key, tree);
    path.steps.push_back(memberStep(
        attr, Kel::GenericIf::of(Kel::String8(place.is_string() ? place.get<std::string>() : std::string()))));
    emit(kind, std::move(path), from.type(), &attr, std::move(before), std::move(after));
  };
  std::unordered_map<Entity const*, Member*> byKey;
  std::unordered_multimap<std::string, Member*> outside;  // by the texts of keys outside the tree
  for (Member& m : mine) {
    byKey.emplace(m.key, &m);
    if (m.key && !isWithin(m.key, from_.dir.ptr())) outside.emplace(targetText(*m.key, *from_.dir), &m);
  }
  auto const unmatched = [&](Entity const* key) -> Member* {
    auto const found = byKey.find(key);
    return found == byKey.end() || found->second->matched ? nullptr : found->second;
  };
  auto const partnerOf = [&](Entity const* key) -> Member* {
    if (Member* const same = unmatched(key); same || !key) return same;
    if (isWithin(key, to_.dir.ptr())) {
      Entity const* const before = counterpart(*key);
      return before ? unmatched(before) : nullptr;
    }
    auto const [begin, end] = outside.equal_range(targetText(*key, *to_.dir));
    auto const found = std::find_if(begin, end, [](auto const& one) { return !one.second->matched; });
    return found == end ? nullptr : found->second;
  };
  std::vector<Member const*> partners;
  for (Member const& other : theirs) {
    Member* const found = partnerOf(other.key);
    if (found) found->matched = true;
    partners.push_back(found);
  }
  for (Member const& m : mine)
    if (!m.matched) differs(DifferenceKind::deleted, m.key, from_, m.content, {});
  for (std::size_t i = 0; i < theirs.size(); ++i) {
    if (!partners[i])
      differs(DifferenceKind::created, theirs[i].key, to_, {}, theirs[i].content);
    else if (partners[i]->content != theirs[i].content)
      differs(DifferenceKind::changed, partners[i]->key, from_, partners[i]->content, theirs[i].content);
  }
}

// --- Owned members ---

void Differ::members(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  Kel::AttrAccess const& access = attr.access();
  if (access.count(attr, from) != access.count(attr, to) || !access.sameKeyHashes(from, to))
    eachMember(from, attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      Entity const& mine = *it.target();
      if (!access.findCounterpart(to, mine, static_cast<Kel::U32>(position)))
        owned({&at, nullptr, &attr, &mine}, &mine, nullptr);
      return true;
    });
  auto const pair = [&](Entity const* mine, Entity const* theirs) {
    owned({&at, nullptr, &attr, mine ? mine : theirs}, mine, theirs);
  };
  if (attr.collectionKind() != KelAttr::Collection::hashMap) {
    eachMember(to, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      pair(access.findCounterpart(from, *it.target(), 0), it.target());
      return true;
    });
    return;
  }
  std::array<Kel::AttrAccess::Pair, 16> pairs;
  Kel::U32 position = 0;
  while (Kel::U32 const count = access.gatherPairs(from, to, position, pairs.data(), pairs.size()))
    for (Kel::U32 i = 0; i < count; ++i) pair(pairs[i].dest, pairs[i].src);
}

// --- Queues ---

namespace {

// Whether an entity, or one below it, is held by something besides its owner.
bool isPointedAt(Entity const& top) {
  std::vector<Entity const*> open{&top};
  while (!open.empty()) {
    Entity const& e = *open.back();
    open.pop_back();
    if (e.refs() > 1) return true;
    eachOwned(e, [&](Entity const& child) { open.push_back(&child); });
  }
  return false;
}

// The items of a queue. Their contents are made when they are first needed.
class Items {
 public:
  Items(Entity const& owner, KelAttr const& attr, Tree const& tree) : tree_(tree) {
    eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      if (attr.instantiating())
        entities_.push_back(it.target());
      else
        contents_.push_back(exportValue(it.obj(true).ptr(), *tree.dir));
      return true;
    });
    if (attr.instantiating()) contents_.resize(entities_.size());
  }
  std::size_t size() const { return contents_.size(); }
  Entity const& entity(std::size_t n) const { return *entities_[n]; }
  Json const& content(std::size_t n) {
    if (contents_[n].is_null() && !entities_.empty()) contents_[n] = exportEntity(*entities_[n], *tree_.dir);
    return contents_[n];
  }
  Json run(std::size_t begin, std::size_t end) {
    Json items = Json::array();
    for (; begin < end; ++begin) items.push_back(content(begin));
    return items;
  }

 private:
  Tree const& tree_;
  std::vector<Entity const*> entities_;
  std::vector<Json> contents_;
};

Aligned alignItems(KelAttr const& attr, Items& from, Items& to) {
  return align(from.size(), to.size(), [&](std::size_t i, std::size_t j) {
    if (attr.instantiating())
      if (auto const same = sameItem(from.entity(i), to.entity(j))) return *same;
    return from.content(i) == to.content(j);
  });
}

// Runs of items by their content, in the order of their gaps.
class Runs {
 public:
  void add(std::size_t gap, Json content) { lists_[std::move(content)].gaps.push_back(gap); }
  // Takes the first one behind a gap out. REQUIRES: `gap` never decreases.
  std::optional<std::size_t> takeAfter(std::size_t gap, Json const& content) {
    auto const found = lists_.find(content);
    if (found == lists_.end()) return std::nullopt;
    auto& [gaps, next] = found->second;
    while (next < gaps.size() && gaps[next] <= gap) ++next;
    return next < gaps.size() ? std::optional(gaps[next++]) : std::nullopt;
  }

 private:
  struct List {
    std::vector<std::size_t> gaps;
    std::size_t next = 0;
  };
  std::unordered_map<Json, List> lists_;
};

}  // namespace

// The item of a queue of `from` that is aligned with an item of `to`; null if there is none.
Entity const* Differ::partner(Entity const& from, Entity const& to, Entity const& item) {
  KelAttr const& attr = *item.parentAttr();
  auto const [found, isNew] = partners_[&attr].try_emplace(&to);
  auto& partners = found->second;
  if (isNew) {
    Items mine(from, attr, from_), theirs(to, attr, to_);
    for (auto const& [i, j] : alignItems(attr, mine, theirs)) partners.emplace(&theirs.entity(j), &mine.entity(i));
  }
  auto const known = partners.find(&item);
  return known == partners.end() ? nullptr : known->second;
}

void Differ::queue(Frame const& at, Entity const& from, Entity const& to, KelAttr const& attr) {
  if (!attr.instantiating() && attr.access().equal(from, to)) return;
  Items mine(from, attr, from_), theirs(to, attr, to_);
  Aligned pairs = alignItems(attr, mine, theirs);
  if (attr.instantiating())
    for (auto const& [i, j] : pairs)
      // Items without parameters have the same content, but the same text of a pointer may lead to another item.
      if (mine.entity(i).type()->ctorArgs().size() >= 2 || mine.entity(i).type()->pointersBelow())
        entity({&at, nullptr, &attr, &mine.entity(i), i}, mine.entity(i), theirs.entity(j));
  struct Gap {
    std::size_t from, fromEnd, to, toEnd;
  };
  auto const lookForPointers = [&](Items const& items, std::size_t begin, std::size_t end) {
    for (; changed_ && attr.instantiating() && !strayPointers_ && begin < end; ++begin)
      strayPointers_ = isPointedAt(items.entity(begin));
  };
  std::vector<Gap> gaps;
  pairs.emplace_back(mine.size(), theirs.size());
  std::size_t i = 0, j = 0;
  for (auto const& [nextI, nextJ] : pairs) {
    if (i < nextI || j < nextJ) gaps.push_back({i, nextI, j, nextJ});
    lookForPointers(mine, i, nextI);
    lookForPointers(theirs, j, nextJ);
    i = nextI + 1;
    j = nextJ + 1;
  }
  Path path = pathOf(at);
  path.steps.push_back(attributeStep(attr));
  auto const runDiffers = [&](DifferenceKind kind, Gap const& gap, Json before, Json after) {
    emit(kind, path, from.type(), &attr, std::move(before), std::move(after));
    found_.back().run = {static_cast<Kel::U32>(gap.from), static_cast<Kel::U32>(gap.to)};
  };
  // A run that was removed at one place and added at another was moved.
  Runs removedRuns, addedRuns;
  for (std::size_t g = 0; g < gaps.size(); ++g) {
    Gap const& gap = gaps[g];
    if (gap.to == gap.toEnd)
      removedRuns.add(g, mine.run(gap.from, gap.fromEnd));
    else if (gap.from == gap.fromEnd)
      addedRuns.add(g, theirs.run(gap.to, gap.toEnd));
  }
  std::vector<bool> moved(gaps.size(), false);
  for (std::size_t g = 0; g < gaps.size(); ++g) {
    Gap const& gap = gaps[g];
    if (moved[g]) continue;
    Json before = mine.run(gap.from, gap.fromEnd), after = theirs.run(gap.to, gap.toEnd);
    bool const removed = gap.to == gap.toEnd, added = gap.from == gap.fromEnd;
    std::optional<std::size_t> const partner = removed ? addedRuns.takeAfter(g, before)
                                               : added ? removedRuns.takeAfter(g, after)
                                                       : std::nullopt;
    if (partner) {
      moved[*partner] = true;
      Gap const& source = removed ? gap : gaps[*partner];
      Gap const& target = removed ? gaps[*partner] : gap;
      Json const& content = removed ? before : after;
      runDiffers(DifferenceKind::reordered, {source.from, source.fromEnd, target.to, target.toEnd}, content, content);
      continue;
    }
    DifferenceKind const kind = added     ? DifferenceKind::created
                                : removed ? DifferenceKind::deleted
                                          : DifferenceKind::changed;
    runDiffers(kind, gap, added ? Json() : std::move(before), removed ? Json() : std::move(after));
  }
}

std::vector<Difference> differences(Tree const& from, Tree const& to) { return Differ(from, to, nullptr).run(); }

}  // namespace Cli::Service
