#include <iostream>

#include "Kel/Dir.h"
#include "Network.h"

int main() {
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  Kel::Entity::Ptr made = running->newEntity("Guide::Device", "leaf1");
  Guide::Device::Ptr device = Kel::ptrCast<Guide::Device>(made);
  std::cout << device->fullName() << " is a " << device->typeName() << "\n";

  device->newPort("Ethernet1");
  device->portIs("Ethernet1")->mtuIs(9000);
  try {
    device->newPort("Ethernet1");
  } catch (Kel::NameInUseException const& e) {
    std::cout << e.message() << "\n";
  }
  std::cout << "Ethernet2 is " << (device->port("Ethernet2") ? "there" : "not there") << "\n";

  device->newPort("Ethernet2");
  device->uplinkIs("first", device->port("Ethernet2"));
  for (auto it = device->portIterator(); it; ++it) std::cout << it.key() << " has mtu " << it->mtu() << "\n";
  for (auto it = device->uplinkIterator(); it; ++it)
    std::cout << it.key() << " leads to " << *it << " with mtu " << (*it)->mtu() << "\n";

  Guide::Port::Ptr port = device->port("Ethernet1");
  port->noteIs("owner", "rack team");
  port->noteIs("cable", "blue");
  for (auto it = port->noteIterator(); it; ++it) std::cout << it.key() << ": " << it.value() << "\n";
  std::cout << "notes: " << port->notes() << ", of an unknown key: '" << port->note("colour") << "'\n";

  Guide::Prefix prefix("10.0.0.1", 24);
  port->addressIs(prefix);
  prefix.lengthIs(32);
  std::cout << "own length " << int(prefix.length()) << ", the port's " << int(port->address().length()) << "\n";

  device->eventEnq("booted");
  device->eventEnq("port up");
  device->eventDeq();
  for (auto it = device->eventIterator(); it; ++it) std::cout << "event " << it.key() << ": " << *it << "\n";

  for (auto it = device->portIterator(); it; ++it)
    if (it->mtu() == 1500) device->portDel(it.key());
  std::cout << "ports left: " << device->ports() << "\n";

  port->vlanIs(device->newVlan(10));
  device->vlanDel(10);
  std::cout << "the device has VLAN 10: " << (device->vlan(10) ? "yes" : "no") << "\n";
  std::cout << "the port still holds VLAN " << port->vlan()->id() << ", which "
            << (port->vlan()->parent() ? "has an owner" : "has no owner") << "\n";
}
