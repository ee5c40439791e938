#include "PortsData.h"

#include <array>
#include <cstdio>
#include <string>

namespace Bench {

ChangeSet::ChangeSet(std::size_t ports) : changed_(ports * slotCount) {
  std::size_t const wanted = (leafCount(ports) + 50) / 100;
  std::uint64_t random = 88172645463325252ull;  // xorshift64
  while (size_ < wanted) {
    random ^= random << 13;
    random ^= random >> 7;
    random ^= random << 17;
    std::size_t const at = random % changed_.size();
    if (changed_[at]) continue;
    changed_[at] = true;
    ++size_;
  }
}

namespace {

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

struct PortFiller {
  Ports& root;
  ChangeSet const* changes;

  void fill(std::size_t i) const {
    auto const has = [&](unsigned slot) { return changes && changes->has(i, slot); };
    auto const number = [&](std::size_t base, unsigned slot) {
      return static_cast<Kel::U32>(base + (has(slot) ? 1 : 0));
    };
    Port::Ptr const port = root.newPort(Kel::Name("Ethernet" + std::to_string(i + 1)));
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
    port->vlanIs(root.vlan(vlanName((i * 7 + (has(vlanSlot) ? 1 : 0)) % vlanCount)));
    for (unsigned j = 0; j < 2; ++j) {
      Kel::String const prefix = addressText(i, j);
      Address::Ptr const address = port->newAddress(prefix);
      address->prefixIs(prefix);
      address->primaryIs((j == 0) != has(primary0Slot + j));
    }
  }
};

bool sameAddress(Address const& a, Address const& b) { return a.prefix() == b.prefix() && a.primary() == b.primary(); }

bool samePort(Port const& a, Port const& b) {
  bool const values = a.alias() == b.alias() && a.description() == b.description() && a.mode() == b.mode() &&
                      a.profile() == b.profile() && a.mtu() == b.mtu() && a.speed() == b.speed() &&
                      a.index() == b.index() && a.enabled() == b.enabled() && a.lldp() == b.lldp() &&
                      a.utilization() == b.utilization();
  if (!values || !a.vlan() != !b.vlan() || a.addresss() != b.addresss()) return false;
  if (a.vlan() && !(a.vlan()->name() == b.vlan()->name() && a.vlan()->root() == a.root())) return false;
  for (auto it = a.addressIteratorConst(); it; ++it) {
    auto const other = b.address(it.key());
    if (!other || !sameAddress(*it, *other)) return false;
  }
  return true;
}

}  // namespace

void fillPorts(Ports& root, std::size_t ports, ChangeSet const* changes) {
  for (std::size_t v = 0; v < vlanCount; ++v) {
    Vlan::Ptr const vlan = root.newVlan(vlanName(v));
    vlan->idIs(static_cast<Kel::U32>(v + 1));
    vlan->descriptionIs(label("vln", v, false));
    vlan->enabledIs((v & 1) != 0);
  }
  PortFiller const filler{root, changes};
  for (std::size_t i = 0; i < ports; ++i) filler.fill(i);
}

bool samePorts(Ports const& a, Ports const& b) {
  if (a.vlans() != b.vlans() || a.ports() != b.ports()) return false;
  for (auto it = a.vlanIteratorConst(); it; ++it) {
    auto const other = b.vlan(it.key());
    if (!other || other->id() != it->id() || !(other->description() == it->description()) ||
        other->enabled() != it->enabled())
      return false;
  }
  for (auto it = a.portIteratorConst(); it; ++it) {
    auto const other = b.port(it.key());
    if (!other || !samePort(*it, *other)) return false;
  }
  return true;
}

}  // namespace Bench
