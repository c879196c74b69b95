#include "tests/agent/soak/RecordModel.h"

#include <algorithm>
#include <ostream>
#include <vector>

#include "agent/watch/HostRecords.h"

namespace Agent::Soak {

namespace {

/// What the reporters on one port want together: those in exclude mode decide, and what all of
/// them exclude stays out.
Filter merged(std::vector<Filter> const& reporters) {
  Filter port;
  for (Filter const& filter : reporters) port.exclude = port.exclude || filter.exclude;
  if (!port.exclude) {
    for (Filter const& filter : reporters)
      port.sources.insert(filter.sources.begin(), filter.sources.end());
    return port;
  }
  for (Address const source : reporters.front().sources)
    if (std::all_of(reporters.begin(), reporters.end(), [&](Filter const& filter) {
          return filter.exclude && filter.sources.contains(source);
        }))
      port.sources.insert(source);
  return port;
}

/// What the host of a port reports of a group whose member ports want this.
///
/// Where other ports exclude sources of which none is common, everything is asked for, which is
/// more than a merge to the letter of RFC 4605 section 4.1 would ask for. And a port that excludes
/// sources and is the only member hears them back.
Filter recordFor(std::string const& port, std::map<std::string, Filter> const& ports) {
  Filter record;
  std::map<Address, std::size_t> excluding;  // by how many of the others
  std::size_t others = 0;
  for (auto const& [name, filter] : ports) {
    if (name == port) continue;
    ++others;
    if (filter == Filter::everySource()) return Filter::everySource();
    if (filter.exclude)
      for (Address const source : filter.sources) ++excluding[source];
  }
  bool someoneDoesNotExclude = false;
  for (auto const& [source, count] : excluding) {
    if (count == others)
      record.sources.insert(source);
    else
      someoneDoesNotExclude = true;
  }
  if (others == 0 && ports.contains(port) && ports.at(port).exclude)
    record.sources = ports.at(port).sources;

  Sources included;
  for (auto const& [name, filter] : ports)
    if (name != port && !filter.exclude)
      included.insert(filter.sources.begin(), filter.sources.end());
  for (Address const source : included) record.sources.erase(source);

  if (someoneDoesNotExclude && record.sources.empty()) return Filter::everySource();
  if (!record.sources.empty())
    record.exclude = true;
  else
    record.sources = included;
  return record;
}

}  // namespace

std::string nameOf(Wirex::IntfId const& intf) {
  std::ostringstream name;
  name << intf;
  return name.str();
}

std::ostream& operator<<(std::ostream& out, Place const& place) {
  return out << place.port << " in VLAN " << place.vlan;
}

std::ostream& operator<<(std::ostream& out, Membership const& membership) {
  return out << "VLAN " << membership.vlan << ' ' << membership.group << ' ' << membership.port
             << ' ' << membership.reporter;
}

Memberships membershipsOf(Switch const& agent) {
  Memberships memberships;
  for (auto const& [vlan, status] : agent.entities().snoopingStatus->contextStatus())
    for (auto const& [address, group] : status->group())
      for (auto const& [intf, port] : group->intf())
        for (auto const& [reporter, membership] : port->membership()) {
          Filter filter;
          filter.exclude = membership->filterMode() == Gmp::Igmp::IgmpFilterMode::exclude;
          for (Address const source : membership->source()) filter.sources.insert(source);
          memberships[{vlan.value(), address, nameOf(intf), reporter}] = filter;
        }
  return memberships;
}

Records recordsOf(Switch const& agent) {
  Records is;
  for (HostRecords const& host :
       hostsIn(*agent.entities().hosts, *agent.proxy().igmpHostStatusDir())) {
    auto& records = is[{host.interface, host.vlan}];
    for (GroupRecord const& record : host.groups)
      records[record.address] = {
          record.filter.mode == Gmp::Igmp::IgmpFilterMode::exclude,
          Sources(record.filter.sources.begin(), record.filter.sources.end())};
  }
  return is;
}

Records expectedRecords(Configuration const& configuration, std::set<Place> const& hosts,
                        Memberships const& learned) {
  std::map<unsigned, std::map<Address, std::map<std::string, std::vector<Filter>>>> reporters;
  for (auto const& [key, filter] : learned)
    reporters[key.vlan][key.group][key.port].push_back(filter);
  std::map<unsigned, unsigned> primaryOf;
  for (VlanConfig const& vlan : configuration.vlans)
    primaryOf[vlan.vlanId.value()] = vlan.learningVlan().value();

  Records expected;
  for (Place const& place : hosts) {
    auto& records = expected[place];
    for (auto const& [group, ports] : reporters[primaryOf[place.vlan]]) {
      std::map<std::string, Filter> filters;
      for (auto const& [port, filtersOfReporters] : ports)
        filters[port] = merged(filtersOfReporters);
      Filter const record = recordFor(place.port, filters);
      if (!record.empty()) records[group] = record;
    }
  }
  return expected;
}

}  // namespace Agent::Soak
