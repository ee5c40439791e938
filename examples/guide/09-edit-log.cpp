#include <iostream>

#include "Lab.h"

using namespace Cli::Session;

// Prints the edits that the last copies counted, and empties the log.
void printLog(Guide::Lab& lab) {
  AttributeEditLog::Ptr log = lab.session->attributeEditLog();
  for (auto entry = log->attributeEditEntryIterator(); entry; ++entry) {
    AttributeEdit const& edit = entry->attributeEdit();
    for (auto path = entry->pathCounterIterator(); path; ++path)
      std::cout << "  " << edit.editType() << " " << edit.attributeType() << "::" << edit.attributeName() << " at "
                << path.key() << " x" << int(path.value()) << "\n";
  }
  log->attributeEditEntryDelAll();
}

int main() {
  std::cout << std::unitbuf;
  Guide::Lab lab;
  std::cout << "log: " << (lab.session->attributeEditLog() ? "there" : "not there") << "\n";
  for (char const* name : {"Ethernet1", "Ethernet2"}) lab.device->newPort(name)->mtuIs(9000);
  lab.manager->doReplaceConfig(lab.running, "s1");
  std::cout << "first fill\n";
  printLog(lab);

  AttributeEditBypassTable::Ptr table = attributeEditBypassTableFactory("bypass");
  lab.manager->attributeEditBypassTableIs(table);
  auto mtu = table->newAttributeEditBypassEntry(AttributeEdit("mtu", "Guide::Port", AttributeEditType::set_));
  mtu->parentPathIs("/session/s1/switch.port/Ethernet2", true);
  auto unused = table->newAttributeEditBypassEntry(AttributeEdit("port", "Guide::Device", AttributeEditType::del_));
  unused->parentPathIs("/session/s1", true);
  unused->defaultEntIs(Guide::portFactory("unused"));

  for (char const* name : {"Ethernet1", "Ethernet2"}) {
    lab.copy()->port(name)->mtuIs(1500);
    lab.copy()->port(name)->noteIs("owner", "me");
  }
  lab.copy()->newPort("Ethernet3");
  lab.copy()->newPort("Ethernet4")->mtuIs(9000);
  lab.manager->doReplaceConfig(lab.running, "s1");
  std::cout << "with a bypass table\n";
  printLog(lab);

  AttributeEdit setMtu("mtu", "Guide::Port", AttributeEditType::set_);
  auto debug = lab.session->attributeEditLog()->newAttributeEditDebugTypeConfig(setMtu);
  debug->actionIs("switch.port/Ethernet1", AttributeDebugAction::actionTrace);
  for (char const* name : {"Ethernet1", "Ethernet2"}) lab.copy()->port(name)->mtuIs(1500);
  lab.manager->doReplaceConfig(lab.running, "s1");
}
