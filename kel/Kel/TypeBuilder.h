// Making type records. Generated code describes its types with these builders:
//
//     KelType const* Port::_fwkType() {
//       static Kel::KelType const* const type = [] {
//         Kel::EntityTypeBuilder<Port> b("Bench::Port", Kel::Entity::_fwkType());
//         b.params<&Port::name>(nameAttr, {"name"});
//         b.value(aliasAttr, "alias", &Port::alias_);
//         b.constructs<&Port::name>();
//         return b.done();
//       }();
//       return type;
//     }
//
// Attributes are described in the order of their ids.
#pragma once

#include <bit>
#include <initializer_list>

#include "Kel/AttrCalls.h"
#include "Kel/AttrMaps.h"
#include "Kel/AttrQueues.h"
#include "Kel/AttrStorage.h"
#include "Kel/Strep.h"

namespace Kel {

class KEL_API TypeBuilderBase {
 public:
  TypeBuilderBase(char const* fullName, KelType::Kind kind, KelType const* base);
  // Finishes and registers the record.
  KelType const* done();
  void nested(KelType const* type) { type_->nested_.push_back(type); }

  // Makes the last described attribute call back after each change; takes public writing or logging from it.
  void afterChange(void (*call)(Entity&));
  void readonly();
  void nolog();

  // For the framework's own types.
  KelAttr& add(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type, unsigned int flags);
  void setBuiltin(KelType::Builtin builtin) { type_->builtin_ = builtin; }
  void setOps(ValueOps const& ops) { type_->ops_ = ops; }

 protected:
  static constexpr unsigned int plain = KelAttrIntrospectionFlags::writable | KelAttrIntrospectionFlags::logging;
  static constexpr unsigned int ptrFlag = KelAttrIntrospectionFlags::pointer;
  static constexpr unsigned int ownFlag = KelAttrIntrospectionFlags::instantiating;

  KelAttr& collection(KelAttr& attr, KelAttr::Collection kind, TypeFunction key, bool keyIsPtr);
  // For debuggers: where in the object the content lies, what it starts with, whether it is counts.
  void placed(KelAttr& attr, std::ptrdiff_t offset, void const* initial = nullptr, bool counts = false) {
    attr.offset_ = static_cast<U32>(offset);
    attr.initial_ = initial;
    attr.counts_ = counts;
  }
  void placedAt(AttributeId id, std::ptrdiff_t offset);
  void constPtr(KelAttr& attr) { attr.constPtr_ = true; }
  void constant(KelAttr& attr) { attr.constant_ = true; }
  void args(KelAttr& attr, std::vector<KelArg> args) { attr.args_ = std::move(args); }
  void ctorArg(KelArg arg) { type_->ctorArgs_.push_back(std::move(arg)); }
  void constructWith(Ptr<Entity> (*construct)(std::vector<GenericIf::PtrConst> const&, KelType const&),
                     bool (*paramsEqual)(Entity const&, Entity const&),
                     bool (*furtherParamsEqual)(Entity const&, Entity const&), Entity* (*newLike)(Entity const&));
  void plainEqualWith(bool (*equal)(Entity const&, Entity const&), std::initializer_list<AttributeId> attributes);
  void representation(KelAttr& attr, bool autoconvert);
  void enumerators(EnumName const* names, std::size_t count);
  AttributeId nextId() const { return static_cast<AttributeId>(type_->attrs_.size()); }

  KelType* type_;
  KelAttr* last_ = nullptr;
};

// The operations of a value type or an enumeration.
template <class V>
struct ValueOpsOf {
  static V const& of(void const* value) { return *static_cast<V const*>(value); }
  static String8 strep(void const* value) { return valueToStrep(of(value)); }
  static void print(void const* value, std::ostream& out) { out << of(value); }
  static GenericIf::Ptr parse(char const*& begin, char const* end) {
    V v{};
    sequenceToValue(begin, end, &v);
    return GenericIf::of(v);
  }
  static GenericIf::Ptr box(void const* value) { return GenericIf::of(of(value)); }
  static GenericIf::Ptr initial() { return GenericIf::of(V{}); }
  static GenericIf::Ptr read(AttrLogIn& in) { return GenericIf::of(streamIn<V>(in)); }
  static bool equal(void const* a, void const* b) {
    if constexpr (requires(V const& x) { x == x; }) return of(a) == of(b);
    return false;
  }
  static constexpr ValueOps ops() {
    constexpr bool comparable = requires(V const& x) { x == x; };
    return {&print, &strep, &parse, &box, comparable ? &equal : nullptr, &initial, &read};
  }
};

template <class V>
class ValueTypeBuilder : public TypeBuilderBase {
 public:
  explicit ValueTypeBuilder(char const* fullName) : TypeBuilderBase(fullName, KelType::Kind::value, nullptr) {
    setOps(ValueOpsOf<V>::ops());
  }
  // A field, by its reader and its writer.
  template <auto Getter, auto Setter>
  void field(char const* name) {
    fieldAttr<Getter, Setter>(name);
  }
  template <auto Getter, auto Setter>
  void representationField(char const* name, bool autoconvert) {
    representation(fieldAttr<Getter, Setter>(name), autoconvert);
  }

 private:
  template <auto Getter, auto Setter>
  KelAttr& fieldAttr(char const* name) {
    using F = std::decay_t<decltype((std::declval<V const&>().*Getter)())>;
    static FieldAccess<V, Getter, Setter> const access;
    return add(nextId(), name, &access, &TypeOf<F>::type, KelAttrIntrospectionFlags::logging);
  }
};

template <class E>
class EnumTypeBuilder : public TypeBuilderBase {
 public:
  template <std::size_t N>
  EnumTypeBuilder(char const* fullName, EnumName const (&names)[N])
      : TypeBuilderBase(fullName, KelType::Kind::enumeration, nullptr) {
    setOps(ValueOpsOf<E>::ops());
    enumerators(names, N);
  }
};

template <class T>
class EntityTypeBuilder : public TypeBuilderBase {
 public:
  EntityTypeBuilder(char const* fullName, KelType const* base)
      : TypeBuilderBase(fullName, KelType::Kind::entity, base) {}

  // The type's own constructor parameters (not its base's), by their readers, with ids from `firstId` on.
  template <auto... Getter>
  void params(AttributeId firstId, std::initializer_list<char const*> names) {
    char const* const* name = names.begin();
    (param<Getter>(firstId++, *name++), ...);
  }
  // Where the key is, which the name is made from: for debuggers.
  template <class M>
  void keyAt(AttributeId id, M T::*slot) {
    this->placedAt(id, offsetOf(slot));
  }
  // All constructor parameters, the base's first: the type can be created.
  template <auto... Getter>
  void constructs() {
    using Make = Construct<T, Getter...>;
    if constexpr (Make::comparable)
      constructWith(&Make::construct, &Make::paramsEqual, &Make::furtherParamsEqual, &Make::newLike);
    else
      constructWith(&Make::construct, nullptr, nullptr, nullptr);
  }
  // The comparison of plain content, which includes the base's, and which of the type's own attributes take part.
  template <bool (T::*Equal)(T const&) const>
  void plainEqual(std::initializer_list<AttributeId> attributes) {
    plainEqualWith(
        [](Entity const& a, Entity const& b) { return (static_cast<T const&>(a).*Equal)(static_cast<T const&>(b)); },
        attributes);
  }

  template <class C, class V>
  void value(AttributeId id, char const* name, V C::*slot, std::type_identity_t<V> const& initial = V()) {
    valueAttr(id, name, slot, new ValueAccess<V>(entitySlot(slot), initial, false));
  }
  template <class C, class V>
  void counter(AttributeId id, char const* name, V C::*slot, std::type_identity_t<V> const& initial = V()) {
    valueAttr(id, name, slot, new ValueAccess<V>(entitySlot(slot), initial, true));
  }
  template <class V>
  void constantValue(AttributeId id, char const* name, V const& value) {
    constant(add(id, name, new ConstantAccess<V>(value), &TypeOf<V>::type, 0));
  }
  template <class C, class E>
  void pointer(AttributeId id, char const* name, Ptr<E> C::*slot) {
    KelAttr& attr = add(id, name, new PtrAccess<E>(entitySlot(slot)), &typeOfArg<Ptr<E>>, contentFlags<Ptr<E>>());
    placed(attr, offsetOf(slot));
    if constexpr (std::is_const_v<E>) constPtr(attr);
  }
  template <class C, class E>
  void singleton(AttributeId id, char const* name, Ptr<E> C::*slot) {
    KelAttr& attr = add(id, name, new SingletonAccess<E>(entitySlot(slot)), &TypeOf<E>::type, plain | ownFlag);
    placed(attr, offsetOf(slot));
  }
  // Values or pointers by key: HashMap, RbTreeMap or CounterMap. With `keyOf` the values carry their key.
  template <class C, class M>
  void collectionOf(AttributeId id, char const* name, M C::*slot, bool nonNull = false) {
    mapAttr(id, name, slot, new MapAccess<M>(entitySlot(slot), nullptr, nonNull));
  }
  template <auto KeyOf, class C, class M>
  void collectionByField(AttributeId id, char const* name, M C::*slot) {
    auto* const keyOf = +[](typename M::mapped_type const& v) -> typename M::key_type { return (v.*KeyOf)(); };
    mapAttr(id, name, slot, new MapAccess<M>(entitySlot(slot), keyOf, false));
  }
  // Owned entities by key: EntityMap or EntityTree.
  template <class C, class M>
  void owned(AttributeId id, char const* name, M C::*slot) {
    KelAttr& attr =
        add(id, name, new OwnedMapAccess<M>(entitySlot(slot)), &TypeOf<typename M::entity_type>::type, plain | ownFlag);
    collection(attr, mapKind<M>(), &TypeOf<typename M::key_type>::type, false);
    placed(attr, offsetOf(slot));
  }
  // Queues of values, of owned entities.
  template <class C, class Q>
  void queue(AttributeId id, char const* name, Q C::*slot) {
    KelAttr& attr = add(id, name, new QueueAccess<Q>(entitySlot(slot)), &TypeOf<typename Q::mapped_type>::type, plain);
    collection(attr, KelAttr::Collection::queue, &TypeOf<typename Q::key_type>::type, false);
    placed(attr, offsetOf(slot));
  }
  template <class C, class Q>
  void ownedQueue(AttributeId id, char const* name, Q C::*slot) {
    using E = typename Q::mapped_type::element_type;
    KelAttr& attr = add(id, name, new OwnedQueueAccess<Q>(entitySlot(slot)), &TypeOf<E>::type, plain | ownFlag);
    collection(attr, KelAttr::Collection::queue, &TypeOf<typename Q::key_type>::type, false);
    placed(attr, offsetOf(slot));
  }
  // Storage of its own kind.
  KelAttr& collectionAttr(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type,
                          unsigned int flags, TypeFunction key) {
    return collection(add(id, name, access, type, flags), KelAttr::Collection::orderedMap, key, false);
  }
  // The same, stored as an EntityTree.
  template <class C, class E>
  void treeAttr(AttributeId id, char const* name, EntityTree<E> C::*slot, AttrAccess const* access,
                unsigned int flags) {
    TypeFunction const key = &TypeOf<typename EntityTree<E>::key_type>::type;
    placed(collectionAttr(id, name, access, &TypeOf<E>::type, flags, key), offsetOf(slot));
  }
  // A callable attribute, with the names of its arguments.
  template <class R, class C, class... A>
  void op(AttributeId id, char const* name, R (C::*function)(A...), std::initializer_list<char const*> names = {}) {
    opAttr<R, C, A...>(id, name, new OpAccess<R (C::*)(A...)>(function), names);
  }
  template <class R, class C, class... A>
  void op(AttributeId id, char const* name, R (C::*function)(A...) const,
          std::initializer_list<char const*> names = {}) {
    opAttr<R, C, A...>(id, name, new OpAccess<R (C::*)(A...) const>(function), names);
  }

 private:
  // A pointer to a member of T as one to a member of Entity; it is only ever applied to a T.
  template <class C, class M>
  static M Entity::*entitySlot(M C::*slot) {
    return static_cast<M Entity::*>(slot);
  }
  template <class C, class M>
  static std::ptrdiff_t offsetOf(M C::*slot) {
    return std::bit_cast<std::ptrdiff_t>(entitySlot(slot));  // as the Itanium C++ ABI has it
  }
  template <class C, class V>
  void valueAttr(AttributeId id, char const* name, V C::*slot, ValueAccess<V> const* access) {
    placed(add(id, name, access, &TypeOf<V>::type, plain), offsetOf(slot), &access->initial());
  }
  template <class M>
  static constexpr bool isCounterMap = requires(M& m) {
    m.increment(typename M::key_type());
  };
  template <auto Getter>
  void param(AttributeId id, char const* name) {
    using P = std::decay_t<decltype((std::declval<T const&>().*Getter)())>;
    static GetterAccess<T, Getter> const access;
    unsigned int flags = KelAttrIntrospectionFlags::ctorParam | KelAttrIntrospectionFlags::logging;
    if (isPtrType<P>) flags |= ptrFlag;
    KelAttr& attr = add(id, name, &access, &typeOfArg<P>, flags);
    if constexpr (isConstPtrType<P>) constPtr(attr);
    ctorArg({name, &typeOfArg<P>, isPtrType<P>});
  }
  template <class C, class M>
  void mapAttr(AttributeId id, char const* name, M C::*slot, AttrAccess const* access) {
    using V = typename M::mapped_type;
    KelAttr& attr = add(id, name, access, &typeOfArg<V>, contentFlags<V>());
    if constexpr (isConstPtrType<V>) constPtr(attr);
    using K = typename M::key_type;
    collection(attr, mapKind<M>(), &typeOfArg<K>, isPtrType<K>);
    placed(attr, offsetOf(slot), nullptr, isCounterMap<M>);
  }
  // The framework's other counted objects are no entities: pointers to them are for the process only, and not logging.
  template <class V>
  static constexpr unsigned int contentFlags() {
    if constexpr (!isPtrType<V>)
      return plain;
    else if constexpr (std::is_base_of_v<Entity, typename PtrTraits<V>::target>)
      return plain | ptrFlag;
    else
      return KelAttrIntrospectionFlags::writable | ptrFlag;
  }
  template <class M>
  static KelAttr::Collection mapKind() {
    return std::is_base_of_v<HashMapGeneric, M> || isCounterMap<M> ? KelAttr::Collection::hashMap
                                                                   : KelAttr::Collection::orderedMap;
  }
  template <class R, class C, class... A>
  void opAttr(AttributeId id, char const* name, AttrAccess const* access, std::initializer_list<char const*> names) {
    KelAttr& attr = add(id, name, access, resultType<std::decay_t<R>>(), KelAttrIntrospectionFlags::function);
    std::vector<KelArg> list;
    char const* const* argName = names.begin();
    (list.push_back({*argName++, &typeOfArg<std::decay_t<A>>, isPtrType<std::decay_t<A>>}), ...);
    (void)argName;
    args(attr, std::move(list));
  }
  template <class R>
  static TypeFunction resultType() {
    if constexpr (std::is_void_v<R>)
      return nullptr;
    else
      return &typeOfArg<R>;
  }
};

}  // namespace Kel
