// The memory of which roots were equal: they differ only in what has changed since, so that a walk may skip the rest.
// See docs/copy-engine.md for what counts as a change, and for the proof.
#pragma once

#include "CliSession/EntityCopy.h"
#include "Kel/TreePair.h"

namespace Cli::Session {

// A copy root, its counterpart, and what the handler says that its answers depend on.
struct RootPair {
  Kel::Entity const &dest, &src, &ground;
};

// What the handler's answers and the targets of pointers depend on, apart from what is below the two roots.
struct Ground {
  void const *srcTop, *destTop;  // the ends of the copy; compared, never dereferenced
  Kel::U64 journal, position;    // of EntityCopyHandler::ground
  bool operator==(Ground const&) const = default;
};

// A time when two roots were equal. It can be used while the ground is the same.
struct Checkpoint {
  Ground ground{};
  Kel::EqualTrees equal;
};

// The functions below use a process-wide memory of which roots were equal. A thread may call them for its own trees.
//
// Takes a checkpoint now. Attaches journals where there are none.
Checkpoint takeCheckpoint(EntityCopy const& ec, RootPair const& roots);
// Remembers that the two roots were equal at a checkpoint.
void rememberEqual(RootPair const& roots, Checkpoint const& at);
// Adds what has changed since two roots were last equal, as entities of the source; false if that is not known.
bool addChanges(EntityCopy const& ec, RootPair const& roots, Kel::ChangedEntities& to);

}  // namespace Cli::Session
