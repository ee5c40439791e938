// Devices of random content, with two users who change random things.
#pragma once

#include <algorithm>

#include "CliSession/RandomWorld.h"
#include "Kel/AttrAccess.h"
#include "service/JsonTree.h"
#include "service/core/Device.h"

namespace Tests {

// What pointers may lead to. An item of a queue is named by its position, which shifts when other items come and go: a
// test that finds targets by their paths leaves items out.
inline std::vector<Kel::Entity*> targetsIn(Sv::Tree const& tree, bool items) {
  std::vector<Kel::Entity*> all;
  for (Kel::Entity* root : rootsOf(tree))
    for (Kel::Entity* e : entitiesOf(*root))
      if (items || !World::inQueue(*e)) all.push_back(e);
  return all;
}
inline void fill(Sv::Tree const& tree, Generator& generator, bool items) {
  for (Kel::Entity* root : rootsOf(tree)) generator.fill(*root, 2);
  for (Kel::Entity* root : rootsOf(tree)) generator.point(*root, targetsIn(tree, items));
}
inline void mutate(Sv::Tree const& tree, Generator& generator, unsigned times, bool items) {
  for (unsigned i = 0; i < times; ++i)
    for (Kel::Entity* root : rootsOf(tree)) generator.mutate(*root, targetsIn(tree, items));
  for (Kel::Entity* root : rootsOf(tree)) dropOrphans(*root);
}

// In some devices, one number in so many is a NaN.
inline unsigned nansOf(unsigned seed) { return seed % 3 == 2 ? 5 : 0; }

// The same seed makes the same device and the same edits.
struct RandomDevice : Device {
  Sv::Session& mine;
  Sv::Session& theirs;

  // `items`: pointers may lead to items of queues.
  explicit RandomDevice(unsigned seed, bool items = false, bool edits = true)
      : Device([&](Plant::Hall&) {
          static std::vector<std::string> const roots{"hall", "sys/annex"};
          Generator generator(seed);
          generator.nans = nansOf(seed);
          fill({running, &roots}, generator, items);
        }),
        mine(open("mine")),
        theirs(open("theirs")) {
    if (!edits) return;
    Generator first(seed * 2 + 1), second(seed * 2 + 2);
    first.nans = second.nans = nansOf(seed);
    mutate(mine.tree(), first, 1 + seed % 7, items);
    mutate(theirs.tree(), second, 1 + seed % 5, items);
  }
};

inline Sv::Json contentOf(Sv::Tree const& tree, Sv::Path const& path) {
  Sv::Place const place = Sv::locate(tree.dir, path);
  if (!place.there()) return {};
  if (!place.attr) return Sv::exportEntity(*place.entity, *tree.dir);
  if (!place.isMember) return Sv::exportAttribute(*place.entity, *place.attr, *tree.dir);
  auto const member = place.attr->access().get(*place.attr, place.entity.ptr(), place.key.ptr(), true);
  return member ? Sv::exportValue(member.ptr(), *tree.dir) : Sv::Json();
}

inline std::string bytesOfTree(Sv::Tree const& tree) { return Kel::writeAttrLog(*tree.dir); }

inline bool inQueue(Sv::Path const& path) {
  return std::any_of(path.steps.begin(), path.steps.end(),
                     [](Sv::PathStep const& s) { return s.attr && s.attr->isQueue(); });
}
inline bool touch(Sv::Path const& a, Sv::Path const& b) { return a.isWithin(b) || b.isWithin(a); }

}  // namespace Tests
