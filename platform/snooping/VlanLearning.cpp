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
  batch_.forget(*this);
  // Whoever still holds a membership must not keep its timer, which calls back.
  for (auto const& [address, group] : status_->group())
    for (auto const& [name, intf] : group->intf())
      for (auto const& [reporter, membership] : intf->membership())
        static_cast<LearnedMembership&>(*membership).cancel();
  status_->groupDelAll();
}

std::optional<Igmp::IgnoreReason> VlanLearning::record(IntfId const& intf, IpAddr reporter,
                                                       Igmp::GroupRecord const& record) {
  LearnedMembership* const known = membership(intf, reporter, record.group);
  if (known && !known->withdrawn() && FilterState::isRepeatedBy(record, *known)) {
    timerWheel_->schedule(*known, policy_.groupMembershipInterval());
    return std::nullopt;
  }
  return learn(intf, reporter, record.group, known, FilterState::after(record, known));
}

std::optional<Igmp::IgnoreReason> VlanLearning::report(IntfId const& intf, IpAddr reporter,
                                                       IpAddr group) {
  return learn(intf, reporter, group, membership(intf, reporter, group),
               FilterState::everySource());
}

void VlanLearning::leave(IntfId const& intf, IpAddr reporter, IpAddr group) {
  LearnedMembership* const known = membership(intf, reporter, group);
  if (!known || known->withdrawn()) return;
  if (policy_.fastLeave) {
    forget(*known);
    return;
  }
  Horix::Time const end = timerWheel_->now() + policy_.lastMemberQueryTime();
  if (end < known->deadline()) timerWheel_->scheduleAt(*known, end);
}

std::optional<Igmp::IgnoreReason> VlanLearning::learn(IntfId const& intf, IpAddr reporter,
                                                      IpAddr group, LearnedMembership* known,
                                                      FilterState const& state) {
  if (state.wantsNothing()) {
    if (known && !known->withdrawn()) forget(*known);
    return std::nullopt;
  }
  if (known && state.describes(*known)) {
    timerWheel_->schedule(*known, policy_.groupMembershipInterval());
    return std::nullopt;
  }
  if (policy_.maxGroupSources != 0 && state.sourceCount() > policy_.maxGroupSources)
    return Igmp::IgnoreReason::tooManySources;
  bool const newGroup = !known && !status_->group().contains(group);
  if (newGroup && policy_.maxGroups != 0) {
    if (status_->group().size() >= policy_.maxGroups) removeWithdrawn();
    if (status_->group().size() >= policy_.maxGroups) return Igmp::IgnoreReason::tooManyGroups;
  }

  Kel::Ptr<LearnedMembership> const membership =
      known ? Kel::Ptr<LearnedMembership>(known) : make(intf, reporter, group);
  state.applyTo(*membership);
  // One that wants every source was born so, and changes nothing. Its port is to look at it even
  // so: what other reporters there exclude is excluded no longer.
  if (!known) membership->filterModeNotify();
  Kel::runActivities();
  timerWheel_->schedule(*membership, policy_.groupMembershipInterval());
  batch_.add(status_);
  return std::nullopt;
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
  for (auto const& [reporter, membership] : status->membership()) {
    bool const includes = membership->filterMode() == Gmp::Igmp::IgmpFilterMode::include;
    if (membership->source(source) == includes &&
        static_cast<LearnedMembership&>(*membership).deadline() > end)
      return true;
  }
  return false;
}

bool VlanLearning::wantsEverySource(IntfId const& intf, IpAddr group, Horix::Time end) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership()) {
    if (membership->filterMode() == Gmp::Igmp::IgmpFilterMode::exclude &&
        static_cast<LearnedMembership&>(*membership).deadline() > end)
      return true;
  }
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

void VlanLearning::forgetGroup(IpAddr group) {
  if (IgmpGroup const* const status = status_->group().find(group))
    for (auto const& [name, intf] : status->intf()) withdrawAll(*intf);
  Kel::runActivities();
}

void VlanLearning::forgetPort(IntfId const& intf) {
  for (auto const& [address, group] : status_->group())
    if (IgmpIntfStatus const* const status = group->intf().find(intf)) withdrawAll(*status);
  Kel::runActivities();
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
  membership.cancel();
  membership.filterModeIs(Gmp::Igmp::IgmpFilterMode::include);
  membership.sourceDelAll();
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
