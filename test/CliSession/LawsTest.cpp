// What holds for every model and every content, on random trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <sstream>

#include "CliSession/RandomWorld.h"
#include "Kel/AttrLog.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using S::AttributeEdit;
using S::AttributeEditType;
using SessionHandler = S::EntityCopyGlobalSessionHandler;

// While it lives what goes to standard error is gathered.
struct Said {
  explicit Said(std::string& to) : to_(to), before_(std::cerr.rdbuf(said_.rdbuf())) {}
  ~Said() {
    std::cerr.rdbuf(before_);
    to_ += said_.str();
  }

 private:
  std::string& to_;
  std::ostringstream said_;
  std::streambuf* before_;
};

// A random world with some of everything that may have a say in a copy: custom handlers, filters, a bypass table,
// debug actions, reactors of entities and of the log. `told` is what they were told, in order.
struct RuledWorld : RandomWorld {
  Generator dice;
  std::string told;
  S::AttributeEditBypassTable::Ptr bypass;
  std::vector<AttributeEdit> debugged;
  std::vector<std::string> filtered;  // how edits that filters leave out begin
  bool eager, watched, logWatched;
  bool meddling = false;  // reactors write to the destination

  explicit RuledWorld(unsigned seed, bool pair = false, unsigned nans = 0)
      : RandomWorld(seed, pair, nans), dice(seed + 1000000) {
    eager = dice.below(2);  // custom handlers copy twice
    if (!table) table = S::entityCopyCustomHandlerTableFactory("table", root);
    if (dice.below(2)) {
      custom("", "Plant::Door");
      custom("hall", "Plant::Gear");
      custom("hall.annex/one", "");
    }
    if (dice.below(2)) {
      filter("", "Plant::Slot", "part", "text", "Plant::Slot::text ");
      filter("hall.annex", "Plant::Bolt", "peer", "torque", "Plant::Bolt::torque set hall.annex");
      filter("hall.part", "", "note", "count", "Plant::Part::count set hall.part");
    }
    if (dice.below(2)) bypass = S::attributeEditBypassTableFactory("bypass");
    for (std::size_t n = dice.below(3); bypass && n < 3; ++n) {
      char const* const paths[] = {"/dest", "/dest/hall", "/dest/hall.annex", "/dest/sys"};
      bypass->attributeEditBypassEntryIs(anyEdit())->parentPathIs(paths[dice.below(4)], true);
    }
    if (dice.below(2)) debugged = {anyEdit(), anyEdit(), anyEdit()};
    watched = dice.below(2);
    logWatched = dice.below(3) == 0;
  }

  // What a copy edits, or what a comparison would call a difference.
  Edits expected(bool compare) const {
    return withoutIndices(edits(
        dest, src,
        {[&](std::string const& edit, bool valued) { return leftOut(edit) || (valued && bypassed(edit)); }, compare}));
  }
  // What a copy leaves as it is.
  bool leftOut(std::string const& edit) const {
    return std::any_of(filtered.begin(), filtered.end(), [&](auto const& begin) { return edit.find(begin) == 0; });
  }
  Edits remaining() const {
    return edits(dest, src, {[&](std::string const& edit, bool) { return leftOut(edit); }, false});
  }

  Outcome run(bool compare) {
    EntityCopy::Ptr const ec = copyFrom(src, compare);
    ec->attributeEditBypassCheckerIs(bypass);
    auto const log = ec->attributeEditLog();
    for (AttributeEdit const& edit : debugged)
      log->attributeEditDebugTypeConfigIs(edit)->actionIs("", S::AttributeDebugAction::actionTrace);
    std::vector<std::unique_ptr<Reactor>> reactors;
    auto const watch = [&](EntityPtrConst const& e) {
      std::string const line = "reactor " + std::to_string(reactors.size()) + "\n";
      reactors.push_back(std::make_unique<Reactor>(e, [this, line] {
        told += line;
        if (!std::exchange(meddling, false)) return;
        try {
          mutate(dest, dice, static_cast<int>(dice.below(3)));
        } catch (Kel::Exception const& raised) {
          told += raised.message().str() + "\n";
        }
        meddling = true;
      }));
    };
    if (watched)
      for (auto it = status->rootIterator(); it; ++it)
        for (Kel::Entity* e : entitiesOf(*dest->entity(it.key())))
          if (dice.below(5) == 0) watch(EntityPtrConst(e));
    if (logWatched) watch(log);
    if (logWatched && !compare)
      watch(log->newAttributeEditEntry(AttributeEdit("u8", "Plant::Hall", AttributeEditType::set_)));
    try {
      Said const said(told);
      ec->destIs(dest);
    } catch (Kel::Exception const& e) {
      if (!meddling) throw;
      told += e.message().str() + "\n";
    }
    for (auto it = ec->pendingAttrIterator(); it; ++it)
      told += it.key()->dest()->fullName().str() + "." + it.key()->attribute()->name().str() + " waits for " +
              it.key()->destValueFullName().str() + it.key()->destIndexFullName().str() + "\n";
    return {editsOf(*log), ec->stop(), ec->pendingAttrs()};
  }

  // Everything that a comparison might touch.
  std::string image() const {
    std::ostringstream addresses;
    for (Kel::Entity* e : entitiesOf(*root)) addresses << static_cast<void const*>(e) << "\n";
    return Kel::writeAttrLog(*root) + Kel::writeAttrLog(*status) + addresses.str();
  }

 private:
  AttributeEdit anyEdit() {
    static char const* const ofHalls[] = {"u8",    "text",   "bolt", "gear",    "job",   "part",
                                          "texts", "chosen", "",     "history", "weight"};
    std::size_t const which = dice.below(13);
    auto const type = dice.below(2) ? AttributeEditType::set_ : AttributeEditType::del_;
    if (which == 11) return AttributeEdit("", "Plant::Bolt", type);
    if (which == 12) return AttributeEdit("note", "", type);
    return AttributeEdit(ofHalls[which], "Plant::Hall", type);
  }
  bool bypassed(std::string const& edit) const {
    if (!bypass) return false;
    std::size_t const colons = edit.rfind("::", edit.find(' ')), name = edit.find(' '), kind = edit.find(' ', name + 1);
    std::string const path = "/dest/" + edit.substr(kind + 1);
    for (auto it = bypass->attributeEditBypassEntryIterator(); it; ++it) {
      AttributeEdit const& rule = it.key();
      if (!rule.attributeType().empty() && rule.attributeType().view() != edit.substr(0, colons)) continue;
      if (!rule.attributeName().empty() && rule.attributeName().view() != edit.substr(colons + 2, name - colons - 2))
        continue;
      if (stringValue(rule.editType()).view() != edit.substr(name + 1, kind - name - 1)) continue;
      for (auto prefix = it->parentPathIterator(); prefix; ++prefix)
        if (path.find(prefix.key().str()) == 0) return true;
    }
    return false;
  }
  void custom(char const* path, char const* typeName) {
    handlerAt(path, typeName, [this](auto const& ec, auto const& to, auto const& from, Kel::String const& at) {
      told += "visit " + at.str() + "\n";
      bool differs = ec->doCopyEntityAttrs(to, from, at, nullptr);
      if (eager) differs |= ec->doCopyEntityAttrs(to, from, at, nullptr);
      told += at.str() + (differs ? " differs\n" : " does not differ\n");
      return differs;
    });
  }
  void filter(char const* path, char const* typeName, char const* first, char const* without, char const* leavesOut) {
    auto const names = S::attributeFilterFactory();
    names->attributeNameIs(without, true);
    table->registerEntityCopyFilter(filters, S::EntityPath(path), typeName, names);
    auto const made = filters->ecf(S::HandlerContext(S::EntityPath(path), typeName));
    made->newPreAttribute()->attributeNameIs(1, first);
    made->newPostAttribute()->attributeNameIs(1, first);
    filtered.push_back(leavesOut);
  }
};

Kel::U32 sum(Edits const& edits) {
  return std::accumulate(edits.begin(), edits.end(), 0u, [](Kel::U32 n, auto const& edit) { return n + edit.second; });
}

// A comparison records one edit where anything differs, none otherwise, and touches nothing.
void compareAsExpected(RuledWorld& world) {
  world.mutate(world.dest, world.generator, 0);  // what a directory's handler passes by may point at what is gone
  Edits const expected = world.expected(true);
  std::string const before = world.image();
  // The engine's plain handler compares as well, without the pointers.
  EntityCopy::Ptr const plain = world.copyFrom(world.src, true);
  plain->handlerIs(S::entityCopyHandlerFactory());
  plain->destIs(world.dest);
  EXPECT_EQ(plain->pendingAttrs(), 0u);
  Outcome const outcome = world.run(true);
  ASSERT_TRUE(world.image() == before) << "a comparison has changed something";
  // A pointer to something that only a bypassed edit would make is not seen.
  bool const certain = !world.bypass || std::any_of(expected.begin(), expected.end(),
                                                    [](auto const& e) { return !isPointerEdit(e.first); });
  Edits const found = withoutIndices(outcome.edits);
  if (certain || expected.empty()) {
    EXPECT_EQ(sum(found), expected.empty() ? 0u : 1u) << textOf(found) << "of:\n" << textOf(expected);
  }
  EXPECT_LE(sum(found), 1u);
  EXPECT_EQ(outcome.stopped, !found.empty());
  for (auto const& [edit, count] : found) EXPECT_TRUE(expected.count(edit)) << edit << "of:\n" << textOf(expected);
}

// A copy makes equal what is not left out, writes nothing into the source, and logs what it does.
void copyAsExpected(RuledWorld& world) {
  Edits const expected = world.expected(false);
  std::string const srcBefore = world.dump(world.src);
  Outcome const outcome = world.run(false);
  EXPECT_EQ(world.dump(world.src), srcBefore);
  ASSERT_EQ(textOf(world.remaining()), "");
  if (world.filtered.empty() && world.alike()) {
    ASSERT_EQ(world.dump(world.dest), srcBefore);
  }
  EXPECT_EQ(outcome.pending, 0u);
  Edits const log = withoutIndices(outcome.edits);
  for (auto const& [edit, count] : expected) {
    auto const logged = log.find(edit);
    ASSERT_NE(logged, log.end()) << edit << " is not in the log:\n" << textOf(log);
    if (!isPointerEdit(edit)) {
      EXPECT_EQ(logged->second, count) << edit;
    }
  }
  for (auto const& [edit, count] : log)
    // An entity that is made anew takes the pointers to it along.
    EXPECT_TRUE(isPointerEdit(edit) || expected.count(edit)) << edit << " is in the log for nothing";
  for (char const* path : {"hall", "sys/annex"})
    for (std::string const& pointer : pointersInto(*world.dest->entity(path), *world.src))
      EXPECT_NE(pointer.find("-> /src/loose"), std::string::npos) << pointer;
}

void hold(unsigned seed, bool pair) {
  SCOPED_TRACE(seed);
  RuledWorld world(seed, pair);
  for (int run = 0; run < 2 && !testing::Test::HasFailure(); ++run) {
    compareAsExpected(world);
    copyAsExpected(world);
  }
  EXPECT_EQ(sum(world.expected(false)), 0u) << "the second copy had something to do";
}

TEST(Laws, Hold) {
  for (unsigned seed : seeds(300))
    if (!HasFailure()) hold(seed, false);
}

TEST(Laws, HoldBetweenTypes) {
  for (unsigned seed : seeds(100))
    if (!HasFailure()) hold(seed, true);
}

TEST(Laws, TracesMakeNoDifference) {
  for (unsigned seed : seeds(100)) {
    SCOPED_TRACE(seed);
    RuledWorld silent(seed, seed % 7 == 6, 4), traced(seed, seed % 7 == 6, 4);
    silent.meddling = traced.meddling = seed % 2;
    for (bool compare : {true, false, true, false}) {
      Outcome const expected = silent.run(compare);
      Tracing const tracing;
      Outcome const outcome = traced.run(compare);
      ASSERT_FALSE(tracing.prefixes.lines.empty());
      ASSERT_EQ(textOf(outcome.edits), textOf(expected.edits)) << "compare: " << compare;
      ASSERT_EQ(outcome.stopped, expected.stopped);
      ASSERT_EQ(traced.told, silent.told);
      ASSERT_EQ(traced.dump(traced.dest), silent.dump(silent.dest));
    }
  }
}

TEST(Laws, ReactorsDoNotChangeTheResult) {
  Kel::U32 calls = 0;
  for (unsigned seed : seeds(100)) {
    SCOPED_TRACE(seed);
    RandomWorld plain(seed), watched(seed);
    Kel::U32 early = 0;
    std::vector<std::unique_ptr<Reactor>> reactors;
    for (Kel::Entity* e : entitiesOf(*watched.dest))
      if (watched.generator.below(4) == 0)
        reactors.push_back(std::make_unique<Reactor>(EntityPtrConst(e), [&] { ++early; }));
    EXPECT_EQ(plain.differs(plain.dest, plain.src), watched.differs(watched.dest, watched.src));
    ASSERT_EQ(early, 0u) << "a comparison writes";
    Outcome const silent = plain.copy(), heard = watched.copy();
    ASSERT_EQ(textOf(silent.edits), textOf(heard.edits));
    ASSERT_EQ(plain.dump(plain.dest), watched.dump(watched.dest));
    calls += early;
  }
  EXPECT_GT(calls, 1000u) << "too few reactors ran";
}

// --- What operations answer ---

// One operation on a pair of entities, against what is to be edited there.
struct Asked {
  RandomWorld& world;
  bool compare;

  void operator()(Edits const& expected, std::function<bool(EntityCopy::Ptr const&)> const& operation) const {
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    // Setting the destination runs the copy, but for its roots.
    std::vector<EntityPtrConst> roots;
    for (auto it = ec->srcCopyRootIterator(); it; ++it) roots.push_back(it.key());
    ec->srcCopyRootDelAll();
    ec->destIs(world.dest);
    for (EntityPtrConst const& root : roots) ec->srcCopyRootIs(root, true);
    ec->stopAtFirstDiffIs(compare);
    bool const answer = operation(ec), logged = ec->attributeEditLog()->attributeEditEntrys() > 0;
    EXPECT_EQ(answer, logged) << textOf(editsOf(*ec->attributeEditLog()));
    // A pointer that waits is no difference yet.
    bool const waits = ec->pendingAttrs() > 0;
    bool const certain =
        !waits || std::any_of(expected.begin(), expected.end(), [](auto const& e) { return !isPointerEdit(e.first); });
    if (certain) {
      EXPECT_EQ(answer, !expected.empty()) << textOf(expected);
    }
  }
};

bool askedFor(EntityCopy& ec, EntityPtr const& dest, EntityPtrConst const& src, Kel::String8 const& path,
              Kel::KelAttr const& attr, std::size_t way) {
  Kel::KelAttr::PtrConst const handle(&attr);
  if (way == 0) return ec.doCopyAttr(dest, src, path, handle);
  if (way == 1) return ec.doCopyAttrByName(dest, src, path, attr.name());
  if (attr.isQueue()) return ec.doCopyQueue(dest, src, path, handle);
  if (attr.isCollection()) return ec.doCopyCollection(dest, src, path, handle);
  if (attr.instantiating()) return ec.doCopySingleton(dest, src, path, handle);
  return attr.isPtr() ? ec.doCopyPtr(dest, src, path, handle, nullptr) : ec.doCopyValue(dest, src, handle);
}

TEST(Laws, OperationsAnswerWhetherAnythingDiffers) {
  for (unsigned seed : seeds(40)) {
    SCOPED_TRACE(seed);
    RandomWorld world(seed, seed % 7 == 6);
    auto const filter = world.filters->newEcf(S::HandlerContext(S::EntityPath(""), "Plant::Slot"));
    filter->newFilteredAttribute()->attributeNameIs("text", true);
    filter->newPreAttribute()->attributeNameIs(1, "part");
    Scope const destScope = world.scope(world.dest), srcScope = world.scope(world.src);
    for (Kel::Entity const* srcRoot : srcScope.roots) {
      for (Kel::Entity* e : entitiesOf(const_cast<Kel::Entity&>(*srcRoot))) {
        EntityPtrConst const src(e);
        Kel::String8 const path = e->fullName().substr(world.src->fullName().chars() + 1);
        EntityPtr const dest = world.dest->entity(path);
        if (!dest) continue;
        auto const differences = [&](LeftOut const& leftOut = {}) {
          return editsBetween(*dest, destScope, *src, srcScope, leftOut);
        };
        for (bool compare : {true, false}) {
          Asked const asked{world, compare};
          std::string const before = compare ? world.dump(world.dest) : "";
          if (world.generator.below(8) == 0 || e == srcRoot)
            asked(differences(), [&](auto const& ec) {
              return ec->handler()->handleEntity(ec, dest, src, path == "tree" ? "" : path);
            });
          if (src->type()->fullTypeName() == "Plant::Slot")
            asked(differences({[](std::string const& edit, bool) { return edit.find("::text ") != edit.npos; }, false}),
                  [&](auto const& ec) { return filter->handleEntity(ec, dest, src, path); });
          for (Kel::KelAttr const* attr : src->type()->attributeQ()) {
            if (!attr->copiable() || src->type() == Kel::Dir::_fwkType()) continue;
            SCOPED_TRACE(path + "." + attr->name());
            asked(editsBetween(*dest, destScope, *src, srcScope, *attr),
                  [&](auto const& ec) { return askedFor(*ec, dest, src, path, *attr, world.generator.below(3)); });
          }
          if (compare) {
            ASSERT_EQ(world.dump(world.dest), before);
          }
        }
        if (HasFailure()) return;
      }
    }
  }
}

}  // namespace
