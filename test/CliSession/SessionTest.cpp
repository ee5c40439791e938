// The session manager, driven as its owner does: by name.
#include <gtest/gtest.h>

#include "CliSession/World.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using Kel::GenericIf;

GenericIf::PtrConst boxed(EntityPtr const& e) { return GenericIf::PtrConst(GenericIf::ofEntity(e)); }
GenericIf::PtrConst boxed(char const* text) { return GenericIf::of(Kel::String8(text)); }

struct Session : testing::Test {
  World world;
  S::Status::Ptr status = world.status;
  Kel::Dir::Ptr sessions{new Kel::Dir("sessions", world.root.ptr())};
  Kel::Dir::Ptr ancestors{new Kel::Dir("ancestors", world.root.ptr())};
  Kel::Dir::Ptr session{new Kel::Dir("s1", sessions.ptr())}, ancestor{new Kel::Dir("s1", ancestors.ptr())};
  S::Config::Ptr config = S::configFactory("config");
  Kel::Ptr<S::PendingChangeConfig> change;
  Kel::Ptr<S::PendingChangeStatus> pending;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src);

  void SetUp() override {
    config->initialize();
    change = config->pendingChangeConfigDir()->newConfig("s1", true, false, false, 10.0);
    pending = status->pendingChangeStatusDir()->newStatus("s1", change, 10.0, 1);
    status->sessionDirIs(sessions);
    status->ancestorDirIs(ancestors);
  }
  GenericIf::Ptr call(char const* op, GenericIf::Args const& args) const {
    GenericIf::Ptr const gif = GenericIf::ofEntity(EntityPtr(status));
    return gif->attributeCall(gif->attributeId(op), args);
  }
  bool replace(Kel::Dir::Ptr const& from, char const* name = "s1") const {
    return call("doReplaceConfig", {{"sessionName", boxed(name)}, {"src", boxed(from)}})->attrVal<bool>();
  }
  Edits edits() const { return editsOf(*pending->attributeEditLog()); }
};
using SessionDeathTest = Session;

TEST_F(Session, IsInitialized) {
  EXPECT_EQ(config->pendingChangeConfigDir()->name(), "pendingChangeConfig");
  S::Status::Ptr const fresh = S::statusFactory("fresh");
  fresh->initialize();
  EXPECT_EQ(fresh->pendingChangeStatusDir()->name(), "pendingChangeStatus");
  auto const kept = fresh->rootTrie();
  fresh->initialize();
  EXPECT_EQ(fresh->rootTrie(), kept);
}

// --- Session roots ---

TEST_F(Session, MakesTheSkeletonOfARoot) {
  Kel::Dir::Ptr const into(new Kel::Dir("into", world.root.ptr()));
  src->u8Is(3);
  {
    Traces const traces("CliSession");
    call("doCreateSessionRoots", {{"src", boxed(world.src)}, {"dest", boxed(into)}});
    std::string const one =
        "void Cli::Session::Status::doCreateSessionRoot(const Kel::Ptr<Kel::Dir>&, const "
        "Kel::Ptr<Kel::Dir>&, Kel::String)status path: ";
    EXPECT_TRUE(traces.inOrder(
        {"CliSession/8 void Cli::Session::Status::doCreateSessionRoots(const "
         "Kel::Ptr<Kel::Dir>&, const Kel::Ptr<Kel::Dir>&)status",
         "CliSession/8 " + one + "hall", "CliSession/5 doCreateSessionRoot creating final hall Plant::Hall",
         "CliSession/5 e type: Plant::Hall", "CliSession/8 " + one + "sys/annex",
         "CliSession/5 doCreateSessionRoot creating final annex Plant::Hall"}))
        << traces.text();
  }
  ASSERT_TRUE(World::hall(into, "sys/annex"));
  EXPECT_EQ(World::hall(into)->u8(), 0) << "content is copied";
  EntityPtr const made = into->entity("hall");
  Traces const traces("CliSession", 1u << 5);
  status->doCreateSessionRoot(world.src, into, "hall");
  EXPECT_EQ(traces.lines,
            (std::vector<std::string>{
                "CliSession/5 doCreateSessionRoot final hall of type Plant::Hall already created in /into"}));
  EXPECT_EQ(into->entity("hall"), made);
}

TEST_F(Session, ARootMissingInTheSourceWarnsAndIsMade) {
  Kel::Dir::Ptr const into(new Kel::Dir("into", world.root.ptr()));
  Kel::ptrCast<Kel::Dir>(world.src->entityRef("sys"))->entryDel("annex");
  for (std::string const path : {"hall", "sys/annex"}) {
    world.src->entryDel("hall");
    testing::internal::CaptureStderr();
    status->doCreateSessionRoot(world.src, into, Kel::String8(path));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "path " + path + " is not a mount point in src (/src)\n");
    EXPECT_TRUE(World::hall(into, path.c_str()));
  }
  into->entryDel("sys");
  world.src->entryDel("sys");
  testing::internal::CaptureStderr();
  status->doCreateSessionRoot(world.src, into, "sys/annex");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "of a missing ancestor nobody speaks";
  EXPECT_TRUE(World::hall(into, "sys/annex"));
}

TEST_F(Session, ARootThatIsOnlyAnnouncedIsMade) {
  Kel::Dir::Ptr const into(new Kel::Dir("into", world.root.ptr()));
  auto const announced = into->entryStateIs("hall", "Plant::Hall");
  status->doCreateSessionRoot(world.src, into, "hall");
  EXPECT_EQ(into->entry("hall"), announced);
  EXPECT_TRUE(announced->entityPtr());
}

TEST_F(Session, RefusesBadRootsBeforeMakingAnything) {
  Kel::Dir::Ptr const into(new Kel::Dir("into", world.root.ptr()));
  world.rootIs("odd/root", "No::Such");
  world.rootIs("odd/log", "Cli::Session::AttributeEditLog");  // not made by a name
  for (std::string const path : {"", "/hall", "sys//annex", "hall/", "/", "odd/root", "odd/log", "un/known"}) {
    std::string const message =
        messageOf<Kel::Exception>([&] { status->doCreateSessionRoot(world.src, into, Kel::String8(path)); });
    EXPECT_NE(message.find("'" + path + "'"), std::string::npos) << message;
  }
  into->newEntity("Plant::Bolt", "sys");
  EXPECT_THROW(status->doCreateSessionRoot(world.src, into, "sys/annex"), Kel::Exception);
  EXPECT_THROW(status->doCreateSessionRoot(world.src, nullptr, "hall"), Kel::RangeException);
  EXPECT_THROW(status->doCreateSessionRoot(nullptr, into, "hall"), Kel::RangeException);
  EXPECT_EQ(into->entryStates(), 1u);
}

TEST_F(SessionDeathTest, AssertsThatRootsAreWhatTheySayTheyAre) {
  Kel::Dir::Ptr const into(new Kel::Dir("into", world.root.ptr()));
  into->newEntity("Plant::Bolt", "hall");
  EXPECT_DEATH(status->doCreateSessionRoot(world.src, into, "hall"), "'exists->typeName\\(\\) == typeName' failed");
  into->entryDel("hall");
  world.src->entryDel("hall");
  world.src->newEntity("Plant::Bolt", "hall");
  EXPECT_DEATH(status->doCreateSessionRoot(world.src, into, "hall"),
               "CliSession:[0-9]+: void Cli::Session::Status::doCreateSessionRoot\\(.*'e->type\\(\\) == typeName'");
  world.src->entryDel("sys");
  world.src->newEntity("Plant::Bolt", "sys");
  EXPECT_DEATH(status->doCreateSessionRoot(world.src, into, "sys/annex"),
               "'systemSoFar && \"All sessionRoot's ancestors must be Kel::Dirs\"' failed");
}

// --- Config replacement ---

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
  ancestors->entryDel("s1");
  {
    Traces const traces("CliSession");
    EXPECT_EQ(raised(), "null ValidPtr");
    status->sessionDirIs(nullptr);
    EXPECT_EQ(raised(), "null ValidPtr");
    EXPECT_TRUE(traces.inOrder(
        {"CliSession/9 Session s1: ancestorDir has no directory 's1'", "CliSession/9 Session s1: sessionDir is null"}))
        << traces.text();
  }
  status->sessionDirIs(sessions);
  ancestors->newEntity("Kel::Dir", "s1");
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
  ancestors->entryDel("s1");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(messageOf<Kel::RangeException>([&] { replace(world.src); }), "null ValidPtr");
    EXPECT_EQ(session->entryStates(), 0u);
    if (i == 0) ancestors->newEntity("Plant::Bolt", "s1");
    if (i == 1) status->ancestorDirIs(nullptr);
  }
}

struct Told : Plant::Hall::Notifiee {
  explicit Told(Kel::Ptr<Plant::Hall> const& hall) {
    isNondestructingIs(true);
    notifierIs(hall);
  }
  ~Told() override { notifierIs(nullptr); }
  void onU8() override { ++times; }
  int times = 0;
};

struct SessionOfVanishedRoots : Session {
  Kel::Ptr<Plant::Hall> mine, theirs;  // in the session, in its ancestor

  // A root by itself, and one that stands in another; the source has neither.
  void SetUp() override {
    Session::SetUp();
    world.src->entryDel("hall");
    world.rootIs("sys/new/on/the/way", "Plant::Hall");
    world.rootIs("sys/new", "Kel::Dir");
    replaceQuietly();
    mine = World::hall(session);
    theirs = World::hall(ancestor);
  }
  void replaceQuietly() const {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(replace(world.src));
    testing::internal::GetCapturedStderr();
  }
  std::string content(Kel::Ptr<Plant::Hall> const& hall) const { return Tests::dump(*hall, {*hall, {}}); }
};

TEST_F(SessionOfVanishedRoots, AreKeptWhileTheyAreEmpty) {
  Told told(mine);
  std::vector<EntityPtr> before, after;
  for (auto* found : {&before, &after}) {
    for (Kel::Dir::Ptr const& dir : {session, ancestor})
      for (char const* path : {"hall", "sys/new", "sys/new/on/the", "sys/new/on/the/way"})
        found->push_back(dir->entity(path));
    replaceQuietly();
  }
  EXPECT_EQ(before, after);

  mine->u8Is(1);
  EXPECT_EQ(told.times, 1);
  replaceQuietly();
  EXPECT_EQ(mine->parent(), nullptr) << "it was filled";
  EXPECT_EQ(World::hall(session)->u8(), 0);
  EXPECT_EQ(World::hall(ancestor), theirs) << "this one was not";
  EXPECT_EQ(pending->local("hall"), session->entity("hall"));
  // What a copy does not carry counts, too.
  theirs->seenIs(1);
  World::hall(session, "sys/new/on/the/way")->u8Is(1);
  replaceQuietly();
  EXPECT_EQ(World::hall(ancestor)->seen(), 0u);
  EXPECT_EQ(World::hall(session, "sys/new/on/the/way")->u8(), 0);
  EXPECT_EQ(session->entity("sys/new"), before[1]) << "what stands in it was asked about for itself";
  for (char const* path : {"sys/new", "sys/new/on/the"}) {
    Kel::ptrCast<Kel::Dir>(session->entity(path))->newEntity("Kel::Dir", "stray");
    replaceQuietly();
    EXPECT_FALSE(session->entity(Kel::String8(path) + "/stray"));
    EXPECT_TRUE(World::hall(session, "sys/new/on/the/way"));
  }
}

TEST_F(SessionOfVanishedRoots, AreEnteredAndAreNoEdits) {
  change->logAttributeEditsIs(true);
  pending->localPrefixIs("mine");
  Traces const traces("CliSession", 1u << 5 | 1u << 9);
  replaceQuietly();
  EXPECT_EQ(edits(), Edits{});
  for (char const* path : {"hall", "sys/new/on/the/way"}) {
    EXPECT_EQ(pending->local(path), session->entity(path));
    EXPECT_TRUE(pending->localPrefix()->isPrefix(path));
  }
  EXPECT_EQ(pending->localPrefix()->name(), "mine") << "it was there";
  std::set<std::string> const functions(traces.functions.begin(), traces.functions.end());
  EXPECT_EQ(functions, (std::set<std::string>{"CliSession:doCreateSessionRoot", "CliSession:doReplaceConfig",
                                              "CliSession:handleEntity"}));
}

TEST_F(SessionOfVanishedRoots, AreKeptWhileTheyAreOnlyAnnounced) {
  session->entryDel("hall");
  auto const announced = session->entryStateIs("hall", "Plant::Hall");
  replaceQuietly();
  EXPECT_EQ(session->entry("hall"), announced);
}

// Whatever is changed: a root that looks like a new one is kept, any other is made anew.
TEST_F(SessionOfVanishedRoots, AreKeptExactlyWhileTheyLookNew) {
  std::string const empty = content(mine);
  int kept = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    Generator generator(seed);
    generator.mutate(*mine, {world.src->entity("loose").ptr(), mine.ptr()});
    bool const looksNew = content(mine) == empty;
    replaceQuietly();
    EXPECT_EQ(World::hall(session) == mine, looksNew) << content(mine);
    EXPECT_EQ(content(World::hall(session)), empty);
    mine = World::hall(session);
    kept += looksNew ? 1 : 0;
  }
  EXPECT_TRUE(kept > 0 && kept < 200) << kept;
}

TEST_F(SessionOfVanishedRoots, NoneIsDeletedWhenAnyRootIsRefused) {
  mine->u8Is(1);
  session->newEntity("Plant::Bolt", "blocked");
  ancestor->newEntity("Plant::Bolt", "blockedToo");
  auto const stays = [&](char const* what) {
    EXPECT_THROW(replace(world.src), Kel::Exception) << what;
    EXPECT_EQ(World::hall(session), mine) << what;
    EXPECT_FALSE(session->entry("odd") || ancestor->entry("odd")) << what;
  };
  for (char const* path :
       {"", "/odd", "odd/", "odd//odd", "odd/unknown", "blocked/hall", "blockedToo/hall", "hall/b"}) {
    bool const typed = std::string(path) != "odd/unknown";
    typed ? world.rootIs(path, "Plant::Hall") : status->rootIs(path, true);
    stays(path);
    status->rootDel(path);
    if (typed) status->rootTrie()->prefixDel(path);
  }
  for (char const* path : {"odd", "odd/below"}) world.rootIs(path, "Plant::Hall");
  stays("below a root that is no directory");
  for (char const* path : {"odd/below", "odd"}) status->rootDel(path);
  new Kel::Dir("kept", world.src.ptr());
  session->newEntity("Plant::Bolt", "kept");
  world.rootIs("kept", "Kel::Dir");
  world.rootIs("kept/hall", "Plant::Hall");
  stays("below a root of the source, which is not made anew");
  for (char const* path : {"kept/hall", "kept"}) status->rootDel(path);
  status->rootTrieDel();
  stays("no trie");
  status->rootTrieIs("root");
  stays("no types");
}

// A root that was an entity and is now a directory goes before what lies in it is asked about.
TEST_F(SessionOfVanishedRoots, MayBecomeDirectories) {
  status->rootTrie()->prefixDel("hall");
  world.rootIs("hall/inner", "Plant::Hall");
  world.rootIs("hall", "Kel::Dir");
  replaceQuietly();
  EXPECT_TRUE(World::hall(session, "hall/inner") && World::hall(ancestor, "hall/inner"));
}

TEST_F(Session, KeepsALogOfWhatChanged) {
  change->logAttributeEditsIs(true);
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
    change->logAttributeEditsIs(logs);
    src->u8Is(src->u8() + 1);
    checking->edits = 0;
    replace(world.src);
    EXPECT_EQ(checking->edits, 2);
  }
}

TEST_F(Session, UsesTheBypassTableAndTheInHandlerTable) {
  change->logAttributeEditsIs(true);
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

// Counts the entities that it is given.
struct Counting : S::EntityCopyGlobalSessionHandler {
  std::vector<std::string> visits;
  bool handleEntity(Kel::Ptr<EntityCopy> const&, EntityPtr const&, EntityPtrConst const&, Kel::String path) override {
    visits.emplace_back(path.view());
    return false;
  }
};

struct SessionOfDirectories : Session {
  Kel::Ptr<S::EntityCopyCustomHandlerTable> table = S::entityCopyCustomHandlerTableFactory("in", world.root);
  S::EntityCopyFilterDir::Ptr filters = S::entityCopyFilterDirFactory("filters");
  Kel::Ptr<Plant::Hall> deep;

  static GenericIf::PtrConst boxed(S::EntityPath const& path) { return GenericIf::of(path); }
  static GenericIf::PtrConst boxed(EntityPtr const& e) { return ::boxed(e); }
  static GenericIf::PtrConst boxed(char const* text) { return ::boxed(text); }
  void callTable(char const* op, GenericIf::Args const& args) const {
    GenericIf::Ptr const gif = GenericIf::ofEntity(EntityPtr(table));
    gif->attributeCall(gif->attributeId(op), args);
  }
  void handle(char const* path, char const* typeName,
              Kel::Ptr<S::EntityCopyGlobalSessionHandler> const& handler) const {
    handler->sessionStatusIs(status);
    callTable("registerCustomCopyHandler",
              {{"handler", boxed(handler)}, {"path", boxed(S::EntityPath(path))}, {"typeName", boxed(typeName)}});
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
    callTable("registerEntityCopyFilter", {{"attrs", boxed(names)},
                                           {"filterDir", boxed(filters)},
                                           {"path", boxed(S::EntityPath("cfg/a"))},
                                           {"typeName", boxed("Plant::Slot")}});
    filters->ecf(S::HandlerContext(S::EntityPath("cfg/a"), "Plant::Slot"))
        ->newPreAttribute()
        ->attributeNameIs(1, "part");
    status->inHandlerTableIs(table);
    change->logAttributeEditsIs(true);
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
  Kel::Ptr<Counting> const exact(new Counting), shortest(new Counting), longer(new Counting);
  handle("cfg/a/b/c", "", exact);
  handle("hall.b", "Plant::Bolt", shortest);
  handle("hall.bolt", "Plant::Bolt", longer);
  replace(world.src);
  EXPECT_EQ(exact->visits, (std::vector<std::string>{"cfg/a/b/c", "cfg/a/b/c"}));
  EXPECT_EQ(shortest->visits, (std::vector<std::string>{"hall.bolt/far", "hall.bolt/far"}));
  EXPECT_TRUE(longer->visits.empty());
  EXPECT_TRUE(session->entity("cfg/a/b/c")) << "its directory has been made all the same";
  EXPECT_FALSE(session->entity("cfg/a/b/c/deep"));
}

// Puts some attributes off to after the main copy.
struct Later : S::EntityCopyGlobalSessionHandler {
  bool handleEntity(Kel::Ptr<EntityCopy> const& ec, EntityPtr const& dest, EntityPtrConst const& src,
                    Kel::String path) override {
    EXPECT_EQ(ec->ancestor(), ec->src());
    EXPECT_TRUE(ec->attributeEditLog());
    auto const handler = Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec->handler());
    for (char const* attr : {"u8", "favourite", "bolt"}) handler->postAttributeCopyEnq(dest, src, path, attr);
    return false;
  }
};

TEST_F(Session, CopiesWhatWasPutOff) {
  auto const handlers = S::entityCopyCustomHandlerTableFactory("in", world.root);
  handlers->registerCustomCopyHandler(S::EntityPath(""), "Plant::Hall",
                                      Kel::Ptr<S::EntityCopyGlobalSessionHandler>(new Later));
  status->inHandlerTableIs(handlers);
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
  EXPECT_FALSE(call("doCleanConfig", {{"sessionName", boxed("s1")}})->attrVal<bool>());
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
  call("doCreateCleanConfig", {{"src", boxed(world.src)}, {"dest", boxed(clean)}});
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
