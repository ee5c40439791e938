#include "CliSession/EntityCopy/Depth.h"

#include <string>

#include "Kel/Exception.h"

#ifdef __linux__
#include <pthread.h>
#endif

namespace Cli::Session {

namespace {

// The stack of a thread; empty if it is not known.
struct Stack {
  char const *lowest = nullptr, *end = nullptr;
};

Stack stackOfThread() {
  Stack stack;
#ifdef __linux__
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return stack;
  void* lowest = nullptr;
  std::size_t size = 0;
  if (pthread_attr_getstack(&attributes, &lowest, &size) == 0) {
    stack.lowest = static_cast<char const*>(lowest);
    stack.end = stack.lowest + size;
  }
  pthread_attr_destroy(&attributes);
#endif
  return stack;
}

// False on any other stack, such as a coroutine's, whose size is not known.
bool stackIsNearlyUsedUp() {
  static thread_local Stack const stack = stackOfThread();
  auto const* const here = static_cast<char const*>(__builtin_frame_address(0));
  return stack.lowest <= here && here < stack.end && here - stack.lowest < (stack.end - stack.lowest) / 4;
}

}  // namespace

void Depth::check(Kel::U32 depth) {
  if (depth >= maxEntityDepth)
    Kel::throwRangeException("entities nested deeper than " + std::to_string(maxEntityDepth) + " cannot be copied");
  if (stackIsNearlyUsedUp())
    Kel::throwRangeException("entities nested deeper than " + std::to_string(depth) +
                             " cannot be copied on this stack");
}

}  // namespace Cli::Session
