// Iterators of collections for the reflective interface.
#pragma once

#include "Kel/AttrAccess.h"
#include "Kel/Box.h"

namespace Kel {

// A collection's iterator as an AttrIterator; `Member` reads the member that it is on.
template <class It, class Member>
class BoxedIterator final : public AttrIterator {
 public:
  explicit BoxedIterator(It it) : it_(std::move(it)) {}
  bool nonNull() const override { return static_cast<bool>(it_); }
  GenericIf::Ptr key() const override { return box(static_cast<std::decay_t<decltype(it_.key())>>(it_.key())); }
  GenericIf::Ptr obj(bool constView) const override { return boxView(Member::of(it_), constView); }
  void inc() override { ++it_; }
  void cloneInto(IteratorRoom& room) const override { room.emplace(*this); }
  Entity* keyTarget() const override { return entityIn(it_.key()); }
  Entity* target() const override { return entityIn(Member::of(it_)); }
  U32 position() const override {
    if constexpr (requires { it_.position(); })
      return it_.position();
    else
      return 0;
  }
  It const& it() const { return it_; }

 private:
  template <class T>
  static Entity* entityIn(T const& held) {
    if constexpr (isPtrType<T>) {
      if constexpr (std::is_base_of_v<Entity, typename PtrTraits<T>::target>)
        return const_cast<Entity*>(static_cast<Entity const*>(held.ptr()));
    }
    return nullptr;
  }

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
AttrIterator& iteratorIn(IteratorRoom& room, It it) {
  return room.emplace(BoxedIterator<It, Member>(std::move(it)));
}

}  // namespace Kel
