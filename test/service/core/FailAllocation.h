// Makes one allocation of the process fail.
#pragma once

#include <cstddef>

namespace Tests {

// The n-th allocation from now on throws, once.
class FailAllocation {
 public:
  explicit FailAllocation(std::size_t n);
  ~FailAllocation();
  FailAllocation(FailAllocation const&) = delete;
  FailAllocation& operator=(FailAllocation const&) = delete;
  bool failed() const;
};

}  // namespace Tests
