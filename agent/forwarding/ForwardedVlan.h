#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "agent/config/Configuration.h"
#include "agent/watch/HostRecords.h"
#include "framework/entities/IgmpContextStatus.h"

/// Where the streams of a VLAN go, from the configuration, the memberships and the router ports
/// alone: no kernel is asked.
namespace Agent {

/// A VLAN as streams see it.
struct ForwardedVlan {
  Bridging::VlanId vlanId;      ///< that the frames come in
  std::uint16_t entryVlan = 0;  ///< in a bridge's entries; 0 where it does not tell VLANs apart
  Bridging::VlanId learnedIn;   ///< the VLAN itself, or its primary

  /// The ports that streams may leave by: of a primary VLAN those of its secondary VLANs too; of a
  /// secondary one the promiscuous ports, which are the primary's, and of a community its own
  /// (RFC 5517 section 3).
  std::set<Wirex::IntfId> receivers;

  /// The VLANs whose router ports are router ports here.
  std::vector<Bridging::VlanId> routersOf;
};

/// The VLANs of a configuration, in ascending order.
/// @param vlanAware whether the bridge tells VLANs apart.
std::vector<ForwardedVlan> forwardedVlans(Configuration const& configuration, bool vlanAware);

/// What the reporters of a port want together (RFC 9776 section 3.2): the union of what they
/// include, or, once one of them excludes, what all who exclude exclude and nobody includes.
SourceFilter wantedBy(Bridging::IgmpSnooping::IgmpIntfStatus const& port);

/// What a port gets of a group: nothing if it gets none of it.
/// @param group as learned in `vlan.learnedIn`.
/// @param isRouterPort which gets every group that somebody has joined (RFC 4541 section 2.1.2).
std::optional<SourceFilter> wantedEntry(ForwardedVlan const& vlan,
                                        Bridging::IgmpSnooping::IgmpGroup const& group,
                                        Wirex::IntfId const& intf, bool isRouterPort);

}  // namespace Agent
