// An owner: opens a session for a user, edits, reviews and commits.
#include <iostream>

#include "Switch.h"
#include "service/Service.h"

namespace Sv = Cli::Service;

int main() {
  // What the device runs, and a service for it.
  auto top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  auto device = Kel::ptrCast<Sample::Switch>(running->newEntity("Sample::Switch", "switch"));
  device->newPort("Ethernet1");
  device->newPort("Ethernet2")->descriptionIs("Link to Tokyo");
  Sv::Service service(running, {{"switch", "Sample::Switch"}});

  auto branchOf = [](Sv::Session& session) {
    return Kel::ptrCast<Sample::Switch>(session.tree().dir->entity("switch"));
  };

  // A user edits a branch of it, and looks at the edits.
  Sv::Session& alice = service.open("alice-1", "alice");
  branchOf(alice)->port("Ethernet1")->mtuIs(9000);
  branchOf(alice)->newPort("Ethernet3")->enabledIs(false);
  for (Sv::Difference const& difference : alice.differences()) std::cout << Sv::text(difference) << "\n";

  // Another user has changed the same attribute meanwhile.
  Sv::Session& bob = service.open("bob-1", "bob");
  branchOf(bob)->port("Ethernet1")->mtuIs(1600);
  std::cout << "bob commits " << *bob.commit("a smaller MTU").number << "\n";

  // Alice's commit is refused. She decides for her own value.
  try {
    alice.commit();
  } catch (Sv::ConflictError const& refused) {
    for (Sv::Conflict const& conflict : refused.conflicts) {
      std::cout << Sv::text(conflict) << "\n";
      alice.resolve(conflict.path, Sv::Side::session);
    }
  }
  std::cout << "alice commits " << *alice.commit("jumbo frames").number << "\n";
  std::cout << "Ethernet1 has an MTU of " << device->port("Ethernet1")->mtu() << "\n";

  // Back to what bob committed. The rollback makes edits, which are reviewed like any others.
  alice.rollback(1);
  for (Sv::Difference const& difference : alice.differences()) std::cout << Sv::text(difference) << "\n";
  service.close(alice, true);
}
