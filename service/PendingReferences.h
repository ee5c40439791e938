// References whose targets do not exist (yet): their texts are kept until the targets are made.
#pragma once

#include <set>
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
  // What is to be set there: the target's path; for a pointer key, the member.
  Json value;
  std::string target;  // the text that leads nowhere
  std::string reason;  // "there is no such entity", "is a Vlan, not a Port"
  // Other possible texts, for a name that may be in one of several collections. A pointer that is a key has none.
  std::vector<std::string> others = {};
};

// The pending references of one tree. Code that writes to the tree keeps them up to date, as import and commands do.
// Cost of all but `retry`: logarithmic.
class CLI_SERVICE_API PendingReferences {
  // A path is equivalent to all places at and below it.
  struct ByPlace {
    using is_transparent = void;
    using Reference = PendingReference;
    bool operator()(Reference const& a, Reference const& b) const { return a.place < b.place; }
    bool operator()(Reference const& a, Path const& top) const { return a.place < top; }
    bool operator()(Path const& top, Reference const& b) const { return top < b.place && !b.place.isWithin(top); }
  };

 public:
  using List = std::set<PendingReference, ByPlace>;

  // A part of the list.
  struct Range {
    List::const_iterator first, last;
    List::const_iterator begin() const { return first; }
    List::const_iterator end() const { return last; }
    bool empty() const { return first == last; }
  };

  // In the order of their places.
  List const& list() const { return list_; }
  bool empty() const { return list_.empty(); }
  // Replaces one at the same place.
  void add(PendingReference reference);
  // Forgets those at or below a place. Call it when the place is set or deleted.
  void erase(Path const& top);
  void clear() { list_.clear(); }
  // Those at or below a place; valid until the next change.
  Range within(Path const& top) const;
  // The one at a place, or null; valid until the next change.
  PendingReference const* find(Path const& place) const;

  // Sets every reference whose target exists now, and forgets it; answers their places. Also forgets references whose
  // owner is gone.
  std::vector<Path> retry(Kel::Dir::Ptr const& base);

 private:
  List list_;
};

}  // namespace Cli::Service
