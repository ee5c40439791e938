// JSON documents whose members keep their order, so that equal trees have equal texts.
#pragma once

#include <nlohmann/json.hpp>

namespace Cli::Service {

// Integers have the framework's widest types. So this is a type of its own, and its `destroy` can be specialised below.
// Begin an object with Json::object(), and set its members one by one. If memory runs out, the constructor for a list
// of members leaks, and a null that is becoming an object is left in a state that ends the process.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, long long, unsigned long long>;

}  // namespace Cli::Service

// The library's own `destroy` allocates, and ends the process if there is no memory. Recursion is safe here, because
// documents of the service are no deeper than trees.
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
