#include "CliSession/Tree.h"

#include <algorithm>
#include <sstream>

#include "Kel/AttrAccess.h"

namespace Tests {

namespace {

using Gif = Kel::GenericIf::Ptr;
using GifConst = Kel::GenericIf::PtrConst;

Gif gifOf(Kel::Entity const& e) { return Kel::GenericIf::ofEntity(EntityPtr(const_cast<Kel::Entity*>(&e))); }

// The full name, with positions for the indices of queues: these differ between equal trees.
std::string nameByPosition(Kel::Entity const& e) {
  Kel::KelAttr const* const attr = e.parentAttr();
  std::string const name(e.fullName().view());
  if (!e.parent()) return name;
  std::string const last = name.substr(e.parent()->fullName().chars());
  std::string const up = nameByPosition(*e.parent());
  if (!attr || !attr->isQueue()) return up + last;
  std::size_t position = 0;
  for (auto it = gifOf(*e.parent())->attributeIterator(attr->id()); it && it.obj()->entityConst().ptr() != &e; ++it)
    ++position;
  return up + "." + attr->name().str() + "/" + std::to_string(position);
}

std::string relative(Kel::Entity const& e, Scope const& scope) {
  for (Kel::Entity const* root : scope.roots)
    if (isWithin(e, *root)) return nameByPosition(e).substr(scope.top.fullName().chars());
  // The name of an entity that has left its tree depends on whether its former owner is still there.
  std::string const name = e.fullName().str();
  return name.starts_with('/') ? "outside:" + name : "gone";
}

std::string textOf(GifConst const& value, Scope const& scope) {
  if (!value) return "null";
  if (value->entityConst()) return "@" + relative(*value->entityConst(), scope);
  return std::string(value->strep().view());
}

struct Member {
  GifConst key, value;
};

std::vector<Member> membersOf(Kel::Entity const& e, Kel::KelAttr const& attr) {
  std::vector<Member> members;
  for (auto it = gifOf(e)->attributeIterator(attr.id()); it; ++it) members.push_back({it.key(), it.obj()});
  return members;
}

// The constructor parameters of an owned entity, a queue's index left out.
std::string paramsOf(Kel::KelAttr const& attr, Kel::Entity const& e) {
  std::string text;
  for (unsigned int n = attr.isQueue() ? 1 : 0; Kel::KelArg const* arg = attr.constraint().argPtr(n); ++n)
    text += textOf(gifOf(e)->attribute(gifOf(e)->attributeId(arg->name)), Scope{e, {}}) + " ";
  return text;
}

Kel::Dir const* dirOf(Kel::Entity const& e) { return dynamic_cast<Kel::Dir const*>(&e); }

}  // namespace

bool isWithin(Kel::Entity const& e, Kel::Entity const& root) {
  for (Kel::Entity const* at = &e; at; at = at->parent())
    if (at == &root) return true;
  return false;
}

std::vector<Kel::Entity*> entitiesOf(Kel::Entity& root) {
  std::vector<Kel::Entity*> all{&root};
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (Kel::Dir const* dir = dirOf(*all[i])) {
      for (auto it = dir->entryStateIteratorConst(); it; ++it)
        if (EntityPtrConst const child = it->entityPtr()) all.push_back(const_cast<Kel::Entity*>(child.ptr()));
      continue;
    }
    for (Kel::KelAttr const* attr : all[i]->type()->attributeQ()) {
      if (!attr->instantiating()) continue;
      if (attr->isCollection()) {
        for (Member const& m : membersOf(*all[i], *attr)) all.push_back(m.value->entity().ptr());
      } else if (Gif const child = gifOf(*all[i])->attribute(attr->id())) {
        all.push_back(child->entity().ptr());
      }
    }
  }
  return all;
}

namespace {

// `path` names a queue's member by its position: its index differs between equal trees.
std::string dumpAt(Kel::Entity const& e, Scope const& scope, std::string const& path) {
  std::string text;
  if (Kel::Dir const* dir = dirOf(e)) {
    for (auto it = dir->entryStateIteratorConst(); it; ++it) {
      std::string const at = path + "/" + std::string(it->name().view());
      text += at + " " + std::string(it->entityTypeName().view()) + (it->entityPtr() ? "\n" : " to come\n");
      if (EntityPtrConst const child = it->entityPtr()) text += dumpAt(*child, scope, at);
    }
    return text;
  }
  for (Kel::KelAttr const* attr : e.type()->attributeQ()) {
    if (!attr->copiable()) continue;
    std::string const line = path + "." + std::string(attr->name().view());
    auto const shown = [&](std::string const& at, GifConst const& value) {
      if (!attr->instantiating() || !value) return at + " = " + textOf(value, scope) + "\n";
      Kel::Entity const& child = *value->entityConst();
      return at + " {" + paramsOf(*attr, child) + "}\n" + dumpAt(child, scope, at);
    };
    if (!attr->isCollection()) {
      text += shown(line, gifOf(e)->attribute(attr->id()));
      continue;
    }
    std::vector<std::string> lines;
    for (Member const& m : membersOf(e, *attr))
      lines.push_back(
          shown(line + "[" + (attr->isQueue() ? std::to_string(lines.size()) : textOf(m.key, scope)) + "]", m.value));
    if (!attr->isQueue()) std::sort(lines.begin(), lines.end());
    for (std::string const& l : lines) text += l;
  }
  return text;
}

}  // namespace

std::string dump(Kel::Entity const& e, Scope const& scope) { return dumpAt(e, scope, relative(e, scope)); }
std::string dump(Scope const& scope) {
  std::string text;
  for (Kel::Entity const* root : scope.roots) text += dump(*root, scope);
  return text;
}

// --- Comparison ---

namespace {

class Comparison {
 public:
  Comparison(Scope const& destScope, Scope const& srcScope, LeftOut const& leftOut)
      : destScope_(destScope), srcScope_(srcScope), leftOut_(leftOut) {}
  Edits edits;

  // `at` is the path of the destination's entity; a destination that is not there yet is one that was just made.
  void entity(Kel::Entity const& dest, Kel::Entity const& src, std::string const& at) {
    if (dirOf(dest) && dirOf(src)) return directory(*dirOf(dest), *dirOf(src), at);
    for (Kel::KelAttr const* attr : src.type()->attributeQ())
      if (attr->copiable()) attribute(dest, src, *attr, at);
  }
  void attribute(Kel::Entity const& dest, Kel::Entity const& src, Kel::KelAttr const& attr, std::string const& at) {
    if (attr.isQueue()) return queue(dest, src, attr, at);
    if (attr.isCollection()) return collection(dest, src, attr, at);
    if (attr.instantiating()) return singleton(dest, src, attr, at);
    GifConst const s = gifOf(src)->attribute(attr.id());
    if (textOf(gifOf(dest)->attribute(own(dest, attr).id()), destScope_) != textOf(s, srcScope_))
      edit(attr, dest, "set", at, s != nullptr);
  }

 private:
  // The destination's attribute of that name.
  static Kel::KelAttr const& own(Kel::Entity const& dest, Kel::KelAttr const& attr) {
    return *dest.type()->getAttr(attr.name());
  }
  // Answers whether it is made.
  bool edit(Kel::KelAttr const& attr, Kel::Entity const& owner, char const* kind, std::string const& at,
            bool valued = true) {
    return edit(owner.type()->fullTypeName().str() + "::" + attr.name().str() + " " + kind, at, valued);
  }
  bool edit(std::string const& what, std::string const& at, bool valued) {
    std::string const text = what + " " + (at.empty() ? at : at.substr(1));
    bool const leftOut = leftOut_.matches && leftOut_.matches(text, valued);
    if (!leftOut) ++edits[text];
    return !leftOut || !leftOut_.withheld;
  }

  // An entity with the constructor parameters of another and nothing else.
  static EntityPtr fresh(Kel::Entity const& like) {
    std::vector<GifConst> args;
    for (Kel::KelArg const& arg : like.type()->ctorArgs())
      args.push_back(gifOf(like)->attribute(gifOf(like)->attributeId(arg.name)));
    return like.type()->newEntity(args);
  }
  void made(Kel::Entity const& src, std::string const& at) { entity(*fresh(src), src, at); }

  // Entries are told apart by name and type; an entry and its entity are made by one edit each.
  void directory(Kel::Dir const& dest, Kel::Dir const& src, std::string const& at) {
    std::string const entry = "Kel::Dir::EntryState::entryState ";
    auto const sameIn = [](Kel::Dir const& in, Kel::Dir::EntryState const& e) {
      auto const other = in.entry(e.name());
      return other && other->entityTypeName() == e.entityTypeName() ? other : nullptr;
    };
    for (auto it = dest.entryStateIteratorConst(); it; ++it)
      if (!sameIn(src, *it)) edit(entry + "del", at, true);
    for (auto it = src.entryStateIteratorConst(); it; ++it) {
      std::string const below = at + "/" + it->name().str();
      auto const old = sameIn(dest, *it);
      EntityPtrConst const child = it->entityPtr();
      bool const there = old && old->entityPtr();
      if (!old) edit(entry + "set", at, true);
      if (!child) continue;
      if (there) entity(*old->entityPtr(), *child, below);
      if (!there && edit(entry + "set", at, true)) made(*child, below);
    }
  }

  void singleton(Kel::Entity const& dest, Kel::Entity const& src, Kel::KelAttr const& attr, std::string const& at) {
    GifConst const d = gifOf(dest)->attribute(own(dest, attr).id()), s = gifOf(src)->attribute(attr.id());
    std::string const below = at + "." + attr.name().str();
    if (d && s && paramsOf(attr, *d->entityConst()) == paramsOf(attr, *s->entityConst()))
      return entity(*d->entityConst(), *s->entityConst(), below);
    if (d) edit(attr, dest, "del", at);
    if (s && edit(attr, dest, "set", at)) made(*s->entityConst(), below);
  }

  std::string memberText(Kel::KelAttr const& attr, Member const& m, Scope const& scope) const {
    return attr.instantiating() ? paramsOf(attr, *m.value->entityConst()) : textOf(m.value, scope);
  }
  void collection(Kel::Entity const& dest, Kel::Entity const& src, Kel::KelAttr const& attr, std::string const& at) {
    std::map<std::string, Member> olds;
    for (Member const& m : membersOf(dest, own(dest, attr))) olds[textOf(m.key, destScope_)] = m;
    for (Member const& m : membersOf(src, attr)) {
      std::string const key = textOf(m.key, srcScope_);
      auto const old = olds.find(key);
      bool const there = old != olds.end();
      bool const same = there && memberText(attr, old->second, destScope_) == memberText(attr, m, srcScope_);
      std::string const below =
          at + "." + attr.name().str() + "/" + (attr.instantiating() ? m.value->entityConst()->name().str() : "");
      if (same && attr.instantiating()) entity(*old->second.value->entityConst(), *m.value->entityConst(), below);
      // A pointer whose target changes is one set, unless it was or becomes null.
      if (there && !same && !(attr.isPtr() && !old->second.value == !m.value))
        edit(attr, dest, "del", at, old->second.value != nullptr);
      if (!same && edit(attr, dest, "set", at, m.value != nullptr) && attr.instantiating())
        made(*m.value->entityConst(), below);
      if (there) olds.erase(old);
    }
    for (auto const& [key, old] : olds) edit(attr, dest, "del", at, old.value != nullptr);
  }

  // Members that match from the head on stay; the rest of the destination goes, the rest of the source is appended.
  void queue(Kel::Entity const& dest, Kel::Entity const& src, Kel::KelAttr const& attr, std::string const& at) {
    std::vector<Member> const olds = membersOf(dest, own(dest, attr)), news = membersOf(src, attr);
    std::size_t s = 0;
    Kel::U64 next = 0;
    for (Member const& old : olds) {
      std::string const index(old.key->text().view());
      next = std::stoull(index) + 1;
      if (s == news.size() || memberText(attr, old, destScope_) != memberText(attr, news[s], srcScope_)) {
        edit(attr, dest, "del", at);
        continue;
      }
      if (attr.instantiating())
        entity(*old.value->entityConst(), *news[s].value->entityConst(), at + "." + attr.name().str() + "/" + index);
      ++s;
    }
    for (; s < news.size(); ++s, ++next)
      if (edit(attr, dest, "set", at) && attr.instantiating())
        made(*news[s].value->entityConst(), at + "." + attr.name().str() + "/" + std::to_string(next));
  }

  Scope const &destScope_, &srcScope_;
  LeftOut const& leftOut_;
};

std::string placeIn(Kel::Entity const& e, Scope const& scope) {
  return e.fullName().str().substr(scope.top.fullName().chars());
}

}  // namespace

Edits editsBetween(Kel::Entity const& dest, Scope const& destScope, Kel::Entity const& src, Scope const& srcScope,
                   LeftOut const& leftOut) {
  Comparison comparison(destScope, srcScope, leftOut);
  comparison.entity(dest, src, placeIn(dest, destScope));
  return comparison.edits;
}

Edits editsBetween(Kel::Entity const& dest, Scope const& destScope, Kel::Entity const& src, Scope const& srcScope,
                   Kel::KelAttr const& attr) {
  LeftOut const nothing;
  Comparison comparison(destScope, srcScope, nothing);
  comparison.attribute(dest, src, attr, placeIn(dest, destScope));
  return comparison.edits;
}

// --- Random content ---

namespace {

// A model's builtin from a small number; few different ones, so that trees have something in common.
std::string builtinText(Kel::KelType const& type, std::size_t n) {
  using B = Kel::KelType::Builtin;
  static char const* const strings[] = {"one", "two", "et/1.2", "a.b", "10.0.0.1/31", "sq'uo\\te"};
  switch (type.builtin()) {
    case B::boolT: return n % 2 ? "true" : "false";
    case B::charT: return std::string(1, static_cast<char>('a' + n));
    case B::string: return strings[n % 6];
    case B::f32:
    case B::f64: return std::to_string(static_cast<double>(n) / 4 - 0.25);
    case B::s8:
    case B::s16:
    case B::s32:
    case B::s64: return std::to_string(static_cast<int>(n) - 2);
    default: return std::to_string(n);
  }
}

}  // namespace

GifConst Generator::value(Kel::KelType const& type, std::size_t spread) {
  bool const floating = type.builtin() == Kel::KelType::Builtin::f32 || type.builtin() == Kel::KelType::Builtin::f64;
  if (floating && nans && below(nans) == 0) return type.genericFromText("nan");
  if (type.isBuiltin()) return type.genericFromText(builtinText(type, below(spread)));
  if (type.isEnum()) return Kel::GenericIf::ofEnum(&type, type.enumerators()[below(type.enumerators().size())].value);
  if (Kel::KelAttr const* rep = type.valAttr())
    return type.genericFromText(value(*rep->type(), spread)->strep().view());
  std::string text = "Value('" + std::string(type.fullTypeName().view()) + "', ** {";
  char const* separator = "";
  for (Kel::KelAttr const* field : type.attributeQ()) {
    if (!field->isValue()) continue;
    text += separator + ("'" + std::string(field->name().view())) + "': ";
    text += value(*field->type(), spread)->strep().view();
    separator = ", ";
  }
  return type.genericFromText(text + "})");
}

GifConst Generator::target(Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets) {
  Kel::KelType const* const wanted = attr.keyIsPtr() && !attr.isPtr() ? attr.keyType() : attr.type();
  for (int tries = 0; !targets.empty() && tries < 8; ++tries) {
    Kel::Entity* const found = targets[below(targets.size())];
    if (found->type()->isA(wanted)) return Kel::GenericIf::ofEntity(EntityPtr(found));
  }
  return nullptr;
}

Gif Generator::params(Kel::KelAttr const& attr, GifConst const& key) {
  Kel::Ptr<Kel::GenericIf::List> const list(new Kel::GenericIf::List);
  if (key) list->objectEnq(key);
  for (unsigned int n = key || attr.isQueue() ? 1 : 0; Kel::KelArg const* arg = attr.constraint().argPtr(n); ++n)
    list->objectEnq(arg->pointer ? nullptr : value(*arg->type(), 3));
  return Kel::GenericIf::List::genericIf(list);
}

GifConst Generator::newKey(Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets) {
  return attr.keyIsPtr() ? target(attr, targets) : value(*attr.keyType(), 4);
}

void Generator::addMember(Kel::Entity& e, Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets,
                          int depth) {
  Gif const gif = gifOf(e);
  if (attr.isQueue()) {
    gif->attributeSQEnq(attr.id(), attr.instantiating() ? GifConst(params(attr, nullptr)) : value(*attr.type(), 4));
    if (!attr.instantiating()) return;
    auto it = gif->attributeIterator(attr.id());
    for (Kel::U32 n = 1; n < gif->attributeCount(attr.id()); ++n) ++it;
    return fill(*it.obj()->entity(), depth - 1);
  }
  if (attr.isValue() && !attr.keyIsPtr() && !attr.type()->isBuiltin() && attr.type()->findAttr("id")) {
    GifConst const member = value(*attr.type(), 4);
    return gif->attributeIs(attr.id(), member->attribute(member->attributeId("id")), member);
  }
  GifConst const key = newKey(attr, targets);
  if (!key) return;
  if (attr.instantiating()) {
    gif->attributeIs(attr.id(), key, params(attr, key));
    return fill(*gif->attribute(attr.id(), key)->entity(), depth - 1);
  }
  gif->attributeIs(attr.id(), key, attr.isPtr() ? target(attr, targets) : value(*attr.type(), 4));
}

void Generator::setSingle(Kel::Entity& e, Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets,
                          int depth) {
  Gif const gif = gifOf(e);
  if (attr.isPtr()) return gif->attributeIs(attr.id(), nullptr, target(attr, targets));
  if (!attr.instantiating()) return gif->attributeIs(attr.id(), nullptr, value(*attr.type(), 4));
  gif->attributeIs(attr.id(), nullptr, params(attr, nullptr));
  fill(*gif->attribute(attr.id())->entity(), depth - 1);
}

void Generator::addEntry(Kel::Dir& dir, int depth) {
  static char const* const names[] = {"a", "b", "c.d", "e/f"};
  static char const* const types[] = {"Kel::Dir", "Plant::Bolt", "Plant::Machine"};
  Kel::Name const name = names[below(4)];
  Kel::String8 const type = types[below(3)];
  if (dir.entry(name)) return;
  if (below(6) == 0)
    dir.newEntryState(name, type);  // its entity is to come
  else
    fill(*dir.newEntity(type, name), depth - 1);
}

void Generator::fillDir(Kel::Dir& dir, int depth) {
  for (std::size_t n = below(4); n > 0 && depth > 0; --n) addEntry(dir, depth);
}

void Generator::fill(Kel::Entity& e, int depth) {
  if (auto* dir = dynamic_cast<Kel::Dir*>(&e)) return fillDir(*dir, depth);
  for (Kel::KelAttr const* attr : e.type()->attributeQ()) {
    bool const pointers = attr->isPtr() || attr->keyIsPtr();
    if (!attr->copiable() || pointers || (attr->instantiating() && depth <= 0)) continue;
    if (!attr->isCollection()) {
      if (below(3) > 0) setSingle(e, *attr, {}, depth);
      continue;
    }
    for (std::size_t n = below(4); n > 0; --n) addMember(e, *attr, {}, depth);
  }
}

void Generator::point(Kel::Entity& root, std::vector<Kel::Entity*> const& targets) {
  for (Kel::Entity* e : entitiesOf(root)) {
    if (dirOf(*e)) continue;
    for (Kel::KelAttr const* attr : e->type()->attributeQ()) {
      if (!attr->copiable() || !(attr->isPtr() || attr->keyIsPtr())) continue;
      if (!attr->isCollection()) {
        if (below(2)) setSingle(*e, *attr, targets, 0);
        continue;
      }
      for (std::size_t n = below(3); n > 0; --n) addMember(*e, *attr, targets, 0);
    }
  }
}

void Generator::mutate(Kel::Entity& root, std::vector<Kel::Entity*> const& targets) {
  std::vector<Kel::Entity*> const all = entitiesOf(root);
  Kel::Entity& e = *all[below(all.size())];
  if (auto* dir = dynamic_cast<Kel::Dir*>(&e)) {
    auto const first = dir->entryStateIterator();
    if (!first || below(2)) return addEntry(*dir, 1);
    EntityPtr const moved = first->entityPtr();
    dir->entryDel(Kel::Name(first->name()));
    auto* const to = dynamic_cast<Kel::Dir*>(all[below(all.size())]);
    if (moved && to && to->root() == root.root() && !to->entry(moved->name())) to->entryIs(moved);
    return;
  }
  std::vector<Kel::KelAttr const*> attrs;
  for (Kel::KelAttr const* attr : e.type()->attributeQ())
    if (attr->copiable()) attrs.push_back(attr);
  if (attrs.empty()) return;
  Kel::KelAttr const& attr = *attrs[below(attrs.size())];
  Gif const gif = gifOf(e);
  if (!attr.isCollection()) {
    if (below(4) == 0) return gif->attributeDel(attr.id());
    return setSingle(e, attr, targets, 1);
  }
  std::vector<Member> const members = membersOf(e, attr);
  if (members.empty() || below(2)) return addMember(e, attr, targets, 1);
  if (attr.isQueue() && below(2)) return gif->attributeSQDeq(attr.id());
  GifConst const key = members[below(members.size())].key;
  gif->attributeDel(attr.id(), key);
  if (!attr.instantiating() || attr.isQueue() || below(2)) return;
  gif->attributeIs(attr.id(), key, params(attr, key));  // it comes back, perhaps made otherwise
  fill(*gif->attribute(attr.id(), key)->entity(), 0);
}

void erase(Kel::Entity& e) {
  EntityPtr const owner(e.parent()), held(&e);
  if (!owner) return;
  if (auto* in = dynamic_cast<Kel::Dir*>(owner.ptr())) return in->entryDel(Kel::Name(e.name()));
  Kel::KelAttr const& attr = *e.parentAttr();
  if (!attr.isCollection()) return gifOf(*owner)->attributeDel(attr.id());
  for (Member const& m : membersOf(*owner, attr))
    if (m.value->entityConst().ptr() == &e) return gifOf(*owner)->attributeDel(attr.id(), m.key);
}

void dropOrphans(Kel::Entity& root) {
  auto const orphan = [&](GifConst const& object) {
    return object && object->entityConst() && object->entityConst()->root() != root.root();
  };
  for (Kel::Entity* e : entitiesOf(root)) {
    Gif const gif = gifOf(*e);
    for (Kel::KelAttr const* attr : e->type()->attributeQ()) {
      if (!attr->copiable() || !(attr->isPtr() || attr->keyIsPtr())) continue;
      if (!attr->isCollection()) {
        if (orphan(gif->attribute(attr->id()))) gif->attributeDel(attr->id());
        continue;
      }
      for (Member const& m : membersOf(*e, *attr))
        if (orphan(m.key) || orphan(m.value)) gif->attributeDel(attr->id(), m.key);
    }
  }
}

std::vector<std::string> pointersInto(Kel::Entity& root, Kel::Entity const& other) {
  std::vector<std::string> found;
  for (Kel::Entity* e : entitiesOf(root)) {
    for (Kel::KelAttr const* attr : e->type()->attributeQ()) {
      auto const look = [&](GifConst const& object) {
        EntityPtrConst const target = object ? object->entityConst() : nullptr;
        if (!target || !isWithin(*target, other)) return;
        std::ostringstream line;
        line << EntityPtrConst(e) << " " << attr->name() << " -> " << target;
        found.push_back(line.str());
      };
      if (!(attr->isPtr() || attr->keyIsPtr())) continue;
      if (!attr->isCollection()) look(gifOf(*e)->attribute(attr->id()));
      if (attr->isCollection()) {
        for (Member const& m : membersOf(*e, *attr)) {
          if (attr->keyIsPtr()) look(m.key);
          if (attr->isPtr()) look(m.value);
        }
      }
    }
  }
  return found;
}

}  // namespace Tests
