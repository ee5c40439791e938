// How sessions come and go, and the requests that their owners write.
#include "service/core/Commits.h"

namespace {

using namespace Tests;
using Sessions = Commits;

TEST_F(Sessions, SessionsAreClosedLeftAndResumed) {
  in(a).u32Is(1);
  EXPECT_THROW(service.close(a), Sv::Error);
  EXPECT_THROW(device.open("a"), Sv::Error);
  EXPECT_THROW(service.resume("a", "u"), Sv::Error);
  service.leave(a);
  EXPECT_THROW(service.leave(b), Sv::LimitError) << "one saved session is allowed";
  EXPECT_EQ(service.list().size(), 2u);
  EXPECT_EQ(in(service.resume("a", "another")).u32(), 1u);
  for (char const* name : {"c", "d", "e"}) device.open(name);
  EXPECT_THROW(device.open("f"), Sv::LimitError);
  auto const status = service.manager().pendingChangeStatusDir()->status("a");
  service.close(a, true);
  EXPECT_TRUE(status->completed());
  EXPECT_EQ(status->state(), Cli::Session::SessionState::completed);
  EXPECT_FALSE(service.session("a"));
  EXPECT_EQ(in(device.open("a")).u32(), 0u);
}

TEST_F(Sessions, SessionsExpire) {
  Sv::Options options;
  bool lives = true;
  options.isAlive = [&](Kel::U32) { return lives; };
  Device other({}, std::move(options));
  Sv::Session& x = other.open("x");
  other.open("y");
  x.config().expirationTimeIs(other.time + 10);
  other.service->poll();
  EXPECT_EQ(x.status().expirationTime(), other.time + 10);
  other.time += 10;
  other.service->poll();
  EXPECT_EQ(other.service->list().size(), 1u);
  lives = false;
  other.time += 900;
  other.service->poll();
  EXPECT_TRUE(other.service->list().empty()) << "its process is gone";
  lives = true;
  other.service->leave(other.open("z"));
  other.time += 3600;
  other.service->poll();
  EXPECT_TRUE(other.service->list().empty()) << "left for too long";
  other.open("used");
  other.time += 4000;
  other.service->poll();
  EXPECT_EQ(other.service->list().size(), 1u) << "in use";
}

TEST_F(Sessions, RequestsAreAnsweredUnderTheirNumbers) {
  using Cli::Session::SessionCommand;
  auto const requests = a.config().newCommandDir(3);
  in(a).u32Is(1);
  requests->newCommand(Cli::Session::CommandRequest(SessionCommand::commit, 1));
  requests->newCommand(Cli::Session::CommandRequest(SessionCommand::update, 2));
  auto const responses = a.status().commandResponse(3);
  ASSERT_TRUE(responses);
  EXPECT_EQ(responses->response(1), "committed as 1");
  EXPECT_EQ(responses->response(2), "updated; 0 changes");
  EXPECT_EQ(device.hall()->u32(), 1u);
  in(b).u32Is(2);
  auto const others = b.config().newCommandDir(1);
  others->newCommand(Cli::Session::CommandRequest(SessionCommand::commit, 1));
  EXPECT_EQ(b.status().commandResponse(1)->response(1).view().find("error: 1 conflict"), 0u);
  // One that comes while a commit is under way waits for its end.
  struct Asks : Sv::Participant {
    std::function<void()> ask;
    void apply(std::vector<Sv::Difference> const&) override { ask(); }
    void undo(std::vector<Sv::Difference> const&) override {}
  } asks;
  service.registerForPath(asks, "");
  asks.ask = [&] {
    others->newCommand(Cli::Session::CommandRequest(SessionCommand::clearConfig, 2));
    EXPECT_FALSE(b.status().commandResponse(1)->responseHas(2));
  };
  in(a).u32Is(3);
  a.commit();
  EXPECT_EQ(b.status().commandResponse(1)->response(2), "cleared; 1 edit dropped");
  auto const status = a.status().commandResponse(3);
  requests->newCommand(Cli::Session::CommandRequest(SessionCommand::noOp, 3));
  EXPECT_EQ(status->response(3), "ok");
  requests->newCommand(Cli::Session::CommandRequest(SessionCommand::remove, 4));
  EXPECT_EQ(status->response(4), "removed");
  EXPECT_FALSE(service.session("a"));
}

}  // namespace
