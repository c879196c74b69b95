#include "agent/live/KernelAddresses.h"

#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/netlink/Attributes.h"
#include "platform/igmp/wire/Message.h"

namespace Agent {

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 5s;
constexpr auto pause = 100ms;

/// What a link's information says of it: the number of a VLAN's device, whether it is the port of
/// a bridge.
struct LinkInformation {
  std::uint16_t vlan = 0;
  bool isBridgePort = false;
};

LinkInformation readInformation(nlattr const& information) {
  std::string_view kind;
  nlattr const* data = nullptr;
  LinkInformation link;
  eachNested(information, [&](nlattr const& attribute) {
    int const type = mnl_attr_get_type(&attribute);
    if (type == IFLA_INFO_KIND) kind = textOf(attribute);
    if (type == IFLA_INFO_DATA) data = &attribute;
    if (type == IFLA_INFO_SLAVE_KIND) link.isBridgePort = textOf(attribute) == "bridge";
  });
  if (kind != "vlan" || !data) return link;
  eachNested(*data, [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == IFLA_VLAN_ID)
      link.vlan = valueOf<std::uint16_t>(attribute);
  });
  return link;
}

AddressBook::Link readLink(nlmsghdr const& message) {
  AddressBook::Link link;
  AddressBook::Index master = 0;
  AddressBook::Index below = 0;
  LinkInformation information;
  eachAttributeBehind(message, sizeof(ifinfomsg), [&](nlattr const& attribute) {
    int const type = mnl_attr_get_type(&attribute);
    if (type == IFLA_IFNAME) link.name = textOf(attribute);
    if (type == IFLA_MASTER) master = valueOf<AddressBook::Index>(attribute);
    if (type == IFLA_LINK) below = valueOf<AddressBook::Index>(attribute);
    if (type == IFLA_LINKINFO) information = readInformation(attribute);
  });
  link.vlan = information.vlan;
  if (information.vlan != 0) link.below = below;
  if (information.isBridgePort) link.bridge = master;
  return link;
}

/// The interface's own address; nothing if it is none that a packet can come from.
std::optional<Wirex::IpAddr> readAddress(nlmsghdr const& message) {
  std::optional<std::uint32_t> local;
  std::optional<std::uint32_t> address;  // of a point-to-point link, the other side's
  eachAttributeBehind(message, sizeof(ifaddrmsg), [&](nlattr const& attribute) {
    int const type = mnl_attr_get_type(&attribute);
    if (type == IFA_LOCAL) local = be32toh(valueOf<std::uint32_t>(attribute));
    if (type == IFA_ADDRESS) address = be32toh(valueOf<std::uint32_t>(attribute));
  });
  auto const own = local ? local : address;
  if (!own || !Igmp::isUnicast(Wirex::IpAddr(*own))) return std::nullopt;
  return Wirex::IpAddr(*own);
}

}  // namespace

class KernelAddresses::Links final : private NetlinkTable::Reader {
 public:
  Links(KernelAddresses& owner, std::unique_ptr<NetlinkSocket> socket)
      : owner_(owner), table(owner.loop_, std::move(socket), RTM_GETLINK, *this) {}

 private:
  void onEntry(nlmsghdr const& entry) override {
    bool const isLink = entry.nlmsg_type == RTM_NEWLINK || entry.nlmsg_type == RTM_DELLINK;
    if (!isLink || mnl_nlmsg_get_payload_len(&entry) < sizeof(ifinfomsg)) return;
    auto const& info = *static_cast<ifinfomsg const*>(mnl_nlmsg_get_payload(&entry));
    if (info.ifi_family == AF_BRIDGE) return;  // of a port, which is told as an interface besides
    auto const index = static_cast<AddressBook::Index>(info.ifi_index);
    owner_.changedIs(entry.nlmsg_type == RTM_NEWLINK
                         ? owner_.book_.linkIs(index, readLink(entry), table.generation())
                         : owner_.book_.linkDel(index));
  }
  void onComplete() override { owner_.changedIs(owner_.book_.linksAre(table.generation())); }
  void onPause() override { owner_.tellSoon(); }

  KernelAddresses& owner_;

 public:
  NetlinkTable table;
};

class KernelAddresses::Addresses final : private NetlinkTable::Reader {
 public:
  Addresses(KernelAddresses& owner, std::unique_ptr<NetlinkSocket> socket)
      : owner_(owner), table(owner.loop_, std::move(socket), RTM_GETADDR, *this) {}

 private:
  void onEntry(nlmsghdr const& entry) override {
    bool const isAddress = entry.nlmsg_type == RTM_NEWADDR || entry.nlmsg_type == RTM_DELADDR;
    if (!isAddress || mnl_nlmsg_get_payload_len(&entry) < sizeof(ifaddrmsg)) return;
    auto const& info = *static_cast<ifaddrmsg const*>(mnl_nlmsg_get_payload(&entry));
    if (info.ifa_family != AF_INET) return;
    auto const address = readAddress(entry);
    if (!address) return;
    owner_.changedIs(entry.nlmsg_type == RTM_NEWADDR
                         ? owner_.book_.addressIs(info.ifa_index, *address, table.generation())
                         : owner_.book_.addressDel(info.ifa_index, *address));
  }
  void onComplete() override { owner_.changedIs(owner_.book_.addressesAre(table.generation())); }
  void onPause() override { owner_.tellSoon(); }

  KernelAddresses& owner_;

 public:
  NetlinkTable table;
};

KernelAddresses::Sockets KernelAddresses::ofKernel() {
  return {NetlinkSocket::ofKernel(RTMGRP_LINK), NetlinkSocket::ofKernel(RTMGRP_IPV4_IFADDR)};
}

KernelAddresses::KernelAddresses(Horix::EventLoop& loop, Changed changed, Sockets sockets)
    : loop_(loop),
      tell_(std::move(changed)),
      links_(std::make_unique<Links>(*this, std::move(sockets.ofLinks))),
      addresses_(std::make_unique<Addresses>(*this, std::move(sockets.ofAddresses))) {
  links_->table.awaitComplete(patience);
  addresses_->table.awaitComplete(patience);
  cancel();
  onExpiry();
}

KernelAddresses::~KernelAddresses() = default;

void KernelAddresses::tellSoon() {
  if (changed_ && !scheduled()) loop_.timerWheel()->schedule(*this, pause);
}

void KernelAddresses::onExpiry() {
  changed_ = false;
  tell_(book_);
}

}  // namespace Agent
