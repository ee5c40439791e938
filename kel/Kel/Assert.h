// Assertions for broken preconditions; on in every build. Bad input from outside is never one: it raises an exception.
#pragma once

#include "Kel/Export.h"
#include "Kel/SourceName.h"

namespace Kel {

// Writes "MODULE:LINE: SIGNATURE: Assertion 'EXPR' failed." to standard error and aborts.
[[noreturn]] KEL_API void assertionFailed(char const* file, int line, char const* signature, char const* expr);

}  // namespace Kel

// `KEL_ASSERT_TEXT` is for an assertion whose text is not the expression that is tested, `KEL_ASSERT_AS` for the parts
// of an operation that is written as several functions: it shows the operation's signature.
#define KEL_ASSERT_AS(expr, text, signature) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertionFailed(KEL_SOURCE_NAME, __LINE__, signature, text))
#define KEL_ASSERT_TEXT(expr, text) KEL_ASSERT_AS(expr, text, __PRETTY_FUNCTION__)
#define KEL_ASSERT(expr) KEL_ASSERT_TEXT(static_cast<bool>(expr), #expr)
