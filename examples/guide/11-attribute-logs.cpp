#include <iostream>

#include "Kel/AttrLog.h"
#include "Kel/Dir.h"
#include "Network.h"

int main() {
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  Guide::Device::Ptr device = Kel::ptrCast<Guide::Device>(running->newEntity("Guide::Device", "leaf1"));
  device->newPort("Ethernet1")->vlanIs(device->newVlan(10));

  std::string log = Kel::writeAttrLog(*device);
  std::cout << log.substr(0, 4) << ", " << log.size() << " bytes\n";

  Guide::Device::Ptr copy = Kel::ptrCast<Guide::Device>(Kel::readAttrLog(log));
  std::cout << "read a " << copy->typeName() << " named " << copy->name() << ", "
            << (copy->parent() ? "with" : "without") << " a parent\n";

  Kel::Dir::Ptr saved(new Kel::Dir("saved", top.ptr()));
  saved->entryIs(copy);
  std::cout << copy->port("Ethernet1") << " refers to " << copy->port("Ethernet1")->vlan() << "\n";
  std::cout << "the same bytes: " << (Kel::writeAttrLog(*copy) == log) << "\n";

  Guide::Device::Ptr other = Guide::deviceFactory("leaf2");
  device->port("Ethernet1")->vlanIs(other->newVlan(20));
  try {
    Kel::writeAttrLog(*device);
  } catch (Kel::EntityIdUnavailableException const& e) {
    std::cout << e.message() << "\n";
  }

  log[40] = static_cast<char>(log[40] ^ 1);
  try {
    Kel::readAttrLog(log);
  } catch (Kel::AttrLogRecordException const& e) {
    std::cout << e.message() << "\n";
  }
}
