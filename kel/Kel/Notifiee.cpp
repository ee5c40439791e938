#include "Kel/Notifiee.h"

#include <algorithm>

#include "Kel/Entity.h"
#include "Kel/Exception.h"

namespace Kel {

struct EntityNotifiee::Activation {
  Activation(EntityNotifiee& reactor, AttributeId attribute) : owner(reactor), id(attribute), outer(reactor.active_) {
    for (Activation const* a = outer; a; a = a->outer)
      if (a->id == id) throw InternalException("entity reactor is already active");
    owner.active_ = this;
  }
  ~Activation() { owner.active_ = outer; }
  Activation(Activation const&) = delete;
  Activation& operator=(Activation const&) = delete;

  EntityNotifiee& owner;
  AttributeId id;
  Activation* outer;
};

EntityNotifiee::~EntityNotifiee() { bind(nullptr); }

void EntityNotifiee::bind(Ptr<Entity const> const& notifier) {
  if (notifier == notifier_) return;
  if (notifier_) {
    EntityExtras& extras = *notifier_->extras_;
    auto const at = std::find(extras.reactors.begin(), extras.reactors.end(), this);
    if (extras.deliveries > 0) {
      *at = nullptr;
    } else {
      extras.reactors.erase(at);
      notifier_->dropEmptyExtras();
    }
  }
  Ptr<Entity const> const next = notifier;  // the given handle may be destroyed with the old notifier
  notifier_ = nullptr;
  if (!next) return;
  next->extras().reactors.push_back(this);
  notifier_ = next;
}

void EntityNotifiee::deliver(AttributeId id, void const* key) {
  Ptr<EntityNotifiee> alive(isNondestructing() || refs() == 0 ? nullptr : this);
  Activation active(*this, id);
  dispatch(id, key);
}

void Entity::notifyReactors(AttributeId id, void const* key) const {
  mark(Change::content);
  PtrConst alive(refs() ? this : nullptr);
  // Reactors that are bound during the delivery are appended, and are not called for this change.
  struct Delivery {
    Entity const& entity;
    explicit Delivery(Entity const& e) : entity(e) { ++e.extras_->deliveries; }
    ~Delivery() {
      if (--entity.extras_->deliveries > 0) return;
      std::erase(entity.extras_->reactors, nullptr);
      entity.dropEmptyExtras();
    }
  } delivery(*this);
  std::size_t const bound = extras_->reactors.size();
  for (std::size_t i = 0; i < bound; ++i)
    if (EntityNotifiee* reactor = extras_->reactors[i]) reactor->deliver(id, key);
}

EntityExtras& Entity::extras() const {
  if (!extras_) extras_ = new EntityExtras;
  return *extras_;
}

void Entity::dropEmptyExtras() const noexcept {
  if (!extras_->reactors.empty() || extras_->journal) return;
  delete extras_;
  extras_ = nullptr;
}

}  // namespace Kel
