// Commits in one SQLite file.
//
// The file has a write-ahead log and full synchronisation: a commit that was appended is on the disk. Every record has
// a checksum. The number of the last commit is in the file and in "FILE.mark" beside it, so that a loss of records is
// noticed. One process at a time has the file open.
#pragma once

#include <memory>
#include <string>

#include "service/CommitStore.h"
#include "service/Export.h"

namespace Cli::Service {

struct SqliteOptions {
  // At least so many commits are kept, with the snapshot that restores the oldest of them; 0: all. Older ones are
  // dropped with the next snapshot.
  Kel::U64 keep = 0;
};

class CLI_SERVICE_API SqliteStore : public CommitStore {
 public:
  // Opens the file, or makes it. Raises StoreError if another process has it open, if it is not a store, or if it is
  // damaged. A damaged file is left as it is; `recover` makes a store of what is good in it.
  explicit SqliteStore(std::string file, SqliteOptions options = {});
  ~SqliteStore() override;

  void append(CommitRecord const& record) override;
  std::vector<CommitRecord> read(Kel::U64 from) override;
  void snapshot(Snapshot const& snapshot) override;
  std::optional<Snapshot> snapshotAt(Kel::U64 number) override;

  // The number of the last commit; 0: none.
  Kel::U64 last() const;

  struct Recovered {
    Kel::U64 last = 0;        // the last commit that was recovered
    std::size_t commits = 0;  // how many were recovered
    std::size_t lost = 0;     // how many later commits are known to be lost
    std::string damagedFile;  // the new path of the damaged file
  };
  // Moves a damaged file aside and makes a store of the last good state: the newest good snapshot (or the beginning),
  // the commits after it up to the first that is damaged or missing, and the good commits that lead up to it. Raises
  // StoreError if the files cannot be written; then everything is where it was.
  static Recovered recover(std::string const& file);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
