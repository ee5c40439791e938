// The memory of which roots were equal: they differ only in what has changed since, so that a walk may skip the rest.
// See docs/copy-engine.md for what counts as a change, and for the proof.
#pragma once

#include <tuple>

#include "CliSession/EntityCopy.h"
#include "Kel/TreePair.h"

namespace Cli::Session {

// A copy root and its counterpart, and what the handler's answers and the targets of pointers depend on besides: the
// ends of the copy, and the journal of EntityCopyHandler::ground with its position. Nothing is dereferenced.
using RootPair =
    std::tuple<Kel::Entity const*, Kel::Entity const*, Kel::Entity const*, Kel::Entity const*, Kel::U64, Kel::U64>;
RootPair rootPair(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src, Kel::Entity const& ground);

// The memory is one for the process. A thread may use it for its own trees.
void rememberEqual(RootPair const& roots, Kel::EqualTrees const& at);
// When source and destination were last equal.
Kel::EqualTrees lastEqual(RootPair const& roots);

}  // namespace Cli::Session
