// Builders of type records. Generated code describes its types with them:
//
//     KelType const* Port::_fwkType() {
//       static Kel::KelType const* const type = [] {
//         Kel::EntityTypeBuilder<Port> b("Bench::Port", Kel::Entity::_fwkType());
//         b.name(nameAttr);
//         b.value(aliasAttr, "alias", &Port::alias_);
//         b.constructs<&Port::name>();
//         return b.done();
//       }();
//       return type;
//     }
//
// Attributes are described in the order of their ids.
#pragma once

#include <initializer_list>

#include "Kel/AttrCalls.h"
#include "Kel/AttrEntity.h"
#include "Kel/AttrMaps.h"
#include "Kel/AttrOwned.h"
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

  // For the attribute that was described last: calls back after each change; makes it read-only; keeps it out of copies
  // and logs.
  void afterChange(void (*call)(Entity&));
  void readonly();
  void nolog();

  // For the framework's own types.
  KelAttr& add(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type, unsigned int flags);
  void setBuiltin(KelType::Builtin builtin) { type_->builtin_ = builtin; }
  void setOps(ValueOps const& ops) { type_->ops_ = ops; }
  void setEntries(EntryOps const& entries) { type_->entries_ = &entries; }

 protected:
  static constexpr unsigned int plain = KelAttrIntrospectionFlags::writable | KelAttrIntrospectionFlags::logging;
  static constexpr unsigned int ptrFlag = KelAttrIntrospectionFlags::pointer;
  static constexpr unsigned int ownFlag = KelAttrIntrospectionFlags::instantiating;

  KelAttr& collection(KelAttr& attr, KelAttr::Collection kind, TypeFunction key, bool keyIsPtr);
  // For debuggers: the content's offset in the object, its initial value, and whether it is a CounterMap.
  void placed(KelAttr& attr, std::ptrdiff_t offset, void const* initial = nullptr, bool counts = false) {
    attr.offset_ = static_cast<U32>(offset);
    attr.initial_ = initial;
    attr.counts_ = counts;
  }
  void constPtr(KelAttr& attr) { attr.constPtr_ = true; }
  void constant(KelAttr& attr) { attr.constant_ = true; }
  void args(KelAttr& attr, std::vector<KelArg> args) { attr.args_ = std::move(args); }
  void ctorArg(KelArg arg) { type_->ctorArgs_.push_back(std::move(arg)); }
  void constructWith(Ptr<Entity> (*construct)(std::vector<GenericIf::PtrConst> const&, KelType const&),
                     bool (*paramsEqual)(Entity const&, Entity const&),
                     bool (*furtherParamsEqual)(Entity const&, Entity const&), Entity* (*createLike)(Entity const&));
  void plainContentWith(PlainDifferences differences, std::initializer_list<AttributeId> attributes);
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
    static FieldAccess const access(fieldFunctions<V, Getter, Setter>());
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

  // The type's own constructor parameters (not its base's): the entity's name, and those in member variables.
  void name(AttributeId id, char const* called = "name") { param<Name>(id, called, new NameAccess); }
  template <class C, class P>
  void param(AttributeId id, char const* called, P C::*slot) {
    using Held = std::remove_const_t<P>;
    AttrAccess const* kept;
    if constexpr (isPtrType<Held>)
      kept = newPtrAccess(slot);
    else
      kept = newValueAccess<Held>(Offset(slot), Held(), false).access;
    placed(param<Held>(id, called, new ParamAccess(kept)), Offset(slot).bytes());
  }
  // All constructor parameters, the base's first. Types without this call are abstract.
  template <auto... Getter>
  void constructs() {
    using Make = Construct<T, Getter...>;
    if constexpr (Make::byName)
      constructWith(&Make::construct, &sameName, &noFurtherParams, &Make::createLike);
    else if constexpr (Make::comparable)
      constructWith(&Make::construct, &Make::paramsEqual, &Make::furtherParamsEqual, &Make::createLike);
    else
      constructWith(&Make::construct, nullptr, nullptr, nullptr);
  }
  // The comparison of plain content, the base's included, and the type's own attributes that take part in it.
  template <U64 (T::*Differences)(T const&) const>
  void plainContent(std::initializer_list<AttributeId> attributes) {
    plainContentWith([](Entity const& a,
                        Entity const& b) { return (static_cast<T const&>(a).*Differences)(static_cast<T const&>(b)); },
                     attributes);
  }

  template <class C, class V>
  void value(AttributeId id, char const* name, V C::*slot, std::type_identity_t<V> const& initial = V()) {
    valueAttr<V>(id, name, slot, newValueAccess<V>(Offset(slot), initial, false));
  }
  template <class C, class V>
  void counter(AttributeId id, char const* name, V C::*slot, std::type_identity_t<V> const& initial = V()) {
    valueAttr<V>(id, name, slot, newValueAccess<V>(Offset(slot), initial, true));
  }
  template <class V>
  void constantValue(AttributeId id, char const* name, V const& value) {
    constant(add(id, name, new ConstantAccess(box(value)), &TypeOf<V>::type, 0));
  }
  template <class C, class E>
  void pointer(AttributeId id, char const* name, Ptr<E> C::*slot) {
    KelAttr& attr = add(id, name, newPtrAccess(slot), &typeOfArg<Ptr<E>>, contentFlags<Ptr<E>>());
    placed(attr, Offset(slot).bytes());
    if constexpr (std::is_const_v<E>) constPtr(attr);
  }
  template <class C, class E>
  void singleton(AttributeId id, char const* name, Ptr<E> C::*slot) {
    placed(add(id, name, new SingletonAccess(slot), &TypeOf<E>::type, plain | ownFlag), Offset(slot).bytes());
  }
  // Values or pointers by key: HashMap, RbTreeMap or CounterMap. With collectionByField, the key is a field of the
  // value.
  template <class C, class M>
  void collectionOf(AttributeId id, char const* name, M C::*slot, bool nonNull = false) {
    mapAttr(id, name, slot, new MapAccess<M>(Offset(slot), nullptr, nonNull));
  }
  template <auto KeyOf, class C, class M>
  void collectionByField(AttributeId id, char const* name, M C::*slot) {
    auto* const keyOf = +[](typename M::mapped_type const& v) -> typename M::key_type { return (v.*KeyOf)(); };
    mapAttr(id, name, slot, new MapAccess<M>(Offset(slot), keyOf, false));
  }
  // Owned entities by key: EntityMap or EntityTree.
  template <class C, class M>
  void owned(AttributeId id, char const* name, M C::*slot) {
    using E = typename M::entity_type;
    KelAttr& attr = add(id, name, new OwnedAccess<typename M::storage_type>(Offset(slot), sizeof(E)), &TypeOf<E>::type,
                        plain | ownFlag);
    collection(attr, mapKind<M>(), &TypeOf<typename M::key_type>::type, false);
    placed(attr, Offset(slot).bytes());
  }
  // Queues of values, of owned entities.
  template <class C, class Q>
  void queue(AttributeId id, char const* name, Q C::*slot) {
    KelAttr& attr = add(id, name, new QueueAccess<Q>(Offset(slot)), &TypeOf<typename Q::mapped_type>::type, plain);
    collection(attr, KelAttr::Collection::queue, &TypeOf<typename Q::key_type>::type, false);
    placed(attr, Offset(slot).bytes());
  }
  template <class C, class Q>
  void ownedQueue(AttributeId id, char const* name, Q C::*slot) {
    using E = typename Q::mapped_type::element_type;
    KelAttr& attr = add(id, name, new OwnedQueueAccess<Q>(Offset(slot)), &TypeOf<E>::type, plain | ownFlag);
    collection(attr, KelAttr::Collection::queue, &TypeOf<typename Q::key_type>::type, false);
    placed(attr, Offset(slot).bytes());
  }
  // A collection with an access class of its own.
  KelAttr& collectionAttr(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type,
                          unsigned int flags, TypeFunction key) {
    return collection(add(id, name, access, type, flags), KelAttr::Collection::orderedMap, key, false);
  }
  // The same, stored as an EntityTree.
  template <class C, class E>
  void treeAttr(AttributeId id, char const* name, EntityTree<E> C::*slot, AttrAccess const* access,
                unsigned int flags) {
    TypeFunction const key = &TypeOf<typename EntityTree<E>::key_type>::type;
    placed(collectionAttr(id, name, access, &TypeOf<E>::type, flags, key), Offset(slot).bytes());
  }
  // A callable attribute, with the names of its arguments.
  template <auto function>
  void op(AttributeId id, char const* name, std::initializer_list<char const*> names = {}) {
    opAttr<function>(id, name, names, function);
  }

 private:
  template <class V, class C>
  void valueAttr(AttributeId id, char const* name, V C::*slot, NewValueAccess made) {
    placed(add(id, name, made.access, &TypeOf<V>::type, plain), Offset(slot).bytes(), made.initial);
  }
  template <class M>
  static constexpr bool isCounterMap = requires(M& m) {
    m.increment(typename M::key_type());
  };
  template <class P>
  KelAttr& param(AttributeId id, char const* name, AttrAccess const* access) {
    unsigned int flags = KelAttrIntrospectionFlags::ctorParam | KelAttrIntrospectionFlags::logging;
    if (isPtrType<P>) flags |= ptrFlag;
    KelAttr& attr = add(id, name, access, &typeOfArg<P>, flags);
    if constexpr (isConstPtrType<P>) constPtr(attr);
    ctorArg({name, &typeOfArg<P>, isPtrType<P>});
    return attr;
  }
  template <class C, class M>
  void mapAttr(AttributeId id, char const* name, M C::*slot, AttrAccess const* access) {
    using V = typename M::mapped_type;
    KelAttr& attr = add(id, name, access, &typeOfArg<V>, contentFlags<V>());
    if constexpr (isConstPtrType<V>) constPtr(attr);
    using K = typename M::key_type;
    collection(attr, mapKind<M>(), &typeOfArg<K>, isPtrType<K>);
    placed(attr, Offset(slot).bytes(), nullptr, isCounterMap<M>);
  }
  // Pointers to counted objects that are not entities have no meaning outside of the process, so they are not logging.
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
  template <auto function, class R, class C, class... A>
  void opAttr(AttributeId id, char const* name, std::initializer_list<char const*> names, R (C::*)(A...)) {
    opAttr<R, A...>(id, name, new OpAccess(&Call<function, T, R, A...>::call, false), names);
  }
  template <auto function, class R, class C, class... A>
  void opAttr(AttributeId id, char const* name, std::initializer_list<char const*> names, R (C::*)(A...) const) {
    opAttr<R, A...>(id, name, new OpAccess(&Call<function, T, R, A...>::call, true), names);
  }
  template <class R, class... A>
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
