#include "examples/config_db/TableMap.h"

#include <algorithm>
#include <unordered_map>

#include "examples/config_db/Values.h"

namespace ConfigDb {

namespace {

constexpr Root rootTable[] = {
    {"network/interfaces", "ConfigDb::Interfaces"},
    {"network/overlay", "ConfigDb::Overlay"},
    {"network/ports", "ConfigDb::Ports"},
    {"network/routing", "ConfigDb::Routing"},
    {"network/vlans", "ConfigDb::Vlans"},
    {"qos/buffers", "ConfigDb::Buffers"},
    {"qos/maps", "ConfigDb::QosMaps"},
    {"qos/queues", "ConfigDb::Queues"},
    {"security/acl", "ConfigDb::Acl"},
    {"system/device", "ConfigDb::Device"},
    {"system/management", "ConfigDb::Management"},
    {"topology", "ConfigDb::Topology"},
};

constexpr Table tableTable[] = {
    {"DEVICE_METADATA", "system/device", "metadata", "=localhost"},
    {"VERSIONS", "system/device", "versions", "=DATABASE"},
    {"KDUMP", "system/device", "kdump", "=config"},
    {"CRM", "system/device", "crm", "=Config"},
    {"FEATURE", "system/device", "feature", ""},
    {"FLEX_COUNTER_TABLE", "system/device", "flexCounter", ""},
    {"CONSOLE_SWITCH", "system/device", "consoleSwitch", ""},

    {"NTP", "system/management", "ntp", "=global"},
    {"NTP_SERVER", "system/management", "ntpServer", ""},
    {"SYSLOG_SERVER", "system/management", "syslogServer", ""},
    {"TACPLUS_SERVER", "system/management", "tacplusServer", "addr"},
    {"DHCP_SERVER", "system/management", "dhcpServer", "addr"},
    {"SNMP", "system/management", "snmp", ""},
    {"SNMP_COMMUNITY", "system/management", "snmpCommunity", ""},
    {"TELEMETRY", "system/management", "telemetry", ""},
    {"RESTAPI", "system/management", "restApi", ""},

    {"PORT", "network/ports", "port", ""},
    {"MGMT_PORT", "network/ports", "mgmtPort", ""},
    {"PORTCHANNEL", "network/ports", "portChannel", ""},
    {"PORTCHANNEL_MEMBER", "network/ports", "portChannelMember", "lag|port"},
    {"BREAKOUT_CFG", "network/ports", "breakout", "port"},

    {"INTERFACE", "network/interfaces", "port", "port|address.prefix"},
    {"PORTCHANNEL_INTERFACE", "network/interfaces", "portChannel", "portChannel|address.prefix"},
    {"VLAN_INTERFACE", "network/interfaces", "vlan", "vlan|address.prefix"},
    {"LOOPBACK_INTERFACE", "network/interfaces", "loopback", "|address.prefix"},
    {"MGMT_INTERFACE", "network/interfaces", "mgmt", "port|address.prefix"},

    {"VLAN", "network/vlans", "vlan", ""},
    {"VLAN_MEMBER", "network/vlans", "member", "vlan|port"},
    {"DHCP_RELAY", "network/vlans", "dhcpRelay", "vlan"},

    {"VRF", "network/routing", "vrf", ""},
    {"BGP_GLOBALS", "network/routing", "bgp", "vrf"},
    {"BGP_GLOBALS_AF", "network/routing", "bgpAf", "globals|afiSafi"},
    {"BGP_NEIGHBOR", "network/routing", "neighbor", "vrf?|peer"},
    {"BGP_NEIGHBOR_AF", "network/routing", "neighborAf", "globals|peer|afiSafi"},
    {"BGP_INTERNAL_NEIGHBOR", "network/routing", "internalNeighbor", "vnet?|peer"},
    {"BGP_PEER_RANGE", "network/routing", "peerRange", "vrf?|range"},

    {"VXLAN_TUNNEL", "network/overlay", "tunnel", ""},
    {"VXLAN_TUNNEL_MAP", "network/overlay", "tunnelMap", "tunnel|map"},
    {"VXLAN_EVPN_NVO", "network/overlay", "evpnNvo", ""},

    {"ACL_TABLE", "security/acl", "table", ""},
    {"ACL_RULE", "security/acl", "rule", "table|rule"},
    {"MIRROR_SESSION", "security/acl", "mirrorSession", ""},

    {"DSCP_TO_TC_MAP", "qos/maps", "dscpToTc", ""},
    {"TC_TO_QUEUE_MAP", "qos/maps", "tcToQueue", ""},
    {"TC_TO_PRIORITY_GROUP_MAP", "qos/maps", "tcToPriorityGroup", ""},
    {"MAP_PFC_PRIORITY_TO_QUEUE", "qos/maps", "pfcToQueue", ""},
    {"PORT_QOS_MAP", "qos/maps", "port", "port"},

    {"SCHEDULER", "qos/queues", "scheduler", ""},
    {"WRED_PROFILE", "qos/queues", "wredProfile", ""},
    {"QUEUE", "qos/queues", "queue", "port|queue"},

    {"BUFFER_POOL", "qos/buffers", "pool", ""},
    {"BUFFER_PROFILE", "qos/buffers", "profile", ""},
    {"BUFFER_PG", "qos/buffers", "pg", "port|pgs"},
    {"BUFFER_QUEUE", "qos/buffers", "queue", "port|queues"},
    {"CABLE_LENGTH", "qos/buffers", "cableLength", ""},

    {"DEVICE_NEIGHBOR", "topology", "neighbor", "id"},
    {"DEVICE_NEIGHBOR_METADATA", "topology", "neighborMetadata", ""},
};

// Fields whose attributes have other names than the rule gives, because every entity has a `name` and `type` of its
// own. "*": all fields.
struct Renamed {
  std::string_view table;  // empty: any
  std::string_view field;
  char const* attribute;
};
constexpr Renamed renamedTable[] = {
    {"DEVICE_NEIGHBOR", "name", "device"},
    {"", "name", "label"},
    {"", "type", "kind"},
    {"", "vrf_name", "vrf"},
    {"DSCP_TO_TC_MAP", "*", "to"},
    {"TC_TO_QUEUE_MAP", "*", "to"},
    {"TC_TO_PRIORITY_GROUP_MAP", "*", "to"},
    {"MAP_PFC_PRIORITY_TO_QUEUE", "*", "to"},
    {"CABLE_LENGTH", "*", "length"},
};

char const* renamed(std::string_view table, std::string_view field) {
  for (Renamed const& r : renamedTable)
    if ((r.table.empty() || r.table == table) && r.field == field) return r.attribute;
  return nullptr;
}

// "SRC_IP", "qos-mode": srcIp, qosMode.
std::string camelCase(std::string_view lowerCase) {
  std::string out;
  bool wordBegins = false;
  for (char const c : lowerCase) {
    bool const separator = c == '_' || c == '-';
    if (!separator) out += wordBegins && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    wordBegins = separator;
  }
  return out;
}

// Whether an attribute is a field of the file, not one that the loader derives (keys, children, `present`).
bool isField(Table const& table, Kel::KelAttr const& attr) {
  if (!attr.copiable() || attr.isFunction() || attr.instantiating() || attr.name() == "present") return false;
  for (KeyPart const& part : table.keyParts())
    if (part.attribute == attr.name().view()) return false;
  return true;
}

}  // namespace

std::vector<KeyPart> Table::keyParts() const {
  std::vector<KeyPart> parts;
  for (std::string_view rest = key;;) {
    std::size_t const bar = rest.find('|');
    KeyPart part;
    part.attribute = rest.substr(0, bar);
    part.optional = !part.attribute.empty() && part.attribute.back() == '?';
    if (part.optional) part.attribute.pop_back();
    if (std::size_t const dot = part.attribute.find('.'); dot != std::string::npos) {
      part.child = part.attribute.substr(0, dot);
      part.attribute.erase(0, dot + 1);
    }
    parts.push_back(part);
    if (bar == std::string_view::npos) return parts;
    rest.remove_prefix(bar + 1);
  }
}

std::span<Root const> roots() { return rootTable; }
std::span<Table const> tables() { return tableTable; }

Table const* findTable(std::string_view name) {
  auto const found =
      std::find_if(std::begin(tableTable), std::end(tableTable), [&](Table const& t) { return t.name == name; });
  return found == std::end(tableTable) ? nullptr : found;
}

bool isImplied(Table const& table, std::string_view entry) {
  return std::string_view(table.name) == "VRF" && entry == "default";
}

char const* mapAttribute(Table const& table) { return renamed(table.name, "*"); }

Kel::KelAttr const* attributeOf(Table const& table, Kel::KelType const& type, std::string_view field) {
  // In the flat form of a database, "@" marks a list.
  bool const marked = field.ends_with('@');
  std::string const word = lowered(field.substr(0, field.size() - (marked ? 1 : 0)));
  char const* const other = renamed(table.name, word);
  std::string name = other ? other : camelCase(word);
  Kel::KelAttr const* attr = type.findAttr(name);
  if (!attr && !name.empty() && name.back() == 's') {  // a list has the singular
    name.pop_back();
    attr = type.findAttr(name);
    if (attr && !attr->isCollection()) attr = nullptr;
  }
  if (attr && marked && !attr->isCollection()) return nullptr;
  return attr && isField(table, *attr) ? attr : nullptr;
}

}  // namespace ConfigDb
