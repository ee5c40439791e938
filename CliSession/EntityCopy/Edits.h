// The one place that admits edits; see EntityCopy::addAttributeEditBypassEntry.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// Takes the debug action that is configured for an edit, asks the bypass checker, and counts the edit. Answers whether
// it counts as a difference: a bypassed edit does not. `path` is the edited entity's full name, `relative` its path
// below the copy's destination.
bool recordEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path, Kel::String8 const& relative,
                Kel::GenericIf::PtrConst const& value);
// The same for an edit of `dest`.
bool recordEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::Entity const& dest,
                Kel::GenericIf::PtrConst const& value);

}  // namespace Cli::Session
