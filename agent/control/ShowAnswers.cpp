#include "agent/control/ShowAnswers.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/control/GroupWalk.h"
#include "agent/control/Listing.h"
#include "agent/control/MembershipWalk.h"
#include "agent/control/StatisticsAnswer.h"
#include "agent/forwarding/ForwardingWords.h"
#include "agent/output/ExplanationWords.h"
#include "agent/output/InterfaceCondition.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"
#include "agent/watch/HostRecords.h"
#include "platform/snooping/LearnedMembership.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::LearnedMembership;
using Bridging::IgmpSnooping::RouterPort;
using Wirex::IntfId;
using Wirex::IpAddr;

// ---- VLANs

class VlansListing final : public Listing {
 public:
  VlansListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch)
      : Listing(snoopingSwitch, request, epoch, {"vlans"}), walk_(snoopingSwitch, request.of.vlan) {
    for (VlanConfig const& vlan : snoopingSwitch.configuration().vlans)
      if (vlan.isSecondary())
        secondaries_[vlan.privateRole.primaryVlan()].push_back(vlan.vlanId.value());
  }

 private:
  bool advanceList(std::string& out) override {
    walk_.advance(countsAtOnce, [this](VlanId vlan, IgmpGroup const& group) {
      for (auto const& [intf, status] : group.intf()) counts_[vlan] += status->membership().size();
    });
    if (!walk_.atEnd()) return false;
    return advanceVlans(out, [&](VlanConfig const& vlan) {
      if (isSelected(vlan) && knowsGroup(vlan.vlanId)) add(out, "vlans", vlanObject(vlan));
    });
  }

  Json vlanObject(VlanConfig const& vlan) const {
    Json object;
    object["vlan"] = vlan.vlanId.value();
    object["proxy"] = theSwitch().proxy().vlanSm(vlan.vlanId) != nullptr;
    object["standing"] = name(standingOf(theSwitch(), vlan.vlanId));
    addPrivateRole(object, vlan);
    if (vlan.querierVersion) object["igmp-version"] = static_cast<unsigned>(*vlan.querierVersion);
    if (auto const* const querier = theSwitch().querier(vlan.vlanId)) {
      object["send-query"] = querier->settings().sendsQueries;
      object["querier"] = !querier->settings().sendsQueries ? "off"
                          : querier->isQuerier()            ? "elected"
                                                            : "other";
      if (auto const& other = querier->otherQuerier())
        object["other-querier"] = message(other->address);
    }
    object["interface-count"] = vlan.members.size();
    auto const status = theSwitch().entities().snoopingStatus->contextStatus(vlan.vlanId);
    object["entries-count"] = status ? status->group().size() : 0;
    auto const hosts = counts_.find(vlan.vlanId);
    object["host-count"] = hosts == counts_.end() ? 0 : hosts->second;
    Json& routers = object["bridge-mrouter-interface"] = Json::array();
    if (auto const* const ports = theSwitch().routerPorts(vlan.vlanId))
      for (auto const& [intf, port] : ports->routerPort()) routers.push_back(message(intf));
    return object;
  }

  /// Of a private VLAN (RFC 5517).
  void addPrivateRole(Json& object, VlanConfig const& vlan) const {
    if (vlan.isSecondary()) {
      object["private-type"] = message(vlan.privateRole.type());
      object["primary-vlan"] = vlan.privateRole.primaryVlan().value();
    } else if (auto const found = secondaries_.find(vlan.vlanId); found != secondaries_.end()) {
      object["private-type"] = "primary";
      object["secondary-vlan"] = found->second;
    }
  }

  GroupWalk walk_;
  std::map<VlanId, std::uint64_t> counts_;
  std::map<VlanId, std::vector<unsigned>> secondaries_;  // of primary VLANs, when it began
};

// ---- Interfaces, router ports

class InterfacesListing final : public Listing {
 public:
  InterfacesListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch)
      : Listing(snoopingSwitch, request, epoch, {"interfaces"}),
        left_(snoopingSwitch.configuration().interfaces) {
    std::reverse(left_.begin(), left_.end());
  }

 private:
  bool advanceList(std::string& out) override {
    std::size_t steps = 0;
    for (; !left_.empty() && steps <= stepsAtOnce && out.size() < bytesAtOnce; left_.pop_back()) {
      steps += theSwitch().configuration().vlans.size();
      if (isSelected(left_.back().intfId)) add(out, "interfaces", interfaceObject(left_.back()));
    }
    return left_.empty();
  }

  bool isSelected(IntfId const& intf) const {
    if (!of().has(intf)) return false;
    if (!of().vlan && !of().group) return true;
    auto const& vlans = theSwitch().configuration().vlans;
    return std::any_of(vlans.begin(), vlans.end(), [&](VlanConfig const& vlan) {
      return of().has(vlan.vlanId) &&
             (of().group ? listens(vlan.vlanId, intf) : vlan.member(intf) != nullptr);
    });
  }

  bool listens(VlanId vlan, IntfId const& intf) const {
    IgmpGroup const* const group = selectedGroup(vlan);
    return group && group->intf().contains(intf);
  }

  Json interfaceObject(InterfaceConfig const& interface) const {
    InterfaceState const state = theSwitch().interfaceState(interface.intfId);
    Json object;
    object["name"] = message(interface.intfId);
    object["present"] = state.present;
    object["carrier"] = state.carrier;
    object["forwarding"] = state.forwarding;
    object["blocked"] = interface.blocked || !state.operational();
    auto const [condition, because] = conditionOf(theSwitch(), interface);
    object["state"] = condition;
    if (!because.empty()) object["because"] = because;
    object["direction"] = message(interface.direction);
    object["mtu"] = state.mtu;
    Json& vlans = object["vlan"] = Json::array();
    for (VlanConfig const& vlan : theSwitch().configuration().vlans)
      if (VlanMember const* const member = vlan.member(interface.intfId))
        vlans.push_back({{"id", vlan.vlanId.value()}, {"tagged", member->tagged}});
    return object;
  }

  std::vector<InterfaceConfig> left_;  // still to be shown, the next one last
};

class RouterPortsListing final : public Listing {
 public:
  RouterPortsListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch)
      : Listing(snoopingSwitch, request, epoch, {"mrouters"}) {}

 private:
  bool advanceList(std::string& out) override {
    return advanceVlans(out, [&](VlanConfig const& vlan) {
      auto const* const ports = theSwitch().routerPorts(vlan.vlanId);
      if (!of().has(vlan.vlanId) || !knowsGroup(vlan.vlanId) || !ports) return;
      for (auto const& [intf, port] : ports->routerPort())
        if (of().has(intf))
          add(out, "mrouters", portObject(vlan.vlanId, intf, remaining(port, now())));
    });
  }

  Json portObject(VlanId vlan, IntfId const& intf, RouterPort const& port) const {
    Json object;
    object["vlan"] = vlan.value();
    object["interface"] = message(intf);
    addDate(object, "since", port.since);
    object["static"] = port.configured;
    if (port.querier != IpAddr()) {
      object["querier"] = message(port.querier);
      object["querier-expire"] = seconds(port.querierUntil);
    }
    if (port.pimNeighbor != IpAddr()) {
      object["pim-neighbor"] = message(port.pimNeighbor);
      // Null for one that never times out.
      object["pim-expire"] =
          port.pimUntil == Horix::Time::max() ? Json() : Json(seconds(port.pimUntil));
    }
    return object;
  }
};

// ---- Memberships

class GroupsListing final : public Listing {
 public:
  GroupsListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch,
                Forwarding const* forwarding)
      : Listing(snoopingSwitch, request, epoch, {"groups"}),
        walk_(snoopingSwitch, request.of),
        forwarding_(forwarding) {}

 private:
  bool advanceList(std::string& out) override {
    for (std::size_t steps = 0; steps < stepsAtOnce && out.size() < bytesAtOnce; ++steps)
      walk_.advance(1, [&](MembershipWalk::Place const& place, auto const& membership) {
        add(out, "groups", membershipObject(place, membership));
      });
    return walk_.atEnd();
  }

  Json membershipObject(MembershipWalk::Place const& place,
                        MembershipWalk::Membership const& membership) const {
    Json object;
    object["vlan"] = place.vlan.value();
    object["address"] = message(place.group);
    object["interface"] = message(place.interface);
    object["host"] = message(membership.addr());
    addFilter(object, filterOf(membership));
    auto const& learned = static_cast<LearnedMembership const&>(membership);
    addDate(object, "since", learned.since());
    object["expire"] = seconds(std::max(learned.end() - now(), Horix::Time::zero()));
    if (auto const to =
            forwarding_ ? destinationsOf(*forwarding_, place.vlan, place.group) : std::nullopt) {
      object["flooded"] = to->everywhere;
      object["forwarded-to"] = to->ports;
    }
    return object;
  }

  MembershipWalk walk_;
  Forwarding const* forwarding_;
};

// ---- Hosts

class HostsListing final : public Listing {
 public:
  HostsListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch)
      : Listing(snoopingSwitch, request, epoch, {"hosts"}) {
    for (auto const& [name, host] : snoopingSwitch.entities().hosts->igmpHost())
      if (isSelected(*host)) hosts_.push_back(name);
  }

 private:
  bool isSelected(Igmp::IgmpHost const& host) const {
    return host.vlanId() != 0 && of().has(VlanId(host.vlanId())) && of().has(host.intfId());
  }

  bool advanceList(std::string& out) override {
    for (std::size_t steps = 0; steps < stepsAtOnce && out.size() < bytesAtOnce; ++steps)
      if (!groups_.empty())
        addGroup(out);
      else if (!hosts_.empty())
        addHost(out);
      else
        return true;
    return false;
  }

  void addHost(std::string& out) {
    host_ = std::move(hosts_.back());
    hosts_.pop_back();
    Igmp::IgmpHost const* const host = find();
    if (!host) return;
    Json object = hostAttributes(attributesOf(*host, *theSwitch().proxy().igmpHostStatusDir()));
    if (auto const status = theSwitch().proxy().igmpHostStatusDir()->igmpHostStatus(host_);
        status && status->lastSent())
      addDate(object, "last-sent", *status->lastSent());
    object["group"] = Json::array();
    add(out, "hosts", std::move(object));
    for (IpAddr const group : host->v3group().keys())
      if (of().has(group)) groups_.push_back(group);
  }

  void addGroup(std::string& out) {
    IpAddr const group = groups_.back();
    groups_.pop_back();
    Igmp::IgmpHost const* const host = find();
    Igmp::IgmpV3GroupRecord const* const record = host ? host->v3group().peek(group) : nullptr;
    if (!record) return;
    Json more;
    more["hosts"]["group"].push_back(groupObject({group, filterOf(*record)}));
    add(out, "more", std::move(more));
  }

  Igmp::IgmpHost const* find() const {
    return theSwitch().entities().hosts->igmpHost().find(host_);
  }

  std::vector<Kel::Name> hosts_;  // still to be shown
  Kel::Name host_;
  std::vector<IpAddr> groups_;  // of the host, still to be shown
};

template <class T>
std::unique_ptr<Answer> listing(Switch const& snoopingSwitch, Request const& request,
                                Epoch const& epoch) {
  return std::make_unique<T>(snoopingSwitch, request, epoch);
}

}  // namespace

std::unique_ptr<Answer> showAnswer(Switch const& snoopingSwitch, Request const& request,
                                   Epoch const& epoch, Forwarding const* forwarding) {
  if (request.what == "vlans") return listing<VlansListing>(snoopingSwitch, request, epoch);
  if (request.what == "interfaces")
    return listing<InterfacesListing>(snoopingSwitch, request, epoch);
  if (request.what == "groups")
    return std::make_unique<GroupsListing>(snoopingSwitch, request, epoch, forwarding);
  if (request.what == "hosts") return listing<HostsListing>(snoopingSwitch, request, epoch);
  if (request.what == "mrouters")
    return listing<RouterPortsListing>(snoopingSwitch, request, epoch);
  if (request.what == "statistics") return statisticsAnswer(snoopingSwitch, request, epoch);
  refuse("there is nothing called ", Agent::quoted(request.what), " to show");
}

}  // namespace Agent
