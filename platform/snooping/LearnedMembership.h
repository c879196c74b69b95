#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Table.h"
#include "platform/horix/Timer.h"
#include "platform/snooping/Deadline.h"
#include "platform/snooping/PortShares.h"

namespace Bridging::IgmpSnooping {

class VlanLearning;

/// The status entities as learning makes them: each knows the one above it, and a membership
/// carries its times. Learning is the only writer of its VLAN's status, so every group, interface
/// and membership there is one of these.
class LearnedGroup final : public IgmpGroup {
 public:
  LearnedGroup(Wirex::IpAddr address, VlanLearning& vlan) : IgmpGroup(address), vlan_(vlan) {}

  /// Of the group's VLAN.
  VlanLearning& vlan() const { return vlan_; }

  /// Ports whose entries are charged to what the VLAN's ports have in common.
  std::uint32_t commonIntfs() const { return ownNumber(); }
  /// One port more.
  void commonIntfAdd() { ownNumberIs(ownNumber() + 1); }
  /// One port less.
  void commonIntfDel() { ownNumberIs(ownNumber() - 1); }

 private:
  VlanLearning& vlan_;
};
static_assert(sizeof(LearnedGroup) <= 56);

/// A port that has listeners of a group, and what it was charged to.
class LearnedIntf final : public IgmpIntfStatus {
 public:
  LearnedIntf(Wirex::IntfId const& intf, LearnedGroup& group, PortUse& use, GroupCharge charge)
      : IgmpIntfStatus(intf), charge_(charge), group_(group), use_(use) {}

  LearnedGroup& group() const { return group_; }

  /// Of the port in the VLAN, and what of it this entry takes.
  PortUse& use() const { return use_; }
  /// What this entry was charged to.
  GroupCharge charge() const { return charge_; }

 private:
  GroupCharge const charge_;
  LearnedGroup& group_;
  PortUse& use_;
};
static_assert(sizeof(LearnedIntf) <= 64);

/// A reporter's filter, with times: who has them can make the membership again.
struct TimedFilter {
  /// A source that is wanted until a time.
  struct Source {
    Wirex::IpAddr address;  ///< the source
    Horix::Time deadline;   ///< by the clock of the timer wheel

    friend bool operator==(Source const&, Source const&) = default;
  };

  Gmp::Igmp::IgmpFilterMode mode = Gmp::Igmp::IgmpFilterMode::include;
  std::vector<Source> requested;        ///< INCLUDE(A): A. EXCLUDE(X,Y): X.
  std::vector<Wirex::IpAddr> excluded;  ///< EXCLUDE(X,Y): Y.
  Horix::Time deadline{};               ///< Of EXCLUDE mode itself; meaningless in INCLUDE mode.

  friend bool operator==(TimedFilter const&, TimedFilter const&) = default;
};

/// A reporter's state in the letters of RFC 9776 section 6.2: INCLUDE(A), where each source has a
/// time at which it goes, or EXCLUDE(X,Y), where the mode has one and each source of X. What
/// readers see is A or Y.
///
/// 1. The timer is due no later than the first of these times at which something changes. It runs
///    unless the membership was forgotten.
/// 2. Most reports renew all that is wanted. Then `times_` is null, and all ends with the timer.
class KEL_EXPORT LearnedMembership final : public IgmpMembership, public Horix::Timer {
 public:
  LearnedMembership(Wirex::IpAddr reporter, LearnedIntf& intf, Horix::Time since)
      : IgmpMembership(reporter), intf_(intf) {
    sinceIs(since);
  }

  /// The port in the group.
  LearnedIntf& intf() const { return intf_; }

  /// Whether it is in INCLUDE mode.
  bool includes() const { return filterMode() == FilterMode::include; }

  /// Whether it stands for many systems, not one (RFC 9776 section 4.2.13).
  bool isOfMany() const { return addr() == Wirex::IpAddr(); }

  /// Whether it was forgotten, and goes at the end of the batch: its timer does not run.
  bool isForgotten() const { return !scheduled(); }

  /// Sources that are kept, published or not.
  std::uint32_t sourceCount() const;

  /// Since when it has been there without a break, to the second; before this learning's time if
  /// it was restored from a former one's.
  Horix::Time since() const { return std::chrono::seconds(static_cast<std::int32_t>(ownNumber())); }
  void sinceIs(Horix::Time time) {
    constexpr auto half = std::chrono::milliseconds(500);  // the nearest second
    ownNumberIs(
        static_cast<std::uint32_t>(std::chrono::floor<std::chrono::seconds>(time + half).count()));
  }

  /// When it will have ended if no more is heard.
  Horix::Time end() const;
  /// Until when it wants a source, or every source but some, if no more is heard. Zero if it does
  /// not.
  Horix::Time wantedUntil(Wirex::IpAddr source) const;
  /// Until when it wants every source but some; zero if it does not.
  Horix::Time everySourceWantedUntil() const;

  /// With X and Y.
  TimedFilter timedFilter() const;

 private:
  friend class FilterState;  // changes it

  /// The position of what is not in a list.
  static constexpr std::uint32_t unlisted = Kel::Table<Wirex::IpAddr, Kel::Nothing>::absent;

  /// Times that differ from the timer's.
  struct Times {
    explicit Times(Horix::Time end) : ofMode(end) {}

    std::vector<Deadline> ofSources;                  // INCLUDE(A): of A, in its order
    Kel::Table<Wirex::IpAddr, Deadline> ofRequested;  // EXCLUDE(X,Y): of X
    Deadline ofMode;                                  // EXCLUDE(X,Y)
  };

  Horix::Time timeAt(std::uint32_t position) const;

  void onExpiry() override;

  LearnedIntf& intf_;
  std::unique_ptr<Times> times_;
};

static_assert(sizeof(LearnedMembership) <= 88);

}  // namespace Bridging::IgmpSnooping
