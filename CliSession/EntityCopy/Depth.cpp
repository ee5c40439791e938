#include "CliSession/EntityCopy/Depth.h"

#include <pthread.h>

#include <span>
#include <string>

#include "Kel/Exception.h"

namespace Cli::Session {

namespace {

// The last quarter of the thread's stack; empty if the stack is not known.
std::span<char const> lastQuarterOfStack() {
  void* lowest = nullptr;
  std::size_t size = 0;
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return {};
  pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);
  return {static_cast<char const*>(lowest), size / 4};
}

}  // namespace

void Depth::check(Kel::U32 depth) {
  if (depth >= maxEntityDepth)
    Kel::throwRangeException("entities nested deeper than " + std::to_string(maxEntityDepth) + " cannot be copied");
  // On any other stack, such as a coroutine's, nothing is known.
  static thread_local std::span<char const> const last = lastQuarterOfStack();
  auto const* const here = static_cast<char const*>(__builtin_frame_address(0));
  if (last.data() <= here && here < last.data() + last.size())
    Kel::throwRangeException("entities nested deeper than " + std::to_string(depth) +
                             " cannot be copied on this stack");
}

}  // namespace Cli::Session
