// Assertions: checks of what the interface requires of its callers. They are on in every build. Bad input from outside
// never fails an assertion; it raises an exception. docs/errors.md lists all assertions.
#pragma once

#include "Kel/Export.h"
#include "Kel/SourceName.h"

namespace Kel {

// Writes "MODULE:LINE: SIGNATURE: Assertion 'EXPR' failed." to standard error and aborts.
[[noreturn, gnu::cold]] KEL_API void assertionFailed(char const* file, int line, char const* signature,
                                                     char const* expr);

}  // namespace Kel

// As KEL_ASSERT_TEXT, but shows `signature` as the function. For an operation that is written as several functions.
#define KEL_ASSERT_AS(expr, text, signature) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertionFailed(KEL_SOURCE_NAME, __LINE__, signature, text))
// As KEL_ASSERT, but shows `text` in place of the expression.
#define KEL_ASSERT_TEXT(expr, text) KEL_ASSERT_AS(expr, text, __PRETTY_FUNCTION__)
// Aborts with a message if the expression is false.
#define KEL_ASSERT(expr) KEL_ASSERT_TEXT(static_cast<bool>(expr), #expr)
