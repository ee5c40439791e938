// Makes owned entities. Not installed.
#pragma once

#include <optional>
#include <vector>

#include "Kel/AttrAccess.h"

namespace Cli::Service {

// An attribute makes entities of its own type only. One of a derived type is made first, and then put there.
class OwnedMaker {
 public:
  // Makes a singleton, a member under `key` or, at the end of a queue, an item. Replaces what is there. `args`: the
  // constructor's, without a queue's index. Cost of an item: constant while this object makes all of them, else linear.
  Kel::Entity* make(Kel::Entity& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key,
                    Kel::KelType const& type, std::vector<Kel::GenericIf::PtrConst> args);

 private:
  Kel::Entity* makeDerived(Kel::Entity& owner, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key,
                           Kel::KelType const& type, std::vector<Kel::GenericIf::PtrConst> args);
  Kel::U64 nextNumber(Kel::Entity const& owner, Kel::KelAttr const& attr) const;

  // The last item that was made, and its number in the queue; empty until an item of a derived type is made.
  struct Numbered {
    Kel::Entity const* item;
    Kel::U64 number;
  };
  std::optional<Numbered> numbered_;
};

}  // namespace Cli::Service
