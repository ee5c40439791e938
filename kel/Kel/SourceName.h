// The source name that traces and assertions show. It is the file's own name, unless the file defines another one
// before its first include, as several files that make up one module do.
#pragma once

#include <string_view>

#ifndef KEL_SOURCE_NAME
// The source name of this file.
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
