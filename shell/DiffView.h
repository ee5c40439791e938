// Differences as a tree, as commands, and as JSON.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"
#include "service/Difference.h"
#include "service/PendingReferences.h"

namespace Shell {

enum class DiffForm { tree, commands, json };

// In a tree, each difference begins with a mark: '+' created, '-' deleted, '~' changed, '*' moved; the values of both
// sides follow. `waiting`: the references of the second side that lead nowhere. A tree shows their targets and why, and
// which of them led to something that was deleted. May be null.
std::string diffText(std::vector<Cli::Service::Difference> const& differences, DiffForm form, Paint const& paint,
                     Cli::Service::PendingReferences const* waiting = nullptr);

// A reference that leads nowhere: "network/vlans.vlan/Vlan9 (it was deleted)".
std::string waitingText(Cli::Service::PendingReference const& reference);

}  // namespace Shell
