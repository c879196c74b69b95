#include "agent/forwarding/ForwardedVlan.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace Agent {

using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IgmpIntfStatus;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

using Addresses = std::vector<IpAddr>;

Addresses unionOf(Addresses const& a, Addresses const& b) {
  Addresses both;
  std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
  return both;
}

Addresses intersectionOf(Addresses const& a, Addresses const& b) {
  Addresses common;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(common));
  return common;
}

Addresses differenceOf(Addresses const& a, Addresses const& b) {
  Addresses rest;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(rest));
  return rest;
}

/// The VLANs whose members may get the streams of a VLAN, its own first.
std::vector<VlanId> receivingVlans(VlanConfig const& vlan, Configuration const& configuration) {
  if (vlan.isSecondary()) {
    VlanId const primary = vlan.privateRole.primaryVlan();
    return vlan.privateRole.type() == VlanType::isolated ? std::vector{primary}
                                                         : std::vector{vlan.vlanId, primary};
  }
  std::vector<VlanId> vlans{vlan.vlanId};
  for (VlanConfig const& other : configuration.vlans)
    if (other.isSecondary() && other.learningVlan() == vlan.vlanId) vlans.push_back(other.vlanId);
  return vlans;
}

}  // namespace

std::vector<ForwardedVlan> forwardedVlans(Configuration const& configuration, bool vlanAware) {
  std::set<IntfId> out;
  for (InterfaceConfig const& interface : configuration.interfaces)
    if (interface.letsStreamsOut()) out.insert(interface.intfId);
  std::map<VlanId, VlanConfig const*> configured;
  for (VlanConfig const& vlan : configuration.vlans) configured.emplace(vlan.vlanId, &vlan);

  std::vector<ForwardedVlan> vlans;
  for (VlanConfig const& vlan : configuration.vlans) {
    ForwardedVlan forwarded;
    forwarded.vlanId = vlan.vlanId;
    forwarded.entryVlan = vlanAware ? vlan.vlanId.value() : std::uint16_t{0};
    forwarded.learnedIn = vlan.learningVlan();
    forwarded.routersOf = receivingVlans(vlan, configuration);
    for (VlanId const receiving : forwarded.routersOf)
      for (VlanMember const& member : configured.at(receiving)->members)
        if (out.contains(member.intfId)) forwarded.receivers.insert(member.intfId);
    vlans.push_back(std::move(forwarded));
  }
  return vlans;
}

SourceFilter wantedBy(IgmpIntfStatus const& port) {
  SourceFilter wanted;
  Addresses included;
  for (auto const& [reporter, membership] : port.membership()) {
    SourceFilter filter = filterOf(*membership);
    if (filter.mode == IgmpFilterMode::include) {
      included = unionOf(included, filter.sources);
    } else if (wanted.mode == IgmpFilterMode::include) {
      wanted = std::move(filter);
    } else {
      wanted.sources = intersectionOf(wanted.sources, filter.sources);
    }
  }
  if (wanted.mode == IgmpFilterMode::include) return {IgmpFilterMode::include, included};
  wanted.sources = differenceOf(wanted.sources, included);
  return wanted;
}

std::optional<SourceFilter> wantedEntry(ForwardedVlan const& vlan, IgmpGroup const& group,
                                        IntfId const& intf, bool isRouterPort) {
  if (!vlan.receivers.contains(intf)) return std::nullopt;
  if (isRouterPort) return SourceFilter{IgmpFilterMode::exclude, {}};
  IgmpIntfStatus const* const port = group.intf().find(intf);
  if (!port) return std::nullopt;
  SourceFilter wanted = wantedBy(*port);
  // A membership that was withdrawn is there until the end of its batch.
  if (wanted == SourceFilter()) return std::nullopt;
  return wanted;
}

}  // namespace Agent
