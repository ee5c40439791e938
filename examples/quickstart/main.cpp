#include <iostream>
#include "CliSession/CliSession.h"
#include "Switch.h"
using namespace Cli::Session;

int main() {
  auto top = Kel::dirFactory("");  // one tree: the running configuration, sessions, their ancestors
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr())), sessions(new Kel::Dir("session", top.ptr())),
      ancestors(new Kel::Dir("ancestor", top.ptr()));
  auto device = Kel::ptrCast<Demo::Switch>(running->newEntity("Demo::Switch", "switch"));
  device->newPort("Ethernet1")->mtuIs(9000);

  auto manager = statusFactory("manager");
  manager->initialize();
  manager->sessionDirIs(sessions);
  manager->ancestorDirIs(ancestors);
  auto type = Zuk::prefixTrieStateFactory();
  type->pTypenameIs("Demo::Switch");
  manager->rootTrie()->prefixIs("switch", type);
  manager->rootIs("switch", true);

  auto config = pendingChangeConfigFactory("s1", false, false, false, 0.0);
  config->logAttributeEditsIs(true);
  auto session = manager->pendingChangeStatusDir()->newStatus("s1", config, 0.0, 1);
  for (auto const& dir : {sessions, ancestors}) dir->newEntity("Kel::Dir", "s1");
  manager->doReplaceConfig(running, "s1");
  for (auto edit = session->attributeEditLog()->attributeEditEntryIterator(); edit; ++edit)
    for (auto path = edit->pathCounterIterator(); path; ++path)
      std::cout << edit->attributeEdit().editType() << " " << edit->attributeEdit().attributeName() << " at "
                << path.key() << " x" << int(path.value()) << "\n";
}
