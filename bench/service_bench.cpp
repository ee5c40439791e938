// What the service takes for N ports: differences, conflicts, commits, updates and a start from a store.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Harness.h"
#include "Manager.h"
#include "PortsData.h"
#include "service/Service.h"
#include "service/SqliteStore.h"

namespace Bench {

namespace {

namespace Sv = Cli::Service;

constexpr Layout layout = Layout::oneRoot;

// Makes stores: in memory, or files in a directory of their own.
class Stores {
 public:
  explicit Stores(bool onDisk) {
    if (!onDisk) return;
    dir_ = (std::filesystem::temp_directory_path() / "service_bench.XXXXXX").string();
    if (!::mkdtemp(dir_.data())) throw std::runtime_error("no temporary directory: " + dir_);
  }
  ~Stores() {
    kept_.clear();
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  Stores(Stores const&) = delete;
  Stores& operator=(Stores const&) = delete;

  Sv::CommitStore* make() {
    if (dir_.empty())
      kept_.push_back(std::make_unique<Sv::MemoryStore>());
    else
      kept_.push_back(std::make_unique<Sv::SqliteStore>(dir_ + "/" + std::to_string(kept_.size())));
    return kept_.back().get();
  }

 private:
  std::string dir_;
  std::vector<std::unique_ptr<Sv::CommitStore>> kept_;
};

// A service whose running configuration has N ports.
class Device {
 public:
  Device(std::size_t ports, Sv::CommitStore* store, bool starts = false) : ports_(ports) {
    top_ = Kel::dirFactory("");
    running_ = Kel::Dir::Ptr(new Kel::Dir("running", top_.ptr()));
    running_->newEntity("Bench::Ports", "ports");
    fillPorts(*running_, layout, ports, nullptr);
    Sv::Options options;
    options.store = store;
    service_ = std::make_unique<Sv::Service>(running_, std::vector<Sv::SessionRoot>{{"ports", "Bench::Ports"}},
                                             std::move(options));
    service_->tunables().maxOpenSessionsIs(20);
    if (starts) service_->start();
  }
  Sv::Service& service() { return *service_; }
  Sv::Session& session(std::string const& name) {
    Sv::Session* const found = service_->session(name);
    return found ? *found : service_->open(name, "bench");
  }
  // Sets the MTU of so many ports, spread over all.
  void edit(Sv::Session& session, std::size_t count, std::size_t offset = 0) {
    auto const ports = Kel::ptrCast<Ports>(session.tree().dir->entityRef("ports"));
    std::size_t const stride = std::max<std::size_t>(1, ports_ / count);
    ++serial_;
    std::size_t at = 0, done = 0;
    for (auto it = ports->portIterator(); it && done < count; ++it, ++at)
      if (at % stride == offset % stride) {
        it->mtuIs(static_cast<Kel::U32>(10000 + serial_));
        ++done;
      }
  }
  Kel::Dir::Ptr const& running() const { return running_; }

 private:
  std::size_t ports_, serial_ = 0;
  Kel::Dir::Ptr top_, running_;
  std::unique_ptr<Sv::Service> service_;
};

std::vector<std::string> const roots{"ports"};

void addDifferences(Harness& harness) {
  struct Pair {
    Manager manager{sessionRoots(layout)};
    std::vector<Sv::Difference> found;
    std::size_t edits = 0;
  };
  auto const pair = std::make_shared<std::unique_ptr<Pair>>();
  auto const prepare = [pair, n = harness.n()] {
    if (*pair) return;
    *pair = std::make_unique<Pair>();
    ChangeSet const changes(layout, n);
    (*pair)->edits = changes.edits();
    fillPorts((*pair)->manager.makeRoots("before"), layout, n, nullptr);
    fillPorts((*pair)->manager.makeRoots("after"), layout, n, &changes);
  };
  harness.add({"differences_1pct",
               prepare,
               [pair] {
                 Manager& m = (*pair)->manager;
                 (*pair)->found = Sv::differences({m.dir("before"), &roots}, {m.dir("after"), &roots});
               },
               {},
               [pair] { return (*pair)->found.size() == (*pair)->edits; }});
  // What the engine takes to carry the same change out.
  harness.add({"engine_copy_1pct",
               [pair, prepare, n = harness.n()] {
                 prepare();
                 (*pair)->manager.removeDir("copy");
                 fillPorts((*pair)->manager.makeRoots("copy"), layout, n, nullptr);
               },
               [pair] { (*pair)->manager.copy(*(*pair)->manager.dir("after"), *(*pair)->manager.dir("copy")); },
               {},
               {}});
}

using Shared = std::shared_ptr<std::unique_ptr<Device>>;

void addCommits(Harness& harness, Shared const& device, std::function<void()> const& make) {
  for (std::size_t count : {std::size_t(1), std::size_t(100), std::size_t(10000)}) {
    if (count > harness.n()) continue;
    auto const result = std::make_shared<Sv::CommitResult>();
    harness.add({"commit_" + std::to_string(count),
                 [=] {
                   make();
                   Sv::Session& s = (*device)->session("s");
                   s.update(Sv::UpdateMode::preferRunning);
                   (*device)->edit(s, count);
                 },
                 [=] { *result = (*device)->session("s").commit(); },
                 {},
                 [=] { return result->differences.size() == count; }});
    auto const found = std::make_shared<std::vector<Sv::Difference>>();
    harness.add({"differences_" + std::to_string(count),
                 [=] {
                   make();
                   Sv::Session& s = (*device)->session("s");
                   s.update(Sv::UpdateMode::preferRunning);
                   s.discard();
                   (*device)->edit(s, count);
                 },
                 [=] { *found = (*device)->session("s").differences(); },
                 {},
                 [=] { return found->size() == count; }});
  }
}

void addConflicts(Harness& harness, Shared const& device, std::function<void()> const& make) {
  for (std::size_t count : {std::size_t(1), std::size_t(100)}) {
    if (count > harness.n()) continue;
    auto const prepare = [=] {
      make();
      Sv::Session &s = (*device)->session("s"), &other = (*device)->session("other");
      s.update(Sv::UpdateMode::preferRunning);
      s.discard();
      other.update(Sv::UpdateMode::preferRunning);
      (*device)->edit(other, count);
      other.commit();
      (*device)->edit(s, count);
    };
    auto const found = std::make_shared<std::size_t>(0);
    harness.add({"conflicts_" + std::to_string(count),
                 prepare,
                 [=] { *found = (*device)->session("s").conflicts().size(); },
                 {},
                 [=] { return *found == count; }});
    harness.add({"update_" + std::to_string(count),
                 prepare,
                 [=] { (*device)->session("s").update(Sv::UpdateMode::preferRunning); },
                 {},
                 [=] { return (*device)->session("s").differences().empty(); }});
  }
}

// Ten sessions follow a commit of another: 20 more trees.
void addSessions(Harness& harness, Shared const& device, std::function<void()> const& make) {
  harness.add({"update_10_sessions",
               [=] {
                 make();
                 for (int n = 0; n < 10; ++n) (*device)->session("open" + std::to_string(n));
                 Sv::Session& other = (*device)->session("other");
                 other.update(Sv::UpdateMode::preferRunning);
                 (*device)->edit(other, 1);
                 other.commit();
               },
               [=] {
                 for (int n = 0; n < 10; ++n) (*device)->session("open" + std::to_string(n)).update();
               },
               {},
               {}});
}

// The first commit of a session, and the one behind a snapshot.
void addFirst(Harness& harness, Stores& stores) {
  auto const device = std::make_shared<std::unique_ptr<Device>>();
  auto const result = std::make_shared<Sv::CommitResult>();
  auto const commit = [=] { *result = (*device)->session("s").commit(); };
  auto const committed = [=] { return result->differences.size() == 1; };
  harness.add({"commit_first",
               [=, &stores, n = harness.n()] {
                 device->reset();
                 *device = std::make_unique<Device>(n, stores.make());
                 (*device)->edit((*device)->session("s"), 1);
               },
               commit,
               {},
               committed});
  harness.add({"commit_after_snapshot",
               [=, &stores, n = harness.n()] {
                 if (!*device) *device = std::make_unique<Device>(n, stores.make());
                 Sv::Session& s = (*device)->session("s");
                 for (int i = 0; i < 100; ++i) {
                   (*device)->edit(s, 1);
                   s.commit();
                 }
                 (*device)->service().poll();
                 (*device)->edit(s, 1);
               },
               commit, [=] { (*device)->session("s").commit(); }, committed});
}

// What the store alone takes to put one commit of one edit on the disk.
void addAppend(Harness& harness, Stores& stores) {
  auto const store = std::make_shared<Sv::CommitStore*>(nullptr);
  auto const record = std::make_shared<Sv::CommitRecord>();
  harness.add({"append_1",
               [=, &stores] {
                 if (!*store) *store = stores.make();
                 record->parent = record->number++;
                 record->differences.assign(200, 'x');
               },
               [=] { (*store)->append(*record); },
               {},
               {}});
}

void addStart(Harness& harness, Stores& stores) {
  auto const store = std::make_shared<Sv::CommitStore*>(nullptr);
  auto const started = std::make_shared<std::unique_ptr<Device>>();
  harness.add({"start_1000_commits",
               [=, &stores, n = harness.n()] {
                 started->reset();
                 if (*store) return;
                 *store = stores.make();
                 Device first(n, *store);
                 for (int commit = 0; commit < 1000; ++commit) {
                   first.edit(first.session("s"), 1, static_cast<std::size_t>(commit));
                   first.session("s").commit();
                   if (commit < 950) first.service().poll();  // snapshots
                 }
               },
               [=, n = harness.n()] { *started = std::make_unique<Device>(n, *store, true); },
               {},
               [=] { return (*started)->service().lastCommit() == 1000; }});
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  using namespace Bench;
  keepFreedMemory();
  Harness harness("service", {"disk"}, argc, argv);
  auto* const stores = new Stores(harness.with("disk"));
  auto const device = std::make_shared<std::unique_ptr<Device>>();
  auto const make = [device, stores, n = harness.n()] {
    if (!*device) *device = std::make_unique<Device>(n, stores->make());
  };
  addDifferences(harness);
  addAppend(harness, *stores);
  addFirst(harness, *stores);
  addCommits(harness, device, make);
  addConflicts(harness, device, make);
  addSessions(harness, device, make);
  addStart(harness, *stores);
  int const status = harness.main();
  std::fflush(stdout);
  delete stores;
  _exit(status);  // the big trees need not be taken down
}
