// Copies and comparisons of the ports configuration, through what a user goes through: an EntityCopy with the session
// handler, a copy root and an edit log.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "Harness.h"
#include "Kel/ChangeJournal.h"
#include "Manager.h"
#include "PortsData.h"

namespace Bench {
namespace {

// The trees, each a directory of its own, made when first asked for.
class Trees {
 public:
  Trees(Layout layout, std::size_t ports)
      : layout_(layout), ports_(ports), changes_(layout, ports), manager_(sessionRoots(layout)) {}

  Manager& manager() { return manager_; }
  ChangeSet const& changes() const { return changes_; }

  Kel::Dir& generated(Kel::Name const& name, bool variant) {
    if (!manager_.dir(name)) fillPorts(empty(name), layout_, ports_, variant ? &changes_ : nullptr);
    return *manager_.dir(name);
  }
  // A copy of another tree: it shares its strings.
  Kel::Dir& copyOf(Kel::Name const& name, Kel::Dir& src) {
    if (!manager_.dir(name)) copy(src, empty(name));
    return *manager_.dir(name);
  }
  Kel::Dir& empty(Kel::Name const& name) { return manager_.makeRoots(name); }
  void remove(Kel::Name const& name) { manager_.removeDir(name); }
  Kel::Dir::Ptr dir(Kel::Name const& name) { return manager_.dir(name); }
  bool same(Kel::Dir& a, Kel::Dir& b) { return samePorts(a, b, layout_); }

  void write(Kel::Dir& dir) { writePorts(dir, layout_); }
  void toggle(Kel::Dir& dir, std::size_t port) { togglePort(dir, layout_, port); }
  std::string edit(Kel::Dir& dir, std::size_t port, std::size_t serial) { return editPort(dir, layout_, port, serial); }

  AttributeEditLog::Ptr copy(Kel::Dir& src, Kel::Dir& dest, bool compare = false) {
    return manager_.copy(src, dest, compare);
  }

 private:
  Layout layout_;
  std::size_t ports_;
  ChangeSet changes_;
  Manager manager_;
};

// The edits that a log holds. Those of members are counted at their owner, where the count wraps: only for changes of
// values is this their exact number.
std::size_t edits(AttributeEditLog const& log) {
  std::size_t sum = 0;
  for (auto entry = log.attributeEditEntryIteratorConst(); entry; ++entry)
    for (auto path = entry->pathCounterIterator(); path; ++path) sum += path.value();
  return sum;
}

// With the journals, a copy between trees that a copy made equal walks nothing.
void walkAll() { Kel::ChangeJournal::enabledIs(false); }
void walkChanges() { Kel::ChangeJournal::enabledIs(true); }

void addOperations(Harness& harness, Trees& trees) {
  auto log = std::make_shared<AttributeEditLog::Ptr>();
  auto const dropLog = [log] { *log = nullptr; };
  auto const a = [&trees]() -> Kel::Dir& { return trees.generated("a", false); };
  auto const twin = [&trees]() -> Kel::Dir& { return trees.generated("twin", false); };
  auto const b = [&trees]() -> Kel::Dir& { return trees.generated("b", true); };
  auto const shared = [&trees, a]() -> Kel::Dir& { return trees.copyOf("shared", a()); };

  auto const full = [&](char const* name, std::function<void()> const& after) {
    harness.add(
        {name,
         [a] {
           walkAll();
           a();
         },
         [&trees, log, a, after] {
           *log = trees.copy(a(), trees.empty("dest"));
           if (after) after();
         },
         [&trees, dropLog] {
           trees.remove("dest");
           dropLog();
         },
         [&trees, log, a, after] { return trees.same(a(), *trees.dir("dest")) && (after || edits(**log) > 0); }});
  };
  full("copy_empty", {});
  full("copy_unlogged", dropLog);

  auto const noop = [&](char const* name, std::function<Kel::Dir&()> const& dest, bool compare) {
    harness.add({name,
                 [a, dest] {
                   walkAll();
                   a();
                   dest();
                 },
                 [&trees, log, a, dest, compare] { *log = trees.copy(a(), dest(), compare); }, dropLog,
                 [&trees, log, a, dest] { return trees.same(a(), dest()) && edits(**log) == 0; }});
  };
  noop("copy_noop", twin, false);
  noop("copy_noop_shared", shared, false);

  // Alternately to the variant and back, so that every repetition changes as many leaves.
  auto const changing = [&](char const* name, std::function<Kel::Dir&()> const& base,
                            std::function<Kel::Dir&()> const& variant, std::function<Kel::Dir&()> const& dest) {
    auto toVariant = std::make_shared<bool>(false);
    auto const src = [=]() -> Kel::Dir& { return *toVariant ? variant() : base(); };
    harness.add(
        {name,
         [=] {
           walkAll();
           base();
           variant();
           dest();
           *toVariant = !*toVariant;
         },
         [&trees, log, src, dest] { *log = trees.copy(src(), dest()); }, dropLog,
         [&trees, log, src, dest] { return trees.same(src(), dest()) && edits(**log) == trees.changes().edits(); }});
  };
  auto const work = [&trees]() -> Kel::Dir& { return trees.generated("work", false); };
  auto const sharedVariant = [&trees, a, b]() -> Kel::Dir& {
    // The variant as an edited copy: what it does not change it shares.
    bool const made = static_cast<bool>(trees.dir("sharedVariant"));
    Kel::Dir& variant = trees.copyOf("sharedVariant", a());
    if (!made) trees.copy(b(), variant);
    return variant;
  };
  auto const sharedWork = [&trees, a]() -> Kel::Dir& { return trees.copyOf("sharedWork", a()); };
  changing("copy_1pct", a, b, work);
  changing("copy_1pct_shared", a, sharedVariant, sharedWork);

  noop("equal", twin, true);
  noop("equal_shared", shared, true);

  harness.add(
      {"free", [&trees, a] { trees.copy(a(), trees.empty("dest")); }, [&trees] { trees.remove("dest"); }, {}, {}});
}

// --- Few edits between trees that a copy made equal ---

// Trees that stay equal but for the edits that `edit` makes.
class EditedTrees {
 public:
  EditedTrees(Trees& trees, std::size_t ports) : trees_(trees), ports_(ports) {}

  Kel::Dir& src() { return trees_.generated("edited", false); }
  Kel::Dir& dest() { return trees_.copyOf("editedCopy", src()); }

  // One port late in the walk, which a comparison reaches only when it has walked the most of it.
  void editOne() {
    std::size_t const late = std::max<std::size_t>(ports_ / 10, 1);
    expected_.clear();
    edit(ports_ - 1 - serial_ * 7919 % late);
  }
  // Deletes such a port, or makes the one that was deleted last again.
  void toggleOne() {
    std::size_t const late = std::max<std::size_t>(ports_ / 10, 1);
    trees_.toggle(src(), ports_ - 1 - serial_ / 2 * 7919 % late);
    ++serial_;
  }
  // That many ports, spread evenly.
  void editMany(std::size_t count) {
    expected_.clear();
    for (std::size_t i = 0; i < count; ++i) edit(i * ports_ / count);
    ++serial_;  // so that every port gets another kind of edit the next time
  }
  bool isExactly(AttributeEditLog const& log) const { return editsOf(log) == expected_; }

 private:
  void edit(std::size_t port) { ++expected_[trees_.edit(src(), port, serial_++)]; }

  Trees& trees_;
  std::size_t ports_;
  std::size_t serial_ = 0;
  std::map<std::string, unsigned> expected_;  // the edits since the last copy
};

void addEditOperations(Harness& harness, Trees& trees) {
  auto const edited = std::make_shared<EditedTrees>(trees, harness.n());
  auto const log = std::make_shared<AttributeEditLog::Ptr>();
  auto const dropLog = [log] { *log = nullptr; };
  auto const copy = [&trees, edited, log] { *log = trees.copy(edited->src(), edited->dest()); };
  auto const copied = [&trees, edited, log] {
    return edited->isExactly(**log) && trees.same(edited->src(), edited->dest());
  };

  harness.add({"copy_one",
               [edited] {
                 walkChanges();
                 edited->dest();
                 edited->editOne();
               },
               copy, dropLog, copied});
  harness.add({"copy_member",
               [edited] {
                 walkChanges();
                 edited->dest();
                 edited->toggleOne();
               },
               copy, dropLog,
               [&trees, edited, log] { return edits(**log) > 0 && trees.same(edited->src(), edited->dest()); }});
  harness.add({"copy_thousand",
               [edited, count = std::min<std::size_t>(harness.n(), 1000)] {
                 walkChanges();
                 edited->dest();
                 edited->editMany(count);
               },
               copy, dropLog, copied});
  harness.add({"equal_one",
               [edited] {
                 walkChanges();
                 edited->dest();
                 edited->editOne();
               },
               [&trees, edited, log] { *log = trees.copy(edited->src(), edited->dest(), true); },
               [copy, dropLog] {
                 copy();
                 dropLog();
               },
               // The comparison has changed nothing; the copy that follows makes the same edit.
               [&trees, edited, log, copy, copied] {
                 bool const found = edited->isExactly(**log) && !trees.same(edited->src(), edited->dest());
                 copy();
                 return found && copied();
               }});

  auto const write = [&](char const* name, std::function<void()> const& before) {
    harness.add({name,
                 [edited, before, copy, dropLog] {
                   walkChanges();
                   edited->dest();
                   copy();
                   dropLog();
                   before();
                 },
                 [&trees, edited] { trees.write(edited->src()); },
                 {},
                 {}});
  };
  write("write", [] {});
  write("write_unnoted", walkAll);

  Manager& manager = trees.manager();
  harness.add({"replace_one",
               [&manager, edited] {
                 walkChanges();
                 if (!manager.hasSession("s1")) {
                   manager.makeSession("s1");
                   manager.replace(edited->src(), "s1");
                 }
                 manager.sessionLog("s1").attributeEditEntryDelAll();
                 edited->editOne();
               },
               [&manager, edited] { manager.replace(edited->src(), "s1"); },
               {},
               [&manager, &trees, edited] {
                 return edited->isExactly(manager.sessionLog("s1")) &&
                        trees.same(edited->src(), manager.sessionDir("s1")) &&
                        trees.same(edited->src(), manager.ancestorDir("s1"));
               }});
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  using namespace Bench;
  Harness harness("libCliSession", {"bypass", "debug", "type-handler", "cross-roots"}, argc, argv);
  Trees trees(harness.with("cross-roots") ? Layout::crossRoots : Layout::oneRoot, harness.n());
  if (harness.with("bypass")) trees.manager().bypassDefaults();
  // Of a type that no tree here holds, so that it never matches.
  if (harness.with("debug"))
    trees.manager().debugIs(AttributeEdit("maxOpenSessions", "Cli::Session::CliConfig", AttributeEditType::set_));
  if (harness.with("type-handler")) trees.manager().handlerIs("Bench::Vlan");
  addOperations(harness, trees);
  addEditOperations(harness, trees);
  int const status = harness.main();
  std::fflush(stdout);
  _exit(status);  // the big trees need not be taken down
}
