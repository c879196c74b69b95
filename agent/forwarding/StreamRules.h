#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/config/Configuration.h"
#include "agent/forwarding/BridgeLink.h"

/// The nftables rules beside a bridge's entries, as text in the language of nft(8).
///
/// 1. Reports and leaves of served ports are dropped in the prerouting hook: packet sockets have
///    heard them by then, and the kernel neither learns from them nor forwards them.
/// 2. A bridge honours its entries only while it believes that there is a querier, so it is made
///    its own; the queries that it then sends are dropped in the output hook.
/// 3. A bridge that does so sends what has no entry to router ports alone. Streams that are to go
///    everywhere get an Ethernet type that it floods, and their own back as they leave. All do that
///    of a VLAN until its entries are whole, so that nothing is cut meanwhile.
/// 4. Router ports of a bridge are so in all VLANs. So streams that are to go to a VLAN's router
///    ports alone are flooded too, and dropped where they leave by others.
/// 5. The bridge takes note of other queriers, and floods for a while when it first hears one. So
///    queries are no IGMP to it: they get another protocol, are flooded, and get their own back.
/// 6. IPv6 multicast is flooded likewise, MLD included, which is not snooped.
namespace Agent {

/// What settings were before they were changed, by interface: kept in the kernel beside the rules,
/// where they outlive the agent and nothing else.
using FormerSettings = std::map<std::pair<std::uint32_t, LinkSetting>, std::uint32_t>;

struct PortRule {
  std::uint32_t index = 0;  ///< the kernel's
  bool in = true;           ///< whether streams may come in, and leave
  bool out = true;
  std::optional<std::uint16_t> untaggedVlan;

  friend bool operator==(PortRule const&, PortRule const&) = default;
};

struct StreamRules {
  /// Of the served ports.
  std::vector<PortRule> ports;
  /// All ports of the bridge, by the kernel's index, ascending.
  std::vector<std::uint32_t> members;
  /// Ascending; 0 alone on a bridge that does not tell VLANs apart.
  std::vector<std::uint16_t> vlans;
  Unregistered unregistered = Unregistered::flood;

  friend bool operator==(StreamRules const&, StreamRules const&) = default;
};

/// Puts the whole table, with empty sets and every VLAN flooded, in the place of what there is.
std::string tableText(StreamRules const& rules, FormerSettings const& former);

/// Has a VLAN's streams go by entries, those of groups in its set `joined`. What is in neither of
/// this and `failed` leaves with `unregistered = "routers"` by the ports in its set `routers`
/// alone.
std::string byEntriesText(std::uint16_t vlan, Unregistered unregistered);

/// Has these, and no others, be the ports in a VLAN's set `routers`.
std::string routersText(std::uint16_t vlan, std::vector<std::uint32_t> const& ports);

/// Has every stream flooded, whatever the VLAN.
std::string floodAllText();

inline constexpr char const* rulesTable = "igmpsnoopd";

/// The groups of a VLAN that have entries, and those whose entries could not all be written.
std::string joinedSet(std::uint16_t vlan);
std::string failedSet(std::uint16_t vlan);
/// The ports that lead to its routers.
std::string routersSet(std::uint16_t vlan);

}  // namespace Agent
