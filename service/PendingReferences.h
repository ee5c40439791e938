// References whose targets are not there (yet): their texts, kept until the targets come.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "service/Export.h"
#include "service/Json.h"
#include "service/Path.h"

namespace Cli::Service {

struct PendingReference {
  // The pointer, single or a member; or the member of a collection whose key is the pointer.
  Path place;
  // What is to be set there: the target's path; for a member under a pointer key the member.
  Json value;
  std::string target;  // the text that leads nowhere
  std::string reason;  // "there is no such entity", "is a Vlan, not a Port"
  // Further texts, any of which would do: a name that may stand in one of several collections.
  std::vector<std::string> others = {};
};

// Belongs to one tree. Whoever writes to the tree keeps it up to date: import, commands.
class CLI_SERVICE_API PendingReferences {
 public:
  // In the order of their places.
  std::vector<PendingReference> const& list() const { return list_; }
  bool empty() const { return list_.empty(); }
  // One at the same place is replaced.
  void add(PendingReference reference);
  // Forgets what is at or below a place, as when it is set or deleted.
  void erase(Path const& top);
  void clear() { list_.clear(); }
  // Those at or below a place. Cost: logarithmic, and what is found.
  std::span<PendingReference const> within(Path const& top) const;
  // Null when nothing is pending at that place.
  PendingReference const* find(Path const& place) const;

  // Sets every reference whose target is there by now, and forgets it. The answer names them. Those whose owner has
  // gone are forgotten, too.
  std::vector<Path> retry(Kel::Dir::Ptr const& base);

 private:
  std::vector<PendingReference> list_;  // by place
};

}  // namespace Cli::Service
