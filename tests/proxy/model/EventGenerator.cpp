#include "tests/proxy/model/EventGenerator.h"

#include <array>

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

constexpr std::array vlans{10, 20};

struct Choice {
  Event::What what;
  int weight;
};

// What reporters say.
constexpr std::array reports{
    Choice{Event::What::modeSet, 24},       Choice{Event::What::modeRaised, 4},
    Choice{Event::What::sourcesAdded, 36},  Choice{Event::What::sourcesRemoved, 24},
    Choice{Event::What::sourcesCleared, 4}, Choice{Event::What::sourceRaised, 4},
};

// Who is there.
constexpr std::array comingsAndGoings{
    Choice{Event::What::groupMade, 10},       Choice{Event::What::groupRemoved, 3},
    Choice{Event::What::groupReplaced, 2},    Choice{Event::What::groupPutBack, 2},
    Choice{Event::What::groupShared, 2},      Choice{Event::What::portMade, 24},
    Choice{Event::What::portRemoved, 8},      Choice{Event::What::portReplaced, 4},
    Choice{Event::What::portPutBack, 3},      Choice{Event::What::reporterMade, 36},
    Choice{Event::What::reporterRemoved, 14}, Choice{Event::What::reporterReplaced, 6},
    Choice{Event::What::reporterPutBack, 4},  Choice{Event::What::removedReporterChanged, 2},
};

// Who reports upstream.
constexpr std::array hosts{
    Choice{Event::What::hostKeySet, 16},    Choice{Event::What::hostKeyRemoved, 5},
    Choice{Event::What::hostKeyRaised, 2},  Choice{Event::What::hostMade, 16},
    Choice{Event::What::hostRemoved, 5},    Choice{Event::What::statusSwitched, 2},
    Choice{Event::What::adapterDropped, 1},
};

template <std::size_t N>
Event::What chosen(std::array<Choice, N> const& choices, std::uint64_t draw) {
  int sum = 0;
  for (Choice const& choice : choices) sum += choice.weight;
  int left = static_cast<int>(draw % static_cast<std::uint64_t>(sum));
  for (Choice const& choice : choices) {
    left -= choice.weight;
    if (left < 0) return choice.what;
  }
  return choices.back().what;
}

bool makesGroup(Event::What what) {
  return what == Event::What::groupMade || what == Event::What::groupReplaced ||
         what == Event::What::groupPutBack;
}
bool makesPort(Event::What what) {
  return what == Event::What::portMade || what == Event::What::portReplaced ||
         what == Event::What::portPutBack;
}
bool makesReporter(Event::What what) {
  return what == Event::What::reporterMade || what == Event::What::reporterReplaced ||
         what == Event::What::reporterPutBack || what == Event::What::removedReporterChanged;
}

}  // namespace

EventGenerator::EventGenerator(std::uint64_t seed, Kind kind) : engine_(seed) {
  if (kind == Kind::deep)
    // Long source lists now and then, for reactors with many notifications pending.
    extent_ = {from(1, 2), from(1, 6), from(1, 4), oneIn(8) ? from(9, 40) : from(1, 4)};
  else
    extent_ = {from(8, 40), from(3, 12), from(1, 6), from(2, 8)};
  length_ = from(200, kind == Kind::deep ? 2000 : 5000);
  eventsPerRun_ = std::array{1, 2, 5, 20, 60}[static_cast<std::size_t>(from(0, 4))];
  runsPerReport_ = from(1, 4);
  churnPercent_ = std::array{5, 25, 50}[static_cast<std::size_t>(from(0, 2))];
  // In some sequences there are no hosts for long stretches.
  eventsPerHostChange_ = std::array{8, 16, 500}[static_cast<std::size_t>(from(0, 2))];
  excludesPercent_ = std::array{20, 50, 80}[static_cast<std::size_t>(from(0, 2))];
}

Event EventGenerator::next(AdapterDriver const& driver) {
  Event event;
  event.what = what(driver);
  event.inOtherStatus = oneIn(20);
  event.group = from(1, extent_.groups);
  event.port = from(1, extent_.ports);
  event.reporter = from(1, extent_.reporters);
  aimAtPresent(event, driver);

  switch (event.what) {
    case Event::What::groupReplaced:
      event.reporters = someReporters(1, extent_.ports);
      break;
    case Event::What::portReplaced:
      event.reporters = someReporters(event.port, event.port);
      break;
    case Event::What::modeSet:
      event.excludes = percent(excludesPercent_);
      break;
    case Event::What::reporterReplaced:
      event.excludes = percent(excludesPercent_);
      event.sources = someSources();
      break;
    case Event::What::sourcesAdded:
    case Event::What::sourcesRemoved:
    case Event::What::sourceRaised:
    case Event::What::removedReporterChanged:
      event.sources = someSources();
      break;
    case Event::What::hostKeySet:
    case Event::What::hostKeyRemoved:
    case Event::What::hostKeyRaised:
    case Event::What::hostMade:
    case Event::What::hostRemoved:
      // One port more than groups can have: it is never a member.
      event.hostKey = {vlans[oneIn(4) ? 1 : 0], from(1, extent_.ports + 1)};
      event.keyValue = !oneIn(8);
      break;
    default:
      break;
  }
  return event;
}

Event::What EventGenerator::what(AdapterDriver const& driver) {
  if (!driver.hasAdapter() && oneIn(8)) return Event::What::adapterMade;
  if (oneIn(eventsPerRun_ + 1))
    return oneIn(runsPerReport_) ? Event::What::reportRaised : Event::What::activitiesRun;
  if (oneIn(eventsPerHostChange_)) return chosen(hosts, engine_());
  return percent(churnPercent_) ? chosen(comingsAndGoings, engine_()) : chosen(reports, engine_());
}

/// Goes over to a group, port and reporter that are there, as far down as the event does not make
/// them itself.
void EventGenerator::aimAtPresent(Event& event, AdapterDriver const& driver) {
  auto const any = [this](auto const& keyed) {
    return keyed.order[static_cast<std::size_t>(from(1, static_cast<int>(keyed.order.size())) - 1)];
  };
  auto const& groups = driver.status(event.inOtherStatus).groups;
  if (makesGroup(event.what) || groups.order.empty()) return;
  event.group = any(groups);
  auto const& ports = groups.find(event.group)->ports;
  if (makesPort(event.what) || ports.order.empty()) return;
  event.port = any(ports);
  auto const& memberships = ports.find(event.port)->memberships;
  if (makesReporter(event.what) || memberships.order.empty()) return;
  event.reporter = any(memberships);
}

int EventGenerator::from(int first, int last) {
  return first + static_cast<int>(engine_() % static_cast<std::uint64_t>(last - first + 1));
}

std::vector<int> EventGenerator::someSources() {
  bool const many = oneIn(3);
  std::vector<int> sources;
  if (!many) sources.push_back(from(1, extent_.sources));
  for (int source = 1; many && source <= extent_.sources; ++source)
    if (oneIn(2)) sources.push_back(source);
  return sources;
}

std::vector<Reporter> EventGenerator::someReporters(int firstPort, int lastPort) {
  std::vector<Reporter> reporters;
  for (int port = firstPort; port <= lastPort; ++port) {
    for (int reporter = 1; reporter <= extent_.reporters; ++reporter)
      if (oneIn(3)) reporters.push_back({port, reporter, percent(excludesPercent_), someSources()});
  }
  return reporters;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
