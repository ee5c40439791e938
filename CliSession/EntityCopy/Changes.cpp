#include "CliSession/EntityCopy/Changes.h"

#include <map>
#include <mutex>

namespace Cli::Session {

namespace {

struct Memory {
  static constexpr std::size_t most = 4096;  // pairs; then all are forgotten
  std::mutex mutex;
  std::map<RootPair, Kel::EqualTrees> equal;
};

Memory& memory() {
  static Memory& the = *new Memory;
  return the;
}

}  // namespace

RootPair rootPair(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src, Kel::Entity const& ground) {
  Kel::ChangeJournal& journal = Kel::ChangeJournal::attach(ground);
  return {&dest, &src, ec.dest().ptr(), ec.src().ptr(), journal.id(), journal.end()};
}

void rememberEqual(RootPair const& roots, Kel::EqualTrees const& at) {
  Memory& all = memory();
  std::lock_guard const lock(all.mutex);
  if (all.equal.size() >= Memory::most) all.equal.clear();
  all.equal.insert_or_assign(roots, at);
}

Kel::EqualTrees lastEqual(RootPair const& roots) {
  Memory& all = memory();
  std::lock_guard const lock(all.mutex);
  auto const found = all.equal.find(roots);
  return found == all.equal.end() ? Kel::EqualTrees() : found->second;
}

}  // namespace Cli::Session
