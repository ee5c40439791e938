// Session roots: their skeletons, and those that the source has lost.
#include "CliSession/Sessions.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using SessionDeathTest = Session;

TEST_F(Session, IsInitialized) {
  EXPECT_EQ(world.config->pendingChangeConfigDir()->name(), "pendingChangeConfig");
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
    call(status, "doCreateSessionRoots", {{"src", boxed(world.src)}, {"dest", boxed(into)}});
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

// --- Roots that the source has lost ---

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
  logEdits();
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

TEST_F(SessionOfVanishedRoots, AreMadeAnewForOtherParameters) {
  world.rootIs("plate", "Plant::Plate");
  session->entryIs(Plant::plateFactory("plate", 2));
  replaceQuietly();
  EXPECT_EQ(Kel::ptrCast<Plant::Plate>(session->entity("plate"))->rank(), 0);
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

}  // namespace
