#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IgmpFilterMode.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

/// What snooping has learned in one VLAN: groups, their member ports, and each port's reporters.
/// The agent writes these entities, the proxy reads them. Agents may derive from group, port and
/// membership to keep what belongs to their learning beside them.
namespace Bridging::IgmpSnooping {

/// One reporter's membership of a group on one interface.
class KEL_EXPORT IgmpMembership : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpMembership const> {
   public:
    virtual void onFilterMode() {}
    virtual void onSource(Wirex::IpAddr /*source*/) {}
    virtual void onSourcekelImmediate() {}
    /// The changes of both, at once: for keeping counts of what memberships say.
    virtual void onFilterModeAtOnce() {}
    virtual void onSourceAtOnce(Wirex::IpAddr /*source*/) {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using FilterMode = Gmp::Igmp::IgmpFilterMode;
  using Sources = Kel::Set<Wirex::IpAddr, &NotifieeConst::onSource, &NotifieeConst::onSourceAtOnce>;

  explicit IgmpMembership(Wirex::IpAddr reporter) : addr_(reporter) {}

  /// The reporter.
  Wirex::IpAddr addr() const { return addr_; }

  FilterMode filterMode() const { return filterMode_.get(); }
  void filterModeIs(FilterMode mode) { filterMode_.is(*this, mode); }
  void filterModeNotify() { filterMode_.notify(*this); }

  Sources const& source() const { return source_; }
  bool source(Wirex::IpAddr source) const { return source_.contains(source); }
  void sourceIs(Wirex::IpAddr source) { source_.is(*this, source); }
  void sourceDel(Wirex::IpAddr source) { source_.del(*this, source); }
  void sourceDelAll() { source_.delAll(*this); }
  void sourceNotify(Wirex::IpAddr source) { source_.notify(*this, source); }
  void sourceNotify() { notify<&NotifieeConst::onSourcekelImmediate>(); }

 private:
  Wirex::IpAddr addr_;
  Kel::Value<FilterMode, &NotifieeConst::onFilterMode, &NotifieeConst::onFilterModeAtOnce>
      filterMode_;
  Sources source_;
};

/// One interface with listeners of a group.
class KEL_EXPORT IgmpIntfStatus : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpIntfStatus const> {
   public:
    virtual void onMembership(Wirex::IpAddr /*reporter*/) {}
    virtual void onMembershipkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Memberships = Kel::Members<Wirex::IpAddr, IgmpMembership, &NotifieeConst::onMembership>;

  explicit IgmpIntfStatus(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

  Wirex::IntfId const& intfId() const { return intfId_; }

  Memberships const& membership() const { return membership_; }
  Kel::Ptr<IgmpMembership const> membership(Wirex::IpAddr reporter) const {
    return membership_.get(reporter);
  }
  Kel::Ptr<IgmpMembership> membership(Wirex::IpAddr reporter) { return membership_.get(reporter); }
  Kel::Ptr<IgmpMembership> newMembership(Wirex::IpAddr reporter) const {
    return Kel::make<IgmpMembership>(reporter);
  }
  Kel::Ptr<IgmpMembership> membershipIs(Wirex::IpAddr reporter) {
    return membership_.is(*this, reporter);
  }
  /// Puts a membership in the place of what its reporter has.
  void membershipIs(Kel::Ptr<IgmpMembership> const& membership) {
    auto const& added =
        Kel::nonNull(membership, "Bridging::IgmpSnooping::IgmpIntfStatus", "membership");
    membership_.put(*this, added.addr(), membership);
  }
  void membershipDel(Wirex::IpAddr reporter) { membership_.del(*this, reporter); }
  void membershipDelAll() { membership_.delAll(*this); }
  void membershipNotify(Wirex::IpAddr reporter) { membership_.notify(*this, reporter); }
  void membershipNotify() { notify<&NotifieeConst::onMembershipkelImmediate>(); }

 private:
  Wirex::IntfId intfId_;
  [[no_unique_address]] Memberships membership_;  // what derives has the room behind it
};

/// One group that has listeners.
class KEL_EXPORT IgmpGroup : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpGroup const> {
   public:
    virtual void onIntf(Wirex::IntfId /*intf*/) {}
    virtual void onIntfkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Intfs = Kel::Members<Wirex::IntfId, IgmpIntfStatus, &NotifieeConst::onIntf>;

  explicit IgmpGroup(Wirex::IpAddr address) : addr_(address) {}

  /// The group address.
  Wirex::IpAddr addr() const { return addr_; }

  Intfs const& intf() const { return intf_; }
  Kel::Ptr<IgmpIntfStatus const> intf(Wirex::IntfId const& intf) const { return intf_.get(intf); }
  Kel::Ptr<IgmpIntfStatus> intf(Wirex::IntfId const& intf) { return intf_.get(intf); }
  Kel::Ptr<IgmpIntfStatus> newIntf(Wirex::IntfId const& intf) const {
    return Kel::make<IgmpIntfStatus>(intf);
  }
  Kel::Ptr<IgmpIntfStatus> intfIs(Wirex::IntfId const& intf) { return intf_.is(*this, intf); }
  /// Puts an interface status in the place of what its interface has.
  void intfIs(Kel::Ptr<IgmpIntfStatus> const& status) {
    auto const& added = Kel::nonNull(status, "Bridging::IgmpSnooping::IgmpGroup", "intf");
    intf_.put(*this, added.intfId(), status);
  }
  void intfDel(Wirex::IntfId const& intf) { intf_.del(*this, intf); }
  void intfDelAll() { intf_.delAll(*this); }
  void intfNotify(Wirex::IntfId const& intf) { intf_.notify(*this, intf); }
  void intfNotify() { notify<&NotifieeConst::onIntfkelImmediate>(); }

 private:
  Wirex::IpAddr addr_;
  Intfs intf_;
};

/// The snooping status of one VLAN. Its readers need its changes in a certain order, which
/// MembershipWriter keeps: write memberships through one.
class KEL_EXPORT IgmpContextStatus : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpContextStatus const> {
   public:
    virtual void onGroup(Wirex::IpAddr /*group*/) {}
    virtual void onGroupkelImmediate() {}
    virtual void onNewIgmpReport() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Groups = Kel::Members<Wirex::IpAddr, IgmpGroup, &NotifieeConst::onGroup>;

  explicit IgmpContextStatus(VlanId vlanId) : vlanId_(vlanId) {}

  VlanId vlanId() const { return vlanId_; }

  Groups const& group() const { return group_; }
  Kel::Ptr<IgmpGroup const> group(Wirex::IpAddr group) const { return group_.get(group); }
  Kel::Ptr<IgmpGroup> group(Wirex::IpAddr group) { return group_.get(group); }
  Kel::Ptr<IgmpGroup> newGroup(Wirex::IpAddr group) const { return Kel::make<IgmpGroup>(group); }
  Kel::Ptr<IgmpGroup> groupIs(Wirex::IpAddr group) { return group_.is(*this, group); }
  /// Puts a group in the place of what its address has.
  void groupIs(Kel::Ptr<IgmpGroup> const& group) {
    auto const& added = Kel::nonNull(group, "Bridging::IgmpSnooping::IgmpContextStatus", "group");
    group_.put(*this, added.addr(), group);
  }
  void groupDel(Wirex::IpAddr group) { group_.del(*this, group); }
  void groupDelAll() { group_.delAll(*this); }
  void groupNotify(Wirex::IpAddr group) { group_.notify(*this, group); }
  void groupNotify() { notify<&NotifieeConst::onGroupkelImmediate>(); }

  /// The agent raises this after it has processed one or more reports.
  void newIgmpReportNotify() { notify<&NotifieeConst::onNewIgmpReport>(); }

 private:
  VlanId vlanId_;
  Groups group_;
};

/// The snooping status of all VLANs.
class KEL_EXPORT IgmpProtocolStatus : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpProtocolStatus const> {
   public:
    virtual void onContextStatus(VlanId /*vlan*/) {}
    virtual void onContextStatuskelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using ContextStatuses = Kel::Members<VlanId, IgmpContextStatus, &NotifieeConst::onContextStatus>;

  ContextStatuses const& contextStatus() const { return contextStatus_; }
  Kel::Ptr<IgmpContextStatus const> contextStatus(VlanId vlan) const {
    return contextStatus_.get(vlan);
  }
  Kel::Ptr<IgmpContextStatus> contextStatus(VlanId vlan) { return contextStatus_.get(vlan); }
  Kel::Ptr<IgmpContextStatus> newContextStatus(VlanId vlan) const {
    return Kel::make<IgmpContextStatus>(vlan);
  }
  Kel::Ptr<IgmpContextStatus> contextStatusIs(VlanId vlan) {
    return contextStatus_.is(*this, vlan);
  }
  void contextStatusDel(VlanId vlan) { contextStatus_.del(*this, vlan); }
  void contextStatusDelAll() { contextStatus_.delAll(*this); }
  void contextStatusNotify(VlanId vlan) { contextStatus_.notify(*this, vlan); }
  void contextStatusNotify() { notify<&NotifieeConst::onContextStatuskelImmediate>(); }

 private:
  ContextStatuses contextStatus_;
};

}  // namespace Bridging::IgmpSnooping
