#include "service/CommitStore.h"

#include <algorithm>

namespace Cli::Service {

char const* text(CommitKind kind) {
  switch (kind) {
    case CommitKind::commit: return "commit";
    case CommitKind::rollback: return "rollback";
    case CommitKind::confirmed: return "confirmed";
    case CommitKind::undone: return "undone";
  }
  return "?";
}

Error::~Error() = default;
CommitStore::~CommitStore() = default;

void MemoryStore::append(CommitRecord const& record) {
  if (record.parent != (records_.empty() ? 0 : records_.back().number))
    throw StoreError("commit " + std::to_string(record.number) + " does not follow the last one");
  records_.push_back(record);
}

std::vector<CommitRecord> MemoryStore::read(Kel::U64 from) {
  auto const first = std::find_if(records_.begin(), records_.end(), [&](auto const& r) { return r.number >= from; });
  return {first, records_.end()};
}

void MemoryStore::snapshot(Snapshot const& snapshot) { snapshots_.push_back(snapshot); }

std::optional<CommitStore::Snapshot> MemoryStore::snapshotAt(Kel::U64 number) {
  for (auto it = snapshots_.rbegin(); it != snapshots_.rend(); ++it)
    if (it->number <= number) return *it;
  return std::nullopt;
}

}  // namespace Cli::Service
