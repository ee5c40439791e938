#include "ScaleData.h"

#include <string>

namespace Bench {

std::vector<SessionRoot> const& scaleRoots() {
  static std::vector<SessionRoot> const roots{{"first", "Bench::Scale"}, {"second", "Bench::Scale"}};
  return roots;
}

Scale::Ptr first(Kel::Dir& dir) { return Kel::ptrCast<Scale>(dir.entityRef("first")); }
Scale::Ptr second(Kel::Dir& dir) { return Kel::ptrCast<Scale>(dir.entityRef("second")); }

namespace {

Kel::Name name(char const* prefix, std::size_t i) { return Kel::Name(prefix + std::to_string(i)); }
Kel::U32 u32(std::size_t i) { return static_cast<Kel::U32>(i); }

void fillLeaves(Scale& root, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) root.newLeaf(name("leaf", i))->valueIs(u32(i));
}

}  // namespace

// --- Pointers ---

void references(Kel::Dir& dir, std::size_t n) {
  Scale& root = *first(dir);
  fillLeaves(root, targetCount);
  for (std::size_t i = 0; i < n; ++i)
    root.newPointer(name("pointer", i))->targetIs(root.leaf(name("leaf", i * 7 % targetCount)));
}

void referencesAcross(Kel::Dir& dir, std::size_t n) {
  Scale &root = *second(dir), &other = *first(dir);
  fillLeaves(other, targetCount);
  for (std::size_t i = 0; i < n; ++i)
    root.newPointer(name("pointer", i))->targetIs(other.leaf(name("leaf", i * 7 % targetCount)));
}

namespace {

void pointEarly(Scale& root, Scale& targets, std::size_t n) {
  fillLeaves(targets, n);
  for (std::size_t i = 0; i < n; ++i) root.newEarly(name("pointer", i))->targetIs(targets.leaf(name("leaf", i)));
}

}  // namespace

void earlyReferences(Kel::Dir& dir, std::size_t n) { pointEarly(*first(dir), *first(dir), n); }
void earlyReferencesAcross(Kel::Dir& dir, std::size_t n) { pointEarly(*first(dir), *second(dir), n); }

Fill pointersByKey(bool early) {
  return [early](Kel::Dir& dir, std::size_t n) {
    Scale& root = *first(dir);
    fillLeaves(root, n);
    for (auto it = root.leafIterator(); it; ++it)
      early ? root.earlyRefIs(it.key(), Leaf::Ptr(&*it)) : root.lateRefIs(it.key(), Leaf::Ptr(&*it));
  };
}

Fill pointerKeys(bool early) {
  return [early](Kel::Dir& dir, std::size_t n) {
    Scale& root = *first(dir);
    fillLeaves(root, n);
    for (auto it = root.leafIterator(); it; ++it)
      early ? root.earlyKeyIs(Leaf::Ptr(&*it), true) : root.lateKeyIs(Leaf::Ptr(&*it), true);
  };
}

Fill group(bool there) {
  return [there](Kel::Dir& dir, std::size_t n) {
    Scale& root = *first(dir);
    if (there) root.newGroup("group");
    for (std::size_t i = 0; i < n; ++i) {
      Pointer::Ptr const pointer = root.newPointer(name("pointer", i));
      if (there) pointer->targetIs(root.group()->newLeaf(name("leaf", i)));
    }
  };
}

// --- Collections and queues ---

Fill members(Members kind, std::size_t replaced) {
  return [=](Kel::Dir& dir, std::size_t n) {
    Scale& root = *first(dir);
    for (std::size_t i = 0; i < n; ++i) {
      Kel::Name const key = name(replaced != 0 && i % replaced == 0 ? "new" : "old", i);
      switch (kind) {
        case Members::hashed: root.newLeaf(key)->valueIs(u32(i)); break;
        case Members::sorted: root.newSorted(key)->valueIs(u32(i)); break;
        case Members::values: root.flagIs(key, u32(i)); break;
      }
    }
  };
}

namespace {

// Calls a function with the members of a queue in their order.
template <class Function>
void forQueue(std::size_t n, bool edited, Function const& function) {
  for (std::size_t i = edited ? 1 : 0; i < n; ++i) {
    if (edited && i == n / 2) function(u32(n));
    function(u32(i));
  }
}

}  // namespace

Fill numbers(bool edited) {
  return [edited](Kel::Dir& dir, std::size_t n) { forQueue(n, edited, [&](Kel::U32 i) { first(dir)->numberEnq(i); }); };
}

Fill jobs(bool edited) {
  return [edited](Kel::Dir& dir, std::size_t n) {
    forQueue(n, edited, [&](Kel::U32 i) { first(dir)->jobEnq(i)->valueIs(i); });
  };
}

// --- Comparison ---

namespace {

// Whether two entities stand at the same place below two directories.
bool counterparts(Kel::Entity const* a, Kel::Dir const& below, Kel::Entity const* b, Kel::Dir const& belowB) {
  if (!a || !b) return !a && !b;
  Kel::String const nameA = a->fullName(), nameB = b->fullName();
  std::size_t const startA = below.fullName().chars(), startB = belowB.fullName().chars();
  return a->entity(nameA).ptr() == a && b->entity(nameB).ptr() == b &&
         nameA.view().substr(0, startA) == below.fullName().view() &&
         nameB.view().substr(0, startB) == belowB.fullName().view() &&
         nameA.view().substr(startA) == nameB.view().substr(startB);
}

template <class Iterator, class Find, class Same>
bool sameMembers(std::size_t countA, std::size_t countB, Iterator it, Find const& find, Same const& same) {
  if (countA != countB) return false;
  for (; it; ++it) {
    auto const other = find(it.key());
    if (!other || !same(*it, *other)) return false;
  }
  return true;
}

bool sameLeaf(Leaf const& a, Leaf const& b) { return a.value() == b.value(); }

// What the queues hold, in their order.
std::vector<Kel::U32> queued(Scale const& root) {
  std::vector<Kel::U32> all;
  for (auto it = root.numberIteratorConst(); it; ++it) all.push_back(it.value());
  for (auto it = root.jobIteratorConst(); it; ++it) {
    all.push_back(it.value()->label());
    all.push_back(it.value()->value());
  }
  return all;
}

// Compares collections of pointers; `find` answers the target that the other has under a key.
template <class Iterator, class Find>
bool sameTargets(std::size_t countA, std::size_t countB, Iterator it, Kel::Dir const& dirA, Kel::Dir const& dirB,
                 Find const& find) {
  if (countA != countB) return false;
  for (; it; ++it)
    if (!it.value() || !counterparts(it.value().ptr(), dirA, find(it.key()).ptr(), dirB)) return false;
  return true;
}

// Compares collections keyed by pointers at the leaves of the same root.
template <class Iterator, class Has>
bool sameKeys(std::size_t countA, std::size_t countB, Iterator it, Scale const& a, Scale const& b, Has const& has) {
  if (countA != countB) return false;
  for (; it; ++it) {
    Kel::Name const& leaf = it.key()->name();
    if (a.leaf(leaf) != it.key() || !b.leaf(leaf) || !has(Leaf::Ptr(const_cast<Leaf*>(b.leaf(leaf).ptr()))))
      return false;
  }
  return true;
}

bool samePointerCollections(Scale const& a, Kel::Dir const& dirA, Scale const& b, Kel::Dir const& dirB) {
  return sameTargets(a.earlyRefs(), b.earlyRefs(), a.earlyRefIteratorConst(), dirA, dirB,
                     [&](auto const& key) { return b.earlyRef(key); }) &&
         sameTargets(a.lateRefs(), b.lateRefs(), a.lateRefIteratorConst(), dirA, dirB,
                     [&](auto const& key) { return b.lateRef(key); }) &&
         sameKeys(a.earlyKeys(), b.earlyKeys(), a.earlyKeyIteratorConst(), a, b,
                  [&](Leaf::Ptr const& leaf) { return b.earlyKeyHas(leaf); }) &&
         sameKeys(a.lateKeys(), b.lateKeys(), a.lateKeyIteratorConst(), a, b,
                  [&](Leaf::Ptr const& leaf) { return b.lateKeyHas(leaf); });
}

bool sameFlags(Scale const& a, Scale const& b) {
  if (a.flags() != b.flags()) return false;
  for (auto it = a.flagIteratorConst(); it; ++it)
    if (!b.flagHas(it.key()) || b.flag(it.key()) != it.value()) return false;
  return true;
}

bool sameGroups(Group const* a, Group const* b) {
  if (!a || !b) return !a && !b;
  return sameMembers(
      a->leafs(), b->leafs(), a->leafIteratorConst(), [&](auto const& key) { return b->leaf(key); }, sameLeaf);
}

bool sameRoot(Scale const& a, Kel::Dir const& dirA, Scale const& b, Kel::Dir const& dirB) {
  auto const samePointer = [&](Pointer const& p, Pointer const& q) {
    return counterparts(p.target().ptr(), dirA, q.target().ptr(), dirB);
  };
  return sameMembers(
             a.earlys(), b.earlys(), a.earlyIteratorConst(), [&](auto const& key) { return b.early(key); },
             samePointer) &&
         sameMembers(
             a.pointers(), b.pointers(), a.pointerIteratorConst(), [&](auto const& key) { return b.pointer(key); },
             samePointer) &&
         sameMembers(
             a.leafs(), b.leafs(), a.leafIteratorConst(), [&](auto const& key) { return b.leaf(key); }, sameLeaf) &&
         sameMembers(
             a.sorteds(), b.sorteds(), a.sortedIteratorConst(), [&](auto const& key) { return b.sorted(key); },
             sameLeaf) &&
         sameGroups(a.group().ptr(), b.group().ptr()) && samePointerCollections(a, dirA, b, dirB) && sameFlags(a, b) &&
         queued(a) == queued(b);
}

}  // namespace

bool sameScale(Kel::Dir& a, Kel::Dir& b) {
  return sameRoot(*first(a), a, *first(b), b) && sameRoot(*second(a), a, *second(b), b);
}

}  // namespace Bench
