// Entities, directories, values and references.
#include "service/Importer.h"

#include <algorithm>

#include "service/ModelHooks.h"
#include "service/PathWords.h"
#include "service/Prototypes.h"
#include "service/Walk.h"
#include "service/WordReader.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

ImportReport Importer::run(Path const& at, Json const& json) {
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

void Importer::fail(std::string const& what) const {
  std::size_t const line = source_.text.empty() ? 0 : lineOf(source_.text, in_);
  throw ImportError(source_.file, line, at_.text(), what);
}

void Importer::top(Kel::Entity& owner, Path const& at, Json const& json) {
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
  if (attr->isQueue()) return item(*attr, json);
  member(&owner, *attr, last.key, json);
}

KelType const& Importer::typeIn(Json const& json, KelType const& otherwise) const {
  auto const given = json.is_object() ? json.find("$type") : json.end();
  if (given == json.end()) return otherwise;
  KelType const* const type = given->is_string() ? KelType::find(Kel::String8(given->get<std::string>())) : nullptr;
  if (!type || !type->isEntity()) fail(given->dump() + " is no type of entities");
  return *type;
}

void Importer::content(Kel::Entity* e, KelType const& type, Json const& json) {
  if (isDirType(&type)) return directory(e, json);
  if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
  for (auto const& [name, value] : json.get_ref<Json::object_t const&>()) {
    if (name == "$type") continue;
    KelAttr const* const attr = type.findAttr(name);
    if (!attr || attr->isFunction()) fail(withArticle(type) + " has no attribute '" + name + "'" + near(type, name));
    if (attr->ctorParam()) {
      parameter(e, *attr, name, value);
      continue;
    }
    if (!attr->copiable()) fail("'" + name + "' cannot be set");
    below(attributeStep(*attr), name, [&, &value = value] { attribute(e, *attr, value); });
  }
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a write has an entity
  if (write_ && !options_.merge) resetOthers(*e, json);
}

std::string Importer::near(KelType const& type, std::string const& name) {
  std::vector<std::string> names;
  for (KelAttr const* attr : type.attributeQ())
    if (attr->ctorParam() || attr->copiable()) names.push_back(attr->name().str());
  std::string const found = nearest(name, names);
  return found.empty() ? found : "; did you mean " + found + "?";
}

void Importer::parameter(Kel::Entity* e, KelAttr const& attr, std::string const& name, Json const& value) {
  below(attributeStep(attr), name, [&] {
    GenericIf::Ptr const given = attr.isPtr() ? nullptr : converted(*attr.type(), value);
    if (e && given && given->strep() != valueOfAttr(*e, attr)->strep() && in_.steps.size() == 1)
      fail("a constructor parameter cannot be changed");
  });
}

void Importer::resetOthers(Kel::Entity& e, Json const& json) {
  for (KelAttr const* attr : e.type()->attributeQ()) {
    if (attr->isFunction() || !attr->copiable() || json.contains(attr->name().str())) continue;
    at_.steps.push_back(attributeStep(*attr));
    reset(e, *attr);
    at_.steps.pop_back();
  }
}

void Importer::reset(Kel::Entity& e, KelAttr const& attr) {
  forgetPending(at_);
  if (hasDefault(e, attr)) return;
  beforeAll(e, attr);
  if (attr.instantiating()) noteOwned(e, attr);
  GenericIf::Ptr const owner = gifOf(e);
  ++report_.values;
  if (!attr.isCollection()) return owner->attributeDel(attr.id());
  owner->attributeOp(Kel::AttributeOp::deleteAll, attr.id());
}

void Importer::noteOwned(Kel::Entity& e, KelAttr const& attr) {
  attr.access().eachChild(
      e,
      [](Kel::Entity* child, void* context) {
        auto& self = *static_cast<Importer*>(context);
        if (auto path = pathOf(*child, *self.base_)) self.departed_.note(*child, std::move(*path));
      },
      this);
}

void Importer::noteGone(Kel::Entity* child) {
  if (!child) return;
  forgetPending(at_);
  departed_.note(*child, at_);
}

void Importer::directory(Kel::Entity* e, Json const& json) {
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
  // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a write has an entity
  for (auto it = dir->entryStateIterator(); it; ++it)
    if (!named.count(it->name().str())) others.push_back(it->name());
  for (Kel::Name const& name : others) removeEntry(*dir, name);
}

void Importer::removeEntry(Kel::Dir& dir, Kel::Name const& name) {
  at_.steps.push_back(entryStep(name));
  Kel::Entity* const child = const_cast<Kel::Entity*>(dir.child(name));
  if (child && isRoot(at_.text())) {
    content(child, *child->type(), Json::object());
  } else {
    if (undo_ && !fresh_) undo_->noteEntry(dir, name);
    noteGone(child);
    dir.entryDel(name);
  }
  at_.steps.pop_back();
}

bool Importer::isRoot(std::string const& path) const {
  if (!options_.roots) return false;
  return std::any_of(options_.roots->begin(), options_.roots->end(),
                     [&](std::string const& root) { return root == path || root.starts_with(path + "/"); });
}

void Importer::entry(Kel::Dir* dir, Kel::Name const& name, Json const& json) {
  auto const state = dir ? dir->entry(name) : nullptr;
  KelType const* known = state ? KelType::find(state->entityTypeName()) : nullptr;
  KelType const& type = typeIn(json, known ? *known : *Kel::Dir::_fwkType());
  if (!json.is_object()) fail("an object expected, not " + std::string(json.type_name()));
  if (!type.isMadeByName()) fail(withArticle(type) + " cannot be an entry of a directory");
  if (json.contains("$absent")) {
    if (write_ && undo_ && !fresh_) undo_->noteEntry(*dir, name);
    if (write_) dir->entryStateIs(name, type.fullTypeName());
    return;
  }
  Kel::Entity* child = dir ? const_cast<Kel::Entity*>(dir->child(name)) : nullptr;
  bool const wasFresh = fresh_;
  bool const kept = child && matches(*child, type, json, nullptr);
  if (write_ && !kept && undo_ && !fresh_) undo_->noteEntry(*dir, name);
  if (child && !kept) {
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
    fresh_ = true;
    ++report_.entities;
  }
  content(child, type, json);
  fresh_ = wasFresh;
}

void Importer::attribute(Kel::Entity* e, KelAttr const& attr, Json const& json) {
  if (waitsForParameter(attr, json)) {
    late_.push_back({Kel::Entity::Ptr(e), &attr, &json, at_, in_, fresh_});
    return;
  }
  if (attr.isQueue()) return queue(e, attr, json);
  if (attr.isCollection()) return collection(e, attr, json);
  if (json.is_null()) {
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a write has an entity
    if (write_) reset(*e, attr);
    return;
  }
  if (attr.instantiating()) {
    owned(e, attr, nullptr, json, e ? singleTarget(*e, attr) : nullptr);
  } else if (attr.isPtr()) {
    pointer(json);
  } else {
    setValue(e, attr, nullptr, converted(*attr.type(), json));
  }
}

GenericIf::Ptr Importer::converted(KelType const& type, Json const& json) const {
  try {
    return valueFromJson(type, json, options_.values);
  } catch (ImportError const&) {
    throw;
  } catch (InputError const& e) {
    fail(e.what());
  }
}

void Importer::setValue(Kel::Entity* e, KelAttr const& attr, GenericIf::PtrConst const& key,
                        GenericIf::PtrConst const& value) {
  if (!write_) return;
  GenericIf::Ptr const owner = gifOf(*e);
  GenericIf::Ptr const before = owner->attribute(attr.id(), key);
  if (before && before->strep() == value->strep()) return;
  this->before(*e, attr, key);
  owner->attributeIs(attr.id(), key, value);
  ++report_.values;
}

void Importer::pointer(Json const& json) {
  std::vector<std::string> texts;
  for (Json const& text : json.is_array() ? json : Json::array({json})) {
    if (!text.is_string()) fail("the path of an entity expected, not " + text.dump());
    texts.push_back(text.get<std::string>());
  }
  if (texts.empty()) fail("the path of an entity expected, not " + json.dump());
  if (!write_) return;
  KelAttr const& attr = *at_.steps.back().attr;
  std::string const text = texts.front();
  EntityHooks const& hooks = hooksOf(*attr.ownerType());
  bool const implied = options_.values == ValueRule::checked && hooks.isImplied && hooks.isImplied(attr, text);
  texts.erase(texts.begin());
  if (implied)
    references_.push_back({{at_, nullptr, "", {}}, fresh_});
  else
    references_.push_back({{at_, text, text, {}, std::move(texts)}, fresh_});
}

void Importer::finish() {
  while (!late_.empty()) {
    std::vector<Late> const turn = std::exchange(late_, {});
    for (Late const& late : turn) {
      at_ = late.at;
      in_ = late.in;
      fresh_ = late.fresh;
      attribute(late.owner.ptr(), *late.attr, *late.json);
    }
    lastCall_ = late_.size() == turn.size();
  }
  fresh_ = false;
  if (!departed_.empty()) {
    beforePending();
    departed_.repoint(base_, options_.pending, undo_);
  }
  for (Waiting& waiting : references_) {
    fresh_ = waiting.fresh;
    resolve(waiting.reference);
  }
}

void Importer::resolve(PendingReference& reference) {
  forgetPending(reference.place);
  KelAttr const& attr = *reference.place.steps.back().attr;
  Place const was = locate(base_, reference.place);
  GenericIf::Ptr const owner = GenericIf::ofEntity(entityAt(base_, reference.place.parent()));
  if (!owner) return;
  Kel::Entity* const old = attr.isCollection() ? nullptr : singleTarget(*owner->entity(), attr);
  if (undo_ && !fresh_) noteBefore(*undo_, base_, reference);
  reference.reason = setToAny(base_, reference);
  if (!attr.isCollection() && singleTarget(*owner->entity(), attr) != old) ++report_.values;
  if (attr.isCollection() && !was.there()) ++report_.values;
  if (reference.reason.empty()) return;
  report_.dangling.push_back(reference);
  beforePending();
  if (options_.pending) options_.pending->add(reference);
  clearReference(base_, reference);
}

// --- Before writes ---

void Importer::before(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key) {
  if (undo_ && !fresh_) undo_->note(owner, attr, key);
}

void Importer::beforeAll(Kel::Entity& owner, KelAttr const& attr) {
  if (undo_ && !fresh_) undo_->noteAll(owner, attr);
}

void Importer::beforePending() {
  if (undo_ && options_.pending) undo_->notePending(*options_.pending);
}

void Importer::forgetPending(Path const& place) {
  if (!options_.pending || options_.pending->within(place).empty()) return;
  beforePending();
  options_.pending->erase(place);
}

}  // namespace Cli::Service
