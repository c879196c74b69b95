#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>

#include "framework/entities/MembershipWriter.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/wire/Message.h"
#include "platform/snooping/FilterState.h"
#include "platform/snooping/LearnedMembership.h"
#include "platform/snooping/PortForgetting.h"
#include "platform/snooping/PortShares.h"
#include "platform/snooping/ReportBatch.h"
#include "platform/snooping/SnoopingPolicy.h"
#include "platform/snooping/TurnedAway.h"

namespace Bridging::IgmpSnooping {

/// Learns the memberships of one VLAN from reports and leaves, and is the only writer of the
/// VLAN's status. The status says at once what was learned; its readers hear of it when the batch
/// is published, which must outlive the learning.
class KEL_EXPORT VlanLearning final : private MembershipWriter {
 public:
  VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
               Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch);
  ~VlanLearning() override;

  VlanId vlanId() const { return status()->vlanId(); }
  /// Memberships stay as they are when it changes: a new timing holds from their next report on,
  /// and a lower limit from the next new group or source on.
  SnoopingPolicy const& policy() const { return policy_; }
  void policyIs(SnoopingPolicy const& policy) { policy_ = policy; }

  using MembershipWriter::status;

  /// The ports of the VLAN and its secondary ones, among which its groups are divided.
  void portIs(Wirex::IntfId const& intf) { shares_.portIs(intf); }
  void portDel(Wirex::IntfId const& intf);

  /// A group record of an IGMPv3 report. Returns why it was ignored, wholly or in part, if it was.
  std::optional<Igmp::IgnoreReason> record(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                           Igmp::GroupRecord const& record);

  /// An IGMPv1 or IGMPv2 report. Returns why it was ignored, if it was.
  std::optional<Igmp::IgnoreReason> report(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                           Wirex::IpAddr group);

  /// An IGMPv2 leave.
  void leave(Wirex::IntfId const& intf, Wirex::IpAddr reporter, Wirex::IpAddr group);

  /// Makes a membership that was known before, by this or a former learning, with the times that
  /// are left of it. What has ended meanwhile is not made. Returns why it was ignored, if it was.
  /// @param since when it was known first.
  std::optional<Igmp::IgnoreReason> restore(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                            Wirex::IpAddr group, TimedFilter const& filter,
                                            Horix::Time since = Horix::Time::max());

  /// Forgets memberships: one, those of a group, those of a port; these piece by piece, if they are
  /// many. They want nothing any more from now on, and go when the batch is published.
  void forget(LearnedMembership& membership);
  /// The memberships of a group.
  void forgetGroup(Wirex::IpAddr group);
  /// The memberships of a port, piece by piece if they are many.
  void forgetPort(Wirex::IntfId const& intf);

  /// A membership's timer is due.
  void expire(LearnedMembership& membership);

  /// Has readers that are new to the status hear all of it.
  void repeat();

  /// For its ReportBatch alone.
  using MembershipWriter::settle;

  /// The end of a batch: readers hear what has changed.
  void publish() { MembershipWriter::publish(); }

  /// The membership that speaks for a reporter: its own, or where the port has as many as it may
  /// have the one into which further ones are merged. Null if there is none.
  LearnedMembership* membership(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                Wirex::IpAddr group) const;

  /// Whether somebody on the port is a member of the group.
  bool hasMembers(Wirex::IntfId const& intf, Wirex::IpAddr group) const;

  /// Whether somebody on a port wants this source of a group, or every source but some, beyond a
  /// point in time if no more is heard.
  /// @param looks at how many memberships to look at most; afterwards what is left of that. Who is
  /// not found by then wants nothing.
  bool wants(Wirex::IntfId const& intf, Wirex::IpAddr group, Wirex::IpAddr source, Horix::Time end,
             std::size_t& looks) const;
  /// As `wants()`, of every source but some.
  bool wantsEverySource(Wirex::IntfId const& intf, Wirex::IpAddr group, Horix::Time end,
                        std::size_t& looks) const;

  /// Remembers that something was turned away, for those who ask why.
  void noteTurnedAway(Wirex::IntfId const& intf, Wirex::IpAddr reporter, Wirex::IpAddr group,
                      Igmp::IgnoreReason reason);
  /// What was turned away lately, and why.
  TurnedAway const& turnedAway() const { return turnedAway_; }

  /// Who hears of limits that ports reach: of each at most once a minute.
  using OnLimit = std::function<void(LimitReached const&)>;
  void onLimitIs(OnLimit action) { onLimit_ = std::move(action); }

 private:
  LearnedIntf* intf(Wirex::IntfId const& intf, Wirex::IpAddr group) const;
  template <class Wants>
  bool isSomeoneWho(Wirex::IntfId const& intf, Wirex::IpAddr group, std::size_t& looks,
                    Wants wants) const;
  Igmp::IgnoreReason refusalOf(LearnedMembership const& membership) const;
  bool isCrowded(PortUse const& use) const;

  bool renewIfRepeated(LearnedMembership* known, Wirex::IpAddr reporter,
                       Igmp::GroupRecord const& record) const;
  template <class Hear>
  std::optional<Igmp::IgnoreReason> learn(LearnedMembership* known, Wirex::IntfId const& intf,
                                          Wirex::IpAddr reporter, Wirex::IpAddr group,
                                          char const* cause, Hear hear);
  std::optional<Igmp::IgnoreReason> admit(Wirex::IntfId const& name, Wirex::IpAddr address);
  FilterState stateOf(LearnedMembership& membership) const;
  FilterState::Times times() const;
  template <class Change>
  FilterState change(LearnedMembership& membership, char const* cause, Change change);
  void forgetAll(IgmpIntfStatus const& intf);
  void groupDelAll() noexcept;
  void hears(Wirex::IntfId const& intf, Wirex::IpAddr group);

  void removed(IgmpMembership& membership) override;
  Kel::Ptr<IgmpGroup> newGroup(Wirex::IpAddr group) override;
  Kel::Ptr<IgmpIntfStatus> newIntf(IgmpGroup& status, Wirex::IntfId const& intf) override;
  Kel::Ptr<IgmpMembership> newMembership(IgmpIntfStatus& status, Wirex::IpAddr reporter) override;

  SnoopingPolicy policy_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  ReportBatch& batch_;
  std::map<Wirex::IntfId, PortForgetting> forgetting_;
  PortShares shares_;
  TurnedAway turnedAway_;
  OnLimit onLimit_ = [](LimitReached const&) {};
};

}  // namespace Bridging::IgmpSnooping
