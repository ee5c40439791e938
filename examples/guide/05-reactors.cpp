#include <iostream>

#include "Network.h"

// Keeps the MTU of a port within what the hardware can do.
struct MtuGuard : Guide::Port::Notifiee {
  explicit MtuGuard(Guide::Port::Ptr const& port) { notifierIs(port); }

  void onMtu() override {
    std::cout << notifier()->name() << ": mtu is now " << notifier()->mtu() << "\n";
    if (notifier()->mtu() > 9000) notifier()->noteIs("mtu", "too large");
  }
  void onNote(Kel::Name const& key) override { std::cout << "note " << key << ": " << notifier()->note(key) << "\n"; }
};

// Guards every port that a device has or gets.
struct PortGuard : Guide::Device::Notifiee {
  explicit PortGuard(Guide::Device::Ptr const& device) { notifierIs(device); }

  void onPort(Kel::Name const& key) override {
    Guide::Port::Ptr port = notifier()->port(key);
    std::cout << "port " << key << (port ? " came" : " went") << "\n";
    guard = port ? new MtuGuard(port) : nullptr;
  }

  Kel::Ptr<MtuGuard> guard;
};

// Breaks the rule that a reactor does not write the attribute that it reacts to.
struct Careless : Guide::Vlan::Notifiee {
  explicit Careless(Guide::Vlan::Ptr const& vlan) { notifierIs(vlan); }
  void onLabel() override { notifier()->labelIs("mine"); }
};

int main() {
  Guide::Device::Ptr device = Guide::deviceFactory("leaf1");
  Kel::Ptr<PortGuard> guard(new PortGuard(device));
  Guide::Port::Ptr port = device->newPort("Ethernet1");
  port->mtuIs(9100);
  port->mtuIs(9100);
  port->mtuNotify();

  device->portDel("Ethernet1");
  port->mtuIs(1500);

  Guide::Vlan::Ptr vlan = device->newVlan(10);
  Kel::Ptr<Careless> careless(new Careless(vlan));
  try {
    vlan->labelIs("yours");
  } catch (Kel::InternalException const& e) {
    std::cout << e.message() << ", label: " << vlan->label() << "\n";
  }
}
