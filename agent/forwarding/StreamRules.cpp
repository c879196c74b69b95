#include "agent/forwarding/StreamRules.h"

#include <tuple>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// "add rule bridge igmpsnoopd CHAIN RULE".
std::string rule(std::string const& chain, std::string const& text) {
  return message("add rule bridge ", rulesTable, ' ', chain, ' ', text, '\n');
}

std::string addChain(std::string const& chain, std::string const& hook = "") {
  return message("add chain bridge ", rulesTable, ' ', chain, hook, '\n');
}

std::string addHook(std::string const& hook, int priority) {
  return addChain(hook, message(" { type filter hook ", hook, " priority ", priority, "; }"));
}

std::string addSet(std::string const& set, std::string const& type) {
  return message("add set bridge ", rulesTable, ' ', set, " { type ", type, "; }\n");
}

std::string addElement(std::string const& set, std::string const& element) {
  return message("add element bridge ", rulesTable, ' ', set, " { ", element, " }\n");
}

std::string vlanChain(std::uint16_t vlan) {
  return message("vlan", vlan);
}

std::string leaveChain(std::uint16_t vlan) {
  return message("leave", vlan);
}

std::string flushChain(std::string const& chain) {
  return message("flush chain bridge ", rulesTable, ' ', chain, '\n');
}

constexpr char const* streams = "ip daddr 224.0.0.0/4 ip daddr != 224.0.0.0/24 ip protocol != igmp";

// For experiments by RFC 9542 section 5.3, and seen only between the hooks of the bridge.
constexpr char const* floodedType = "0x88b5";

/// For queries, which are no IGMP to the bridge meanwhile: a protocol number of RFC 3692.
constexpr char const* hiddenType = "0x88b6";
constexpr char const* hiddenProtocol = "253";

// Where the Ethernet type stands in a frame without and with a VLAN tag.
constexpr char const* untaggedType = "@ll,96,16";
constexpr char const* taggedType = "@ll,128,16";

std::string formerText(FormerSettings const& former) {
  std::string text;
  for (auto const& [key, value] : former)
    text += addElement(
        "former", message(key.first, " . ", static_cast<std::uint32_t>(key.second), " : ", value));
  return text;
}

/// Gives frames their own type and protocol back, as soon as the bridge has sorted them out. Of one
/// with a tag the type cannot be read where a device took the tag out, so it is written in any
/// case.
std::string restore(std::string const& chain) {
  std::string text =
      rule(chain, message("ether type ", hiddenType, " meta protocol ip ip protocol set 2 ",
                          untaggedType, " set 0x0800"));
  text += rule(chain, message("ether type 8021q ip daddr 224.0.0.0/4 ip ttl 1 ip protocol ",
                              hiddenProtocol, " ip protocol set 2"));
  for (auto const& [protocol, multicast, type] :
       {std::tuple{"ip", "224.0.0.0/4", "0x0800"}, std::tuple{"ip6", "ff00::/8", "0x86dd"}}) {
    text += rule(chain, message("ether type ", floodedType, " meta protocol ", protocol, ' ',
                                untaggedType, " set ", type));
    text += rule(chain, message("ether type 8021q ", protocol, " daddr ", multicast, ' ',
                                taggedType, " set ", type));
  }
  return text;
}

std::string portsText(StreamRules const& rules) {
  std::string text = addSet("ports", "iface_index");
  text += addSet("deaf", "iface_index");
  text += addSet("silent", "iface_index");
  text += addSet("members", "iface_index");
  for (std::uint32_t const member : rules.members) text += addElement("members", message(member));
  for (PortRule const& port : rules.ports) {
    text += addElement("ports", message(port.index));
    if (!port.in) text += addElement("deaf", message(port.index));
    if (!port.out) text += addElement("silent", message(port.index));
  }
  return text;
}

/// Sends a frame to the chain of its VLAN, which a tag tells, or else the port that it came in by
/// or leaves by.
/// @param port iif or oif.
/// @param elsewise what becomes of a frame of none of them.
template <class ChainOf>
std::string dispatchText(StreamRules const& rules, char const* chain, char const* port,
                         ChainOf chainOf, char const* elsewise) {
  if (rules.vlans == std::vector<std::uint16_t>{0})
    return rule(chain, message("goto ", chainOf(std::uint16_t{0})));
  std::string text;
  for (std::uint16_t const vlan : rules.vlans)
    text += rule(chain, message("ether type 8021q vlan id ", vlan, " goto ", chainOf(vlan)));
  text += rule(chain, message("ether type 8021q ", elsewise));
  for (PortRule const& each : rules.ports)
    if (each.untaggedVlan)
      text += rule(chain, message(port, ' ', each.index, " goto ", chainOf(*each.untaggedVlan)));
  return text + rule(chain, elsewise);
}

/// What comes in of a VLAN is flooded at first, and of none always.
std::string vlansText(StreamRules const& rules) {
  std::string text;
  for (std::uint16_t const vlan : rules.vlans) {
    text += addSet(joinedSet(vlan), "ipv4_addr");
    text += addSet(failedSet(vlan), "ipv4_addr");
    text += addSet(routersSet(vlan), "iface_index");
    text += addChain(vlanChain(vlan)) + addChain(leaveChain(vlan));
    text += rule(vlanChain(vlan), "goto flood");
  }
  text += dispatchText(rules, "streams", "iif", vlanChain, "goto flood");
  return text + dispatchText(rules, "leaving", "oif", leaveChain, "accept");
}

}  // namespace

std::string joinedSet(std::uint16_t vlan) {
  return message("joined", vlan);
}

std::string failedSet(std::uint16_t vlan) {
  return message("failed", vlan);
}

std::string routersSet(std::uint16_t vlan) {
  return message("routers", vlan);
}

std::string tableText(StreamRules const& rules, FormerSettings const& former) {
  std::string const table = message(" table bridge ", rulesTable, '\n');
  // To add it first makes the deletion right where there is none.
  std::string text = "add" + table + "delete" + table + "add" + table;
  text += message("add map bridge ", rulesTable, " former { type mark . mark : mark; }\n");
  text += formerText(former);
  text += portsText(rules);
  // First, for what other rules may count; last, for what they may match.
  text += addHook("prerouting", -350) + addHook("input", -350) + addHook("output", 350) +
          addHook("postrouting", -350);
  text += addChain("flood") + addChain("hide") + addChain("streams") + addChain("leaving");
  text += rule("hide", message("ip protocol set ", hiddenProtocol));
  text += rule("hide", message("ether type 8021q ", taggedType, " set ", hiddenType, " accept"));
  text += rule("hide", message(untaggedType, " set ", hiddenType));
  text += rule("flood", message("ether type 8021q ", taggedType, " set ", floodedType, " accept"));
  text += rule("flood", message(untaggedType, " set ", floodedType));
  text += vlansText(rules);

  text +=
      rule("prerouting",
           "iif @ports ip protocol igmp igmp type { membership-report-v1, membership-report-v2, "
           "membership-report-v3, leave-group } drop");
  text += rule("prerouting", "iif @members ip protocol igmp igmp type membership-query goto hide");
  text += rule("prerouting", message("iif @deaf ", streams, " drop"));
  text += rule("prerouting", message("iif @members ", streams, " goto streams"));
  text += rule("prerouting", "iif @members ip6 daddr ff00::/8 goto flood");
  text += rule("output", "ip saddr 0.0.0.0 ip protocol igmp igmp type membership-query drop");
  text += restore("input");
  text += restore("postrouting");
  text += rule("postrouting", message("oif @silent ", streams, " drop"));
  text += rule("postrouting", message("oif @members ", streams, " goto leaving"));
  return text;
}

std::string floodAllText() {
  return flushChain("leaving") + flushChain("streams") + rule("streams", "goto flood");
}

std::string byEntriesText(std::uint16_t vlan, Unregistered unregistered) {
  std::string const unjoined = message("ip daddr != @", joinedSet(vlan));
  std::string text = flushChain(vlanChain(vlan)) + rule(vlanChain(vlan), unjoined + " goto flood");
  text += flushChain(leaveChain(vlan));
  if (unregistered == Unregistered::routers)
    text += rule(leaveChain(vlan), message(unjoined, " ip daddr != @", failedSet(vlan), " oif != @",
                                           routersSet(vlan), " drop"));
  return text;
}

std::string routersText(std::uint16_t vlan, std::vector<std::uint32_t> const& ports) {
  std::string text = message("flush set bridge ", rulesTable, ' ', routersSet(vlan), '\n');
  for (std::uint32_t const port : ports) text += addElement(routersSet(vlan), message(port));
  return text;
}

}  // namespace Agent
