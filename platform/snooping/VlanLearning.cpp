#include "platform/snooping/VlanLearning.h"

#include <algorithm>
#include <new>
#include <utility>

#include "framework/kel/Trace.h"
#include "platform/igmp/RecordNames.h"

KEL_TRACE_MODULE("IgmpSnooping::VlanLearning", "VlanLearning")

namespace Bridging::IgmpSnooping {

using Igmp::IgnoreReason;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

constexpr IpAddr manyReporters{};

/// "swp1 239.1.1.1 of 192.0.2.9: INCLUDE(198.51.100.1)", in traces.
struct Told {
  LearnedMembership const& what;

  friend std::ostream& operator<<(std::ostream& out, Told const& told) {
    LearnedMembership const& membership = told.what;
    out << membership.intf().intfId() << ' ' << membership.intf().group().addr() << " of "
        << membership.addr() << (membership.includes() ? ": INCLUDE(" : ": EXCLUDE(");
    char const* separator = "";
    for (IpAddr const source : membership.source()) out << std::exchange(separator, ", ") << source;
    return out << ')';
  }
};

}  // namespace

VlanLearning::VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
                           Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch)
    : MembershipWriter(std::move(status)),
      policy_(policy),
      timerWheel_(std::move(timerWheel)),
      batch_(batch) {}

VlanLearning::~VlanLearning() {
  forgetting_.clear();
  batch_.forget(*this);
  // Whoever still holds a membership must not keep its timer, which calls back.
  for (auto const& [address, group] : status()->group())
    for (auto const& [name, intf] : group->intf())
      for (auto const& [reporter, membership] : intf->membership())
        static_cast<LearnedMembership&>(*membership).cancel();
  groupDelAll();
}

/// Also when memory has run out, which is what ends many: whoever cannot be told any more finds
/// nothing left.
void VlanLearning::groupDelAll() noexcept {
  try {
    status()->groupDelAll();
  } catch (std::bad_alloc const&) {
    auto const& groups = status()->group();
    while (!groups.empty()) {
      try {
        status()->groupDel(groups.keyAt(groups.size() - 1));
      } catch (std::bad_alloc const&) {  // NOLINT(bugprone-empty-catch): it has gone all the same
      }
    }
  }
}

void VlanLearning::portDel(IntfId const& intf) {
  shares_.portDel(intf);
  turnedAway_.forget(intf);
}

std::optional<IgnoreReason> VlanLearning::record(IntfId const& intf, IpAddr reporter,
                                                 Igmp::GroupRecord const& record) {
  hears(intf, record.group);
  if (FilterState::isOfExcludeMode(record) && policy_.ssmRange.contains(record.group)) {
    noteTurnedAway(intf, reporter, record.group, IgnoreReason::ssmExclude);
    return IgnoreReason::ssmExclude;
  }
  LearnedMembership* const known = membership(intf, reporter, record.group);
  if (renewIfRepeated(known, reporter, record)) return std::nullopt;
  if (!known && !FilterState::begins(record)) return std::nullopt;
  return learn(known, intf, reporter, record.group, Igmp::nameOf(record.type),
               [&](FilterState& state) { state.hear(record, times()); });
}

std::optional<IgnoreReason> VlanLearning::report(IntfId const& intf, IpAddr reporter,
                                                 IpAddr group) {
  hears(intf, group);
  if (policy_.ssmRange.contains(group)) {
    noteTurnedAway(intf, reporter, group, IgnoreReason::ssmOlderReport);
    return IgnoreReason::ssmOlderReport;
  }
  LearnedMembership* const known = membership(intf, reporter, group);
  if (renewIfRepeated(known, reporter, {IgmpV3GroupRecordType::modeIsExclude, group, {}}))
    return std::nullopt;
  return learn(known, intf, reporter, group, "older report",
               [&](FilterState& state) { state.hearOlderReport(times()); });
}

void VlanLearning::leave(IntfId const& intf, IpAddr reporter, IpAddr group) {
  hears(intf, group);
  LearnedMembership* const known = membership(intf, reporter, group);
  if (!known || known->isForgotten()) return;
  // One of many cannot leave for the others.
  if (policy_.fastLeave && !known->isOfMany())
    forget(*known);
  else
    change(*known, "leave", [&](FilterState& state) { state.hearLeave(times()); });
}

std::optional<IgnoreReason> VlanLearning::restore(IntfId const& intf, IpAddr reporter, IpAddr group,
                                                  TimedFilter const& filter, Horix::Time since) {
  hears(intf, group);
  auto const refusal = learn(membership(intf, reporter, group), intf, reporter, group, "restored",
                             [&](FilterState& state) { state.restore(filter); });
  if (LearnedMembership* const restored = membership(intf, reporter, group))
    restored->sinceIs(std::min(since, restored->since()));
  return refusal;
}

/// Renews what is known if a record says just that again, and speaks for the reporter alone.
bool VlanLearning::renewIfRepeated(LearnedMembership* known, IpAddr reporter,
                                   Igmp::GroupRecord const& record) const {
  return known && known->addr() == reporter &&
         FilterState::hearRepeated(record, *known, *timerWheel_,
                                   timerWheel_->now() + policy_.groupMembershipInterval());
}

/// Has a reporter's state, which `hear` changes, be what the reporter's membership says.
template <class Hear>
std::optional<IgnoreReason> VlanLearning::learn(LearnedMembership* known, IntfId const& intf,
                                                IpAddr reporter, IpAddr group, char const* cause,
                                                Hear hear) {
  Kel::Ptr<IgmpMembership> held(known);
  if (!known) {
    if (auto const refusal = admit(intf, group)) {
      noteTurnedAway(intf, reporter, group, *refusal);
      return refusal;
    }
    held = make(group, intf, isCrowded(shares_.use(intf)) ? manyReporters : reporter).membership;
    known = static_cast<LearnedMembership*>(held.get());
    batch_.add(*this);
  }
  FilterState const state = change(*known, cause, hear);
  if (!state.refused() && known->addr() == reporter) return std::nullopt;
  IgnoreReason const reason =
      state.refused() ? refusalOf(*known) : IgnoreReason::tooManyMemberships;
  noteTurnedAway(intf, reporter, group, reason);
  return reason;
}

/// Which limit a membership has reached that was refused a source.
IgnoreReason VlanLearning::refusalOf(LearnedMembership const& membership) const {
  bool const byItself =
      policy_.maxGroupSources != 0 && membership.sourceCount() >= policy_.maxGroupSources;
  return byItself ? IgnoreReason::tooManySources : IgnoreReason::tooManyInterfaceSources;
}

/// Why a port may not have a group that it does not have yet.
std::optional<IgnoreReason> VlanLearning::admit(IntfId const& name, IpAddr address) {
  if (intf(name, address)) return std::nullopt;
  auto const refusal = [&] {
    auto const* const group = static_cast<LearnedGroup const*>(status()->group().find(address));
    return shares_.decide(shares_.use(name), group && group->commonIntfs() != 0, policy_).refusal;
  };
  auto const cause = refusal();
  if (!cause || !somebodyLeaves()) return cause;
  batch_.settle();
  return refusal();
}

bool VlanLearning::isCrowded(PortUse const& use) const {
  return policy_.maxInterfaceMemberships != 0 && use.memberships >= policy_.maxInterfaceMemberships;
}

FilterState VlanLearning::stateOf(LearnedMembership& membership) const {
  constexpr std::uint32_t unlimited = UINT32_MAX;
  std::uint32_t most = policy_.maxGroupSources != 0 ? policy_.maxGroupSources : unlimited;
  if (std::uint32_t const ofPort = policy_.maxInterfaceSources; ofPort != 0) {
    std::uint32_t const used = membership.intf().use().sources;
    most = std::min(most, membership.sourceCount() + (used < ofPort ? ofPort - used : 0));
  }
  return {membership, *timerWheel_, most};
}

FilterState::Times VlanLearning::times() const {
  Horix::Time const now = timerWheel_->now();
  return {now + policy_.groupMembershipInterval(), now + policy_.lastMemberQueryTime()};
}

/// Changes a membership, and has readers hear of it if there is something to hear.
template <class Change>
FilterState VlanLearning::change(LearnedMembership& membership, char const* cause, Change change) {
  std::uint32_t const before = membership.sourceCount();
  FilterState state = stateOf(membership);
  change(state);
  membership.intf().use().sources += membership.sourceCount() - before;
  if (state.changed()) {
    KEL_TRACE_OF("change", 4, cause << ' ' << Told{membership});
    written({Kel::Ptr<IgmpGroup>(&membership.intf().group()),
             Kel::Ptr<IgmpIntfStatus>(&membership.intf()), Kel::Ptr<IgmpMembership>(&membership)});
    batch_.add(*this);
    batch_.groupHasChanged(vlanId(), membership.intf().group().addr());
  }
  return state;
}

LearnedMembership* VlanLearning::membership(IntfId const& intf, IpAddr reporter,
                                            IpAddr group) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return nullptr;
  IgmpMembership* own = status->membership().find(reporter);
  if (!own && isCrowded(status->use())) own = status->membership().find(manyReporters);
  return static_cast<LearnedMembership*>(own);
}

LearnedIntf* VlanLearning::intf(IntfId const& intf, IpAddr group) const {
  IgmpGroup const* const found = status()->group().find(group);
  return static_cast<LearnedIntf*>(found ? found->intf().find(intf) : nullptr);
}

bool VlanLearning::hasMembers(IntfId const& intf, IpAddr group) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership())
    if (!static_cast<LearnedMembership&>(*membership).isForgotten()) return true;
  return false;
}

template <class Wants>
bool VlanLearning::isSomeoneWho(IntfId const& intf, IpAddr group, std::size_t& looks,
                                Wants wants) const {
  LearnedIntf const* const status = this->intf(intf, group);
  if (!status) return false;
  for (auto const& [reporter, membership] : status->membership()) {
    if (looks == 0) return false;
    --looks;
    if (wants(static_cast<LearnedMembership&>(*membership))) return true;
  }
  return false;
}

bool VlanLearning::wants(IntfId const& intf, IpAddr group, IpAddr source, Horix::Time end,
                         std::size_t& looks) const {
  return isSomeoneWho(intf, group, looks,
                      [&](auto const& membership) { return membership.wantedUntil(source) > end; });
}

bool VlanLearning::wantsEverySource(IntfId const& intf, IpAddr group, Horix::Time end,
                                    std::size_t& looks) const {
  return isSomeoneWho(intf, group, looks, [&](auto const& membership) {
    return membership.everySourceWantedUntil() > end;
  });
}

void VlanLearning::forget(LearnedMembership& membership) {
  if (membership.isForgotten()) return;
  change(membership, "forgotten", [](FilterState& state) { state.withdraw(); });
}

void VlanLearning::expire(LearnedMembership& membership) {
  Kel::Ptr<LearnedMembership> const held(&membership);
  change(membership, "time has run out", [](FilterState& state) { state.expire(); });
}

void VlanLearning::forgetGroup(IpAddr group) {
  if (IgmpGroup const* const found = status()->group().find(group))
    for (auto const& [name, intf] : found->intf()) forgetAll(*intf);
}

void VlanLearning::forgetPort(IntfId const& intf) {
  // One that has not come to its end would keep what was heard since it began.
  forgetting_.erase(intf);
  forgetting_.try_emplace(intf, status(), timerWheel_, [this, intf](IpAddr group) {
    if (LearnedIntf const* const found = this->intf(intf, group)) forgetAll(*found);
  });
}

/// What the port wanted before it was to be forgotten does not mix with what it says now.
void VlanLearning::hears(IntfId const& intf, IpAddr group) {
  auto const forgetting = forgetting_.find(intf);
  if (forgetting == forgetting_.end()) return;
  forgetting->second.hears(group);
  if (forgetting->second.isOver()) forgetting_.erase(forgetting);
}

void VlanLearning::forgetAll(IgmpIntfStatus const& intf) {
  for (auto const& [reporter, membership] : intf.membership())
    forget(static_cast<LearnedMembership&>(*membership));
}

void VlanLearning::repeat() {
  MembershipWriter::repeat();
  batch_.add(*this);
}

void VlanLearning::noteTurnedAway(IntfId const& intf, IpAddr reporter, IpAddr group,
                                  IgnoreReason reason) {
  bool const isNews = turnedAway_.add(intf, group, reporter, reason, timerWheel_->now());
  if (isNews && Igmp::isLimit(reason)) onLimit_({vlanId(), intf, reason, group, reporter});
}

void VlanLearning::removed(IgmpMembership& membership) {
  LearnedIntf const& intf = static_cast<LearnedMembership&>(membership).intf();
  --intf.use().memberships;
  if (!intf.membership().empty()) return;
  --intf.use().groups;
  if (intf.charge() == GroupCharge::share) {
    --intf.use().groupsOfShare;
  } else {
    intf.group().commonIntfDel();
    if (intf.group().commonIntfs() == 0) shares_.commonGroupRemoved();
  }
}

Kel::Ptr<IgmpGroup> VlanLearning::newGroup(IpAddr group) {
  return Kel::make<LearnedGroup>(group, *this);
}

Kel::Ptr<IgmpIntfStatus> VlanLearning::newIntf(IgmpGroup& status, IntfId const& intf) {
  auto& group = static_cast<LearnedGroup&>(status);
  PortUse& use = shares_.use(intf);
  GroupCharge const charge = shares_.decide(use, group.commonIntfs() != 0, policy_).charge;
  ++use.groups;
  if (charge == GroupCharge::share) {
    ++use.groupsOfShare;
  } else {
    if (group.commonIntfs() == 0) shares_.commonGroupAdded();
    group.commonIntfAdd();
  }
  return Kel::make<LearnedIntf>(intf, group, use, charge);
}

Kel::Ptr<IgmpMembership> VlanLearning::newMembership(IgmpIntfStatus& status, IpAddr reporter) {
  auto& intf = static_cast<LearnedIntf&>(status);
  ++intf.use().memberships;
  return Kel::make<LearnedMembership>(reporter, intf, timerWheel_->now());
}

}  // namespace Bridging::IgmpSnooping
