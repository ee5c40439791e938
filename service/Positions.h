// Where the items of queues stand on the other side of a list of differences. Not installed.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// Whether a path leads to an item of a queue, or into one.
bool isInQueue(Path const& path);

// From the side before the differences to the side after them. With their inverse it leads back.
class Positions {
 public:
  explicit Positions(std::vector<Difference> const& differences);
  // The same place on the other side; empty if it is in an item that is not there.
  std::optional<Path> operator()(Path path) const;

 private:
  struct Queue {
    std::vector<std::pair<std::size_t, std::size_t>> removed, added;  // where, how many
    std::optional<std::size_t> other(std::size_t position) const;
  };
  std::map<std::string, Queue> queues_;
};

}  // namespace Cli::Service
