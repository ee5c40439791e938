// The generated configuration, its variant that differs in 1 % of the leaves, and single edits of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Bench/Ports.h"
#include "Kel/Dir.h"
#include "Manager.h"

namespace Bench {

inline constexpr std::size_t vlanCount = 256;
inline constexpr std::size_t trunksPerPort = 2;

// How a configuration stands in a directory.
enum class Layout {
  oneRoot,     // VLANs and ports in the session root "ports"
  crossRoots,  // VLANs in "vlans", ports in "ports"; every port has two trunks besides, keyed by pointers at VLANs
};

// In the order in which they are copied.
std::vector<SessionRoot> const& sessionRoots(Layout layout);

// 4 leaves a VLAN, 18 a port: the key, 10 values, the reference, and 3 for each of two addresses. A trunk is one leaf.
std::size_t leafCount(Layout layout, std::size_t ports);

// The attributes of a port that the variant changes.
enum Slot : unsigned {
  aliasSlot,
  descriptionSlot,
  modeSlot,
  profileSlot,
  mtuSlot,
  speedSlot,
  indexSlot,
  enabledSlot,
  lldpSlot,
  utilizationSlot,
  vlanSlot,
  primary0Slot,
  primary1Slot,
  trunk0Slot,  // the layout `crossRoots` only, as the next
  trunk1Slot,
  slotCount
};

// Which slots of which ports the variant changes: pseudo-random, the same in every run.
class ChangeSet {
 public:
  ChangeSet(Layout layout, std::size_t ports);
  bool has(std::size_t port, unsigned slot) const { return changed_[port * slots_ + slot]; }
  // The edits that a copy of the changes makes. A member of a collection of values that changed is deleted and set.
  std::size_t edits() const { return edits_; }

 private:
  unsigned slots_;  // of a port of the layout
  std::vector<bool> changed_;
  std::size_t edits_ = 0;
};

// Fills the empty session roots of a directory; with `changes`, as the variant that has them.
void fillPorts(Kel::Dir& dir, Layout layout, std::size_t ports, ChangeSet const* changes);

// Whether two directories hold the same configuration, by the generated accessors.
bool samePorts(Kel::Dir& a, Kel::Dir& b, Layout layout);

// Writes another MTU to every port.
void writePorts(Kel::Dir& dir, Layout layout);

// Changes one attribute of a port: its MTU, description, state or VLAN, by turns. Answers the edit that a copy of the
// change makes, as `editsOf` writes it. `serial` differs from call to call.
std::string editPort(Kel::Dir& dir, Layout layout, std::size_t port, std::size_t serial);

// Deletes a port if it is there; else makes it as fillPorts does.
void togglePort(Kel::Dir& dir, Layout layout, std::size_t port);

}  // namespace Bench
