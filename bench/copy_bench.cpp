// Copies and comparisons of the ports configuration, through what a user goes through: an EntityCopy with the session
// handler, a copy root and an edit log.
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "CliSession/CliSession.h"
#include "Harness.h"
#include "PortsData.h"

namespace Bench {
namespace {

using namespace Cli::Session;

// The trees, each a directory with the session root "ports" in it, made when first asked for.
class Trees {
 public:
  explicit Trees(std::size_t ports) : ports_(ports), changes_(ports) {
    status_->initialize();
    status_->rootIs("ports", true);
    Zuk::PrefixTrieState::Ptr const state = Zuk::prefixTrieStateFactory();
    state->pTypenameIs("Bench::Ports");
    status_->rootTrie()->prefixIs("ports", state);
  }

  ChangeSet const& changes() const { return changes_; }

  Kel::Dir& generated(Kel::Name const& name, bool variant) {
    if (!top_->entry(name)) fillPorts(*root(empty(name)), ports_, variant ? &changes_ : nullptr);
    return *dir(name);
  }
  // A copy of another tree: it shares its strings.
  Kel::Dir& copyOf(Kel::Name const& name, Kel::Dir& src) {
    if (!top_->entry(name)) copy(src, empty(name));
    return *dir(name);
  }
  Kel::Dir& empty(Kel::Name const& name) {
    top_->entryDel(name);
    Kel::Dir::Ptr const made(new Kel::Dir(name, top_.ptr()));
    made->newEntity("Bench::Ports", "ports");
    return *made;
  }
  void remove(Kel::Name const& name) { top_->entryDel(name); }
  Kel::Dir::Ptr dir(Kel::Name const& name) { return Kel::ptrCast<Kel::Dir>(top_->entityRef(name)); }
  Ports::Ptr root(Kel::Dir& of) { return Kel::ptrCast<Ports>(of.entityRef("ports")); }
  bool same(Kel::Dir& a, Kel::Dir& b) { return samePorts(*root(a), *root(b)); }

  // One run; answers the log.
  AttributeEditLog::Ptr copy(Kel::Dir& src, Kel::Dir& dest, bool compare = false) {
    EntityCopy::Ptr const ec = entityCopyFactory();
    EntityCopyGlobalSessionHandler::Ptr const handler = entityCopyGlobalSessionHandlerFactory();
    handler->sessionStatusIs(status_);
    ec->handlerIs(handler);
    ec->attributeEditLogIs(attributeEditLogFactory());
    ec->stopAtFirstDiffIs(compare);
    ec->srcCopyRootIs(root(src), true);
    ec->srcIs(Kel::Dir::Ptr(&src));
    ec->destIs(Kel::Dir::Ptr(&dest));
    return ec->attributeEditLog();
  }

 private:
  std::size_t ports_;
  ChangeSet changes_;
  Kel::Dir::Ptr top_ = Kel::dirFactory("");
  Status::Ptr status_ = statusFactory("status");
};

// The edits that a log holds. Those of members are counted at their owner, where the count wraps: only for changes of
// values is this their exact number.
std::size_t edits(AttributeEditLog const& log) {
  std::size_t sum = 0;
  for (auto entry = log.attributeEditEntryIteratorConst(); entry; ++entry)
    for (auto path = entry->pathCounterIterator(); path; ++path) sum += path.value();
  return sum;
}

void addOperations(Harness& harness, Trees& trees) {
  auto log = std::make_shared<AttributeEditLog::Ptr>();
  auto const dropLog = [log] { *log = nullptr; };
  auto const a = [&trees]() -> Kel::Dir& { return trees.generated("a", false); };
  auto const twin = [&trees]() -> Kel::Dir& { return trees.generated("twin", false); };
  auto const b = [&trees]() -> Kel::Dir& { return trees.generated("b", true); };
  auto const shared = [&trees, a]() -> Kel::Dir& { return trees.copyOf("shared", a()); };

  harness.add({"copy_empty", [a] { a(); }, [&trees, log, a] { *log = trees.copy(a(), trees.empty("dest")); },
               [&trees, dropLog] {
                 trees.remove("dest");
                 dropLog();
               },
               [&trees, log, a] { return trees.same(a(), *trees.dir("dest")) && edits(**log) > 0; }});

  auto const noop = [&](char const* name, std::function<Kel::Dir&()> const& dest, bool compare) {
    harness.add({name,
                 [a, dest] {
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
           base();
           variant();
           dest();
           *toVariant = !*toVariant;
         },
         [&trees, log, src, dest] { *log = trees.copy(src(), dest()); }, dropLog,
         [&trees, log, src, dest] { return trees.same(src(), dest()) && edits(**log) == trees.changes().size(); }});
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

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  Bench::Harness harness("libCliSession", argc, argv);
  Bench::Trees trees(harness.n());
  Bench::addOperations(harness, trees);
  int const status = harness.main();
  std::fflush(stdout);
  _exit(status);  // the big trees need not be taken down
}
