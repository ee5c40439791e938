// How the attributes of objects are reached without knowing their type: one access object for each kind of storage,
// shared by all attributes of that kind and reached through the attribute's record. Two doors to the same storage: the
// boxed operations behind GenericIf, and the typed operations that the copy engine's inner loop works with, which
// neither allocate nor format.
#pragma once

#include <cstddef>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Kel/GenericIf.h"

namespace Kel {

class AttrLogIn;
class AttrLogOut;

class IteratorRoom;

// An iterator over a collection, as the collection itself has it; GenericIf::AttributeIterator wraps it.
class KEL_API AttrIterator {
 public:
  virtual ~AttrIterator() = default;
  virtual bool nonNull() const = 0;
  virtual GenericIf::Ptr key() const = 0;
  virtual GenericIf::Ptr obj(bool constView) const = 0;
  virtual void inc() = 0;
  virtual void cloneInto(IteratorRoom& room) const = 0;

  // Typed: the entity that is the key, and the one that is the member, owned or pointed at; null where the key or the
  // member is a value, or a null pointer.
  virtual Entity* keyTarget() const = 0;
  virtual Entity* target() const = 0;
};

// Room for an iterator on the stack: walking a collection allocates nothing, but where the keys are uncommonly large.
class IteratorRoom {
 public:
  IteratorRoom() = default;
  ~IteratorRoom() {
    if (large_)
      delete it_;
    else if (it_)
      it_->~AttrIterator();
  }
  IteratorRoom(IteratorRoom const&) = delete;
  IteratorRoom& operator=(IteratorRoom const&) = delete;

  // Once for each room.
  template <class It>
  AttrIterator& emplace(It&& it) {
    using Made = std::decay_t<It>;
    if constexpr (sizeof(Made) <= size && alignof(Made) <= alignof(void*)) {
      it_ = new (bytes_) Made(std::forward<It>(it));
    } else {
      it_ = new Made(std::forward<It>(it));
      large_ = true;
    }
    return *it_;
  }
  // REQUIRES: `emplace` was called.
  AttrIterator& iterator() const { return *it_; }

 private:
  static constexpr std::size_t size = 80;
  alignas(void*) std::byte bytes_[size];
  AttrIterator* it_ = nullptr;
  bool large_ = false;  // it is on the heap
};

// How two pointers of two trees are compared: whether the one stands for the other.
class SameTarget {
 public:
  // Neither is null.
  virtual bool operator()(Entity& dest, Entity& src) = 0;

 protected:
  ~SameTarget() = default;
};

class KEL_API AttrAccess {
 public:
  virtual ~AttrAccess() = default;

  // Boxed. `object` is the Entity, or the value for a field of a value type. Writers notify reactors. What a kind of
  // storage does not have raises through throwOpNotSupportedException.
  virtual GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const;
  virtual void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const;
  virtual void del(KelAttr const& attr, Entity& e, GenericIf const* key) const;
  virtual void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const;
  virtual void deq(KelAttr const& attr, Entity& e) const;
  virtual void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const;
  virtual GenericIf::Ptr call(KelAttr const& attr, Entity const& e, bool constView, GenericIf::Args const& args) const;
  // An iterator in `room`, on the member under the key, or on the first one where there is no key. Raises
  // OpNotSupportedException where there are no members.
  virtual AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const;
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, IteratorRoom& room) const {
    return iterate(attr, e, nullptr, room);
  }
  virtual U32 count(KelAttr const& attr, Entity const& e) const;

  // Typed. Whether the attribute's whole content is equal in two entities of the same type: values and collections of
  // values; pointers by identity. Never called for owned entities.
  virtual bool equal(Entity const& a, Entity const& b) const;
  // The same for keyed collections with pointers in them, in order: pointers are compared by `same`. False for anything
  // else, and where the members stand in another order.
  virtual bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const;
  // Of a keyed collection of values or pointers, about the member that an iterator over another entity's same attribute
  // is on. Where keys or members are pointers, `key` and `target` are given in their place.
  enum class Found : U8 { absent, different, equal };
  // Looks for a member under the same key; members that are pointers are left to the caller, who gets `*target`.
  virtual Found findMember(Entity const& e, AttrIterator const& at, Entity* key, Entity** target) const;
  // Sets it, and notifies.
  virtual void copyMember(KelAttr const& attr, Entity& dest, AttrIterator const& at, Entity* key, Entity* target) const;
  // Appends the value of a queue that an iterator over another entity's same queue is on, and notifies.
  virtual void appendValue(KelAttr const& attr, Entity& dest, AttrIterator const& at) const;
  // Copies a single value across and notifies; the values differ.
  virtual void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const;
  // Of a singleton or a pointer: the entity, or null.
  virtual Entity* single(Entity const& e) const;
  // Points a single pointer at a target of the right type, and notifies.
  virtual void point(KelAttr const& attr, Entity& e, Entity* target) const;
  // Owned members by position (hash maps; `memberEnd` is 0 elsewhere): null at a gap.
  virtual U32 memberEnd(Entity const& e) const;
  virtual Entity* memberAt(Entity const& e, U32 position) const;
  // Two owned members under one key at one position.
  struct Pair {
    Entity* dest;
    Entity* src;
    U32 position;
  };
  static constexpr U32 maxPairs = 16;
  // Gathers pairs from `position` on, at most `maxPairs`, and moves `position` behind them. It stops where the two
  // entities have other keys at one position. What comes next is prefetched. Only for members that have positions.
  virtual U32 gatherPairs(Entity const& dest, Entity const& src, U32& position, Pair* pairs) const;
  // Whether two entities have the same owned members at the same positions, by their keys and by `alike`. False where
  // members have no positions.
  virtual bool membersEqual(Entity const& a, Entity const& b, bool (*alike)(Entity const&, Entity const&)) const;
  // The owned member with the same key as a member of another entity's same attribute, or null; `hint` is where the
  // other one stands.
  virtual Entity* memberLike(Entity const& e, Entity const& member, U32 hint) const;
  // Where an owned member stands, for members that have positions.
  virtual U32 positionOf(Entity const& e, Entity const& member) const;
  // A new owned singleton or member with the constructor parameters of another; the key must be free. Notifies.
  virtual Entity* newLike(KelAttr const& attr, Entity& owner, Entity const& like) const;
  virtual void reserveMembers(Entity& e, U32 count) const;
  // Whether the members of two entities stand at the same positions under keys of the same hashes: almost certainly the
  // same keys, found out without touching a member. False where members have no positions.
  virtual bool sameShape(Entity const& a, Entity const& b) const;

  // The owned entity under a printed key (the empty one: the singleton), or null.
  virtual Entity* child(Entity const& e, std::string_view key) const;
  // Calls back with every owned entity.
  virtual void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const;
  // Moves every owned entity out, silently, and hands it on. Takes no memory.
  using ChildTaken = void (*)(Ptr<Entity> child, void* context);
  virtual void takeChildren(Entity& e, ChildTaken taken, void* context) const;
  // Forgets every pointer, silently.
  virtual void dropPointers(Entity& e) const;

  // For the attribute log (AttrLog.h). Whether the content follows from other attributes, and so stays out of it.
  virtual bool derived() const { return false; }
  // The content, without the owned entities themselves; `object` as for `get`.
  virtual void write(KelAttr const&, void const* object, AttrLogOut& out) const;
  // Reads it back, silently, into an object in which the attribute still is as it was made.
  virtual void read(KelAttr const& attr, void* object, AttrLogIn& in) const;
  // Calls back with everything that is owned, in the order in which `restore` takes it; `sequence` numbers the members
  // of a queue. The default is `eachChild`.
  using OwnedVisit = void (*)(Entity* owned, U64 sequence, void* context);
  virtual void eachOwned(Entity const& e, OwnedVisit visit, void* context) const;
  // Puts an entity that was read back under its owner, silently. Raises what a write of it would.
  virtual void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64 sequence) const;
};

}  // namespace Kel
