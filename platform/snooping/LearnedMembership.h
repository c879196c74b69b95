#pragma once

#include "framework/entities/IgmpContextStatus.h"
#include "platform/horix/Timer.h"

namespace Bridging::IgmpSnooping {

class VlanLearning;

/// The status entities as learning makes them: each knows the one above it, and a membership
/// carries the timer that ends it. Learning is the only writer of its VLAN's status, so every
/// group, interface and membership there is one of these.
class LearnedGroup final : public IgmpGroup {
 public:
  LearnedGroup(Wirex::IpAddr address, VlanLearning& vlan) : IgmpGroup(address), vlan_(vlan) {}

  VlanLearning& vlan() const { return vlan_; }

 private:
  VlanLearning& vlan_;
};

class LearnedIntf final : public IgmpIntfStatus {
 public:
  LearnedIntf(Wirex::IntfId const& intf, LearnedGroup& group)
      : IgmpIntfStatus(intf), group_(group) {}

  LearnedGroup& group() const { return group_; }

 private:
  LearnedGroup& group_;
};

class KEL_EXPORT LearnedMembership final : public IgmpMembership, public Horix::Timer {
 public:
  LearnedMembership(Wirex::IpAddr reporter, LearnedIntf& intf)
      : IgmpMembership(reporter), intf_(intf) {}

  LearnedIntf& intf() const { return intf_; }
  /// Whether it was forgotten, and goes at the end of the batch: its timer does not run.
  bool withdrawn() const { return !scheduled(); }

 private:
  void onExpiry() override;

  LearnedIntf& intf_;
};

}  // namespace Bridging::IgmpSnooping
