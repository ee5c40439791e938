#include <iostream>

#include "Lab.h"

using namespace Cli::Session;

// A comparison that has everything but its destination. Setting `dest` runs it.
EntityCopy::Ptr comparison(Guide::Lab& lab, Kel::Dir::PtrConst const& from) {
  EntityCopyGlobalSessionHandler::Ptr handler = entityCopyGlobalSessionHandlerFactory();
  handler->sessionStatusIs(lab.manager);

  EntityCopy::Ptr ec = entityCopyFactory();
  ec->stopAtFirstDiffIs(true);
  ec->handlerIs(handler);
  for (auto root = lab.manager->rootIterator(); root; ++root)
    if (Kel::Entity::PtrConst entity = from->entity(root.key())) ec->srcCopyRootIs(entity, true);
  ec->srcIs(from);
  return ec;
}

bool differs(Guide::Lab& lab) {
  EntityCopy::Ptr ec = comparison(lab, lab.running);
  ec->destIs(lab.sessionDir());
  return ec->stop();
}

// Keeps every edit out of the log, so that the walk does not stop, and prints it.
struct Differences : AttributeEditLogBypass {
  bool bypassAttributeEditLog(EntityCopy::Ptr const&, AttributeEdit const& edit, Kel::String path,
                              Kel::GenericIf::PtrConst const& value) override {
    std::cout << "  " << edit.editType() << " " << edit.attributeName() << " at " << path << ": " << value << "\n";
    return true;
  }
};

void printDifferences(Guide::Lab& lab) {
  EntityCopy::Ptr ec = comparison(lab, lab.running);
  ec->attributeEditBypassCheckerIs(Kel::Ptr<Differences>(new Differences));
  ec->destIs(lab.sessionDir());
}

int main() {
  Guide::Lab lab;
  lab.device->newPort("Ethernet1");
  lab.device->newPort("Ethernet2");
  lab.device->newVlan(10);
  lab.manager->doReplaceConfig(lab.running, "s1");
  std::cout << "differs: " << differs(lab) << "\n";

  lab.copy()->port("Ethernet1")->mtuIs(9000);
  lab.copy()->port("Ethernet1")->vlanIs(lab.copy()->vlan(10));
  lab.copy()->portDel("Ethernet2");
  lab.copy()->newPort("Ethernet3");
  std::cout << "differs: " << differs(lab) << "\n";
  printDifferences(lab);
  std::cout << "mtu in the session: " << lab.copy()->port("Ethernet1")->mtu() << "\n";
}
