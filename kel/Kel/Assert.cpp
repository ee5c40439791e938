#include "Kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(char const* file, int line, char const* signature, char const* expr) {
  std::string_view const source = moduleName(file);
  std::fprintf(stderr, "%.*s:%d: %s: Assertion '%s' failed.\n", static_cast<int>(source.size()), source.data(), line,
               signature, expr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel
