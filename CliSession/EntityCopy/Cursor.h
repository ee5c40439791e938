// A cursor over the members of a collection or queue.
#pragma once

#include <optional>

#include "Kel/AttrAccess.h"
#include "Kel/Entity.h"

namespace Cli::Session {

// With `byPosition`, it counts positions, and neither allocates nor touches the collection; otherwise it uses the
// collection's own iterator. REQUIRES: the owner outlives it; with `byPosition`, the members have positions, and the
// collection is pinned while foreign code runs (Frame::walking).
class Cursor {
 public:
  Cursor(Kel::KelAttr const& attr, Kel::Entity const& owner, bool byPosition, Kel::U32 from = 0)
      : attr_(attr), owner_(owner), position_(from) {
    if (!byPosition)
      it_ = &attr.access().iterate(attr, owner, room_);
    else
      settle();
  }
  Cursor(Cursor const&) = delete;
  Cursor& operator=(Cursor const&) = delete;

  // Whether it is on a member.
  explicit operator bool() const { return it_ ? it_->nonNull() : member_ != nullptr; }
  Cursor& operator++() {
    if (it_) {
      it_->inc();
    } else {
      ++position_;
      settle();
    }
    return *this;
  }
  // The entity that is the member; null where the member is a value or a null pointer.
  Kel::Entity* target() const { return it_ ? it_->target() : member_; }
  Kel::Entity* keyTarget() const { return it_ ? it_->keyTarget() : nullptr; }
  Kel::U32 position() const { return position_; }
  // The collection's own iterator; null where positions are counted.
  Kel::AttrIterator const* iterator() const { return it_; }

  Kel::GenericIf::PtrConst key() const;
  Kel::GenericIf::PtrConst obj(bool constView) const;

 private:
  // Goes on to the next position at which there is a member.
  void settle() {
    Kel::AttrAccess const& access = attr_.access();
    member_ = nullptr;
    for (Kel::U32 const end = access.memberEnd(owner_); position_ < end; ++position_)
      if ((member_ = access.memberAt(owner_, position_))) return;
  }

  Kel::KelAttr const& attr_;
  Kel::Entity const& owner_;
  Kel::AttrIterator* it_ = nullptr;
  Kel::Entity* member_ = nullptr;
  Kel::U32 position_ = 0;
  Kel::IteratorRoom room_;
};

}  // namespace Cli::Session
