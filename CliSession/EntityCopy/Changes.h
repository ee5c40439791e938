// What a walk may skip: two trees that were equal at the end of an earlier run differ only in what has changed since.
// See docs/copy-engine.md for what counts as a change, and for the proof.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "Kel/ChangeJournal.h"

namespace Cli::Session {

// The changes at an entity of the source or at its counterpart.
struct Changed {
  // An entity that it owns, which has changed or has changes below it.
  struct Owned {
    Kel::AttributeId attr;
    Kel::U32 position;  // in a hash map; else 0
    Kel::Entity const* entity;
    auto operator<=>(Owned const&) const = default;
  };

  Kel::U8 change = 0;  // 0: nothing of its own; else a Kel::Change
  std::set<Owned> owned;

  bool has(Kel::Change least) const { return change >= static_cast<Kel::U8>(least); }
  // Whether an attribute, or what it owns, may have changed.
  bool concerns(Kel::KelAttr const& attr) const {
    auto const first = owned.lower_bound({attr.id(), 0, nullptr});
    return has(attr.instantiating() ? Kel::Change::members : Kel::Change::content) ||
           (first != owned.end() && first->attr == attr.id());
  }
};

// The changes below one pair of roots, keyed by the source's entities.
class Changes {
 public:
  // REQUIRES: no entry is of an entity that has left its tree.
  Changes(Kel::Entity const& dest, Kel::Entity const& src, std::vector<Kel::ChangeJournal::Entry> const& destEntries,
          std::vector<Kel::ChangeJournal::Entry> const& srcEntries);

  Changed const* find(Kel::Entity const& src) const {
    auto const found = changed_.find(&src);
    return found == changed_.end() ? nullptr : &found->second;
  }

 private:
  Changed& at(Kel::Entity const& src);
  void note(Kel::Entity const& src, Kel::Change change);

  Kel::Entity const& src_;
  std::unordered_map<Kel::Entity const*, Changed> changed_;
};

// What the handler's answers and the targets of pointers depend on, apart from what is below the two roots.
struct Ground {
  void const *srcTop, *destTop;  // the ends of the copy; compared, never dereferenced
  Kel::U64 journal, position;    // of EntityCopyHandler::ground
  Kel::U64 heldDepartures;
  bool operator==(Ground const&) const = default;
};

// The positions of two roots' journals at a time when the roots were equal. They can be used while the ground is the
// same.
struct Checkpoint {
  Kel::U64 src, dest;
  Ground ground;
};

// A copy root, its counterpart, and what the handler says that its answers depend on.
struct RootPair {
  Kel::Entity const &dest, &src, &ground;
};

// The functions below use a process-wide memory of which roots were equal. A thread may call them for its own trees.
//
// The changes since two roots were last equal; null if that is not known.
std::unique_ptr<Changes> changesSinceEqual(EntityCopy const& ec, RootPair const& root);
// Takes a checkpoint now. Attaches journals where there are none.
Checkpoint takeCheckpoint(EntityCopy const& ec, RootPair const& root);
// Takes a checkpoint now, if the root and its counterpart have journals already.
std::optional<Checkpoint> checkpointIfJournaled(EntityCopy const& ec, RootPair const& root);
// Remembers that the two roots were equal at a checkpoint.
void rememberEqual(RootPair const& root, Checkpoint const& at);

}  // namespace Cli::Session
