// The offset of a member variable in its entity.
#pragma once

#include <bit>
#include <cstddef>
#include <type_traits>

#include "Kel/Entity.h"

namespace Kel {

// The offset of a member variable of a class derived from Entity. A pointer to a data member is an offset (Itanium C++
// ABI, 2.3.1).
class Offset {
 public:
  template <class C, class M>
  explicit Offset(M C::*member) : bytes_(std::bit_cast<std::ptrdiff_t>(static_cast<M Entity::*>(member))) {}

  std::ptrdiff_t bytes() const { return bytes_; }
  // REQUIRES: the member is an M, or derived from M with M first.
  template <class M>
  M& in(Entity& e) const {
    return *reinterpret_cast<M*>(reinterpret_cast<char*>(&e) + bytes_);
  }
  template <class M>
  M const& in(Entity const& e) const {
    return *reinterpret_cast<M const*>(reinterpret_cast<char const*>(&e) + bytes_);
  }

 private:
  std::ptrdiff_t bytes_;
};

// Reads and writes a member variable of type Ptr<E>, for any entity type E (or E const), as a Ptr<Entity>. So one class
// serves all handles. `may_alias` tells the compiler that the variable is accessed as another type.
class EntityHandleAt {
 public:
  template <class C, class E>
  EntityHandleAt(Ptr<E> C::*member) : offset_(member) {
    static_assert(std::is_base_of_v<Entity, std::remove_const_t<E>> && sizeof(Ptr<E>) == sizeof(void*));
    KEL_ASSERT(entityComesFirst<std::remove_const_t<E>>());
  }

  // The handle, to be compared with an entity and to be set to one.
  class Handle {
   public:
    Handle(EntityHandleAt const& at, Entity& e) : at_(at), e_(e) {}
    bool operator==(Entity const* target) const { return at_.get(e_) == target; }
    Handle& operator=(Entity* target) {
      at_.set(e_, target);
      return *this;
    }

   private:
    EntityHandleAt const& at_;
    Entity& e_;
  };
  Handle in(Entity& e) const { return Handle(*this, e); }

  Entity* get(Entity const& e) const { return offset_.in<Cell>(e).target; }
  void set(Entity& e, Entity* target) const {
    if (target) target->refInc();
    Ptr<Entity> const gone = exchange(e, target);
  }
  // Clears the variable; answers its old value.
  Ptr<Entity> take(Entity& e) const { return exchange(e, nullptr); }

 private:
  struct [[gnu::may_alias]] Cell {
    Entity* target;
  };
  template <class E>
  static bool entityComesFirst() {
    auto* const e = reinterpret_cast<E*>(alignof(E));
    return static_cast<void*>(static_cast<Entity*>(e)) == static_cast<void*>(e);
  }
  // Stores a target, which is counted already; answers the old one.
  Ptr<Entity> exchange(Entity& e, Entity* target) const {
    Cell& cell = offset_.in<Cell>(e);
    Entity* const held = cell.target;
    cell.target = target;
    Ptr<Entity> gone(held);
    if (held) held->refDec();
    return gone;
  }

  Offset offset_;
};

}  // namespace Kel
