#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/forwarding/Netlink.h"

/// A bridge and its ports as rtnetlink(7) knows them.
namespace Agent {

/// What forwarding sets of a bridge, and of its ports.
enum class LinkSetting : std::uint32_t {
  queryResponseInterval,  ///< hundredths of a second
  snooping,
  querier,
  igmpVersion,
  queryFromOwnAddress,
  mostGroups,
  portRouter,  ///< of a port: 0 none, 1 as the kernel finds out, 2 always
};

/// As in `ip link set type bridge`.
char const* name(LinkSetting setting);

struct LinkInfo {
  std::uint32_t index = 0;
  std::string name;
  bool up = false;
  std::uint32_t master = 0;  ///< the bridge that it is a port of; 0 if none
  bool isBridge = false;
  bool tellsVlansApart = false;
  std::map<LinkSetting, std::uint32_t> settings;
};

/// What the kernel knows of an interface; nothing if there is none of the name.
std::optional<LinkInfo> linkNamed(RequestSocket& socket, std::string const& name);

/// The ports of a bridge.
std::vector<LinkInfo> portsOf(RequestSocket& socket, std::uint32_t bridge);

/// Adds the request that sets it.
void addSetting(NetlinkBatch& batch, std::uint32_t index, LinkSetting setting, std::uint32_t value);

}  // namespace Agent
