#include "Network.h"

namespace Guide {

Kel::U32 Device::portsIn(Kel::Ptr<Vlan const> const& vlan) const {
  Kel::U32 count = 0;
  for (auto it = portIteratorConst(); it; ++it)
    if (it->vlan() == vlan) ++count;
  return count;
}

}  // namespace Guide
