#pragma once

#include <map>
#include <optional>
#include <vector>

#include "framework/entities/IgmpContextStatus.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/wire/Message.h"
#include "platform/snooping/FilterState.h"
#include "platform/snooping/LearnedMembership.h"
#include "platform/snooping/PortForgetting.h"
#include "platform/snooping/ReportBatch.h"
#include "platform/snooping/SnoopingPolicy.h"

namespace Bridging::IgmpSnooping {

/// Learns the memberships of one VLAN from reports and leaves, and is the only writer of the
/// VLAN's status. Each change is published in turns, because the status's readers hear of it when
/// activities run, and take a reporter that has just appeared for one that wants every source:
/// entities first, then what they say. The last turns come when the batch is published, which must
/// outlive the learning: what was forgotten goes, and `newIgmpReport` is raised.
class KEL_EXPORT VlanLearning {
 public:
  VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
               Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch);
  VlanLearning(VlanLearning const&) = delete;
  VlanLearning& operator=(VlanLearning const&) = delete;
  ~VlanLearning();

  VlanId vlanId() const { return status_->vlanId(); }
  /// Memberships stay as they are when it changes: a new timing holds from their next report on,
  /// and a lower limit from the next new group or source on.
  SnoopingPolicy const& policy() const { return policy_; }
  void policyIs(SnoopingPolicy const& policy) { policy_ = policy; }

  Kel::Ptr<IgmpContextStatus> const& status() const { return status_; }

  /// A group record of an IGMPv3 report. Returns why it was ignored, if it was.
  std::optional<Igmp::IgnoreReason> record(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                           Igmp::GroupRecord const& record);

  /// An IGMPv1 or IGMPv2 report. Returns why it was ignored, if it was.
  std::optional<Igmp::IgnoreReason> report(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                           Wirex::IpAddr group);

  /// An IGMPv2 leave.
  void leave(Wirex::IntfId const& intf, Wirex::IpAddr reporter, Wirex::IpAddr group);

  /// Makes a membership that was known before, by this or a former learning, with the times that
  /// are left of it. What has ended meanwhile is not made. Returns why it was ignored, if it was.
  std::optional<Igmp::IgnoreReason> restore(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                            Wirex::IpAddr group, TimedFilter const& filter);

  /// Forgets memberships: one, those of a group, those of a port; these piece by piece, if they are
  /// many. However many a piece has, each turn is made once for it. They want nothing any more from
  /// now on, but stay until the end of the batch, so that readers who tell others of what has gone
  /// can tell it together.
  void forget(LearnedMembership& membership);
  void forgetGroup(Wirex::IpAddr group);
  void forgetPort(Wirex::IntfId const& intf);

  /// A membership's timer is due.
  void expire(LearnedMembership& membership);

  /// Removes what was forgotten and has not spoken up again: the end of the batch calls it.
  void removeWithdrawn();

  /// A reporter's membership, or null.
  LearnedMembership* membership(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                Wirex::IpAddr group) const;

  bool hasMembers(Wirex::IntfId const& intf, Wirex::IpAddr group) const;

  /// Whether somebody on a port wants this source of a group, or every source but some, beyond a
  /// point in time if no more is heard.
  bool wants(Wirex::IntfId const& intf, Wirex::IpAddr group, Wirex::IpAddr source,
             Horix::Time end) const;
  bool wantsEverySource(Wirex::IntfId const& intf, Wirex::IpAddr group, Horix::Time end) const;

 private:
  /// A membership that was forgotten, and where it stands.
  struct Withdrawn {
    Kel::Ptr<LearnedMembership> membership;
    Kel::Ptr<LearnedIntf> intf;
  };

  LearnedIntf* intf(Wirex::IntfId const& intf, Wirex::IpAddr group) const;
  Kel::Ptr<LearnedMembership> make(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                   Wirex::IpAddr group);
  template <class Hear>
  std::optional<Igmp::IgnoreReason> learn(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                          Wirex::IpAddr group, Hear hear);
  std::optional<Igmp::IgnoreReason> refusal(Wirex::IpAddr group);
  FilterState stateOf(LearnedMembership& membership) const;
  FilterState::Times times() const;
  void publish(LearnedMembership& membership, FilterState const& state, bool isNew);
  void withdraw(LearnedMembership& membership);
  void withdrawAll(IgmpIntfStatus const& intf);
  void hears(Wirex::IntfId const& intf, Wirex::IpAddr group);
  void remove(LearnedMembership& membership);

  Kel::Ptr<IgmpContextStatus> status_;
  SnoopingPolicy policy_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  ReportBatch& batch_;
  std::vector<Withdrawn> withdrawn_;  // in this batch
  std::map<Wirex::IntfId, PortForgetting> forgetting_;
};

}  // namespace Bridging::IgmpSnooping
