#include "tests/proxy/random/ChangeGenerator.h"

#include <array>

namespace Bridging::IgmpSnooping::Proxy::Random {

namespace {

using What = Change::What;

struct Choice {
  What what;
  int weight;
};

constexpr std::array control{
    Choice{What::vlanPrepared, 4},       Choice{What::vlanForgotten, 4},
    Choice{What::contextAdded, 12},      Choice{What::contextRemoved, 2},
    Choice{What::proxyingSet, 14},       Choice{What::querierAdded, 14},
    Choice{What::querierRemoved, 4},     Choice{What::querierVersionSet, 4},
    Choice{What::vlanRaised, 4},         Choice{What::querierProtocolReplaced, 4},
    Choice{What::portJoined, 24},        Choice{What::portLeft, 4},
    Choice{What::portReplaced, 6},       Choice{What::portPutBack, 4},
    Choice{What::portBlocked, 8},        Choice{What::portDirected, 8},
    Choice{What::removedPortChanged, 2}, Choice{What::formerProtocolChanged, 2},
    Choice{What::portRaised, 3},         Choice{What::deviceSet, 16},
    Choice{What::deviceRemoved, 3},      Choice{What::deviceRaised, 2},
    Choice{What::desiredSet, 8},         Choice{What::desiredRemoved, 2},
    Choice{What::taggedSet, 5},          Choice{What::taggedRemoved, 2},
    Choice{What::proxyDropped, 1},
};

constexpr std::array privateVlans{
    Choice{What::roleSet, 5},
    Choice{What::roleRemoved, 2},
};

constexpr std::array listeners{
    Choice{What::listenerReports, 12},
    Choice{What::listenerLeaves, 6},
    Choice{What::reportRaised, 2},
};

template <std::size_t N>
What chosen(std::array<Choice, N> const& choices, std::uint64_t draw) {
  int sum = 0;
  for (Choice const& choice : choices) sum += choice.weight;
  int left = static_cast<int>(draw % static_cast<std::uint64_t>(sum));
  for (Choice const& choice : choices) {
    left -= choice.weight;
    if (left < 0) return choice.what;
  }
  return choices.back().what;
}

}  // namespace

ChangeGenerator::ChangeGenerator(std::uint64_t seed, Kind kind) : engine_(seed) {
  // VLAN 1 is the primary of a role that names none, and names of hosts share beginnings.
  vlans_ = {10, 1, 2, 101, 4094, 20};
  for (int vlan = 200; vlan < 224; ++vlan) vlans_.push_back(vlan);
  bool const isFew = kind == Kind::few;
  vlanCount_ = isFew ? from(2, 7) : from(10, 30);
  portCount_ = isFew ? from(2, 5) : from(4, 12);
  length_ = isFew ? from(100, 800) : from(600, 2000);
  onPercent_ = std::array{60, 80, 95}[static_cast<std::size_t>(from(0, 2))];
  listenerWeight_ = std::array{0, 20, 60}[static_cast<std::size_t>(from(0, 2))];
  privateWeight_ = std::array{0, 10, 25}[static_cast<std::size_t>(from(0, 2))];
  startDelay_ = std::array{1, 10, 60}[static_cast<std::size_t>(from(0, 2))];
}

Change ChangeGenerator::next(Inputs const& inputs, bool hasProxy) {
  Change change;
  if (!hasProxy && oneIn(startDelay_)) {
    change.what = What::proxyMade;
    return change;
  }
  change.what = what();
  change.vlan = vlan();
  doWhatComesFirst(change, inputs);
  change.port = from(1, portCount_);
  change.on = percent(onPercent_);
  change.version = from(1, 3);
  change.direction = from(0, 3);
  // Another name of the device now and then; rarely a record that says that there is none.
  change.device = oneIn(12) ? 0 : from(1, 2);
  change.type = kindOfPrivateVlan();
  change.primary = vlan();
  change.group = from(1, 3);
  change.reporter = from(1, 2);
  change.excludes = oneIn(2);
  for (int source = 1; source <= 3; ++source)
    if (oneIn(3)) change.sources.push_back(source);
  switch (change.what) {
    case What::querierProtocolReplaced:
    case What::portReplaced:
    case What::removedPortChanged:
    case What::portBlocked:
    case What::portRaised:
    case What::deviceRaised:
    case What::taggedSet:
      change.on = oneIn(2);
      break;
    case What::portLeft:
    case What::portDirected:
      aimAtMember(change, inputs);
      break;
    case What::listenerLeaves:
      aimAtListener(change, inputs);
      break;
    default:
      break;
  }
  if (change.what == What::portBlocked) aimAtMember(change, inputs);
  return change;
}

What ChangeGenerator::what() {
  constexpr int controlWeight = 100;
  int const draw = from(1, controlWeight + listenerWeight_ + privateWeight_);
  if (draw <= listenerWeight_) return chosen(listeners, engine_());
  if (draw <= listenerWeight_ + privateWeight_) return chosen(privateVlans, engine_());
  return chosen(control, engine_());
}

/// What needs something else first mostly becomes that.
void ChangeGenerator::doWhatComesFirst(Change& change, Inputs const& inputs) {
  bool const isPrepared = inputs.topologies.contains(change.vlan);
  switch (change.what) {
    case What::proxyingSet:
    case What::vlanRaised:
    case What::querierRemoved:
    case What::querierAdded:
    case What::contextAdded:
    case What::portJoined:
    case What::portReplaced:
    case What::listenerReports:
      if (!isPrepared)
        change.what = What::vlanPrepared;
      else if (change.what == What::proxyingSet && !inputs.contexts.at.contains(change.vlan))
        change.what = What::contextAdded;
      else if (change.what == What::contextAdded && !inputs.queriers.contains(change.vlan))
        change.what = What::querierAdded;
      break;
    default:
      break;
  }
}

void ChangeGenerator::aimAtMember(Change& change, Inputs const& inputs) {
  auto const topology = inputs.topologies.find(change.vlan);
  if (topology == inputs.topologies.end()) return;
  auto const& ports = topology->second->ports.at;
  auto const member = ports.lower_bound(change.port);
  if (member != ports.end()) change.port = member->first;
}

void ChangeGenerator::aimAtListener(Change& change, Inputs const& inputs) {
  auto const status = inputs.statuses.find(change.vlan);
  if (status == inputs.statuses.end()) return;
  auto const& groups = status->second->groups.at;
  auto const group = groups.lower_bound(change.group);
  if (group == groups.end()) return;
  change.group = group->first;
  auto const& ports = group->second->ports.at;
  auto const port = ports.lower_bound(change.port);
  if (port == ports.end()) return;
  change.port = port->first;
  change.reporter = port->second->memberships.at.begin()->first;
}

int ChangeGenerator::from(int first, int last) {
  return first + static_cast<int>(engine_() % static_cast<std::uint64_t>(last - first + 1));
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
