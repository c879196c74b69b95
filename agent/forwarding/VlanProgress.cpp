#include "agent/forwarding/VlanProgress.h"

#include <algorithm>
#include <chrono>

namespace Agent {

using Bridging::VlanId;
using Wirex::IpAddr;

namespace {

bool isQueried(VlanId vlan, Switch const& snoopingSwitch) {
  auto const* const querier = snoopingSwitch.querier(vlan);
  if (querier && querier->sent().general > 0) return true;
  auto const* const routers = snoopingSwitch.routerPorts(vlan);
  if (!routers) return false;
  for (auto const& [intf, port] : routers->routerPort())
    if (port.querier != IpAddr()) return true;
  return false;
}

}  // namespace

void VlanProgress::vlansAre(std::vector<ForwardedVlan> const& vlans, Switch const& snoopingSwitch,
                            Horix::Time now) {
  std::map<VlanId, State> states;
  for (ForwardedVlan const& vlan : vlans) {
    auto const known = states_.find(vlan.vlanId);
    State state;
    if (known != states_.end()) {
      state = known->second;
    } else {
      auto const& settings = snoopingSwitch.learning(vlan.learnedIn)->policy();
      state.known = now + settings.queryInterval + settings.queryMaxResponseTime;
    }
    states.emplace(vlan.vlanId, state);
  }
  states_ = std::move(states);
}

void VlanProgress::noteQueries(std::vector<ForwardedVlan> const& vlans,
                               Switch const& snoopingSwitch, Horix::Time now) {
  constexpr auto slack = std::chrono::seconds(1);
  for (ForwardedVlan const& vlan : vlans) {
    State& state = states_[vlan.vlanId];
    if (state.queried || state.byEntries || !isQueried(vlan.learnedIn, snoopingSwitch)) continue;
    state.queried = true;
    auto const& settings = snoopingSwitch.learning(vlan.learnedIn)->policy();
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
