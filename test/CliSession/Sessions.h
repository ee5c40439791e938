// A world with sessions, and a session that is driven as its owner does: by name.
#pragma once

#include <gtest/gtest.h>

#include "CliSession/World.h"

namespace Tests {

struct SessionWorld : World {
  Kel::Dir::Ptr sessions{new Kel::Dir("sessions", root.ptr())}, ancestors{new Kel::Dir("ancestors", root.ptr())};
  Cli::Session::Config::Ptr config = Cli::Session::configFactory("config");

  SessionWorld() {
    config->initialize();
    status->sessionDirIs(sessions);
    status->ancestorDirIs(ancestors);
  }
  // Opens a session with its directories, unless they are there.
  Kel::Ptr<Cli::Session::PendingChangeStatus> open(char const* name, bool logsEdits) const {
    auto const change = config->pendingChangeConfigDir()->configIs(name, false, false, false, 1.0);
    change->logAttributeEditsIs(logsEdits);
    auto const pending = status->pendingChangeStatusDir()->statusIs(name, change, 1.0, 1);
    for (auto const& dir : {sessions, ancestors})
      if (!dir->entry(name)) dir->newEntity("Kel::Dir", name);
    return pending;
  }
  static Kel::Dir::Ptr dirOf(Kel::Dir::Ptr const& in, char const* name) {
    return Kel::ptrCast<Kel::Dir>(in->entityRef(name));
  }
};

struct Session : testing::Test {
  using GenericIf = Kel::GenericIf;

  SessionWorld world;
  Cli::Session::Status::Ptr status = world.status;
  Kel::Ptr<Cli::Session::PendingChangeStatus> pending = world.open("s1", false);
  Kel::Dir::Ptr session = SessionWorld::dirOf(world.sessions, "s1"),
                ancestor = SessionWorld::dirOf(world.ancestors, "s1");
  Kel::Ptr<Plant::Hall> src = World::hall(world.src);

  static GenericIf::PtrConst boxed(EntityPtr const& e) { return GenericIf::PtrConst(GenericIf::ofEntity(e)); }
  static GenericIf::PtrConst boxed(char const* text) { return GenericIf::of(Kel::String8(text)); }
  static GenericIf::Ptr call(EntityPtr const& entity, char const* op, GenericIf::Args const& args) {
    GenericIf::Ptr const gif = GenericIf::ofEntity(entity);
    return gif->attributeCall(gif->attributeId(op), args);
  }
  bool replace(Kel::Dir::Ptr const& from, char const* name = "s1") const {
    return call(status, "doReplaceConfig", {{"sessionName", boxed(name)}, {"src", boxed(from)}})->attrVal<bool>();
  }
  void logEdits() const { world.open("s1", true); }
  Edits edits() const { return editsOf(*pending->attributeEditLog()); }
};

}  // namespace Tests
