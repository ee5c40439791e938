// Three-way merges of one queue. Not installed.
#pragma once

#include <optional>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// What one side did to a queue that has `items` items in the ancestor.
struct QueueSide {
  struct Added {
    std::size_t position;  // on this side
    Json const* content;
  };
  QueueSide(std::size_t items, std::vector<Difference const*> const& runs);

  std::vector<bool> removed;              // by the ancestor's items
  std::vector<std::size_t> positions;     // of the items that stay, on this side
  std::vector<std::vector<Added>> added;  // before each of the ancestor's items, and after the last
};

// A part of the ancestor's queue in which both sides have overlapping hunks that are not the same.
struct QueueClash {
  std::size_t begin, end;
};
std::vector<QueueClash> clashesOf(QueueSide const& edits, QueueSide const& changes);

}  // namespace Cli::Service
