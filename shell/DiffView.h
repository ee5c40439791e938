// Differences as a tree, as commands, and as JSON.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"
#include "service/Difference.h"

namespace Shell {

enum class DiffForm { tree, commands, json };

// In a tree, each difference begins with a mark: '+' created, '-' deleted, '~' changed, '*' moved; the values of both
// sides follow.
std::string diffText(std::vector<Cli::Service::Difference> const& differences, DiffForm form, Paint const& paint);

}  // namespace Shell
