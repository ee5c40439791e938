// The kinds of attribute storage; see AttrAccess.h. One template a kind, instantiated by the type of what is stored, so
// that attributes of the same type share code and differ in where in the object they lie.
#pragma once

#include <charconv>
#include <optional>

#include "Kel/AttrAccess.h"
#include "Kel/Box.h"
#include "Kel/CounterMap.h"
#include "Kel/HashMap.h"
#include "Kel/LinkQueue.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

// After a write that changed something: reactors, then the operation that the model hangs on the attribute.
inline void changed(KelAttr const& attr, Entity& e, void const* key = nullptr) {
  e.notify(attr.id(), key);
  if (auto* after = attr.afterChange()) after(e);
}

[[noreturn]] void throwKeyWanted(KelAttr const& attr);
[[noreturn]] void throwKeyType(KelAttr const& attr, KelType const* expected);
[[noreturn]] void throwNoKeyWanted(KelAttr const& attr);
[[noreturn]] void throwNullMember(KelAttr const& attr);
[[noreturn]] void throwTaken(KelAttr const& attr, String8 const& key);
inline void wantNoKey(KelAttr const& attr, GenericIf const* key) {
  if (key) throwNoKeyWanted(attr);
}
// Whether two entities of the same type have the same constructor parameters; pointers are the same when their targets
// are.
bool sameParams(Entity const& a, Entity const& b);
// For messages; a null key is the key of a collection keyed by pointers.
inline String8 keyText(GenericIf::PtrConst const& key) { return key ? key->text() : String8("<null>"); }
// The arguments of a creation: those of a list, the one value, or the key alone.
std::vector<GenericIf::PtrConst> creationArgs(KelAttr const& attr, GenericIf const* key, GenericIf const* value);

// A key to look something up by; a null reflective object is a null pointer key. To find what is held under a pointer a
// read-only handle to it will do.
template <class K>
K unboxKey(KelAttr const& attr, GenericIf const* key) {
  if constexpr (isPtrType<K>) {
    using Target = typename PtrTraits<K>::target;
    if constexpr (std::is_base_of_v<Entity, Target>)
      if (key && !(key->isEntity() && key->type()->isA(TypeOf<Target>::type()))) throwKeyType(attr, typeOfArg<K>());
    return K(const_cast<Target*>(unbox<Ptr<Target const>>(key, attr.fullName()).ptr()));
  } else {
    if (!key) throwKeyWanted(attr);
    if (key->type() != TypeOf<K>::type()) throwKeyType(attr, TypeOf<K>::type());
    return key->attrVal<K>();
  }
}
// A key to be stored.
template <class K>
K unboxNewKey(KelAttr const& attr, GenericIf const* key) {
  K const any = unboxKey<K>(attr, key);
  if constexpr (isPtrType<K>)
    return unbox<K>(key, attr.fullName());
  else
    return any;
}

// One value.
template <class V>
class ValueAccess final : public AttrAccess {
 public:
  // Where in an entity the value lies, for loops that compare many.
  V Entity::*slot() const { return slot_; }

  ValueAccess(V Entity::*slot, V initial, bool counter)
      : slot_(slot), initial_(std::move(initial)), counter_(counter) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(static_cast<Entity const*>(object)->*slot_);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    assign(attr, e, unbox<V>(value, attr.fullName()));
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    assign(attr, e, initial_);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if constexpr (std::is_integral_v<V> && !std::is_same_v<V, bool>) {
      if (op == AttributeOp::increment && counter_) return assign(attr, e, static_cast<V>(e.*slot_ + 1));
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
  }
  void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const override {
    dest.*slot_ = src.*slot_;
    changed(attr, dest);
  }

 private:
  void assign(KelAttr const& attr, Entity& e, V value) const {
    if constexpr (requires { value == value; })
      if (e.*slot_ == value) return;
    e.*slot_ = std::move(value);
    changed(attr, e);
  }

  V Entity::*slot_;
  V initial_;
  bool counter_;
};

// What never changes: a constant, a constructor parameter, a field of a value.
template <class V>
class ConstantAccess final : public AttrAccess {
 public:
  explicit ConstantAccess(V value) : value_(std::move(value)) {}
  GenericIf::Ptr get(KelAttr const& attr, void const*, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(value_);
  }

 private:
  V value_;
};

template <class T, auto Getter>
class GetterAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(of(*static_cast<Entity const*>(object)), constView);
  }
  Entity* single(Entity const& e) const override {
    using P = std::decay_t<decltype(of(e))>;
    if constexpr (isPtrType<P>) {
      if constexpr (std::is_base_of_v<Entity, typename PtrTraits<P>::target>)
        return const_cast<Entity*>(static_cast<Entity const*>(of(e).ptr()));
    }
    return nullptr;
  }

 private:
  static decltype(auto) of(Entity const& e) { return (static_cast<T const&>(e).*Getter)(); }
};

template <class V, auto Getter>
class FieldAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box((static_cast<V const*>(object)->*Getter)());
  }
};

// A pointer to an entity held elsewhere (or to another counted object of the framework). `E` may be const.
template <class E>
class PtrAccess final : public AttrAccess {
 public:
  explicit PtrAccess(Ptr<E> Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(static_cast<Entity const*>(object)->*slot_, constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    assign(attr, e, unbox<Ptr<E>>(value, attr.fullName()));
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    assign(attr, e, nullptr);
  }
  bool equal(Entity const& a, Entity const& b) const override { return a.*slot_ == b.*slot_; }
  Entity* single(Entity const& e) const override {
    if constexpr (std::is_base_of_v<Entity, E>)
      return const_cast<Entity*>(static_cast<Entity const*>((e.*slot_).ptr()));
    else
      return nullptr;
  }
  void point(KelAttr const& attr, Entity& e, Entity* target) const override {
    if constexpr (std::is_base_of_v<Entity, E>) assign(attr, e, Ptr<E>(static_cast<E*>(target)));
  }
  void dropPointers(Entity& e) const override { e.*slot_ = nullptr; }

 private:
  void assign(KelAttr const& attr, Entity& e, Ptr<E> target) const {
    if (e.*slot_ == target) return;
    e.*slot_ = std::move(target);
    changed(attr, e);
  }

  Ptr<E> Entity::*slot_;
};

// A single entity that its owner creates.
template <class E>
class SingletonAccess final : public AttrAccess {
 public:
  explicit SingletonAccess(Ptr<E> Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(static_cast<Entity const*>(object)->*slot_, constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    Ptr<Entity> made = TypeOf<E>::type()->newEntity(creationArgs(attr, nullptr, value));
    if (e.*slot_ && sameParams(*(e.*slot_), *made)) return;
    put(attr, e, made);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    if (!(e.*slot_)) return;
    Entity::leaveTree(std::exchange(e.*slot_, nullptr));
    changed(attr, e);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op != AttributeOp::create) return AttrAccess::op(attr, e, op, key, value);
    if (e.*slot_) throwTaken(attr, (e.*slot_)->name());
    put(attr, e, TypeOf<E>::type()->newEntity(creationArgs(attr, nullptr, value)));
  }
  Entity* single(Entity const& e) const override { return (e.*slot_).ptr(); }
  Entity* newLike(KelAttr const& attr, Entity& owner, Entity const& like) const override {
    put(attr, owner, Ptr<Entity>(TypeOf<E>::type()->newLike()(like)));
    return (owner.*slot_).ptr();
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    return key.empty() ? (e.*slot_).ptr() : nullptr;
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    if (e.*slot_) visit((e.*slot_).ptr(), context);
  }
  void takeChildren(Entity& e, std::vector<Ptr<Entity>>& into) const override {
    if (e.*slot_) into.push_back(std::move(e.*slot_));
  }

 private:
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
    if (e.*slot_) Entity::leaveTree(std::exchange(e.*slot_, nullptr));
    e.*slot_ = Ptr<E>(static_cast<E*>(made.ptr()));
    e.adopt(*made, attr.id());
    changed(attr, e);
  }

  Ptr<E> Entity::*slot_;
};

// The integer that prints as `text`: nothing where no integer does.
template <class I>
std::optional<I> printedInteger(std::string_view text) {
  I value{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  bool const plain = text == "0" || text.find_first_of("123456789") == (text.substr(0, 1) == "-" ? 1u : 0u);
  if (error != std::errc() || end != text.data() + text.size() || !plain) return std::nullopt;
  return value;
}
template <class K>
inline constexpr bool isIntegerKey = std::is_integral_v<K> && !std::is_same_v<K, bool> && !std::is_same_v<K, char>;

// The iterator of a collection behind the reflective interface; `Member` gives the member of the iterator's position.
template <class It, class Member>
class BoxedIterator final : public AttrIterator {
 public:
  explicit BoxedIterator(It it) : it_(std::move(it)) {}
  bool nonNull() const override { return static_cast<bool>(it_); }
  GenericIf::Ptr key() const override { return box(static_cast<std::decay_t<decltype(it_.key())>>(it_.key())); }
  GenericIf::Ptr obj(bool constView) const override { return boxView(Member::of(it_), constView); }
  void inc() override { ++it_; }
  std::unique_ptr<AttrIterator> clone() const override { return std::make_unique<BoxedIterator>(it_); }

 private:
  It it_;
};
struct MemberValue {
  template <class It>
  static decltype(auto) of(It const& it) {
    return it.value();
  }
};
struct MemberPtr {
  template <class It>
  static auto of(It const& it) {
    return it.ptr();
  }
};
template <class Member, class It>
std::unique_ptr<AttrIterator> boxedIterator(It it) {
  return std::make_unique<BoxedIterator<It, Member>>(std::move(it));
}

// Values or pointers by key.
template <class M>
class MapAccess final : public AttrAccess {
  using K = typename M::key_type;
  using V = typename M::mapped_type;

 public:
  MapAccess(M Entity::*slot, K (*keyOf)(V const&), bool nonNull) : slot_(slot), keyOf_(keyOf), nonNull_(nonNull) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = static_cast<Entity const*>(object)->*slot_;
    V const* v = map.find(unboxKey<K>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    V const v = unbox<V>(value, attr.fullName());
    K const k = key || !keyOf_ ? unboxNewKey<K>(attr, key) : keyOf_(v);
    if (keyOf_ && !(keyOf_(v) == k)) throwBadIndexAttrException(attr.fullName(), "the key is not the member's own");
    if constexpr (isPtrType<V>)
      if (nonNull_ && !v) throwNullMember(attr);
    if ((e.*slot_).set(k, v)) changed(attr, e, &k);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    K const k = unboxKey<K>(attr, key);
    if ((e.*slot_).erase(k)) changed(attr, e, &k);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) return deleteAll(attr, e);
    K const k = key || !keyOf_ || !value ? unboxKey<K>(attr, key) : keyOf_(unbox<V>(value, attr.fullName()));
    if (op == AttributeOp::notify) return e.notify(attr.id(), &k);
    if (op == AttributeOp::create) {
      if ((e.*slot_).find(k)) throwTaken(attr, keyText(box(k)));
      return set(attr, e, key, value);
    }
    if constexpr (requires(M & m) { m.increment(k); }) {
      (e.*slot_).increment(k);
      return changed(attr, e, &k);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    M const& map = e.*slot_;
    return boxedIterator<MemberValue>(key ? map.iterator(unboxKey<K>(attr, key)) : map.iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
  }
  void dropPointers(Entity& e) const override {
    if constexpr (isPtrType<K> || isPtrType<V>) (e.*slot_).clear();
  }

 private:
  // Keys are gathered first: a reactor may change the collection.
  void deleteAll(KelAttr const& attr, Entity& e) const {
    std::vector<K> keys;
    for (auto it = (e.*slot_).iterator(); it; ++it) keys.push_back(it.key());
    for (K const& k : keys)
      if ((e.*slot_).erase(k)) e.notify(attr.id(), &k);
    if (auto* after = attr.afterChange(); after && !keys.empty()) after(e);
  }

  M Entity::*slot_;
  K (*keyOf_)(V const&);
  bool nonNull_;
};

// Owned entities by key.
template <class M>
class OwnedMapAccess final : public AttrAccess {
  using E = typename M::entity_type;
  using K = typename M::key_type;

 public:
  explicit OwnedMapAccess(M Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = static_cast<Entity const*>(object)->*slot_;
    return boxView(Ptr<E>(map.find(unboxKey<K>(attr, key))), constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    Ptr<Entity> const made = make(attr, key, value);
    K const k = keyOf(*made);
    if (E* old = (e.*slot_).find(k)) {
      if (sameParams(*old, *made)) return;
      Entity::leaveTree((e.*slot_).take(k));
    }
    put(attr, e, made);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    K const k = unboxKey<K>(attr, key);
    if (take(e, k)) changed(attr, e, &k);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::create) {
      Ptr<Entity> const made = make(attr, key, value);
      if ((e.*slot_).find(keyOf(*made))) throwTaken(attr, made->name());
      return put(attr, e, made);
    }
    if (op == AttributeOp::deleteAll) {
      std::vector<K> keys;
      for (auto it = (e.*slot_).iteratorConst(); it; ++it) keys.push_back(it.key());
      for (K const& k : keys)
        if (take(e, k)) e.notify(attr.id(), &k);
      if (auto* after = attr.afterChange(); after && !keys.empty()) after(e);
      return;
    }
    if (op == AttributeOp::notify) {
      K const k = unboxKey<K>(attr, key);
      return e.notify(attr.id(), &k);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    auto& map = const_cast<Entity&>(e).*slot_;
    return boxedIterator<MemberPtr>(key ? map.iterator(unboxKey<K>(attr, key)) : map.iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }

  U32 memberEnd(Entity const& e) const override {
    if constexpr (dense)
      return (e.*slot_).slotEnd();
    else
      return AttrAccess::memberEnd(e);
  }
  Entity* memberAt(Entity const& e, U32 position) const override {
    if constexpr (dense)
      return position < (e.*slot_).slotEnd() && (e.*slot_).slotLive(position) ? (e.*slot_).at(position).ptr() : nullptr;
    else
      return AttrAccess::memberAt(e, position);
  }
  Entity* memberLike(Entity const& e, Entity const& member, U32 hint) const override {
    auto const& key = EntityKey<E>::key(static_cast<E const&>(member));
    M const& map = e.*slot_;
    if constexpr (dense) {
      if (map.empty()) return nullptr;
      U32 const slot = map.findSlotNear(key, keyHash(key), hint);
      return slot == HashMapGeneric::none ? nullptr : map.at(slot).ptr();
    } else {
      return map.find(key);
    }
  }
  Entity* newLike(KelAttr const& attr, Entity& owner, Entity const& like) const override {
    Ptr<Entity> made(TypeOf<E>::type()->newLike()(like));
    put(attr, owner, made);
    return made.ptr();
  }
  void reserveMembers(Entity& e, U32 count) const override {
    if constexpr (dense) (e.*slot_).reserve(count);
  }
  bool sameShape(Entity const& a, Entity const& b) const override {
    if constexpr (dense)
      return (a.*slot_).sameHashes(b.*slot_);
    else
      return false;
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    M const& map = e.*slot_;
    if constexpr (std::is_same_v<K, String8>) {
      return map.find(key);
    } else if constexpr (isIntegerKey<K>) {
      auto const number = printedInteger<K>(key);
      return number ? map.find(*number) : nullptr;
    } else {
      for (auto it = map.iteratorConst(); it; ++it)
        if (it->name() == key) return const_cast<E*>(it.ptr().ptr());
      return nullptr;
    }
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = (e.*slot_).iteratorConst(); it; ++it) visit(const_cast<E*>(it.ptr().ptr()), context);
  }
  void takeChildren(Entity& e, std::vector<Ptr<Entity>>& into) const override {
    if constexpr (dense) {
      M& map = e.*slot_;
      for (U32 s = map.nextSlot(0); s < map.slotEnd(); s = map.nextSlot(s + 1)) into.push_back(std::move(map.at(s)));
    } else {
      for (auto it = (e.*slot_).iterator(); it; ++it) into.push_back(it.ptr());
    }
    (e.*slot_).clear();
  }

 private:
  static constexpr bool dense = std::is_base_of_v<HashMapGeneric, M>;
  static K keyOf(Entity const& e) { return EntityKey<E>::key(static_cast<E const&>(e)); }
  Ptr<Entity> make(KelAttr const& attr, GenericIf const* key, GenericIf const* value) const {
    Ptr<Entity> made = TypeOf<E>::type()->newEntity(creationArgs(attr, key, value));
    if (key && !(keyOf(*made) == unboxKey<K>(attr, key)))
      throwBadIndexAttrException(attr.fullName(), "the key is not the member's own");
    return made;
  }
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
    (e.*slot_).insert(Ptr<E>(static_cast<E*>(made.ptr())));
    e.adopt(*made, attr.id());
    if (!e.hasReactors() && !attr.afterChange()) return;
    K const k = keyOf(*made);
    changed(attr, e, &k);
  }
  bool take(Entity& e, K const& k) const {
    Ptr<E> gone = (e.*slot_).take(k);
    if (!gone) return false;
    Entity::leaveTree(std::move(gone));
    return true;
  }

  M Entity::*slot_;
};

// A queue of values.
template <class Q>
class QueueAccess final : public AttrAccess {
  using V = typename Q::mapped_type;
  using I = typename Q::key_type;

 public:
  explicit QueueAccess(Q Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    V const* v = (static_cast<Entity const*>(object)->*slot_).find(unboxKey<I>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    I const i = unboxKey<I>(attr, key);
    if ((e.*slot_).erase(i)) changed(attr, e, &i);
  }
  void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const override {
    I const i = (e.*slot_).enq(unbox<V>(value, attr.fullName()));
    changed(attr, e, &i);
  }
  void deq(KelAttr const& attr, Entity& e) const override {
    I const i = (e.*slot_).empty() ? I(0) : (e.*slot_).iterator().key();
    (e.*slot_).deq();
    changed(attr, e, &i);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) {
      while (!(e.*slot_).empty()) deq(attr, e);
    } else if (op == AttributeOp::notify) {
      I const i = unboxKey<I>(attr, key);
      e.notify(attr.id(), &i);
    } else {
      AttrAccess::op(attr, e, op, key, value);
    }
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    Q const& queue = e.*slot_;
    return boxedIterator<MemberValue>(key ? queue.iterator(unboxKey<I>(attr, key)) : queue.iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
  }

 private:
  Q Entity::*slot_;
};

// A queue of owned entities; the index is their first constructor parameter, if they have one.
template <class Q>
class OwnedQueueAccess final : public AttrAccess {
  using E = typename Q::mapped_type::element_type;
  using I = typename Q::key_type;

 public:
  explicit OwnedQueueAccess(Q Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    Ptr<E> const* v = (static_cast<Entity const*>(object)->*slot_).find(unboxKey<I>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    I const i = unboxKey<I>(attr, key);
    if ((e.*slot_).find(i)) drop(attr, e, i);
  }
  void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const override {
    std::vector<GenericIf::PtrConst> args =
        value ? creationArgs(attr, nullptr, value) : std::vector<GenericIf::PtrConst>();
    I const i = (e.*slot_).nextIndex();
    if (!TypeOf<E>::type()->ctorArgs().empty()) args.insert(args.begin(), GenericIf::of(i));
    Ptr<Entity> const made = TypeOf<E>::type()->newEntity(args);
    (e.*slot_).enq(Ptr<E>(static_cast<E*>(made.ptr())));
    e.adopt(*made, attr.id());
    changed(attr, e, &i);
  }
  void deq(KelAttr const& attr, Entity& e) const override {
    if ((e.*slot_).empty()) throwRangeException("linkqueue index out of range");
    drop(attr, e, (e.*slot_).iterator().key());
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) {
      while (!(e.*slot_).empty()) deq(attr, e);
    } else if (op == AttributeOp::notify) {
      I const i = unboxKey<I>(attr, key);
      e.notify(attr.id(), &i);
    } else {
      AttrAccess::op(attr, e, op, key, value);
    }
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    Q const& queue = e.*slot_;
    return boxedIterator<MemberValue>(key ? queue.iterator(unboxKey<I>(attr, key)) : queue.iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }
  Entity* child(Entity const& e, std::string_view key) const override {
    auto const index = printedInteger<I>(key);
    Ptr<E> const* member = index ? (e.*slot_).find(*index) : nullptr;
    return member ? member->ptr() : nullptr;
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = (e.*slot_).iterator(); it; ++it) visit(it.value().ptr(), context);
  }
  void takeChildren(Entity& e, std::vector<Ptr<Entity>>& into) const override {
    for (auto it = (e.*slot_).iterator(); it; ++it) into.push_back(it.value());
    (e.*slot_).clear();
  }

 private:
  void drop(KelAttr const& attr, Entity& e, I i) const {
    Entity::leaveTree((e.*slot_).take(i));
    changed(attr, e, &i);
  }

  Q Entity::*slot_;
};

// Finds the argument of that name; checks that every given name is known.
GenericIf const* callArg(KelAttr const& attr, GenericIf::Args const& args, std::size_t n);
void checkCallArgs(KelAttr const& attr, GenericIf::Args const& args);

// A callable attribute.
template <class F>
class OpAccess;
template <class R, class C, bool isConst, class F, class... A>
class OpAccessOf : public AttrAccess {
 public:
  explicit OpAccessOf(F function) : function_(function) {}
  GenericIf::Ptr call(KelAttr const& attr, Entity const& e, bool constView,
                      GenericIf::Args const& args) const override {
    if (constView && !isConst) throwConstException(attr.fullName());
    checkCallArgs(attr, args);
    return apply(attr, const_cast<C&>(static_cast<C const&>(e)), args, std::index_sequence_for<A...>());
  }

 private:
  template <std::size_t... I>
  GenericIf::Ptr apply(KelAttr const& attr, C& object, [[maybe_unused]] GenericIf::Args const& args,
                       std::index_sequence<I...>) const {
    // Braces: the arguments are checked in order before the call.
    std::tuple<std::decay_t<A>...> values{
        unbox<std::decay_t<A>>(callArg(attr, args, I), attr.fullName() + "(" + attr.args()[I].name + ")")...};
    if constexpr (std::is_void_v<R>) {
      (object.*function_)(std::get<I>(values)...);
      return nullptr;
    } else {
      return box(std::decay_t<R>((object.*function_)(std::get<I>(values)...)));
    }
  }
  F function_;
};
template <class R, class C, class... A>
class OpAccess<R (C::*)(A...)> final : public OpAccessOf<R, C, false, R (C::*)(A...), A...> {
  using OpAccessOf<R, C, false, R (C::*)(A...), A...>::OpAccessOf;
};
template <class R, class C, class... A>
class OpAccess<R (C::*)(A...) const> final : public OpAccessOf<R, C, true, R (C::*)(A...) const, A...> {
  using OpAccessOf<R, C, true, R (C::*)(A...) const, A...>::OpAccessOf;
};

// Creating an entity of type T from its constructor arguments.
template <class T, auto... Getter>
struct Construct {
  template <auto G>
  using Param = std::decay_t<decltype((std::declval<T const&>().*G)())>;
  static constexpr bool comparable = !(isPtrType<Param<Getter>> || ...);

  static Ptr<Entity> construct(std::vector<GenericIf::PtrConst> const& args, KelType const& type) {
    return constructWith(args, type, std::index_sequence_for<Param<Getter>...>());
  }
  static bool paramsEqual(Entity const& a, Entity const& b) {
    T const& x = static_cast<T const&>(a);
    T const& y = static_cast<T const&>(b);
    (void)x, (void)y;
    return (((x.*Getter)() == (y.*Getter)()) && ...);
  }
  static Entity* newLike(Entity const& like) {
    T const& x = static_cast<T const&>(like);
    (void)x;
    return new T((x.*Getter)()...);
  }

 private:
  template <std::size_t... I>
  static Ptr<Entity> constructWith([[maybe_unused]] std::vector<GenericIf::PtrConst> const& args, KelType const& type,
                                   std::index_sequence<I...>) {
    std::tuple<Param<Getter>...> values{
        unbox<Param<Getter>>(args[I].ptr(), type.fullTypeName() + "(" + type.ctorArgs()[I].name + ")")...};
    return Ptr<Entity>(new T(std::get<I>(values)...));
  }
};

}  // namespace Kel
