#include "tests/agent/soak/Soak.h"

#include <algorithm>
#include <iomanip>
#include <numeric>
#include <sstream>

#include "framework/types/PortKey.h"
#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent::Soak {

using Bridging::AllowedTrafficDirection;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

namespace {

constexpr auto* description = R"(
[defaults]
report-on = "mrouters"

[[interface]]
name = "p[1-8]"

[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["p1", "p2"]
tagged-interfaces = ["p7", "p8"]

[[vlan]]
id = 11
private = { type = "isolated", primary = 10 }
querier = { igmp-version = 3 }
interfaces = ["p3"]
tagged-interfaces = ["p6"]

[[vlan]]
id = 12
private = { type = "community", primary = 10 }
querier = { igmp-version = 3 }
interfaces = ["p4"]
tagged-interfaces = ["p5"]

[[vlan]]
id = 20
querier = { igmp-version = 3 }
interfaces = ["p7", "p8"]
tagged-interfaces = ["p1", "p2", "p5"]
static-bridge-mrouter-interface = ["p7"]

[[vlan]]
id = 30
querier = { igmp-version = 3 }
send-query = true
querier-source = "192.0.2.130"
report-on = "all"
tagged-interfaces = ["p1", "p4", "p6", "p8"]

[[vlan]]
id = 40
querier = { igmp-version = 2 }
fast-leave = true
interfaces = ["p5", "p6"]
tagged-interfaces = ["p2", "p8"]
)";

constexpr Address someAddress(unsigned net, unsigned host) {
  return Address(192, 0, static_cast<std::uint8_t>(net), static_cast<std::uint8_t>(host));
}

constexpr unsigned listenersPerPlace = 4;
constexpr unsigned groups = 8;

Address groupAddress(unsigned vlan, unsigned group) {
  return {239, 1, static_cast<std::uint8_t>(vlan), static_cast<std::uint8_t>(group + 1)};
}

constexpr unsigned sources = 6;
Address sourceAddress(unsigned source) {
  return {198, 51, 100, static_cast<std::uint8_t>(source + 1)};
}

// RFC 9776 section 8.13: longer than it takes a host to find out that an older querier is gone,
// then a router that an older host is gone, and then excluded sources to run out.
constexpr auto settlingTime = seconds(1100);

std::uint64_t heardBy(Bridging::IgmpSnooping::SnoopedPort const& port) {
  Bridging::IgmpSnooping::ReceiveCounters const counters = port.counters();
  return std::accumulate(counters.received.begin(), counters.received.end(), std::uint64_t{0}) +
         std::accumulate(counters.ignored.begin(), counters.ignored.end(), std::uint64_t{0});
}

}  // namespace

Soak::Soak(std::uint64_t seed)
    : seed_(seed),
      network_(seed),
      chance_(network_.chance()),
      box_(network_.boxIs(configurationIn(description))) {
  makeListeners();
  makeRouters();
}

void Soak::makeListeners() {
  constexpr int versions[] = {3, 3, 2, 3, 1, 3, 3};
  unsigned number = 0;
  for (VlanConfig const& vlan : box_.configuration().vlans)
    for (VlanMember const& member : vlan.members)
      for (unsigned listener = 0; listener < listenersPerPlace; ++listener, ++number)
        network_.listenerIs({nameOf(member.intfId), vlan.vlanId.value()},
                            someAddress(0, number + 1), versions[number % std::size(versions)]);
}

void Soak::makeRouters() {
  Place const places[] = {{"p7", 10}, {"p8", 10}, {"p7", 20}, {"p8", 20}, {"p8", 30}, {"p8", 40}};
  unsigned number = 0;
  for (Place const& place : places) network_.routerIs(place, someAddress(2, ++number));
}

std::vector<Soak::Kind> const& Soak::kinds() {
  static std::vector<Kind> const kinds{
      {"listener changes", 100, &Soak::listenerChanges},
      {"listener vanishes", 6, &Soak::listenerVanishes},
      {"router asks once", 6, &Soak::routerAsksOnce},
      {"query storm", 1, &Soak::queryStorm},
      {"router starts or stops", 3, &Soak::routerStartsOrStops},
      {"router moves", 2, &Soak::routerMoves},
      {"router changes its version", 3, &Soak::routerChangesVersion},
      {"port flaps", 5, &Soak::portFlaps},
      {"interface is configured", 3, &Soak::interfaceIsConfigured},
      {"VLAN is configured", 3, &Soak::vlanIsConfigured},
      {"member comes or goes", 2, &Soak::memberComesOrGoes},
  };
  return kinds;
}

bool Soak::liveThroughDay() {
  Time const night = network_.now() + hours(23);
  do {
    if (!unrest(network_.now() + chance_.delay(hours(1))) || !rest()) return false;
  } while (network_.now() < night);
  return emptyAtNight();
}

bool Soak::unrest(Time end) {
  network_.losesFramesIs(true);
  for (Time next = network_.now(); next < end; next += chance_.delay(seconds(30))) {
    network_.advanceTo(next);
    onlooker_(box_.agent());
    if (chance_.oneIn(4) && !holdsAlways()) return false;
    unsigned total = 0;
    for (Kind const& kind : kinds()) total += kind.weight;
    unsigned drawn = chance_.below(total);
    auto kind = kinds().begin();
    for (; drawn >= kind->weight; ++kind) drawn -= kind->weight;
    if (!(this->*kind->change)()) continue;
    ++figures_.events;
    ++figures_.eventsByKind[kind->name];
  }
  network_.losesFramesIs(false);
  return true;
}

/// What must be so in the midst of events: nothing is known from ports that take nothing in, and
/// hosts report what is known.
bool Soak::holdsAlways() {
  Memberships const learned = membershipsOf(box_.agent());
  std::ostringstream heardNowhere;
  for (auto const& [key, filter] : learned)
    if (!box_.takes(key.port)) heardNowhere << "  " << key << ' ' << filter << '\n';
  bool well = holds("memberships of ports that take nothing in", heardNowhere.str());
  return holds("records of the hosts",
               difference(recordsOf(box_.agent()), expectedRecords(box_, learned))) &&
         well;
}

bool Soak::rest() {
  network_.advance(settlingTime);
  ++figures_.rests;
  Memberships const learned = membershipsOf(box_.agent());
  Records const records = recordsOf(box_.agent());
  bool well = holds("frames of the switch", network_.complaints());
  well &= holds("learned memberships", difference(learned, expectedMemberships(network_, box_)));
  well &= holds("records of the hosts", difference(records, expectedRecords(box_, learned)));
  figures_.memberships += learned.size();
  for (auto const& [place, groupRecords] : records) figures_.records += groupRecords.size();
  for (auto const& [place, router] : network_.routers()) {
    if (!router->isQuerier()) continue;
    auto const belief = router->belief();
    figures_.beliefs += belief.size();
    std::ostringstream what;
    what << "belief of the router at " << place;
    well &=
        holds(what.str(), difference(belief, expectedBelief(network_, place, *router, records)));
  }
  well &= versionsAgree();
  well &= countersAgree();
  if (well) events_.clear();
  return well;
}

/// Everybody leaves, and nothing must be left.
bool Soak::emptyAtNight() {
  for (auto const& [place, listener] : network_.listeners()) {
    auto const wanted = listener->wanted();
    for (auto const& [group, filter] : wanted) listener->wantedIs(group, {});
  }
  for (auto const& [place, router] : network_.routers()) router->runsIs(false);
  Configuration const initial = configurationIn(description);
  Configuration silent = initial;
  for (VlanConfig& vlan : silent.vlans) vlan.settings.sendQuery = false;
  box_.configurationIs(silent);
  ++memberChanges_;
  for (InterfaceConfig const& interface : silent.interfaces) {
    InterfaceState state = box_.state(nameOf(interface.intfId));
    state.present = state.carrier = state.forwarding = true;
    box_.stateIs(nameOf(interface.intfId), state);
  }
  tell("everybody leaves");
  if (!rest()) return false;
  for (auto const& [place, listener] : network_.listeners()) listener->vanish();
  bool well = holds("memberships at night", difference(membershipsOf(box_.agent()), {}));
  auto const& wheel = box_.loop().timerWheel();
  for (int turns = 0; turns < 16 && wheel->nextExpiry(); ++turns) network_.advance(hours(1));
  well &= holds("timers at night", wheel->nextExpiry() ? "  some are left\n" : "");
  box_.configurationIs(initial);
  ++memberChanges_;
  return well;
}

bool Soak::holds(std::string const& what, std::string const& difference) {
  if (!difference.empty()) failure_ += what + ":\n" + difference;
  return difference.empty();
}

/// Whether each host speaks the version that it must.
bool Soak::versionsAgree() {
  std::ostringstream differences;
  auto const& statuses = box_.agent().proxy().igmpHostDirSm()->igmpHostStatusDir();
  for (VlanConfig const& vlan : box_.configuration().vlans) {
    for (VlanMember const& member : vlan.members) {
      Place const place{nameOf(member.intfId), vlan.vlanId.value()};
      auto const status = statuses->igmpHostStatus(
          Bridging::IgmpSnooping::Proxy::PortKey(vlan.vlanId, member.intfId).hostName());
      if (!status) continue;
      int const expected = expectedVersion(network_, box_, place);
      int const is = static_cast<int>(status->compatibilityMode());
      if (is != expected)
        differences << "  " << place << ": expected " << expected << ", is " << is << '\n';
    }
  }
  return holds("versions of the hosts", differences.str());
}

/// Whether each host has counted what was seen on the wire, and each port what it was given.
bool Soak::countersAgree() {
  std::ostringstream differences;
  std::map<Place, HostCount> hosts;
  auto const& statuses = box_.agent().proxy().igmpHostDirSm()->igmpHostStatusDir();
  figures_.framesSent = figures_.framesHeard = 0;
  for (VlanConfig const& vlan : box_.configuration().vlans) {
    for (VlanMember const& member : vlan.members) {
      Place const place{nameOf(member.intfId), vlan.vlanId.value()};
      figures_.framesSent += network_.sent(place).all();
      auto const status = statuses->igmpHostStatus(
          Bridging::IgmpSnooping::Proxy::PortKey(vlan.vlanId, member.intfId).hostName());
      if (!status) continue;
      HostCount const now{status, status->counters(), network_.sent(place)};
      hosts[place] = now;
      auto const found = hostCounts_.find(place);
      if (found == hostCounts_.end() || found->second.status != status) continue;
      HostCount const& before = found->second;
      Tally counted = now.sent;
      counted.reports = {
          0, before.sent.reports[1] + now.counters.reportsSentV1 - before.counters.reportsSentV1,
          before.sent.reports[2] + now.counters.reportsSentV2 - before.counters.reportsSentV2,
          before.sent.reports[3] + now.counters.reportsSentV3 - before.counters.reportsSentV3};
      counted.records =
          before.sent.records + now.counters.groupRecordsSent - before.counters.groupRecordsSent;
      counted.leaves = before.sent.leaves + now.counters.leavesSent - before.counters.leavesSent;
      if (counted != now.sent)
        differences << "  " << place << ": sent " << now.sent << ", counted " << counted << '\n';
    }
  }
  hostCounts_ = std::move(hosts);

  std::map<std::string, PortCount> ports;
  for (auto const& [intf, port] : box_.agent().ports()) {
    std::string const name = nameOf(intf);
    PortCount const now{heardBy(port), network_.given(name), memberChanges_};
    figures_.framesHeard += now.given;
    ports[name] = now;
    auto const before = portCounts_.find(name);
    // What was counted in a VLAN goes when the port leaves it.
    if (before != portCounts_.end() && now.memberChanges == before->second.memberChanges &&
        now.heard - before->second.heard != now.given - before->second.given)
      differences << "  " << name << ": was given " << now.given - before->second.given
                  << ", counted " << now.heard - before->second.heard << '\n';
  }
  portCounts_ = std::move(ports);
  figures_.framesLost = network_.lost();
  return holds("counters", differences.str());
}

std::string Soak::failure() const {
  std::ostringstream out;
  out << std::fixed << std::setprecision(3) << "Seed " << seed_ << ", after "
      << std::chrono::duration<double>(now()).count() << " s:\n"
      << failure_ << "Since all was well, " << events_.size() << " events:\n";
  for (std::string const& event : events_) out << "  " << event << '\n';
  return out.str();
}

void Soak::tell(std::string const& what) {
  std::ostringstream line;
  line << std::fixed << std::setprecision(3) << std::chrono::duration<double>(now()).count()
       << " s: " << what;
  events_.push_back(line.str());
}

// ---- What happens

Filter Soak::someFilter(bool excludes) {
  Filter filter;
  filter.exclude = excludes;
  for (unsigned source = 0; source < sources; ++source)
    if (chance_.oneIn(2)) filter.sources.insert(sourceAddress(source));
  return filter;
}

bool Soak::listenerChanges() {
  unsigned const number = chance_.below(static_cast<unsigned>(network_.listeners().size()));
  auto const& [place, listener] = network_.listeners()[number];
  unsigned const primary = box_.primaryOf(place.vlan);
  unsigned const group = chance_.below(groups);
  Filter filter;
  if (!chance_.oneIn(3)) {
    filter = listener->version() < 3 || chance_.oneIn(4) ? Filter::everySource()
                                                         : someFilter(chance_.oneIn(2));
  }
  Address const address = groupAddress(primary, group);
  Filter const before = listener->wanted(address);
  if (filter == before) return false;
  std::ostringstream what;
  what << "v" << listener->version() << " listener " << listener->address() << " at " << place
       << " wants " << address << ' ' << filter;
  tell(what.str());
  listener->wantedIs(address, filter);
  return true;
}

bool Soak::listenerVanishes() {
  auto const& [place, listener] = chance_.of(network_.listeners());
  if (listener->wanted().empty()) return false;
  std::ostringstream what;
  what << "listener " << listener->address() << " at " << place << " vanishes";
  tell(what.str());
  listener->vanish();
  return true;
}

Router& Soak::someRouter() {
  return *chance_.of(network_.routers()).second;
}

bool Soak::routerAsksOnce() {
  auto const& [place, router] = chance_.of(network_.routers());
  if (!router->isQuerier()) return false;
  unsigned const group = chance_.below(groups);
  Sources asked;
  if (router->version() == 3 && chance_.oneIn(2))
    for (unsigned source = 0; source < sources; ++source)
      if (chance_.oneIn(2)) asked.insert(sourceAddress(source));
  std::ostringstream what;
  what << "router at " << place << " asks for group " << group << " and " << asked.size()
       << " sources";
  tell(what.str());
  if (router->version() == 1)
    router->queryGenerally();
  else
    router->query(groupAddress(box_.primaryOf(place.vlan), group), asked);
  return true;
}

bool Soak::queryStorm() {
  Router& router = someRouter();
  if (!router.isQuerier()) return false;
  tell("query storm");
  for (int queries = 0; queries < 100; ++queries) router.queryGenerally();
  return true;
}

bool Soak::routerStartsOrStops() {
  auto const& [place, router] = chance_.of(network_.routers());
  std::ostringstream what;
  what << "router " << router->address() << " at " << place
       << (router->runs() ? " stops" : " starts");
  if (router->runs() && !chance_.oneIn(6)) return false;
  tell(what.str());
  router->runsIs(!router->runs());
  return true;
}

bool Soak::routerMoves() {
  auto const& [place, router] = chance_.of(network_.routers());
  std::vector<Place> places;
  for (VlanConfig const& vlan : box_.configuration().vlans)
    if (vlan.vlanId.value() == place.vlan)
      for (VlanMember const& member : vlan.members)
        places.push_back({nameOf(member.intfId), place.vlan});
  Place const to = chance_.of(places);
  if (to == place) return false;
  std::ostringstream what;
  what << "router " << router->address() << " moves from " << place.port << " to " << to.port
       << " in VLAN " << place.vlan;
  tell(what.str());
  network_.routerMoves(*router, to);
  return true;
}

bool Soak::routerChangesVersion() {
  auto const& [place, router] = chance_.of(network_.routers());
  int const version = chance_.oneIn(2) ? 3 : 1 + static_cast<int>(chance_.below(2));
  if (version == router->version()) return false;
  std::ostringstream what;
  what << "router " << router->address() << " in VLAN " << place.vlan << " speaks v" << version;
  tell(what.str());
  router->versionIs(version);
  return true;
}

bool Soak::portFlaps() {
  std::string const port = "p" + std::to_string(1 + chance_.below(8));
  InterfaceState state = box_.state(port);
  std::ostringstream what;
  what << port;
  if (!state.operational()) {
    state.present = state.carrier = state.forwarding = true;
    what << " is up";
  } else if (chance_.oneIn(3)) {
    state.carrier = false;
    what << " has no carrier";
  } else if (chance_.oneIn(2)) {
    state.forwarding = false;
    what << " does not forward";
  } else {
    state.present = false;
    ++state.kernelIndex;  // when it comes back, it is another one
    what << " is not there";
  }
  tell(what.str());
  box_.stateIs(port, state);
  // Most are back soon.
  if (!state.operational() && !chance_.oneIn(4))
    network_.agenda().in(chance_.delay(minutes(2)), [this, port] {
      InterfaceState back = box_.state(port);
      back.present = back.carrier = back.forwarding = true;
      box_.stateIs(port, back);
    });
  return true;
}

VlanConfig& Soak::vlan(Configuration& configuration, unsigned number) const {
  return *std::find_if(configuration.vlans.begin(), configuration.vlans.end(),
                       [&](VlanConfig const& vlan) { return vlan.vlanId.value() == number; });
}

bool Soak::interfaceIsConfigured() {
  Configuration configuration = box_.configuration();
  InterfaceConfig& interface = chance_.of(configuration.interfaces);
  InterfaceConfig const before = interface;
  std::ostringstream what;
  what << nameOf(interface.intfId);
  if (chance_.oneIn(2)) {
    interface.blocked = !interface.blocked && chance_.oneIn(2);
    what << (interface.blocked ? " is blocked" : " is not blocked");
  } else {
    interface.direction = chance_.oneIn(2)
                              ? AllowedTrafficDirection::both
                              : static_cast<AllowedTrafficDirection>(1 + chance_.below(3));
    what << " has direction " << interface.direction;
  }
  if (interface == before) return false;
  tell(what.str());
  box_.configurationIs(configuration);
  return true;
}

bool Soak::vlanIsConfigured() {
  Configuration configuration = box_.configuration();
  std::ostringstream what;
  switch (chance_.below(7)) {
    case 0: {
      bool& proxy = vlan(configuration, 20).proxy;
      proxy = !proxy || !chance_.oneIn(2);
      what << "VLAN 20 is " << (proxy ? "" : "not ") << "proxied";
      break;
    }
    case 1: {
      bool const proxy = !vlan(configuration, 10).proxy || !chance_.oneIn(2);
      for (unsigned const number : {10U, 11U, 12U}) vlan(configuration, number).proxy = proxy;
      what << "VLAN 10 is " << (proxy ? "" : "not ") << "proxied";
      break;
    }
    case 2: {
      bool& fastLeave = vlan(configuration, 40).settings.fastLeave;
      fastLeave = !fastLeave;
      what << "VLAN 40 has fast leave " << fastLeave;
      break;
    }
    case 3: {
      ReportOn& reportOn = vlan(configuration, chance_.oneIn(2) ? 30 : 20).settings.reportOn;
      reportOn = reportOn == ReportOn::all ? ReportOn::mrouters : ReportOn::all;
      what << "VLAN 20 or 30 reports on " << reportOn;
      break;
    }
    case 4: {
      bool& sendQuery = vlan(configuration, 30).settings.sendQuery;
      sendQuery = !sendQuery;
      what << "VLAN 30 sends queries " << sendQuery;
      break;
    }
    case 5: {
      auto& version = vlan(configuration, 20).querierVersion;
      version = version == Igmp::IgmpVersion::v3 ? Igmp::IgmpVersion::v2 : Igmp::IgmpVersion::v3;
      what << "hosts of VLAN 20 speak " << *version;
      break;
    }
    case 6: {
      std::optional<Address>& source = vlan(configuration, 10).settings.senderSourceAddress;
      source = source == Address() ? someAddress(2, 200) : Address();
      what << "hosts of VLAN 10 send from " << *source;
      break;
    }
  }
  if (configuration == box_.configuration()) return false;
  tell(what.str());
  box_.configurationIs(configuration);
  return true;
}

bool Soak::memberComesOrGoes() {
  Configuration configuration = box_.configuration();
  static constexpr std::pair<unsigned, char const*> mayMove[] = {
      {20, "p5"}, {30, "p4"}, {12, "p5"}, {11, "p6"}};
  auto const [number, port] = mayMove[chance_.below(4)];
  auto& members = vlan(configuration, number).members;
  Wirex::IntfId const intf(port);
  auto const found = std::find_if(members.begin(), members.end(),
                                  [&](VlanMember const& member) { return member.intfId == intf; });
  std::ostringstream what;
  what << port << (found == members.end() ? " comes into" : " goes from") << " VLAN " << number;
  if (found == members.end())
    members.push_back({intf, true, false});
  else
    members.erase(found);
  ++memberChanges_;
  tell(what.str());
  box_.configurationIs(configuration);
  return true;
}

}  // namespace Agent::Soak
