// Differences in references that lead nowhere: their pointers are null, so that two trees do not show them.
#pragma once

#include <vector>

#include "service/Difference.h"
#include "service/PendingReferences.h"

namespace Shell {

// Puts the text of a reference that leads nowhere in the place of the null pointer, in the content of the entity at
// `top`.
void fillPending(Cli::Service::Json& content, Cli::Service::Path const& top,
                 Cli::Service::PendingReference const& reference, Cli::Service::Json const& text);

// The differences between two configurations, with their references that lead nowhere: the contents get the texts of
// these, and a reference whose text differs is a difference of its own.
std::vector<Cli::Service::Difference> withPending(std::vector<Cli::Service::Difference> differences,
                                                  Cli::Service::PendingReferences const& from,
                                                  Cli::Service::PendingReferences const& to);

}  // namespace Shell
