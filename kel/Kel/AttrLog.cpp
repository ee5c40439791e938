#include "Kel/AttrLog.h"

#include <array>
#include <unordered_set>

#include "Kel/AttrAccess.h"
#include "Kel/AttrLogStream.h"

namespace Kel {

// --- The adapter ---

KelNboAttrLogSa::KelNboAttrLogSa(KelType const& type) : type_(type) {
  for (KelAttr const* attr : type.attributeQ())
    if (attr->logging() && !attr->access().derived()) attributes_.push_back(attr);
}

namespace {

// The form of an attribute, in a byte.
U8 form(KelAttr const& attr) {
  unsigned const content = attr.isPtr() ? 1 : attr.instantiating() ? 2 : 0;
  unsigned const collection = static_cast<unsigned>(attr.collectionKind());
  return static_cast<U8>(content | collection << 2 | unsigned(attr.keyIsPtr()) << 4 | unsigned(attr.ctorParam()) << 5);
}

std::string_view typeName(KelType const* type) { return type ? type->fullTypeName().view() : std::string_view(); }

// Reads the description of one attribute. Answers the type's attribute of that name; raises if the log says something
// else about it.
KelAttr const* describedAttr(KelType const& type, AttrLogIn& in) {
  std::string_view const name = in.getText();
  KelAttr const* attr = type.findAttr(name);
  if (!attr || !attr->logging() || attr->access().derived())
    in.throwRecord(type.fullTypeName() + " has no attribute '" + name + "'");
  if (in.get<U8>() != form(*attr)) in.throwRecord(attr->fullName() + " is of another kind here");
  if (in.getText() != typeName(attr->type())) in.throwRecord(attr->fullName() + " is of another type here");
  if (in.getText() != typeName(attr->keyType())) in.throwRecord(attr->fullName() + " has keys of another type here");
  return attr;
}

void describedEnumerator(KelType const& type, AttrLogIn& in) {
  std::string_view const name = in.getText();
  KelType::Enumerator const* known = nullptr;
  for (KelType::Enumerator const& e : type.enumerators())
    if (e.name == name) known = &e;
  if (!known) in.throwRecord(type.fullTypeName() + " has no enumerator '" + name + "'");
  if (in.get<S32>() != known->value) in.throwRecord(type.fullTypeName() + " has another number for '" + name + "'");
}

// A value is read field by field, so all fields must be there, in order. Of an entity type, so must the parameters.
void checkComplete(KelType const& type, std::vector<KelAttr const*> const& attrs, AttrLogIn const& in) {
  std::vector<KelAttr const*> const& own = type.attrLogSa().attributes();
  std::size_t const fixed = type.isEntity() ? type.ctorArgs().size() : own.size();
  bool const same =
      attrs.size() >= fixed && std::equal(own.begin(), own.begin() + static_cast<long>(fixed), attrs.begin());
  if (!same) in.throwRecord(type.fullTypeName() + " has other fields or constructor parameters here");
  if (std::unordered_set<KelAttr const*>(attrs.begin(), attrs.end()).size() != attrs.size())
    in.throwRecord(type.fullTypeName() + ": an attribute is described twice");
}

}  // namespace

// How the format numbers the kinds of types.
static_assert(int(KelType::Kind::enumeration) == 1 && int(KelType::Kind::value) == 2 &&
              int(KelType::Kind::entity) == 3);
static_assert(int(KelAttr::Collection::hashMap) == 1 && int(KelAttr::Collection::orderedMap) == 2 &&
              int(KelAttr::Collection::queue) == 3);

void KelNboAttrLogSa::describe(AttrLogOut& out) const {
  out.put(type_.fullTypeName());
  out.put(type_.kind());
  if (type_.isEnum()) {
    out.put(static_cast<U32>(type_.enumerators().size()));
    for (KelType::Enumerator const& e : type_.enumerators()) {
      out.put(e.name);
      out.put(e.value);
    }
    return;
  }
  out.put(static_cast<U32>(attributes_.size()));
  for (KelAttr const* attr : attributes_) {
    out.put(attr->name());
    out.put(form(*attr));
    out.putText(typeName(attr->type()));
    out.putText(typeName(attr->keyType()));
  }
}

KelNboAttrLogSa KelNboAttrLogSa::described(AttrLogIn& in) {
  String8 const name(in.getText());
  KelType const* type = KelType::find(name);
  if (!type) in.throwRecord(String8("unknown type '") + name + "'");
  auto const kind = in.get<U8>();
  bool const streamed = type->isEntity() || type->isEnum() || type->kind() == KelType::Kind::value;
  if (kind != static_cast<U8>(type->kind()) || !streamed) in.throwRecord(name + " is of another kind here");
  U32 left = in.get<U32>();
  if (type->isEnum()) {
    for (; left > 0; --left) describedEnumerator(*type, in);
    return KelNboAttrLogSa(*type, {});
  }
  std::vector<KelAttr const*> attrs;
  for (; left > 0; --left) attrs.push_back(describedAttr(*type, in));
  checkComplete(*type, attrs, in);
  return KelNboAttrLogSa(*type, std::move(attrs));
}

void KelNboAttrLogSa::write(Entity const& e, AttrLogOut& out) const {
  for (KelAttr const* attr : attributes_) attr->access().write(*attr, &e, out);
}

void KelNboAttrLogSa::read(Entity& e, AttrLogIn& in) const {
  for (KelAttr const* attr : attributes_)
    if (!attr->ctorParam()) attr->access().read(*attr, &e, in);
}

// --- The checksum ---

namespace {

constexpr std::array<U32, 256> checksumTable() {
  std::array<U32, 256> table{};
  for (U32 i = 0; i < 256; ++i) {
    U32 rest = i;
    for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ (rest & 1 ? 0xedb88320u : 0u);
    table[i] = rest;
  }
  return table;
}

}  // namespace

U32 attrLogChecksum(std::string_view bytes) noexcept {
  static constexpr std::array<U32, 256> table = checksumTable();
  U32 sum = ~0u;
  for (char const c : bytes) sum = table[(sum ^ static_cast<unsigned char>(c)) & 0xff] ^ (sum >> 8);
  return ~sum;
}

}  // namespace Kel
