// The hooks, what they log, what stays out of the log, and the actions configured for edits.
#include <gtest/gtest.h>

#include <csignal>

#include "CliSession/EntityCopyCompare.h"
#include "CliSession/World.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using S::AttributeEdit;
using S::AttributeEditType;

struct EditLog : testing::Test {
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);
  EntityCopy::Ptr ec = world.copyFrom(world.src);
  S::AttributeEditLog::Ptr log = ec->attributeEditLog();

  void SetUp() override {
    ec->srcCopyRootDelAll();
    ec->destIs(world.dest);
  }
  Kel::KelAttr::PtrConst attr(char const* name) const { return Kel::KelAttr::PtrConst(dest->type()->getAttr(name)); }
  static AttributeEdit edit(char const* name, AttributeEditType type = AttributeEditType::set_) {
    return AttributeEdit(name, "Plant::Hall", type);
  }
  Kel::U8 count(AttributeEdit const& of, char const* path = "hall") const {
    auto const entry = log->attributeEditEntry(of);
    return entry ? entry->pathCounter(path) : Kel::U8(0);
  }
  bool set(char const* name, Kel::GenericIf::PtrConst const& value) const {
    return ec->attributeIs(dest, attr(name), nullptr, value, nullptr)->changed();
  }
};
using EditLogDeathTest = EditLog;

TEST_F(EditLog, HooksWriteAndCount) {
  Kel::GenericIf::PtrConst const text = Kel::GenericIf::of(Kel::String8("x")), key = text;
  auto const result = ec->attributeIs(dest, attr("u8"), nullptr, Kel::GenericIf::of(Kel::U8(3)), nullptr);
  EXPECT_TRUE(result->changed());
  EXPECT_EQ(*result->gif()->attrValPtr<Kel::U8>(), 3);
  EXPECT_FALSE(set("u8", Kel::GenericIf::of(Kel::U8(3)))) << "an equal value is no edit";
  EXPECT_TRUE(set("u8", Kel::GenericIf::of(Kel::U8(4))));
  ec->attributeAdd(dest, attr("history"), text);
  ec->attributeAdd(dest, attr("history"), text);
  ec->attributeRemove(dest, attr("history"));
  ec->attributeIs(dest, attr("texts"), key, text, nullptr);
  ec->attributeDel(dest, attr("texts"), key);
  ec->attributeDel(dest, attr("texts"), key);
  EXPECT_EQ(dest->historys(), 1u);
  EXPECT_EQ(dest->textss(), 0u);
  EXPECT_EQ(count(edit("u8")), 2);
  EXPECT_EQ(count(edit("history")), 2);
  EXPECT_EQ(count(edit("history", AttributeEditType::del_)), 1);
  EXPECT_EQ(count(edit("texts")), 1);
  EXPECT_EQ(count(edit("texts", AttributeEditType::del_)), 2) << "deleting never compares";
  EXPECT_EQ(log->attributeEditEntrys(), 5u);
}

TEST_F(EditLog, HooksTrace) {
  Traces const traces("EntityCopy");
  Kel::GenericIf::PtrConst const text = Kel::GenericIf::of(Kel::String8("x"));
  ec->attributeAdd(dest, attr("history"), text);
  ec->attributeRemove(dest, attr("history"));
  ec->attributeDel(dest, attr("texts"), text);
  set("favourite", nullptr);
  EXPECT_TRUE(
      traces.inOrder({"EntityCopy/2 attributeAdd: adding history",
                      "EntityCopy/5 addAttributeEditBypassEntry: history, Plant::Hall, set, /dest/hall",
                      "EntityCopy/5 Logged", "EntityCopy/2 attributeRemove: removing history",
                      "EntityCopy/5 addAttributeEditBypassEntry: history, Plant::Hall, del, /dest/hall",
                      "EntityCopy/2 attributeDel: deleting texts", "EntityCopy/2 attributeIs: setting favourite",
                      "EntityCopy/4 Compare Ptrs for favourite? attr voidPtr: 0, dest voidPtr: 0 => 1"}))
      << traces.text();
  // Each in the name of its operation, however that is written.
  EXPECT_EQ(std::set<std::string>(traces.functions.begin(), traces.functions.end()),
            (std::set<std::string>{"EntityCopy:addAttributeEditBypassEntry", "EntityCopy:attributeAdd",
                                   "EntityCopy:attributeDel", "EntityCopy:attributeIs", "EntityCopy:attributeRemove"}));
}

TEST_F(EditLog, CountsWrapAfter255) {
  for (int i = 1; i <= 256; ++i) {
    ec->addAttributeEditBypassEntry("u8", "Plant::Hall", AttributeEditType::set_, "/dest/hall", nullptr);
    EXPECT_EQ(count(edit("u8")), i % 256);
  }
  EXPECT_EQ(count(edit("u8")), 0);
  EXPECT_TRUE(log->attributeEditEntry(edit("u8"))->pathCounterHas("hall"));
  ec->addAttributeEditBypassEntry("u8", "Plant::Hall", AttributeEditType::set_, "/dest/hall", nullptr);
  EXPECT_EQ(count(edit("u8")), 1);
}

TEST_F(EditLog, CountsUnderThePathBelowTheDestination) {
  for (char const* path : {"/dest", "/elsewhere/hall", "/destination/hall", ""})
    ec->addAttributeEditBypassEntry("a", "T", AttributeEditType::set_, path, nullptr);
  EXPECT_EQ(log->attributeEditEntry(AttributeEdit("a", "T", AttributeEditType::set_))->pathCounter(""), 4);
}

TEST_F(EditLog, AComparisonWritesNothingAndMakesItsLog) {
  ec->stopAtFirstDiffIs(true);
  ec->attributeEditLogIs(nullptr);
  EXPECT_TRUE(set("u8", Kel::GenericIf::of(Kel::U8(3)))) << "it would have been changed";
  EXPECT_EQ(dest->u8(), 0);
  EXPECT_TRUE(ec->stop());
}

TEST_F(EditLog, WithoutALogOnlyWrites) {
  ec->attributeEditLogIs(nullptr);
  EXPECT_TRUE(set("u8", Kel::GenericIf::of(Kel::U8(3))));
  EXPECT_EQ(dest->u8(), 3);
  EXPECT_FALSE(ec->attributeEditLog());
}

// --- Bypass ---

struct Bypass : EditLog {
  S::AttributeEditBypassTable::Ptr table = S::attributeEditBypassTableFactory("bypass");
  static inline Kel::GenericIf::PtrConst const value = Kel::GenericIf::of(Kel::U8(1));

  S::AttributeEditBypassEntry::Ptr entry(char const* name, char const* type, AttributeEditType editType,
                                         char const* prefix) const {
    auto const made = table->attributeEditBypassEntryIs(AttributeEdit(name, type, editType));
    made->parentPathIs(prefix, false);  // the flag is not read
    return made;
  }
  bool bypassed(AttributeEdit const& of, char const* path = "/dest/hall") const {
    return table->bypassAttributeEditLog(ec, of, path, value);
  }
};
using BypassDeathTest = Bypass;

TEST_F(Bypass, LooksFromExactToCatchAll) {
  AttributeEdit const u8 = edit("u8");
  EXPECT_FALSE(bypassed(u8));
  entry("u8", "Plant::Hall", AttributeEditType::set_, "/nowhere");
  entry("", "Plant::Hall", AttributeEditType::set_, "/dest/hall");
  EXPECT_TRUE(bypassed(u8)) << "an entry that answers false ends the search";
  EXPECT_TRUE(bypassed(edit("other"), "/dest/hallway")) << "prefixes are of characters";
  EXPECT_FALSE(bypassed(u8, "/dest/hal"));
  EXPECT_FALSE(bypassed(edit("u8", AttributeEditType::del_)));
  EXPECT_FALSE(table->bypassAttributeEditLog(ec, u8, "/dest/hall", nullptr)) << "a null value never bypasses";
  table->attributeEditBypassEntryDelAll();
  entry("u8", "", AttributeEditType::set_, "");
  EXPECT_TRUE(bypassed(u8));
  EXPECT_FALSE(bypassed(edit("u16")));
  table->attributeEditBypassEntryDelAll();
  entry("", "", AttributeEditType::set_, "/dest");
  EXPECT_TRUE(bypassed(edit("u16")));
  table->attributeEditBypassEntryDelAll();
  table->attributeEditBypassEntryIs(u8);
  EXPECT_FALSE(bypassed(u8)) << "an entry without prefixes never bypasses";
}

TEST_F(Bypass, KeepsEditsOutOfTheLogButMakesThem) {
  entry("u8", "Plant::Hall", AttributeEditType::set_, "/dest");
  ec->attributeEditBypassCheckerIs(table);
  Traces const traces("EntityCopy");
  EXPECT_TRUE(set("u8", value));
  EXPECT_EQ(dest->u8(), 1);
  EXPECT_EQ(log->attributeEditEntrys(), 0u);
  EXPECT_TRUE(traces.inOrder({"EntityCopy/3 u8 in attributeEditBypassTable", "EntityCopy/5 Skipped"})) << traces.text();
}

TEST_F(Bypass, IsNoDifferenceToAComparison) {
  entry("", "Plant::Hall", AttributeEditType::set_, "/dest");
  src->u8Is(1);
  src->historyEnq("a");
  src->jobEnq("j");
  src->newBolt("b")->lockedIs(true);
  src->newPart()->noteIs("n");
  ec->stopAtFirstDiffIs(true);
  ec->attributeEditBypassCheckerIs(table);
  EXPECT_FALSE(ec->doCopyEntityAttrs(dest, src, "hall", nullptr));
  EXPECT_FALSE(ec->stop());
  EXPECT_EQ(dest->bolts() + dest->jobs() + dest->u8(), 0u) << "neither applied nor a difference";
}

TEST_F(Bypass, ComparesADyingEntityWithItsDefault) {
  auto const rule = entry("bolt", "Plant::Hall", AttributeEditType::del_, "/dest");
  Kel::Ptr<Plant::Bolt> const standard = Plant::boltFactory("standard");
  standard->torqueIs(2);
  rule->defaultEntIs(standard);
  ec->attributeEditBypassCheckerIs(table);
  Kel::GenericIf::PtrConst const key = Kel::GenericIf::of(Kel::String8("b"));
  dest->newBolt("b")->torqueIs(2);
  ec->attributeDel(dest, attr("bolt"), key);
  EXPECT_EQ(log->attributeEditEntrys(), 0u) << textOf(editsOf(*log));
  dest->newBolt("b")->torqueIs(3);
  Traces const traces("EntityCopy", 1u << 7);
  ec->attributeDel(dest, attr("bolt"), key);
  EXPECT_FALSE(dest->bolt("b"));
  EXPECT_EQ(count(edit("bolt", AttributeEditType::del_)), 1);
  EXPECT_EQ(traces.lines,
            (std::vector<std::string>{"EntityCopy/7 attributeEditLog entries before copying: 0",
                                      "EntityCopy/7 copy torque", "EntityCopy/7 copy locked", "EntityCopy/7 copy peer",
                                      "EntityCopy/7 attributeEditLog entries after copying: 1"}));
  dest->newBolt("b")->torqueIs(3);
  ec->attributeDel(dest, attr("bolt"), key);
  EXPECT_EQ(count(edit("bolt", AttributeEditType::del_)), 1) << "entries are counted, not edits";
  rule->defaultEntIs(Plant::partFactory());
  dest->newBolt("b");
  EXPECT_EQ(messageOf<Kel::UnknownAttrException>([&] { ec->attributeDel(dest, attr("bolt"), key); }),
            ": Plant::Part has no attribute 'torque'");
}

TEST_F(Bypass, LeavesDefaultsThatACopyDeletesOutOfTheLog) {
  Kel::Ptr<Plant::Bolt> const standard = Plant::boltFactory("standard");
  standard->torqueIs(2);
  entry("", "Plant::Hall", AttributeEditType::del_, "/dest")->defaultEntIs(standard);
  ec->attributeEditBypassCheckerIs(table);
  ec->srcCopyRootIs(src, true);
  for (bool compare : {true, false}) {
    dest->boltIs("b")->torqueIs(2);
    dest->boltIs("c")->torqueIs(2);
    dest->axleIs("a")->torqueIs(2);
    ec->stopAtFirstDiffIs(compare);
    ec->handleCopyRoots();
    EXPECT_EQ(textOf(editsOf(*log)), "");
    EXPECT_FALSE(ec->stop());
    EXPECT_EQ(dest->bolts(), compare ? 2u : 0u);
    EXPECT_EQ(static_cast<bool>(dest->axle()), compare);
  }
  for (bool compare : {true, false}) {
    dest->boltIs("b")->torqueIs(2);
    dest->boltIs("c")->torqueIs(2);
    dest->bolt("c")->lockedIs(true);
    ec->stopAtFirstDiffIs(compare);
    ec->handleCopyRoots();
    EXPECT_EQ(count(edit("bolt", AttributeEditType::del_)), 1);
    EXPECT_EQ(ec->stop(), compare);
    EXPECT_EQ(dest->bolts(), compare ? 2u : 0u);
    log->attributeEditEntryDelAll();
  }
}

TEST_F(BypassDeathTest, ADefaultIsForDeletionsOnly) {
  auto const rule = entry("bolt", "Plant::Hall", AttributeEditType::set_, "/dest");
  rule->defaultEntIs(Plant::boltFactory("standard"));
  Kel::GenericIf::PtrConst const bolt = Kel::GenericIf::ofEntity(EntityPtr(dest->newBolt("b")));
  EXPECT_DEATH(table->bypassAttributeEditLog(ec, edit("bolt"), "/dest/hall", bolt),
               "aeBypass->attributeEdit\\(\\).editType\\(\\) == AttributeEditType::del_");
  EXPECT_DEATH(table->bypassAttributeEditLog(ec, edit("bolt"), "/dest/hall",
                                             Kel::GenericIf::ofEntity(EntityPtrConst(dest->bolt("b")))),
               "AttributeEditType::del_");
  // The target of a pointer is bypassed as a value is, and not written.
  dest->bolt("b")->torqueIs(5);
  entry("favourite", "Plant::Hall", AttributeEditType::set_, "/dest")->defaultEntIs(Plant::boltFactory("standard"));
  EXPECT_TRUE(table->bypassAttributeEditLog(ec, edit("favourite"), "/dest/hall", bolt));
  EXPECT_EQ(dest->bolt("b")->torque(), 5);
  EXPECT_NE(messageOf<Kel::NoImplementationException>([&] {
              S::attributeEditLogBypassFactory()->bypassAttributeEditLog(ec, edit("a"), "", value);
            }).find("bypassAttributeEditLog"),
            std::string::npos);
}

// --- Debug actions ---

TEST_F(EditLogDeathTest, TakeTheActionConfigured) {
  using Action = S::AttributeDebugAction;
  auto const byPath = log->newAttributeEditDebugConfig("hall")->newDebugConfig(edit("u8"));
  auto const byType = log->newAttributeEditDebugTypeConfig(edit("u8"));
  Kel::U8 next = 0;
  auto const run = [&] {
    testing::internal::CaptureStderr();
    set("u8", Kel::GenericIf::of(++next));
    return testing::internal::GetCapturedStderr();
  };
  std::string const line = "Plant::Hall::u8 set triggered entityCopy attr debugging\n";
  EXPECT_EQ(run(), "");
  byType->actionIs("", Action::actionTrace);
  EXPECT_EQ(run(), line) << "an action of none ends the search";
  byType->actionIs("", Action::actionAssert);
  byType->actionIs("hall", Action::actionTrace);
  EXPECT_EQ(run(), line) << "the path's own action comes first";
  byPath->actionIs(Action::actionTrace);
  byType->actionIs("hall", Action::actionAssert);
  {
    Traces const traces("EntityCopy", 1u << 5 | 1u << 9);
    EXPECT_EQ(run(), line);
    EXPECT_TRUE(traces.inOrder({"EntityCopy/9 Found matching action (actionTrace), for u8 on hall",
                                "EntityCopy/5 Taking action actionTrace", "EntityCopy/5 Logged"}))
        << traces.text();
    byPath->actionIs(Action::actionNone);
    byType->actionIs("hall", Action::actionTrace);
    run();
    EXPECT_TRUE(traces.inOrder({"EntityCopy/9 Found matching action (actionNone), for u8 on hall",
                                "EntityCopy/5 Found matching action (" + std::string(valueToStrep(edit("u8")).view()) +
                                    "), for type Plant::Hall, attr u8 for hall",
                                "EntityCopy/5 Taking action actionTrace"}))
        << traces.text();
  }
  EXPECT_EQ(count(edit("u8")), 5) << "tracing changes the log";
  EXPECT_EQ(run() + run(), line + line);
  byPath->actionIs(Action::actionAssert);
  EXPECT_DEATH(set("u8", Kel::GenericIf::of(Kel::U8(99))), "EntityCopy:[0-9]+: .*Assertion 'false' failed");
}

TEST_F(EditLogDeathTest, TakeTheActionWhereACopyEdits) {
  using Action = S::AttributeDebugAction;
  AttributeEdit const part("note", "Plant::Part", AttributeEditType::set_);
  src->flagIs(true);
  src->u16Is(2);
  for (Kel::Ptr<Plant::Hall> const& hall : {src, src->newAnnex("x")}) hall->newPart()->noteIs("n");
  ec->srcCopyRootIs(src, true);
  log->newAttributeEditDebugConfig("hall.annex/x.part")->newDebugConfig(part)->actionIs(Action::actionTrace);
  log->newAttributeEditDebugTypeConfig(edit("flag"))->newAction("", Action::actionTrace);
  log->newAttributeEditDebugTypeConfig(edit("u8"))->newAction("", Action::actionAssert);
  std::string const flag = "Plant::Hall::flag set triggered entityCopy attr debugging\n",
                    note = "Plant::Part::note set triggered entityCopy attr debugging\n";
  // Everything before the edit has been made, and nothing else has been said.
  src->u8Is(1);
  EXPECT_EXIT(
      ec->handleCopyRoots(), testing::KilledBySignal(SIGABRT),
      "^" + flag + "EntityCopy:[0-9]+: [^\n]*::addAttributeEditBypassEntry\\([^\n]*: Assertion 'false' failed.\n$");
  src->u8Is(0);
  testing::internal::CaptureStderr();
  ec->handleCopyRoots();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), flag + note) << "of two parts one has that path";
  EXPECT_EQ(dest->annex("x")->part()->note(), "n");
  EXPECT_EQ(log->attributeEditEntry(part)->pathCounters(), 2u) << "tracing changes the log";
}

TEST_F(EditLog, LookingUpMakesNothing) {
  set("u8", Kel::GenericIf::of(Kel::U8(1)));
  EXPECT_EQ(log->attributeEditDebugConfigs() + log->attributeEditDebugTypeConfigs(), 0u);
}

}  // namespace
