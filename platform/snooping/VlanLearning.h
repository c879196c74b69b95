#pragma once

#include <optional>

#include "framework/entities/IgmpContextStatus.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/Message.h"
#include "platform/snooping/FilterState.h"
#include "platform/snooping/LearnedMembership.h"
#include "platform/snooping/ReportBatch.h"
#include "platform/snooping/SnoopingPolicy.h"

namespace Bridging::IgmpSnooping {

/// Learns the memberships of one VLAN from reports and leaves, and is the only writer of the
/// VLAN's status. Each change is published in turns, because the status's readers hear of it when
/// activities run, and take a reporter that has just appeared for one that wants every source:
/// entities first, then what they say. The last turn, `newIgmpReport`, comes at the end of the
/// batch, which must outlive the learning.
class KEL_EXPORT VlanLearning {
 public:
  VlanLearning(Kel::Ptr<IgmpContextStatus> status, SnoopingPolicy const& policy,
               Kel::Ptr<Horix::TimerWheel const> timerWheel, ReportBatch& batch);
  VlanLearning(VlanLearning const&) = delete;
  VlanLearning& operator=(VlanLearning const&) = delete;
  ~VlanLearning();

  VlanId vlanId() const { return status_->vlanId(); }
  SnoopingPolicy const& policy() const { return policy_; }
  Kel::Ptr<IgmpContextStatus> const& status() const { return status_; }

  /// A group record of an IGMPv3 report. Returns why it was ignored, if it was.
  std::optional<Igmp::Cause> record(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                    Igmp::GroupRecord const& record);

  /// An IGMPv1 or IGMPv2 report. Returns why it was ignored, if it was.
  std::optional<Igmp::Cause> report(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                    Wirex::IpAddr group);

  /// An IGMPv2 leave.
  void leave(Wirex::IntfId const& intf, Wirex::IpAddr reporter, Wirex::IpAddr group);

  /// Forgets a membership.
  void forget(LearnedMembership& membership);

 private:
  LearnedMembership* find(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                          Wirex::IpAddr group) const;
  Kel::Ptr<LearnedMembership> make(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                   Wirex::IpAddr group);
  std::optional<Igmp::Cause> learn(Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                                   Wirex::IpAddr group, LearnedMembership* known,
                                   FilterState const& state);
  void remove(LearnedMembership& membership);

  Kel::Ptr<IgmpContextStatus> status_;
  SnoopingPolicy policy_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  ReportBatch& batch_;
};

}  // namespace Bridging::IgmpSnooping
