// What a session costs on real configurations: files of the config_db form, loaded by the example's loader.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Harness.h"
#include "Kel/GenericIf.h"
#include "Manager.h"
#include "examples/config_db/Loader.h"

namespace Bench {
namespace {

// Counts the leaves of a tree: of the attributes that take part in copies, every value, pointer and owned entity that
// differs from what a new entity has there, and every member of a collection or queue.
class LeafCounter {
 public:
  std::size_t of(Kel::Entity::PtrConst const& entity) {
    Kel::GenericIf::PtrConst const gif = Kel::GenericIf::ofEntity(entity);
    std::size_t leaves = 0;
    for (Kel::KelAttr const* attr : entity->type()->attributeQ()) {
      if (!attr->copiable()) continue;
      if (attr->isCollection())
        leaves += ofMembers(*gif, *attr);
      else if (attr->instantiating())
        leaves += ofOwned(gif->attribute(attr->id()));
      else if (gif->attributeString(attr->id()) != fresh(*entity->type())->attributeString(attr->id()))
        ++leaves;
    }
    return leaves;
  }

 private:
  std::size_t ofOwned(Kel::GenericIf::PtrConst const& owned) { return owned ? 1 + of(owned->entityConst()) : 0; }

  std::size_t ofMembers(Kel::GenericIf const& owner, Kel::KelAttr const& attr) {
    if (!attr.instantiating()) return owner.attributeCount(attr.id());
    std::size_t leaves = 0;
    for (auto it = owner.attributeIteratorConst(attr.id()); it; ++it) leaves += ofOwned(it.obj());
    return leaves;
  }

  Kel::GenericIf::PtrConst fresh(Kel::KelType const& type) {
    Kel::GenericIf::PtrConst& made = fresh_[&type];
    if (!made) made = Kel::GenericIf::ofEntity(type.newDefault());
    return made;
  }

  std::map<Kel::KelType const*, Kel::GenericIf::PtrConst> fresh_;
};

std::vector<SessionRoot> configDbRoots() {
  std::vector<SessionRoot> roots;
  for (ConfigDb::SessionRoot const& root : ConfigDb::sessionRoots()) roots.push_back({root.path, root.typeName});
  return roots;
}

// One file, loaded as the running configuration.
class File {
 public:
  // Raises ConfigDb::LoadError.
  explicit File(std::string const& path) : manager_(configDbRoots()), running_(manager_.makeDir("running")) {
    ConfigDb::Report report;
    ConfigDb::loadConfigDb(path, Kel::Dir::Ptr(&running_), report);
    LeafCounter counter;
    for (SessionRoot const& root : configDbRoots()) leaves_ += counter.of(running_.entity(Kel::String(root.path)));
  }
  std::size_t leaves() const { return leaves_; }

  // A session is made: the configuration is copied to the session and to its ancestor.
  Operation open() {
    return {"open",
            [this] { manager_.makeSession(name_); },
            [this] { fill(); },
            {},
            [this] { return manager_.sessionLog(name_).attributeEditEntrys() > 0 && equal(); }};
  }
  // The same into a session that is equal already.
  Operation reopen() {
    return {"reopen",
            [this] {
              openOnce();
              manager_.sessionLog(name_).attributeEditEntryDelAll();
            },
            [this] { fill(); },
            {},
            [this] { return manager_.sessionLog(name_).attributeEditEntrys() == 0 && equal(); }};
  }
  // The session is compared with the running configuration, which equals it.
  Operation compare() {
    return {"compare",
            [this] { openOnce(); },
            [this] { log_ = manager_.copy(session(), running_, true); },
            {},
            [this] { return log_->attributeEditEntrys() == 0; }};
  }

 private:
  Kel::Dir& session() { return manager_.sessionDir(name_); }
  void fill() { manager_.replace(running_, name_); }
  void openOnce() {
    if (manager_.hasSession(name_)) return;
    manager_.makeSession(name_);
    fill();
  }
  bool equal() {
    return manager_.copy(running_, session(), true)->attributeEditEntrys() == 0 &&
           manager_.copy(running_, manager_.ancestorDir(name_), true)->attributeEditEntrys() == 0;
  }

  Kel::Name const name_ = "s1";
  Manager manager_;
  Kel::Dir& running_;
  std::size_t leaves_ = 0;
  AttributeEditLog::Ptr log_;
};

struct Options {
  std::vector<std::string> files;
  double budget = 0.5;
  std::size_t minReps = 3;
  std::string only;  // an operation's name; empty: all
};

// Prints one row; answers whether everything held.
bool report(std::string const& path, Options const& options) {
  std::string const name = path.substr(path.find_last_of('/') + 1);
  try {
    File file(path);
    std::printf("%-28s %7zu", name.c_str(), file.leaves());
    for (Operation const& operation : {file.open(), file.reopen(), file.compare()}) {
      if (!options.only.empty() && operation.name != options.only) continue;
      std::optional<Timing> const timing = measure(operation, options.budget, options.minReps);
      if (!timing) {
        std::printf(" FAILED: %s\n", operation.name.c_str());
        return false;
      }
      std::printf(" %9.1f", timing->cpuMedian / static_cast<double>(file.leaves()));
    }
    std::printf("\n");
    return true;
  } catch (ConfigDb::LoadError const& e) {
    std::printf("%-28s FAILED: %s\n", name.c_str(), e.what());
    return false;
  }
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  Bench::Options options;
  CLI::App app("Measures sessions on configuration files of the config_db form");
  app.add_option("FILE", options.files, "the files")->required();
  app.add_option("--budget", options.budget, "seconds an operation, at least");
  app.add_option("--minreps", options.minReps, "repetitions an operation, at least");
  app.add_option("--op", options.only, "one operation only")->check(CLI::IsMember({"open", "reopen", "compare"}));
  CLI11_PARSE(app, argc, argv);
  Bench::keepFreedMemory();
  if (options.only.empty())
    std::printf("%-28s %7s %9s %9s %9s\n", "ns a leaf", "leaves", "open", "reopen", "compare");
  else
    std::printf("%-28s %7s %9s\n", "ns a leaf", "leaves", options.only.c_str());
  bool good = true;
  for (std::string const& file : options.files) good &= Bench::report(file, options);
  std::fflush(stdout);
  _exit(good ? 0 : 1);
}
