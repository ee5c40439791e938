// The one place that admits edits; see EntityCopy::addAttributeEditBypassEntry.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// Takes the debug action that is configured for an edit, asks the bypass checker, and counts the edit. Answers whether
// it counts as a difference: a bypassed edit does not. `path` is the edited entity's full name.
bool recordEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path,
                Kel::GenericIf::PtrConst const& value);

}  // namespace Cli::Session
