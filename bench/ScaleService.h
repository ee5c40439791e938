// Operations of scale_bench on the service's code. They are there if the service is built.
#pragma once

#include "Harness.h"

namespace Bench {

// The import of a queue of n items of a derived type.
Operation importDerived(std::size_t n);
// The differences of two queues of n items, the values or entities. In every other run of 8 items one is missing, and
// the other runs have one more.
Operation differencesInQueue(std::size_t n);
Operation differencesInEntityQueue(std::size_t n);
// The differences of two collections of n members, keyed by pointers at different entities.
Operation differencesOfPointerKeys(std::size_t n);

}  // namespace Bench
