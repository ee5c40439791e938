// Reactors.
//
// A reactor bound to an entity (its notifier) is called after each write that changed a value of it, reactors in the
// order in which they were bound; a write of an equal value does not call, `xNotify()` always does. A reactor of a
// collection gets the key of the changed member. A reactor may write, delete, bind and unbind while it runs; writing
// the very attribute that it is reacting to is refused: the value is stored, and "entity reactor is already active" is
// raised from the inner write. A reactor keeps its notifier alive and unbinds when it is destroyed.
#pragma once

#include <cstdint>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/Types.h"

namespace Kel {

class ChangeJournal;
class Entity;

// The base of every type's Notifiee and NotifieeConst.
class KEL_API EntityNotifiee : public PtrInterface {
 public:
  ~EntityNotifiee() override;

 protected:
  EntityNotifiee() = default;
  // Binds to another notifier, or to none.
  void bind(Ptr<Entity const> const& notifier);
  Ptr<Entity const> const& bound() const { return notifier_; }
  // Calls the handler of the attribute. Generated.
  virtual void dispatch(AttributeId id, void const* key) = 0;

 private:
  friend class Entity;
  struct Activation;
  void deliver(AttributeId id, void const* key);

  Ptr<Entity const> notifier_;
  Activation* active_ = nullptr;  // what this reactor is handling now, innermost first
};

// What only few entities have.
struct EntityExtras {
  EntityExtras() noexcept;
  ~EntityExtras();
  EntityExtras(EntityExtras const&) = delete;
  EntityExtras& operator=(EntityExtras const&) = delete;

  // The reactors, in the order in which they were bound; one that unbinds during a delivery leaves a null behind until
  // the delivery ends.
  std::vector<EntityNotifiee*> reactors;
  U32 deliveries = 0;
  ChangeJournal* journal = nullptr;            // owned
  Entity* next = nullptr;                      // of the entity's EntityStack
  static constexpr std::uintptr_t isLink = 1;  // an odd address is no extras, but such a link
};

}  // namespace Kel
