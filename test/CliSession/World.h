// A tree with a source and a destination, two session roots in each, and what lies outside.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "CliSession/CliSession.h"
#include "CliSession/Tree.h"
#include "Kel/Dir.h"
#include "MessageOf.h"
#include "Plant.h"
#include "Zuk/Traces.h"

namespace Tests {

using Cli::Session::EntityCopy;

// Everything that a log counts, as `editsBetween` writes it.
inline Edits editsOf(Cli::Session::AttributeEditLog const& log) {
  Edits edits;
  for (auto it = log.attributeEditEntryIteratorConst(); it; ++it) {
    auto const& edit = it.key();
    for (auto path = it->pathCounterIterator(); path; ++path)
      edits[std::string(edit.attributeType().view()) + "::" + std::string(edit.attributeName().view()) + " " +
            std::string(stringValue(edit.editType()).view()) + " " + std::string(path.key().view())] = path.value();
  }
  return edits;
}
inline std::string textOf(Edits const& edits) {
  std::string text;
  for (auto const& [edit, count] : edits) text += edit + " x" + std::to_string(count) + "\n";
  return text;
}

// A run, and what it found out.
struct Outcome {
  Edits edits;
  bool stopped;      // a comparison found a difference
  Kel::U32 pending;  // pointers that still wait
};

// A handler that does what the test says, and what its base does where the test says nothing.
struct Scripted : Cli::Session::EntityCopyGlobalSessionHandler {
  using Visit = std::function<bool(Kel::Ptr<EntityCopy> const&, EntityPtr const&, EntityPtrConst const&, Kel::String)>;
  using Resolve = std::function<std::optional<Cli::Session::PtrTarget>()>;
  Visit visit;
  Resolve resolve;
  Scripted(Kel::Ptr<Cli::Session::Status> const& status, Visit what, Resolve where = {})
      : visit(std::move(what)), resolve(std::move(where)) {
    sessionStatusIs(status);
  }
  bool handleEntity(Kel::Ptr<EntityCopy> const& ec, EntityPtr const& dest, EntityPtrConst const& src,
                    Kel::String path) override {
    return visit ? visit(ec, dest, src, path) : EntityCopyGlobalSessionHandler::handleEntity(ec, dest, src, path);
  }
  Cli::Session::PtrTarget resolveEntityPtr(Kel::Ptr<EntityCopy> const& ec, EntityPtrConst const& target) override {
    auto const known = resolve ? resolve() : std::nullopt;
    return known ? *known : EntityCopyGlobalSessionHandler::resolveEntityPtr(ec, target);
  }
};

struct World {
  Kel::Dir::Ptr root = Kel::dirFactory("");
  Kel::Dir::Ptr src = Kel::Dir::Ptr(new Kel::Dir("src", root.ptr()));
  Kel::Dir::Ptr dest = Kel::Dir::Ptr(new Kel::Dir("dest", root.ptr()));
  Kel::Dir::Ptr outside = Kel::Dir::Ptr(new Kel::Dir("outside", root.ptr()));
  Cli::Session::Status::Ptr status = Cli::Session::statusFactory("status");
  Cli::Session::EntityCopyCustomHandlerTable::Ptr table;  // of the handlers of copies; null: none

  World() {
    status->initialize();
    for (char const* path : {"hall", "sys/annex"}) rootIs(path, "Plant::Hall");
    src->newEntity("Plant::Hall", "hall");
    Kel::Dir::Ptr(new Kel::Dir("sys", src.ptr()))->newEntity("Plant::Hall", "annex");
    status->doCreateSessionRoots(src, dest);
    outside->newEntity("Plant::Bolt", "stranger");
    outside->newEntity("Plant::Hall", "foreign");
    src->newEntity("Plant::Bolt", "loose");  // in the source, but below no session root
  }

  void rootIs(char const* path, char const* typeName) {
    Kel::Ptr<Zuk::PrefixTrieState> const state = Zuk::prefixTrieStateFactory();
    state->pTypenameIs(typeName);
    status->rootIs(path, true);
    status->rootTrie()->prefixIs(path, state);
  }
  // Makes another directory with empty session roots.
  Kel::Dir::Ptr dir(char const* name) {
    Kel::Dir::Ptr made(new Kel::Dir(name, root.ptr()));
    status->doCreateSessionRoots(src, made);
    return made;
  }
  static Kel::Ptr<Plant::Hall> hall(Kel::Dir::Ptr const& in, char const* path = "hall") {
    return Kel::ptrCast<Plant::Hall>(in->entity(path));
  }

  static bool inQueue(Kel::Entity const& e) {
    return e.parentAttr() && (e.parentAttr()->isQueue() || inQueue(*e.parent()));
  }
  // Fills both roots of a directory; pointers stay among them, what is outside, and the loose bolt.
  std::vector<Kel::Entity*> targets(Kel::Dir::Ptr const& in) const {
    std::vector<Kel::Entity*> all{outside->entityRef("stranger").ptr(), outside->entityRef("foreign").ptr(),
                                  src->entityRef("loose").ptr()};
    for (auto it = status->rootIterator(); it; ++it)
      for (Kel::Entity* e : entitiesOf(*in->entity(it.key())))
        // The members of a queue have other indices elsewhere: a path does not tell their counterparts.
        if (!inQueue(*e)) all.push_back(e);
    return all;
  }
  void fill(Kel::Dir::Ptr const& in, Generator& generator, int depth = 2) {
    for (auto it = status->rootIterator(); it; ++it) generator.fill(*in->entity(it.key()), depth);
    for (auto it = status->rootIterator(); it; ++it) generator.point(*in->entity(it.key()), targets(in));
  }
  void mutate(Kel::Dir::Ptr const& in, Generator& generator, int times) {
    for (int i = 0; i < times; ++i)
      for (auto it = status->rootIterator(); it; ++it) generator.mutate(*in->entity(it.key()), targets(in));
    for (auto it = status->rootIterator(); it; ++it) dropOrphans(*in->entity(it.key()));
  }
  // The session roots of a directory.
  Scope scope(Kel::Dir::Ptr const& in) const {
    Scope made{*in, {}};
    for (auto it = status->rootIterator(); it; ++it)
      if (EntityPtr const e = in->entity(it.key())) made.roots.push_back(e.ptr());
    return made;
  }
  std::string dump(Kel::Dir::Ptr const& in) const { return Tests::dump(scope(in)); }
  Edits edits(Kel::Dir::Ptr const& to, Kel::Dir::Ptr const& from, LeftOut const& leftOut = {}) const {
    Edits all;
    Scope const destScope = scope(to), srcScope = scope(from);
    for (auto it = status->rootIterator(); it; ++it)
      for (auto const& [edit, count] :
           editsBetween(*to->entity(it.key()), destScope, *from->entity(it.key()), srcScope, leftOut))
        all[edit] += count;
    return all;
  }

  Kel::Ptr<Scripted> scripted(Scripted::Visit const& visit) const {
    return Kel::Ptr<Scripted>(new Scripted(status, visit));
  }
  // Does something whenever it is asked where a pointer leads; a void function leaves the answer to the base.
  template <class Act>
  Kel::Ptr<Scripted> resolving(Act act) const {
    return Kel::Ptr<Scripted>(new Scripted(status, {}, [act]() mutable -> std::optional<Cli::Session::PtrTarget> {
      if constexpr (std::is_void_v<decltype(act())>)
        return act(), std::nullopt;
      else
        return act();
    }));
  }
  // Has copies give the entities of a path, or of a type, to a handler of their own.
  void handlerAt(char const* path, char const* typeName, Scripted::Visit const& visit) {
    if (!table) table = Cli::Session::entityCopyCustomHandlerTableFactory("table", root);
    table->registerCustomCopyHandler(Cli::Session::EntityPath(path), typeName, scripted(visit));
  }
  Kel::Ptr<Cli::Session::EntityCopyGlobalSessionHandler> handler() const {
    auto made = Cli::Session::entityCopyGlobalSessionHandlerFactory();
    made->sessionStatusIs(status);
    made->handlerTableIs(table);
    return made;
  }
  // A copy that has everything but its destination, whose setting runs it.
  EntityCopy::Ptr copyFrom(Kel::Dir::Ptr const& from, bool compare = false) const {
    EntityCopy::Ptr ec = Cli::Session::entityCopyFactory();
    ec->stopAtFirstDiffIs(compare);
    ec->handlerIs(handler());
    ec->attributeEditLogIs(Cli::Session::attributeEditLogFactory());
    for (auto it = status->rootIterator(); it; ++it)
      if (EntityPtrConst const srcRoot = Kel::Dir::PtrConst(from)->entity(it.key())) ec->srcCopyRootIs(srcRoot, true);
    ec->srcIs(from);
    return ec;
  }
  // A copy that walks no root: its operations are called one by one.
  EntityCopy::Ptr idleCopy(bool compare = false) const {
    EntityCopy::Ptr ec = copyFrom(src);
    ec->srcCopyRootDelAll();
    ec->destIs(dest);
    ec->stopAtFirstDiffIs(compare);
    return ec;
  }
  Outcome run(Kel::Dir::Ptr const& to, Kel::Dir::Ptr const& from, bool compare = false) const {
    EntityCopy::Ptr const ec = copyFrom(from, compare);
    ec->destIs(to);
    return {editsOf(*ec->attributeEditLog()), ec->stop(), ec->pendingAttrs()};
  }
  Outcome copy() const { return run(dest, src); }
  // Whether a comparison finds a difference.
  bool differs(Kel::Dir::Ptr const& to, Kel::Dir::Ptr const& from) const { return run(to, from, true).stopped; }
};

// While it lives the engine shows each step.
struct TracedRun : Traces {
  TracedRun() : Traces("EntityCopyUtils", 1u << 0) {}
};

// While it lives everything that a copy can trace is traced.
struct Tracing {
  Traces engine{"EntityCopy"}, utilities{"EntityCopyUtils"}, session{"CliSession"}, paths{"PathTrie"},
      prefixes{"PrefixTrie"};
};

// A reactor that calls back with every change.
struct Reactor : Kel::EntityNotifiee {
  std::function<void()> react;
  Reactor(EntityPtrConst const& e, std::function<void()> what) : react(std::move(what)) { bind(e); }
  void dispatch(Kel::AttributeId, void const*) override { react(); }
};

}  // namespace Tests
