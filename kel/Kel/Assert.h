// Assertions for broken preconditions; on in every build. Bad input from outside is never one: it raises an exception.
#pragma once

#include "Kel/SourceName.h"

namespace Kel {

// Writes "MODULE:LINE: SIGNATURE: Assertion 'EXPR' failed." to standard error and aborts.
[[noreturn]] void assertionFailed(char const* file, int line, char const* signature, char const* expr);

}  // namespace Kel

// `KEL_ASSERT_TEXT` is for an assertion whose text is not the expression that is tested.
#define KEL_ASSERT_TEXT(expr, text) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertionFailed(KEL_SOURCE_NAME, __LINE__, __PRETTY_FUNCTION__, text))
#define KEL_ASSERT(expr) KEL_ASSERT_TEXT(static_cast<bool>(expr), #expr)
