// Paths and texts of attributes, through reflection alone. A line is a step from entity to entity of one tree:
//
//     dNAME   eNAME        makes a directory or a hall in a directory and goes there
//     mATTR NAME           makes what a hall or bolt owns, under a name, and goes there
//     u   ^                goes to the parent; to the root
//     ?PATH                looks a path up
//     sATTR TEXT           sets a value from a text
//     kATTR KEY=TEXT       sets the value under a key, both from texts
#include <algorithm>

#include "CliSession/Tree.h"
#include "Fuzz.h"
#include "Kel/Exception.h"
#include "Plant.h"

namespace {

using Kel::GenericIf;
using Kel::KelAttr;

struct Subject {
  Kel::Dir::Ptr root = Kel::dirFactory("");
  Kel::Entity::Ptr at = root;

  Kel::Dir* dir() const { return dynamic_cast<Kel::Dir*>(at.ptr()); }

  void make(char const* typeName, std::string const& name) {
    if (!dir()) return;
    bool const taken = dir()->entry(Kel::Name(name)) != nullptr;
    try {
      at = dir()->newEntity(typeName, Kel::Name(name));
      FUZZ_LAW(!taken, name);
    } catch (Kel::NameInUseException const&) {
      FUZZ_LAW(taken, name);
    }
  }

  // Members that are made from a name alone.
  void makeOwned(std::string const& attribute, std::string const& name) {
    KelAttr const* attr = at->type()->findAttr(attribute);
    if (dir() || !attr || !attr->instantiating() || attr->isQueue() || attr->constraint().args() != 1) return;
    GenericIf::Ptr const gif = GenericIf::ofEntity(at);
    try {
      GenericIf::PtrConst const key = attr->constraint().argPtr(0)->type()->genericFromText(name);
      GenericIf::PtrConst const index = attr->isCollection() ? key : nullptr;
      gif->attributeIs(attr->id(), index, key);
      Kel::Entity::Ptr const made = gif->attribute(attr->id(), index)->entity();
      FUZZ_LAW(made && made->parent() == at.ptr() && made->parentAttr() == attr, name);
      at = made;
    } catch (Kel::RangeException const&) {  // no key
    }
  }

  // Against what is there: a path leads to an entity that is called so, and to none only when none is.
  void lookUp(std::string const& path) const {
    std::string full = path;
    if (!path.empty() && path.front() != '/') full = at->fullName().str() + (path.front() == '.' ? "" : "/") + path;
    bool const possible = !path.empty() && (path.front() == '/' || path.front() == '.' || dir());
    bool const below = path.empty() || path.front() == '/' || full.size() > at->fullName().chars();
    Kel::Entity::Ptr const found = at->entity(Kel::String8(path));
    if (found) FUZZ_LAW(found->fullName() == Kel::String8(full), full);
    auto const all = Tests::entitiesOf(path.empty() || path.front() == '/' ? *root : *at);
    bool const isThere = std::any_of(all.begin() + 1, all.end(), [&](Kel::Entity const* e) {
      bool const named = e->hasFullName(full);
      FUZZ_LAW(named == (e->fullName() == Kel::String8(full)), full);
      return named;
    });
    FUZZ_LAW((found != nullptr) == (possible && below && isThere), full);
    FUZZ_LAW(at->entity(Kel::EntityUriPath(Kel::String8(path))) == found, full);
  }
};

bool same(GenericIf const& a, GenericIf const& b) {
  // A NaN does not equal itself, and some types have no comparison.
  return a.strep() == b.strep() || (a.type()->valueOps().equal && a.valueEqual(b));
}

// The value that a text stands for, if any; it stands for itself again as text.
GenericIf::PtrConst parsed(Kel::KelType const& type, std::string const& text) {
  try {
    GenericIf::Ptr const value = type.genericFromText(text);
    FUZZ_LAW(value->type() == &type, text);
    GenericIf::Ptr const again = type.genericFromText(value->text());
    FUZZ_LAW(same(*again, *value) && again->text() == value->text(), text);
    return value;
  } catch (Kel::RangeException const& e) {
    FUZZ_LAW(!e.message().empty(), text);
    return nullptr;
  }
}

void set(Kel::Entity::Ptr const& e, std::string const& attribute, std::string const* keyText, std::string const& text) {
  KelAttr const* attr = e->type()->findAttr(attribute);
  if (!attr || !attr->isValue() || attr->isQueue() || attr->isCollection() != (keyText != nullptr)) return;
  if (keyText && attr->keyIsPtr()) return;
  GenericIf::PtrConst const key = keyText ? parsed(*attr->keyType(), *keyText) : nullptr;
  GenericIf::PtrConst const value = parsed(*attr->type(), text);
  if (!value || (keyText && !key)) return;
  GenericIf::Ptr const gif = GenericIf::ofEntity(e);
  try {
    gif->attributeIs(attr->id(), key, value);
    FUZZ_LAW(attr->writable(), attribute);
    FUZZ_LAW(same(*gif->attribute(attr->id(), key), *value), text);
    if (!keyText) FUZZ_LAW(e->attributeString(attr->id()) == gif->attribute(attr->id())->text(), text);
  } catch (Kel::OpNotSupportedException const&) {
    FUZZ_LAW(!attr->writable(), attribute);
  } catch (Kel::BadIndexAttrException const&) {
    FUZZ_LAW(attribute == "tags", attribute);  // whose key is a field of the value
  }
}

void step(Fuzz::Input line, Subject& subject) {
  char const kind = static_cast<char>(line.byte());
  switch (kind) {
    case 'd': return subject.make("Kel::Dir", std::string(line.rest()));
    case 'e': return subject.make("Plant::Hall", std::string(line.rest()));
    case '^': subject.at = subject.root; return;
    case 'u':
      if (subject.at->parent()) subject.at = Kel::Entity::Ptr(subject.at->parent());
      return;
    case '?': return subject.lookUp(std::string(line.rest()));
    default: break;
  }
  std::string const attribute(line.until(' '));
  if (kind == 'm') return subject.makeOwned(attribute, std::string(line.rest()));
  if (kind == 's') return set(subject.at, attribute, nullptr, std::string(line.rest()));
  if (kind != 'k') return;
  std::string const key(line.until('='));
  set(subject.at, attribute, &key, std::string(line.rest()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 2000) return 0;
  Plant::Hall::_fwkType();
  Fuzz::Input input(data, size);
  Subject subject;
  while (!input.atEnd()) {
    std::string_view const line = input.line();
    step(Fuzz::Input(reinterpret_cast<std::uint8_t const*>(line.data()), line.size()), subject);
  }
  for (Kel::Entity const* e : Tests::entitiesOf(*subject.root))
    if (e->parent()) subject.lookUp(e->fullName().str());
  return 0;
}
