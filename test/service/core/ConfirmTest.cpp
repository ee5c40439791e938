// Commits that are undone unless somebody confirms them.
#include "MessageOf.h"
#include "service/core/Commits.h"

namespace {

using namespace Tests;
using Confirming = Commits;

TEST_F(Confirming, UndoneUnlessConfirmed) {
  std::string const before = device.image();
  in(a).u32Is(1);
  a.commitConfirmed(60);
  in(b).textIs("b");
  EXPECT_THROW(b.commit(), Sv::UnconfirmedError);
  device.time += 30;
  in(a).u32Is(2);
  a.commitConfirmed(60);  // the clock starts anew
  device.time += 45;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 2u);
  device.time += 15;
  service.poll();
  EXPECT_EQ(device.image(), before) << "back to before the first";
  EXPECT_EQ(in(a).u32(), 2u) << "back in the session as edits";
  EXPECT_EQ(linesOf(a.differences()), "changed hall.u32: 0 -> 2\n");
  EXPECT_EQ(a.takeNotices().size(), 1u);
  b.commit();
  EXPECT_EQ(service.history().size(), 4u);
  EXPECT_EQ(service.commitRecord(3).kind, Sv::CommitKind::undone);

  a.commitConfirmed(60);
  EXPECT_TRUE(a.commit().confirms);
  device.time += 100;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 2u);
  EXPECT_FALSE(service.waiting());

  in(a).u32Is(3);
  a.commitConfirmed(60);
  a.commitCancel();
  EXPECT_EQ(device.hall()->u32(), 2u);
  EXPECT_EQ(a.differences().size(), 1u);
}

TEST_F(Confirming, ConfirmedAgainWithoutEditsWaitsLonger) {
  in(a).u32Is(5);
  a.commitConfirmed(60);
  device.time += 50;
  EXPECT_FALSE(a.commitConfirmed(60).number);
  device.time += 50;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 5u);
  device.time += 20;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 0u);
}

TEST_F(Confirming, ConfirmedByAWordOrLostWithTheSession) {
  in(a).u32Is(1);
  a.commitConfirmed(60, "word");
  service.close(a);
  EXPECT_EQ(device.hall()->u32(), 1u);
  EXPECT_THROW(b.commitPersistent("other"), Sv::UnconfirmedError);
  EXPECT_TRUE(b.commitPersistent("word").confirms);
  in(b).u32Is(2);
  b.commitConfirmed(60);
  service.close(b);
  EXPECT_EQ(device.hall()->u32(), 1u) << "the edits are dropped";
  EXPECT_FALSE(service.waiting());
}

// A participant that fails then is reported; the time comes, or the process is gone.
TEST_F(Confirming, UndoingCannotBeRefused) {
  Sv::Options options;
  bool lives = true;
  options.isAlive = [&](Kel::U32) { return lives; };
  Device other({}, std::move(options));
  other.service->tunables().rollbackCommitsAutomaticallyIs(true);
  Agent agent;
  other.service->registerForPath(agent, "");
  Sv::Session& x = other.open("x");
  in(x).u32Is(1);
  x.commit();
  ASSERT_TRUE(other.service->waiting());
  EXPECT_EQ(other.service->waiting()->until, other.time + 600);
  EXPECT_EQ(messageOf<Sv::UnconfirmedError>([&] { other.open("y").commit(); }),
            "commit 1 of user of x (session x) waits to be confirmed for another 600 s");
  agent.fails = "the hardware is gone";
  EXPECT_EQ(x.commitCancel().reports, std::vector<std::string>{"the hardware is gone"});
  EXPECT_EQ(other.hall()->u32(), 0u);
  EXPECT_THROW(x.commitCancel(), Sv::Error);
  agent.fails.clear();
  x.commit();
  EXPECT_EQ(other.hall()->u32(), 1u);
  lives = false;
  other.time += 599;
  other.service->poll();
  EXPECT_EQ(other.hall()->u32(), 0u) << "with the session that was lost";
  EXPECT_TRUE(other.service->list().empty());
}

}  // namespace
