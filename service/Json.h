// The JSON documents of the service: members keep their order, so that equal trees have equal texts.
#pragma once

#include <nlohmann/json.hpp>

namespace Cli::Service {

using Json = nlohmann::ordered_json;

}  // namespace Cli::Service
