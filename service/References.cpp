#include "service/References.h"

#include <algorithm>
#include <unordered_map>

#include "service/Commands.h"
#include "service/JsonTree.h"
#include "service/Undo.h"
#include "service/WordReader.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;

namespace {

void referencesOf(Kel::Entity& e, bool nulls, std::function<void(Reference const&)> const& visit) {
  for (KelAttr const* attr : e.type()->ptrAttrs()) {
    if (attr->isFunction() || !(attr->logging() || attr->ctorParam())) continue;
    if (!attr->isCollection()) {
      if (Kel::Entity* const target = singleTarget(e, *attr)) visit({&e, attr, nullptr, 0, false, target});
      continue;
    }
    eachMember(e, *attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      // A pointer under a pointer comes before its key: it is found under the key that it has.
      if (attr->isPtr() && (it.target() || nulls)) visit({&e, attr, it.key(), position, false, it.target()});
      if (attr->keyIsPtr() && (it.keyTarget() || nulls)) visit({&e, attr, it.key(), position, true, it.keyTarget()});
      return true;
    });
  }
}

}  // namespace

void eachReference(Kel::Entity& top, std::function<void(Reference const&)> const& visit, bool nulls) {
  std::vector<Kel::Entity*> open{&top};
  while (!open.empty()) {
    Kel::Entity& e = *open.back();
    open.pop_back();
    if (!e.type()->pointersBelow()) continue;
    if (!asDir(&e)) referencesOf(e, nulls, visit);
    auto const note = [&](Kel::Entity const& child) {
      if (child.type()->pointersBelow()) open.push_back(const_cast<Kel::Entity*>(&child));
    };
    if (asDir(&e)) {
      eachOwned(e, note);
      continue;
    }
    for (KelAttr const* attr : e.type()->ownAttrs()) {
      if (!attr->type()->pointersBelow() && !attr->type()->hasDerived()) continue;
      attr->access().eachChild(
          e, [](Kel::Entity* child, void* context) { (*static_cast<decltype(note)*>(context))(*child); },
          const_cast<void*>(static_cast<void const*>(&note)));
    }
  }
}

std::optional<Path> placeOf(Reference const& reference, Kel::Entity const& base) {
  auto owner = pathOf(*reference.owner, base);
  if (!owner) return std::nullopt;
  KelAttr const& attr = *reference.attr;
  if (!attr.isCollection()) return *owner / attributeStep(attr);
  if (attr.isQueue()) return *owner / queueStep(attr, reference.position);
  if (!attr.keyIsPtr()) return *owner / memberStep(attr, reference.key);
  std::string const text = reference.key ? targetText(*reference.key->entityConst(), base) : std::string();
  return *owner / memberStep(attr, GenericIf::of(Kel::String8(text)));
}

// --- Setting ---

namespace {

std::string wrongType(Kel::Entity const& target, Kel::KelType const& wanted) {
  return "'" + target.name().str() + "' is " + withArticle(*target.type()) + ", not " + withArticle(wanted);
}

constexpr char const* noEntity = "there is no such entity";

}  // namespace

std::string setReference(Kel::Dir::Ptr const& base, PendingReference const& reference) {
  PathStep const& step = reference.place.steps.back();
  KelAttr const& attr = *step.attr;
  Kel::Entity::Ptr const owner = entityAt(base, reference.place.parent());
  if (!owner) return "its owner is gone";
  GenericIf::PtrConst key = step.key;
  GenericIf::Ptr value;
  if (attr.keyIsPtr()) {
    Kel::Entity::Ptr const target = targetAt(base, step.keyText());
    if (!target && !step.keyText().empty()) return noEntity;
    if (target && !target->type()->isA(attr.keyType())) return wrongType(*target, *attr.keyType());
    key = GenericIf::ofEntity(target);
    if (!attr.isPtr()) value = valueFromJson(*attr.type(), reference.value, ValueRule::asWritten);
  }
  if (attr.isPtr() && reference.value.is_string()) {
    Kel::Entity::Ptr const target = targetAt(base, reference.value.get<std::string>());
    if (!target) return noEntity;
    if (!target->type()->isA(attr.type())) return wrongType(*target, *attr.type());
    value = GenericIf::ofEntity(target);
  }
  try {
    gifOf(*owner)->attributeIs(attr.id(), key, value);
  } catch (Kel::Exception const& e) {
    return e.what();
  }
  return {};
}

std::string setToAny(Kel::Dir::Ptr const& base, PendingReference const& reference) {
  std::string reason = setReference(base, reference);
  if (reason.empty()) return {};
  for (std::string const& text : reference.others) {
    PendingReference other = reference;
    other.value = other.target = text;
    if (setReference(base, other).empty()) return {};
  }
  return reason;
}

void clearReference(Kel::Dir::Ptr const& base, PendingReference const& reference) {
  PathStep const& step = reference.place.steps.back();
  Kel::Entity::Ptr const owner = entityAt(base, reference.place.parent());
  if (!owner || step.attr->keyIsPtr()) return;
  GenericIf::Ptr const gif = gifOf(*owner);
  if (!step.attr->isCollection()) return gif->attributeDel(step.attr->id());
  try {
    gif->attributeIs(step.attr->id(), step.key, nullptr);
  } catch (Kel::RangeException const&) {
    gif->attributeDel(step.attr->id(), step.key);  // null may not be a member here
  }
}

Json contentOf(PendingReference const& reference) {
  if (reference.others.empty()) return reference.value;
  Json texts = Json::array({reference.value});
  for (std::string const& text : reference.others) texts.push_back(text);
  return texts;
}

void noteBefore(Undo& undo, Kel::Dir::Ptr const& base, PendingReference const& reference) {
  PathStep const& step = reference.place.steps.back();
  Kel::Entity::Ptr const owner = entityAt(base, reference.place.parent());
  GenericIf::PtrConst key = step.key;
  if (step.attr->keyIsPtr()) key = GenericIf::ofEntity(targetAt(base, step.keyText()));
  if (owner) undo.note(*owner, *step.attr, key);
}

// --- Departures ---

void Departed::note(Kel::Entity& entity, std::optional<Path> now) {
  entities_.push_back({Kel::Entity::Ptr(&entity), std::move(now)});
}

std::vector<Path> Departed::repoint(Kel::Dir::Ptr const& base, PendingReferences* pending, Undo* undo) {
  std::unordered_map<Kel::Entity const*, std::optional<Path> const*> tops;
  for (Gone const& gone : entities_)
    if (!gone.entity->parent()) tops[gone.entity.ptr()] = &gone.now;
  std::vector<Path> lost;
  if (tops.empty()) return lost;
  struct Change {
    Reference reference;
    std::optional<Path> now;
  };
  std::vector<Change> changes;
  // Whether an entity has departed, and where its successor is.
  auto const isGone = [&](Kel::Entity const& e, std::optional<Path>& now) {
    auto const found = tops.find(e.root());
    auto const below = found == tops.end() ? std::nullopt : pathOf(e, *e.root());
    if (!below) return false;
    now = *found->second;
    if (now) now->steps.insert(now->steps.end(), below->steps.begin(), below->steps.end());
    return true;
  };
  eachReference(*base, [&](Reference const& reference) {
    std::optional<Path> now;
    if (isGone(*reference.target, now) && !reference.attr->ctorParam()) changes.push_back({reference, std::move(now)});
  });
  for (auto const& [reference, now] : changes) {
    GenericIf::Ptr const owner = gifOf(*reference.owner);
    KelAttr const& attr = *reference.attr;
    Kel::Entity::Ptr const target = now ? entityAt(base, *now) : nullptr;
    bool const fits = target && target->type()->isA(reference.isKey ? attr.keyType() : attr.type());
    auto const place = placeOf(reference, *base);
    if (fits && undo) undo->note(*reference.owner, attr, reference.key);
    if (fits && undo && reference.isKey) undo->note(*reference.owner, attr, GenericIf::ofEntity(target));
    if (fits && reference.isKey) {
      GenericIf::Ptr const value = owner->attribute(attr.id(), reference.key);
      GenericIf::Ptr const key = GenericIf::ofEntity(target);
      owner->attributeDel(attr.id(), reference.key);
      // A member that was set under the successor meanwhile stays.
      if (!hasMember(*reference.owner, attr, key.ptr())) owner->attributeIs(attr.id(), key, value);
    } else if (fits) {
      owner->attributeIs(attr.id(), reference.key, GenericIf::ofEntity(target));
    } else if (place) {
      PathStep last = place->steps.back();
      std::string const text = now ? now->text() : std::string();
      if (reference.isKey) last.key = GenericIf::of(Kel::String8(text));
      // A pointer under a pointer will stand under the successor of its key, unless another stands there.
      std::optional<Path> key;
      if (!reference.isKey && attr.keyIsPtr() && reference.key && isGone(*reference.key->entityConst(), key)) {
        Kel::Entity::Ptr const successor = key ? entityAt(base, *key) : nullptr;
        if (!successor || hasMember(*reference.owner, attr, GenericIf::ofEntity(successor).ptr())) continue;
        last.key = GenericIf::of(Kel::String8(key->text()));
      }
      Path const at = place->parent() / last;
      lost.push_back(at);
      if (!pending || !now) continue;
      GenericIf::Ptr const value = reference.isKey ? owner->attribute(attr.id(), reference.key) : nullptr;
      pending->add({at, reference.isKey ? exportValue(value.ptr(), *base) : Json(text), text, "it was deleted"});
    }
  }
  return lost;
}

// --- Pending ---

void PendingReferences::add(PendingReference reference) {
  if (auto node = list_.extract(reference)) {
    node.value() = std::move(reference);
    list_.insert(std::move(node));
  } else {
    list_.insert(std::move(reference));
  }
}

PendingReferences::Range PendingReferences::within(Path const& top) const {
  auto const [first, last] = list_.equal_range(top);
  return {first, last};
}

void PendingReferences::erase(Path const& top) {
  auto const [first, last] = list_.equal_range(top);
  list_.erase(first, last);
}

PendingReference const* PendingReferences::find(Path const& place) const {
  auto const found = within(place);
  return !found.empty() && found.first->place == place ? &*found.first : nullptr;
}

namespace {

// Removes the members of a collection whose pointer keys have left the tree.
void dropOrphanKeys(Kel::Entity& owner, KelAttr const& attr, Undo& undo) {
  std::vector<GenericIf::PtrConst> gone;
  eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    if (it.keyTarget() && it.keyTarget()->root() != owner.root()) gone.push_back(it.key());
    return true;
  });
  for (GenericIf::PtrConst const& key : gone) {
    undo.note(owner, attr, key);
    gifOf(owner)->attributeDel(attr.id(), key);
  }
}

}  // namespace

std::vector<Path> retry(PendingReferences& pending, Kel::Dir::Ptr const& base, Undo& undo) {
  std::vector<Path> revived;
  // Many references wait for the same target.
  std::unordered_map<std::string_view, bool> known;
  auto const isThere = [&](std::string const& text) {
    auto const [it, isNew] = known.try_emplace(text, false);
    if (isNew) it->second = targetAt(base, text) != nullptr;
    return it->second;
  };
  for (PendingReference const& reference : pending.list()) {
    if (!isThere(reference.target) && std::none_of(reference.others.begin(), reference.others.end(), isThere)) continue;
    Kel::Entity::Ptr const owner = entityAt(base, reference.place.parent());
    if (!owner) continue;
    noteBefore(undo, base, reference);
    if (!setToAny(base, reference).empty()) continue;
    KelAttr const& attr = *reference.place.steps.back().attr;
    if (attr.keyIsPtr()) dropOrphanKeys(*owner, attr, undo);
    revived.push_back(reference.place);
  }
  if (!revived.empty()) undo.notePending(pending);
  for (Path const& place : revived) pending.erase(place);
  return revived;
}

std::vector<Path> retryOwned(PendingReferences& pending, Kel::Dir::Ptr const& base, Undo& undo) {
  std::vector<Path> orphans;
  for (PendingReference const& reference : pending.list())
    if (!entityAt(base, reference.place.parent())) orphans.push_back(reference.place);
  if (!orphans.empty()) undo.notePending(pending);
  for (Path const& place : orphans) pending.erase(place);
  return retry(pending, base, undo);
}

std::vector<Path> PendingReferences::retry(Kel::Dir::Ptr const& base) {
  Undo undo;
  try {
    return retryOwned(*this, base, undo);
  } catch (...) {
    undo.takeBack();
    throw;
  }
}

namespace {

// The pointers into a part of the tree from outside. `isTop`: whether an entity is one of the outermost in it.
template <class IsTop>
std::vector<Path> referencesInto(Kel::Dir::Ptr const& base, IsTop const& isTop) {
  std::vector<Path> found;
  auto const isWithin = [&](Kel::Entity const* e) {
    while (e && !isTop(*e)) e = e->parent();
    return e != nullptr;
  };
  eachReference(*base, [&](Reference const& reference) {
    if (!isWithin(reference.target) || isWithin(reference.owner)) return;
    if (auto place = placeOf(reference, *base)) found.push_back(std::move(*place));
  });
  return found;
}

}  // namespace

std::vector<Path> referencesTo(Kel::Dir::Ptr const& base, Kel::Entity const& target) {
  return referencesInto(base, [&](Kel::Entity const& e) { return &e == &target; });
}

std::vector<Path> referencesTo(Kel::Dir::Ptr const& base, Path const& path) {
  Place const place = locate(base, path);
  if (!place.there()) return {};
  if (!place.attr) return referencesTo(base, *place.entity);
  return referencesInto(
      base, [&](Kel::Entity const& e) { return e.parent() == place.entity.ptr() && e.parentAttr() == place.attr; });
}

}  // namespace Cli::Service
