// What a copy costs an element as there are more of them: where the figures of a row grow with the size, something is
// not linear. Every figure is measured in a process of its own, which a time limit ends.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Harness.h"
#include "Manager.h"
#include "ScaleData.h"
#include "ScaleService.h"

namespace Bench {
namespace {

// --- Operations on two trees ---

// A source and a destination.
struct Trees {
  explicit Trees(std::size_t size) : n(size) {}

  Kel::Dir& make(char const* name, Fill const& fill) {
    Kel::Dir& dir = manager.makeRoots(name);
    fill(dir, n);
    return dir;
  }
  Kel::Dir& src() { return *manager.dir("src"); }
  Kel::Dir& dest() { return *manager.dir("dest"); }

  std::size_t const n;
  Manager manager{scaleRoots()};
};

std::shared_ptr<Trees> treesOf(std::size_t n, Fill const& src) {
  auto trees = std::make_shared<Trees>(n);
  trees->make("src", src);
  return trees;
}

// The copy of one tree onto another, which is made anew for every repetition.
Operation copy(std::size_t n, Fill const& src, Fill const& dest) {
  auto const trees = treesOf(n, src);
  return {"", [=] { trees->make("dest", dest); }, [=] { trees->manager.copy(trees->src(), trees->dest()); },
          [=] { trees->manager.removeDir("dest"); }, [=] { return sameScale(trees->src(), trees->dest()); }};
}

void nothing(Kel::Dir&, std::size_t) {}

Operation copyToEmpty(std::size_t n, Fill const& src) { return copy(n, src, nothing); }

// The copy of a tree onto an equal one, or their comparison.
Operation equal(std::size_t n, Fill const& fill, bool compare) {
  auto const trees = treesOf(n, fill);
  trees->make("dest", fill);
  auto const log = std::make_shared<AttributeEditLog::Ptr>();
  return {"",
          {},
          [=] { *log = trees->manager.copy(trees->src(), trees->dest(), compare); },
          {},
          [=] { return (*log)->attributeEditEntrys() == 0 && sameScale(trees->src(), trees->dest()); }};
}

// --- Reactors ---

struct CountsCalls : Leaf::Notifiee {
  explicit CountsCalls(std::size_t& count) : count_(count) {}
  void onValue() override { ++count_; }

 private:
  std::size_t& count_;
};

// The destination's entities all have a reactor. With `changed`, every value is copied and every reactor called.
Operation reactors(std::size_t n, bool changed) {
  auto const trees = treesOf(n, members(Members::hashed));
  trees->make("dest", members(Members::hashed));
  auto const calls = std::make_shared<std::size_t>(0);
  auto const all = std::make_shared<std::vector<Kel::Ptr<CountsCalls>>>();
  for (auto it = first(trees->dest())->leafIterator(); it; ++it) {
    all->emplace_back(new CountsCalls(*calls));
    all->back()->notifierIs(Leaf::Ptr(&*it));
  }
  return {"",
          [=] {
            *calls = 0;
            if (!changed) return;
            for (auto it = first(trees->src())->leafIterator(); it; ++it) it->valueIs(it->value() + 1);
          },
          [=] { trees->manager.copy(trees->src(), trees->dest()); }, [all] {},
          [=] { return *calls == (changed ? n : 0) && sameScale(trees->src(), trees->dest()); }};
}

// --- Many session roots ---

std::string rootName(std::size_t i) { return "root" + std::to_string(i); }

struct Trie {
  std::size_t n;
  Zuk::PrefixTrie::Ptr trie;

  void make() { trie = Zuk::prefixTrieFactory("roots"); }
  void insert() const {
    for (std::size_t i = 0; i < n; ++i) trie->prefixIs(rootName(i), Zuk::prefixTrieStateFactory());
  }
  void remove() const {
    for (std::size_t i = 0; i < n; ++i) trie->prefixDel(rootName(i));
  }
  std::size_t found() const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < n; ++i)
      count += trie->enclosingPrefix(rootName(i) + ".port/Ethernet1") == std::string_view(rootName(i)) ? 1 : 0;
    return count;
  }
};

Operation trieInsert(std::size_t n) {
  auto const t = std::make_shared<Trie>(Trie{n, {}});
  return {"", [t] { t->make(); }, [t] { t->insert(); }, {}, [t] { return t->found() == t->n; }};
}
Operation trieFind(std::size_t n) {
  auto const t = std::make_shared<Trie>(Trie{n, {}});
  t->make();
  t->insert();
  auto const found = std::make_shared<std::size_t>(0);
  return {"", {}, [=] { *found = t->found(); }, {}, [=] { return *found == n; }};
}
Operation trieRemove(std::size_t n) {
  auto const t = std::make_shared<Trie>(Trie{n, {}});
  return {"",
          [t] {
            t->make();
            t->insert();
          },
          [t] { t->remove(); },
          {},
          [t] { return t->trie->empty(); }};
}

struct ManyRoots {
  explicit ManyRoots(std::size_t n) : manager(roots(n)) { manager.makeRoots("src"); }
  static std::vector<SessionRoot> roots(std::size_t n) {
    std::vector<SessionRoot> all;
    for (std::size_t i = 0; i < n; ++i) all.push_back({rootName(i), "Bench::Leaf"});
    return all;
  }
  Kel::Dir& src() { return *manager.dir("src"); }
  Manager manager;
};

// A session on n roots is filled, or filled once more.
Operation replace(std::size_t n, bool again) {
  auto const many = std::make_shared<ManyRoots>(n);
  return {"",
          [=] {
            many->manager.makeSession("s1");
            if (again) many->manager.replace(many->src(), "s1");
          },
          [=] { many->manager.replace(many->src(), "s1"); },
          {},
          [=] { return many->manager.sessionDir("s1").entryStates() == n; }};
}

// --- All of them ---

struct Scenario {
  char const* name;
  std::function<Operation(std::size_t n)> make;
};

std::vector<Scenario> const& scenarios() {
  using enum Members;
  auto const empty = [](Fill const& src) { return [=](std::size_t n) { return copyToEmpty(n, src); }; };
  auto const noop = [](Fill const& fill) { return [=](std::size_t n) { return equal(n, fill, false); }; };
  auto const compare = [](Fill const& fill) { return [=](std::size_t n) { return equal(n, fill, true); }; };
  auto const onto = [](Fill const& src, Fill const& dest) { return [=](std::size_t n) { return copy(n, src, dest); }; };
  static std::vector<Scenario> const all{
      {"references_copy", empty(references)},
      {"references_noop", noop(references)},
      {"references_equal", compare(references)},
      {"references_across_copy", empty(referencesAcross)},
      {"references_across_noop", noop(referencesAcross)},
      {"references_across_equal", compare(referencesAcross)},
      {"deferred_copy", empty(earlyReferences)},
      {"deferred_noop", noop(earlyReferences)},
      {"deferred_equal", compare(earlyReferences)},
      {"deferred_across_copy", empty(earlyReferencesAcross)},
      {"deferred_across_noop", noop(earlyReferencesAcross)},
      {"pointers_copy", empty(pointersByKey(false))},
      {"pointers_noop", noop(pointersByKey(false))},
      {"pointers_equal", compare(pointersByKey(false))},
      {"pointers_deferred_copy", empty(pointersByKey(true))},
      {"pointers_deferred_noop", noop(pointersByKey(true))},
      {"pointer_keys_copy", empty(pointerKeys(false))},
      {"pointer_keys_noop", noop(pointerKeys(false))},
      {"pointer_keys_equal", compare(pointerKeys(false))},
      {"pointer_keys_deferred_copy", empty(pointerKeys(true))},
      {"pointer_keys_deferred_noop", noop(pointerKeys(true))},
      {"queue_values_edited", onto(numbers(true), numbers(false))},
      {"queue_values_equal", compare(numbers(false))},
      {"queue_entities_edited", onto(jobs(true), jobs(false))},
      {"queue_entities_equal", compare(jobs(false))},
      {"members_half_replaced", onto(members(hashed, 2), members(hashed))},
      {"members_all_new", onto(members(hashed, 1), members(hashed))},
      {"sorted_half_replaced", onto(members(sorted, 2), members(sorted))},
      {"sorted_all_new", onto(members(sorted, 1), members(sorted))},
      {"sorted_equal", compare(members(sorted))},
      {"values_half_replaced", onto(members(values, 2), members(values))},
      {"values_all_new", onto(members(values, 1), members(values))},
      {"values_equal", compare(members(values))},
      {"subtree_deleted", onto(group(false), group(true))},
      {"reactors_changed", [](std::size_t n) { return reactors(n, true); }},
      {"reactors_noop", [](std::size_t n) { return reactors(n, false); }},
      {"trie_insert", trieInsert},
      {"trie_find", trieFind},
      {"trie_remove", trieRemove},
      {"roots_open", [](std::size_t n) { return replace(n, false); }},
      {"roots_again", [](std::size_t n) { return replace(n, true); }},
#ifdef BENCH_SERVICE
      {"import_derived", importDerived},
      {"differences_queue_values", differencesInQueue},
      {"differences_queue_entities", differencesInEntityQueue},
      {"differences_pointer_keys", differencesOfPointerKeys},
#endif
  };
  return all;
}

// --- Measuring ---

struct Settings {
  std::vector<std::size_t> sizes{10000, 100000};
  std::vector<std::string> only;
  unsigned limit = 60;
  double budget = 0.2;
};

// One figure, by a child process: ns of processor time an element; empty when the time is up. Raises runtime_error when
// the check failed.
std::optional<double> measureApart(Scenario const& scenario, std::size_t n, Settings const& settings) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  std::fflush(stdout);
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    alarm(settings.limit);
    keepFreedMemory();
    std::optional<Timing> const timing = measure(scenario.make(n), settings.budget, 1);
    double const median = timing ? timing->cpuMedian / static_cast<double>(n) : -1;
    bool const told = write(ends[1], &median, sizeof median) == sizeof median;
    _exit(told ? 0 : 1);
  }
  close(ends[1]);
  double median = 0;
  bool const told = read(ends[0], &median, sizeof median) == sizeof median;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!told && WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) return std::nullopt;
  if (!told || median < 0) throw std::runtime_error("the check failed");
  return median;
}

// Prints one row; answers whether all checks held.
bool report(Scenario const& scenario, Settings const& settings) {
  std::printf("%-28s", scenario.name);
  std::optional<double> begin;
  for (std::size_t const n : settings.sizes) {
    std::optional<double> figure;
    try {
      figure = measureApart(scenario, n, settings);
    } catch (std::runtime_error const& e) {
      std::printf(" FAILED: %s\n", e.what());
      return false;
    }
    if (!figure) {
      std::printf("  more than %u s", settings.limit);
      break;
    }
    std::printf(" %12.1f", *figure);
    if (begin)
      std::printf(" (x %.1f)", *figure / *begin);
    else
      begin = figure;
    std::fflush(stdout);
  }
  std::printf("\n");
  std::fflush(stdout);
  return true;
}

int run(Settings const& settings) {
  std::printf("%-28s", "ns an element, n =");
  for (std::size_t const n : settings.sizes) std::printf(" %12zu", n);
  std::printf("\n");
  bool good = true;
  for (Scenario const& scenario : scenarios()) {
    auto const& only = settings.only;
    if (only.empty() || std::find(only.begin(), only.end(), scenario.name) != only.end())
      good &= report(scenario, settings);
  }
  return good ? 0 : 1;
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  Bench::Settings settings;
  std::vector<std::string> names;
  for (Bench::Scenario const& scenario : Bench::scenarios()) names.emplace_back(scenario.name);
  bool list = false;
  CLI::App app("Measures what copies cost an element at growing sizes");
  app.add_option("--n", settings.sizes, "the sizes")->delimiter(',');
  app.add_option("--op", settings.only, "only these operations")->delimiter(',')->check(CLI::IsMember(names));
  app.add_option("--limit", settings.limit, "seconds after which a measurement is given up, set-up included");
  app.add_option("--budget", settings.budget, "seconds of repetitions, at least");
  app.add_flag("--list", list, "the names of the operations");
  CLI11_PARSE(app, argc, argv);
  if (!list) return Bench::run(settings);
  for (std::string const& name : names) std::printf("%s\n", name.c_str());
  return 0;
}
