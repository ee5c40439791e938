#include <algorithm>
#include <unordered_set>

#include "service/JsonKeys.h"
#include "service/JsonText.h"
#include "service/JsonTree.h"
#include "service/ModelHooks.h"
#include "service/PathWords.h"
#include "service/Prototypes.h"
#include "service/References.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

namespace {

std::string refusalText(std::string const& file, std::size_t line, std::string const& path, std::string const& what) {
  std::string text = file;
  if (line > 0) text += (text.empty() ? "line " : ":") + std::to_string(line);
  if (!path.empty()) text += (text.empty() ? "" : ": ") + path;
  return text + (text.empty() ? "" : ": ") + what;
}

GenericIf::PtrConst defaultArg(Kel::KelArg const& arg) {
  if (arg.pointer) return nullptr;
  KelType const& type = *arg.type();
  return type.isEnum() ? GenericIf::ofEnum(&type, type.enumerators().front().value) : type.valueOps().initial();
}

// The document, to find the lines of errors.
struct Source {
  std::string file;
  std::string_view text;
};

// Walks the JSON twice: first to check it, then to write it.
class Importer {
 public:
  Importer(Kel::Dir::Ptr const& base, ImportOptions const& options, Source source)
      : base_(base), options_(options), source_(std::move(source)) {}

  ImportReport run(Path const& at, Json const& json) {
    Place const owner = locate(base_, at.parent());
    at_ = at;
    if (!owner.there() || owner.attr) fail("there is nothing at '" + at.parent().text() + "'");
    for (bool const write : {false, true}) {
      write_ = write;
      top(*owner.entity, at, json);
    }
    finish();
    return std::move(report_);
  }

 private:
  [[noreturn]] void fail(std::string const& what) const {
    std::size_t const line = source_.text.empty() ? 0 : lineOf(source_.text, in_);
    throw ImportError(source_.file, line, at_.text(), what);
  }
  // Goes one step down in the tree, and in the document to a member or an item.
  template <class Visit>
  void below(PathStep step, std::variant<std::string, std::size_t> in, Visit const& visit) {
    at_.steps.push_back(std::move(step));
    in_.steps.push_back(std::move(in));
    visit();
    in_.steps.pop_back();
    at_.steps.pop_back();
  }

  void top(Kel::Entity& owner, Path const& at, Json const& json) {
    if (at.empty()) return directory(&owner, json);
    PathStep const last = at.steps.back();
    at_ = at.parent();
    if (!last.attr) {
      if (!asDir(&owner)) fail("is no directory");
      at_ = at;
      return entry(static_cast<Kel::Dir*>(&owner), last.entry, json);
    }
    KelAttr const* const attr = owner.type()->findAttr(last.attr->name());
    if (!attr || attr->isFunction()) fail("there is no attribute '" + last.attr->name().str() + "'");
    at_ = at;
    if (!last.key) return attribute(&owner, *attr, json);
    if (attr->isQueue()) return item(owner, *attr, at.position(), json);
    member(&owner, *attr, last.key, json);
  }

  // --- Entities ---

  KelType const& typeIn(Json const& json, KelType const& otherwise) const {
    auto const given = json.is_object() ? json.find("$type") : json.end();
    if (given == json.end()) return otherwise;
    KelType const* const type = given->is_string() ? KelType::find(Kel::String8(given->get<std::string>())) : nullptr;
    if (!type || !type->isEntity()) fail(given->dump() + " is no type of entities");
    return *type;
  }

  // `e` is null for an entity that does not exist yet.
  void content(Kel::Entity* e, KelType const& type, Json const& json) {
    if (isDirType(&type)) return directory(e, json);
    if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
    for (auto const& [name, value] : json.get_ref<Json::object_t const&>()) {
      if (name == "$type") continue;
      KelAttr const* const attr = type.findAttr(name);
      if (!attr || attr->isFunction())
        fail("a " + type.name().str() + " has no attribute '" + name + "'" + near(type, name));
      if (attr->ctorParam()) {
        parameter(e, *attr, name, value);
        continue;
      }
      if (!attr->copiable()) fail("'" + name + "' cannot be set");
      below(attributeStep(*attr), name, [&, &value = value] { attribute(e, *attr, value); });
    }
    if (write_ && !options_.merge) resetOthers(*e, json);
  }

  static std::string near(KelType const& type, std::string const& name) {
    std::vector<std::string> names;
    for (KelAttr const* attr : type.attributeQ())
      if (attr->ctorParam() || attr->copiable()) names.push_back(attr->name().str());
    std::string const found = nearest(name, names);
    return found.empty() ? found : "; did you mean " + found + "?";
  }

  // Checks only: the parameters were given when the entity was made, and an entity that is kept has the same ones.
  void parameter(Kel::Entity* e, KelAttr const& attr, std::string const& name, Json const& value) {
    below(attributeStep(attr), name, [&] {
      GenericIf::Ptr const given = attr.isPtr() ? nullptr : converted(*attr.type(), value);
      if (e && given && given->strep() != valueOfAttr(*e, attr)->strep() && in_.steps.size() == 1)
        fail("a constructor parameter cannot be changed");
    });
  }

  void resetOthers(Kel::Entity& e, Json const& json) {
    for (KelAttr const* attr : e.type()->attributeQ()) {
      if (attr->isFunction() || !attr->copiable() || json.contains(attr->name().str())) continue;
      at_.steps.push_back(attributeStep(*attr));
      reset(e, *attr);
      at_.steps.pop_back();
    }
  }

  void reset(Kel::Entity& e, KelAttr const& attr) {
    if (options_.pending) options_.pending->erase(at_);
    if (hasDefault(e, attr)) return;
    if (attr.instantiating()) noteOwned(e, attr);
    GenericIf::Ptr const owner = gifOf(e);
    ++report_.values;
    if (!attr.isCollection()) return owner->attributeDel(attr.id());
    owner->attributeOp(Kel::AttributeOp::deleteAll, attr.id());
  }
  void noteOwned(Kel::Entity& e, KelAttr const& attr) {
    attr.access().eachChild(
        e,
        [](Kel::Entity* child, void* context) {
          auto& self = *static_cast<Importer*>(context);
          if (auto path = pathOf(*child, *self.base_)) self.departed_.note(*child, std::move(*path));
        },
        this);
  }
  void noteGone(Kel::Entity* child) {
    if (!child) return;
    if (options_.pending) options_.pending->erase(at_);
    departed_.note(*child, at_);
  }

  // --- Directories ---

  void directory(Kel::Entity* e, Json const& json) {
    auto* const dir = static_cast<Kel::Dir*>(e);
    if (!json.is_object()) fail("an object of entries expected, not " + std::string(json.type_name()));
    std::unordered_set<std::string> named;
    for (auto const& [key, value] : json.get_ref<Json::object_t const&>()) {
      if (key == "$type") continue;
      std::string const name = key.starts_with("$$") ? key.substr(1) : key;
      if (key.starts_with('$') && !key.starts_with("$$")) fail("'" + key + "' is no entry");
      named.insert(name);
      below(entryStep(Kel::Name(name)), key, [&, &value = value] { entry(dir, Kel::Name(name), value); });
    }
    if (!write_ || options_.merge) return;
    std::vector<Kel::Name> others;
    for (auto it = dir->entryStateIterator(); it; ++it)
      if (!named.count(it->name().str())) others.push_back(it->name());
    for (Kel::Name const& name : others) removeEntry(*dir, name);
  }

  void removeEntry(Kel::Dir& dir, Kel::Name const& name) {
    at_.steps.push_back(entryStep(name));
    Kel::Entity* const child = const_cast<Kel::Entity*>(dir.child(name));
    if (child && isRoot(at_.text())) {
      content(child, *child->type(), Json::object());
    } else {
      noteGone(child);
      dir.entryDel(name);
    }
    at_.steps.pop_back();
  }
  bool isRoot(std::string const& path) const {
    if (!options_.roots) return false;
    return std::any_of(options_.roots->begin(), options_.roots->end(),
                       [&](std::string const& root) { return root == path || root.starts_with(path + "/"); });
  }

  // `dir` is null for a directory that does not exist yet.
  void entry(Kel::Dir* dir, Kel::Name const& name, Json const& json) {
    auto const state = dir ? dir->entry(name) : nullptr;
    KelType const* known = state ? KelType::find(state->entityTypeName()) : nullptr;
    KelType const& type = typeIn(json, known ? *known : *Kel::Dir::_fwkType());
    if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
    if (!type.isMadeByName()) fail("a " + type.name().str() + " cannot be an entry of a directory");
    if (json.contains("$absent")) {
      if (write_) dir->entryStateIs(name, type.fullTypeName());
      return;
    }
    Kel::Entity* child = dir ? const_cast<Kel::Entity*>(dir->child(name)) : nullptr;
    if (child && !matches(*child, type, json, nullptr)) {
      if (write_) {
        noteGone(child);
        dir->entryDel(name);
      }
      child = nullptr;
    }
    auto const args = arguments(type, nullptr, GenericIf::of(name), json);
    if (write_ && !child) {
      if (state) dir->entryDel(name);
      Kel::Entity::Ptr const made = type.newEntity(args);
      dir->entryIs(made);
      child = made.ptr();
      ++report_.entities;
    }
    content(child, type, json);
  }

  // --- Attributes ---

  void attribute(Kel::Entity* e, KelAttr const& attr, Json const& json) {
    if (waitsForParameter(attr, json)) {
      late_.push_back({Kel::Entity::Ptr(e), &attr, &json, at_, in_});
      return;
    }
    if (attr.isQueue()) return queue(e, attr, json);
    if (attr.isCollection()) return collection(e, attr, json);
    if (json.is_null()) {
      if (write_) reset(*e, attr);
      return;
    }
    if (attr.instantiating()) {
      owned(e, attr, nullptr, json, e ? singleTarget(*e, attr) : nullptr);
    } else if (attr.isPtr()) {
      pointer(json, json);
    } else {
      setValue(e, attr, nullptr, converted(*attr.type(), json));
    }
  }

  GenericIf::Ptr converted(KelType const& type, Json const& json) const {
    try {
      return valueFromJson(type, json, options_.values);
    } catch (ImportError const&) {
      throw;
    } catch (InputError const& e) {
      fail(e.what());
    }
  }

  void setValue(Kel::Entity* e, KelAttr const& attr, GenericIf::PtrConst const& key, GenericIf::PtrConst const& value) {
    if (!write_) return;
    GenericIf::Ptr const owner = gifOf(*e);
    GenericIf::Ptr const before = owner->attribute(attr.id(), key);
    if (before && before->strep() == value->strep()) return;
    owner->attributeIs(attr.id(), key, value);
    ++report_.values;
  }

  // Notes a reference, which is resolved last. `value`: what is set at the place.
  void pointer(Json const& target, Json const& value) {
    if (!target.is_string()) fail("the path of an entity expected, not " + target.dump());
    if (!write_) return;
    KelAttr const& attr = *at_.steps.back().attr;
    std::string text = target.get<std::string>();
    EntityHooks const& hooks = hooksOf(*attr.ownerType());
    bool const implied = options_.values == ValueRule::checked && hooks.isImplied && hooks.isImplied(attr, text);
    references_.push_back({at_, implied ? Json(nullptr) : value, implied ? "" : text, {}});
  }

  // The constructor arguments of a new entity; for a queue's item, without the index.
  std::vector<GenericIf::PtrConst> arguments(KelType const& type, KelAttr const* holder, GenericIf::PtrConst const& key,
                                             Json const& json) {
    std::vector<GenericIf::PtrConst> args;
    for (std::size_t i = 0; i < type.ctorArgs().size(); ++i) {
      Kel::KelArg const& arg = type.ctorArgs()[i];
      if (i == 0 && holder && holder->isQueue()) continue;
      if (i == 0 && key) {
        args.push_back(key);
        continue;
      }
      auto const given = json.find(arg.name.str());
      if (given == json.end())
        args.push_back(i == 0 && holder ? singletonName(*holder, arg) : defaultArg(arg));
      else if (arg.pointer)
        args.push_back(given->is_string() ? GenericIf::ofEntity(targetAt(base_, given->get<std::string>())) : nullptr);
      else
        args.push_back(converted(*arg.type(), *given));
      if (arg.pointer && args.back() && !args.back()->type()->isA(arg.type()))
        fail("'" + arg.name.str() + "' leads to a " + args.back()->type()->name().str());
    }
    return args;
  }
  static GenericIf::PtrConst singletonName(KelAttr const& holder, Kel::KelArg const& arg) {
    EntityHooks const& hooks = hooksOf(*holder.type());
    if (!hooks.singletonName || arg.type() != Kel::TypeOf<Kel::Name>::type()) return defaultArg(arg);
    return GenericIf::of(Kel::Name(hooks.singletonName(holder)));
  }

  // Whether an entity has the type and the parameters that the JSON says.
  bool matches(Kel::Entity const& e, KelType const& type, Json const& json, KelAttr const* holder) {
    if (e.type() != &type) return false;
    bool const keyed = !holder || holder->isCollection();
    for (KelAttr const* param : furtherParams(type, keyed)) {
      auto const given = json.find(param->name().str());
      if (given == json.end()) continue;
      GenericIf::PtrConst const mine = valueOfAttr(e, *param);
      if (param->isPtr()) {
        if (exportValue(mine.ptr(), *base_) != *given) return false;
      } else if (converted(*param->type(), *given)->strep() != mine->strep()) {
        return false;
      }
    }
    return true;
  }

  // Whether a constructor parameter points to an entity that is yet to be made. Then the attribute is imported later.
  bool waitsForParameter(KelAttr const& attr, Json const& json) const {
    if (!write_ || lastCall_ || !attr.instantiating()) return false;
    bool any = false;
    for (Kel::KelArg const& arg : attr.type()->ctorArgs()) any = any || arg.pointer;
    if (!any) return false;
    auto const waits = [&](Json const& one) {
      if (!one.is_object()) return false;
      for (Kel::KelArg const& arg : typeIn(one, *attr.type()).ctorArgs()) {
        auto const given = arg.pointer ? one.find(arg.name.str()) : one.end();
        if (given != one.end() && given->is_string() && !targetAt(base_, given->get<std::string>())) return true;
      }
      return false;
    };
    if (!attr.isCollection()) return waits(json);
    for (Json const& one : json)
      if (waits(one.is_object() && one.contains("$value") ? one["$value"] : one)) return true;
    return false;
  }

  // An owned entity. It is kept if it has these parameters, else made.
  void owned(Kel::Entity* owner, KelAttr const& attr, GenericIf::PtrConst const& key, Json const& json,
             Kel::Entity* existing) {
    if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
    KelType const& type = typeIn(json, existing ? *existing->type() : *attr.type());
    if (!type.isA(attr.type())) fail("a " + type.name().str() + " is no " + attr.type()->name().str());
    if (type.isAbstract()) fail("a " + type.name().str() + " cannot be made");
    bool const kept = existing && matches(*existing, type, json, &attr);
    Kel::Entity* e = kept ? existing : nullptr;
    auto const args = arguments(type, &attr, key, json);
    if (write_ && !kept) {
      noteGone(existing);
      e = make(*owner, attr, key, type, args);
    }
    content(e, type, json);
  }

  Kel::Entity* make(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key, KelType const& type,
                    std::vector<GenericIf::PtrConst> const& args) {
    GenericIf::Ptr const gif = gifOf(owner);
    ++report_.entities;
    Kel::Entity* made = nullptr;
    if (&type != attr.type()) {
      made = makeDerived(owner, attr, key, type, args);
    } else {
      GenericIf::List::Ptr const list(new GenericIf::List);
      for (auto const& arg : args) list->objectEnq(arg);
      if (attr.isQueue()) {
        gif->attributeSQEnq(attr.id(), GenericIf::List::genericIf(list));
        eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) { return (made = it.target(), true); });
      } else {
        gif->attributeIs(attr.id(), key, GenericIf::List::genericIf(list));
        made = attr.isCollection() ? gif->attribute(attr.id(), key)->entity().ptr() : singleTarget(owner, attr);
      }
    }
    if (options_.merge && options_.values == ValueRule::checked) {
      PendingReferences unused;
      EntityHooks const& hooks = hooksOf(type);
      if (hooks.created) hooks.created(base_, Kel::Entity::Ptr(made), options_.pending ? *options_.pending : unused);
    }
    return made;
  }

  // The attribute makes entities of its own type only. One of a derived type is made first, and then put there.
  static Kel::Entity* makeDerived(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key,
                                  KelType const& type, std::vector<GenericIf::PtrConst> args) {
    GenericIf::Ptr const gif = gifOf(owner);
    Kel::U64 sequence = 0;
    if (attr.isQueue()) {
      attr.access().eachOwned(
          owner, [](Kel::Entity*, Kel::U64 at, void* next) { *static_cast<Kel::U64*>(next) = at + 1; }, &sequence);
      if (!type.ctorArgs().empty())
        args.insert(args.begin(), attr.keyType()->genericFromText(std::to_string(sequence)));
    } else {
      gif->attributeDel(attr.id(), key);
    }
    Kel::Entity::Ptr const made = type.newEntity(args);
    attr.access().restore(attr, owner, made, sequence);
    GenericIf::PtrConst const index =
        attr.isQueue() ? GenericIf::PtrConst(attr.keyType()->genericFromText(std::to_string(sequence))) : key;
    if (attr.isCollection())
      gif->attributeOp(Kel::AttributeOp::notify, attr.id(), index);
    else
      owner.notify(attr.id());
    return made.ptr();
  }

  // --- Keyed collections ---

  GenericIf::PtrConst keyOf(KelAttr const& attr, std::string const& name) const {
    try {
      return keyFromName(*attr.keyType(), name);
    } catch (InputError const& e) {
      fail(e.what());
    }
  }
  // The step to a member: its key, or the text of its pointer key.
  PathStep stepTo(KelAttr const& attr, Json const* key, std::string const& name) const {
    if (attr.keyIsPtr()) {
      if (key && !key->is_null() && !key->is_string()) fail("a key is the path of an entity");
      return memberStep(attr, GenericIf::of(Kel::String8(key ? key->is_null() ? "" : key->get<std::string>() : name)));
    }
    return memberStep(attr, key ? GenericIf::PtrConst(converted(*attr.keyType(), *key)) : keyOf(attr, name));
  }

  void collection(Kel::Entity* e, KelAttr const& attr, Json const& json) {
    std::unordered_set<std::string> named;
    PathStep const whole = at_.steps.back();
    at_.steps.pop_back();
    std::vector<std::pair<PathStep, Json const*>> members;
    if (json.is_object()) {
      for (auto const& [name, value] : json.get_ref<Json::object_t const&>())
        members.emplace_back(stepTo(attr, nullptr, name), &value);
    } else if (json.is_array()) {
      for (Json const& one : json) {
        if (!one.is_object() || one.size() != 2 || !one.contains("$key") || !one.contains("$value"))
          fail(attr.name().str() + ": {\"$key\": …, \"$value\": …} expected, not " + one.dump());
        members.emplace_back(stepTo(attr, &one["$key"], {}), &one["$value"]);
      }
    } else if (!json.is_null()) {
      fail(attr.name().str() + ": an object expected, not " + std::string(json.type_name()));
    }
    for (auto const& [step, value] : members)
      if (!named.insert(step.key->strep().str()).second)
        fail(attr.name().str() + ": '" + step.keyText() + "' is there twice");
    if (write_ && !options_.merge) removeOthers(*e, attr, named);
    std::size_t index = 0;
    for (auto const& [step, value] : members) {
      std::variant<std::string, std::size_t> in = index;
      if (json.is_object())
        in = (json.get_ref<Json::object_t const&>().begin() + static_cast<std::ptrdiff_t>(index))->first;
      ++index;
      below(step, std::move(in), [&, value = value, key = step.key] { member(e, attr, key, *value); });
    }
    at_.steps.push_back(whole);
  }

  void removeOthers(Kel::Entity& e, KelAttr const& attr, std::unordered_set<std::string> const& named) {
    std::vector<GenericIf::PtrConst> others;
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      GenericIf::PtrConst const key = it.key();
      Kel::String8 const text =
          !attr.keyIsPtr() ? key->strep()
                           : GenericIf::of(Kel::String8(key ? targetText(*it.keyTarget(), *base_) : ""))->strep();
      bool const orphan = attr.keyIsPtr() && key && text == "''";
      if (orphan || !named.count(text.str())) others.push_back(key);
      return true;
    });
    GenericIf::Ptr const owner = gifOf(e);
    if (options_.pending && attr.keyIsPtr()) options_.pending->erase(at_ / attributeStep(attr));
    for (GenericIf::PtrConst const& key : others) {
      if (!attr.keyIsPtr()) {
        at_.steps.push_back(memberStep(attr, key));
        if (options_.pending) options_.pending->erase(at_);
        if (attr.instantiating()) departed_.note(*owner->attribute(attr.id(), key)->entity(), at_);
        at_.steps.pop_back();
      }
      owner->attributeDel(attr.id(), key);
      ++report_.values;
    }
  }

  // `key`: as in a PathStep.
  void member(Kel::Entity* e, KelAttr const& attr, GenericIf::PtrConst const& key, Json const& json) {
    if (attr.instantiating()) {
      GenericIf::Ptr const found = e ? gifOf(*e)->attribute(attr.id(), key) : nullptr;
      return owned(e, attr, key, json, found ? found->entity().ptr() : nullptr);
    }
    if (attr.keyIsPtr()) {
      if (!attr.isPtr()) converted(*attr.type(), json);
      if (attr.isPtr() && !json.is_null() && !json.is_string())
        fail("the path of an entity expected, not " + json.dump());
      if (write_) references_.push_back({at_, json, key->text().str(), {}});
      return;
    }
    if (attr.isPtr() && !json.is_null()) return pointer(json, json);
    GenericIf::PtrConst const value = attr.isPtr() ? nullptr : GenericIf::PtrConst(converted(*attr.type(), json));
    if (!write_) return tryMember(attr, key, value);
    if (value) return setValue(e, attr, key, value);
    gifOf(*e)->attributeIs(attr.id(), key, nullptr);
  }

  // Asks the collection itself whether it takes the member: the key may have to be the value's own, or null be refused.
  void tryMember(KelAttr const& attr, GenericIf::PtrConst const& key, GenericIf::PtrConst const& value) const {
    KelType const& type = *attr.ownerType();
    if (type.isAbstract() || (value && attr.type()->kind() != KelType::Kind::value)) return;
    try {
      Kel::Entity::Ptr const scratch = type.newDefault();
      GenericIf::ofEntity(scratch)->attributeIs(attr.id(), key, value);
    } catch (Kel::Exception const& e) {
      fail(e.what());
    }
  }

  // --- Queues ---

  void queue(Kel::Entity* e, KelAttr const& attr, Json const& json) {
    if (!json.is_array() && !json.is_null()) fail("a list expected, not " + std::string(json.type_name()));
    PathStep const whole = at_.steps.back();
    at_.steps.pop_back();
    std::vector<Kel::Entity*> items;
    std::vector<GenericIf::PtrConst> values;
    if (attr.instantiating()) {
      if (e)
        eachMember(*e, attr,
                   [&](Kel::AttrIterator const& it, std::size_t) { return (items.push_back(it.target()), true); });
    } else {
      for (std::size_t i = 0; i < json.size(); ++i)
        below(queueStep(attr, i), i, [&] { values.push_back(converted(*attr.type(), json[i])); });
    }
    if (write_ && !attr.instantiating()) writeValues(*e, attr, values);
    if (attr.instantiating()) {
      std::size_t const kept = keptItems(items, attr, json);
      if (write_) cutQueue(*e, attr, kept);
      for (std::size_t i = 0; i < json.size(); ++i)
        below(queueStep(attr, i), i, [&] { owned(e, attr, nullptr, json[i], i < kept ? items[i] : nullptr); });
    }
    at_.steps.push_back(whole);
  }

  // How many items at the head are kept; their contents may change.
  std::size_t keptItems(std::vector<Kel::Entity*> const& items, KelAttr const& attr, Json const& json) {
    std::size_t kept = 0;
    while (kept < items.size() && kept < json.size() && json[kept].is_object() &&
           matches(*items[kept], typeIn(json[kept], *items[kept]->type()), json[kept], &attr))
      ++kept;
    return kept;
  }

  void writeValues(Kel::Entity& e, KelAttr const& attr, std::vector<GenericIf::PtrConst> const& values) {
    std::size_t kept = 0;
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      if (kept == values.size() || it.obj(true)->strep() != values[kept]->strep()) return false;
      ++kept;
      return true;
    });
    cutQueue(e, attr, kept);
    for (std::size_t i = kept; i < values.size(); ++i) {
      gifOf(e)->attributeSQEnq(attr.id(), values[i]);
      ++report_.values;
    }
  }

  // Removes the items from a position on.
  void cutQueue(Kel::Entity& e, KelAttr const& attr, std::size_t from) {
    std::vector<GenericIf::PtrConst> gone;
    eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      if (position < from) return true;
      if (attr.instantiating()) departed_.note(*it.target(), at_ / queueStep(attr, position));
      gone.push_back(it.key());
      return true;
    });
    for (std::size_t i = gone.size(); i-- > 0; ++report_.values) {
      if (options_.pending) options_.pending->erase(at_ / queueStep(attr, from + i));
      gifOf(e)->attributeDel(attr.id(), gone[i]);
    }
  }

  // Imports into an existing item.
  void item(Kel::Entity& e, KelAttr const& attr, std::size_t position, Json const& json) {
    Place const place = locate(base_, at_);
    if (!place.there()) fail("there is no item at that position");
    if (!attr.instantiating()) fail("the items of a queue are set all together");
    if (!matches(*place.entity, typeIn(json, *place.entity->type()), json, &attr))
      fail("the item has other constructor parameters");
    (void)e, (void)position;
    content(place.entity.ptr(), *place.entity->type(), json);
  }

  // --- References ---

  struct Late {
    Kel::Entity::Ptr owner;
    KelAttr const* attr;
    Json const* json;
    Path at;
    JsonPlace in;
  };

  void finish() {
    while (!late_.empty()) {
      std::vector<Late> const turn = std::exchange(late_, {});
      for (Late const& late : turn) {
        at_ = late.at;
        in_ = late.in;
        attribute(late.owner.ptr(), *late.attr, *late.json);
      }
      lastCall_ = late_.size() == turn.size();
    }
    if (!departed_.empty())
      for (Path const& lost : departed_.repoint(base_, options_.pending)) (void)lost;
    for (PendingReference& reference : references_) resolve(reference);
  }

  void resolve(PendingReference& reference) {
    if (options_.pending) options_.pending->erase(reference.place);
    KelAttr const& attr = *reference.place.steps.back().attr;
    Place const before = locate(base_, reference.place);
    GenericIf::Ptr const owner = GenericIf::ofEntity(entityAt(base_, reference.place.parent()));
    if (!owner) return;
    Kel::Entity* const old = attr.isCollection() ? nullptr : singleTarget(*owner->entity(), attr);
    reference.reason = setReference(base_, reference);
    if (!attr.isCollection() && singleTarget(*owner->entity(), attr) != old) ++report_.values;
    if (attr.isCollection() && !before.there()) ++report_.values;
    if (reference.reason.empty()) return;
    report_.dangling.push_back(reference);
    if (options_.pending) options_.pending->add(reference);
    if (!attr.isCollection()) {
      owner->attributeDel(attr.id());
    } else if (!attr.keyIsPtr()) {
      try {
        owner->attributeIs(attr.id(), before.key, nullptr);
      } catch (Kel::RangeException const&) {
        owner->attributeDel(attr.id(), before.key);  // null may not be a member here
      }
    }
  }

  Kel::Dir::Ptr base_;
  ImportOptions options_;
  Source source_;
  ImportReport report_;
  bool write_ = false, lastCall_ = false;
  Path at_;
  JsonPlace in_;
  std::vector<PendingReference> references_;
  std::vector<Late> late_;
  Departed departed_;
};

}  // namespace

ImportError::ImportError(std::string const& file, std::size_t line, std::string const& path, std::string const& what)
    : InputError(refusalText(file, line, path, what)), line_(line), path_(path) {}
ImportError::~ImportError() = default;

ImportReport importJson(Kel::Dir::Ptr const& base, Path const& at, Json const& json, ImportOptions const& options) {
  return Importer(base, options, {}).run(at, json);
}

ImportReport importText(Kel::Dir::Ptr const& base, Path const& at, std::string const& file, std::string_view text,
                        ImportOptions const& options) {
  Json const json = parseJson(file, text);
  return Importer(base, options, {file, text}).run(at, json);
}

}  // namespace Cli::Service
