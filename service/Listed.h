// Texts of messages. Not installed.
#pragma once

#include <string>
#include <vector>

namespace Cli::Service {

// "a, b, c"
inline std::string listed(std::vector<std::string> const& words) {
  std::string text;
  for (std::string const& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

}  // namespace Cli::Service
