// The source name that traces and assertions carry: the file's own, unless it says otherwise before its first include
// (several files that make up one source module name that module).
#pragma once

#include <string_view>

#ifndef KEL_SOURCE_NAME
#define KEL_SOURCE_NAME __FILE__
#endif

namespace Kel {

// A source name as it is shown: without directory and extension.
constexpr std::string_view moduleName(std::string_view source) {
  std::size_t const slash = source.rfind('/');
  if (slash != std::string_view::npos) source.remove_prefix(slash + 1);
  return source.substr(0, source.rfind('.'));
}

}  // namespace Kel
