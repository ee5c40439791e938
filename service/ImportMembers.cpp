// Owned entities, keyed collections and queues.
#include "Kel/Assert.h"
#include "service/Importer.h"
#include "service/JsonKeys.h"
#include "service/ModelHooks.h"
#include "service/Prototypes.h"
#include "service/Walk.h"
#include "service/WordReader.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

GenericIf::PtrConst initialArgument(Kel::KelArg const& arg, KelAttr const* named) {
  if (named && arg.type() == Kel::TypeOf<Kel::Name>::type())
    if (EntityHooks const& hooks = hooksOf(*named->type()); hooks.singletonName)
      return GenericIf::of(Kel::Name(hooks.singletonName(*named)));
  if (arg.pointer) return nullptr;
  KelType const& type = *arg.type();
  return type.isEnum() ? GenericIf::ofEnum(&type, type.enumerators().front().value) : type.valueOps().initial();
}

std::vector<GenericIf::PtrConst> Importer::arguments(KelType const& type, KelAttr const* holder,
                                                     GenericIf::PtrConst const& key, Json const& json) {
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
      args.push_back(initialArgument(arg, i == 0 ? holder : nullptr));
    else if (arg.pointer)
      args.push_back(given->is_string() ? GenericIf::ofEntity(targetAt(base_, given->get<std::string>())) : nullptr);
    else
      args.push_back(converted(*arg.type(), *given));
    if (arg.pointer && args.back() && !args.back()->type()->isA(arg.type()))
      fail("'" + arg.name.str() + "' leads to a " + args.back()->type()->name().str());
  }
  return args;
}

bool Importer::matches(Kel::Entity const& e, KelType const& type, Json const& json, KelAttr const* holder) {
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

bool Importer::waitsForParameter(KelAttr const& attr, Json const& json) const {
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

void Importer::owned(Kel::Entity* owner, KelAttr const& attr, GenericIf::PtrConst const& key, Json const& json,
                     Kel::Entity* existing) {
  if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): every entity has a type
  KelType const& type = typeIn(json, existing ? *existing->type() : *attr.type());
  if (!type.isA(attr.type())) fail(withArticle(type) + " is no " + attr.type()->name().str());
  if (type.isAbstract()) fail(withArticle(type) + " cannot be made");
  bool const kept = existing && matches(*existing, type, json, &attr);
  Kel::Entity* e = kept ? existing : nullptr;
  auto const args = arguments(type, &attr, key, json);
  bool const wasFresh = fresh_;
  if (write_ && !kept) {
    KEL_ASSERT(owner);  // it is null only in the pass that checks
    attr.isQueue() ? beforeAll(*owner, attr) : before(*owner, attr, key);
    noteGone(existing);
    e = make(*owner, attr, key, type, args);
    fresh_ = true;
  }
  content(e, type, json);
  fresh_ = wasFresh;
}

Kel::Entity* Importer::make(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key,
                            KelType const& type, std::vector<GenericIf::PtrConst> const& args) {
  ++report_.entities;
  Kel::Entity* const made = maker_.make(owner, attr, key, type, args);
  if (options_.merge && options_.values == ValueRule::checked) {
    PendingReferences unused;
    EntityHooks const& hooks = hooksOf(type);
    if (hooks.created) beforePending();
    if (hooks.created) hooks.created(base_, Kel::Entity::Ptr(made), options_.pending ? *options_.pending : unused);
  }
  return made;
}

GenericIf::PtrConst Importer::keyOf(KelAttr const& attr, std::string const& name) const {
  try {
    return keyFromName(*attr.keyType(), name);
  } catch (InputError const& e) {
    fail(e.what());
  }
}

PathStep Importer::stepTo(KelAttr const& attr, Json const* key, std::string const& name) const {
  if (attr.keyIsPtr()) {
    if (key && !key->is_null() && !key->is_string()) fail("a key is the path of an entity");
    return memberStep(attr, GenericIf::of(Kel::String8(key ? key->is_null() ? "" : key->get<std::string>() : name)));
  }
  return memberStep(attr, key ? GenericIf::PtrConst(converted(*attr.keyType(), *key)) : keyOf(attr, name));
}

void Importer::collection(Kel::Entity* e, KelAttr const& attr, Json const& json) {
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

void Importer::removeOthers(Kel::Entity& e, KelAttr const& attr, std::unordered_set<std::string> const& named) {
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
  if (attr.keyIsPtr()) forgetPending(at_ / attributeStep(attr));
  for (GenericIf::PtrConst const& key : others) {
    if (!attr.keyIsPtr()) {
      at_.steps.push_back(memberStep(attr, key));
      forgetPending(at_);
      if (attr.instantiating()) departed_.note(*owner->attribute(attr.id(), key)->entity(), at_);
      at_.steps.pop_back();
    }
    before(e, attr, key);
    owner->attributeDel(attr.id(), key);
    ++report_.values;
  }
}

void Importer::member(Kel::Entity* e, KelAttr const& attr, GenericIf::PtrConst const& key, Json const& json) {
  if (attr.instantiating()) {
    GenericIf::Ptr const found = e ? gifOf(*e)->attribute(attr.id(), key) : nullptr;
    return owned(e, attr, key, json, found ? found->entity().ptr() : nullptr);
  }
  if (attr.keyIsPtr()) {
    if (!attr.isPtr()) converted(*attr.type(), json);
    if (attr.isPtr() && !json.is_null() && !json.is_string())
      fail("the path of an entity expected, not " + json.dump());
    if (write_) references_.push_back({{at_, json, key->text().str(), {}}, fresh_});
    return;
  }
  if (attr.isPtr() && !json.is_null()) return pointer(json);
  GenericIf::PtrConst const value = attr.isPtr() ? nullptr : GenericIf::PtrConst(converted(*attr.type(), json));
  if (!write_) return tryMember(attr, key, value);
  if (value) return setValue(e, attr, key, value);
  before(*e, attr, key);
  gifOf(*e)->attributeIs(attr.id(), key, nullptr);
}

void Importer::tryMember(KelAttr const& attr, GenericIf::PtrConst const& key, GenericIf::PtrConst const& value) const {
  KelType const& type = *attr.ownerType();
  if (type.isAbstract() || (value && attr.type()->kind() != KelType::Kind::value)) return;
  try {
    Kel::Entity::Ptr const scratch = type.newDefault();
    GenericIf::ofEntity(scratch)->attributeIs(attr.id(), key, value);
  } catch (Kel::Exception const& e) {
    fail(e.what());
  }
}

void Importer::queue(Kel::Entity* e, KelAttr const& attr, Json const& json) {
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
    auto const outer = std::exchange(maker_, {});
    for (std::size_t i = 0; i < json.size(); ++i)
      below(queueStep(attr, i), i, [&] { owned(e, attr, nullptr, json[i], i < kept ? items[i] : nullptr); });
    maker_ = outer;
  }
  at_.steps.push_back(whole);
}

std::size_t Importer::keptItems(std::vector<Kel::Entity*> const& items, KelAttr const& attr, Json const& json) {
  std::size_t kept = 0;
  while (kept < items.size() && kept < json.size() && json[kept].is_object() &&
         matches(*items[kept], typeIn(json[kept], *items[kept]->type()), json[kept], &attr))
    ++kept;
  return kept;
}

void Importer::writeValues(Kel::Entity& e, KelAttr const& attr, std::vector<GenericIf::PtrConst> const& values) {
  std::size_t kept = 0;
  eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    if (kept == values.size() || it.obj(true)->strep() != values[kept]->strep()) return false;
    ++kept;
    return true;
  });
  beforeAll(e, attr);
  cutQueue(e, attr, kept);
  for (std::size_t i = kept; i < values.size(); ++i) {
    gifOf(e)->attributeSQEnq(attr.id(), values[i]);
    ++report_.values;
  }
}

void Importer::cutQueue(Kel::Entity& e, KelAttr const& attr, std::size_t from) {
  std::vector<GenericIf::PtrConst> gone;
  eachMember(e, attr, [&](Kel::AttrIterator const& it, std::size_t position) {
    if (position < from) return true;
    if (attr.instantiating()) departed_.note(*it.target(), at_ / queueStep(attr, position));
    gone.push_back(it.key());
    return true;
  });
  if (!gone.empty()) beforeAll(e, attr);
  for (std::size_t i = gone.size(); i-- > 0; ++report_.values) {
    forgetPending(at_ / queueStep(attr, from + i));
    gifOf(e)->attributeDel(attr.id(), gone[i]);
  }
}

void Importer::item(KelAttr const& attr, Json const& json) {
  Place const place = locate(base_, at_);
  if (!place.there()) fail("there is no item at that position");
  if (!attr.instantiating()) fail("the items of a queue are set all together");
  if (!matches(*place.entity, typeIn(json, *place.entity->type()), json, &attr))
    fail("the item has other constructor parameters");
  content(place.entity.ptr(), *place.entity->type(), json);
}

}  // namespace Cli::Service
