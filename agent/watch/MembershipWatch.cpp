#include "agent/watch/MembershipWatch.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "agent/text/NaturalOrder.h"
#include "agent/watch/ChunkedWalk.h"
#include "agent/watch/FollowOrNull.h"

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IgmpIntfStatus;
using Bridging::IgmpSnooping::IgmpMembership;
using Bridging::IgmpSnooping::IgmpProtocolStatus;
using Wirex::IntfId;
using Wirex::IpAddr;

// A branch that has gone is followed down to its reporters, who are touched, and stays until the
// next settled state.

/// Follows a reporter's membership, which may be none, and knows its last settled state.
class MembershipWatch::Reporter final : public IgmpMembership::NotifieeConst {
 public:
  Reporter(Kel::Ptr<IgmpMembership const> const& membership, IpAddr address, Interface& interface)
      : address_(address), interface_(interface) {
    watch(membership);
    touch();
  }

  void notifierIs(Kel::Ptr<IgmpMembership const> membership) override {
    NotifieeConst::notifierIs(std::move(membership));
    touch();
  }
  void onFilterMode() override {
    if (notificationActive()) touch();
  }
  void onSource(IpAddr /*source*/) override {
    if (notificationActive()) touch();
  }

  std::optional<MembershipChange> takeChange();
  void goIfGone();

 private:
  void touch();

  IpAddr address_;
  Interface& interface_;
  bool touched_ = false;
  std::optional<SourceFilter> settled_;
};

class MembershipWatch::Interface final : public IgmpIntfStatus::NotifieeConst {
 public:
  Interface(Kel::Ptr<IgmpIntfStatus const> const& status, IntfId id, Group& group)
      : id_(std::move(id)), group_(group) {
    watch(status);
    followAll();
  }

  IntfId const& id() const { return id_; }
  Group& group() const { return group_; }
  bool isGone() const { return !notifier() && reporters_.empty(); }

  void notifierIs(Kel::Ptr<IgmpIntfStatus const> status) override {
    NotifieeConst::notifierIs(std::move(status));
    for (IpAddr const reporter : reporters_.keys()) follow(reporter);
    followAll();
  }
  void onMembership(IpAddr reporter) override {
    if (notificationActive()) follow(reporter);
  }
  void forget(IpAddr reporter) { reporters_.del(reporter); }

 private:
  void followAll() {
    if (!notifier()) return;
    for (IpAddr const reporter : notifier()->membership().keys()) follow(reporter);
  }
  void follow(IpAddr reporter) {
    Kel::Ptr<IgmpMembership const> const membership =
        notifier() ? notifier()->membership(reporter) : nullptr;
    followOrNull(reporters_, reporter, membership,
                 [&] { return Kel::make<Reporter>(membership, reporter, *this); });
  }

  IntfId id_;
  Group& group_;
  Kel::Reactors<IpAddr, Reporter> reporters_;
};

class MembershipWatch::Group final : public IgmpGroup::NotifieeConst {
 public:
  Group(Kel::Ptr<IgmpGroup const> const& status, IpAddr address, Vlan& vlan)
      : address_(address), vlan_(vlan) {
    watch(status);
    followAll();
  }

  IpAddr address() const { return address_; }
  Vlan& vlan() const { return vlan_; }
  bool isGone() const { return !notifier() && interfaces_.empty(); }

  void notifierIs(Kel::Ptr<IgmpGroup const> status) override {
    NotifieeConst::notifierIs(std::move(status));
    for (IntfId const& intf : interfaces_.keys()) follow(intf);
    followAll();
  }
  void onIntf(IntfId intf) override {
    if (notificationActive()) follow(intf);
  }
  void forget(IntfId const& intf) { interfaces_.del(intf); }

 private:
  void followAll() {
    if (!notifier()) return;
    for (IntfId const& intf : notifier()->intf().keys()) follow(intf);
  }
  void follow(IntfId const& intf);

  IpAddr address_;
  Vlan& vlan_;
  Kel::Reactors<IntfId, Interface> interfaces_;
};

class MembershipWatch::Vlan final : public IgmpContextStatus::NotifieeConst {
 public:
  Vlan(Kel::Ptr<IgmpContextStatus const> const& status, VlanId id, Protocol& protocol)
      : id_(id), protocol_(protocol), left_(status->group().size()) {
    watch(status);
  }

  VlanId id() const { return id_; }
  Protocol& protocol() const { return protocol_; }
  bool isGone() const { return !notifier() && groups_.empty(); }

  void notifierIs(Kel::Ptr<IgmpContextStatus const> status) override {
    NotifieeConst::notifierIs(std::move(status));
    for (IpAddr const group : groups_.keys()) follow(group);
    followAll();
  }
  void onGroup(IpAddr group) override {
    if (notificationActive()) follow(group);
  }
  void forget(IpAddr group) { groups_.del(group); }

  void followAll() {
    if (!notifier()) return;
    for (IpAddr const group : notifier()->group().keys()) follow(group);
  }

  bool watchSome(std::size_t& groups) {
    return notifier() &&
           left_.advance(notifier()->group(), groups, [this](IpAddr group) { follow(group); });
  }
  bool unwatchSome(std::size_t& groups) {
    NotifieeConst::notifierIs(nullptr);
    return delSome(groups_, groups);
  }

 private:
  void follow(IpAddr group);

  VlanId id_;
  Protocol& protocol_;
  ChunkedWalk left_;  // over the groups that are not watched yet
  Kel::Reactors<IpAddr, Group> groups_;
};

class MembershipWatch::Protocol final : public IgmpProtocolStatus::NotifieeConst {
 public:
  Protocol(Kel::Ptr<IgmpProtocolStatus const> const& status, MembershipWatch& watch)
      : watch_(watch) {
    NotifieeConst::watch(status);
    for (VlanId const vlan : status->contextStatus().keys()) follow(vlan);
  }

  MembershipWatch& membershipWatch() const { return watch_; }
  Selection const& of() const { return watch_.of_; }

  void onContextStatus(VlanId vlan) override {
    if (!notificationActive()) return;
    follow(vlan);
    if (auto const followed = vlans_.get(vlan)) followed->followAll();
  }
  void forget(VlanId vlan) { vlans_.del(vlan); }

  bool watchSome(std::size_t groups) {
    bool more = false;
    for (auto const& [id, vlan] : vlans_) more |= vlan->watchSome(groups);
    return more;
  }

  bool unwatchSome(std::size_t groups) {
    bool more = false;
    for (auto const& [id, vlan] : vlans_) more |= vlan->unwatchSome(groups);
    return more;
  }

 private:
  void follow(VlanId vlan) {
    if (!of().has(vlan)) return;
    Kel::Ptr<IgmpContextStatus const> const status = notifier()->contextStatus(vlan);
    followOrNull(vlans_, vlan, status, [&] { return Kel::make<Vlan>(status, vlan, *this); });
  }

  MembershipWatch& watch_;
  Kel::Reactors<VlanId, Vlan> vlans_;
};

// ---- Interfaces and groups

void MembershipWatch::Group::follow(IntfId const& intf) {
  if (!vlan_.protocol().of().has(intf)) return;
  Kel::Ptr<IgmpIntfStatus const> const status = notifier() ? notifier()->intf(intf) : nullptr;
  followOrNull(interfaces_, intf, status,
               [&] { return Kel::make<Interface>(status, intf, *this); });
}

void MembershipWatch::Vlan::follow(IpAddr group) {
  if (!protocol_.of().has(group)) return;
  Kel::Ptr<IgmpGroup const> const status = notifier() ? notifier()->group(group) : nullptr;
  followOrNull(groups_, group, status, [&] { return Kel::make<Group>(status, group, *this); });
}

// ---- Reporter

void MembershipWatch::Reporter::touch() {
  if (std::exchange(touched_, true)) return;
  interface_.group().vlan().protocol().membershipWatch().touched_.emplace_back(this);
}

std::optional<MembershipChange> MembershipWatch::Reporter::takeChange() {
  touched_ = false;
  std::optional<SourceFilter> present;
  if (notifier()) present = filterOf(*notifier());
  if (present == settled_) return std::nullopt;
  Group const& group = interface_.group();
  return MembershipChange{group.vlan().id(),
                          group.address(),
                          interface_.id(),
                          address_,
                          std::exchange(settled_, present),
                          present};
}

/// What is left of the branch goes with its last reporter.
void MembershipWatch::Reporter::goIfGone() {
  if (notifier()) return;
  Kel::Ptr<Interface> const interface(&interface_);
  Kel::Ptr<Group> const group(&interface->group());
  Kel::Ptr<Vlan> const vlan(&group->vlan());
  interface->forget(address_);
  if (interface->isGone()) group->forget(interface->id());
  if (group->isGone()) vlan->forget(group->address());
  if (vlan->isGone()) vlan->protocol().forget(vlan->id());
}

// ---- MembershipWatch

MembershipWatch::MembershipWatch(Kel::Ptr<IgmpProtocolStatus> const& protocolStatus, Selection of)
    : of_(std::move(of)), protocol_(Kel::make<Protocol>(protocolStatus, *this)) {}

MembershipWatch::~MembershipWatch() = default;

bool MembershipWatch::watchSome(std::size_t groups) {
  bool const more = protocol_->watchSome(groups);
  takeChanges();
  return more;
}

bool MembershipWatch::unwatchSome(std::size_t groups) {
  touched_.clear();
  return protocol_->unwatchSome(groups);
}

std::vector<MembershipChange> MembershipWatch::takeChanges() {
  std::vector<MembershipChange> changes;
  for (Kel::Ptr<Reporter> const& reporter : std::exchange(touched_, {})) {
    if (auto change = reporter->takeChange()) changes.push_back(std::move(*change));
    reporter->goIfGone();
  }
  std::sort(changes.begin(), changes.end(),
            [](MembershipChange const& a, MembershipChange const& b) {
              if (std::tie(a.vlan, a.group) != std::tie(b.vlan, b.group))
                return std::tie(a.vlan, a.group) < std::tie(b.vlan, b.group);
              if (a.interface == b.interface) return a.reporter < b.reporter;
              return precedesNaturally(a.interface.stringValue().view(),
                                       b.interface.stringValue().view());
            });
  return changes;
}

}  // namespace Agent
