#include <iostream>

#include "Lab.h"

using namespace Cli::Session;

// Copies a VLAN, but keeps the label that the destination has.
struct KeepLabel : EntityCopyGlobalSessionHandler {
  bool handleEntity(EntityCopy::Ptr const& ec, Kel::Entity::Ptr const& dest, Kel::Entity::PtrConst const& src,
                    Kel::String path) override {
    std::cout << "KeepLabel is asked about " << path << "\n";
    AttributeFilter::Ptr label = attributeFilterFactory();
    label->attributeNameIs("label", true);
    return ec->doCopyEntityAttrs(dest, src, path, label);
  }
};

int main() {
  Guide::Lab lab;
  lab.rootIs("spare", "Kel::Dir");
  Kel::Dir::Ptr spare(new Kel::Dir("spare", lab.running.ptr()));
  Guide::Port::Ptr line = Kel::ptrCast<Guide::Port>(spare->newEntity("Guide::Port", "line1"));
  lab.device->newVlan(10)->labelIs("users");
  lab.device->newPort("Ethernet1")->noteIs("owner", "rack team");
  for (auto const& port : {line, lab.device->port("Ethernet1")}) port->mtuIs(9000);

  lab.manager->doReplaceConfig(lab.running, "s1");
  auto spareCopy = [&] { return Kel::ptrCast<Guide::Port>(lab.sessionDir()->entity("spare/line1")); };
  std::cout << "label '" << lab.copy()->vlan(10)->label() << "', notes " << lab.copy()->port("Ethernet1")->notes()
            << ", spare line: " << (spareCopy() ? "there" : "not there") << "\n";

  Kel::Dir::Ptr handlers(new Kel::Dir("handlers", lab.top.ptr()));
  auto table = Kel::ptrCast<EntityCopyCustomHandlerTable>(
      handlers->newEntity("Cli::Session::EntityCopyCustomHandlerTable", "table"));
  lab.manager->inHandlerTableIs(table);

  Kel::Ptr<KeepLabel> keepLabel(new KeepLabel);
  keepLabel->sessionStatusIs(lab.manager);
  table->registerCustomCopyHandler(EntityPath("switch.vlan"), "Guide::Vlan", keepLabel);

  EntityCopyFilterDir::Ptr filters = entityCopyFilterDirFactory("filters");
  AttributeFilter::Ptr notes = attributeFilterFactory();
  notes->attributeNameIs("note", true);
  table->registerEntityCopyFilter(filters, EntityPath(""), "Guide::Port", notes);

  EntityCopyDirHandler::Ptr directories = filters->dirHandlerIs();
  directories->sessionStatusIs(lab.manager);
  table->registerCustomCopyHandler(EntityPath(""), "Kel::Dir", directories);

  lab.device->vlan(10)->labelIs("servers");
  lab.device->port("Ethernet1")->noteIs("cable", "blue");
  line->noteIs("cable", "red");
  lab.manager->doReplaceConfig(lab.running, "s1");
  std::cout << "label '" << lab.copy()->vlan(10)->label() << "', notes " << lab.copy()->port("Ethernet1")->notes()
            << ", spare line: mtu " << spareCopy()->mtu() << ", notes " << spareCopy()->notes() << "\n";
}
