// What the owner of a session manager decides about edits: which stay out of the logs, and which are debugged.
#pragma once

#include "CliSession/CliSession.h"

namespace Shell {

// Keeps deletions of entities that hold nothing but defaults out of the logs of copies to paths that begin with
// `prefix`: registers a default entity for every attribute that owns entities in a tree of that type.
void bypassDefaults(Cli::Session::AttributeEditBypassTable& table, Kel::KelType const& rootType,
                    Kel::String const& prefix);

// The debug actions of the configuration, in place of those that the log has.
void debugActionsIs(Cli::Session::AttributeEditLog& log, Cli::Session::CliConfig const& config);

}  // namespace Shell
