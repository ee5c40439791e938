#include <iostream>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "Network.h"

using Kel::GenericIf;

// Prints every attribute of an entity whose type is not known at compile time.
void print(Kel::Entity::PtrConst const& entity) {
  GenericIf::PtrConst object = GenericIf::ofEntity(entity);
  for (Kel::KelAttr const* attr : object->type()->attributeQ())
    if (!attr->isFunction()) std::cout << "  " << attr->name() << " = " << object->attributeString(attr->id()) << "\n";
}

int main() {
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  running->newEntity("Guide::Device", "leaf1");

  GenericIf::Ptr device = GenericIf::ofEntity(top->entity("/running/leaf1"));
  Kel::AttributeId portId = device->attributeId("port");
  device->attributeIs(portId, GenericIf::of(Kel::String("Ethernet1")), nullptr);

  Kel::Entity::Ptr port = top->entity("/running/leaf1.port/Ethernet1");
  std::cout << port->fullName() << "\n";
  print(port);

  GenericIf::Ptr object = GenericIf::ofEntity(port);
  Kel::AttributeId mtu = object->attributeId("mtu");
  object->attributeIs(mtu, nullptr, GenericIf::of(Kel::U32(9000)));
  std::cout << "mtu is " << object->attribute(mtu)->attrVal<Kel::U32>() << "\n";

  for (auto it = device->attributeIterator(portId); it; ++it) std::cout << it.key() << " leads to " << it.obj() << "\n";
  std::cout << "relative: " << top->entity("/running/leaf1")->entity(".port/Ethernet1") << "\n";
  std::cout << "no such entity: " << top->entity("/running/leaf1.port/Ethernet9") << "\n";

  GenericIf::Ptr ports = device->attributeCall(device->attributeId("portsIn"), {{"vlan", GenericIf::PtrConst()}});
  std::cout << "portsIn answers " << ports << "\n";

  try {
    object->attributeIs(mtu, nullptr, GenericIf::of(Kel::String("large")));
  } catch (Kel::TypeException const& e) {
    std::cout << e.message() << "\n";
  }
  try {
    object->attributeId("mtux");
  } catch (Kel::UnknownAttrException const& e) {
    std::cout << e.message() << "\n";
  }
}
