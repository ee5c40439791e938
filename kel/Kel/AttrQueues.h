// Attribute storage: queues of values and of owned entities; see AttrStorage.h.
#pragma once

#include "Kel/AttrIterators.h"
#include "Kel/AttrOwned.h"
#include "Kel/AttrStorage.h"
#include "Kel/LinkQueue.h"

namespace Kel {

// The common part of queues of values and of entities.
template <class Q>
class AnyQueueAccess : public AttrAccess {
 protected:
  using V = typename Q::mapped_type;
  using I = typename Q::key_type;

 public:
  explicit AnyQueueAccess(Offset at) : at_(at) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    V const* v = of(*static_cast<Entity const*>(object)).find(unboxKey<I>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) {
      while (!of(e).empty()) deq(attr, e);
    } else if (op == AttributeOp::notify) {
      I const i = unboxKey<I>(attr, key);
      e.notify(attr.id(), &i);
    } else {
      AttrAccess::op(attr, e, op, key, value);
    }
  }
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const override {
    Q const& queue = of(e);
    return iteratorIn<MemberValue>(room, key ? queue.iterator(unboxKey<I>(attr, key)) : queue.iterator());
  }
  AttrIterator& iterateAt(Entity const& e, U32 position, IteratorRoom& room) const override {
    return iteratorIn<MemberValue>(room, of(e).iteratorAt(position));
  }
  U32 count(KelAttr const&, Entity const& e) const override { return of(e).members(); }

 protected:
  Q& of(Entity& e) const { return at_.in<Q>(e); }
  Q const& of(Entity const& e) const { return at_.in<Q>(e); }
  static void setNext(KelAttr const& attr, Q& queue, U64 next, AttrLogIn const& in) {
    if (!queue.nextSequenceIs(next)) in.throwRecord(attr.fullName() + ": the next index does not follow the members'");
  }

 private:
  Offset at_;
};

// A queue of values.
template <class Q>
class QueueAccess final : public AnyQueueAccess<Q> {
  using typename AnyQueueAccess<Q>::I;
  using AnyQueueAccess<Q>::of;
  using typename AnyQueueAccess<Q>::V;

 public:
  using AnyQueueAccess<Q>::AnyQueueAccess;

  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    if (eraseQueuedValue(e, of(e), attr.id(), unboxKey<I>(attr, key))) afterChange(attr, e);
  }
  void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const override {
    enqueueValue(e, of(e), attr.id(), unbox<V>(value, attr.fullName()));
    afterChange(attr, e);
  }
  void appendValue(KelAttr const& attr, Entity& dest, AttrIterator const& at) const override {
    using Position = decltype(of(dest).iterator());
    enqueueValue(dest, of(dest), attr.id(), static_cast<BoxedIterator<Position, MemberValue> const&>(at).it().value());
  }
  void deq(KelAttr const& attr, Entity& e) const override {
    dequeueValue(e, of(e), attr.id());
    afterChange(attr, e);
  }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return of(a) == of(b);
    else
      return false;
  }
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override {
    Q const& queue = of(*static_cast<Entity const*>(object));
    out.put(queue.members());
    for (auto it = queue.iterator(); it; ++it) {
      out.put(it.sequence());
      streamOut<V>(out, it.value());
    }
    out.put(queue.nextSequence());
  }
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override {
    Q& queue = of(*static_cast<Entity*>(object));
    for (U32 left = in.get<U32>(); left > 0; --left) {
      U64 const sequence = in.get<U64>();
      if (!queue.follows(sequence)) in.throwRecord(attr.fullName() + ": the indices do not ascend");
      queue.restore(sequence, streamIn<V>(in));
    }
    this->setNext(attr, queue, in.get<U64>(), in);
  }
};

// A queue of owned entities; the index is their first constructor parameter, if they have one.
template <class Q>
class OwnedQueueAccess final : public AnyQueueAccess<Q> {
  using typename AnyQueueAccess<Q>::I;
  using AnyQueueAccess<Q>::of;
  using E = typename Q::mapped_type::element_type;

 public:
  using AnyQueueAccess<Q>::AnyQueueAccess;

  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    if (eraseQueuedMember(e, of(e), attr.id(), unboxKey<I>(attr, key))) afterChange(attr, e);
  }
  void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const override {
    std::vector<GenericIf::PtrConst> args =
        value ? creationArgs(attr, nullptr, value) : std::vector<GenericIf::PtrConst>();
    if (!attr.type()->ctorArgs().empty()) args.insert(args.begin(), GenericIf::of(of(e).nextIndex()));
    Ptr<Entity> const made = attr.type()->newEntity(args);
    enqueueMember(e, of(e), attr.id(), Ptr<E>(static_cast<E*>(made.ptr())));
    afterChange(attr, e);
  }
  void deq(KelAttr const& attr, Entity& e) const override {
    dequeueMember(e, of(e), attr.id());
    afterChange(attr, e);
  }
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget&) const override {
    return of(dest).members() == 0 && of(src).members() == 0;
  }
  Entity* findCounterpart(Entity const&, Entity const&, U32) const override { return nullptr; }
  U32 positionOf(Entity const& e, Entity const& member) const override {
    Q const& queue = of(e);
    if (auto const index = printedInteger<I>(member.name())) return queue.positionOf(*index);
    auto it = queue.iterator();  // its type has no parameters
    while (it.value().ptr() != &member) ++it;
    return queue.positionOf(it.key());
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    auto const index = printedInteger<I>(key);
    Ptr<E> const* member = index ? of(e).find(*index) : nullptr;
    return member ? member->ptr() : nullptr;
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = of(e).iterator(); it; ++it) visit(it.value().ptr(), context);
  }
  void takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const override {
    of(e).takeAll([&](Ptr<E> member) { taken(std::move(member), context); });
  }
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override {
    out.put(of(*static_cast<Entity const*>(object)).nextSequence());
  }
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override {
    this->setNext(attr, of(*static_cast<Entity*>(object)), in.get<U64>(), in);
  }
  void eachOwned(Entity const& e, AttrAccess::OwnedVisit visit, void* context) const override {
    for (auto it = of(e).iterator(); it; ++it) visit(it.value().ptr(), it.sequence(), context);
  }
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64 sequence) const override {
    wantOwnable(attr, *child);
    Q& queue = of(owner);
    bool const named = attr.type()->ctorArgs().empty() || printedInteger<I>(child->name()) == static_cast<I>(sequence);
    if (!queue.follows(sequence) || !named) throwRangeException("linkqueue index out of range");
    queue.restore(sequence, Ptr<E>(static_cast<E*>(child.ptr())));
    owner.adopt(*child, attr.id());
  }
};

}  // namespace Kel
