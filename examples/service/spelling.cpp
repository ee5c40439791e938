// Registers spellings, hooks and a constraint for a model.
#include <cctype>
#include <iostream>
#include <map>

#include "Switch.h"
#include "service/Commands.h"
#include "service/JsonTree.h"
#include "service/ModelHooks.h"
#include "service/Service.h"
#include "service/ValueText.h"

namespace Sv = Cli::Service;

// The canonical spelling of a MAC address; empty for another text.
std::optional<std::string> macAddress(std::string_view text) {
  std::string address;
  for (char c : Sv::lowered(text)) {
    if (c == ':' || c == '-' || c == '.') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
    if (address.size() % 3 == 2) address += ':';
    address += c;
  }
  return address.size() == 17 ? std::optional(address) : std::nullopt;
}

// "eth1" and "Ethernet1" are one port.
std::string portName(Kel::KelAttr const&, std::string_view text) {
  std::string_view const number = text.substr(std::min(text.find_first_of("0123456789"), text.size()));
  if (!Sv::unsignedNumber(number))
    throw Sv::InputError("'" + std::string(text) + "' is no port: Ethernet and a number");
  return "Ethernet" + std::string(number);
}

void teach() {
  Sv::registerSpelling("Sample::MacAddress", {macAddress, "an address like 02:00:00:00:00:01", {}, {}});
  Sv::EntityHooks hooks;
  hooks.key = portName;
  Sv::registerHooks("Sample::Port", hooks);
}

// No two ports have one address.
void addressesDiffer(Sv::Tree const& tree, std::vector<Sv::Difference> const&) {
  auto const device = Kel::ptrCast<Sample::Switch>(tree.dir->entity("switch"));
  std::map<std::string, std::string> owners;
  for (auto it = device->portIterator(); it; ++it) {
    std::string const address = it->mac().text().str();
    if (address.empty() || owners.emplace(address, it->name().str()).second) continue;
    throw Sv::CheckError({{*Sv::pathOf(*it.ptr(), *tree.dir), "has the address of " + owners[address]}});
  }
}

int main() {
  teach();
  auto top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  running->newEntity("Sample::Switch", "switch");
  Sv::Service service(running, {{"switch", "Sample::Switch"}});
  service.registerConstraint(addressesDiffer);

  Sv::Session& session = service.open("s", "dave");
  auto attempt = [](auto const& call) {
    try {
      call();
    } catch (Sv::Error const& refused) {
      std::cout << refused.what() << "\n";
    }
  };
  Sv::Editor editor(session.tree().dir, session.pending());
  for (char const* line : {"set switch port eth1 mac 02-00-00-00-00-0A", "set switch port eth2 mac banana",
                           "set switch port uplink mac 02:00:00:00:00:0b"})
    attempt([&] { std::cout << editor.apply(line).text << "\n"; });

  // A file is read by the same rules.
  auto load = [&](char const* mac) {
    std::string const text = "{\"switch\": {\n  \"port\": {\"Ethernet2\": {\"mac\": \"" + std::string(mac) + "\"}}}}";
    Sv::ImportOptions merge;
    merge.merge = true;
    merge.pending = &session.pending();
    attempt([&] { Sv::importText(session.tree().dir, {}, "ports.json", text, merge); });
  };
  load("02.00");
  load("0200.0000.000a");
  attempt([&] { session.commit(); });
}
