#include "CliSession/EntityCopy/Changes.h"

#include <map>
#include <mutex>

namespace Cli::Session {

namespace {

// Keyed by the source and the destination. That these are still the same entities is for Kel::EqualTrees to see.
struct Memory {
  static constexpr std::size_t most = 4096;  // pairs; then all are forgotten
  std::mutex mutex;
  std::map<std::pair<Kel::Entity const*, Kel::Entity const*>, Checkpoint> equal;
};

Memory& memory() {
  static Memory& the = *new Memory;
  return the;
}

Ground groundOf(EntityCopy const& ec, Kel::Entity const& ground) {
  Kel::ChangeJournal& journal = Kel::ChangeJournal::attach(ground);
  return {ec.src().ptr(), ec.dest().ptr(), journal.id(), journal.end()};
}

}  // namespace

Checkpoint takeCheckpoint(EntityCopy const& ec, RootPair const& roots) {
  Ground const ground = groundOf(ec, roots.ground);
  return {ground, Kel::EqualTrees(roots.src, roots.dest)};  // begins an epoch of all journals
}

void rememberEqual(RootPair const& roots, Checkpoint const& at) {
  Memory& all = memory();
  std::lock_guard const lock(all.mutex);
  if (all.equal.size() >= Memory::most) all.equal.clear();
  all.equal.insert_or_assign({&roots.src, &roots.dest}, at);
}

bool addChanges(EntityCopy const& ec, RootPair const& roots, Kel::ChangedEntities& to) {
  Checkpoint was;
  {
    Memory& all = memory();
    std::lock_guard const lock(all.mutex);
    auto const found = all.equal.find({&roots.src, &roots.dest});
    if (found == all.equal.end()) return false;
    was = found->second;
  }
  return was.ground == groundOf(ec, roots.ground) && was.equal.addChanges(roots.src, roots.dest, to);
}

}  // namespace Cli::Session
