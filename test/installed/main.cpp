// A session over the types of two libraries: one used from C++, the other by name only.
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <typeinfo>

#include "CliSession/CliSession.h"
#include "Model.h"

using namespace Cli::Session;

namespace {

void check(bool ok, char const* what) {
  if (ok) return;
  std::cerr << "failed: " << what << "\n";
  std::exit(1);
}

template <class E, class F>
void checkRaises(F const& f, char const* what) {
  try {
    f();
  } catch (E const&) {
    return;
  } catch (...) {
  }
  check(false, what);
}

// The running configuration, sessions and ancestors below one root.
struct Tree {
  Kel::Dir::Ptr top = Kel::dirFactory("");
  Kel::Dir::Ptr running{new Kel::Dir("running", top.ptr())};
  Kel::Dir::Ptr sessions{new Kel::Dir("session", top.ptr())};
  Kel::Dir::Ptr ancestors{new Kel::Dir("ancestor", top.ptr())};
};

void fillRack(Kel::Dir& running) {
  auto const rack = Kel::GenericIf::ofEntity(running.newEntity("Racks::Rack", "rack"));
  auto const args = Kel::Ptr<Kel::GenericIf::List>(new Kel::GenericIf::List);
  Kel::KelAttr const& slot = *rack->type()->getAttr("slot");
  auto const key = Kel::GenericIf::of(Kel::U16(7));
  args->objectEnq(key);
  rack->attributeIs(slot.id(), key, Kel::GenericIf::List::genericIf(args));
  auto const member = Kel::GenericIf::ofEntity(running.entity("rack.slot/7"));
  member->attributeIs(member->type()->getAttr("label")->id(), nullptr, Kel::GenericIf::of(Kel::String8("left")));
}

Status::Ptr managerOf(Tree const& tree) {
  auto manager = statusFactory("manager");
  manager->initialize();
  manager->sessionDirIs(tree.sessions);
  manager->ancestorDirIs(tree.ancestors);
  for (auto const& [root, typeName] : {std::pair("switch", "Ports::Switch"), std::pair("rack", "Racks::Rack")}) {
    auto const type = Zuk::prefixTrieStateFactory();
    type->pTypenameIs(typeName);
    manager->rootTrie()->prefixIs(root, type);
    manager->rootIs(root, true);
  }
  return manager;
}

std::string editsOf(PendingChangeStatus const& session) {
  std::ostringstream out;
  for (auto edit = session.attributeEditLog()->attributeEditEntryIteratorConst(); edit; ++edit)
    for (auto path = edit->pathCounterIterator(); path; ++path)
      out << edit->attributeEdit().editType() << " " << edit->attributeEdit().attributeName() << " at " << path.key()
          << " x" << int(path.value()) << "\n";
  return out.str();
}

void checkTypes(Kel::Entity::Ptr const& made) {
  auto const device = Kel::ptrCast<Ports::Switch>(made);
  check(device != nullptr, "a cast to the class of an entity made by name");
  Kel::Entity const& entity = *made;
  check(typeid(entity) == typeid(Ports::Switch), "the class of an entity made by name");
  check(!Kel::ptrCast<Ports::Port>(made), "a cast to another class");
  checkRaises<Kel::RangeException>([&] { device->checkMtu(10000); }, "an exception of a model's library");
  device->newPort("Et1");
  checkRaises<Kel::NameInUseException>([&] { device->newPort("Et1"); }, "an exception of the framework");
  device->port("Et1")->mtuIs(9000);
  device->port("Et1")->laneIs(Ports::Lane(3, Ports::Speed::fast));
}

}  // namespace

int main() {
  Tree tree;
  checkTypes(tree.running->newEntity("Ports::Switch", "switch"));
  fillRack(*tree.running);

  auto const manager = managerOf(tree);
  auto const table = entityCopyCustomHandlerTableFactory("table", tree.top);
  auto const handler = Ports::portHandlerFactory();
  table->registerCustomCopyHandler(EntityPath(""), "Ports::Port", handler);
  manager->inHandlerTableIs(table);
  auto const config = pendingChangeConfigFactory("s1", false, false, false, 0.0);
  config->logAttributeEditsIs(true);
  auto const session = manager->pendingChangeStatusDir()->newStatus("s1", config, 0.0, 1);
  for (auto const& dir : {tree.sessions, tree.ancestors}) dir->newEntity("Kel::Dir", "s1");
  check(manager->doReplaceConfig(tree.running, "s1"), "filling a session");
  check(handler->seen() == 2, "the handler is called for the session and its ancestor");

  std::string const edits = editsOf(*session);
  std::cout << edits;
  for (char const* edit :
       {"set port at switch x1\n", "set mtu at switch.port/Et1 x1\n", "set lane at switch.port/Et1 x1\n",
        "set slot at rack x1\n", "set label at rack.slot/7 x1\n"})
    check(edits.find(edit) != std::string::npos, edit);
}
