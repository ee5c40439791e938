#include "service/SqliteStore.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "Files.h"
#include "MessageOf.h"

namespace {

using namespace Cli::Service;
using Kel::U64;
using Snapshot = CommitStore::Snapshot;

// Files in memory where there are any: what a process leaves behind does not depend on how long a disk takes.
[[maybe_unused]] bool const inMemory = [] {
  char const* const dir = "/dev/shm";
  return ::access(dir, W_OK) == 0 && ::setenv("TMPDIR", dir, 0) == 0;
}();

// Everything of a commit follows from its number, so that any of them can be told to be whole.
CommitRecord commitNumber(U64 number) {
  std::mt19937 random(static_cast<unsigned>(number));
  CommitRecord record;
  record.number = number;
  record.parent = number - 1;
  record.time = static_cast<double>(number) / 3;
  record.user = "user" + std::to_string(number);
  record.session = std::string("s\0\xff", 3);
  record.comment = number % 2 ? "" : "why " + std::to_string(number);
  record.kind = static_cast<CommitKind>(number % 4);
  record.differences.resize(random() % 6000);
  for (char& c : record.differences) c = static_cast<char>(random());
  return record;
}
Snapshot snapshotNumber(U64 number) { return {number, commitNumber(number).differences + std::string(9000, 'x')}; }

bool same(CommitRecord const& a, CommitRecord const& b) {
  return a.number == b.number && a.parent == b.parent && a.time == b.time && a.user == b.user &&
         a.session == b.session && a.comment == b.comment && a.kind == b.kind && a.differences == b.differences;
}

constexpr U64 snapshotEvery = 7;
void appendOne(SqliteStore& store, U64 number) {
  store.append(commitNumber(number));
  if (number % snapshotEvery == 0) store.snapshot(snapshotNumber(number));
}
void fill(std::string const& file, U64 count) {
  SqliteStore store(file);
  for (U64 number = 1; number <= count; ++number) appendOne(store, number);
}

constexpr auto failure = [](auto const& call) { return Tests::messageOf<StoreError>(call); };

// Every commit up to the last is there and whole.
void expectWhole(SqliteStore& store, U64 last) {
  EXPECT_EQ(store.last(), last);
  std::vector<CommitRecord> const records = store.read(1);
  ASSERT_EQ(records.size(), last);
  for (U64 n = 1; n <= last; ++n) ASSERT_TRUE(same(records[n - 1], commitNumber(n))) << n;
  // Killed or full between a commit and its snapshot, there is an older one.
  auto const snapshot = store.snapshotAt(~U64(0));
  if (!snapshot) return;
  EXPECT_EQ(snapshot->bytes, snapshotNumber(snapshot->number).bytes);
  EXPECT_LE(snapshot->number, last);
}

TEST(SqliteStore, KeepsWhatItIsGiven) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.path() / "store";
  fill(file, 20);
  SqliteStore store(file);
  expectWhole(store, 20);
  EXPECT_EQ(store.read(19).size(), 2U);
  EXPECT_TRUE(store.read(21).empty());
  EXPECT_EQ(store.snapshotAt(13)->number, 7U);
  EXPECT_FALSE(store.snapshotAt(6));
  EXPECT_NE(failure([&] { store.append(commitNumber(20)); }).find("does not follow commit 20"), std::string::npos);
  EXPECT_NE(failure([&] { store.append(commitNumber(22)); }).find("does not follow"), std::string::npos);
  EXPECT_NE(failure([&] { SqliteStore second(file); }).find("another process"), std::string::npos);
  expectWhole(store, 20);
}

TEST(SqliteStore, IsForItsOwnerOnly) {
  Tests::TemporaryDir const dir;
  SqliteStore store(dir.path() / "store");
  appendOne(store, 1);
  for (auto const& file : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(file.status().permissions() & static_cast<std::filesystem::perms>(077), std::filesystem::perms::none)
        << file.path();
}

TEST(SqliteStore, KeepBoundsIt) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.path() / "store";
  std::uintmax_t early = 0;
  constexpr U64 keep = snapshotEvery + 1;  // the newest commits that a snapshot may leave are one too few
  {
    SqliteStore store(file, {keep});
    for (U64 n = 1; n <= 300; ++n) {
      appendOne(store, n);
      ASSERT_GE(store.read(1).size(), std::min<U64>(n, keep));
      if (n == 60) early = std::filesystem::file_size(file + "-wal") + std::filesystem::file_size(file);
    }
  }
  SqliteStore store(file, {keep});
  auto const records = store.read(1);
  ASSERT_GE(records.size(), keep);
  EXPECT_LE(records.size(), keep + 2 * snapshotEvery);
  EXPECT_EQ(records.back().number, 300U);
  EXPECT_TRUE(store.snapshotAt(records.front().number));
  EXPECT_LE(std::filesystem::file_size(file), 2 * early);
}

TEST(SqliteStore, RefusesOtherFiles) {
  Tests::TemporaryDir const dir;
  std::string const text = dir.write("text", std::string(5000, 'x')).string();
  EXPECT_NE(failure([&] { SqliteStore store(text); }).find("damaged"), std::string::npos);
  EXPECT_EQ(Tests::readFile(text), std::string(5000, 'x'));
  EXPECT_NE(failure([&] { SqliteStore store(dir.path() / "nowhere" / "x"); }).find("cannot be opened"),
            std::string::npos);
}

// A process appends commits and says each number when it has its answer.
pid_t appendInChild(std::string const& file, int answers) {
  pid_t const child = ::fork();
  if (child != 0) return child;
  try {
    SqliteStore store(file);
    for (U64 number = store.last() + 1;; ++number) {
      appendOne(store, number);
      if (::write(answers, &number, sizeof number) != sizeof number) ::_exit(1);
    }
  } catch (std::exception const&) {
    ::_exit(2);
  }
}

TEST(SqliteStore, LosesNothingWhenKilled) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.path() / "store";
  std::mt19937 random(1);
  U64 last = 0;
  unsigned further = 0, kills = 0;
  for (; kills < 300; ++kills) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    pid_t const child = appendInChild(file, ends[1]);
    ::close(ends[1]);
    // From before the file is open until some commits later.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % (kills % 2 ? 5000 : 25000)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child ended by itself: " << status;
    U64 answered = last, number = 0;
    while (::read(ends[0], &number, sizeof number) == sizeof number) answered = number;
    ::close(ends[0]);
    SqliteStore store(file);
    ASSERT_GE(store.last(), answered);
    ASSERT_LE(store.last(), answered + 1);
    further += store.last() > answered;
    last = store.last();
    if (last % 20 == 0 || kills > 290) expectWhole(store, last);
  }
  SqliteStore store(file);
  expectWhole(store, last);
  std::cout << kills << " kills in a stream of " << last << " commits, " << further << " caught before their answer\n";
  EXPECT_GT(last, kills);
}

// --- Damage ---

void copyStore(std::string const& from, std::string const& to) {
  for (char const* suffix : {"", "-wal", ".mark"}) {
    std::filesystem::remove(to + suffix);
    if (std::filesystem::exists(from + suffix)) std::filesystem::copy_file(from + suffix, to + suffix);
  }
}

// What a damaged store still gives: nothing, and a clear error; or everything.
void expectClearOrWhole(std::string const& file, U64 count, std::string const& how, unsigned& noticed) {
  bool whole = false;
  std::string const error = failure([&] {
    SqliteStore store(file);
    std::vector<CommitRecord> const records = store.read(1);
    for (CommitRecord const& record : records) ASSERT_TRUE(same(record, commitNumber(record.number))) << how;
    auto const snapshot = store.snapshotAt(~U64(0));
    ASSERT_TRUE(!snapshot || snapshot->bytes == snapshotNumber(snapshot->number).bytes) << how;
    ASSERT_EQ(records.size(), count) << how;
    whole = true;
  });
  if (whole) return;
  ++noticed;
  ASSERT_NE(error, "no exception") << how;
  EXPECT_EQ(error.substr(0, file.size()), file) << how;

  SqliteStore::Recovered const recovered = SqliteStore::recover(file);
  EXPECT_TRUE(std::filesystem::exists(recovered.damagedFile)) << how;
  SqliteStore store(file);
  EXPECT_EQ(store.last(), recovered.last) << how;
  std::vector<CommitRecord> const records = store.read(store.last() + 1);
  EXPECT_TRUE(records.empty());
  std::optional<Snapshot> const snapshot = store.snapshotAt(store.last());
  U64 at = snapshot ? snapshot->number : 0;
  EXPECT_TRUE(!snapshot || snapshot->bytes == snapshotNumber(at).bytes) << how;
  for (CommitRecord const& record : store.read(at + 1)) {
    EXPECT_TRUE(same(record, commitNumber(record.number))) << how;
    EXPECT_EQ(record.parent, at) << how;
    at = record.number;
  }
  EXPECT_EQ(at, store.last()) << how;
  appendOne(store, store.last() + 1);
  std::filesystem::remove(recovered.damagedFile);
}

TEST(SqliteStore, NoticesDamage) {
  Tests::TemporaryDir const dir;
  std::string const good = dir.path() / "good", file = dir.path() / "store", open = dir.path() / "open";
  constexpr U64 count = 40;
  fill(good, count);
  // A store with commits that are in the log only.
  {
    std::string const source = dir.path() / "source";
    SqliteStore store(source);
    for (U64 n = 1; n <= count; ++n) appendOne(store, n);
    copyStore(source, open);
  }
  std::mt19937 random(2);
  unsigned noticed = 0, files = 0;
  for (std::string const& from : {good, open}) {
    for (unsigned i = 0; i < 150; ++i, ++files) {
      copyStore(from, file);
      std::string const part = from == open && std::filesystem::file_size(from) < 8192 + i * 100 ? "-wal"
                               : i % 2 && from == open                                           ? "-wal"
                                                                                                 : "";
      std::uintmax_t const size = std::filesystem::file_size(file + part);
      std::uintmax_t const at = random() % size;
      bool const cut = i % 3 == 0;
      if (cut) {
        std::filesystem::resize_file(file + part, at);
      } else {
        std::fstream bytes(file + part, std::ios::in | std::ios::out | std::ios::binary);
        for (unsigned n = 1 + static_cast<unsigned>(random() % 8), k = 0; k < n; ++k) {
          bytes.seekg(static_cast<std::streamoff>((at + k) % size));
          char const byte = static_cast<char>(bytes.get() ^ static_cast<int>(1 + random() % 255));
          bytes.seekp(static_cast<std::streamoff>((at + k) % size));
          bytes.put(byte);
        }
      }
      expectClearOrWhole(file, count, (cut ? "cut at " : "flipped at ") + std::to_string(at) + " of " + part, noticed);
      if (testing::Test::HasFatalFailure() || testing::Test::HasNonfatalFailure()) return;
    }
  }
  // A file that is gone is damage, too.
  copyStore(good, file);
  std::filesystem::remove(file);
  EXPECT_NE(failure([&] { SqliteStore store(file); }).find("there were commits"), std::string::npos);
  std::cout << files << " damaged files, " << noticed << " of them refused, the rest whole\n";
  EXPECT_GT(noticed, files / 2);
}

// The file is whole for SQLite, but what it says of its last commit was changed.
TEST(SqliteStore, NoticesAChangedEnd) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.path() / "store";
  for (char const* change : {"UPDATE ends SET last = 9", "UPDATE ends SET dropped = 3"}) {
    std::filesystem::remove(file);
    std::filesystem::remove(file + ".mark");
    fill(file, 10);
    std::filesystem::remove(file + ".mark");
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, change, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    EXPECT_NE(failure([&] { SqliteStore store(file); }).find("damaged"), std::string::npos) << change;
    SqliteStore::recover(file);
    SqliteStore store(file);
    expectWhole(store, 10);
  }
}

// The largest size of a file stands for a disk that is full; afterwards there is room again.
TEST(SqliteStore, SurvivesAFullDisk) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.path() / "store";
  fill(file, 10);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  {
    SqliteStore store(file);
    U64 last = 10;
    for (rlim_t const room : std::initializer_list<rlim_t>{0, 1000, 5000, 20000, 60000}) {
      rlimit limit = before;
      limit.rlim_cur = std::filesystem::file_size(file) + room;
      ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
      std::string error;
      for (unsigned tries = 0; tries < 400 && (error = failure([&] { appendOne(store, last + 1); })) == "no exception";
           ++tries)
        last = store.last();
      last = store.last();
      ::setrlimit(RLIMIT_FSIZE, &before);
      EXPECT_NE(error, "no exception");
      EXPECT_EQ(error.substr(0, file.size()), file);
      expectWhole(store, last);
      appendOne(store, ++last);
      expectWhole(store, last);
    }
    EXPECT_GT(last, 15U);
  }
  SqliteStore store(file);
  expectWhole(store, store.last());
}

}  // namespace
