// Hash maps.
//
// Members are in the slots of one array, with an index of hashes beside it; a map of up to 8 slots has no index and is
// searched. Iterating walks memory in order: the order of insertion, until members are deleted and later insertions
// close the gaps. Look-up takes a key or, for strings, a view. An empty map is one null pointer.
//
// An iterator stays valid whatever is inserted or deleted meanwhile. If the member that it is on is deleted, it can
// still be advanced. It must not outlive the map. A map with live iterators does not close gaps. A map belongs to one
// thread at a time.
#pragma once

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "Kel/MemPool.h"
#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

// Mixes a hash; the result is never 0, which marks a gap. Fibonacci hashing (Knuth, The Art of Computer Programming
// 6.4): the upper half of the product is better mixed than the lower half, and differs between n and -n.
inline U32 mixHash(U64 h) { return static_cast<U32>((h * 0x9e3779b97f4a7c15ull) >> 32) | 0x80000000u; }
// The hash of a key.
template <class K>
U32 keyHash(K const& key) {
  if constexpr (std::is_same_v<K, String8>)
    return key.hash();
  else if constexpr (std::is_enum_v<K>)
    return mixHash(static_cast<U64>(static_cast<S64>(key)));
  else if constexpr (std::is_floating_point_v<K>)
    return key == key ? mixHash(std::hash<K>()(key)) : mixHash(1);
  else if constexpr (std::is_integral_v<K>)
    return mixHash(static_cast<U64>(key));
  else
    return mixHash(key.hash());
}
template <class T>
U32 keyHash(Ptr<T> const& key) {
  return mixHash(reinterpret_cast<std::uintptr_t>(key.ptr()));
}
inline U32 keyHash(std::string_view key) { return key.empty() ? String8().hash() : hashBytes(key.data(), key.size()); }

// Whether two keys are equal. A NaN equals a NaN: otherwise it could never be found again.
template <class A, class B>
bool sameKey(A const& a, B const& b) {
  if constexpr (std::is_floating_point_v<A>)
    return a == b || (a != a && b != b);
  else
    return a == b;
}

// The part that does not depend on the type of the members: the array of hashes, the index, growth and deletion.
class KEL_API HashMapGeneric {
 public:
  static constexpr U32 none = 0xffffffff;
  static constexpr U32 longestUnindexed = 8;

  HashMapGeneric() = default;
  HashMapGeneric(HashMapGeneric const&) = delete;
  HashMapGeneric& operator=(HashMapGeneric const&) = delete;

  U32 members() const { return rep_ ? rep_->live : 0; }
  bool empty() const { return members() == 0; }

  // Slots, for walking by position. A slot below `slotEnd` has a member if `slotLive` is true.
  U32 slotEnd() const { return rep_ ? rep_->used : 0; }
  bool slotLive(U32 slot) const { return hashes()[slot] != 0; }
  U32 slotHash(U32 slot) const { return hashes()[slot]; }
  // Whether both maps have keys of the same hashes in the same slots.
  bool sameHashes(HashMapGeneric const& o) const {
    U32 const end = slotEnd();
    return end == o.slotEnd() && (end == 0 || std::memcmp(hashes(), o.hashes(), end * sizeof(U32)) == 0);
  }
  // The first slot from `slot` on that has a member, or slotEnd().
  U32 nextSlot(U32 slot) const {
    U32 const end = slotEnd();
    while (slot < end && hashes()[slot] == 0) ++slot;
    return slot;
  }

  // While there is a pin on a map, slots keep their numbers. Iterators hold one.
  class Pin {
   public:
    explicit Pin(HashMapGeneric const* map) : map_(map) { ++map_->pins_; }
    Pin(Pin const& o) : Pin(o.map_) {}
    Pin& operator=(Pin const& o) {
      ++o.map_->pins_;
      --map_->pins_;
      map_ = o.map_;
      return *this;
    }
    ~Pin() { --map_->pins_; }
    HashMapGeneric const* map() const { return map_; }

   private:
    HashMapGeneric const* map_;
  };

 protected:
  friend struct DebugLayout;
  // Moves `count` slots for which the hash is not 0 from one array to another, one after the other.
  using Relocate = void (*)(void* to, void* from, U32 const* hashes, U32 count, bool close) noexcept;
  // What the generic part needs to know about a slot.
  struct SlotType {
    std::size_t size;
    Relocate relocate;
  };

  // The head of the array.
  struct Rep {
    U32 used;    // slots in use, gaps included
    U32 live;    // members
    U32 cap;     // slots in the array
    U32 mask;    // of the index; 0: no index
    U64* index;  // open addressing, linear probing: slot + 1 in the low half, hash in the high half; 0: free
  };

  U32* hashes() const { return reinterpret_cast<U32*>(rep_ + 1); }
  char* slots() const { return reinterpret_cast<char*>(rep_ + 1) + slotsOffset(rep_->cap); }

  // Walks the candidates for a hash: `probe` starts as given by `firstProbe`; answers a slot with that hash, or none.
  struct Probe {
    U32 at;
  };
  U32 findNext(U32 hash, Probe& probe) const {
    if (!rep_) return none;
    U32 const* h = hashes();
    if (!rep_->index) {
      for (U32 slot = probe.at; slot < rep_->used; ++slot) {
        if (h[slot] == hash) {
          probe.at = slot + 1;
          return slot;
        }
      }
      return none;
    }
    U32 const mask = rep_->mask;
    for (U32 i = probe.at;; ++i) {
      U64 const entry = rep_->index[(hash + i) & mask];
      if (entry == 0) return none;
      if (static_cast<U32>(entry >> 32) != hash) continue;
      U32 const slot = static_cast<U32>(entry) - 1;
      if (h[slot] != hash) continue;  // the member was deleted
      probe.at = i + 1;
      return slot;
    }
  }

  // Makes room for one more member and enters its hash; the caller constructs the slot. Strong guarantee.
  U32 newSlot(U32 hash, SlotType const& type);
  // Makes the slot a gap; the caller has destroyed its content.
  void deleteSlot(U32 slot) noexcept;
  void reserveSlots(U32 count, SlotType const& type);
  // Frees the array. REQUIRES: all slots are destroyed.
  void releaseStorage(SlotType const& type) noexcept;
  bool pinned() const { return pins_ != 0; }

  Rep* rep_ = nullptr;

 private:
  static std::size_t slotsOffset(U32 cap) { return (cap * sizeof(U32) + 7) & ~std::size_t(7); }
  static std::size_t bytes(U32 cap, SlotType const& type) { return sizeof(Rep) + slotsOffset(cap) + cap * type.size; }
  void resize(U32 cap, bool close, SlotType const& type);
  void rebuildIndex();

  mutable U32 pins_ = 0;
};

// A map whose slots contain their key, which `KeyOf::key(slot)` answers.
template <class K, class Slot, class KeyOf>
class DenseHash : public HashMapGeneric {
 public:
  using key_type = K;

  ~DenseHash() { clear(); }

  // The slot of a key, or `none`. `hash` is keyHash(key).
  template <class Key>
  U32 findSlot(Key const& key, U32 hash) const {
    Probe probe{0};
    for (;;) {
      U32 const slot = findNext(hash, probe);
      if (slot == none || sameKey(KeyOf::key(at(slot)), key)) return slot;
    }
  }
  template <class Key>
  U32 findSlot(Key const& key) const {
    return rep_ ? findSlot(key, keyHash(key)) : none;
  }
  // The next slot whose key has a hash, or `none`. `cursor` is 0 at first.
  U32 nextSlotOf(U32 hash, U32& cursor) const {
    Probe probe{cursor};
    U32 const slot = findNext(hash, probe);
    cursor = probe.at;
    return slot;
  }
  // As findSlot, but looks at the slot `hint` first. A map and its copy have the same keys in the same slots.
  template <class Key>
  U32 findSlotNear(Key const& key, U32 hash, U32 hint) const {
    if (hint < slotEnd() && slotHash(hint) == hash && sameKey(KeyOf::key(at(hint)), key)) return hint;
    return findSlot(key, hash);
  }

  // The common part of the iterators, which visit the members in the order of their slots. They may outlive the member
  // that they are on, but not the map.
  class SlotIterator {
   public:
    explicit operator bool() const { return slot_ < map().slotEnd() && map().slotLive(slot_); }
    U32 position() const { return slot_; }
    // The slot may be free; then the iterator is on no member.
    void moveTo(U32 slot) { slot_ = slot; }

   protected:
    SlotIterator(DenseHash const* map, U32 slot) : pin_(map), slot_(slot) {}
    // REQUIRES: the iterator is on a member.
    Slot const& slot() const { return map().at(slot_); }
    void advance() {
      if (slot_ < map().slotEnd()) slot_ = map().nextSlot(slot_ + 1);
    }

   private:
    DenseHash const& map() const { return *static_cast<DenseHash const*>(pin_.map()); }

    Pin pin_;
    U32 slot_;
  };

  // REQUIRES: the slot has a member.
  Slot& at(U32 slot) { return slotArray()[slot]; }
  Slot const& at(U32 slot) const { return slotArray()[slot]; }
  // Makes room for so many members.
  void reserve(U32 count) { reserveSlots(count, slotType()); }

  void clear() noexcept {
    if (!rep_) return;
    for (U32 slot = nextSlot(0); slot < slotEnd(); slot = nextSlot(slot + 1)) at(slot).~Slot();
    releaseStorage(slotType());
  }

 protected:
  template <class... Args>
  Slot& emplace(U32 hash, Args&&... args) {
    // Made before the array may move: the arguments may be in this map, and the constructor may raise.
    static_assert(std::is_nothrow_move_constructible_v<Slot>);
    Slot made{std::forward<Args>(args)...};
    U32 const slot = newSlot(hash, slotType());
    return *new (&slotArray()[slot]) Slot(std::move(made));
  }
  Slot takeSlot(U32 slot) noexcept {
    Slot taken(std::move(at(slot)));
    at(slot).~Slot();
    deleteSlot(slot);
    return taken;
  }
  Slot* slotArray() const { return reinterpret_cast<Slot*>(slots()); }

 private:
  static void relocate(void* to, void* from, U32 const* hashes, U32 count, bool close) noexcept {
    auto* source = static_cast<Slot*>(from);
    auto* target = static_cast<Slot*>(to);
    for (U32 i = 0; i < count; ++i, ++source) {
      if (hashes[i] != 0) {
        new (target) Slot(std::move(*source));
        source->~Slot();
      }
      if (hashes[i] != 0 || !close) ++target;
    }
  }
  static SlotType const& slotType() {
    static_assert(alignof(Slot) <= 8);
    static constexpr SlotType type{sizeof(Slot), &relocate};
    return type;
  }
};

// A key and its value.
template <class K, class V>
struct KeyedSlot {
  K key;
  V value;
};
// The key of a KeyedSlot.
struct KeyedSlotKey {
  template <class Slot>
  static auto const& key(Slot const& slot) {
    return slot.key;
  }
};

// Values by key.
template <class K, class V>
class HashMap : public DenseHash<K, KeyedSlot<K, V>, KeyedSlotKey> {
  using Base = DenseHash<K, KeyedSlot<K, V>, KeyedSlotKey>;

 public:
  using mapped_type = V;

  // The value under the key, or null.
  template <class Key>
  V const* find(Key const& key) const {
    U32 const slot = this->findSlot(key);
    return slot == Base::none ? nullptr : &this->at(slot).value;
  }
  // The value under the key, or a default one.
  V value(K const& key) const {
    V const* v = find(key);
    return v ? *v : V();
  }
  // Sets or inserts; answers whether the map changed.
  bool set(K const& key, V const& value) {
    U32 const hash = keyHash(key);
    U32 const slot = this->rep_ ? this->findSlot(key, hash) : Base::none;
    if (slot == Base::none) {
      this->emplace(hash, key, value);
      return true;
    }
    V& held = this->at(slot).value;
    if constexpr (requires { value == value; })
      if (held == value) return false;
    held = value;
    return true;
  }
  // Deletes a member; answers whether there was one.
  bool erase(K const& key) {
    U32 const slot = this->findSlot(key);
    if (slot == Base::none) return false;
    this->takeSlot(slot);
    return true;
  }
  // Whether both have the same keys with equal values, in any order.
  bool operator==(HashMap const& o) const {
    if (this->members() != o.members()) return false;
    for (U32 s = this->nextSlot(0); s < this->slotEnd(); s = this->nextSlot(s + 1)) {
      U32 const other = o.findSlotNear(this->at(s).key, this->slotHash(s), s);
      if (other == Base::none || !(o.at(other).value == this->at(s).value)) return false;
    }
    return true;
  }
  // Whether both have as many members, and `same` holds for each two slots in the order of the maps. REQUIRES: `same`
  // changes neither map.
  template <class Same>
  bool equalInOrder(HashMap const& o, Same const& same) const {
    U32 left = this->members();
    if (left != o.members()) return false;
    if (left == 0) return true;
    U32 const *hash = this->hashes(), *otherHash = o.hashes();
    auto const *slot = this->slotArray(), *other = o.slotArray();
    for (; left > 0; --left, ++hash, ++slot, ++otherHash, ++other) {
      for (; *hash == 0; ++hash) ++slot;
      for (; *otherHash == 0; ++otherHash) ++other;
      if (!same(*slot, *other)) return false;
    }
    return true;
  }

  // Over keys and values.
  class Iterator : public Base::SlotIterator {
   public:
    explicit Iterator(HashMap const* map) : Base::SlotIterator(map, map->nextSlot(0)) {}
    Iterator(HashMap const* map, K const& key) : Base::SlotIterator(map, map->findSlot(key)) {}
    K const& key() const { return this->slot().key; }
    V const& value() const { return this->slot().value; }
    V const& operator*() const { return value(); }
    V const* operator->() const { return &value(); }
    Iterator& operator++() {
      this->advance();
      return *this;
    }
  };
  Iterator iterator() const { return Iterator(this); }
  Iterator iterator(K const& key) const { return Iterator(this, key); }
};

}  // namespace Kel
