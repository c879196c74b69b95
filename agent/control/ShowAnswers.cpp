#include "agent/control/ShowAnswers.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/Log.h"
#include "agent/control/MembershipWalk.h"
#include "agent/forwarding/ForwardingWords.h"
#include "agent/output/Counters.h"
#include "agent/output/ExplanationWords.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"
#include "agent/watch/HostRecords.h"
#include "platform/snooping/LearnedMembership.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::LearnedMembership;
using Bridging::IgmpSnooping::ReceiveCounters;
using Bridging::IgmpSnooping::RouterPort;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr std::size_t stepsAtOnce = 1000;
constexpr std::size_t bytesAtOnce = 65536;

/// Its frame, and lines for the elements.
class Listing : public Answer {
 public:
  Progress advance(std::string& out) final {
    if (!std::exchange(begun_, true)) {
      Json header;
      header["time"] = seconds(switch_.now() - start_);
      header["lists"] = lists_;
      addLine(out, header);
    }
    if (!advanceList(out)) return Progress::more;
    addLine(out, {{"end", true}});
    return Progress::done;
  }

 protected:
  Listing(Switch const& snoopingSwitch, Request const& request, Horix::Time start,
          std::vector<std::string> lists)
      : switch_(snoopingSwitch), of_(request.of), start_(start), lists_(std::move(lists)) {}

  Switch const& theSwitch() const { return switch_; }
  Selection const& of() const { return of_; }
  Horix::Time now() const { return switch_.now(); }

  bool isSelected(VlanConfig const& vlan) const {
    return of_.has(vlan.vlanId) && (!of_.interface || vlan.member(*of_.interface));
  }
  /// The selected group, where a VLAN knows it.
  IgmpGroup const* selectedGroup(VlanId vlan) const {
    auto const status = switch_.entities().snoopingStatus->contextStatus(vlan);
    return status ? status->group().find(*of_.group) : nullptr;
  }
  bool knowsGroup(VlanId vlan) const { return !of_.group || selectedGroup(vlan); }

  static void addLine(std::string& out, Json const& line) { out.append(oneLine(line)) += '\n'; }
  static void add(std::string& out, char const* list, Json element) {
    Json line;
    line[list] = std::move(element);
    addLine(out, line);
  }

 private:
  /// Appends elements. Returns whether they were the last.
  virtual bool advanceList(std::string& out) = 0;

  Switch const& switch_;
  Selection of_;
  Horix::Time start_;
  std::vector<std::string> lists_;
  bool begun_ = false;
};

// ---- VLANs

class VlansListing final : public Listing {
 public:
  VlansListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start)
      : Listing(snoopingSwitch, request, start, {"vlans"}),
        walk_(snoopingSwitch, Selection{request.of.vlan, {}, {}}) {}

 private:
  bool advanceList(std::string& out) override {
    walk_.advance(stepsAtOnce, [this](auto const& place, auto const&) { ++counts_[place.vlan]; });
    if (!walk_.atEnd()) return false;
    for (VlanConfig const& vlan : theSwitch().configuration().vlans)
      if (isSelected(vlan) && knowsGroup(vlan.vlanId)) add(out, "vlans", vlanObject(vlan));
    return true;
  }

  Json vlanObject(VlanConfig const& vlan) const {
    Json object;
    object["vlan"] = vlan.vlanId.value();
    object["proxy"] = theSwitch().proxy().vlanSm(vlan.vlanId) != nullptr;
    object["standing"] = name(standingOf(theSwitch(), vlan.vlanId));
    if (vlan.isSecondary()) object["primary-vlan"] = vlan.privateRole.primaryVlan().value();
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

  MembershipWalk walk_;
  std::map<VlanId, std::uint64_t> counts_;
};

// ---- Interfaces, router ports

class InterfacesListing final : public Listing {
 public:
  InterfacesListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start)
      : Listing(snoopingSwitch, request, start, {"interfaces"}) {}

 private:
  bool advanceList(std::string& out) override {
    for (InterfaceConfig const& interface : theSwitch().configuration().interfaces)
      if (isSelected(interface.intfId)) add(out, "interfaces", interfaceObject(interface));
    return true;
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
    auto const device = theSwitch().snooping().ethDevPamCol()->intfPam(interface.intfId);
    if (std::string const why = device ? device->deafness() : ""; !why.empty())
      object["deaf"] = why;
    object["direction"] = message(interface.direction);
    object["mtu"] = state.mtu;
    Json& vlans = object["vlan"] = Json::array();
    for (VlanConfig const& vlan : theSwitch().configuration().vlans)
      if (VlanMember const* const member = vlan.member(interface.intfId))
        vlans.push_back({{"id", vlan.vlanId.value()}, {"tagged", member->tagged}});
    return object;
  }
};

class RouterPortsListing final : public Listing {
 public:
  RouterPortsListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start)
      : Listing(snoopingSwitch, request, start, {"mrouters"}) {}

 private:
  bool advanceList(std::string& out) override {
    for (VlanConfig const& vlan : theSwitch().configuration().vlans) {
      auto const* const ports = theSwitch().routerPorts(vlan.vlanId);
      if (!of().has(vlan.vlanId) || !knowsGroup(vlan.vlanId) || !ports) continue;
      for (auto const& [intf, port] : ports->routerPort())
        if (of().has(intf))
          add(out, "mrouters", portObject(vlan.vlanId, intf, remaining(port, now())));
    }
    return true;
  }

  static Json portObject(VlanId vlan, IntfId const& intf, RouterPort const& port) {
    Json object;
    object["vlan"] = vlan.value();
    object["interface"] = message(intf);
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
  GroupsListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start,
                Forwarding const* forwarding)
      : Listing(snoopingSwitch, request, start, {"groups"}),
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
    Horix::Time const end = static_cast<LearnedMembership const&>(membership).end();
    object["expire"] = seconds(std::max(end - now(), Horix::Time::zero()));
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
  HostsListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start)
      : Listing(snoopingSwitch, request, start, {"hosts"}) {
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
    Json object = hostAttributes(attributesOf(*host));
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

// ---- Statistics

class StatisticsListing final : public Listing {
 public:
  StatisticsListing(Switch const& snoopingSwitch, Request const& request, Horix::Time start)
      : Listing(snoopingSwitch, request, start,
                {"agent", "vlans", "interfaces", "hosts", "devices"}) {}

 private:
  bool advanceList(std::string& out) override {
    addAgent(out);
    for (VlanConfig const& vlan : theSwitch().configuration().vlans)
      if (isSelected(vlan)) addVlan(out, vlan);
    for (auto const& [intf, port] : theSwitch().ports())
      if (of().has(intf) && !of().vlan)
        add(out, "interfaces", portObject(std::nullopt, intf, port.countersInNoVlan()));
    for (auto const& [intf, pam] : theSwitch().snooping().ethDevPamCol()->intfPam())
      if (of().has(intf)) add(out, "devices", deviceObject(intf, pam->counters()));
    return true;
  }

  void addAgent(std::string& out) const {
    auto const& turns = theSwitch().turns();
    Json object;
    object["turn-count"] = turns.count;
    object["longest-turn"] = seconds(turns.longest);
    object["lost-log-line-count"] = lostLogLines();
    add(out, "agent", std::move(object));
  }

  void addVlan(std::string& out, VlanConfig const& vlan) {
    if (auto const* const querier = theSwitch().querier(vlan.vlanId)) {
      Json object;
      object["vlan"] = vlan.vlanId.value();
      addValues(object["sent"], queriesSent, querier->sent());
      add(out, "vlans", std::move(object));
    }
    for (VlanMember const& member : vlan.members)
      if (of().has(member.intfId)) addPort(out, {vlan.vlanId, member.intfId});
  }

  void addPort(std::string& out, PortKey const& key) const {
    auto const port = theSwitch().ports().find(key.intfId());
    if (port != theSwitch().ports().end())
      if (auto const* const counters = port->second.counters(key.vlanId()))
        add(out, "interfaces", portObject(key.vlanId(), key.intfId(), *counters));
    addHost(out, key);
  }

  void addHost(std::string& out, PortKey const& key) const {
    auto const status = theSwitch().proxy().igmpHostStatusDir()->igmpHostStatus(key.hostName());
    if (!status) return;
    Igmp::HostCounters const& counters = status->counters();
    Json object;
    object["vlan"] = key.vlanId().value();
    object["name"] = message(key.intfId());
    object["received"]["query-count"] = counters.queriesHeard;
    addValues(object["sent"], messagesSent, counters);
    add(out, "hosts", std::move(object));
  }

  /// @param vlan nothing for frames that belong to none of the port's VLANs.
  static Json portObject(std::optional<VlanId> vlan, IntfId const& intf,
                         ReceiveCounters const& counters) {
    Json object;
    if (vlan) object["vlan"] = vlan->value();
    object["name"] = message(intf);
    addValues(object["received"], messagesReceived, counters);
    Json& ignored = object["ignored"] = Json::object();
    for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i)
      if (counters.ignored[i] != 0)
        ignored[message(static_cast<Igmp::IgnoreReason>(i))] = counters.ignored[i];
    return object;
  }

  static Json deviceObject(IntfId const& intf, Interface::EthDevPam::Counters const& counters) {
    Json object;
    object["name"] = message(intf);
    addValues(object, deviceFrames, counters);
    return object;
  }

  template <class Counters, std::size_t size>
  static void addValues(Json& object, std::array<Counter<Counters>, size> const& counters,
                        Counters const& values) {
    for (auto const& counter : counters) object[counter.key] = counter.value(values);
  }
};

template <class T>
std::unique_ptr<Answer> listing(Switch const& snoopingSwitch, Request const& request,
                                Horix::Time start) {
  return std::make_unique<T>(snoopingSwitch, request, start);
}

}  // namespace

std::unique_ptr<Answer> showAnswer(Switch const& snoopingSwitch, Request const& request,
                                   Horix::Time start, Forwarding const* forwarding) {
  if (request.what == "vlans") return listing<VlansListing>(snoopingSwitch, request, start);
  if (request.what == "interfaces")
    return listing<InterfacesListing>(snoopingSwitch, request, start);
  if (request.what == "groups")
    return std::make_unique<GroupsListing>(snoopingSwitch, request, start, forwarding);
  if (request.what == "hosts") return listing<HostsListing>(snoopingSwitch, request, start);
  if (request.what == "mrouters")
    return listing<RouterPortsListing>(snoopingSwitch, request, start);
  if (request.what == "statistics")
    return listing<StatisticsListing>(snoopingSwitch, request, start);
  refuse("there is nothing called ", Agent::quoted(request.what), " to show");
}

}  // namespace Agent
