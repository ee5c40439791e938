// Commits in one SQLite file.
//
// Write-ahead log, full synchronisation: a commit that was appended is on the disk. Every record has a checksum, and
// the number of the last commit stands in the file and beside it ("FILE.mark"), so that records that are gone are
// missed. One process at a time has the file open.
#pragma once

#include <memory>
#include <string>

#include "service/CommitStore.h"
#include "service/Export.h"

namespace Cli::Service {

struct SqliteOptions {
  // How many commits are kept at least, with what restores the oldest of them; 0: all. What is older goes with the next
  // snapshot.
  Kel::U64 keep = 0;
};

class CLI_SERVICE_API SqliteStore : public CommitStore {
 public:
  // Opens the file, or makes it. Raises StoreError: another process has it open, it is no store, it is damaged. A
  // damaged file is left as it is; `recover` gets out of it what is good.
  explicit SqliteStore(std::string file, SqliteOptions options = {});
  ~SqliteStore() override;

  void append(CommitRecord const& record) override;
  std::vector<CommitRecord> read(Kel::U64 from) override;
  void snapshot(Snapshot const& snapshot) override;
  std::optional<Snapshot> snapshotAt(Kel::U64 number) override;

  // The number of the last commit; 0: none.
  Kel::U64 last() const;

  struct Recovered {
    Kel::U64 last = 0;        // the last commit of the good state
    std::size_t commits = 0;  // that were kept
    std::size_t lost = 0;     // that are known to have been there behind it
    std::string damagedFile;  // where the damaged file is now
  };
  // Puts a damaged file aside and makes a store of the last good state: the newest good snapshot, or the beginning, and
  // the commits behind it up to the first that is damaged or missing, and what is good in front of it. Raises
  // StoreError when the files cannot be written; then everything is where it was.
  static Recovered recover(std::string const& file);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
