// The generated configuration, and the 1 % of its leaves that differ in its variant.
#pragma once

#include <cstdint>
#include <vector>

#include "Bench/Ports.h"

namespace Bench {

inline constexpr std::size_t vlanCount = 256;
inline constexpr std::size_t leavesPerPort = 18;
inline constexpr std::size_t leavesPerVlan = 4;

inline std::size_t leafCount(std::size_t ports) { return ports * leavesPerPort + vlanCount * leavesPerVlan; }

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
  slotCount
};

// Which slots of which ports the variant changes: pseudo-random, the same in every run.
class ChangeSet {
 public:
  explicit ChangeSet(std::size_t ports);
  bool has(std::size_t port, unsigned slot) const { return changed_[port * slotCount + slot]; }
  std::size_t size() const { return size_; }

 private:
  std::vector<bool> changed_;
  std::size_t size_ = 0;
};

// Fills an empty configuration; with `changes`, as the variant that has them.
void fillPorts(Ports& root, std::size_t ports, ChangeSet const* changes);

// Whether two configurations hold the same, by the generated accessors.
bool samePorts(Ports const& a, Ports const& b);

}  // namespace Bench
