#include <iostream>

#include "Lab.h"

int main() {
  Guide::Lab lab;
  lab.device->newPort("Ethernet1")->vlanIs(lab.device->newVlan(10));
  std::cout << "filled: " << lab.manager->doReplaceConfig(lab.running, "s1") << "\n";

  Guide::Port::Ptr port = lab.copy()->port("Ethernet1");
  std::cout << port << " refers to " << port->vlan() << "\n";
  port->mtuIs(9000);
  std::cout << "running mtu: " << lab.device->port("Ethernet1")->mtu() << "\n";

  lab.manager->doReplaceConfig(lab.running, "s1");
  std::cout << "mtu after filling again: " << port->mtu() << "\n";

  std::cout << "unknown session: " << lab.manager->doReplaceConfig(lab.running, "s2") << "\n";
  lab.session->completedIs(true);
  std::cout << "completed session: " << lab.manager->doReplaceConfig(lab.running, "s1") << "\n";
}
