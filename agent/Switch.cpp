#include "agent/Switch.h"

#include <tuple>
#include <utility>

#include "framework/kel/Activity.h"

namespace Agent {

using Bridging::AllowedTrafficDirection;
using Bridging::IgmpSnooping::SnoopedPort;
using Bridging::IgmpSnooping::SnoopingPolicy;

namespace {

SnoopingPolicy policyOf(SnoopingSettings const& settings) {
  SnoopingPolicy policy;
  policy.robustnessVariable = settings.robustnessVariable;
  policy.queryInterval = settings.queryInterval;
  policy.queryMaxResponseTime = settings.queryMaxResponseTime;
  policy.lastMemberQueryInterval = settings.lastMemberQueryInterval;
  policy.fastLeave = settings.fastLeave;
  policy.receive.requireRouterAlert = settings.requireRouterAlert;
  policy.maxGroups = settings.maxGroups;
  policy.maxGroupSources = settings.maxGroupSources;
  return policy;
}

bool isSecondary(VlanConfig const& vlan) {
  return vlan.privateRole != Bridging::VlanTypeAndPrimaryVlan();
}

bool receives(InterfaceConfig const& interface) {
  return !interface.blocked && (interface.direction == AllowedTrafficDirection::both ||
                                interface.direction == AllowedTrafficDirection::ingress);
}

}  // namespace

Switch::Switch(Configuration const& configuration, Kel::Ptr<Horix::Clock> clock)
    : entities_(makeSwitchEntities(configuration)),
      timerWheel_(Kel::make<Horix::TimerWheel>(std::move(clock))),
      proxy_(entities_) {
  for (VlanConfig const& vlan : configuration.vlans) addLearning(vlan);
  addPorts(configuration);
}

void Switch::addLearning(VlanConfig const& vlan) {
  if (isSecondary(vlan)) return;
  learning_.emplace(std::piecewise_construct, std::forward_as_tuple(vlan.vlanId),
                    std::forward_as_tuple(entities_.snoopingStatus->contextStatus(vlan.vlanId),
                                          policyOf(vlan.settings), timerWheel_, batch_));
}

void Switch::addPorts(Configuration const& configuration) {
  for (InterfaceConfig const& interface : configuration.interfaces)
    ports_.try_emplace(interface.intfId, interface.intfId)
        .first->second.receivesIs(receives(interface));
  for (VlanConfig const& vlan : configuration.vlans) {
    for (VlanMember const& member : vlan.members) {
      SnoopedPort& port = ports_.at(member.intfId);
      if (member.tagged)
        port.taggedVlanIs(vlan.vlanId, learningOf(vlan));
      else
        port.untaggedVlanIs(learningOf(vlan));
    }
  }
}

Switch::VlanLearning& Switch::learningOf(VlanConfig const& vlan) {
  return learning_.at(isSecondary(vlan) ? vlan.privateRole.primaryVlan() : vlan.vlanId);
}

SnoopedPort* Switch::port(Wirex::IntfId const& intf) {
  auto const port = ports_.find(intf);
  return port == ports_.end() ? nullptr : &port->second;
}

void Switch::advanceTo(Horix::Time time) {
  for (auto next = timerWheel_->nextExpiry(); next && *next <= time;
       next = timerWheel_->nextExpiry()) {
    timerWheel_->advanceTo(*next);
    publish();
  }
  timerWheel_->advanceTo(time);
}

void Switch::publish() {
  Kel::runActivities();
  batch_.publish();
  afterPublish_();
}

}  // namespace Agent
