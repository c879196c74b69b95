#include "agent/live/LinkMessage.h"

#include <algorithm>
#include <libmnl/libmnl.h>
#include <limits>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string_view>

#include "agent/netlink/Attributes.h"

namespace Agent {

namespace {

/// Takes over whether a port forwards from a nest of the bridge's attributes of it.
void readBridgePort(nlattr const& nest, bool& forwarding) {
  eachNested(nest, [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == IFLA_BRPORT_STATE)
      forwarding = valueOf<std::uint8_t>(attribute) == BR_STATE_FORWARDING;
  });
}

/// The same of a link's information, where that is of the port of a bridge.
void readLinkInfo(nlattr const& nest, bool& forwarding) {
  std::string_view kind;
  nlattr const* data = nullptr;
  eachNested(nest, [&](nlattr const& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case IFLA_INFO_SLAVE_KIND:
        kind = textOf(attribute);
        break;
      case IFLA_INFO_SLAVE_DATA:
        data = &attribute;
        break;
    }
  });
  if (kind == "bridge" && data) readBridgePort(*data, forwarding);
}

void readAttribute(nlattr const& attribute, LinkMessage& link) {
  switch (mnl_attr_get_type(&attribute)) {
    case IFLA_IFNAME:
      link.name = textOf(attribute);
      break;
    case IFLA_ADDRESS:
      link.state.macAddress = valueOf<Wirex::MacAddress>(attribute);
      break;
    case IFLA_MTU:
      link.state.mtu = static_cast<std::uint16_t>(std::min<std::uint32_t>(
          valueOf<std::uint32_t>(attribute), std::numeric_limits<decltype(link.state.mtu)>::max()));
      break;
    case IFLA_LINKINFO:
      readLinkInfo(attribute, link.state.forwarding);
      break;
    default:
      break;
  }
}

void readBridgeAttribute(nlattr const& attribute, LinkMessage& link) {
  if (mnl_attr_get_type(&attribute) == IFLA_PROTINFO && !link.deleted)
    readBridgePort(attribute, link.state.forwarding);
}

}  // namespace

std::optional<LinkMessage> readLink(nlmsghdr const& message) {
  bool const isLink = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
  if (!isLink || mnl_nlmsg_get_payload_len(&message) < NLMSG_ALIGN(sizeof(ifinfomsg)))
    return std::nullopt;
  auto const& info = *static_cast<ifinfomsg const*>(mnl_nlmsg_get_payload(&message));
  LinkMessage link;
  link.index = static_cast<std::uint32_t>(info.ifi_index);
  link.deleted = message.nlmsg_type == RTM_DELLINK;
  link.ofBridge = info.ifi_family == AF_BRIDGE;
  link.state.present = true;
  link.state.kernelIndex = link.index;
  constexpr unsigned operational = IFF_UP | IFF_RUNNING;
  link.state.carrier = (info.ifi_flags & operational) == operational;
  link.state.forwarding = true;
  eachAttributeBehind(message, sizeof info, [&](nlattr const& attribute) {
    if (link.ofBridge)
      readBridgeAttribute(attribute, link);
    else
      readAttribute(attribute, link);
  });
  return link;
}

}  // namespace Agent
