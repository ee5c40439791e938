// Which edits stay out of the logs, and which are debugged.
#pragma once

#include "CliSession/CliSession.h"
#include "service/Service.h"

namespace Shell {

// Whether deletions of entities that hold nothing but defaults are kept out of the logs of copies into sessions. What
// such an entity holds besides is told by edits that the log does not have yet: in a log that has many, more stays out.
void bypassDefaultsIs(Cli::Service::Service& service, bool on);

// The debug actions of the configuration, in place of those that the log has.
void debugActionsIs(Cli::Session::AttributeEditLog& log, Cli::Session::CliConfig const& config);

}  // namespace Shell
