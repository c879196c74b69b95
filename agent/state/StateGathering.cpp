#include "agent/state/StateGathering.h"

#include <algorithm>
#include <utility>

#include "framework/types/PortKey.h"
#include "platform/snooping/LearnedMembership.h"

namespace Agent {

using Bridging::IgmpSnooping::LearnedMembership;
using Bridging::IgmpSnooping::Proxy::PortKey;

namespace {

KeptMembership keptMembership(MembershipWalk::Place const& place,
                              LearnedMembership const& membership) {
  auto filter = membership.timedFilter();
  KeptMembership kept{place.vlan, place.interface, place.group, membership.addr()};
  kept.excludes = filter.mode == Gmp::Igmp::IgmpFilterMode::exclude;
  if (kept.excludes) kept.until = filter.deadline;
  kept.requested.reserve(filter.requested.size());
  for (auto const& source : filter.requested)
    kept.requested.push_back({source.address, source.deadline});
  kept.excluded = std::move(filter.excluded);
  return kept;
}

KeptQueryCourse keptCourse(Bridging::VlanId vlan,
                           Bridging::IgmpSnooping::QueryCourse const& course) {
  KeptQueryCourse kept{vlan, course.next, static_cast<std::uint8_t>(course.startupQueriesLeft)};
  for (auto const& port : course.asked) kept.asked.push_back({port.vlanId, port.intfId});
  return kept;
}

}  // namespace

StateGathering::StateGathering(Switch& snoopingSwitch)
    : switch_(snoopingSwitch), memberships_(snoopingSwitch, {}) {
  gatherRouters(snoopingSwitch);
}

void StateGathering::gatherTalk() {
  for (VlanConfig const& config : switch_.configuration().vlans) {
    auto const& querier = *switch_.querier(config.vlanId);
    auto const course = querier.course();
    if (course && querier.vlanId() == config.vlanId)
      writer_.put(keptCourse(config.vlanId, *course));
    for (VlanMember const& member : config.members) gatherTalk({config.vlanId, member.intfId});
  }
}

void StateGathering::gatherTalk(KeptPort const& host) {
  auto const memory =
      switch_.proxy().igmpHostDirSm()->memory(PortKey(host.vlan, host.interface).hostName());
  for (auto const& told : memory.told) {
    KeptTold kept{host, told.group, told.excludes, told.sources, told.transmissions};
    for (auto const& source : told.pendingSources)
      kept.pendingSources.push_back({source.address, source.transmissions});
    writer_.put(kept);
  }
  for (auto const& answer : memory.answers)
    writer_.put(KeptAnswer{host, answer.group, answer.sources, answer.due});
  for (auto const& older : memory.olderQueriers)
    writer_.put(KeptHostVersion{host, older.version, older.querier, older.until});
}

void StateGathering::gatherRouters(Switch& snoopingSwitch) {
  for (VlanConfig const& config : snoopingSwitch.configuration().vlans) {
    Bridging::VlanId const vlan = config.vlanId;
    auto const& routers = *snoopingSwitch.routers(vlan);
    for (auto const& heard : routers.heard()) {
      gatherSince(heard.since);
      writer_.put(
          KeptRouter{vlan, heard.intfId, heard.byPim, heard.router.address, heard.router.until});
    }
    for (auto const& present : routers.queries()->versions().present())
      writer_.put(KeptOlderVersion{vlan, present.version, present.querier, present.until});
    if (auto const& querier = *snoopingSwitch.querier(vlan); querier.vlanId() == vlan)
      gatherElection(querier);
  }
}

void StateGathering::gatherElection(Switch::VlanQuerier const& querier) {
  auto const& other = querier.otherQuerier();
  if (!other) return;
  writer_.put(KeptQuerier{querier.vlanId(), other->intfId, other->address, other->macAddress,
                          other->version, static_cast<std::uint8_t>(other->robustness),
                          other->queryInterval, querier.otherQuerierUntil()});
}

void StateGathering::gatherSince(Horix::Time since) {
  using Horix::Time;
  writer_.put(KeptSince{std::max(since, Time::zero()), std::max(-since, Time::zero())});
}

bool StateGathering::advance(std::size_t steps) {
  memberships_.advance(steps, [&](MembershipWalk::Place const& place, auto const& status) {
    auto const& membership = static_cast<LearnedMembership const&>(status);
    if (membership.isForgotten()) return;
    gatherSince(membership.since());
    writer_.put(keptMembership(place, membership));
  });
  return !memberships_.atEnd();
}

}  // namespace Agent
