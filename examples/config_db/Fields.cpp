#include "examples/config_db/Fields.h"

#include <optional>

#include "examples/config_db/Editing.h"
#include "examples/config_db/Values.h"
#include "service/JsonTree.h"

namespace ConfigDb {

using Kel::GenericIf;

namespace {

// The text of a value; empty for a list or an object.
std::optional<std::string_view> scalarText(JsonValue const& value) {
  if (value.kind == JsonValue::Kind::array || value.isObject()) return std::nullopt;
  return std::string_view(value.text);
}

// The elements of a list that is written as one text.
std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> elements;
  for (;;) {
    std::size_t const end = text.find_first_of(",;");
    elements.push_back(trimmed(text.substr(0, end)));
    if (end == std::string_view::npos) return elements;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

void Complaints::add(std::string const& where, std::string const& what) {
  std::string line = file_ + ": " + where + ": " + what;
  for (char& c : line)
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  lines_.push_back(line);
}

void FieldWriter::complain(Entry const& entry, std::string const& field, std::string const& what) const {
  complaints_.add(entry.label + ": " + field, what);
}

// The value or the entity for a text, or null. Complains if there should be one; `done` says what was done instead.
GenericIf::Ptr FieldWriter::converted(Entry const& entry, std::string const& field, Kel::KelType const& type,
                                      bool pointer, std::string_view text, char const* done) const {
  if (pointer) {
    Tree::Found const found = tree_.referred(type, text);
    if (!found.problem.empty()) complain(entry, field, found.problem + ", " + done);
    return GenericIf::ofEntity(found.entity);
  }
  GenericIf::Ptr value = Cli::Service::valueOf(type, text);
  if (!value) complain(entry, field, "\"" + std::string(text) + "\" " + refusal(type) + ", " + done);
  return value;
}

void FieldWriter::noteDangling(Entry const& entry, Kel::KelAttr const& attr, std::string_view text,
                               GenericIf::PtrConst key, GenericIf::PtrConst const& member) const {
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): a collection that is keyed by pointers has a key type
  Kel::KelType const& type = attr.keyIsPtr() ? *attr.keyType() : *attr.type();
  Tree::Found const found = tree_.referred(type, text);
  if (found.problem.empty()) return;
  std::vector<std::string> targets = tree_.expected(type, text);
  std::string const target = targets.front();
  targets.erase(targets.begin());
  if (attr.keyIsPtr()) key = GenericIf::of(Kel::String8(target));
  Cli::Service::Path const owner = tree_.pathOf(*entry.entity->entity());
  Cli::Service::Json const value =
      member ? Cli::Service::exportValue(member.ptr(), *entry.entity->entity()) : Cli::Service::Json(target);
  dangling_.push_back({owner / Cli::Service::memberStep(attr, key), value, target, found.problem, std::move(targets)});
}

void FieldWriter::keyPart(Entry const& entry, std::string const& attribute, std::string_view text) const {
  single(entry, *entry.entity->type()->getAttr(attribute), attribute, text);
}

void FieldWriter::field(Entry const& entry, std::string const& name, JsonValue const& value) const {
  if (trimmed(name) == "NULL") return;  // the filler of an entry without fields
  auto const text = scalarText(value);
  if (text && isAbsent(*text)) return;
  if (mapAttribute(*entry.table)) return mapped(entry, name, value);
  Kel::KelAttr const* const attr = attributeOf(*entry.table, *entry.entity->type(), trimmed(name));
  if (!attr) return complain(entry, name, "not in the model, ignored");
  if (attr->isCollection()) return many(entry, *attr, name, value);
  if (!text) return complain(entry, name, std::string(kindName(value.kind)) + " is no single value, left unset");
  single(entry, *attr, name, *text);
}

// A field of a table whose field names are data: the key of a member.
void FieldWriter::mapped(Entry const& entry, std::string const& name, JsonValue const& value) const {
  Kel::KelAttr const& attr = *entry.entity->type()->getAttr(mapAttribute(*entry.table));
  auto const text = scalarText(value);
  if (!text) return complain(entry, name, std::string(kindName(value.kind)) + " is no single value, left out");
  auto const key = converted(entry, name, *attr.keyType(), attr.keyIsPtr(), name, "left out");
  auto const member = converted(entry, name, *attr.type(), false, *text, "left out");
  if (!key && member && attr.keyIsPtr()) noteDangling(entry, attr, name, nullptr, member);
  if (key && member) entry.entity->attributeIs(attr.id(), key, member);
}

void FieldWriter::single(Entry const& entry, Kel::KelAttr const& attr, std::string const& name,
                         std::string_view text) const {
  auto const value =
      converted(entry, name, *attr.type(), attr.isPtr(), text, attr.isPtr() ? "left null" : "left unset");
  if (!value && attr.isPtr()) noteDangling(entry, attr, text, nullptr, nullptr);
  if (!value) return;
  entry.entity->attributeIs(attr.id(), nullptr, value);
  notePresence(*entry.entity->entity(), attr, true);
}

// A list replaces an earlier one, because an entry can be given twice, under two spellings of its key.
void FieldWriter::many(Entry const& entry, Kel::KelAttr const& attr, std::string const& name,
                       JsonValue const& value) const {
  if (value.isObject()) return complain(entry, name, "an object is no list, left unset");
  entry.entity->attributeOp(Kel::AttributeOp::deleteAll, attr.id());
  if (auto const text = scalarText(value)) {
    for (std::string_view const element : split(*text)) one(entry, attr, name, element);
    return;
  }
  for (JsonValue const& item : value.items) {
    auto const text = scalarText(item);
    if (text)
      one(entry, attr, name, trimmed(*text));
    else
      complain(entry, name, std::string(kindName(item.kind)) + " is no element of a list, left out");
  }
}

void FieldWriter::one(Entry const& entry, Kel::KelAttr const& attr, std::string const& name,
                      std::string_view text) const {
  if (isAbsent(text)) return;
  auto const value = converted(entry, name, *attr.type(), attr.isPtr(), text, "left out");
  if (!value && attr.isPtr()) noteDangling(entry, attr, text, GenericIf::of(Kel::Name(Tree::nameIn(text))), nullptr);
  if (!value) return;
  if (attr.isQueue())
    entry.entity->attributeSQEnq(attr.id(), value);
  else
    entry.entity->attributeIs(attr.id(), GenericIf::of(value->entity()->name()), value);
}

}  // namespace ConfigDb
