// Reactors.
//
// A reactor is bound to an entity, its notifier. It is called after each write that changed an attribute of the entity;
// several reactors are called in the order in which they were bound. A write of an equal value does not call them;
// `xNotify()` always does. A reactor of a collection gets the key of the changed member.
//
// A reactor may write, delete, bind and unbind while it runs. It may not write the attribute that it is reacting to:
// the value is stored, and the inner write raises InternalException "entity reactor is already active".
//
// A reactor keeps its notifier alive, and unbinds when it is destroyed.
#pragma once

#include <cstdint>
#include <vector>

#include "Kel/MemPool.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"

namespace Kel {

class ChangeJournal;
class Entity;

// The base of all reactors: every entity type generates a Notifiee and a NotifieeConst, derived from those of its base.
class KEL_API EntityNotifiee : public PtrInterface {
 public:
  ~EntityNotifiee() override;

 protected:
  EntityNotifiee() = default;
  // Unbinds, and binds to another notifier, unless that is null.
  void bind(Ptr<Entity const> const& notifier);
  // The notifier, or null.
  Ptr<Entity const> const& bound() const { return notifier_; }
  // Calls `onX` of the attribute. Generated.
  virtual void dispatch(AttributeId id, void const* key) = 0;

 private:
  friend class Entity;
  struct Activation;
  void deliver(AttributeId id, void const* key);

  Ptr<Entity const> notifier_;
  Activation* active_ = nullptr;  // what this reactor is handling now, innermost first
};

// For the framework: the state that only few entities need.
struct EntityExtras : KelMemPool {
  EntityExtras() noexcept;
  ~EntityExtras();
  EntityExtras(EntityExtras const&) = delete;
  EntityExtras& operator=(EntityExtras const&) = delete;

  // The reactors, in the order in which they were bound. One that unbinds during a delivery leaves a null behind until
  // the delivery ends.
  std::vector<EntityNotifiee*> reactors;
  U32 deliveries = 0;
  ChangeJournal* journal = nullptr;            // owned
  Entity* next = nullptr;                      // of the entity's EntityStack
  static constexpr std::uintptr_t isLink = 1;  // an odd address is such a link, not an address of extras
};

}  // namespace Kel
