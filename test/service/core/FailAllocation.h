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
  // The allocations until now, up to the one that failed.
  std::size_t made() const;

 private:
  std::size_t const n_;
};

}  // namespace Tests
