// Places in a tree, relative to a directory.
#pragma once

#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "service/Export.h"

namespace Cli::Service {

// One step from an entity to what it holds: an entry of a directory, an attribute, or a member of a collection.
struct PathStep {
  Kel::Name entry;                     // of a directory; empty: an attribute
  Kel::KelAttr const* attr = nullptr;  // null: a directory's entry
  Kel::GenericIf::PtrConst key;        // null: the attribute itself, or a singleton
};

struct Path {
  std::vector<PathStep> steps;

  // The dotted form, which is printed: "network/ports.port/Ethernet0.mtu".
  CLI_SERVICE_API std::string text() const;
};

}  // namespace Cli::Service
