#include "service/Apply.h"

#include <algorithm>

#include "service/Checkpoint.h"
#include "service/Error.h"
#include "service/Importer.h"
#include "service/Pointers.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::GenericIf;
using Kel::KelAttr;

namespace {

constexpr ImportOptions asWritten{.merge = false, .values = ValueRule::asWritten, .pending = nullptr};

std::size_t queueStepOf(Path const& path, std::size_t from = 0) {
  for (std::size_t i = from; i < path.steps.size(); ++i)
    if (path.steps[i].attr && path.steps[i].attr->isQueue()) return i;
  return path.steps.size();
}

}  // namespace

Applying::Applying(std::vector<Difference> const& differences, Tree const& tree)
    : differences_(differences), tree_(tree), inverse_(inverse(differences)) {
  std::map<std::string, std::size_t> known;
  for (Difference const& d : differences_) {
    if (!d.run) continue;
    auto const [found, isNew] = known.try_emplace(d.path.text(), queues_.size());
    if (isNew) queues_.push_back({d.path, d.attr, {}});
    queues_[found->second].runs.push_back(&d);
  }
  saveQueues();
  noteLeaving();
  notePointers();
}

// The outermost queues with changes. Their positions shift, so they are restored as a whole.
void Applying::saveQueues() {
  std::map<std::string, Path> outermost;
  for (Difference const& d : differences_) {
    std::size_t const at = queueStepOf(d.path);
    if (at == d.path.steps.size()) continue;
    Path queue;
    queue.steps.assign(d.path.steps.begin(), d.path.steps.begin() + static_cast<std::ptrdiff_t>(at));
    queue.steps.push_back(attributeStep(*d.path.steps[at].attr));
    outermost.try_emplace(queue.text(), std::move(queue));
  }
  for (auto const& [text, path] : outermost) {
    Place const place = locate(tree_.dir, path);
    if (place.there() && place.attr) saved_.push_back({path, exportAttribute(*place.entity, *place.attr, *tree_.dir)});
  }
}

bool Applying::isSaved(Path const& path) const { return !saved_.empty() && queueStepOf(path) != path.steps.size(); }

void Applying::noteLeaving() {
  for (Difference const& d : differences_)
    if (d.isEntity() && d.kind != DifferenceKind::created)
      if (Entity::Ptr const e = entityAt(tree_.dir, d.path)) noteLeaving(*e);
  for (Queue const& queue : queues_) {
    if (!queue.attr->instantiating()) continue;
    Place const place = locate(tree_.dir, queue.path);
    if (!place.there()) continue;
    eachMember(*place.entity, *place.attr, [&](Kel::AttrIterator const& it, std::size_t) {
      noteLeaving(*it.target());
      return true;
    });
  }
}

void Applying::noteLeaving(Entity const& top) {
  std::vector<Entity const*> open{&top};
  while (!open.empty()) {
    Entity const& e = *open.back();
    open.pop_back();
    // Something holds it besides its owner.
    if (e.refs() > 1) leaving_.emplace(&e, Leaving{Entity::PtrConst(&e), targetText(e, *tree_.dir)});
    eachOwned(e, [&](Entity const& child) { open.push_back(&child); });
  }
}

void Applying::notePointers() {
  if (leaving_.empty()) return;
  for (std::string const& path : outerRoots(*tree_.roots)) {
    Entity const* const root = rootAt(tree_, path);
    if (!root) continue;
    eachPointer(*root, rootPath(path), [&](Pointer const& p) {
      if (!leaving_.count(p.target)) return;
      Json target = targetText(*p.target, *tree_.dir);
      if (p.attr->keyIsPtr()) target = p.content ? exportValue(p.content.ptr(), *tree_.dir) : Json();
      pointers_.push_back(
          {DifferenceKind::changed, placeOf(p, *tree_.dir), p.attr->ownerType(), p.attr, {}, std::move(target), {}});
    });
  }
}

Entity::Ptr Applying::owner(Difference const& d) const {
  Entity::Ptr e = entityAt(tree_.dir, d.path.parent());
  if (!e) throw Error("'" + d.path.parent().text() + "' is not there");
  return e;
}

// --- Forward ---

// A member under a pointer key is found only while the key's target exists. So members are deleted before others are
// made, and pointers are set when all their targets exist.
void Applying::write() {
  for (Difference const& d : differences_)
    if (goesWithItsKey(d)) point(d);
  for (Difference const& d : differences_)
    if (d.isEntity() && d.kind != DifferenceKind::created) remove(d);
  for (Difference const& d : differences_)
    if (d.isEntity() && d.kind != DifferenceKind::deleted) create(d.path, d.after);
  for (Difference const& d : differences_)
    if (!d.isEntity() && !d.run && !isReference(d)) set(d);
  // Inner queues first, because paths are those before the change.
  std::vector<Queue const*> order;
  for (Queue const& queue : queues_) order.push_back(&queue);
  std::stable_sort(order.begin(), order.end(),
                   [](Queue const* a, Queue const* b) { return a->path.steps.size() > b->path.steps.size(); });
  for (Queue const* queue : order) arrange(*queue);
  settle();
}

void Applying::settle() {
  std::vector<Difference> const after = queues_.empty() ? std::vector<Difference>() : inverse_;
  for (std::size_t i = 0; i < differences_.size(); ++i) {
    Difference const& d = differences_[i];
    if (d.isEntity() || d.run || !isReference(d) || goesWithItsKey(d)) continue;
    if (after.empty()) {
      point(d);
      continue;
    }
    Difference moved = d;
    moved.path = after[i].path;
    point(moved);
  }
  pending_.retry(tree_.dir);
  repoint();
}

void Applying::remove(Difference const& d) {
  Entity::Ptr const e = owner(d);
  PathStep const& step = d.path.steps.back();
  if (!step.attr)
    static_cast<Kel::Dir&>(*e).entryDel(step.entry);
  else
    gifOf(*e)->attributeDel(step.attr->id(), step.key);
}

void Applying::create(Path const& path, Json const& content) {
  ImportOptions options = asWritten;
  options.pending = &pending_;
  importPart(tree_.dir, path, content, options, nullptr);
}

void Applying::set(Difference const& d) {
  Entity::Ptr const e = owner(d);
  PathStep const& step = d.path.steps.back();
  GenericIf::Ptr const gif = gifOf(*e);
  if (d.kind == DifferenceKind::deleted)
    gif->attributeDel(step.attr->id(), step.key);
  else
    gif->attributeIs(step.attr->id(), step.key, valueFromJson(*step.attr->type(), d.after, ValueRule::asWritten));
}

void Applying::point(Difference const& d) {
  Entity::Ptr const e = owner(d);
  PathStep const& step = d.path.steps.back();
  GenericIf::Ptr const gif = gifOf(*e);
  GenericIf::PtrConst key = step.key, value;
  if (step.attr->keyIsPtr() && step.key) {
    std::string const text = step.keyText();
    Entity::Ptr const target = targetAt(tree_.dir, text);
    if (!target && !text.empty()) {
      if (d.kind != DifferenceKind::deleted) pending_.add({d.path, d.after, text, "there is no such entity"});
      return;
    }
    key = GenericIf::ofEntity(target);
  }
  // A key that has left the tree has no path either.
  bool const stray = step.attr->keyIsPtr() && step.key && !key && !hasMember(*e, *step.attr, nullptr);
  if (d.kind == DifferenceKind::deleted && stray) return dropStrayKeys(d);
  if (d.kind == DifferenceKind::deleted) return gif->attributeDel(step.attr->id(), key);
  if (!step.attr->isPtr()) {
    value = valueFromJson(*step.attr->type(), d.after, ValueRule::asWritten);
  } else if (d.after.is_string()) {
    std::string const text = d.after.get<std::string>();
    Entity::Ptr const target = targetAt(tree_.dir, text);
    if (!target) pending_.add({d.path, d.after, text, "there is no such entity"});
    value = GenericIf::ofEntity(target);
  }
  gif->attributeIs(step.attr->id(), key, value);
}

// --- Queues ---

namespace {

struct Item {
  GenericIf::PtrConst index;
  Entity* entity = nullptr;
};
std::vector<Item> itemsOf(Entity const& owner, KelAttr const& attr) {
  std::vector<Item> items;
  eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    items.push_back({it.key(), it.target()});
    return true;
  });
  return items;
}

}  // namespace

// A queue takes new items at its end only: the items after the first change are taken out and appended anew, unless the
// change only removes items.
void Applying::arrange(Queue const& queue) {
  Place const place = locate(tree_.dir, queue.path);
  if (!place.there() || !place.attr) throw Error("'" + queue.path.text() + "' is not there");
  Entity& e = *place.entity;
  KelAttr const& attr = *place.attr;
  std::vector<Item> const items = itemsOf(e, attr);
  std::vector<bool> removed(items.size(), false);
  std::map<std::size_t, Json const*> added;
  for (Difference const* d : queue.runs) {
    for (std::size_t i = 0; i < d->before.size(); ++i) {
      if (d->run->from + i >= items.size()) throw Error("'" + queue.path.text() + "' is shorter than it was");
      removed[d->run->from + i] = true;
    }
    for (std::size_t i = 0; i < d->after.size(); ++i) added[d->run->to + i] = &d->after[i];
  }
  GenericIf::Ptr const gif = gifOf(e);
  // The queue after the change: items that stay, and new contents.
  struct Next {
    std::size_t stays;
    Json const* content;
  };
  std::vector<Next> next;
  for (std::size_t i = 0;;) {
    if (auto const found = added.find(next.size()); found != added.end()) {
      next.push_back({0, found->second});
    } else {
      while (i < items.size() && removed[i]) ++i;
      if (i == items.size()) break;
      next.push_back({i++, nullptr});
    }
  }
  // How many items keep their places: those up to the first new one that has another item after it.
  std::size_t head = 0;
  while (head < next.size() && !next[head].content) ++head;
  std::size_t const kept = head == 0 ? 0 : next[head - 1].stays + 1;  // before it, only removed items are taken out
  bool const onlyAppends = std::all_of(next.begin() + static_cast<std::ptrdiff_t>(head), next.end(),
                                       [](Next const& n) { return n.content != nullptr; });
  std::vector<Json> moved(next.size());
  if (!onlyAppends)
    for (std::size_t n = head; n < next.size(); ++n)
      if (!next[n].content)
        moved[n] =
            attr.instantiating()
                ? exportEntity(*items[next[n].stays].entity, *tree_.dir)
                : exportValue(attr.access().get(attr, &e, items[next[n].stays].index.ptr(), true).ptr(), *tree_.dir);
  std::vector<std::optional<std::size_t>> positions(items.size());
  for (std::size_t n = 0; n < next.size(); ++n)
    if (!next[n].content) positions[next[n].stays] = n;
  for (std::size_t i = items.size(); i-- > 0;)
    if (removed[i] || (!onlyAppends && i >= kept)) gif->attributeDel(attr.id(), items[i].index);
  for (std::size_t n = head; n < next.size(); ++n) {
    Json const& content = next[n].content ? *next[n].content : moved[n];
    if (!attr.instantiating()) {
      gif->attributeSQEnq(attr.id(), valueFromJson(*attr.type(), content, ValueRule::asWritten));
      continue;
    }
    GenericIf::List::Ptr const params(new GenericIf::List);
    for (KelAttr const* param : furtherParams(*attr.type())) {
      auto const given = content.find(param->name().str());
      params->objectEnq(given == content.end() || param->isPtr()
                            ? GenericIf::PtrConst(param->isPtr() ? nullptr : param->type()->valueOps().initial())
                            : GenericIf::PtrConst(valueFromJson(*param->type(), *given, ValueRule::asWritten)));
    }
    gif->attributeSQEnq(attr.id(),
                        params->size() > 0 ? GenericIf::PtrConst(GenericIf::List::genericIf(params)) : nullptr);
    create(queue.path.parent() / queueStep(attr, n), content);
  }
  if (attr.instantiating()) followItems(queue, positions);
}

// Adapts the paths of what was in an item to the item that was made in its place.
void Applying::followItems(Queue const& queue, std::vector<std::optional<std::size_t>> const& positions) {
  std::string const prefix = queue.path.text() + "/";
  for (auto& [entity, leaving] : leaving_) {
    std::string& path = leaving.path;
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    std::size_t const end = std::min(path.find_first_not_of("0123456789", prefix.size()), path.size());
    if (end == prefix.size()) continue;
    std::size_t const position = std::stoul(path.substr(prefix.size(), end - prefix.size()));
    if (position < positions.size() && positions[position])
      path = prefix + std::to_string(*positions[position]) + path.substr(end);
    else
      path.clear();
  }
}

// --- Pointers that lost their targets ---

namespace {

// The pointers below an entity: `visit` gets the owner and the attribute.
template <class Visit>
void eachPointerOwner(Entity& top, Visit const& visit) {
  std::vector<Entity*> open{&top};
  while (!open.empty()) {
    Entity& e = *open.back();
    open.pop_back();
    for (KelAttr const* attr : e.type()->ptrAttrs())
      if (attr->copiable()) visit(e, *attr);
    if (!asDir(&e) && !e.type()->pointersBelow()) continue;
    eachOwned(e, [&](Entity const& child) { open.push_back(const_cast<Entity*>(&child)); });
  }
}

}  // namespace

// Sets the pointers to entities that were made anew under their old paths.
void Applying::repoint() {
  bool any = false;
  for (auto const& [e, leaving] : leaving_) any |= e->root() != tree_.dir->root() && e->refs() > 1;
  if (!any) return;
  auto const successor = [&](Entity const* target) -> Entity::Ptr {
    auto const found = leaving_.find(target);
    if (found == leaving_.end() || target->root() == tree_.dir->root()) return nullptr;
    return targetAt(tree_.dir, found->second.path);
  };
  for (std::string const& path : outerRoots(*tree_.roots)) {
    Entity* const root = rootAt(tree_, path);
    if (!root) continue;
    eachPointerOwner(*root, [&](Entity& e, KelAttr const& attr) {
      GenericIf::Ptr const gif = gifOf(e);
      if (!attr.isCollection()) {
        if (auto const next = successor(attr.access().target(e)))
          gif->attributeIs(attr.id(), nullptr, GenericIf::ofEntity(next));
        return;
      }
      std::vector<std::pair<GenericIf::PtrConst, Entity::Ptr>> values;
      std::vector<std::tuple<GenericIf::PtrConst, Entity::Ptr, GenericIf::PtrConst>> keys;
      eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
        auto const value = attr.isPtr() ? successor(it.target()) : nullptr;
        auto const key = attr.keyIsPtr() ? successor(it.keyTarget()) : nullptr;
        if (key)
          keys.emplace_back(it.key(), key, value ? GenericIf::ofEntity(value) : it.obj(false));
        else if (value)
          values.emplace_back(it.key(), value);
        return true;
      });
      for (auto const& [key, next] : values) gif->attributeIs(attr.id(), key, GenericIf::ofEntity(next));
      for (auto const& [key, next, value] : keys) {
        gif->attributeDel(attr.id(), key);
        gif->attributeIs(attr.id(), GenericIf::ofEntity(next), value);
      }
    });
  }
}

std::vector<Path> Applying::dangling() const {
  std::vector<Path> places;
  for (PendingReference const& reference : pending_.list()) places.push_back(reference.place);
  return places;
}

// --- Taking back ---

bool Applying::takeBack() noexcept {
  constexpr int rounds = 4;  // what fails once may not fail again
  for (int round = 0; round < rounds; ++round)
    if (backOnce()) return true;
  return false;
}

bool Applying::step(void (Applying::*what)(Difference const&), Difference const& d) noexcept {
  try {
    (this->*what)(d);
    return true;
  } catch (...) {
    return false;
  }
}

bool Applying::backOnce() noexcept {
  bool ok = true;
  try {
    pending_.clear();
  } catch (...) {
    ok = false;
  }
  // Paths in `inverse_` count items of queues after the change, but queues are restored as a whole.
  auto const each = [&](auto const& concerns, void (Applying::*what)(Difference const&)) {
    for (std::size_t i = 0; i < differences_.size(); ++i) {
      Difference const& d = inverse_[i];
      if (!d.run && concerns(d) && !isSaved(d.path)) ok &= step(what, d);
    }
  };
  each([&](Difference const& d) { return goesWithItsKey(d); }, &Applying::point);
  each([&](Difference const& d) { return d.isEntity(); }, &Applying::backEntity);
  each([&](Difference const& d) { return !d.isEntity() && !isReference(d); }, &Applying::backValue);
  for (SavedQueue const& queue : saved_) {
    try {
      backQueue(queue);
    } catch (...) {
      ok = false;
    }
  }
  each([&](Difference const& d) { return !d.isEntity() && isReference(d); }, &Applying::point);
  for (Difference const& d : pointers_) ok &= step(&Applying::point, d);
  for (Difference const& d : pointers_) ok &= !d.attr->keyIsPtr() || step(&Applying::dropStrayKeys, d);
  try {
    pending_.retry(tree_.dir);
  } catch (...) {
    ok = false;
  }
  return ok;
}

// Deletes members whose keys have left the tree. They have been set anew under the entities made in their place.
void Applying::dropStrayKeys(Difference const& d) {
  Entity::Ptr const e = owner(d);
  std::vector<GenericIf::PtrConst> stray;
  eachMember(*e, *d.attr, [&](Kel::AttrIterator const& it, std::size_t) {
    if (it.keyTarget() && it.keyTarget()->root() != tree_.dir->root()) stray.push_back(it.key());
    return true;
  });
  for (GenericIf::PtrConst const& key : stray) gifOf(*e)->attributeDel(d.attr->id(), key);
}

void Applying::backEntity(Difference const& d) {
  Entity::Ptr const now = entityAt(tree_.dir, d.path);
  bool const wanted = d.kind != DifferenceKind::deleted;
  if (!now && !wanted) return;
  if (now && wanted && exportEntity(*now, *tree_.dir) == d.after) return;
  if (now) remove(d);
  if (wanted) create(d.path, d.after);
}

void Applying::backValue(Difference const& d) {
  Entity::Ptr const e = owner(d);
  PathStep const& step = d.path.steps.back();
  if (!step.key) {
    if (exportValue(valueOfAttr(*e, *step.attr).ptr(), *tree_.dir) == d.after) return;
  } else if (GenericIf::PtrConst const now = step.attr->access().get(*step.attr, e.ptr(), step.key.ptr(), true)) {
    if (d.kind != DifferenceKind::deleted && exportValue(now.ptr(), *tree_.dir) == d.after) return;
  } else if (d.kind == DifferenceKind::deleted) {
    return;
  }
  set(d);
}

void Applying::backQueue(SavedQueue const& queue) {
  Place const place = locate(tree_.dir, queue.path);
  if (!place.there() || !place.attr) throw Error("'" + queue.path.text() + "' is not there");
  if (exportAttribute(*place.entity, *place.attr, *tree_.dir) == queue.content) return;
  create(queue.path, queue.content);
}

std::vector<Path> carryOut(std::vector<Difference> const& differences, Tree const& tree) {
  Applying applying(differences, tree);
  try {
    applying.write();
  } catch (...) {
    applying.takeBack();
    throw;
  }
  return applying.dangling();
}

}  // namespace Cli::Service
