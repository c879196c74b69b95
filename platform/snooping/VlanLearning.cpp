#include "platform/snooping/VlanLearning.h"

#include <utility>

#include "framework/kel/Activity.h"

namespace Bridging::IgmpSnooping {

using Igmp::IgnoreReason;
using Wirex::IntfId;
using Wirex::IpAddr;

VlanLearning::VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
                           Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch)
    : status_(std::move(status)),
      policy_(policy),
      timerWheel_(std::move(timerWheel)),
      batch_(batch) {}

VlanLearning::~VlanLearning() {
  forgetting_.clear();
  batch_.forget(*this);
  // Whoever still holds a membership must not keep its timer, which calls back.
  for (auto const& [address, group] : status_->group())
    for (auto const& [name, intf] : group->intf())
      for (auto const& [reporter, membership] : intf->membership())
        static_cast<LearnedMembership&>(*membership).cancel();
  status_->groupDelAll();
}

std::optional<IgnoreReason> VlanLearning::record(IntfId const& intf, IpAddr reporter,
                                                 Igmp::GroupRecord const& record) {
  hears(intf, record.group);
  if (!FilterState::begins(record) && !membership(intf, reporter, record.group))
    return std::nullopt;
  return learn(intf, reporter, record.group,
               [&](FilterState& state) { state.hear(record, times()); });
}

std::optional<IgnoreReason> VlanLearning::report(IntfId const& intf, IpAddr reporter,
                                                 IpAddr group) {
  hears(intf, group);
  return learn(intf, reporter, group, [&](FilterState& state) { state.hearOlderReport(times()); });
}

void VlanLearning::leave(IntfId const& intf, IpAddr reporter, IpAddr group) {
  hears(intf, group);
  LearnedMembership* const known = membership(intf, reporter, group);
  if (!known || known->withdrawn()) return;
  // One of many cannot leave for the others.
  if (policy_.fastLeave && !known->isOfMany())
    forget(*known);
  else
    stateOf(*known).hearLeave(times());
}

std::optional<IgnoreReason> VlanLearning::restore(IntfId const& intf, IpAddr reporter, IpAddr group,
                                                  TimedFilter const& filter) {
  hears(intf, group);
  return learn(intf, reporter, group, [&](FilterState& state) { state.restore(filter); });
}

/// Has a reporter's state, which `hear` changes, be what the reporter's membership says.
template <class Hear>
std::optional<IgnoreReason> VlanLearning::learn(IntfId const& intf, IpAddr reporter, IpAddr group,
                                                Hear hear) {
  LearnedMembership* known = membership(intf, reporter, group);
  if (!known)
    if (auto const cause = refusal(group)) return cause;
  Kel::Ptr<LearnedMembership> const membership =
      known ? Kel::Ptr<LearnedMembership>(known) : make(intf, reporter, group);
  FilterState state = stateOf(*membership);
  hear(state);
  publish(*membership, state, !known);
  if (state.refused()) return IgnoreReason::tooManySources;
  return std::nullopt;
}

/// Why a group may not be made that is not there yet.
std::optional<IgnoreReason> VlanLearning::refusal(IpAddr group) {
  if (policy_.maxGroups == 0 || status_->group().contains(group)) return std::nullopt;
  if (status_->group().size() >= policy_.maxGroups) removeWithdrawn();
  if (status_->group().size() >= policy_.maxGroups) return IgnoreReason::tooManyGroups;
  return std::nullopt;
}

FilterState VlanLearning::stateOf(LearnedMembership& membership) const {
  return {membership, *timerWheel_,
          policy_.maxGroupSources != 0 ? policy_.maxGroupSources : UINT32_MAX};
}

FilterState::Times VlanLearning::times() const {
  Horix::Time const now = timerWheel_->now();
  return {now + policy_.groupMembershipInterval(), now + policy_.lastMemberQueryTime()};
}

void VlanLearning::publish(LearnedMembership& membership, FilterState const& state, bool isNew) {
  if (state.wantsNothing()) {
    if (isNew || state.changed()) forget(membership);
    return;
  }
  if (!state.changed()) return;
  Kel::runActivities();
  batch_.add(status_);
}

LearnedMembership* VlanLearning::membership(IntfId const& intf, IpAddr reporter,
                                            IpAddr group) const {
  LearnedIntf const* const status = this->intf(intf, group);
  return static_cast<LearnedMembership*>(status ? status->membership().find(reporter) : nullptr);
}

LearnedIntf* VlanLearning::intf(IntfId const& intf, IpAddr group) const {
  IgmpGroup const* const status = status_->group().find(group);
  return static_cast<LearnedIntf*>(status ? status->intf().find(intf) : nullptr);
}

bool VlanLearning::hasMembers(IntfId const& intf, IpAddr group) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership())
    if (!static_cast<LearnedMembership&>(*membership).withdrawn()) return true;
  return false;
}

bool VlanLearning::wants(IntfId const& intf, IpAddr group, IpAddr source, Horix::Time end) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership())
    if (static_cast<LearnedMembership&>(*membership).wantedUntil(source) > end) return true;
  return false;
}

bool VlanLearning::wantsEverySource(IntfId const& intf, IpAddr group, Horix::Time end) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership())
    if (static_cast<LearnedMembership&>(*membership).everySourceWantedUntil() > end) return true;
  return false;
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
  withdraw(membership);
  Kel::runActivities();
}

void VlanLearning::expire(LearnedMembership& membership) {
  Kel::Ptr<LearnedMembership> const held(&membership);
  FilterState state = stateOf(membership);
  state.expire();
  publish(membership, state, false);
}

void VlanLearning::forgetGroup(IpAddr group) {
  if (IgmpGroup const* const status = status_->group().find(group))
    for (auto const& [name, intf] : status->intf()) withdrawAll(*intf);
  Kel::runActivities();
}

void VlanLearning::forgetPort(IntfId const& intf) {
  // One that has not come to its end would keep what was heard since it began.
  forgetting_.erase(intf);
  forgetting_.try_emplace(intf, status_, timerWheel_, [this, intf](IpAddr group) {
    if (LearnedIntf const* const status = this->intf(intf, group)) withdrawAll(*status);
  });
  Kel::runActivities();
}

/// What the port wanted before it was to be forgotten does not mix with what it says now.
void VlanLearning::hears(IntfId const& intf, IpAddr group) {
  auto const forgetting = forgetting_.find(intf);
  if (forgetting == forgetting_.end()) return;
  forgetting->second.hears(group);
  Kel::runActivities();
  if (forgetting->second.isOver()) forgetting_.erase(forgetting);
}

void VlanLearning::withdrawAll(IgmpIntfStatus const& intf) {
  for (auto const& [reporter, status] : intf.membership()) {
    auto& membership = static_cast<LearnedMembership&>(*status);
    if (!membership.withdrawn()) withdraw(membership);
  }
}

/// Readers take nothing back for a membership that goes, so it withdraws what it said first.
void VlanLearning::withdraw(LearnedMembership& membership) {
  if (withdrawn_.empty()) {
    batch_.addRemovals(*this);
    batch_.add(status_);
  }
  withdrawn_.push_back(
      {Kel::Ptr<LearnedMembership>(&membership), Kel::Ptr<LearnedIntf>(&membership.intf())});
  stateOf(membership).withdraw();
}

void VlanLearning::removeWithdrawn() {
  auto const withdrawn = std::exchange(withdrawn_, {});
  batch_.forget(*this);
  for (auto const& [membership, intf] : withdrawn) {
    // One that was forgotten twice in a batch is here twice.
    bool const isThere = intf->membership().find(membership->addr()) == membership.get();
    if (isThere && membership->withdrawn()) remove(*membership);
  }
  Kel::runActivities();

  // Readers do not look at the reporters that stay: "excluded by all of them" may now be true of
  // more sources, which they find out when one of those speaks up.
  for (auto const& [membership, intf] : withdrawn)
    if (!intf->membership().empty())
      intf->membership().find(intf->membership().keyAt(0))->filterModeNotify();
  Kel::runActivities();
}

void VlanLearning::remove(LearnedMembership& membership) {
  Kel::Ptr<LearnedIntf> const intf(&membership.intf());
  Kel::Ptr<LearnedGroup> const group(&intf->group());
  intf->membershipDel(membership.addr());
  if (intf->membership().empty()) group->intfDel(intf->intfId());
  if (group->intf().empty()) status_->groupDel(group->addr());
}

}  // namespace Bridging::IgmpSnooping
