// JSON documents as texts. Not installed.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "service/Json.h"

namespace Cli::Service {

// The way to a value in a document: names of members and indices of items.
struct JsonPlace {
  std::vector<std::variant<std::string, std::size_t>> steps;
};

// Raises ImportError if the text is not JSON, too large, nested too deeply, or has a name twice in one object.
Json parseJson(std::string const& file, std::string_view text);
// A document in one line, cut behind `most` bytes.
std::string shortText(Json const& json, std::size_t most);
// The line in which a value begins, counted from 1.
std::size_t lineOf(std::string_view text, JsonPlace const& place);

}  // namespace Cli::Service
