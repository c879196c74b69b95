#include "tests/agent/soak/Lan.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <sstream>

#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent::Soak {

using std::chrono::minutes;
using std::chrono::seconds;

namespace {

constexpr unsigned vlan = 10;
constexpr int listenerVersions[] = {3, 3, 2, 1};  // the first two at x-1, the others at x-2
constexpr Address groups[] = {{239, 1, 1, 1}, {239, 1, 1, 2}, {232, 1, 1, 1}};
constexpr unsigned sources = 3;

constexpr auto settlingTime = seconds(2000);

bool isSourceSpecific(Address group) {
  return Address(232, 0, 0, 0) <= group && group < Address(233, 0, 0, 0);
}

Address sourceAddress(unsigned source) {
  return {198, 51, 100, static_cast<std::uint8_t>(source + 1)};
}

std::string textOf(Layout::Node const& node) {
  std::string const ports = std::string("\"") + node.name + "-[1-4]\"";
  return "[defaults]\n" + node.defaults + "\n[[interface]]\nname = " + ports +
         "\n[[vlan]]\nid = 10\nquerier = { igmp-version = 3 }\ninterfaces = [" + ports + "]\n" +
         node.vlan + "\n";
}

/// Whether `filter` lets through all that `wanted` wants.
bool covers(Filter const& filter, Filter const& wanted) {
  if (!wanted.exclude)
    return std::all_of(wanted.sources.begin(), wanted.sources.end(),
                       [&](Address source) { return filter.wants(source); });
  return filter.exclude && std::includes(wanted.sources.begin(), wanted.sources.end(),
                                         filter.sources.begin(), filter.sources.end());
}

Filter learnedOn(Memberships const& memberships, std::string const& port, Address group) {
  std::vector<Filter> reporters;
  for (auto const& [key, filter] : memberships)
    if (key.port == port && key.group == group) reporters.push_back(filter);
  return mergedByRouter(reporters);
}

template <class... Parts>
std::string textOf(Parts const&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Failure const& failure) {
  out << failure.what << failure.events.size() << " events:\n"
      << std::fixed << std::setprecision(6);
  for (Event const& event : failure.events)
    out << "  " << std::chrono::duration<double>(event.at).count() << " s: " << event.what << '\n';
  return out;
}

Lan::Lan(Layout const& layout) : layout_(layout) {
  std::uint8_t listener = 0;
  for (Layout::Node const& node : layout_.switches) {
    boxes_.push_back(&network_.boxIs(configurationIn(textOf(node))));
    for (std::size_t index = 0; index < std::size(listenerVersions); ++index)
      network_.listenerIs({textOf(node.name, index < 2 ? "-1" : "-2"), vlan},
                          {192, 0, 0, ++listener}, listenerVersions[index]);
  }
  for (auto const& segment : layout_.segments) network_.segmentIs(segment);
  if (layout_.routerPort.empty()) return;
  network_.routerIs({layout_.routerPort, vlan}, {192, 0, 2, 9}).runsIs(true);
}

// ---- What happens

namespace {

Filter someFilter(Chance& chance, int version, Address group) {
  if (chance.oneIn(3)) return {};
  if (version < 3) return isSourceSpecific(group) ? Filter() : Filter::everySource();
  Filter filter;
  filter.exclude = !isSourceSpecific(group) && chance.oneIn(2);
  if (filter.exclude && chance.oneIn(3)) return filter;
  for (unsigned source = 0; source < sources; ++source)
    if (chance.oneIn(2)) filter.sources.insert(sourceAddress(source));
  return filter;
}

}  // namespace

std::vector<Event> Lan::someEvents(Layout const& layout, std::uint64_t seed) {
  Chance chance(seed);
  auto const listeners =
      static_cast<unsigned>(layout.switches.size() * std::size(listenerVersions));
  std::vector<std::string> linked;
  for (auto const& segment : layout.segments)
    linked.insert(linked.end(), segment.begin(), segment.end());
  std::vector<Event> events;
  auto const add = [&](Time at, std::string what, std::function<void(Lan&)> happen) {
    events.push_back({at, std::move(what), std::move(happen)});
  };

  Time const longestPause = chance.oneIn(2) ? Time(seconds(4)) : Time(seconds(60));
  Time now = minutes(5);
  for (unsigned count = 10 + chance.below(40); count > 0; --count) {
    now += chance.delay(longestPause);
    Address const group = groups[chance.below(std::size(groups))];
    unsigned const kind = chance.below(30);
    if (kind < 22) {
      unsigned const number = chance.below(listeners);
      int const version = listenerVersions[number % std::size(listenerVersions)];
      Filter const filter = someFilter(chance, version, group);
      add(now, textOf("v", version, " listener ", number + 1, " wants ", group, ' ', filter),
          [=](Lan& lan) { lan.network_.listeners()[number].second->wantedIs(group, filter); });
    } else if (kind < 23) {
      unsigned const number = chance.below(listeners);
      add(now, textOf("listener ", number + 1, " vanishes"),
          [=](Lan& lan) { lan.network_.listeners()[number].second->vanish(); });
    } else if (kind < 25) {
      std::string const port = chance.of(linked);
      auto const carrier = [=](bool has) {
        return [=](Lan& lan) {
          Box& box = lan.network_.boxOf(port);
          InterfaceState state = box.state(port);
          state.carrier = has;
          box.stateIs(port, state);
        };
      };
      add(now, port + " goes down", carrier(false));
      add(now + chance.delay(longestPause), port + " is up", carrier(true));
    } else if (layout.routerPort.empty()) {
      continue;
    } else if (kind < 28) {
      Sources asked;
      if (chance.oneIn(2))
        for (unsigned source = 0; source < sources; ++source)
          if (chance.oneIn(2)) asked.insert(sourceAddress(source));
      add(now, textOf("the router asks for ", group, " and ", asked.size(), " sources"),
          [=](Lan& lan) {
            if (lan.router().isQuerier() && lan.router().version() == 3)
              lan.router().query(group, asked);
          });
    } else if (kind < 29) {
      bool const runs = chance.oneIn(2);
      add(now, textOf("the router ", runs ? "starts" : "stops"),
          [=](Lan& lan) { lan.router().runsIs(runs); });
    } else {
      int const version = 1 + static_cast<int>(chance.below(3));
      add(now, textOf("the router speaks v", version),
          [=](Lan& lan) { lan.router().versionIs(version); });
    }
  }
  std::stable_sort(events.begin(), events.end(),
                   [](Event const& a, Event const& b) { return a.at < b.at; });
  return events;
}

Event Lan::everybodyLeaves(std::vector<Event> const& events) {
  Time const at = (events.empty() ? Time(minutes(5)) : events.back().at) + minutes(3);
  return {at, "everybody leaves", [](Lan& lan) {
            for (auto const& [place, listener] : lan.network_.listeners())
              for (Address const group : groups) listener->wantedIs(group, {});
          }};
}

std::optional<Failure> Lan::live(Layout const& layout, std::vector<Event> const& events) {
  Lan lan(layout);
  lan.network_.losesFramesIs(true);
  for (Event const& event : events) {
    lan.network_.advanceTo(event.at);
    event.happen(lan);
  }
  lan.network_.losesFramesIs(false);
  lan.isAtRest();
  lan.network_.advance(settlingTime);

  Known const settled = lan.known();
  std::string wrong = lan.network_.complaints() + lan.cutOffAtSwitches() + lan.wrongOfRouter() +
                      lan.wrongOfSwitches(settled) + lan.leftOver(settled);
  constexpr auto between = seconds(7);
  for (Time end = lan.network_.now() + 2 * queryInterval;
       wrong.empty() && lan.network_.now() < end;) {
    lan.network_.advance(between);
    Known const known = lan.known();
    for (std::size_t box = 0; box < lan.boxes_.size(); ++box) {
      wrong += difference(known.memberships[box], settled.memberships[box]);
      wrong += difference(known.records[box], settled.records[box]);
    }
    wrong += difference(known.belief, settled.belief);
    if (!wrong.empty()) wrong.insert(0, "what was settled, and is not at rest:\n");
  }
  if (wrong.empty()) return std::nullopt;
  return Failure{events, wrong};
}

/// All links are up, and the router runs as it first did.
void Lan::isAtRest() {
  for (auto const& segment : layout_.segments) {
    for (std::string const& port : segment) {
      InterfaceState state = network_.boxOf(port).state(port);
      state.carrier = true;
      network_.boxOf(port).stateIs(port, state);
    }
  }
  if (!hasRouter()) return;
  router().versionIs(3);
  router().runsIs(true);
}

// ---- What must be so

Lan::Known Lan::known() const {
  Known known;
  for (Box const* const box : boxes_) {
    known.memberships.push_back(membershipsOf(box->agent()));
    known.records.push_back(recordsOf(box->agent()));
  }
  if (hasRouter()) known.belief = router().belief();
  return known;
}

std::vector<std::string> Lan::portsOf(Box const& box) const {
  std::vector<std::string> ports;
  for (InterfaceConfig const& interface : box.configuration().interfaces)
    ports.push_back(nameOf(interface.intfId));
  return ports;
}

/// The port itself and those that it leads to, over other switches too.
std::vector<std::string> Lan::portsBeyond(std::string const& port) const {
  std::vector<std::string> beyond{port};
  for (auto const& segment : layout_.segments) {
    if (std::find(segment.begin(), segment.end(), port) == segment.end()) continue;
    for (std::string const& far : segment) {
      if (far == port) continue;
      for (std::string const& next : portsOf(network_.boxOf(far))) {
        if (next == far) continue;
        auto const more = portsBeyond(next);
        beyond.insert(beyond.end(), more.begin(), more.end());
      }
    }
  }
  return beyond;
}

std::vector<Listener const*> Lan::listenersBeyond(std::string const& port) const {
  std::vector<Listener const*> found;
  for (std::string const& beyond : portsBeyond(port))
    for (auto const& [place, listener] : network_.listeners())
      if (place.port == beyond) found.push_back(listener.get());
  return found;
}

Filter Lan::wantedByAll(Address group) const {
  std::vector<Filter> wanted;
  for (auto const& [place, listener] : network_.listeners())
    if (Filter const filter = listener->reported(group); !filter.empty()) wanted.push_back(filter);
  return mergedByRouter(wanted);
}

/// What comes in must reach every listener. Towards routers all is forwarded.
std::string Lan::cutOffAtSwitches() const {
  std::ostringstream wrong;
  for (Box const* const box : boxes_) {
    Memberships const memberships = membershipsOf(box->agent());
    for (std::string const& port : portsOf(*box)) {
      if (isRouterPort(*box, {port, vlan})) continue;
      for (Address const group : groups) {
        Filter const learned = learnedOn(memberships, port, group);
        for (Listener const* const listener : listenersBeyond(port))
          if (!covers(learned, listener->reported(group)))
            wrong << "cut off: " << listener->address() << " wants " << group << ' '
                  << listener->reported(group) << ", " << port << " has learned " << learned
                  << '\n';
      }
    }
  }
  return wrong.str();
}

/// The router must know what listeners want, and where sources are excluded may believe more.
std::string Lan::wrongOfRouter() const {
  std::ostringstream wrong;
  if (!hasRouter()) return {};
  auto const belief = router().belief();
  for (Address const group : groups) {
    auto const found = belief.find(group);
    Filter const believed = found == belief.end() ? Filter() : found->second;
    Filter const wanted = wantedByAll(group);
    if (wanted.exclude ? !covers(believed, wanted) : believed != wanted)
      wrong << "the router believes " << group << ' ' << believed << ", wanted is " << wanted
            << '\n';
  }
  return wrong.str();
}

/// A switch must report what it has learned, and have learned what listeners at its ports want.
std::string Lan::wrongOfSwitches(Known const& known) const {
  std::string wrong;
  for (std::size_t index = 0; index < boxes_.size(); ++index) {
    Box const& box = *boxes_[index];
    wrong += difference(known.records[index], expectedRecords(box, known.memberships[index]));
    for (auto const& [place, listener] : network_.listeners()) {
      if (&network_.boxOf(place.port) != &box) continue;
      for (Address const group : groups) {
        auto const found =
            known.memberships[index].find({vlan, group, place.port, listener->address()});
        Filter const learned = found == known.memberships[index].end() ? Filter() : found->second;
        if (learned != listener->reported(group))
          wrong += textOf(listener->address(), " at ", place, " wants ", group, ' ',
                          listener->reported(group), ", learned is ", learned, '\n');
      }
    }
  }
  return wrong;
}

/// Nothing may be known beyond what somebody wants who could have told.
std::string Lan::leftOver(Known const& known) const {
  std::ostringstream wrong;
  for (Memberships const& memberships : known.memberships) {
    for (auto const& [key, filter] : memberships) {
      std::vector<Filter> wanted;
      for (Listener const* const listener : listenersBeyond(key.port))
        if (Filter const each = listener->reported(key.group); !each.empty())
          wanted.push_back(each);
      Filter const beyond = mergedByRouter(wanted);
      if (beyond.empty() || (!beyond.exclude && !covers(beyond, filter)))
        wrong << "left over: " << key << ' ' << filter << ", wanted beyond is " << beyond << '\n';
    }
  }
  return wrong.str();
}

}  // namespace Agent::Soak
