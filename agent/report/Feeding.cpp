#include "agent/report/Feeding.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Gmp::Igmp::IgmpFilterMode;
using Wirex::IpAddr;

using Sources = std::vector<IpAddr>;

/// So many ports are shown one by one.
constexpr std::size_t fewPorts = 8;

struct Naturally {
  bool operator()(std::string const& a, std::string const& b) const {
    return a != b && precedesNaturally(a, b);
  }
};

/// What is known of a group on a port.
struct GroupPort {
  std::vector<SourceFilter> wishes;
  std::vector<IpAddr> reporters;
  std::optional<SourceFilter> record;
};

using GroupPorts = std::map<std::string, GroupPort, Naturally>;

std::map<IpAddr, GroupPorts> groupsIn(ReportData const& data, ReportedVlan const& vlan) {
  std::map<IpAddr, GroupPorts> groups;
  for (ReportedMembership const& each : data.memberships) {
    if (each.vlan != vlan.learnedIn()) continue;
    GroupPort& port = groups[each.group][each.interface];
    port.wishes.push_back(each.filter);
    port.reporters.push_back(each.reporter);
  }
  for (HostRecords const& host : data.hosts)
    if (host.vlan == vlan.id)
      for (GroupRecord const& record : host.groups)
        groups[record.address][host.interface].record = record.filter;
  return groups;
}

std::set<std::string> routerPortsIn(ReportData const& data, unsigned vlan) {
  std::set<std::string> names;
  for (ReportedRouterPort const& port : data.routerPorts)
    if (port.vlan == vlan) names.insert(port.interface);
  return names;
}

std::vector<ListeningPorts> listeningIn(GroupPorts const& ports) {
  std::vector<ListeningPorts> listening;
  for (auto const& [name, port] : ports) {
    if (port.wishes.empty()) continue;
    SourceFilter wants = together(port.wishes);
    auto const equal = std::find_if(listening.begin(), listening.end(), [&](auto const& each) {
      return ports.size() > fewPorts && each.wants == wants;
    });
    if (equal != listening.end())
      equal->names.push_back(name);
    else
      listening.push_back({{name}, std::move(wants), port.reporters});
  }
  return listening;
}

std::optional<std::size_t> placeOf(std::string const& name,
                                   std::vector<ListeningPorts> const& listening) {
  for (std::size_t place = 0; place < listening.size(); ++place) {
    auto const& names = listening[place].names;
    if (std::binary_search(names.begin(), names.end(), name, Naturally())) return place;
  }
  return std::nullopt;
}

/// One port's record, fed by all who listen elsewhere.
ReportingPorts reportingOf(std::string const& name, GroupPort const& port,
                           std::vector<ListeningPorts> const& listening) {
  ReportingPorts reporting{{name}, port.record, false, {}, placeOf(name, listening)};
  for (std::size_t place = 0; place < listening.size(); ++place)
    if (place != reporting.own || listening[place].names.size() > 1)
      reporting.fedBy.push_back(place);
  return reporting;
}

bool areAlike(ReportingPorts const& a, ReportingPorts const& b) {
  return a.record == b.record && a.isRouterPort == b.isRouterPort && a.fedBy == b.fedBy &&
         a.own == b.own;
}

Flow flowOf(ReportedVlan const& vlan, std::set<std::string> const& routerPorts, IpAddr group,
            GroupPorts const& ports) {
  Flow flow{{group}, listeningIn(ports), {}};
  if (!vlan.isProxied()) return flow;
  for (auto const& [name, port] : ports) {
    if (!std::binary_search(vlan.ports.begin(), vlan.ports.end(), name, Naturally())) continue;
    ReportingPorts reporting = reportingOf(name, port, flow.listening);
    reporting.isRouterPort = routerPorts.contains(name);
    auto const equal = std::find_if(
        flow.reporting.begin(), flow.reporting.end(),
        [&](auto const& each) { return ports.size() > fewPorts && areAlike(each, reporting); });
    if (equal != flow.reporting.end())
      equal->names.push_back(name);
    else
      flow.reporting.push_back(std::move(reporting));
  }
  return flow;
}

/// All of a flow but its group, as a text.
std::string shapeOf(Flow const& flow) {
  std::string shape;
  auto const add = [&](auto const& part) { shape.append(message(part)).push_back('\n'); };
  auto const addFilter = [&](SourceFilter const& filter) {
    add(filter.mode);
    for (IpAddr const source : filter.sources) add(source);
  };
  for (ListeningPorts const& each : flow.listening) {
    for (std::string const& name : each.names) add(name);
    addFilter(each.wants);
    for (IpAddr const reporter : each.reporters) add(reporter);
  }
  for (ReportingPorts const& each : flow.reporting) {
    for (std::string const& name : each.names) add(name);
    if (each.record) addFilter(*each.record);
  }
  return shape;
}

}  // namespace

SourceFilter together(std::vector<SourceFilter> const& wishes) {
  Sources included;
  std::optional<Sources> excluded;
  for (SourceFilter const& wish : wishes) {
    Sources result;
    if (wish.mode == IgmpFilterMode::include) {
      std::set_union(included.begin(), included.end(), wish.sources.begin(), wish.sources.end(),
                     std::back_inserter(result));
      included = std::move(result);
    } else if (!excluded) {
      excluded = wish.sources;
    } else {
      std::set_intersection(excluded->begin(), excluded->end(), wish.sources.begin(),
                            wish.sources.end(), std::back_inserter(result));
      excluded = std::move(result);
    }
  }
  if (!excluded) return {IgmpFilterMode::include, std::move(included)};
  Sources rest;
  std::set_difference(excluded->begin(), excluded->end(), included.begin(), included.end(),
                      std::back_inserter(rest));
  return {IgmpFilterMode::exclude, std::move(rest)};
}

std::vector<Flow> flowsIn(ReportData const& data, ReportedVlan const& vlan) {
  std::vector<Flow> flows;
  std::map<std::string, std::size_t> places;
  std::set<std::string> const routerPorts = routerPortsIn(data, vlan.id);
  for (auto const& [group, ports] : groupsIn(data, vlan)) {
    Flow flow = flowOf(vlan, routerPorts, group, ports);
    auto const [known, isNew] = places.emplace(shapeOf(flow), flows.size());
    if (isNew)
      flows.push_back(std::move(flow));
    else
      flows[known->second].groups.push_back(group);
  }
  return flows;
}

}  // namespace Agent
