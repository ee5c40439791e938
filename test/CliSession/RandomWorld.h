// Worlds of random content, and how many of them a run tries.
#pragma once

#include <cstdlib>
#include <numeric>

#include "CliSession/World.h"
#include "Pairs.h"

namespace Tests {

// As many seeds as are usual, or as the environment says: LAW_SEEDS of them, from LAW_FIRST on.
inline std::vector<unsigned> seeds(unsigned usual) {
  auto const number = [](char const* name, unsigned otherwise) {
    char const* const text = std::getenv(name);
    return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
  };
  std::vector<unsigned> all(number("LAW_SEEDS", usual));
  std::iota(all.begin(), all.end(), number("LAW_FIRST", 0));
  return all;
}

// A source and a destination of their own making.
struct RandomWorld : World {
  Generator generator;
  Cli::Session::EntityCopyFilterDir::Ptr filters = Cli::Session::entityCopyFilterDirFactory("filters");

  // `pair`: one root is of another type in the destination. `nans`: see Generator.
  explicit RandomWorld(unsigned seed, bool pair = false, unsigned nans = 0) : generator(seed) {
    generator.nans = nans;
    // Session roots may lie below session roots, and be directories.
    if (seed % 4 == 3)
      for (char const* nested : {"hall.part", "hall.annex/one", "sys/annex.bolt", "sys/annex.gearbox.pin"})
        status->rootTrie()->prefixIs(nested, Zuk::prefixTrieStateFactory());
    if (seed % 5 == 4) directories();
    if (pair) {
      rootIs("pair", "Pairs::Old");
      src->newEntity("Pairs::Old", "pair");
      dest->newEntity("Pairs::New", "pair");
    }
    fill(src, generator);
    // Destinations of three kinds: empty, a source's near relation, something else altogether.
    if (seed % 3 == 1) {
      copy();
      mutate(dest, generator, 1 + static_cast<int>(generator.below(6)));
    } else if (seed % 3 == 2) {
      fill(dest, generator);
    }
  }
  // Whether equal trees have equal dumps, and can be copied back.
  bool alike() const { return !status->rootHas("tree") && !status->rootHas("pair"); }

 private:
  void directories() {
    rootIs("tree", "Kel::Dir");
    src->newEntity("Kel::Dir", "tree");
    status->doCreateSessionRoots(src, dest);
    table = Cli::Session::entityCopyCustomHandlerTableFactory("table", root);
    auto const handler = filters->newDirHandler();
    handler->sessionStatusIs(status);
    table->registerCustomCopyHandler(Cli::Session::EntityPath(""), "Kel::Dir", handler);
  }
};

inline bool isPointerEdit(std::string const& edit) {
  static char const* const pointers[] = {"::peer ",   "::about ",   "::favourite ", "::anything ", "::neighbour ",
                                         "::chosen ", "::watched ", "::weight ",    "::chief ",    "::kin ",
                                         "::keeper ", "::rank ",    "::pair ",      "::mate ",     "::mated "};
  for (char const* name : pointers)
    if (edit.find(name) != std::string::npos) return true;
  return false;
}

// A queue goes on counting where it stood when its last member went, which nobody sees from outside.
inline Edits withoutIndices(Edits const& edits) {
  Edits plain;
  for (auto const& [edit, count] : edits) {
    std::string text = edit;
    for (std::string const queue : {".job/", ".step/", ".tick/", ".reading/"}) {
      for (std::size_t at = 0; (at = text.find(queue, at)) != std::string::npos; at += queue.size()) {
        std::size_t const index = at + queue.size();
        text.replace(index, std::min(text.find_first_not_of("0123456789", index), text.size()) - index, "#");
      }
    }
    plain[text] += count;
  }
  return plain;
}

}  // namespace Tests
