#include "examples/config_db/Edits.h"

#include <algorithm>
#include <set>

#include "examples/config_db/Fields.h"
#include "examples/config_db/Keys.h"
#include "examples/config_db/TableMap.h"
#include "examples/config_db/Values.h"
#include "service/ModelHooks.h"
#include "service/Path.h"
#include "service/ValueText.h"

namespace ConfigDb {

namespace {

namespace Service = Cli::Service;
using Kel::GenericIf;

// --- Values ---

struct Expected {
  char const* type;
  char const* text;
  std::vector<std::string> words;
};

std::vector<Expected> const& expectedTexts() {
  static std::vector<Expected> const texts = {
      {"Ip", "an address like 192.0.2.1 or 2001:db8::1", {}},
      {"Prefix", "a prefix like 192.0.2.0/24 or 2001:db8::/32", {}},
      {"IpOrPrefix", "an address or a prefix", {}},
      {"IpOrName", "an address, or the name of an interface", {}},
      {"Mac", "a MAC address like 02:00:5e:00:53:01", {}},
      {"Range", "a number or a range like 3-4", {}},
      {"NumberOrAuto", "a number from 0 to 65535, or auto", {"auto"}},
      {"NumberOrAll", "a number, or all", {"all"}},
      {"HexMask", "a hexadecimal number like 0x12, or one with a mask, 0x12/0x3f", {}},
      {"Metres", "a length like 300m", {}},
  };
  return texts;
}

void registerValues() {
  for (Expected const& each : expectedTexts()) {
    std::string const name = std::string("ConfigDb::") + each.type;
    Kel::KelType const* const type = Kel::KelType::find(name);
    Service::Spelling spelling;
    // The text that the representation has: a file's "300m" is the number 300.
    spelling.canonical = [type](std::string_view text) { return canonicalText(*type, text); };
    spelling.expected = each.text;
    spelling.words = each.words;
    Service::registerSpelling(name, spelling);
  }
}

// All types of the model that are reached from its roots.
void collect(Kel::KelType const* type, std::set<Kel::KelType const*>& types) {
  if (!type || !types.insert(type).second || !type->isEntity()) return;
  for (Kel::KelAttr const* attr : type->attributeQ())
    for (Kel::KelType const* each : {attr->type(), attr->keyType()}) collect(each, types);
}

void registerEnumerations() {
  std::set<Kel::KelType const*> types;
  for (Root const& root : roots()) collect(Kel::KelType::find(root.type), types);
  for (Kel::KelType const* type : types) {
    if (!type->isEnum()) continue;
    Service::Spelling spelling;
    spelling.canonical = [type](std::string_view text) { return canonicalText(*type, text); };
    spelling.unset = {"unset"};
    Service::registerSpelling(type->fullTypeName().str(), spelling);
  }
}

// --- Keys ---

// The table whose entries an attribute holds; null: it holds none, or children of entries.
Table const* tableOf(Kel::KelAttr const& attr) {
  for (Root const& root : roots()) {
    if (attr.ownerType()->fullTypeName() != root.type) continue;
    for (Table const& table : tables())
      if (attr.name() == table.attribute && std::string_view(table.root) == root.path) return &table;
  }
  return nullptr;
}

// The part of a key that is the key of a child of entries; null when the attribute holds none.
KeyPart const* childPart(Kel::KelAttr const& attr) {
  static std::vector<KeyPart> const parts = [] {
    std::vector<KeyPart> found;
    for (Table const& table : tables())
      for (KeyPart const& part : table.keyParts())
        if (!part.child.empty()) found.push_back(part);
    return found;
  }();
  auto const found =
      std::find_if(parts.begin(), parts.end(), [&](KeyPart const& part) { return attr.name().view() == part.child; });
  return found == parts.end() ? nullptr : &*found;
}

// The parts of an entry's own key, without a child's.
std::vector<KeyPart> ownParts(Table const& table) {
  std::vector<KeyPart> parts = table.keyParts();
  if (!parts.back().child.empty()) parts.pop_back();
  return parts;
}

std::string keyForm(std::vector<KeyPart> const& parts) {
  std::string form;
  for (KeyPart const& part : parts) {
    std::string name = part.attribute.empty() ? "NAME" : part.attribute;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
    form += (form.empty() ? "" : "|") + name;
  }
  return form;
}

std::string spelt(Kel::KelType const& type, KeyPart const& part, std::string const& text) {
  if (part.attribute.empty()) return text;
  Kel::KelAttr const& attr = *type.getAttr(part.attribute);
  if (attr.isPtr()) return text;
  auto const canonical = canonicalText(*attr.type(), text);
  if (canonical && !canonical->empty()) return *canonical;
  throw Service::InputError("'" + text + "' is not " + Service::expectation(*attr.type()));
}

std::string keyOf(Kel::KelAttr const& attr, std::string_view text) {
  std::string const whole(trimmed(text));
  if (whole.empty()) throw Service::InputError("a key is empty");
  Table const* const table = tableOf(attr);
  if (!table) {
    KeyPart const* const child = childPart(attr);
    return child ? spelt(*attr.type(), *child, whole) : whole;
  }
  if (attr.keyType()->isEnum()) return canonicalText(*attr.keyType(), whole).value_or(whole);
  std::vector<KeyPart> const parts = ownParts(*table);
  std::vector<std::string> const texts = splitKey(parts, whole);
  if (texts.empty()) throw Service::InputError("'" + whole + "' is not a key like " + keyForm(parts));
  std::string name;
  for (std::size_t i = 0; i < parts.size(); ++i)
    if (!texts[i].empty()) name += (name.empty() ? "" : "|") + spelt(*attr.type(), parts[i], texts[i]);
  return name;
}

// --- What follows from a key ---

bool impliedBy(Kel::KelType const& wanted, std::string_view name) {
  for (Root const& root : roots())
    for (Table const& table : tables()) {
      if (std::string_view(table.root) != root.path) continue;
      if (isImplied(table, name) && Kel::KelType::find(root.type)->getAttr(table.attribute)->type()->isA(&wanted))
        return true;
    }
  return false;
}

// The path that an entry of that name has, in the first table of the type that has it, or would have.
std::string entryPath(Kel::Dir::Ptr const& base, Kel::KelType const& wanted, std::string const& name) {
  std::string first;
  for (Root const& root : roots())
    for (Table const& table : tables()) {
      if (std::string_view(table.root) != root.path) continue;
      if (!Kel::KelType::find(root.type)->getAttr(table.attribute)->type()->isA(&wanted)) continue;
      std::string const path = std::string(table.root) + "." + table.attribute + "/" + name;
      if (base->entity(Kel::String(path))) return path;
      if (first.empty()) first = path;
    }
  return first;
}

void fill(Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, std::string const& attribute,
          std::string const& text, Service::PendingReferences& pending) {
  GenericIf::Ptr const gif = GenericIf::ofEntity(made);
  Kel::KelAttr const& attr = *gif->type()->getAttr(attribute);
  if (!attr.isPtr()) {
    if (auto const value = valueFromText(*attr.type(), text)) gif->attributeIs(attr.id(), nullptr, value);
    return;
  }
  if (impliedBy(*attr.type(), text)) return;
  std::string const path = entryPath(base, *attr.type(), text);
  if (Kel::Entity::Ptr const target = base->entity(Kel::String(path)))
    return gif->attributeIs(attr.id(), nullptr, GenericIf::ofEntity(target));
  if (auto at = Service::pathOf(*made, *base))
    pending.add({*at / Service::attributeStep(attr), path, path, "there is no such entry"});
}

void created(Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, Service::PendingReferences& pending) {
  Kel::KelAttr const* const holder = made->parentAttr();
  if (!holder) return;
  if (Table const* const table = tableOf(*holder)) {
    if (table->isSingleton()) return;
    std::vector<KeyPart> const parts = ownParts(*table);
    std::vector<std::string> const texts = splitKey(parts, made->name().view());
    for (std::size_t i = 0; i < texts.size(); ++i)
      if (!parts[i].attribute.empty() && !texts[i].empty()) fill(base, made, parts[i].attribute, texts[i], pending);
  } else if (KeyPart const* const child = childPart(*holder)) {
    fill(base, made, child->attribute, made->name().str(), pending);
  }
}

// A number or a boolean that was given as 0 or false is told from one that was not by its name in `present`.
void changed(Kel::Entity& entity, Kel::KelAttr const& attr, bool given) {
  if (attr.isCollection() || attr.isPtr() || attr.instantiating()) return;
  GenericIf::Ptr const gif = GenericIf::ofEntity(Kel::Entity::Ptr(&entity));
  auto const present = gif->attributeId("present");
  auto const name = GenericIf::of(attr.name());
  if (given && looksAbsent(*gif->attribute(attr.id())))
    gif->attributeIs(present, name, GenericIf::of(true));
  else
    gif->attributeDel(present, name);
}

}  // namespace

void registerEdits() {
  registerValues();
  registerEnumerations();
  Service::EntityHooks hooks;
  hooks.key = keyOf;
  hooks.singletonName = [](Kel::KelAttr const& attr) {
    Table const* const table = tableOf(attr);
    return table && table->isSingleton() ? std::string(table->key + 1) : attr.name().str();
  };
  hooks.created = created;
  hooks.changed = changed;
  hooks.isImplied = [](Kel::KelAttr const& attr, std::string_view text) { return impliedBy(*attr.type(), text); };
  Service::registerHooks("ConfigDb::TableEntry", hooks);
}

}  // namespace ConfigDb
