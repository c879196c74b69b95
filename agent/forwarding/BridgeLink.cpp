#include "agent/forwarding/BridgeLink.h"

#include <array>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string_view>

namespace Agent {

namespace {

struct Description {
  LinkSetting setting;
  char const* name;
  std::uint16_t attribute;
  std::size_t size;
};

constexpr std::array<Description, 7> descriptions{{
    {LinkSetting::queryResponseInterval, "mcast_query_response_interval",
     IFLA_BR_MCAST_QUERY_RESPONSE_INTVL, sizeof(std::uint64_t)},
    {LinkSetting::snooping, "mcast_snooping", IFLA_BR_MCAST_SNOOPING, sizeof(std::uint8_t)},
    {LinkSetting::querier, "mcast_querier", IFLA_BR_MCAST_QUERIER, sizeof(std::uint8_t)},
    {LinkSetting::igmpVersion, "mcast_igmp_version", IFLA_BR_MCAST_IGMP_VERSION,
     sizeof(std::uint8_t)},
    {LinkSetting::queryFromOwnAddress, "mcast_query_use_ifaddr", IFLA_BR_MCAST_QUERY_USE_IFADDR,
     sizeof(std::uint8_t)},
    {LinkSetting::mostGroups, "mcast_hash_max", IFLA_BR_MCAST_HASH_MAX, sizeof(std::uint32_t)},
    {LinkSetting::portRouter, "mcast_router", IFLA_BRPORT_MULTICAST_ROUTER, sizeof(std::uint8_t)},
}};

Description const& describe(LinkSetting setting) {
  return descriptions.at(static_cast<std::size_t>(setting));
}

std::uint32_t numberIn(nlattr const& attribute) {
  switch (mnl_attr_get_payload_len(&attribute)) {
    case sizeof(std::uint8_t):
      return mnl_attr_get_u8(&attribute);
    case sizeof(std::uint32_t):
      return mnl_attr_get_u32(&attribute);
    case sizeof(std::uint64_t):
      return static_cast<std::uint32_t>(mnl_attr_get_u64(&attribute));
    default:
      return 0;
  }
}

void readData(nlattr const& data, bool ofPort, LinkInfo& link) {
  eachNested(data, [&](nlattr const& attribute) {
    auto const type = mnl_attr_get_type(&attribute);
    if (!ofPort && type == IFLA_BR_VLAN_FILTERING) link.tellsVlansApart = numberIn(attribute) != 0;
    for (Description const& each : descriptions)
      if (each.attribute == type && (each.setting == LinkSetting::portRouter) == ofPort)
        link.settings[each.setting] = numberIn(attribute);
  });
}

void readLinkInfo(nlattr const& info, LinkInfo& link) {
  std::string_view kind;
  std::string_view slaveKind;
  nlattr const* data = nullptr;
  nlattr const* slaveData = nullptr;
  eachNested(info, [&](nlattr const& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case IFLA_INFO_KIND:
        kind = mnl_attr_get_str(&attribute);
        break;
      case IFLA_INFO_DATA:
        data = &attribute;
        break;
      case IFLA_INFO_SLAVE_KIND:
        slaveKind = mnl_attr_get_str(&attribute);
        break;
      case IFLA_INFO_SLAVE_DATA:
        slaveData = &attribute;
        break;
      default:
        break;
    }
  });
  link.isBridge = kind == "bridge";
  if (link.isBridge && data) readData(*data, false, link);
  if (slaveKind == "bridge" && slaveData) readData(*slaveData, true, link);
}

void readLink(nlmsghdr const& header, LinkInfo& link) {
  auto const& info = *static_cast<ifinfomsg const*>(mnl_nlmsg_get_payload(&header));
  link.index = static_cast<std::uint32_t>(info.ifi_index);
  link.up = (info.ifi_flags & IFF_UP) != 0;
  eachAttributeBehind(header, sizeof info, [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == IFLA_IFNAME) link.name = mnl_attr_get_str(&attribute);
    if (mnl_attr_get_type(&attribute) == IFLA_MASTER) link.master = mnl_attr_get_u32(&attribute);
    if (mnl_attr_get_type(&attribute) == IFLA_LINKINFO) readLinkInfo(attribute, link);
  });
}

}  // namespace

char const* name(LinkSetting setting) {
  return describe(setting).name;
}

std::optional<LinkInfo> linkNamed(RequestSocket& socket, std::string const& name) {
  NetlinkBatch batch;
  ifinfomsg info{};
  info.ifi_family = AF_UNSPEC;
  // The kernel ends this answer with an acknowledgement.
  nlmsghdr& header = batch.add(RTM_GETLINK, NLM_F_ACK, info);
  mnl_attr_put_strz(&header, IFLA_IFNAME, name.c_str());
  batch.end(header);
  LinkInfo link;
  auto const failures = socket.ask(batch, [&](nlmsghdr const& answer) { readLink(answer, link); });
  if (!failures.empty() || link.index == 0) return std::nullopt;
  return link;
}

std::vector<LinkInfo> portsOf(RequestSocket& socket, std::uint32_t bridge) {
  NetlinkBatch batch;
  ifinfomsg info{};
  info.ifi_family = AF_UNSPEC;
  nlmsghdr& header = batch.add(RTM_GETLINK, NLM_F_DUMP, info);
  mnl_attr_put_u32(&header, IFLA_MASTER, bridge);  // older kernels tell of others too
  batch.end(header);
  std::vector<LinkInfo> ports;
  socket.ask(batch, [&](nlmsghdr const& answer) {
    LinkInfo link;
    readLink(answer, link);
    if (link.master == bridge) ports.push_back(std::move(link));
  });
  return ports;
}

void addSetting(NetlinkBatch& batch, std::uint32_t index, LinkSetting setting,
                std::uint32_t value) {
  Description const& described = describe(setting);
  bool const ofPort = setting == LinkSetting::portRouter;
  ifinfomsg info{};
  info.ifi_family = AF_UNSPEC;
  info.ifi_index = static_cast<int>(index);
  nlmsghdr& header = batch.add(RTM_NEWLINK, 0, info);
  nlattr* const linkInfo = mnl_attr_nest_start(&header, IFLA_LINKINFO);
  mnl_attr_put_strz(&header, ofPort ? IFLA_INFO_SLAVE_KIND : IFLA_INFO_KIND, "bridge");
  nlattr* const data = mnl_attr_nest_start(&header, ofPort ? IFLA_INFO_SLAVE_DATA : IFLA_INFO_DATA);
  if (described.size == sizeof(std::uint8_t))
    mnl_attr_put_u8(&header, described.attribute, static_cast<std::uint8_t>(value));
  else if (described.size == sizeof(std::uint32_t))
    mnl_attr_put_u32(&header, described.attribute, value);
  else
    mnl_attr_put_u64(&header, described.attribute, value);
  mnl_attr_nest_end(&header, data);
  mnl_attr_nest_end(&header, linkInfo);
  batch.end(header);
}

}  // namespace Agent
