#include "examples/config_db/Editing.h"

#include <map>
#include <mutex>

#include "examples/config_db/Values.h"
#include "service/ModelHooks.h"

namespace ConfigDb {

using Cli::Service::EntityHooks;
using Cli::Service::InputError;
using Cli::Service::PendingReferences;
using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

// --- Keys ---

std::vector<std::string> splitKey(std::vector<KeyPart> const& parts, std::string_view text) {
  std::vector<std::string> texts(parts.size());
  bool const oneText = text.find('|') == std::string_view::npos;
  std::size_t first = 0, last = parts.size() - 1;
  if (oneText && parts.front().optional) first = last;
  if (oneText && !parts.back().child.empty()) last = first;  // the key of the parent
  for (std::size_t i = first; i <= last; ++i) {
    std::size_t const bar = i == last ? std::string_view::npos : text.find('|');
    texts[i] = trimmed(text.substr(0, bar));
    if (texts[i].empty() || (i < last && bar == std::string_view::npos)) return {};
    if (i < last) text.remove_prefix(bar + 1);
  }
  return texts;
}

std::string canonicalPart(Kel::KelType const& type, KeyPart const& part, std::string const& text) {
  if (part.attribute.empty()) return text;
  Kel::KelAttr const& attr = *type.getAttr(part.attribute);
  return attr.isPtr() ? text : canonicalText(*attr.type(), text).value_or(text);
}

namespace {

KelAttr const& attributeOf(Table const& table) {
  for (Root const& root : roots())
    if (std::string_view(root.path) == table.root) return *KelType::find(root.type)->getAttr(table.attribute);
  throw std::logic_error(table.root);
}

std::vector<Table const*> tablesOf(KelType const& type) {
  std::vector<Table const*> found;
  for (Table const& table : tables())
    if (attributeOf(table).type()->isA(&type)) found.push_back(&table);
  return found;
}

std::string pathOfEntry(Table const& table, std::string_view name) {
  return std::string(table.root) + "." + table.attribute + "/" + std::string(name);
}

// The form of a table's keys, for messages: "VLAN|PORT".
std::string form(std::vector<KeyPart> const& parts) {
  std::string text;
  for (KeyPart const& part : parts)
    if (part.child.empty()) text += (text.empty() ? "" : "|") + (part.attribute.empty() ? "name" : part.attribute);
  return text;
}

// A part of a typed key, which must be a value of its type.
std::string checkedPart(KelType const& type, KeyPart const& part, std::string const& text) {
  if (part.attribute.empty() || text.empty()) return text;
  KelAttr const& attr = *type.getAttr(part.attribute);
  if (attr.isPtr()) return text;
  auto const canonical = canonicalText(*attr.type(), text);
  if (!canonical)
    throw InputError("'" + text + "' is not " + Cli::Service::expectation(*attr.type()) + ", the " + part.attribute +
                     " of the key");
  return *canonical;
}

// The parts of a key without that of a child.
std::vector<KeyPart> ownParts(Table const& table) {
  std::vector<KeyPart> parts = table.keyParts();
  if (!parts.back().child.empty()) parts.pop_back();
  return parts;
}

std::string keyOf(Table const& table, KelAttr const& attr, std::string_view text) {
  std::vector<KeyPart> const parts = ownParts(table);
  std::vector<std::string> const texts = splitKey(parts, text);
  if (texts.empty())
    throw InputError("'" + std::string(text) + "' is no key of " + attr.name().str() + ", which has the form " +
                     form(parts));
  std::string key;
  for (std::size_t i = 0; i < parts.size(); ++i)
    if (!texts[i].empty()) key += (key.empty() ? "" : "|") + checkedPart(*attr.type(), parts[i], texts[i]);
  return key;
}

// --- Attributes that are derived from a key ---

bool implies(KelAttr const& attr, std::string_view text) {
  for (Table const* table : tablesOf(*attr.type()))
    if (isImplied(*table, text)) return true;
  return false;
}

void fillReference(Kel::Dir::Ptr const& base, Kel::Entity const& made, KelAttr const& attr, std::string const& text,
                   PendingReferences& pending) {
  for (Table const* table : tablesOf(*attr.type())) {
    if (isImplied(*table, text)) return;
    Kel::Entity::Ptr const target = Cli::Service::targetAt(base, pathOfEntry(*table, text));
    if (!target) continue;
    GenericIf::ofEntity(Kel::Entity::Ptr(const_cast<Kel::Entity*>(&made)))
        ->attributeIs(attr.id(), nullptr, GenericIf::ofEntity(target));
    return;
  }
  auto const owner = Cli::Service::pathOf(made, *base);
  if (!owner) return;
  std::vector<std::string> targets = expectedTargets(*attr.type(), text);
  std::string const target = targets.front();
  targets.erase(targets.begin());
  pending.add(
      {*owner / Cli::Service::attributeStep(attr), target, target, "there is no such entity", std::move(targets)});
}

void fillPart(Kel::Dir::Ptr const& base, Kel::Entity& made, std::string const& attribute, std::string const& text,
              PendingReferences& pending) {
  if (attribute.empty() || text.empty()) return;
  KelAttr const& attr = *made.type()->getAttr(attribute);
  if (attr.isPtr()) return fillReference(base, made, attr, text, pending);
  auto const value = Cli::Service::valueOf(*attr.type(), text);
  if (!value) return;
  GenericIf::ofEntity(Kel::Entity::Ptr(&made))->attributeIs(attr.id(), nullptr, value);
  notePresence(made, attr, true);
}

Cli::Service::KeyForm keyForm(Table const& table, KelAttr const& holder) {
  std::vector<KeyPart> const parts = ownParts(table);
  Cli::Service::KeyForm found;
  found.text = form(parts);
  for (KeyPart const& part : parts)
    found.parts.push_back(part.attribute.empty() ? nullptr : holder.type()->getAttr(part.attribute));
  return found;
}

EntityHooks hooksFor(Table const& table) {
  EntityHooks hooks;
  if (table.isSingleton()) {
    hooks.singletonName = [&table](KelAttr const&) { return std::string(table.key + 1); };
  } else if (attributeOf(table).keyType() == Kel::TypeOf<Kel::Name>::type()) {
    hooks.key = [&table](KelAttr const& attr, std::string_view text) { return keyOf(table, attr, text); };
    hooks.keyForm = [&table](KelAttr const& attr) { return keyForm(table, attr); };
    hooks.created = [&table](Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, PendingReferences& pending) {
      std::vector<KeyPart> const parts = ownParts(table);
      std::vector<std::string> const texts = splitKey(parts, made->name().view());
      for (std::size_t i = 0; i < texts.size(); ++i) fillPart(base, *made, parts[i].attribute, texts[i], pending);
    };
  }
  hooks.changed = notePresence;
  hooks.isImplied = implies;
  return hooks;
}

// The members of an entry that a table's keys lead to: addresses of interfaces.
EntityHooks hooksForChild(KeyPart const& part) {
  EntityHooks hooks;
  hooks.key = [part](KelAttr const& attr, std::string_view text) {
    return checkedPart(*attr.type(), part, std::string(trimmed(text)));
  };
  hooks.created = [part](Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, PendingReferences& pending) {
    fillPart(base, *made, part.attribute, made->name().str(), pending);
  };
  hooks.changed = notePresence;
  hooks.isImplied = implies;
  return hooks;
}

}  // namespace

std::vector<std::string> expectedTargets(KelType const& type, std::string_view name) {
  std::vector<std::string> paths;
  for (Table const* table : tablesOf(type)) paths.push_back(pathOfEntry(*table, name));
  if (paths.empty()) paths.emplace_back(name);
  return paths;
}

void notePresence(Kel::Entity& entry, KelAttr const& attr, bool given) {
  KelType const& type = *attr.type();
  bool const counts = attr.isValue() && !attr.isCollection() && type.isBuiltin() &&
                      type.builtin() != KelType::Builtin::string && entry.type()->findAttr("present");
  if (!counts) return;
  bool const isBool = type.builtin() == KelType::Builtin::boolT;
  GenericIf::Ptr const gif = GenericIf::ofEntity(Kel::Entity::Ptr(&entry));
  GenericIf::PtrConst const name = GenericIf::of(attr.name());
  Kel::AttributeId const present = gif->attributeId("present");
  if (given && gif->attribute(attr.id())->valueEqual(*type.genericFromText(isBool ? "false" : "0")))
    gif->attributeIs(present, name, GenericIf::of(true));
  else
    gif->attributeDel(present, name);
}

void registerModel() {
  static std::once_flag once;
  std::call_once(once, [] {
    registerSpellings();
    for (Table const& table : tables()) {
      KelType const& type = *attributeOf(table).type();
      Cli::Service::registerHooks(type.fullTypeName().str(), hooksFor(table));
      KeyPart const last = table.keyParts().back();
      if (!last.child.empty())
        Cli::Service::registerHooks(type.getAttr(last.child)->type()->fullTypeName().str(), hooksForChild(last));
    }
  });
}

}  // namespace ConfigDb
