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
    ReactorList& list = *notifier_->reactors_;
    auto const at = std::find(list.reactors.begin(), list.reactors.end(), this);
    if (list.deliveries > 0) {
      *at = nullptr;
    } else {
      list.reactors.erase(at);
      if (list.reactors.empty()) {
        delete notifier_->reactors_;
        notifier_->reactors_ = nullptr;
      }
    }
  }
  notifier_ = notifier;
  if (!notifier_) return;
  if (!notifier_->reactors_) notifier_->reactors_ = new ReactorList;
  notifier_->reactors_->reactors.push_back(this);
}

void EntityNotifiee::deliver(AttributeId id, void const* key) {
  Ptr<EntityNotifiee> alive(isNondestructing() || refs() == 0 ? nullptr : this);
  Activation active(*this, id);
  dispatch(id, key);
}

void Entity::notifyReactors(AttributeId id, void const* key) const {
  PtrConst alive(refs() ? this : nullptr);
  // Reactors bound during the delivery come at the end and are not called for this change.
  struct Delivery {
    Entity const& entity;
    explicit Delivery(Entity const& e) : entity(e) { ++e.reactors_->deliveries; }
    ~Delivery() {
      ReactorList* list = entity.reactors_;
      if (--list->deliveries > 0) return;
      std::erase(list->reactors, nullptr);
      if (!list->reactors.empty()) return;
      delete list;
      entity.reactors_ = nullptr;
    }
  } delivery(*this);
  std::size_t const bound = reactors_->reactors.size();
  for (std::size_t i = 0; i < bound; ++i)
    if (EntityNotifiee* reactor = reactors_->reactors[i]) reactor->deliver(id, key);
}

}  // namespace Kel
