#include "ScaleService.h"

#include "ScaleData.h"
#include "service/Difference.h"
#include "service/JsonTree.h"

namespace Bench {

namespace {

namespace Sv = Cli::Service;

std::vector<std::string> const paths{"first", "second"};

// Finds the differences between two trees, and checks how many these are.
Operation differences(std::size_t n, Fill const& from, Fill const& to, std::size_t count) {
  auto const manager = std::make_shared<Manager>(scaleRoots());
  from(manager->makeRoots("from"), n);
  to(manager->makeRoots("to"), n);
  auto const found = std::make_shared<std::vector<Sv::Difference>>();
  return {"",
          [=] { found->clear(); },
          [=] {
            *found = Sv::differences({manager->dir("from"), &paths}, {manager->dir("to"), &paths});
          },
          {},
          [=] { return found->size() == count; }};
}

// Calls a function with the items of a queue.
template <class Function>
void forRuns(std::size_t n, bool edited, Function const& function) {
  for (std::size_t i = 0; i < n; ++i) {
    bool const missing = edited && i % 16 == 4, more = edited && i % 16 == 12;
    if (more) function(static_cast<Kel::U32>(n + i));
    if (!missing) function(static_cast<Kel::U32>(i));
  }
}

Fill scatteredNumbers(bool edited) {
  return [edited](Kel::Dir& dir, std::size_t n) { forRuns(n, edited, [&](Kel::U32 i) { first(dir)->numberEnq(i); }); };
}

Fill scatteredJobs(bool edited) {
  return [edited](Kel::Dir& dir, std::size_t n) { forRuns(n, edited, [&](Kel::U32 i) { first(dir)->jobEnq(i); }); };
}

// The first n of 2 n entities are the keys, or the others.
Fill halfOfKeys(bool others) {
  return [others](Kel::Dir& dir, std::size_t n) {
    Scale& root = *first(dir);
    for (std::size_t i = 0; i < 2 * n; ++i) {
      Leaf::Ptr const leaf = root.newLeaf(Kel::Name("leaf" + std::to_string(i)));
      if ((i >= n) == others) root.lateKeyIs(leaf, true);
    }
  };
}

}  // namespace

Operation importDerived(std::size_t n) {
  auto const manager = std::make_shared<Manager>(scaleRoots());
  Sv::Json json = Sv::Json::array();
  for (std::size_t i = 0; i < n; ++i) json.push_back({{"$type", "Bench::Alarm"}, {"value", i}});
  auto const content = std::make_shared<Sv::Json>(std::move(json));
  auto const tasks = [=] { return first(*manager->dir("tree"))->tasks(); };
  return {"", [=] { manager->makeRoots("tree"); },
          [=] {
            Kel::Dir::Ptr const dir = manager->dir("tree");
            Sv::importJson(dir, Sv::parsePath(dir, "first.task"), *content);
          },
          [=] { manager->removeDir("tree"); }, [=] { return tasks() == n; }};
}

Operation differencesInQueue(std::size_t n) {
  return differences(n, scatteredNumbers(false), scatteredNumbers(true), n / 16 * 2);
}

Operation differencesInEntityQueue(std::size_t n) {
  return differences(n, scatteredJobs(false), scatteredJobs(true), n / 16 * 2);
}

Operation differencesOfPointerKeys(std::size_t n) { return differences(n, halfOfKeys(false), halfOfKeys(true), 2 * n); }

}  // namespace Bench
