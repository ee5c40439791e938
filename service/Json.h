// The JSON documents of the service: members keep their order, so that equal trees have equal texts.
#pragma once

#include <nlohmann/json.hpp>

namespace Cli::Service {

// Integers are of the framework's widest types. That makes it a type of its own, whose destruction is given below.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, long long, unsigned long long>;

}  // namespace Cli::Service

// The library's own version takes memory to destroy a document, and ends the process where there is none. Documents of
// the service are no deeper than trees, so that each part can destroy those that it holds.
template <>
inline void Cli::Service::Json::json_value::destroy(value_t kind) {
  switch (kind) {
    case value_t::object: delete object; break;
    case value_t::array: delete array; break;
    case value_t::string: delete string; break;
    case value_t::binary: delete binary; break;
    default: break;
  }
}
