// What a walk may pass by: two trees that were equal at the end of an earlier run differ only in what has changed
// since. See docs/copy-engine.md for what counts as a change, and for the proof.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "Kel/ChangeJournal.h"

namespace Cli::Session {

// What has changed at an entity of the source or at its counterpart, and which of the entities that it owns have
// changed or own something that has.
struct Changed {
  Kel::U8 change = 0;  // 0: nothing of its own; else a Kel::Change
  std::vector<Kel::Entity const*> owned;

  bool has(Kel::Change least) const { return change >= static_cast<Kel::U8>(least); }
};

// The changes below one pair of roots, by the source's entities.
class Changes {
 public:
  // Entities that have left their trees are not among the entries.
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

// Where the journals of two roots stood when the roots were equal, and what else has to be as it was then.
struct Checkpoint {
  Kel::U64 src, dest, ground;
  Kel::U64 heldDepartures;
  void const *srcTop, *destTop;  // the ends of the copy, for comparison alone
  Kel::U64 groundJournal;
};

// A root that a run has walked, until the run ends.
struct WalkedRoot {
  Kel::Ptr<Kel::Entity> dest;
  Kel::Ptr<Kel::Entity const> src, ground;
  std::optional<Checkpoint> start;  // where it stood when the walk began, if it had journals then
};

// The process-wide memory of which roots were equal. Any thread may use it for trees that belong to it.
//
// The changes since two roots were last equal; null where that is not known.
std::unique_ptr<Changes> changesSinceEqual(EntityCopy const& ec, WalkedRoot const& root);
// Attaches journals where there are none, and begins to note.
Checkpoint takeCheckpoint(EntityCopy const& ec, WalkedRoot const& root);
// Where it stands, if there are journals already.
std::optional<Checkpoint> checkpointIfJournaled(EntityCopy const& ec, WalkedRoot const& root);
// Remembers that the two roots were equal there.
void rememberEqual(WalkedRoot const& root, Checkpoint const& at);

}  // namespace Cli::Session
