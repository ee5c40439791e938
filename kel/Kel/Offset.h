// Where in an entity a member variable lies.
#pragma once

#include <bit>
#include <cstddef>
#include <type_traits>

#include "Kel/Entity.h"

namespace Kel {

// Of a member variable of a class derived from Entity. A pointer to a data member is an offset (Itanium C++
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

// A member variable of type Ptr<E>, for any entity type E (or E const), seen as a Ptr<Entity>. One class with its
// functions thus serves all handles; the compiler is told that it reads what was written as another type.
class EntityHandleAt {
 public:
  template <class C, class E>
  EntityHandleAt(Ptr<E> C::*member) : offset_(member) {
    static_assert(std::is_base_of_v<Entity, std::remove_const_t<E>> && sizeof(Ptr<E>) == sizeof(Entity*));
    KEL_ASSERT(entityComesFirst<std::remove_const_t<E>>());
  }

  Entity* get(Entity const& e) const { return offset_.in<Cell>(e).target; }
  void set(Entity& e, Entity* target) const {
    if (target) target->refInc();
    Ptr<Entity> const gone = exchange(e, target);
  }
  // What was there.
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
  // Hands on the reference that was held, and holds one that was counted already.
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
