#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "service/JsonTree.h"
#include "service/Prototypes.h"
#include "service/References.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

// --- Defaults ---

Kel::Entity const* prototypeOf(KelType const& type) {
  static std::shared_mutex lock;
  static auto* const made = new std::unordered_map<KelType const*, Kel::Entity::Ptr>;  // never destroyed
  {
    std::shared_lock const guard(lock);
    if (auto const found = made->find(&type); found != made->end()) return found->second.ptr();
  }
  Kel::Entity::Ptr entity;
  try {
    entity = type.newDefault();
  } catch (Kel::Exception const&) {
    // The type cannot be made from defaults, so no content of it counts as default.
  }
  std::unique_lock const guard(lock);
  return made->emplace(&type, entity).first->second.ptr();
}

bool sameContent(Kel::Entity const& a, Kel::Entity const& b, KelAttr const& attr) {
  if (attr.access().equal(a, b)) return true;
  if (attr.isCollection() || attr.isPtr() || attr.plainBit()) return false;
  // The type has no comparison, or a value is NaN.
  GenericIf::PtrConst const x = valueOfAttr(a, attr), y = valueOfAttr(b, attr);
  return x && y && x->strep() == y->strep();
}

bool hasDefault(Kel::Entity const& owner, KelAttr const& attr) {
  if (attr.isCollection()) return attr.access().count(attr, owner) == 0;
  if (attr.isPtr() || attr.instantiating()) return !singleTarget(owner, attr);
  Kel::Entity const* const fresh = prototypeOf(*owner.type());
  return fresh && sameContent(owner, *fresh, attr);
}

// --- Export ---

namespace {

bool isPlainKey(Json const& key) { return key.is_string() || key.is_number_integer() || key.is_boolean(); }
std::string keyName(Json const& key) { return key.is_string() ? key.get<std::string>() : key.dump(); }

class Exporter {
 public:
  Exporter(Kel::Entity const& base, ExportOptions const& options) : base_(base), options_(options) {
    if (options.pending && options.pending->empty()) options_.pending = nullptr;
  }
  void startAt(Kel::Entity const& e) {
    if (!options_.pending) return;
    auto path = pathOf(e, base_);
    if (path) at_ = std::move(*path);
    if (!path) options_.pending = nullptr;
  }

  Json entity(Kel::Entity const& e) {
    if (Kel::Dir const* dir = asDir(&e)) return directory(*dir, false);
    Members members;
    KelAttr const* const holder = e.parent() && !asDir(e.parent()) ? e.parentAttr() : nullptr;
    if (!holder || holder->type() != e.type()) members.emplace_back("$type", e.type()->fullTypeName().str());
    bool const keyed = holder ? holder->isCollection() : e.parent() != nullptr;
    KelAttr const* const key = keyParam(*e.type());
    for (KelAttr const* attr : e.type()->attributeQ()) {
      if (attr->isFunction() || (keyed && attr == key)) continue;
      if (attr->ctorParam())
        members.emplace_back(attr->name().str(), exportValue(valueOfAttr(e, *attr).ptr(), base_));
      else if (!options_.references && (attr->isPtr() || attr->keyIsPtr()))
        continue;
      else if (attr->copiable() && (options_.defaults || !hasDefault(e, *attr) || isPending(*attr)))
        members.emplace_back(attr->name().str(), attribute(e, *attr));
    }
    return objectOf(std::move(members));
  }

  Json attribute(Kel::Entity const& e, KelAttr const& attr) {
    if (attr.isQueue()) return queue(e, attr);
    if (attr.isCollection()) return collection(e, attr);
    if (attr.instantiating()) {
      Kel::Entity const* const child = singleTarget(e, attr);
      return child ? below(attributeStep(attr), [&] { return entity(*child); }) : Json(nullptr);
    }
    Json value = exportValue(valueOfAttr(e, attr).ptr(), base_);
    if (attr.isPtr() && value.is_null())
      if (PendingReference const* waiting = pendingAt(attributeStep(attr))) return contentOf(*waiting);
    return value;
  }

 private:
  Json directory(Kel::Dir const& dir, bool withType) {
    Json json = Json::object();
    reserve(json, dir.entryStates() + 1);
    if (withType) json["$type"] = dir.type()->fullTypeName().str();
    for (auto it = dir.entryStateIteratorConst(); it; ++it) {
      std::string name = it->name().str();
      if (name.starts_with('$')) name = "$" + name;
      Kel::Entity::PtrConst const child = it->entityPtr();
      Kel::Dir const* const inner = asDir(child.ptr());
      if (child) {
        json[name] = below(entryStep(it->name()), [&] { return inner ? directory(*inner, true) : entity(*child); });
      } else {
        Json& absent = json[name] = Json::object();
        absent["$type"] = it->entityTypeName().str();
        absent["$absent"] = true;
      }
    }
    return json;
  }

  Json queue(Kel::Entity const& e, KelAttr const& attr) {
    Json items = Json::array();
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      items.push_back(below(queueStep(attr, position), [&] { return member(attr, it); }));
      return true;
    });
    return items;
  }

  Json member(KelAttr const& attr, Kel::AttrIterator const& it) {
    if (attr.instantiating()) return entity(*it.target());
    GenericIf::PtrConst const value = it.obj(true);
    Json json = exportValue(value.ptr(), base_);
    if (attr.isPtr() && json.is_null() && options_.pending)
      if (PendingReference const* waiting = options_.pending->find(at_)) return contentOf(*waiting);
    return json;
  }

  struct Entry {
    Json key, value;
  };
  Json collection(Kel::Entity const& e, KelAttr const& attr) {
    std::vector<Entry> entries;
    bool plain = true;
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      GenericIf::PtrConst const boxed = it.key();
      Json key = exportValue(boxed.ptr(), base_);
      plain = plain && isPlainKey(key);
      PathStep step = memberStep(attr, boxed);
      if (attr.keyIsPtr()) step.key = GenericIf::of(Kel::String8(key.is_string() ? key.get<std::string>() : ""));
      Json value = below(std::move(step), [&] { return member(attr, it); });
      entries.push_back({std::move(key), std::move(value)});
      return true;
    });
    addPending(attr, entries);
    Json json = plain ? Json::object() : Json::array();
    if (plain) reserve(json, entries.size());
    for (Entry& entry : entries) {
      if (plain) {
        json.get_ref<Json::object_t&>().emplace_back(keyName(entry.key), std::move(entry.value));
      } else {
        Json member = Json::object();
        member["$key"] = std::move(entry.key);
        member["$value"] = std::move(entry.value);
        json.push_back(std::move(member));
      }
    }
    return json;
  }
  // An object that grows copies its members, so it is made when all members are complete.
  using Members = std::vector<std::pair<std::string, Json>>;
  static Json objectOf(Members members) {
    Json json = Json::object();
    reserve(json, members.size());
    for (auto& [name, value] : members) json.get_ref<Json::object_t&>().emplace_back(std::move(name), std::move(value));
    return json;
  }
  static void reserve(Json& json, std::size_t size) { json.get_ref<Json::object_t&>().reserve(size); }

  // Members that do not exist while their pointers are pending.
  void addPending(KelAttr const& attr, std::vector<Entry>& entries) const {
    if (!options_.pending || !(attr.isPtr() || attr.keyIsPtr())) return;
    Path const whole = at_ / attributeStep(attr);
    for (PendingReference const& waiting : options_.pending->within(whole)) {
      if (waiting.place.steps.size() != whole.steps.size()) continue;
      PathStep const& step = waiting.place.steps.back();
      Json key = attr.keyIsPtr() ? Json(step.keyText()) : exportValue(step.key.ptr(), base_);
      bool known = false;
      for (Entry const& entry : entries) known = known || entry.key == key;
      if (!known) entries.push_back({std::move(key), contentOf(waiting)});
    }
  }

  template <class Make>
  Json below(PathStep step, Make const& make) {
    if (!options_.pending) return make();
    at_.steps.push_back(std::move(step));
    Json json = make();
    at_.steps.pop_back();
    return json;
  }
  PendingReference const* pendingAt(PathStep step) const {
    return options_.pending ? options_.pending->find(at_ / std::move(step)) : nullptr;
  }
  bool isPending(KelAttr const& attr) const {
    if (!options_.pending || !(attr.isPtr() || attr.keyIsPtr())) return false;
    return !options_.pending->within(at_ / attributeStep(attr)).empty();
  }

  Kel::Entity const& base_;
  ExportOptions options_;
  Path at_;  // kept only while there is something pending
};

}  // namespace

Json exportEntity(Kel::Entity const& entity, Kel::Entity const& base, ExportOptions const& options) {
  Exporter exporter(base, options);
  exporter.startAt(entity);
  return exporter.entity(entity);
}

Json exportAttribute(Kel::Entity const& owner, KelAttr const& attr, Kel::Entity const& base,
                     ExportOptions const& options) {
  Exporter exporter(base, options);
  exporter.startAt(owner);
  return exporter.attribute(owner, attr);
}

}  // namespace Cli::Service
