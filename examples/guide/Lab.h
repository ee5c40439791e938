// A running configuration and a manager with one session, for the programs of the guide.
#pragma once

#include "CliSession/CliSession.h"
#include "Network.h"

namespace Guide {

namespace Session = Cli::Session;

struct Lab {
  // One tree holds everything: references between its parts have paths.
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running{new Kel::Dir("running", top.ptr())};
  Kel::Dir::Ptr sessions{new Kel::Dir("session", top.ptr())};
  Kel::Dir::Ptr ancestors{new Kel::Dir("ancestor", top.ptr())};

  Session::Status::Ptr manager = Kel::ptrCast<Session::Status>(top->newEntity("Cli::Session::Status", "manager"));
  Device::Ptr device = Kel::ptrCast<Device>(running->newEntity("Guide::Device", "switch"));
  Session::PendingChangeConfig::Ptr config = Session::pendingChangeConfigFactory("s1", false, false, false, 0.0);
  Session::PendingChangeStatus::Ptr session;

  Lab() {
    manager->initialize();
    manager->sessionDirIs(sessions);
    manager->ancestorDirIs(ancestors);
    rootIs("switch", "Guide::Device");
    open("s1");
  }

  // Makes a path below the source a session root. The same path goes to `root` and to `rootTrie`.
  void rootIs(char const* path, char const* typeName) {
    Zuk::PrefixTrieState::Ptr state = Zuk::prefixTrieStateFactory();
    state->pTypenameIs(typeName);
    manager->rootTrie()->prefixIs(path, state);
    manager->rootIs(path, true);
  }

  // A session is a status and an entry in each of the two directories.
  void open(char const* name) {
    config->logAttributeEditsIs(true);
    session = manager->pendingChangeStatusDir()->newStatus(name, config, 0.0, 1);
    sessions->newEntity("Kel::Dir", name);
    ancestors->newEntity("Kel::Dir", name);
  }

  Kel::Dir::Ptr sessionDir() { return Kel::ptrCast<Kel::Dir>(sessions->entityRef("s1")); }
  // The session's private copy of the device.
  Device::Ptr copy() { return Kel::ptrCast<Device>(session->local("switch")); }
};

}  // namespace Guide
