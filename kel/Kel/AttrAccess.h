// Access to the attributes of objects whose type is not known at compile time. An attribute's record has an access
// object of a class for the attribute's kind of storage. It has two sets of operations: the boxed ones behind
// GenericIf, and the typed ones for the inner loop of the copy engine, which neither allocate nor format.
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

// An iterator over a collection; GenericIf::AttributeIterator wraps it.
class KEL_API AttrIterator {
 public:
  virtual ~AttrIterator() = default;
  virtual bool nonNull() const = 0;
  virtual GenericIf::Ptr key() const = 0;
  virtual GenericIf::Ptr obj(bool constView) const = 0;
  virtual void inc() = 0;
  virtual void cloneInto(IteratorRoom& room) const = 0;

  // Typed: the entity that is the key, and the entity that is the member, owned or pointed at. Null if the key or
  // member is a value or a null pointer.
  virtual Entity* keyTarget() const = 0;
  virtual Entity* target() const = 0;
  // Hash maps: the member's position, which stays as it is while there is an iterator over the map.
  virtual U32 position() const { return 0; }
};

// Room for an iterator on the stack, so that walking a collection allocates nothing, unless its keys are very large.
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

  // REQUIRES: called once for each room.
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

// Compares pointers of two trees: whether one target is the counterpart of the other.
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

  // Boxed. `object` is the Entity or, for a field, the value of the value type. Writers notify reactors. An operation
  // that the kind of storage does not have raises OpNotSupportedException.
  virtual GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const;
  virtual void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const;
  virtual void del(KelAttr const& attr, Entity& e, GenericIf const* key) const;
  virtual void enq(KelAttr const& attr, Entity& e, GenericIf const* value) const;
  virtual void deq(KelAttr const& attr, Entity& e) const;
  virtual void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const;
  virtual GenericIf::Ptr call(KelAttr const& attr, Entity const& e, bool constView, GenericIf::Args const& args) const;
  // An iterator in `room`, on the member under the key, or on the first one if `key` is null. Raises
  // OpNotSupportedException if the attribute is not a collection.
  virtual AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const;
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, IteratorRoom& room) const {
    return iterate(attr, e, nullptr, room);
  }
  virtual U32 count(KelAttr const& attr, Entity const& e) const;

  // Typed. Each shape has the functions of its groups below. To call another one fails an assertion.

  // Single values; pointers; collections and queues of values and pointers: whether the whole content is equal in two
  // entities of the same type. Pointers are equal if they lead to the same entity. Values without a comparison differ.
  virtual bool equal(Entity const& a, Entity const& b) const;
  // As `equal`, for all attributes; `same` compares the pointers. Attributes that own entities are equal if both own
  // none. False if the members of a keyed collection with pointers have another order.
  virtual bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const;

  // Single values. Copies the value, and notifies. REQUIRES: the values differ.
  virtual void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const;

  // Pointers and singletons: the entity, or null. A pointer to another object than an entity is null.
  virtual Entity* target(Entity const& e) const;
  // Pointers to entities. Sets the pointer, and notifies. REQUIRES: the target is of the right type.
  virtual void setTarget(KelAttr const& attr, Entity& e, Entity* target) const;
  // Attributes with pointers. Clears all of them, without notifying; answers whether there were any.
  virtual bool dropPointers(Entity& e) const;

  // Keyed collections of values and pointers. The next two: `at` is an iterator on a member of the same attribute of
  // another entity. `key` replaces the iterator's key, and `target` its member, where these are pointers.
  enum class Found : U8 { absent, different, equal };
  // Compares the member with the one under the same key. For pointers, sets `*target`, and leaves the comparison to the
  // caller.
  virtual Found findMember(Entity const& e, AttrIterator const& at, Entity* key, Entity** target) const;
  // Sets the member under the same key, and notifies.
  virtual void copyMember(KelAttr const& attr, Entity& dest, AttrIterator const& at, Entity* key, Entity* target) const;
  // Deletes the member that `at`, an iterator over this attribute of `e` itself, is on; notifies.
  virtual void deleteMember(KelAttr const& attr, Entity& e, AttrIterator const& at) const;

  // An iterator in `room`; null if there is no such member. Queues: on the member with so many members before it. Owned
  // members of hash maps: on the one at that position.
  virtual AttrIterator& iterateAt(Entity const& e, U32 position, IteratorRoom& room) const;
  // Queues of values. Appends the value that `at`, an iterator over the same queue of another entity, is on; notifies.
  virtual void appendValue(KelAttr const& attr, Entity& dest, AttrIterator const& at) const;

  // Owned entities by key. The one with the key of `member`, which belongs to the same attribute of another entity;
  // null if there is none, and for queues. `hint` is the position of `member`.
  virtual Entity* findCounterpart(Entity const& e, Entity const& member, U32 hint) const;
  // Whether the keys of two entities' members have the same hashes at the same positions. Then the keys are almost
  // certainly the same. Touches no member. False if members have no positions.
  virtual bool sameKeyHashes(Entity const& a, Entity const& b) const;
  // The position of an owned member of a hash map. For queues of entities: the number of members before it.
  virtual U32 positionOf(Entity const& e, Entity const& member) const;
  // The next five: owned members of hash maps. The hash of a member's key; it needs no owner.
  virtual U32 hashOfKey(Entity const& member) const;
  // The next member whose key has that hash, or null. `cursor` is 0 at first.
  virtual Entity* nextOfHash(Entity const& e, U32 hash, U32& cursor) const;
  // Makes room for so many.
  virtual void reserveMembers(Entity& e, U32 count) const;
  // A member, and the one under the same key in another entity, or null.
  struct Pair {
    Entity* dest;
    Entity* src;
    U32 position;  // of `src`
  };
  // Collects at most `most` members of `src` from `position` on, and moves `position` behind them; answers how many it
  // has collected, 0 at the end. Prefetches the next ones.
  virtual U32 gatherPairs(Entity const& dest, Entity const& src, U32& position, Pair* pairs, U32 most) const;
  // Whether two entities have the same members at the same positions, by their keys and by what `differences` compares.
  virtual bool membersEqual(Entity const& a, Entity const& b, PlainDifferences differences) const;

  // Singletons, and owned entities by key. Makes one with the constructor parameters of `like`, and notifies. REQUIRES:
  // the key is free.
  virtual Entity* createLike(KelAttr const& attr, Entity& owner, Entity const& like) const;

  // Attributes that own entities. The entity under a printed key (for a singleton the empty key), or null.
  virtual Entity* child(Entity const& e, std::string_view key) const;
  // Calls back with every owned entity.
  virtual void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const;
  // Moves every owned entity out, into a call of `taken`. Does not notify, and allocates nothing.
  using ChildTaken = void (*)(Ptr<Entity> child, void* context);
  virtual void takeChildren(Entity& e, ChildTaken taken, void* context) const;

  // For the attribute log (AttrLog.h). Whether the content is derived from other attributes, and so not logged.
  virtual bool derived() const { return false; }
  // The content, without the owned entities themselves; `object` as for `get`.
  virtual void write(KelAttr const&, void const* object, AttrLogOut& out) const;
  // Reads it back, without notifying. REQUIRES: the attribute has its initial content.
  virtual void read(KelAttr const& attr, void* object, AttrLogIn& in) const;
  // Attributes that own entities. Calls back with everything that is owned, in the order that `restore` needs;
  // `sequence` is the number of a queue's member. The default is `eachChild`.
  using OwnedVisit = void (*)(Entity* owned, U64 sequence, void* context);
  virtual void eachOwned(Entity const& e, OwnedVisit visit, void* context) const;
  // Puts an entity that was read back under its owner, without notifying. Raises what a write of it would.
  virtual void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64 sequence) const;
};

}  // namespace Kel
