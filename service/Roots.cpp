#include "service/Roots.h"

#include <algorithm>

#include "service/Walk.h"

namespace Cli::Service {

std::vector<std::string> outerRoots(std::vector<std::string> const& roots) {
  std::vector<std::string> outer;
  for (std::string const& path : roots) {
    bool const isNested = std::any_of(roots.begin(), roots.end(), [&](std::string const& other) {
      return path.size() > other.size() && path.compare(0, other.size(), other) == 0 &&
             (path[other.size()] == '/' || path[other.size()] == '.');
    });
    if (!isNested) outer.push_back(path);
  }
  return outer;
}

Kel::Entity* rootAt(Tree const& tree, std::string const& path) {
  Kel::Entity* at = tree.dir.ptr();
  std::string_view rest = path;
  while (at && !rest.empty()) {
    std::size_t const end = std::min(rest.find('/'), rest.size());
    Kel::Dir const* const dir = asDir(at);
    at = dir ? const_cast<Kel::Entity*>(dir->child(rest.substr(0, end))) : nullptr;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return at;
}

Path rootPath(std::string const& path) {
  Path steps;
  std::string_view rest = path;
  while (!rest.empty()) {
    std::size_t const end = std::min(rest.find('/'), rest.size());
    steps.steps.push_back(entryStep(Kel::Name(rest.substr(0, end))));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return steps;
}

}  // namespace Cli::Service
