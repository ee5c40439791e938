#include <iostream>

#include "Network.h"

int main() {
  Guide::Device::Ptr device = Guide::deviceFactory("leaf1");
  Guide::Vlan::Ptr vlan = device->newVlan(10);
  Guide::Port::Ptr port = device->newPort("Ethernet1");
  port->mtuIs(9000);
  port->vlanIs(vlan);

  std::cout << port->name() << " has mtu " << port->mtu() << " and speed " << port->speed() << "\n";
  std::cout << "ports in VLAN 10: " << device->portsIn(vlan) << "\n";
}
