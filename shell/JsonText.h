// Contents of nodes, as the service gives them, for people.
#pragma once

#include <string>
#include <vector>

#include "service/Json.h"
#include "service/Path.h"

namespace Shell {

// One line: texts as they are, lists with blanks between, the rest as JSON. Control characters are escaped; "-" is
// nothing, "\"\"" the empty text.
std::string oneLine(Cli::Service::Json const& content);

// Lines of an entity's content, indented by two more each level: "mtu: 9100". Empty for what is no object.
std::vector<std::string> contentLines(Cli::Service::Json const& content);

// A path in the pieces that a person reads: directories together, an attribute with its key: "network/ports",
// "port Ethernet0", "mtu".
std::vector<std::string> pieces(Cli::Service::Path const& path);

}  // namespace Shell
