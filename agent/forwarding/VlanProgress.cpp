#include "agent/forwarding/VlanProgress.h"

#include <algorithm>
#include <chrono>

namespace Agent {

using Bridging::VlanId;

VlanProgress::VlanProgress(Switch const& snoopingSwitch, bool goesOn)
    : switch_(snoopingSwitch), goesOn_(goesOn) {
  if (goesOn) return;
  for (VlanConfig const& vlan : switch_.configuration().vlans)
    remembered_.emplace(vlan.vlanId, queriedUntil(vlan.vlanId));
}

/// How long the queries that were heard last until another one is due, at most.
Horix::Time VlanProgress::queriedUntil(VlanId vlan) const {
  Horix::Time until{};
  if (auto const* const routers = switch_.routerPorts(vlan))
    for (auto const& [intf, port] : routers->routerPort())
      until = std::max(until, port.querierUntil);
  return until;
}

bool VlanProgress::isQueried(VlanId vlan) const {
  if (auto const* const querier = switch_.querier(vlan)) {
    if (querier->sent().general > 0) return true;
    auto const course = querier->course();
    if (goesOn_ && course && course->startupQueriesLeft < querier->policy().robustnessVariable)
      return true;
  }
  auto const remembered = remembered_.find(vlan);
  return queriedUntil(vlan) >
         (remembered == remembered_.end() ? Horix::Time::zero() : remembered->second);
}

void VlanProgress::vlansAre(std::vector<ForwardedVlan> const& vlans, Horix::Time now) {
  std::map<VlanId, State> states;
  for (ForwardedVlan const& vlan : vlans) {
    auto const known = states_.find(vlan.vlanId);
    State state;
    if (known != states_.end()) {
      state = known->second;
    } else {
      auto const& settings = switch_.learning(vlan.learnedIn)->policy();
      state.known = now + settings.queryInterval + settings.queryMaxResponseTime;
    }
    states.emplace(vlan.vlanId, state);
  }
  states_ = std::move(states);
}

void VlanProgress::noteQueries(std::vector<ForwardedVlan> const& vlans, Horix::Time now) {
  constexpr auto slack = std::chrono::seconds(1);
  for (ForwardedVlan const& vlan : vlans) {
    State& state = states_[vlan.vlanId];
    if (state.queried || state.byEntries || !isQueried(vlan.learnedIn)) continue;
    state.queried = true;
    auto const& settings = switch_.learning(vlan.learnedIn)->policy();
    state.known = std::min(state.known, now + slack + settings.queryMaxResponseTime);
  }
}

bool VlanProgress::isDue(VlanId vlan, Horix::Time now) const {
  auto const state = states_.find(vlan);
  return state != states_.end() && !state->second.byEntries && state->second.known <= now;
}

bool VlanProgress::goesByEntries(VlanId vlan) const {
  auto const state = states_.find(vlan);
  return state != states_.end() && state->second.byEntries;
}

void VlanProgress::allAreFlooded() {
  for (auto& [vlan, state] : states_) state.byEntries = false;
}

}  // namespace Agent
