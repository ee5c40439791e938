// JSON documents as texts. Not installed.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "service/Json.h"

namespace Cli::Service {

// A value in a document: names of members and indices of items on the way to it.
struct JsonPlace {
  std::vector<std::variant<std::string, std::size_t>> steps;
};

// Raises ImportError for what is no JSON, too large, nested too deeply, or has a name twice in one object.
Json parseJson(std::string const& file, std::string_view text);
// The line that a value begins in.
std::size_t lineOf(std::string_view text, JsonPlace const& place);

}  // namespace Cli::Service
