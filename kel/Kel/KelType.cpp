#include "Kel/KelType.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <ostream>
#include <unordered_map>

#include "Kel/AttrAccess.h"
#include "Kel/AttrLog.h"
#include "Kel/DebugLayout.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

struct KelType::NameIndex {
  std::unordered_map<std::string_view, KelAttr const*> byName;
};

namespace {

struct TypeRegistry {
  std::mutex lock;
  std::map<std::string_view, KelType const*> byName;
  std::vector<TypeFunction> announced;
  std::recursive_mutex making;  // held while records are made: another thread that looks one up waits
  std::size_t made = 0;         // number of announced types with records; under `making`
};

TypeRegistry& typeRegistry() {
  static TypeRegistry* const registry = [] {
    auto* made = new TypeRegistry;
    DebugLayout::types = &made->byName;
    return made;
  }();
  return *registry;
}

// The last component of a qualified name.
String8 shortName(String8 const& fullName) {
  std::string_view const text = fullName;
  std::size_t const colon = text.rfind(':');
  return colon == std::string_view::npos ? fullName : String8(text.substr(colon + 1));
}

}  // namespace

Atomic<bool> TypeRegistration::pending_{false};

TypeRegistration::TypeRegistration(TypeFunction fwkType) {
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::mutex> guard(r.lock);
  r.announced.push_back(fwkType);
  pending_.store(true, Order::release);
}

void TypeRegistration::makeRecords() {
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::recursive_mutex> making(r.making);
  for (;;) {
    TypeFunction next = nullptr;
    {
      std::lock_guard<std::mutex> guard(r.lock);
      if (r.made == r.announced.size()) {
        pending_.store(false, Order::release);
        return;
      }
      next = r.announced[r.made++];
    }
    try {
      KelType const* const type = next();
      type->pointersBelow();
      type->resolveLinks();
    } catch (...) {
      --r.made;
      throw;
    }
  }
}

KelType const* KelType::find(String8 const& fullTypeName) {
  if (TypeRegistration::pending()) TypeRegistration::makeRecords();
  TypeRegistry& r = typeRegistry();
  Dir::_fwkType();
  builtinType(Builtin::none);  // makes all builtins
  TypeOf<KelAttr>::type();
  TypeOf<GenericIf>::type();
  std::lock_guard<std::mutex> guard(r.lock);
  auto const it = r.byName.find(fullTypeName.view());
  return it == r.byName.end() ? nullptr : it->second;
}

KelAttrIntrospectionFlags::KelAttrIntrospectionFlags(unsigned int value) : value_(static_cast<U8>(value)) {
  if (value > 0x3f) throwRangeException("KelAttrIntrospectionFlags::value > 0x3f not allowed");
}

bool KelAttr::isValue() const { return !isFunction() && !isPtr() && type()->isValue(); }
bool KelAttr::isEntity() const { return !isFunction() && !isPtr() && type()->isEntity(); }
KelConstraint KelAttr::constraint() const { return KelConstraint(type()->ctorArgs()); }

std::ostream& operator<<(std::ostream& out, KelAttr const& attr) { return out << attr.name(); }
std::ostream& operator<<(std::ostream& out, KelType const& type) { return out << type.fullTypeName(); }

bool KelType::isA(KelType const* other) const {
  for (KelType const* t = this; t; t = t->base_)
    if (t == other) return true;
  return false;
}

KelAttr const* KelType::findAttr(std::string_view name) const {
  auto const it = index_->byName.find(name);
  return it == index_->byName.end() ? nullptr : it->second;
}

KelAttr const* KelType::getAttr(std::string_view name) const {
  KelAttr const* attr = findAttr(name);
  if (!attr) throwUnknownAttrException(fullName_, String8(name));
  return attr;
}

// A debugger cannot: it reads what was looked up.
void KelType::resolveLinks() const {
  for (KelAttr const* attr : attrs_) {
    attr->type();
    attr->keyType();
  }
}

// Called while entities are destroyed, too. If there is no memory to find out, answers that there are pointers.
bool KelType::pointersBelow() const noexcept try {
  S8 known = pointersBelow_.load(Order::relaxed);
  if (known >= 0) return known != 0;
  // Types may own each other in circles. At the end, only the answer for the type that was asked about is certain, so
  // only that is stored.
  known = 0;
  std::vector<KelType const*> reached{this};
  for (std::size_t i = 0; i < reached.size() && known == 0; ++i) {
    KelType const& type = *reached[i];
    if (&type == Dir::_fwkType() || !type.ptrAttrs_.empty()) known = 1;  // a directory may hold entities of any type
    for (KelAttr const* attr : type.ownAttrs_)
      if (std::find(reached.begin(), reached.end(), attr->type()) == reached.end()) reached.push_back(attr->type());
  }
  pointersBelow_.store(known, Order::relaxed);
  return known != 0;
} catch (std::bad_alloc const&) {
  return true;
}

Ptr<Entity> KelType::newEntity(std::vector<GenericIf::PtrConst> const& args) const {
  if (!construct_) throwTypeException(fullName_, "Entity is the wrong type: it cannot be created");
  if (args.size() != ctorArgs_.size())
    throwUnknownArgException(fullName_, std::to_string(ctorArgs_.size()) + " constructor arguments expected, " +
                                            std::to_string(args.size()) + " given");
  return construct_(args, *this);
}

namespace {

GenericIf::PtrConst defaultArg(KelArg const& arg) {
  if (arg.pointer) return nullptr;
  KelType const* type = arg.type();
  if (type->isEnum()) return GenericIf::ofEnum(type, type->enumerators().front().value);
  return type->valueOps().initial();
}

}  // namespace

bool KelType::isMadeByName() const {
  return construct_ && !ctorArgs_.empty() && !ctorArgs_.front().pointer &&
         ctorArgs_.front().type() == TypeOf<Name>::type();
}

Ptr<Entity> KelType::newEntityFor(Name const& name, Dir* dir) const {
  if (!isMadeByName()) throwTypeException(fullName_, "Entity is the wrong type: it cannot be created from a name");
  std::vector<GenericIf::PtrConst> args{GenericIf::of(name)};
  for (std::size_t i = 1; i < ctorArgs_.size(); ++i) args.push_back(defaultArg(ctorArgs_[i]));
  if (dir && args.size() > 1 && ctorArgs_[1].pointer && ctorArgs_[1].type() == Dir::_fwkType())
    args[1] = GenericIf::ofEntity(Ptr<Entity>(dir));
  return newEntity(args);
}

Ptr<Entity> KelType::newDefault() const {
  std::vector<GenericIf::PtrConst> args;
  for (KelArg const& arg : ctorArgs_) args.push_back(defaultArg(arg));
  return newEntity(args);
}

Ptr<Entity> KelType::newEntity(Name const& name, Dir* dir) const {
  Ptr<Entity> made = newEntityFor(name, dir);
  if (dir) dir->entryIs(made);
  return made;
}

namespace {

void checkIsA(KelType const& type, Entity const* object) {
  if (object && !object->type()->isA(&type))
    throwTypeException(type.fullTypeName(), String8("Entity is the wrong type: ") + object->typeName() + " given");
}

}  // namespace

Ptr<GenericIf> KelType::genericIf(Ptr<Entity> const& object) const {
  checkIsA(*this, object.ptr());
  return GenericIf::ofEntity(object);
}
Ptr<GenericIf const> KelType::genericIf(Ptr<Entity const> const& object) const {
  checkIsA(*this, object.ptr());
  return GenericIf::ofEntity(object);
}
Ptr<GenericIf> KelType::genericIf(void const* value, bool isValue) const {
  if (!isValue || !ops_.box) throwTypeException(fullName_, "not a value type");
  return ops_.box(value);
}

namespace {

// Reads numbers and booleans without quotes.
Ptr<GenericIf> builtinFromText(KelType const& type, std::string_view text) {
  using B = KelType::Builtin;
  if (type.builtin() == B::string) return GenericIf::of(String8(text));
  if (type.builtin() == B::charT && text.size() == 1) return GenericIf::of(text.front());
  if (type.builtin() == B::boolT) {
    if (text == "true" || text == "True") return GenericIf::of(true);
    if (text == "false" || text == "False") return GenericIf::of(false);
    throwRangeException(String8("'") + text + "': true or false expected");
  }
  char const* at = text.data();
  char const* const end = at + text.size();
  try {
    Ptr<GenericIf> parsed = type.valueOps().parse(at, end);
    if (at == end && !text.empty() && text.front() != ' ') return parsed;
  } catch (RangeException const& e) {
    if (e.message().pos("out of the range") != String8::npos) throw;
  }
  throwRangeException(String8("'") + text + "': " + type.name() + " expected");
}

}  // namespace

Ptr<GenericIf> KelType::genericFromText(std::string_view text) const {
  if (isBuiltin()) return builtinFromText(*this, text);
  if (isEnum()) {
    for (Enumerator const& e : enumerators_)
      if (e.name == text) return GenericIf::ofEnum(this, e.value);
    String8 names;
    for (Enumerator const& e : enumerators_) names = names + (names.empty() ? "" : ", ") + e.name;
    throwRangeException(String8("'") + text + "': one of " + names + " expected");
  }
  if (kind_ != Kind::value) throwTypeException(fullName_, "not a value type");
  if (valAttr_) {  // a `rep value` reads as its representation
    String8 const strep = valAttr_->type()->genericFromText(text)->strep();
    char const* at = strep.charPtr();
    return ops_.parse(at, at + strep.chars());
  }
  char const* at = text.data();
  char const* const end = at + text.size();
  Ptr<GenericIf> parsed = ops_.parse(at, end);
  if (at != end) throwJunk(at - text.data(), name_.str().c_str());
  return parsed;
}

// --- Building ---

TypeBuilderBase::TypeBuilderBase(char const* fullName, KelType::Kind kind, KelType const* base) : type_(new KelType) {
  type_->fullName_ = fullName;
  type_->name_ = shortName(type_->fullName_);
  type_->kind_ = kind;
  type_->base_ = base;
  if (!base) return;
  type_->nextDerived_ = base->firstDerived();
  while (!base->firstDerived_.compare_exchange_weak(type_->nextDerived_, type_, Order::acqRel)) {
  }
  type_->attrs_ = base->attrs_;
  type_->ctorArgs_ = base->ctorArgs_;
  type_->plainEqual_ = base->plainEqual_;
}

KelAttr& TypeBuilderBase::add(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type,
                              unsigned int flags) {
  KEL_ASSERT(id == nextId());
  last_ = new KelAttr(access);
  last_->name_ = name;
  last_->fullName_ = type_->fullName_ + "::" + name;
  last_->owner_ = type_;
  last_->type_.functionIs(type);
  last_->id_ = id;
  last_->flags_ = KelAttrIntrospectionFlags(flags);
  type_->attrs_.push_back(last_);
  return *last_;
}

KelAttr& TypeBuilderBase::collection(KelAttr& attr, KelAttr::Collection kind, TypeFunction key, bool keyIsPtr) {
  attr.collection_ = kind;
  attr.keyType_.functionIs(key);
  attr.keyIsPtr_ = keyIsPtr;
  return attr;
}

void TypeBuilderBase::afterChange(void (*call)(Entity&)) { last_->afterChange_ = call; }
void TypeBuilderBase::readonly() {
  last_->flags_ = KelAttrIntrospectionFlags(last_->flags_.value() & ~unsigned(KelAttrIntrospectionFlags::writable));
}
void TypeBuilderBase::nolog() {
  last_->flags_ = KelAttrIntrospectionFlags(last_->flags_.value() & ~unsigned(KelAttrIntrospectionFlags::logging));
}

void TypeBuilderBase::constructWith(Ptr<Entity> (*construct)(std::vector<GenericIf::PtrConst> const&, KelType const&),
                                    bool (*paramsEqual)(Entity const&, Entity const&),
                                    bool (*furtherParamsEqual)(Entity const&, Entity const&),
                                    Entity* (*createLike)(Entity const&)) {
  type_->construct_ = construct;
  type_->paramsEqual_ = paramsEqual;
  type_->furtherParamsEqual_ = furtherParamsEqual;
  type_->createLike_ = createLike;
}

void TypeBuilderBase::plainEqualWith(bool (*equal)(Entity const&, Entity const&),
                                     std::initializer_list<AttributeId> attributes) {
  type_->plainEqual_ = equal;
  // All of these records belong to this type; none is shared with another type yet.
  for (AttributeId id : attributes) {
    KEL_ASSERT(type_->attrs_[id]->owner_ == type_);
    const_cast<KelAttr*>(type_->attrs_[id])->plain_ = true;
  }
}

void TypeBuilderBase::representation(KelAttr& attr, bool autoconvert) {
  type_->valAttr_ = &attr;
  type_->autoconvert_ = autoconvert;
}

void TypeBuilderBase::enumerators(EnumName const* names, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) type_->enumerators_.push_back({names[i].name, names[i].value});
}

KelType const* TypeBuilderBase::done() {
  KelType& t = *type_;
  for (bool params : {true, false})
    for (KelAttr const* attr : t.attrs_)
      if (attr->ctorParam() == params) t.queue_.push_back(attr);
  auto* index = new KelType::NameIndex;
  for (KelAttr const* attr : t.queue_) {
    index->byName.emplace(attr->name().view(), attr);
    if (attr->instantiating()) t.ownAttrs_.push_back(attr);
    if (attr->isPtr() || attr->keyIsPtr()) t.ptrAttrs_.push_back(attr);
  }
  t.index_ = index;
  t.attrLogSa_ = new KelNboAttrLogSa(t);
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::mutex> guard(r.lock);
  r.byName.emplace(t.fullName_.view(), &t);
  return type_;
}

// --- The framework's own types ---

namespace {

template <class T>
struct BuiltinOps {
  static T const& of(void const* value) { return *static_cast<T const*>(value); }
  static void print(void const* value, std::ostream& out) {
    if constexpr (std::is_same_v<T, bool>)
      out << (of(value) ? "true" : "false");
    else if constexpr (std::is_floating_point_v<T>)
      out << valueToStrep(of(value));
    else if constexpr (sizeof(T) == 1 && !std::is_same_v<T, char>)
      out << static_cast<int>(of(value));
    else
      out << of(value);
  }
  static String8 strep(void const* value) { return valueToStrep(of(value)); }
  static GenericIf::Ptr box(void const* value) { return GenericIf::of(of(value)); }
  static bool equal(void const* a, void const* b) { return of(a) == of(b); }
  static GenericIf::Ptr parse(char const*& begin, char const* end) {
    T v{};
    sequenceToValue(begin, end, &v);
    return GenericIf::of(v);
  }
};

// Character pointers can be printed and compared, but not parsed: there is no memory to read into.
template <class T>
struct CharPtrOps {
  static char const* of(void const* value) { return *static_cast<T const*>(value); }
  static void print(void const* value, std::ostream& out) { out << (of(value) ? of(value) : ""); }
  static String8 strep(void const* value) { return valueToStrep(of(value)); }
  static GenericIf::Ptr box(void const* value) { return GenericIf::of(*static_cast<T const*>(value)); }
  static bool equal(void const* a, void const* b) { return of(a) == of(b); }
  static GenericIf::Ptr parse(char const*&, char const*) { throwRangeException("a character pointer cannot be read"); }
};

template <class T>
GenericIf::Ptr initialOf() {
  return GenericIf::of(T{});
}
template <class T>
GenericIf::Ptr readOne(AttrLogIn& in) {
  return GenericIf::of(streamIn<T>(in));
}

template <class T, template <class> class Ops = BuiltinOps>
KelType const* makeBuiltin(char const* name) {
  TypeBuilderBase b(name, KelType::Kind::builtin, nullptr);
  b.setBuiltin(TypeOf<T>::builtin);
  b.setOps({&Ops<T>::print, &Ops<T>::strep, &Ops<T>::parse, &Ops<T>::box, &Ops<T>::equal, &initialOf<T>, &readOne<T>});
  return b.done();
}

struct BuiltinTable {
  KelType const* types[17] = {
      nullptr,
      makeBuiltin<bool>("bool"),
      makeBuiltin<char>("char"),
      makeBuiltin<S8>("S8"),
      makeBuiltin<U8>("U8"),
      makeBuiltin<S16>("S16"),
      makeBuiltin<U16>("U16"),
      makeBuiltin<S32>("S32"),
      makeBuiltin<U32>("U32"),
      makeBuiltin<long>("long"),
      makeBuiltin<S64>("S64"),
      makeBuiltin<U64>("U64"),
      makeBuiltin<F32>("F32"),
      makeBuiltin<F64>("F64"),
      makeBuiltin<char*, CharPtrOps>("char *"),
      makeBuiltin<char const*, CharPtrOps>("char const *"),
      makeBuiltin<String8>("Kel::String8"),
  };
};

KelType const* makeObjectType(char const* name) { return TypeBuilderBase(name, KelType::Kind::object, nullptr).done(); }

}  // namespace

KelType const* builtinType(KelType::Builtin builtin) {
  static BuiltinTable const table;
  return table.types[static_cast<std::size_t>(builtin)];
}

KelType const* TypeOf<KelAttr>::type() {
  static KelType const* const type = makeObjectType("Kel::KelAttr");
  return type;
}
KelType const* TypeOf<GenericIf>::type() {
  static KelType const* const type = makeObjectType("Kel::GenericIf");
  return type;
}

}  // namespace Kel
