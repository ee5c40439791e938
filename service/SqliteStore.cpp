#include "service/SqliteStore.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>

namespace Cli::Service {

namespace {

using Kel::U64;

constexpr int applicationId = 0x434c4953;  // "CLIS"
constexpr int formatVersion = 1;

// CRC-64/XZ, which detects every burst error of up to 64 bits.
U64 checksum(std::string_view bytes, U64 from) {
  static auto const table = [] {
    std::array<U64, 256> made{};
    for (U64 i = 0; i < made.size(); ++i) {
      U64 crc = i;
      for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xc96c5795d7870f42U : crc >> 1;
      made[i] = crc;
    }
    return made;
  }();
  U64 crc = ~from;
  for (char const c : bytes) crc = table[(crc ^ static_cast<unsigned char>(c)) & 0xff] ^ (crc >> 8);
  return ~crc;
}

// The checksum of a row, over lengths and contents.
class Sum {
 public:
  Sum& add(U64 number) {
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    sum_ = checksum({bytes, sizeof bytes}, sum_);
    return *this;
  }
  Sum& add(std::string_view text) {
    add(static_cast<U64>(text.size()));
    sum_ = checksum(text, sum_);
    return *this;
  }
  std::int64_t value() const { return static_cast<std::int64_t>(sum_); }

 private:
  U64 sum_ = 0;
};

std::int64_t sumOf(CommitRecord const& r) {
  return Sum()
      .add(r.number)
      .add(r.parent)
      .add(std::bit_cast<U64>(r.time))
      .add(r.user)
      .add(r.session)
      .add(r.comment)
      .add(static_cast<U64>(r.kind))
      .add(r.differences)
      .value();
}
std::int64_t sumOf(CommitStore::Snapshot const& s) { return Sum().add(s.number).add(s.bytes).value(); }

std::int64_t clamped(U64 number) {
  return static_cast<std::int64_t>(std::min<U64>(number, std::numeric_limits<std::int64_t>::max()));
}

class Database {
 public:
  Database(std::string file, int flags) : file_(std::move(file)) {
    // Configurations hold secrets, so only its owner may read a new file. SQLite gives its other files the same mode.
    if (flags & SQLITE_OPEN_CREATE) {
      int const descriptor = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      if (descriptor >= 0) ::close(descriptor);
    }
    int const result = sqlite3_open_v2(file_.c_str(), &db_, flags, nullptr);
    if (result == SQLITE_OK) return;
    std::string const what = db_ ? sqlite3_errmsg(db_) : "no memory";
    sqlite3_close(db_);
    throw StoreError(file_ + ": cannot be opened: " + what);
  }
  ~Database() { sqlite3_close(db_); }
  Database(Database const&) = delete;
  Database& operator=(Database const&) = delete;

  void run(char const* sql) const {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
  }
  [[noreturn]] void fail() const {
    std::string const what = sqlite3_errmsg(db_);
    switch (sqlite3_errcode(db_) & 0xff) {
      case SQLITE_CORRUPT:
      case SQLITE_NOTADB: damaged(what);
      case SQLITE_BUSY:
      case SQLITE_LOCKED: throw StoreError(file_ + ": another process has the store open");
      case SQLITE_FULL: throw StoreError(file_ + ": the disk is full");
      default: throw StoreError(file_ + ": " + what);
    }
  }
  [[noreturn]] void damaged(std::string const& what) const {
    throw StoreError(file_ + ": the store is damaged (" + what + ")");
  }
  sqlite3* handle() const { return db_; }
  std::string const& file() const { return file_; }

 private:
  std::string file_;
  sqlite3* db_ = nullptr;
};

class Statement {
 public:
  Statement(Database const& db, char const* sql) : db_(db) {
    if (sqlite3_prepare_v2(db.handle(), sql, -1, &statement_, nullptr) != SQLITE_OK) db.fail();
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(Statement const&) = delete;
  Statement& operator=(Statement const&) = delete;

  Statement& bind(std::int64_t number) {
    if (sqlite3_bind_int64(statement_, ++bound_, number) != SQLITE_OK) db_.fail();
    return *this;
  }
  Statement& bind(std::string_view bytes) {
    char const* const data = bytes.data() ? bytes.data() : "";
    if (sqlite3_bind_blob64(statement_, ++bound_, data, bytes.size(), SQLITE_STATIC) != SQLITE_OK) db_.fail();
    return *this;
  }
  // True while there is a row.
  bool step() {
    int const result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) db_.fail();
    return false;
  }
  std::int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }
  std::string bytes(int column) const {
    auto const* data = static_cast<char const*>(sqlite3_column_blob(statement_, column));
    int const size = sqlite3_column_bytes(statement_, column);
    return data ? std::string(data, static_cast<std::size_t>(size)) : std::string();
  }

 private:
  Database const& db_;
  sqlite3_stmt* statement_ = nullptr;
  int bound_ = 0;
};

// A transaction that is rolled back unless it is committed.
class Transaction {
 public:
  explicit Transaction(Database const& db) : db_(db) { db.run("BEGIN IMMEDIATE"); }
  ~Transaction() {
    if (!done_) sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  Transaction(Transaction const&) = delete;
  Transaction& operator=(Transaction const&) = delete;
  void commit() {
    db_.run("COMMIT");
    done_ = true;
  }

 private:
  Database const& db_;
  bool done_ = false;
};

constexpr char const* commitColumns =
    "SELECT number, parent, time, user, session, comment, kind, differences, sum FROM record ";

// Whether the row is as it was written.
bool readRow(Statement const& row, CommitRecord& r) {
  r.number = static_cast<U64>(row.number(0));
  r.parent = static_cast<U64>(row.number(1));
  r.time = std::bit_cast<double>(row.number(2));
  r.user = row.bytes(3);
  r.session = row.bytes(4);
  r.comment = row.bytes(5);
  std::int64_t const kind = row.number(6);
  if (kind < 0 || kind > static_cast<int>(CommitKind::undone)) return false;
  r.kind = static_cast<CommitKind>(kind);
  r.differences = row.bytes(7);
  return row.number(8) == sumOf(r);
}
bool readRow(Statement const& row, CommitStore::Snapshot& s) {
  s.number = static_cast<U64>(row.number(0));
  s.bytes = row.bytes(1);
  return row.number(2) == sumOf(s);
}

void insert(Database const& db, CommitRecord const& r) {
  Statement(db, "INSERT INTO record VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)")
      .bind(clamped(r.number))
      .bind(clamped(r.parent))
      .bind(std::bit_cast<std::int64_t>(r.time))
      .bind(r.user)
      .bind(r.session)
      .bind(r.comment)
      .bind(static_cast<std::int64_t>(r.kind))
      .bind(r.differences)
      .bind(sumOf(r))
      .step();
}
void insert(Database const& db, CommitStore::Snapshot const& s) {
  Statement(db, "INSERT OR REPLACE INTO snapshot VALUES (?, ?, ?)")
      .bind(clamped(s.number))
      .bind(s.bytes)
      .bind(sumOf(s))
      .step();
}
// The ends of the store: the last commit, and up to where commits were dropped.
struct Ends {
  U64 last = 0, dropped = 0;
  std::int64_t sum() const { return Sum().add(last).add(dropped).value(); }
};
void write(Database const& db, Ends const& ends) {
  Statement(db, "INSERT OR REPLACE INTO ends VALUES (1, ?, ?, ?)")
      .bind(clamped(ends.last))
      .bind(clamped(ends.dropped))
      .bind(ends.sum())
      .step();
}

// The number of the last commit, kept beside the file: SQLite reads a damaged write-ahead log only up to the damage,
// and reports nothing.
class Mark {
 public:
  explicit Mark(std::string file) : file_(std::move(file)) {}

  // Empty if there is none, or if it cannot be read.
  std::optional<U64> read() const {
    int const descriptor = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    U64 words[2] = {};
    ssize_t const got = ::pread(descriptor, words, sizeof words, 0);
    ::close(descriptor);
    if (got != sizeof words || words[1] != static_cast<U64>(Sum().add(words[0]).value())) return std::nullopt;
    return words[0];
  }
  // Not synchronised: its number may be lower than the store's, but never higher.
  void write(U64 last) const noexcept {
    int const descriptor = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) return;
    U64 const words[2] = {last, static_cast<U64>(Sum().add(last).value())};
    if (::pwrite(descriptor, words, sizeof words, 0) != sizeof words) (void)::ftruncate(descriptor, 0);
    ::close(descriptor);
  }

 private:
  std::string file_;
};

constexpr int readWrite = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;

}  // namespace

// --- The store ---

class SqliteStore::Impl {
 public:
  Impl(std::string const& file, SqliteOptions options)
      : options_(options), db_(file, readWrite), mark_(file + ".mark") {
    // One process has the file open at a time, so SQLite needs no shared-memory file.
    db_.run("PRAGMA locking_mode = EXCLUSIVE");
    db_.run("PRAGMA journal_mode = WAL");
    db_.run("PRAGMA synchronous = FULL");
    db_.run("PRAGMA cell_size_check = ON");
    makeTables();
    readEnds();
  }

  void append(CommitRecord const& record) {
    if (record.parent != ends_.last || record.number <= record.parent)
      throw StoreError(db_.file() + ": commit " + std::to_string(record.number) + " does not follow commit " +
                       std::to_string(ends_.last) + ", which is the last one");
    Ends const after{record.number, ends_.dropped};
    Transaction transaction(db_);
    insert(db_, record);
    write(db_, after);
    transaction.commit();
    ends_ = after;
    mark_.write(ends_.last);
  }

  std::vector<CommitRecord> read(U64 from) const {
    std::vector<CommitRecord> records;
    Statement rows(db_, (std::string(commitColumns) + "WHERE number >= ? ORDER BY number").c_str());
    rows.bind(clamped(from));
    // After commits were dropped up to a number, the parent of the next one is that number.
    std::optional<U64> parent;
    while (rows.step()) {
      CommitRecord record;
      bool const good = readRow(rows, record);
      if (!good) db_.damaged("commit " + std::to_string(record.number) + " is not as it was written");
      if (parent && record.parent != *parent) missing(*parent);
      if (!parent && from <= ends_.dropped + 1 && record.parent != ends_.dropped) missing(ends_.dropped);
      parent = record.number;
      records.push_back(std::move(record));
    }
    if (!records.empty() ? records.back().number != ends_.last : from <= ends_.last) missing(parent.value_or(from));
    return records;
  }

  void snapshot(Snapshot const& snapshot) {
    Ends after = ends_;
    Transaction transaction(db_);
    insert(db_, snapshot);
    if (options_.keep > 0) drop(after);
    write(db_, after);
    transaction.commit();
    ends_ = after;
  }

  std::optional<Snapshot> snapshotAt(U64 number) const {
    Statement row(db_, "SELECT number, bytes, sum FROM snapshot WHERE number <= ? ORDER BY number DESC LIMIT 1");
    row.bind(clamped(number));
    if (!row.step()) return std::nullopt;
    Snapshot snapshot;
    if (!readRow(row, snapshot))
      db_.damaged("snapshot " + std::to_string(snapshot.number) + " is not as it was written");
    return snapshot;
  }

  U64 last() const { return ends_.last; }
  Database const& database() const { return db_; }

 private:
  void makeTables() {
    std::int64_t const id = pragma("PRAGMA application_id"), version = pragma("PRAGMA user_version");
    bool const empty = pragma("SELECT count(*) FROM sqlite_master") == 0;
    if (empty && id == 0 && version == 0) {
      if (mark_.read().value_or(0) > 0) db_.damaged("it is empty, but there were commits in it");
      Transaction transaction(db_);
      db_.run(
          "CREATE TABLE record (number INTEGER PRIMARY KEY, parent INTEGER, time INTEGER, user BLOB, session BLOB, "
          "comment BLOB, kind INTEGER, differences BLOB, sum INTEGER)");
      db_.run("CREATE TABLE snapshot (number INTEGER PRIMARY KEY, bytes BLOB, sum INTEGER)");
      db_.run("CREATE TABLE ends (id INTEGER PRIMARY KEY, last INTEGER, dropped INTEGER, sum INTEGER)");
      write(db_, Ends());
      db_.run(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
      db_.run(("PRAGMA user_version = " + std::to_string(formatVersion)).c_str());
      transaction.commit();
      return;
    }
    if (id != applicationId) throw StoreError(db_.file() + ": is no store of commits");
    if (version != formatVersion)
      throw StoreError(db_.file() + ": is of version " + std::to_string(version) + ", which is not known here");
  }
  std::int64_t pragma(char const* sql) const {
    Statement row(db_, sql);
    return row.step() ? row.number(0) : 0;
  }

  void readEnds() {
    Statement row(db_, "SELECT last, dropped, sum FROM ends WHERE id = 1");
    if (!row.step()) db_.damaged("it does not say which commit is the last");
    ends_ = {static_cast<U64>(row.number(0)), static_cast<U64>(row.number(1))};
    if (row.number(2) != ends_.sum()) db_.damaged("what it says of its last commit is not as it was written");
    std::optional<U64> const mark = mark_.read();
    if (mark && *mark > ends_.last)
      db_.damaged("commits " + std::to_string(ends_.last + 1) + " to " + std::to_string(*mark) + " are missing");
    mark_.write(ends_.last);
  }

  [[noreturn]] void missing(U64 behind) const {
    db_.damaged("commits behind " + std::to_string(behind) + " are missing");
  }

  // Drops the commits and snapshots that are older than the snapshot from which the oldest kept commit is restored.
  void drop(Ends& ends) const {
    if (ends.last <= options_.keep) return;
    Statement oldest(db_, "SELECT max(number) FROM snapshot WHERE number <= ?");
    oldest.bind(clamped(ends.last - options_.keep));
    if (!oldest.step() || oldest.number(0) <= 0) return;
    std::int64_t const number = oldest.number(0);
    Statement(db_, "DELETE FROM snapshot WHERE number < ?").bind(number).step();
    Statement(db_, "DELETE FROM record WHERE number <= ?").bind(number).step();
    ends.dropped = std::max(ends.dropped, static_cast<U64>(number));
  }

  SqliteOptions options_;
  Database db_;
  Mark mark_;
  Ends ends_;
};

SqliteStore::SqliteStore(std::string file, SqliteOptions options) : impl_(std::make_unique<Impl>(file, options)) {}
SqliteStore::~SqliteStore() = default;

void SqliteStore::append(CommitRecord const& record) { impl_->append(record); }
std::vector<CommitRecord> SqliteStore::read(Kel::U64 from) { return impl_->read(from); }
void SqliteStore::snapshot(Snapshot const& snapshot) { impl_->snapshot(snapshot); }
std::optional<CommitStore::Snapshot> SqliteStore::snapshotAt(Kel::U64 number) { return impl_->snapshotAt(number); }
Kel::U64 SqliteStore::last() const { return impl_->last(); }

// --- Recovery ---

namespace {

struct Good {
  std::vector<CommitRecord> records;
  std::vector<CommitStore::Snapshot> snapshots;
  U64 known = 0;  // the highest number found anywhere
};

// The rows of a table that can be read. Each is looked up separately, so that a damaged row does not hide the others.
template <class Row>
void readGood(Database const& db, std::string const& sql, char const* table, std::vector<Row>& rows, U64& known) {
  std::int64_t from = std::numeric_limits<std::int64_t>::min();
  for (unsigned failures = 0; failures < 1000;) {
    try {
      Statement next(db, ("SELECT min(number) FROM " + std::string(table) + " WHERE number > ?").c_str());
      next.bind(from);
      if (!next.step() || next.number(0) <= from) return;
      from = next.number(0);
      known = std::max(known, static_cast<U64>(from));
      Statement one(db, (sql + "WHERE number = ?").c_str());
      one.bind(from);
      Row row;
      if (one.step() && readRow(one, row) && static_cast<std::int64_t>(row.number) == from)
        rows.push_back(std::move(row));
    } catch (StoreError const&) {
      ++failures;
      ++from;
    }
  }
}

Good readGood(std::string const& file) {
  Good good;
  good.known = Mark(file + ".mark").read().value_or(0);
  try {
    Database const db(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX);
    db.run("PRAGMA locking_mode = EXCLUSIVE");
    readGood(db, commitColumns, "record", good.records, good.known);
    readGood(db, "SELECT number, bytes, sum FROM snapshot ", "snapshot", good.snapshots, good.known);
  } catch (StoreError const&) {
    // Nothing of it can be read.
  }
  return good;
}

// The last commit that follows from a number on without a gap.
U64 reach(std::vector<CommitRecord> const& records, U64 from) {
  for (CommitRecord const& record : records)
    if (record.parent == from && record.number > from) from = record.number;
  return from;
}

// Reduces `good` to the last state that can be restored, and the records that it needs.
Good lastState(Good good) {
  U64 best = reach(good.records, 0);
  U64 start = 0;
  for (CommitStore::Snapshot const& snapshot : good.snapshots) {
    U64 const end = reach(good.records, snapshot.number);
    if (end < best || (end == best && start != 0)) continue;
    best = end;
    start = snapshot.number;
  }
  // The commits that lead up to the start without a gap are kept as history.
  U64 first = start;
  for (auto it = good.records.rbegin(); it != good.records.rend(); ++it)
    if (it->number == first && it->parent < first) first = it->parent;
  std::erase_if(good.records, [&](CommitRecord const& r) { return r.number <= first || r.number > best; });
  std::erase_if(good.snapshots, [&](CommitStore::Snapshot const& s) { return s.number < first || s.number > best; });
  return good;
}

void moveFiles(std::string const& from, std::string const& to) {
  for (char const* suffix : {"-wal", "-shm", ".mark", ""})
    if (::rename((from + suffix).c_str(), (to + suffix).c_str()) != 0 && errno != ENOENT)
      throw StoreError(from + suffix + ": cannot be moved: " + std::strerror(errno));
}

std::string unusedName(std::string const& file) {
  struct stat found;
  for (unsigned n = 1;; ++n) {
    std::string name = file + ".damaged-" + std::to_string(n);
    if (::stat(name.c_str(), &found) != 0) return name;
  }
}

}  // namespace

SqliteStore::Recovered SqliteStore::recover(std::string const& file) {
  struct stat found;
  if (::stat(file.c_str(), &found) != 0) throw StoreError(file + ": " + std::strerror(errno));
  Recovered recovered;
  recovered.damagedFile = unusedName(file);
  // Reading may write the log back into the file, so the file is read after it was moved aside.
  moveFiles(file, recovered.damagedFile);
  std::string const made = file + ".recovered";
  try {
    for (char const* suffix : {"", "-wal", ".mark"}) ::unlink((made + suffix).c_str());
    Good const good = lastState(readGood(recovered.damagedFile));
    {
      SqliteStore store(made);
      Database const& db = store.impl_->database();
      Transaction transaction(db);
      Ends ends;
      for (CommitRecord const& record : good.records) insert(db, record);
      for (Snapshot const& snapshot : good.snapshots) insert(db, snapshot);
      for (Snapshot const& snapshot : good.snapshots) ends.last = std::max(ends.last, snapshot.number);
      if (!good.records.empty()) {
        ends.last = std::max(ends.last, good.records.back().number);
        ends.dropped = good.records.front().parent;
      } else {
        ends.dropped = ends.last;
      }
      write(db, ends);
      transaction.commit();
      recovered.last = ends.last;
      recovered.commits = good.records.size();
      recovered.lost = static_cast<std::size_t>(good.known > ends.last ? good.known - ends.last : 0);
    }
    moveFiles(made, file);
    Mark(file + ".mark").write(recovered.last);
  } catch (...) {
    for (char const* suffix : {"", "-wal", ".mark"}) ::unlink((made + suffix).c_str());
    moveFiles(recovered.damagedFile, file);
    throw;
  }
  return recovered;
}

}  // namespace Cli::Service
