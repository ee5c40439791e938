#include "Kel/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kel {

void assertionFailed(char const* file, int line, char const* signature, char const* expr) {
  char const* slash = std::strrchr(file, '/');
  std::fprintf(stderr, "%s:%d: %s: Assertion '%s' failed.\n", slash ? slash + 1 : file, line, signature, expr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel
