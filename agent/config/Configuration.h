#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "framework/types/AllowedTrafficDirection.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "framework/types/VlanTypeAndPrimaryVlan.h"
#include "platform/snooping/GroupRange.h"

/// What an operator configures, as plain values: ranges are expanded, defaults are resolved, and
/// everything that refers to something else refers to something that exists.
namespace Agent {

/// The ports on which hosts send reports unasked. Queries are answered on every port.
enum class ReportOn : std::uint8_t { mrouters, all };

std::ostream& operator<<(std::ostream& out, ReportOn ports);

/// What [defaults] sets for all VLANs and a [[vlan]] may set otherwise for itself.
struct SnoopingSettings {
  /// 1 to 7: how many times a message may be lost before it matters.
  unsigned robustnessVariable = 2;

  /// 1 to 31744 seconds, the most that a query can announce (RFC 9776 section 4.1.7).
  std::chrono::seconds queryInterval{125};

  /// 1 to 3174 seconds, the most that a query can ask for (RFC 9776 section 4.1.1), and always
  /// below `queryInterval` (RFC 9776 section 8.3).
  std::chrono::seconds queryMaxResponseTime{10};

  /// 1 to 1023 seconds.
  std::chrono::seconds lastMemberQueryInterval{1};

  /// A leave removes the reporter's membership at once.
  bool fastLeave = false;

  /// IGMP messages without the IP Router Alert option are ignored.
  bool requireRouterAlert = false;

  /// Act as the VLAN's querier.
  bool sendQuery = false;

  /// The source address of queries; a unicast address or 0.0.0.0. Without it the switch finds its
  /// own address in the VLAN.
  std::optional<Wirex::IpAddr> querierSource;

  /// The source address of the hosts' reports, of which the same holds.
  std::optional<Wirex::IpAddr> senderSourceAddress;

  ReportOn reportOn = ReportOn::mrouters;

  /// Groups in which only single sources can be had (RFC 4604).
  Bridging::IgmpSnooping::GroupRange ssmRange{Wirex::IpAddr(232, 0, 0, 0), 8};

  // 0 is no limit, here and below.
  std::uint32_t maxGroups = 4096;                 ///< of the VLAN
  std::uint32_t maxInterfaceGroups = 2048;        ///< of a port
  std::uint32_t maxInterfaceMemberships = 16384;  ///< of a port: groups and reporters
  std::uint32_t maxGroupSources = 512;            ///< of one reporter in one group
  std::uint32_t maxInterfaceSources = 16384;      ///< of all reporters and groups of a port

  friend bool operator==(SnoopingSettings const&, SnoopingSettings const&) = default;
};

/// A Linux interface, or a port of a replay.
struct InterfaceConfig {
  Wirex::IntfId intfId;
  bool blocked = false;
  Bridging::AllowedTrafficDirection direction = Bridging::AllowedTrafficDirection::both;

  /// Queries heard on the interface are heeded.
  bool querierAllowed = true;

  /// What is heard on the interface may make it a multicast router port.
  bool routerAllowed = true;

  /// Whether streams may come in, and go out: as configured, whatever the port's state.
  bool letsStreamsIn() const { return !blocked && allowsIngress(direction); }
  bool letsStreamsOut() const { return !blocked && allowsEgress(direction); }

  friend bool operator==(InterfaceConfig const&, InterfaceConfig const&) = default;
};

/// An interface as a member of a VLAN.
struct VlanMember {
  Wirex::IntfId intfId;
  bool tagged = false;

  /// The interface is a multicast router port whatever is heard on it.
  bool staticMrouter = false;

  friend bool operator==(VlanMember const&, VlanMember const&) = default;
};

struct VlanConfig {
  Bridging::VlanId vlanId;

  SnoopingSettings settings;

  /// A secondary VLAN has the value of its primary.
  bool proxy = true;

  /// Without it the VLAN has no querier configuration, and is not proxied whatever `proxy` says.
  std::optional<Igmp::IgmpVersion> querierVersion;

  Bridging::VlanTypeAndPrimaryVlan privateRole;

  /// Each interface once: the untagged members as written, then the tagged ones.
  std::vector<VlanMember> members;

  /// Null if the interface is none.
  VlanMember const* member(Wirex::IntfId const& intfId) const;
  VlanMember* member(Wirex::IntfId const& intfId);

  /// Of a private VLAN (RFC 5517).
  bool isSecondary() const { return privateRole != Bridging::VlanTypeAndPrimaryVlan(); }

  /// Where what is heard in this VLAN is learned: its primary VLAN, or itself.
  Bridging::VlanId learningVlan() const {
    return isSecondary() ? privateRole.primaryVlan() : vlanId;
  }

  friend bool operator==(VlanConfig const&, VlanConfig const&) = default;
};

/// Where streams of groups go that nobody has joined.
enum class Unregistered : std::uint8_t { flood, routers };

std::ostream& operator<<(std::ostream& out, Unregistered ports);

/// The kernel's bridge that is to forward by what was learned.
struct ForwardingConfig {
  std::string bridge;
  Unregistered unregistered = Unregistered::flood;

  friend bool operator==(ForwardingConfig const&, ForwardingConfig const&) = default;
};

struct Configuration {
  /// As which the program runs on where it was started as root; empty: as root.
  std::string user;

  /// On which the metrics are served by TCP, "127.0.0.1:9643"; empty: on none.
  std::string metricsAddress;

  /// Nothing: what is forwarded is somebody else's business.
  std::optional<ForwardingConfig> forwarding;

  /// As written; each interface once.
  std::vector<InterfaceConfig> interfaces;

  /// In ascending order; each VLAN once.
  std::vector<VlanConfig> vlans;

  /// The first VLAN that has this number or a higher one; null if none has.
  VlanConfig const* vlanFrom(unsigned number) const;

  friend bool operator==(Configuration const&, Configuration const&) = default;
};

/// How many VLANs have hosts that report.
std::size_t proxiedVlans(Configuration const& configuration);

}  // namespace Agent
