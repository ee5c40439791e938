// Which edits stay out of the logs, and which are debugged.
#pragma once

#include "CliSession/CliSession.h"
#include "service/Service.h"

namespace Shell {

// Whether deletions of entities that have only defaults stay out of the logs of copies into sessions. The check notices
// other contents only by kinds of edits that the log does not have yet, so a log with many kinds may miss deletions.
void bypassDefaultsIs(Cli::Service::Service& service, bool on);

// Replaces the debug actions of a log by those of the configuration.
void debugActionsIs(Cli::Session::AttributeEditLog& log, Cli::Session::CliConfig const& config);

}  // namespace Shell
