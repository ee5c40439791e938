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
  EntityCopy::Ptr ec = world.idleCopy();
  S::AttributeEditLog::Ptr log = ec->attributeEditLog();

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

TEST(BypassTable, MakesItsDirectoryFromANameWhateverTheParent) {
  auto const table = S::attributeEditBypassTableFactory("table");
  Kel::Dir::Ptr const parent = Kel::dirFactory("parent");
  Kel::Dir::Ptr const made = table->newDefaultEntityDir("defaults", parent);
  EXPECT_EQ(made->parent(), table.ptr());
  EXPECT_EQ(table->defaultEntityDirIs("defaults", nullptr), made);
  EXPECT_THROW(table->newDefaultEntityDir("defaults", parent), Kel::NameInUseException);
  EXPECT_NE(table->defaultEntityDirIs("others", parent), made);
  EXPECT_EQ(parent->entryStates(), 0u);
}

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
  EXPECT_TRUE(ec->attributeIs(dest, attr("chosen"), key, nullptr, nullptr)->changed());
  EXPECT_EQ(dest->chosens(), 1u) << "a null pointer is a member";
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

// Whether an entity that is about to be deleted has default values is told by its first difference.
TEST_F(Bypass, ADefaultIsComparedUpToTheFirstDifference) {
  auto const bolt = dest->newBolt("b");
  bolt->torqueIs(5);
  bolt->lockedIs(true);
  entry("bolt", "Plant::Hall", AttributeEditType::del_, "/dest")->defaultEntIs(Plant::boltFactory("standard"));
  ec->stopAtFirstDiffIs(true);
  EXPECT_FALSE(table->bypassAttributeEditLog(ec, edit("bolt", AttributeEditType::del_), "/dest/hall",
                                             Kel::GenericIf::ofEntity(EntityPtr(bolt))));
  EXPECT_EQ(textOf(editsOf(*log)), "Plant::Bolt::torque set hall.bolt/b x1\n");
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
