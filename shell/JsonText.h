// Contents of nodes as texts for the user.
#pragma once

#include <string>
#include <vector>

#include "service/Json.h"
#include "service/Path.h"

namespace Shell {

// One line: strings as they are, lists with blanks between the items, the rest as JSON. Control characters are escaped;
// "-" stands for null, "\"\"" for the empty string.
std::string oneLine(Cli::Service::Json const& content);

// True for a string that is not UTF-8, which JSON holds as an object with its bytes. oneLine shows it as a string.
bool isBytes(Cli::Service::Json const& content);

// Lines of an entity's content, each level indented by two more: "mtu: 9100". Empty if it is not an object.
std::vector<std::string> contentLines(Cli::Service::Json const& content);

// A path in readable pieces, with directories joined and an attribute with its key: "network/ports", "port Ethernet0",
// "mtu".
std::vector<std::string> pieces(Cli::Service::Path const& path);

}  // namespace Shell
