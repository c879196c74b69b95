#include "agent/output/Explanation.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"
#include "platform/igmp/RecordNames.h"
#include "platform/snooping/LearnedMembership.h"
#include "proxy/ProxyAdapterSm.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpIntfStatus;
using Bridging::IgmpSnooping::LearnedMembership;
using Bridging::IgmpSnooping::RouterPorts;
using Bridging::IgmpSnooping::TurnedAway;
using Bridging::IgmpSnooping::Proxy::AdapterSm;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Bridging::IgmpSnooping::Proxy::SourceCount;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

std::string textOf(IntfId const& intf) {
  return std::string(intf.stringValue().view());
}

bool names(SourceFilter const& filter, IgmpFilterMode mode, IpAddr source) {
  return filter.mode == mode &&
         std::binary_search(filter.sources.begin(), filter.sources.end(), source);
}

/// "v3 TO_EX of 2 sources", "v2 report", "leave"
std::string wordsFor(Igmp::SentRecords::Sent const& sent) {
  switch (sent.message) {
    case Igmp::MessageType::reportV1:
      return "v1 report";
    case Igmp::MessageType::reportV2:
      return "v2 report";
    case Igmp::MessageType::reportV3:
      return message("v3 ", Igmp::nameOf(sent.record), " of ",
                     sent.sources == 0 ? "no source" : counted(sent.sources, "source"));
    case Igmp::MessageType::leave:
    case Igmp::MessageType::query:  // which hosts do not send
      break;
  }
  return "leave";
}

/// So many reporters of a port are told one by one: a port may have very many.
constexpr std::size_t mostReporters = 100;

/// What the reporters of a port want together: the union of what they include, or, as soon as one
/// of them excludes, what all of them exclude.
SourceFilter mergeOf(IgmpIntfStatus const& port) {
  std::size_t excluding = 0;
  std::vector<IpAddr> included;
  std::vector<IpAddr> excluded;
  for (auto const& [reporter, membership] : port.membership()) {
    bool const excludes = membership->filterMode() == IgmpFilterMode::exclude;
    if (excludes) ++excluding;
    std::vector<IpAddr>& sources = excludes ? excluded : included;
    sources.insert(sources.end(), membership->source().begin(), membership->source().end());
  }
  // A source counts as often as reporters name it.
  std::vector<IpAddr>& sources = excluding > 0 ? excluded : included;
  std::sort(sources.begin(), sources.end());
  SourceFilter merged{excluding > 0 ? IgmpFilterMode::exclude : IgmpFilterMode::include, {}};
  for (auto begin = sources.begin(); begin != sources.end();) {
    auto const end = std::upper_bound(begin, sources.end(), *begin);
    if (excluding == 0 || static_cast<std::size_t>(end - begin) == excluding)
      merged.sources.push_back(*begin);
    begin = end;
  }
  return merged;
}

/// What counts for a port in the proxy.
SourceFilter filterOf(AdapterSm::KelIgmpGroup::KelIgmpIntf const& port) {
  if (port.starG()) return {IgmpFilterMode::exclude, {}};
  SourceFilter filter{port.mode(), {}};
  auto const& sources =
      port.mode() == IgmpFilterMode::exclude ? port.portExclude() : port.portInclude();
  for (auto const [source, count] : sources) filter.sources.push_back(source);
  std::sort(filter.sources.begin(), filter.sources.end());
  return filter;
}

/// The VLAN in which memberships of a VLAN are learned.
VlanId primaryOf(SwitchEntities const& entities, VlanId vlan) {
  auto const role = entities.privateVlans->secondaryVlan(vlan);
  return role == Bridging::VlanTypeAndPrimaryVlan() ? vlan : role.primaryVlan();
}

Horix::Time timeLeft(Horix::Time until, Horix::Time now) {
  return until == Horix::Time::max() ? until : std::max(until - now, Horix::Time::zero());
}

}  // namespace

Standing standingOf(Switch const& snoopingSwitch, VlanId vlan) {
  SwitchEntities const& entities = snoopingSwitch.entities();
  if (!entities.topology->topoVlan(vlan)) return Standing::vlanUnknown;
  if (!entities.queriers->querierConfig(Kel::format("%d", vlan.value())))
    return Standing::noQuerier;
  VlanId const primary = primaryOf(entities, vlan);
  auto const config = entities.snoopingConfig->contextConfig(primary);
  if (config && config->proxyEnabled()) return Standing::hasHost;
  return primary == vlan ? Standing::proxyOff : Standing::primaryNotProxied;
}

Bridging::IgmpSnooping::RouterPort remaining(Bridging::IgmpSnooping::RouterPort port,
                                             Horix::Time now) {
  port.querierUntil = timeLeft(port.querierUntil, now);
  port.pimUntil = timeLeft(port.pimUntil, now);
  return port;
}

namespace {

/// Builds one explanation, step by step.
class Explainer {
 public:
  Explainer(Switch const& snoopingSwitch, VlanId vlan, IntfId const& intf, IpAddr group)
      : switch_(snoopingSwitch), entities_(snoopingSwitch.entities()), intf_(intf) {
    explanation_.time = snoopingSwitch.now();
    explanation_.vlan = vlan;
    explanation_.interface = textOf(intf);
    explanation_.group = group;
    explanation_.learnedIn = primaryOf(entities_, vlan);
    if (auto const adapter = switch_.proxy().adapterSm(explanation_.learnedIn))
      merging_ = adapter->kelIgmpGroup(group);
  }

  Explanation explain() {
    explanation_.standing = standing();
    addPorts();
    addIgnored();
    if (merging_) merge();
    addHost();
    return std::move(explanation_);
  }

 private:
  Standing standing() const {
    auto const topoVlan = entities_.topology->topoVlan(explanation_.vlan);
    if (topoVlan && !topoVlan->port(intf_)) return Standing::notAMember;
    if (host()) return Standing::hasHost;
    Standing const standing = standingOf(switch_, explanation_.vlan);
    return standing == Standing::hasHost ? Standing::noInterface : standing;
  }

  void addPorts() {
    auto const status = entities_.snoopingStatus->contextStatus(explanation_.learnedIn);
    auto const group = status ? status->group(explanation_.group) : nullptr;
    if (!group) return;
    for (auto const& [intf, port] : group->intf()) explanation_.ports.push_back(portOf(*port));
    std::sort(explanation_.ports.begin(), explanation_.ports.end(),
              [](ExplainedPort const& a, ExplainedPort const& b) {
                return precedesNaturally(a.interface, b.interface);
              });
  }

  void addLinkLocalIgnored() {
    if (!explanation_.group.isLinkLocalMulticast()) return;
    for (auto const& [intf, port] : switch_.ports()) {
      auto const* const counters = port.counters(explanation_.vlan);
      auto const times = counters ? counters->ignoredFor(Igmp::IgnoreReason::groupLinkLocal) : 0;
      if (times > 0) explanation_.linkLocalIgnored.emplace_back(textOf(intf), times);
    }
  }

  void addIgnored() {
    addLinkLocalIgnored();
    auto const* const learning = switch_.learning(explanation_.vlan);
    if (!learning) return;
    learning->turnedAway().forEach(
        explanation_.group, [&](IntfId const& intf, TurnedAway::Entry const& entry) {
          explanation_.ignored.push_back({textOf(intf), entry.reporter, entry.reason, entry.times,
                                          explanation_.time - entry.latest});
        });
    std::stable_sort(explanation_.ignored.begin(), explanation_.ignored.end(),
                     [](ExplainedRefusal const& a, ExplainedRefusal const& b) {
                       return precedesNaturally(a.interface, b.interface);
                     });
  }

  ExplainedPort portOf(IgmpIntfStatus const& status) const {
    ExplainedPort port;
    port.interface = textOf(status.intfId());
    port.own = status.intfId() == intf_;
    addReporters(status, port);
    port.wants = mergeOf(status);
    auto const counted = merging_ ? merging_->igmpIntf(status.intfId()) : nullptr;
    if (!counted) return port;
    SourceFilter counts = filterOf(*counted);
    if (counts != port.wants) port.reportersWant = std::exchange(port.wants, std::move(counts));
    return port;
  }

  /// Those with the lowest addresses.
  void addReporters(IgmpIntfStatus const& status, ExplainedPort& port) const {
    std::vector<IpAddr> addresses;
    addresses.reserve(status.membership().size());
    for (auto const& [address, membership] : status.membership()) addresses.push_back(address);
    std::size_t const told = std::min(addresses.size(), mostReporters);
    auto const end = addresses.begin() + static_cast<std::ptrdiff_t>(told);
    std::partial_sort(addresses.begin(), end, addresses.end());
    std::for_each(addresses.begin(), end, [&](IpAddr address) {
      auto const& learned =
          static_cast<LearnedMembership const&>(*status.membership().find(address));
      port.reporters.push_back(
          {address, Agent::filterOf(learned),
           std::max(learned.end() - explanation_.time, Horix::Time::zero()),
           std::max(explanation_.time - learned.since(), Horix::Time::zero())});
    });
    port.furtherReporters = addresses.size() - told;
  }

  /// The proxy's merge. It works with counts, so this does.
  void merge() {
    SourceCount const& global = *merging_->record();
    auto const own = merging_->igmpIntf(intf_);
    int const otherPorts = static_cast<int>(merging_->igmpIntf().size()) - (own ? 1 : 0);

    std::map<IpAddr, ExplainedSource> sources;
    for (auto const [address, count] : global.include()) {
      ExplainedSource& source = sources[address];
      source.ownIncludes = own && own->portInclude(address) != 0;
      source.including = count - (source.ownIncludes ? 1 : 0);
    }
    bool someExclude = false;
    bool commonExclusion = false;
    for (auto const [address, count] : global.exclude()) {
      ExplainedSource& source = sources[address];
      source.ownExcludes = own && own->portExclude(address) != 0;
      source.excluding = count - (source.ownExcludes ? 1 : 0);
      if (source.excluding == otherPorts)
        source.place = ExplainedSource::Place::excluded;
      else if (source.excluding > 0)
        someExclude = true;
    }
    bool someInclude = false;
    for (auto& [address, source] : sources) {
      if (source.including >= 1) {
        source.place = ExplainedSource::Place::included;
        someInclude = true;
      }
      commonExclusion |= source.place == ExplainedSource::Place::excluded;
    }

    int const wantEverySource = global.starGCount() - (own && own->starG() ? 1 : 0);
    explanation_.rule = wantEverySource >= 1              ? MergeRule::everySource
                        : someExclude && !commonExclusion ? MergeRule::noCommonExclusion
                        : commonExclusion                 ? MergeRule::commonExclusion
                        : someInclude                     ? MergeRule::inclusion
                                                          : MergeRule::nobody;
    take(sources);
  }

  /// Keeps the sources, each in its place under the rule.
  void take(std::map<IpAddr, ExplainedSource>& sources) {
    using Place = ExplainedSource::Place;
    MergeRule const rule = explanation_.rule;
    Place const listed = rule == MergeRule::inclusion         ? Place::included
                         : rule == MergeRule::commonExclusion ? Place::excluded
                                                              : Place::unlisted;
    if (rule != MergeRule::nobody)
      explanation_.merged = SourceFilter{
          rule == MergeRule::inclusion ? IgmpFilterMode::include : IgmpFilterMode::exclude, {}};
    for (auto& [address, source] : sources) {
      source.address = address;
      if (source.place != listed) source.place = Place::unlisted;
      if (source.place != Place::unlisted) explanation_.merged->sources.push_back(address);
      for (ExplainedPort const& port : explanation_.ports) {
        if (port.own) continue;
        if (names(port.wants, IgmpFilterMode::include, address))
          source.includedBy.push_back(port.interface);
        if (names(port.wants, IgmpFilterMode::exclude, address))
          source.excludedBy.push_back(port.interface);
      }
      explanation_.sources.push_back(std::move(source));
    }
  }

  void addHost() {
    auto const host = this->host();
    if (!host) return;
    if (auto const* const record = host->v3group().peek(explanation_.group)) {
      explanation_.record = Agent::filterOf(*record);
      explanation_.heardBack = record->heardBack();
    }
    explanation_.sending = sendingOf(*host);
  }

  /// The host of the port, and not another with the same name: VLAN 1's "0swp1" would have that of
  /// VLAN 10's "swp1".
  Kel::Ptr<Igmp::IgmpHost const> host() const {
    Kel::Ptr<Igmp::IgmpHost const> const named =
        entities_.hosts->igmpHost(PortKey(explanation_.vlan, intf_).hostName());
    bool const isOfPort =
        named && named->vlanId() == explanation_.vlan.value() && named->intfId() == intf_;
    return isOfPort ? named : nullptr;
  }

  ExplainedSending sendingOf(Igmp::IgmpHost const& host) const {
    ExplainedSending sending;
    sending.configuredVersion = sending.spokenVersion = host.igmpVersion();
    sending.reportsUnasked = host.settings().reportsUnasked;
    sending.obstacles = obstaclesOf(host);
    sending.sourceAddress = host.settings().sourceAddress;
    if (auto const status = switch_.proxy().igmpHostStatusDir()->igmpHostStatus(host.name())) {
      sending.spokenVersion = status->compatibilityMode();
      sending.counters = status->counters();
      sending.olderQuerier = status->olderQuerier();
      if (status->lastSent()) sending.sinceSent = explanation_.time - *status->lastSent();
    }
    if (auto const sent =
            switch_.proxy().igmpHostDirSm()->lastSent(host.name(), explanation_.group))
      sending.ofGroup = {std::nullopt, wordsFor(*sent), explanation_.time - sent->time};
    if (RouterPorts const* const routers = switch_.routerPorts(explanation_.vlan))
      if (routers->routerPort().contains(intf_)) {
        auto const port = routers->routerPort().get(intf_);
        sending.routerPort = remaining(port, explanation_.time);
        sending.routerPortFor = explanation_.time - port.since;
      }
    return sending;
  }

  static std::vector<Obstacle> obstaclesOf(Igmp::IgmpHost const& host) {
    std::vector<Obstacle> obstacles;
    if (!host.enabled()) obstacles.push_back(Obstacle::disabled);
    if (host.blocked()) obstacles.push_back(Obstacle::blocked);
    if (!allowsEgress(host.direction())) obstacles.push_back(Obstacle::direction);
    if (!host.pam()) obstacles.push_back(Obstacle::noPacketAccess);
    if (host.settings().macAddress == Wirex::MacAddress{})
      obstacles.push_back(Obstacle::noMacAddress);
    return obstacles;
  }

  Switch const& switch_;
  SwitchEntities const& entities_;
  IntfId const& intf_;
  Kel::Ptr<AdapterSm::KelIgmpGroup const> merging_;
  Explanation explanation_;
};

}  // namespace

Explanation explain(Switch const& snoopingSwitch, VlanId vlan, IntfId const& intf, IpAddr group) {
  return Explainer(snoopingSwitch, vlan, intf, group).explain();
}

}  // namespace Agent
