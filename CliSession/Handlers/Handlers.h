// What the handlers share. A source names itself for traces before it includes this, and its module afterwards.
#pragma once

#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

namespace Cli::Session {

// Records a path in a session handler's `copied` trie. A "*" is a wildcard to a trie: a path that contains one is not
// marked.
void markCopied(EntityCopyGlobalSessionHandler& handler, Kel::String8 const& path);

// What handlers trace after the name of their class.
inline constexpr char const* handleEntitySignature =
    "::handleEntity(const Kel::Ptr<Cli::Session::EntityCopy>&, const Kel::Ptr<Kel::Entity>&, const Kel::Ptr<const "
    "Kel::Entity>&, Kel::String8): ";

}  // namespace Cli::Session
