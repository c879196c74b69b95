#include "platform/snooping/VlanLearning.h"

#include <utility>

#include "framework/kel/Activity.h"

namespace Bridging::IgmpSnooping {

using Wirex::IntfId;
using Wirex::IpAddr;

void LearnedMembership::onExpiry() {
  intf_.group().vlan().forget(*this);
}

VlanLearning::VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
                           Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch)
    : status_(std::move(status)),
      policy_(policy),
      timerWheel_(std::move(timerWheel)),
      batch_(batch) {}

VlanLearning::~VlanLearning() {
  // Whoever still holds a membership must not keep its timer, which calls back.
  for (auto const& [address, group] : status_->group())
    for (auto const& [name, intf] : group->intf())
      for (auto const& [reporter, membership] : intf->membership())
        static_cast<LearnedMembership&>(*membership).cancel();
  status_->groupDelAll();
}

std::optional<Igmp::Cause> VlanLearning::record(IntfId const& intf, IpAddr reporter,
                                                Igmp::GroupRecord const& record) {
  LearnedMembership* const known = find(intf, reporter, record.group);
  return learn(intf, reporter, record.group, known, FilterState::after(record, known));
}

std::optional<Igmp::Cause> VlanLearning::report(IntfId const& intf, IpAddr reporter, IpAddr group) {
  return learn(intf, reporter, group, find(intf, reporter, group), FilterState::everySource());
}

void VlanLearning::leave(IntfId const& intf, IpAddr reporter, IpAddr group) {
  LearnedMembership* const membership = find(intf, reporter, group);
  if (!membership) return;
  if (policy_.fastLeave) {
    forget(*membership);
    return;
  }
  Horix::Time const end = timerWheel_->now() + policy_.lastMemberQueryTime();
  if (end < membership->deadline()) timerWheel_->scheduleAt(*membership, end);
}

std::optional<Igmp::Cause> VlanLearning::learn(IntfId const& intf, IpAddr reporter, IpAddr group,
                                               LearnedMembership* known, FilterState const& state) {
  if (state.left()) {
    if (known) forget(*known);
    return std::nullopt;
  }
  if (policy_.maxGroupSources != 0 && state.sourceCount() > policy_.maxGroupSources)
    return Igmp::Cause::tooManySources;
  if (known && state.describes(*known)) {
    timerWheel_->schedule(*known, policy_.groupMembershipInterval());
    return std::nullopt;
  }
  bool const newGroup = !known && !status_->group().contains(group);
  if (newGroup && policy_.maxGroups != 0 && status_->group().size() >= policy_.maxGroups)
    return Igmp::Cause::tooManyGroups;

  Kel::Ptr<LearnedMembership> const membership =
      known ? Kel::Ptr<LearnedMembership>(known) : make(intf, reporter, group);
  state.applyTo(*membership);
  Kel::runActivities();
  timerWheel_->schedule(*membership, policy_.groupMembershipInterval());
  batch_.add(status_);
  return std::nullopt;
}

LearnedMembership* VlanLearning::find(IntfId const& intf, IpAddr reporter, IpAddr group) const {
  IgmpGroup const* const groupStatus = status_->group().find(group);
  IgmpIntfStatus const* const intfStatus = groupStatus ? groupStatus->intf().find(intf) : nullptr;
  IgmpMembership* const membership = intfStatus ? intfStatus->membership().find(reporter) : nullptr;
  return static_cast<LearnedMembership*>(membership);
}

/// Makes the membership and what is missing above it, from the top down, so that readers find
/// each entity in its place.
Kel::Ptr<LearnedMembership> VlanLearning::make(IntfId const& intf, IpAddr reporter, IpAddr group) {
  if (!status_->group().contains(group)) status_->groupIs(Kel::make<LearnedGroup>(group, *this));
  auto& groupStatus = static_cast<LearnedGroup&>(*status_->group().find(group));
  if (!groupStatus.intf().contains(intf))
    groupStatus.intfIs(Kel::make<LearnedIntf>(intf, groupStatus));
  auto& intfStatus = static_cast<LearnedIntf&>(*groupStatus.intf().find(intf));
  auto membership = Kel::make<LearnedMembership>(reporter, intfStatus);
  intfStatus.membershipIs(membership);
  Kel::runActivities();
  return membership;
}

void VlanLearning::forget(LearnedMembership& membership) {
  // Readers take nothing back for a membership that goes, so it withdraws what it said first.
  membership.filterModeIs(Gmp::Igmp::IgmpFilterMode::include);
  membership.sourceDelAll();
  Kel::runActivities();
  remove(membership);
  batch_.add(status_);
}

void VlanLearning::remove(LearnedMembership& membership) {
  Kel::Ptr<LearnedIntf> const intf(&membership.intf());
  Kel::Ptr<LearnedGroup> const group(&intf->group());
  membership.cancel();
  intf->membershipDel(membership.addr());
  if (intf->membership().empty()) group->intfDel(intf->intfId());
  if (group->intf().empty()) status_->groupDel(group->addr());
  Kel::runActivities();

  // Nor do they look at the reporters that stay: "excluded by all of them" may now be true of
  // more sources, which they find out when one of those speaks up.
  if (intf->membership().empty()) return;
  intf->membership().find(intf->membership().keyAt(0))->filterModeNotify();
  Kel::runActivities();
}

}  // namespace Bridging::IgmpSnooping
