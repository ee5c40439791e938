#include "PortsData.h"

#include <array>
#include <cstdio>

namespace Bench {

std::vector<SessionRoot> const& sessionRoots(Layout layout) {
  static std::vector<SessionRoot> const one{{"ports", "Bench::Ports"}};
  static std::vector<SessionRoot> const cross{{"vlans", "Bench::Vlans"}, {"ports", "Bench::TrunkPorts"}};
  return layout == Layout::oneRoot ? one : cross;
}

std::size_t leafCount(Layout layout, std::size_t ports) {
  std::size_t const ofPort = 18 + (layout == Layout::crossRoots ? trunksPerPort : 0);
  return ports * ofPort + vlanCount * 4;
}

ChangeSet::ChangeSet(Layout layout, std::size_t ports)
    : slots_(layout == Layout::oneRoot ? trunk0Slot : slotCount), changed_(ports * slots_) {
  std::size_t const wanted = (leafCount(layout, ports) + 50) / 100;
  std::uint64_t random = 88172645463325252ull;  // xorshift64
  for (std::size_t size = 0; size < wanted;) {
    random ^= random << 13;
    random ^= random >> 7;
    random ^= random << 17;
    std::size_t const at = random % changed_.size();
    if (changed_[at]) continue;
    changed_[at] = true;
    edits_ += at % slots_ < trunk0Slot ? 1 : 2;
    ++size;
  }
}

namespace {

// Calls a function with the entities that hold the VLANs and the ports of a directory.
template <class Function>
auto withOwners(Kel::Dir& dir, Layout layout, Function const& function) {
  if (layout == Layout::oneRoot) {
    Ports::Ptr const root = Kel::ptrCast<Ports>(dir.entityRef("ports"));
    return function(*root, *root);
  }
  return function(*Kel::ptrCast<Vlans>(dir.entityRef("vlans")), *Kel::ptrCast<TrunkPorts>(dir.entityRef("ports")));
}

// Twelve characters, distinct for every port and attribute.
Kel::String label(char const* prefix, std::size_t port, bool changed) {
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%s-%07zu%c", prefix, port, changed ? 'B' : 'A');
  return Kel::String(text.data());
}

Kel::String addressText(std::size_t port, unsigned which) {
  std::size_t const v = port * 2 + which;
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "10.%zu.%zu.%zu/31", (v >> 16) & 255, (v >> 8) & 255, v & 255);
  return Kel::String(text.data());
}

Kel::Name vlanName(std::size_t vlan) { return Kel::Name("Vlan" + std::to_string(vlan + 1)); }
Kel::Name portName(std::size_t port) { return Kel::Name("Ethernet" + std::to_string(port + 1)); }

template <class VlanOwner, class PortOwner>
class PortFiller {
 public:
  PortFiller(VlanOwner& vlans, PortOwner& ports, ChangeSet const* changes)
      : vlans_(vlans), ports_(ports), changes_(changes) {}

  void fill(std::size_t i) const {
    auto const has = [&](unsigned slot) { return changes_ && changes_->has(i, slot); };
    auto const number = [&](std::size_t base, unsigned slot) {
      return static_cast<Kel::U32>(base + (has(slot) ? 1 : 0));
    };
    auto const port = ports_.newPort(portName(i));
    port->aliasIs(label("als", i, has(aliasSlot)));
    port->descriptionIs(label("dsc", i, has(descriptionSlot)));
    port->modeIs(label("mod", i, has(modeSlot)));
    port->profileIs(label("prf", i, has(profileSlot)));
    port->mtuIs(number(1500 + i % 8000, mtuSlot));
    port->speedIs(number(10000 * (1 + i % 40), speedSlot));
    port->indexIs(number(i, indexSlot));
    port->enabledIs((i & 1) != 0 ? !has(enabledSlot) : has(enabledSlot));
    port->lldpIs((i & 2) != 0 ? !has(lldpSlot) : has(lldpSlot));
    port->utilizationIs(static_cast<double>(i) * 0.25 + (has(utilizationSlot) ? 0.125 : 0.0));
    port->vlanIs(vlans_.vlan(vlanName((i * 7 + (has(vlanSlot) ? 1 : 0)) % vlanCount)));
    for (unsigned j = 0; j < 2; ++j) {
      Kel::String const prefix = addressText(i, j);
      Address::Ptr const address = port->newAddress(prefix);
      address->prefixIs(prefix);
      address->primaryIs((j == 0) != has(primary0Slot + j));
    }
    if constexpr (requires { port->trunks(); })
      for (unsigned j = 0; j < trunksPerPort; ++j)
        port->trunkIs(vlans_.vlan(vlanName((i * 5 + j * vlanCount / 2) % vlanCount)), (j == 0) != has(trunk0Slot + j));
  }

 private:
  VlanOwner& vlans_;
  PortOwner& ports_;
  ChangeSet const* changes_;
};

bool sameVlan(Vlan const& a, Vlan const& b) {
  return a.id() == b.id() && a.description() == b.description() && a.enabled() == b.enabled();
}

bool sameAddress(Address const& a, Address const& b) { return a.prefix() == b.prefix() && a.primary() == b.primary(); }

bool sameValues(Port const& a, Port const& b) {
  return a.alias() == b.alias() && a.description() == b.description() && a.mode() == b.mode() &&
         a.profile() == b.profile() && a.mtu() == b.mtu() && a.speed() == b.speed() && a.index() == b.index() &&
         a.enabled() == b.enabled() && a.lldp() == b.lldp() && a.utilization() == b.utilization();
}

bool sameAddresses(Port const& a, Port const& b) {
  if (a.addresss() != b.addresss()) return false;
  for (auto it = a.addressIteratorConst(); it; ++it) {
    auto const other = b.address(it.key());
    if (!other || !sameAddress(*it, *other)) return false;
  }
  return true;
}

// Compares the ports of two configurations. Each must point at VLANs of its own.
template <class VlanOwner>
class PortComparison {
 public:
  PortComparison(VlanOwner& ofA, VlanOwner& ofB) : vlansA_(ofA), vlansB_(ofB) {}

  template <class AnyPort>
  bool same(AnyPort& a, AnyPort& b) const {
    if (!sameValues(a, b) || !sameAddresses(a, b) || !b.vlan() || counterpart(a.vlan()) != b.vlan()) return false;
    if constexpr (requires { a.trunks(); }) return sameTrunks(a, b);
    return true;
  }

 private:
  // The VLAN of `b` that stands for one of `a`.
  Vlan::Ptr counterpart(Vlan::Ptr const& ofA) const {
    return ofA && vlansA_.vlan(ofA->name()) == ofA ? vlansB_.vlan(ofA->name()) : nullptr;
  }
  template <class AnyPort>
  bool sameTrunks(AnyPort& a, AnyPort& b) const {
    if (a.trunks() != b.trunks()) return false;
    for (auto it = a.trunkIterator(); it; ++it) {
      Vlan::Ptr const vlan = counterpart(it.key());
      if (!vlan || !b.trunkHas(vlan) || b.trunk(vlan) != it.value()) return false;
    }
    return true;
  }

  VlanOwner& vlansA_;
  VlanOwner& vlansB_;
};

// A new value for one attribute; answers the attribute's name.
char const* change(Port& port, Vlan::Ptr const& otherVlan, std::size_t serial) {
  switch (serial % 4) {
    case 0: port.mtuIs(port.mtu() + 1); return "mtu";
    case 1: port.descriptionIs(label("edt", serial, false)); return "description";
    case 2: port.enabledIs(!port.enabled()); return "enabled";
    default: port.vlanIs(otherVlan); return "vlan";
  }
}

}  // namespace

void fillPorts(Kel::Dir& dir, Layout layout, std::size_t ports, ChangeSet const* changes) {
  withOwners(dir, layout, [&](auto& vlanOwner, auto& portOwner) {
    for (std::size_t v = 0; v < vlanCount; ++v) {
      Vlan::Ptr const vlan = vlanOwner.newVlan(vlanName(v));
      vlan->idIs(static_cast<Kel::U32>(v + 1));
      vlan->descriptionIs(label("vln", v, false));
      vlan->enabledIs((v & 1) != 0);
    }
    PortFiller const filler{vlanOwner, portOwner, changes};
    for (std::size_t i = 0; i < ports; ++i) filler.fill(i);
  });
}

bool samePorts(Kel::Dir& a, Kel::Dir& b, Layout layout) {
  return withOwners(a, layout, [&](auto& vlansA, auto& portsA) {
    return withOwners(b, layout, [&](auto& vlansB, auto& portsB) {
      if constexpr (std::is_same_v<decltype(vlansA), decltype(vlansB)>) {
        if (vlansA.vlans() != vlansB.vlans() || portsA.ports() != portsB.ports()) return false;
        for (auto it = vlansA.vlanIterator(); it; ++it) {
          auto const other = vlansB.vlan(it.key());
          if (!other || !sameVlan(*it, *other)) return false;
        }
        PortComparison const comparison{vlansA, vlansB};
        for (auto it = portsA.portIterator(); it; ++it) {
          auto const other = portsB.port(it.key());
          if (!other || !comparison.same(*it, *other)) return false;
        }
        return true;
      } else {
        return false;
      }
    });
  });
}

void writePorts(Kel::Dir& dir, Layout layout) {
  withOwners(dir, layout, [](auto&, auto& ports) {
    for (auto port = ports.portIterator(); port; ++port) port->mtuIs(port->mtu() + 1);
  });
}

std::string editPort(Kel::Dir& dir, Layout layout, std::size_t port, std::size_t serial) {
  return withOwners(dir, layout, [&](auto& vlanOwner, auto& portOwner) {
    auto const changed = portOwner.port(portName(port));
    // Identifiers begin with 1, so that this is the next one.
    char const* const attribute = change(*changed, vlanOwner.vlan(vlanName(changed->vlan()->id() % vlanCount)), serial);
    return editText(AttributeEdit(attribute, changed->type()->fullTypeName(), AttributeEditType::set_),
                    "ports.port/" + portName(port));
  });
}

void togglePort(Kel::Dir& dir, Layout layout, std::size_t port) {
  withOwners(dir, layout, [&](auto& vlanOwner, auto& portOwner) {
    if (portOwner.port(portName(port)))
      portOwner.portDel(portName(port));
    else
      PortFiller{vlanOwner, portOwner, nullptr}.fill(port);
  });
}

}  // namespace Bench
