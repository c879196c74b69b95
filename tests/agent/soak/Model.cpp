#include "tests/agent/soak/Model.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <sstream>

namespace Agent::Soak {

namespace {

Bridging::VlanId vlanId(unsigned vlan) {
  return Bridging::VlanId(static_cast<std::uint16_t>(vlan));
}

VlanConfig const* configOf(Box const& box, unsigned vlan) {
  for (VlanConfig const& config : box.configuration().vlans)
    if (config.vlanId.value() == vlan) return &config;
  return nullptr;
}

bool isProxied(Box const& box, unsigned vlan) {
  VlanConfig const* const config = configOf(box, vlan);
  VlanConfig const* const primary = configOf(box, box.primaryOf(vlan));
  return config && primary && primary->proxy && config->querierVersion;
}

/// Whether somebody asks who listens at this place.
bool isAsked(Network const& network, Box const& box, Place const& place) {
  for (auto const& [at, router] : network.routers())
    if (router->isQuerier() && network.reaches(at, place)) return true;
  auto const* const querier = box.agent().querier(vlanId(place.vlan));
  return querier && querier->isQuerier() && box.lets(place.port);
}

template <class Map, class Print>
std::string differenceOf(Map const& is, Map const& expected, Print print) {
  std::ostringstream out;
  for (auto const& [key, value] : expected) {
    auto const found = is.find(key);
    if (found != is.end() && found->second == value) continue;
    out << "  " << key << ": expected ";
    print(out, value);
    if (found == is.end()) {
      out << ", is not there\n";
    } else {
      out << ", is ";
      print(out, found->second);
      out << '\n';
    }
  }
  for (auto const& [key, value] : is) {
    if (expected.contains(key)) continue;
    out << "  " << key << ": not expected, is ";
    print(out, value);
    out << '\n';
  }
  return out.str();
}

}  // namespace

Memberships expectedMemberships(Network const& network, Box const& box) {
  Memberships expected;
  for (auto const& [place, listener] : network.listeners()) {
    if (&network.boxOf(place.port) != &box || !box.isMember(place)) continue;
    if (!box.takes(place.port) || !isAsked(network, box, place)) continue;
    for (auto const& [group, filter] : listener->wanted())
      expected[{box.primaryOf(place.vlan), group, place.port, listener->address()}] =
          listener->reported(group);
  }
  return expected;
}

Records expectedRecords(Box const& box, Memberships const& learned) {
  std::set<Place> hosts;
  for (VlanConfig const& vlan : box.configuration().vlans) {
    if (!isProxied(box, vlan.vlanId.value())) continue;
    for (VlanMember const& member : vlan.members)
      if (Place const place{nameOf(member.intfId), vlan.vlanId.value()};
          box.state(place.port).present)
        hosts.insert(place);
  }
  return expectedRecords(box.configuration(), hosts, learned);
}

bool isRouterPort(Box const& box, Place const& place) {
  auto const* const ports = box.agent().routerPorts(vlanId(place.vlan));
  return ports && ports->routerPort().contains(Wirex::IntfId(place.port.c_str()));
}

/// Whether the switch hears or sends queries in a VLAN.
bool isAsked(Network const& network, Box const& box, unsigned vlan) {
  for (auto const& [at, router] : network.routers())
    if (at.vlan == vlan && router->isQuerier() && box.isMember(at) && box.takes(at.port))
      return true;
  auto const* const querier = box.agent().querier(vlanId(vlan));
  return querier && querier->isQuerier();
}

/// Whether the host at a place hears queries, or follows those of the VLAN, and can answer.
bool answers(Network const& network, Box const& box, Place const& place) {
  bool const follows = isRouterPort(box, place) && isAsked(network, box, place.vlan);
  return box.lets(place.port) && (box.takes(place.port) || follows);
}

int expectedVersion(Network const& network, Box const& box, Place const& place) {
  int version = static_cast<int>(*configOf(box, place.vlan)->querierVersion);
  bool const answersAll = isRouterPort(box, place);
  for (auto const& [at, router] : network.routers()) {
    bool const isAnswered = at == place || (answersAll && at.vlan == place.vlan);
    if (isAnswered && router->isQuerier() && box.isMember(at) && box.takes(at.port))
      version = std::min(version, router->version());
  }
  return version;
}

/// What all in exclude mode exclude stays out, unless somebody includes it.
Filter mergedByRouter(std::vector<Filter> const& reporters) {
  Filter group;
  std::map<Address, std::size_t> excluding;
  Sources included;
  std::size_t inExcludeMode = 0;
  for (Filter const& filter : reporters) {
    inExcludeMode += filter.exclude;
    for (Address const source : filter.sources)
      filter.exclude ? static_cast<void>(++excluding[source])
                     : static_cast<void>(included.insert(source));
  }
  group.exclude = inExcludeMode != 0;
  if (!group.exclude) {
    group.sources = included;
    return group;
  }
  for (auto const& [source, count] : excluding)
    if (count == inExcludeMode && !included.contains(source)) group.sources.insert(source);
  return group;
}

/// Whether nobody else has anything of a group learned: then the host has a record of what its own
/// port excludes, and keeps it to itself.
bool isOnlyMember(Box const& box, Place const& place, Address group) {
  Memberships const learned = membershipsOf(box.agent());
  return std::none_of(learned.begin(), learned.end(), [&](auto const& membership) {
    Membership const& key = membership.first;
    return key.vlan == box.primaryOf(place.vlan) && key.group == group && key.port != place.port;
  });
}

std::map<Address, Filter> expectedBelief(Network const& network, Place const& place,
                                         Router const& router, Records const& records) {
  std::map<Address, Filter> expected;
  Box const& box = network.boxOf(place.port);
  if (!box.isUp(place.port)) return expected;
  std::map<Address, std::vector<Filter>> reported;
  for (auto const& [at, listener] : network.listeners())
    if (at == place)
      for (auto const& [group, filter] : listener->wanted())
        reported[group].push_back(listener->reported(group));
  auto const host = records.find(place);
  int const version = expectedVersion(network, box, place);
  bool const understands = version <= router.version();
  if (host != records.end() && answers(network, box, place) && understands) {
    bool const older = version < 3;
    for (auto const& [group, filter] : host->second)
      if (!isOnlyMember(box, place, group))
        reported[group].push_back(older ? Filter::everySource() : filter);
  }
  for (auto const& [group, filters] : reported) expected[group] = mergedByRouter(filters);
  return expected;
}

std::string difference(Memberships const& is, Memberships const& expected) {
  return differenceOf(is, expected, [](std::ostream& out, Filter const& filter) { out << filter; });
}

std::string difference(std::map<Address, Filter> const& is,
                       std::map<Address, Filter> const& expected) {
  return differenceOf(is, expected, [](std::ostream& out, Filter const& filter) { out << filter; });
}

std::string difference(Records const& is, Records const& expected) {
  return differenceOf(is, expected, [](std::ostream& out, std::map<Address, Filter> const& all) {
    out << '[';
    for (auto const& [group, filter] : all) out << ' ' << group << ' ' << filter;
    out << " ]";
  });
}

}  // namespace Agent::Soak
