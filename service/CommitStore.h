// Stores of commits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kel/Types.h"
#include "service/Error.h"

namespace Cli::Service {

enum class CommitKind {
  commit,
  rollback,   // its content is that of an earlier commit
  confirmed,  // is undone unless it is confirmed in time
  undone      // takes back commits that were not confirmed
};
CLI_SERVICE_API char const* text(CommitKind kind);

struct CommitRecord {
  Kel::U64 number = 0;  // the first is 1
  Kel::U64 parent = 0;  // the number of the commit before; 0: none
  double time = 0;      // seconds since 1970
  std::string user, session, comment;
  CommitKind kind = CommitKind::commit;
  std::string differences;  // as bytesOf writes them
};

// Raised by stores: the disk is full, the file is damaged, another writer has appended.
class CLI_SERVICE_API StoreError : public Error {
 public:
  using Error::Error;
};

// One process at a time writes to a store. An operation that raises has changed nothing.
class CLI_SERVICE_API CommitStore {
 public:
  virtual ~CommitStore();

  // Appends a commit. REQUIRES: its `parent` is the last commit in the store, or 0 for the first. When this returns, a
  // store on disk has it on the disk.
  virtual void append(CommitRecord const& record) = 0;

  // The commits from a number on that are kept, oldest first.
  virtual std::vector<CommitRecord> read(Kel::U64 from) = 0;

  // The configuration right after a commit, as bytes of an attribute log. A store may drop old commits, but never the
  // newest snapshot or the commits after it.
  struct Snapshot {
    Kel::U64 number = 0;  // of the commit
    std::string bytes;
  };
  virtual void snapshot(Snapshot const& snapshot) = 0;
  // The newest snapshot of a commit up to that number, if there is one.
  virtual std::optional<Snapshot> snapshotAt(Kel::U64 number) = 0;
};

// Keeps commits for as long as it lives.
class CLI_SERVICE_API MemoryStore : public CommitStore {
 public:
  void append(CommitRecord const& record) override;
  std::vector<CommitRecord> read(Kel::U64 from) override;
  void snapshot(Snapshot const& snapshot) override;
  std::optional<Snapshot> snapshotAt(Kel::U64 number) override;

 private:
  std::vector<CommitRecord> records_;
  std::vector<Snapshot> snapshots_;
};

}  // namespace Cli::Service
