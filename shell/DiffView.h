// Differences for people, as commands, and as JSON.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"
#include "service/Difference.h"

namespace Shell {

enum class DiffForm { tree, commands, json };

// As a tree each difference has a mark in front: '+' it came, '-' it went, '~' it changed, '*' it moved; and the values
// on both sides.
std::string diffText(std::vector<Cli::Service::Difference> const& differences, DiffForm form, Paint const& paint);

}  // namespace Shell
