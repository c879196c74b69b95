#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/entities/IgmpContextStatus.h"
#include "framework/types/AllowedTrafficDirection.h"
#include "framework/types/IgmpFilterMode.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/IgmpHost.h"

/// The hosts and what they report, as plain values for output and comparison.
namespace Agent {

/// From which sources a host asks for a group.
struct SourceFilter {
  Gmp::Igmp::IgmpFilterMode mode = Gmp::Igmp::IgmpFilterMode::include;
  std::vector<Wirex::IpAddr> sources;  ///< ascending

  friend bool operator==(SourceFilter const&, SourceFilter const&) = default;
};

struct GroupRecord {
  Wirex::IpAddr address;
  SourceFilter filter;

  friend bool operator==(GroupRecord const&, GroupRecord const&) = default;
};

struct HostRecords {
  std::string name;
  unsigned vlan = 0;
  std::string interface;
  Igmp::IgmpVersion igmpVersion = Igmp::IgmpVersion::v3;    ///< as configured
  Igmp::IgmpVersion spokenVersion = Igmp::IgmpVersion::v3;  ///< on account of older queriers
  bool blocked = false;
  Bridging::AllowedTrafficDirection direction = Bridging::AllowedTrafficDirection::both;
  Wirex::IpAddr sourceAddress;      ///< of its messages
  std::vector<GroupRecord> groups;  ///< ascending by address
};

SourceFilter filterOf(Igmp::IgmpV3GroupRecord const& record);
SourceFilter filterOf(Bridging::IgmpSnooping::IgmpMembership const& membership);

/// A host without its groups.
/// @param statuses may lack that of the host, which then speaks as configured.
HostRecords attributesOf(Igmp::IgmpHost const& host, Igmp::IgmpHostStatusDir const& statuses);

/// By VLAN, then by interface in natural order.
bool precedes(HostRecords const& a, HostRecords const& b);

/// All hosts, by VLAN and then by interface in natural order.
std::vector<HostRecords> hostsIn(Igmp::IgmpHostDir const& directory,
                                 Igmp::IgmpHostStatusDir const& statuses);

}  // namespace Agent
