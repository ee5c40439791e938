// The session manager fills sessions and the clean configuration.
#include "CliSession/Sessions.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using Kel::GenericIf;

TEST_F(Session, IsFilledTwice) {
  Generator generator(1);
  world.fill(world.src, generator);
  EXPECT_TRUE(replace(world.src));
  EXPECT_EQ(world.dump(session), world.dump(world.src));
  EXPECT_EQ(world.dump(ancestor), world.dump(world.src));
  EXPECT_EQ(pending->locals(), 2u);
  EXPECT_EQ(pending->local("sys/annex"), session->entity("sys/annex"));
  EXPECT_EQ(pending->localPrefix()->name(), "localPrefix");
  EXPECT_TRUE(pending->localPrefix()->isPrefix("hall") && pending->localPrefix()->isPrefix("sys/annex"));
  EXPECT_FALSE(pending->attributeEditLog()) << "nobody asked for a log";
  for (char const* path : {"hall", "sys/annex"}) {
    for (std::string const& pointer : pointersInto(*session->entity(path), *world.src))
      EXPECT_NE(pointer.find("-> /src/loose"), std::string::npos) << pointer;
    EXPECT_TRUE(pointersInto(*ancestor->entity(path), *session).empty());
  }
}

TEST_F(Session, MakesTheRootsThatAReactorHasChanged) {
  world.src->newEntity("Plant::Hall", "lobby");
  // Both roots are checked by then, and the first one is made.
  Reactor const changesRoots(session, [&] {
    status->rootDel("sys/annex");
    world.rootIs("lobby", "Plant::Hall");
  });
  EXPECT_TRUE(replace(world.src));
  for (Kel::Dir::Ptr const& dir : {session, ancestor}) {
    EXPECT_TRUE(World::hall(dir));
    EXPECT_TRUE(World::hall(dir, "lobby"));
    EXPECT_FALSE(dir->entry("sys"));
  }
}

TEST_F(Session, RefusalsSayWhy) {
  std::string const signature =
      "CliSession/8 bool Cli::Session::Status::doReplaceConfig(const Kel::Ptr<Kel::Dir>&, Kel::String) for ";
  Traces const traces("CliSession");
  EXPECT_FALSE(replace(nullptr));
  EXPECT_FALSE(replace(world.src, "nobody"));
  pending->completedIs(true);
  EXPECT_FALSE(replace(world.src));
  EXPECT_EQ(traces.lines,
            (std::vector<std::string>{signature + "s1 returning because srcRoot is NULL",
                                      signature + "nobody from /src", "CliSession/9 No session found under name nobody",
                                      signature + "s1 from /src", "CliSession/9 Session s1 already completed."}));
  EXPECT_EQ(session->entryStates(), 0u);
  pending->completedIs(false);
  status->rootDelAll();
  status->rootIs("", true);
  EXPECT_THROW(replace(world.src), Kel::RangeException);
  EXPECT_TRUE(traces.inOrder({"CliSession/9 Adding CliSession root<unknown>"})) << traces.text();
}

TEST_F(Session, ErrorsNameWhatIsMissing) {
  auto const raised = [&] { return messageOf<Kel::Exception>([&] { replace(world.src); }); };
  world.ancestors->entryDel("s1");
  {
    Traces const traces("CliSession");
    EXPECT_EQ(raised(), "null ValidPtr");
    status->sessionDirIs(nullptr);
    EXPECT_EQ(raised(), "null ValidPtr");
    EXPECT_TRUE(traces.inOrder(
        {"CliSession/9 Session s1: ancestorDir has no directory 's1'", "CliSession/9 Session s1: sessionDir is null"}))
        << traces.text();
  }
  status->sessionDirIs(world.sessions);
  world.ancestors->newEntity("Kel::Dir", "s1");
  EXPECT_TRUE(replace(world.src));
  EXPECT_EQ(pending->errors(), 0u) << "errors are the owner's to write";
  status->rootIs("untyped", true);
  EXPECT_NE(raised().find("'untyped': rootTrie has no type for it"), std::string::npos) << raised();
  status->rootTrieDel();
  EXPECT_EQ(raised(), "status has no rootTrie: initialize() makes it");
  Traces const traces("CliSession", 1u << 9);
  EXPECT_FALSE(S::statusFactory("bare")->doReplaceConfig(world.src, "s1"));
  EXPECT_TRUE(traces.inOrder({"CliSession/9 bare has no pendingChangeStatusDir: initialize() makes it"}));
}

TEST_F(Session, NeedsBothDirectoriesBeforeAnythingIsMade) {
  world.ancestors->entryDel("s1");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(messageOf<Kel::RangeException>([&] { replace(world.src); }), "null ValidPtr");
    EXPECT_EQ(session->entryStates(), 0u);
    if (i == 0) world.ancestors->newEntity("Plant::Bolt", "s1");
    if (i == 1) status->ancestorDirIs(nullptr);
  }
}

TEST_F(Session, KeepsALogOfWhatChanged) {
  logEdits();
  Generator generator(7);
  world.fill(world.src, generator);
  replace(world.src);
  auto const log = pending->attributeEditLog();
  ASSERT_TRUE(log);
  EXPECT_EQ(edits().at("Plant::Hall::bolt set hall"), src->bolts()) << "the ancestor's copy is counted too";
  Edits const before = edits();
  replace(world.src);
  EXPECT_EQ(pending->attributeEditLog(), log);
  EXPECT_EQ(edits(), before) << "an unchanged session has edits";
  log->attributeEditEntryDelAll();
  src->u64Is(src->u64() + 1);
  replace(world.src);
  EXPECT_EQ(edits(), (Edits{{"Plant::Hall::u64 set hall", 1}}));
  EXPECT_EQ(world.dump(ancestor), world.dump(world.src));
}

// Counts the edits that it is shown.
struct Checking : S::AttributeEditBypassTable {
  Checking() : AttributeEditBypassTable("checking") {}
  bool bypassAttributeEditLog(Kel::Ptr<EntityCopy> const&, S::AttributeEdit const&, Kel::String,
                              GenericIf::PtrConst const&) override {
    if (fails) Kel::throwRangeException("no");
    ++edits;
    return false;
  }
  int edits = 0;
  bool fails = false;
};

TEST_F(Session, ShowsTheCheckerTheEditsOfBothCopies) {
  replace(world.src);
  auto const checking = Kel::Ptr<Checking>(new Checking);
  status->attributeEditBypassTableIs(checking);
  for (bool const logs : {false, true}) {
    world.open("s1", logs);
    src->u8Is(src->u8() + 1);
    checking->edits = 0;
    replace(world.src);
    EXPECT_EQ(checking->edits, 2);
  }
}

TEST_F(Session, UsesTheBypassTableAndTheInHandlerTable) {
  logEdits();
  auto const table = S::attributeEditBypassTableFactory("bypass");
  table->newAttributeEditBypassEntry(S::AttributeEdit("u8", "Plant::Hall", S::AttributeEditType::set_))
      ->parentPathIs("", true);
  status->attributeEditBypassTableIs(table);
  auto const handlers = S::entityCopyCustomHandlerTableFactory("in", world.root);
  auto const filters = S::entityCopyFilterDirFactory("filters");
  auto const names = S::attributeFilterFactory();
  names->attributeNameIs("u16", true);
  handlers->registerEntityCopyFilter(filters, S::EntityPath(""), "Plant::Hall", names);
  src->u8Is(1);
  src->u16Is(1);
  status->handlerTableIs(handlers);
  replace(world.src);
  EXPECT_EQ(World::hall(session)->u16(), 1) << "handlerTable is not for this";
  EXPECT_EQ(edits(), (Edits{{"Plant::Hall::u16 set hall", 1}}));
  status->inHandlerTableIs(handlers);
  src->u16Is(2);
  replace(world.src);
  EXPECT_EQ(World::hall(session)->u16(), 1);
}

struct SessionOfDirectories : Session {
  Kel::Ptr<S::EntityCopyCustomHandlerTable> table = S::entityCopyCustomHandlerTableFactory("in", world.root);
  S::EntityCopyFilterDir::Ptr filters = S::entityCopyFilterDirFactory("filters");
  Kel::Ptr<Plant::Hall> deep;

  static GenericIf::PtrConst path(char const* text) { return GenericIf::of(S::EntityPath(text)); }
  void handle(char const* at, char const* typeName, Kel::Ptr<S::EntityCopyGlobalSessionHandler> const& handler) const {
    handler->sessionStatusIs(status);
    call(table, "registerCustomCopyHandler",
         {{"handler", boxed(handler)}, {"path", path(at)}, {"typeName", boxed(typeName)}});
  }

  // Two plain directories as session roots; in the first an entity lies four levels down. It is filtered, and the
  // directories are reconciled entry by entry.
  void SetUp() override {
    Session::SetUp();
    for (char const* root : {"cfg", "sys/empty"}) world.rootIs(root, "Kel::Dir");
    Kel::Dir::Ptr at(new Kel::Dir("cfg", world.src.ptr()));
    for (char const* name : {"a", "b", "c"}) at = Kel::Dir::Ptr(new Kel::Dir(name, at.ptr()));
    deep = Kel::ptrCast<Plant::Hall>(at->newEntity("Plant::Hall", "deep"));
    new Kel::Dir("empty", Kel::ptrCast<Kel::Dir>(world.src->entity("sys")).ptr());
    deep->newSlot(3)->textIs("text");
    deep->slot(3)->newPart()->noteIs("note");
    deep->favouriteIs(deep->newBolt("near"));
    deep->bolt("near")->peerIs(src->newBolt("far"));
    src->favouriteIs(deep->bolt("near"));

    handle("", "Kel::Dir", filters->newDirHandler());
    auto const names = S::attributeFilterFactory();
    names->attributeNameIs("text", true);
    call(table, "registerEntityCopyFilter",
         {{"attrs", boxed(names)},
          {"filterDir", boxed(filters)},
          {"path", path("cfg/a")},
          {"typeName", boxed("Plant::Slot")}});
    filters->ecf(S::HandlerContext(S::EntityPath("cfg/a"), "Plant::Slot"))
        ->newPreAttribute()
        ->attributeNameIs(1, "part");
    status->inHandlerTableIs(table);
    logEdits();
  }
  void TearDown() override { status->inHandlerTableIs(nullptr); }  // its handlers point at it
};

TEST_F(SessionOfDirectories, IsFilledLevelByLevelAndFiltered) {
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(replace(world.src));
    for (Kel::Dir::Ptr const& dir : {session, ancestor}) {
      Kel::Ptr<Plant::Hall> const made = World::hall(dir, "cfg/a/b/c/deep");
      ASSERT_TRUE(made);
      EXPECT_EQ(made->slot(3)->text(), "") << "it is filtered";
      EXPECT_EQ(made->slot(3)->part()->note(), "note");
      // Each copy points into itself.
      EXPECT_EQ(made->favourite(), made->bolt("near"));
      EXPECT_EQ(made->bolt("near")->peer(), World::hall(dir)->bolt("far"));
      EXPECT_EQ(World::hall(dir)->favourite(), made->bolt("near"));
      EXPECT_TRUE(dir->entity("sys/empty"));
    }
    if (run == 0) {
      EXPECT_EQ(edits().at("Kel::Dir::EntryState::entryState set cfg/a/b"), 2u);
      EXPECT_EQ(edits().at("Plant::Part::note set cfg/a/b/c/deep.slot/3.part"), 1u);
      pending->attributeEditLog()->attributeEditEntryDelAll();
    } else {
      EXPECT_EQ(textOf(edits()), "") << "the second time there was nothing to do";
    }
  }
  deep->slot(3)->part()->noteIs("other");
  Kel::ptrCast<Kel::Dir>(world.src->entity("cfg/a"))->newEntity("Plant::Bolt", "extra");
  Kel::ptrCast<Kel::Dir>(session->entity("sys/empty"))->newEntity("Plant::Bolt", "stray");
  replace(world.src);
  EXPECT_EQ(edits(), (Edits{{"Kel::Dir::EntryState::entryState set cfg/a", 2},
                            {"Kel::Dir::EntryState::entryState del sys/empty", 1},
                            {"Plant::Part::note set cfg/a/b/c/deep.slot/3.part", 1}}));
}

// A filter has a mark made at the path of every attribute that it copies first.
TEST_F(SessionOfDirectories, AKeyOfManySeparatorsIsFiltered) {
  auto const names = S::attributeFilterFactory();
  names->attributeNameIs("peer", true);
  table->registerEntityCopyFilter(filters, S::EntityPath("hall"), "Plant::Bolt", names);
  filters->ecf(S::HandlerContext(S::EntityPath("hall"), "Plant::Bolt"))
      ->newPreAttribute()
      ->attributeNameIs(1, "torque");
  Kel::Name const key = std::string(20000, '/') + std::string(20000, '.');
  src->newBolt(key)->torqueIs(3);
  ASSERT_TRUE(replace(world.src));
  for (Kel::Dir::Ptr const& dir : {session, ancestor}) EXPECT_EQ(World::hall(dir)->bolt(key)->torque(), 3);
}

TEST_F(SessionOfDirectories, AHandlerOfAPathWinsOverThoseOfTypes) {
  std::vector<std::string> exact, shortest, longer;
  auto const noteIn = [&](std::vector<std::string>& visits) {
    return world.scripted([&visits](auto const&, auto const&, auto const&, Kel::String const& at) {
      visits.push_back(at.str());
      return false;
    });
  };
  handle("cfg/a/b/c", "", noteIn(exact));
  handle("hall.b", "Plant::Bolt", noteIn(shortest));
  handle("hall.bolt", "Plant::Bolt", noteIn(longer));
  replace(world.src);
  EXPECT_EQ(exact, (std::vector<std::string>{"cfg/a/b/c", "cfg/a/b/c"}));
  EXPECT_EQ(shortest, (std::vector<std::string>{"hall.bolt/far", "hall.bolt/far"}));
  EXPECT_TRUE(longer.empty());
  EXPECT_TRUE(session->entity("cfg/a/b/c")) << "its directory has been made all the same";
  EXPECT_FALSE(session->entity("cfg/a/b/c/deep"));
}

TEST_F(Session, CopiesWhatWasPutOff) {
  world.handlerAt("", "Plant::Hall", [](auto const& ec, auto const& to, auto const& from, auto const& path) {
    EXPECT_EQ(ec->ancestor(), ec->src());
    EXPECT_TRUE(ec->attributeEditLog());
    auto const handler = Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec->handler());
    for (char const* attr : {"u8", "favourite", "bolt"}) handler->postAttributeCopyEnq(to, from, path, attr);
    return false;
  });
  status->inHandlerTableIs(world.table);
  src->u8Is(5);
  src->u16Is(6);
  // Its target is made after it.
  src->favouriteIs(World::hall(world.src, "sys/annex")->newBolt("late"));
  replace(world.src);
  for (Kel::Dir::Ptr const& dir : {session, ancestor}) {
    EXPECT_EQ(World::hall(dir)->u8(), 5);
    EXPECT_EQ(World::hall(dir)->u16(), 0);
    EXPECT_TRUE(World::hall(dir)->favourite());
    EXPECT_EQ(World::hall(dir)->favourite(), World::hall(dir, "sys/annex")->bolt("late"));
  }
  status->inHandlerTableIs(nullptr);  // its handler points at the status
}

// --- The clean configuration ---

TEST_F(Session, CleanConfigIsBuiltOnceAndUsed) {
  Kel::Dir::Ptr const clean(new Kel::Dir("clean", world.root.ptr()));
  // What lies outside of the session roots has its place in the clean configuration, too.
  src->favouriteIs(Kel::ptrCast<Plant::Bolt>(world.src->entityRef("loose")));
  Kel::Entity::Ptr const loose = clean->newEntity("Plant::Bolt", "loose");
  auto const progress = S::cleanConfigStatusFactory("progress");
  src->u8Is(3);
  world.src->entryDel("sys");
  Traces const traces("CliSession");
  EXPECT_FALSE(call(status, "doCleanConfig", {{"sessionName", boxed("s1")}})->attrVal<bool>());
  EXPECT_TRUE(traces.inOrder({"CliSession/8 bool Cli::Session::Status::doCleanConfig(Kel::String) for s1",
                              "CliSession/9 clean-config is not yet complete"}));
  EXPECT_THROW(status->doCreateCleanConfig(world.src, clean), Kel::RangeException) << "without a status of its own";
  status->cleanConfigStatusIs(progress);
  status->cleanConfigIs(clean);
  EXPECT_FALSE(status->doCleanConfig("s1")) << "it is not complete";
  Kel::Ptr<Checking> const checking(new Checking);
  status->attributeEditBypassTableIs(checking);
  checking->fails = true;
  EXPECT_THROW(status->doCreateCleanConfig(world.src, clean), Kel::RangeException);
  EXPECT_FALSE(progress->cleanConfigComplete()) << "the copy has failed";
  checking->fails = false;
  call(status, "doCreateCleanConfig", {{"src", boxed(world.src)}, {"dest", boxed(clean)}});
  EXPECT_TRUE(
      traces.inOrder({"CliSession/8 void Cli::Session::Status::doCreateCleanConfig(const "
                      "Kel::Ptr<Kel::Dir>&, const Kel::Ptr<Kel::Dir>&)",
                      "CliSession/9 Adding CliSession root hall", "CliSession/9 Adding CliSession root sys/annex",
                      "CliSession/5  session root sys/annex not found; leave empty."}))
      << traces.text();
  EXPECT_TRUE(progress->cleanConfigComplete());
  EXPECT_EQ(checking->edits, 2) << "u8 and favourite";
  EXPECT_TRUE(progress->cleanConfigRoot("hall") && progress->cleanConfigRoot("sys/annex"));
  ASSERT_TRUE(World::hall(clean, "sys/annex"));
  EXPECT_EQ(World::hall(clean)->favourite(), loose);
  src->u8Is(9);
  EXPECT_TRUE(status->doCleanConfig("s1"));
  EXPECT_EQ(pending->errors(), 0u);
  EXPECT_EQ(World::hall(session)->u8(), 3);
  EXPECT_FALSE(status->doCleanConfig("nobody"));
}

}  // namespace
