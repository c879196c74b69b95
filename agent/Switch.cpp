#include "agent/Switch.h"

#include <tuple>
#include <utility>

namespace Agent {

using Bridging::AllowedTrafficDirection;
using Bridging::IgmpSnooping::SnoopingPamManager;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::Proxy::ProxySm;

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

Kel::Ptr<ProxySm> proxyOf(SwitchEntities const& entities,
                          Kel::Ptr<Horix::TimerWheel> const& timerWheel) {
  return Bridging::IgmpSnooping::Proxy::proxySmFactory(
      entities.snoopingConfig, entities.topology, entities.privateVlans, entities.desiredIntfs,
      entities.queriers, entities.hosts, entities.kernelIntfs, entities.bridging,
      entities.snoopingStatus, timerWheel);
}

}  // namespace

Switch::Switch(Configuration const& configuration, Horix::EventLoop& loop)
    : entities_(makeSwitchEntities(configuration)),
      loop_(loop),
      proxy_(proxyOf(entities_, loop.timerWheel())),
      // With the proxy's own settings, so that each device is opened once for both.
      snooping_(Kel::make<SnoopingPamManager>(entities_.bridging, entities_.kernelIntfs,
                                              proxy_->pamManager()->ethDevPamMgr()->settings())) {
  for (VlanConfig const& vlan : configuration.vlans) addLearning(vlan);
  addPorts(configuration);
  setDirections(entities_, configuration);
  loop_.afterBatchIs([this] { publish(); });
}

Switch::~Switch() {
  loop_.afterBatchIs(nullptr);
}

void Switch::addLearning(VlanConfig const& vlan) {
  if (isSecondary(vlan)) return;
  learning_.emplace(std::piecewise_construct, std::forward_as_tuple(vlan.vlanId),
                    std::forward_as_tuple(entities_.snoopingStatus->contextStatus(vlan.vlanId),
                                          policyOf(vlan.settings), loop_.timerWheel(), batch_));
}

void Switch::addPorts(Configuration const& configuration) {
  for (InterfaceConfig const& interface : configuration.interfaces)
    snooping_->portIs(interface.intfId).receivesIs(receives(interface));
  for (VlanConfig const& vlan : configuration.vlans)
    for (VlanMember const& member : vlan.members)
      snooping_->vlanIs(member.intfId, vlan.vlanId, learningOf(vlan));
}

Switch::VlanLearning& Switch::learningOf(VlanConfig const& vlan) {
  return learning_.at(isSecondary(vlan) ? vlan.privateRole.primaryVlan() : vlan.vlanId);
}

void Switch::publish() {
  batch_.publish();
  afterPublish_();
}

}  // namespace Agent
