#pragma once

#include <span>
#include <vector>

#include "framework/entities/IgmpContextStatus.h"

namespace Bridging::IgmpSnooping {

/// Writes what reporters want into a VLAN's snooping status, in the order that its readers need,
/// and is the status's only writer. Say what is wanted as often as you like, then publish():
///
///     MembershipWriter writer(status);
///     writer.membershipIs(group, intf, reporter, IgmpFilterMode::include, sources);
///     writer.membershipDel(group, intf, otherReporter);
///     writer.publish();
///
/// Readers hear of groups at once and of all below them when activities run. They take a reporter
/// that has just appeared for one that wants every source, take nothing back for one that goes, and
/// do not look at those that stay; and what one reporter of a port includes while another one
/// excludes, they take off the count of other ports that exclude it. So publish() goes in turns,
/// and activities run after each:
///
/// 1. what was written is heard, and who is new appears
/// 2. who is new says what it wants
/// 3. who wants nothing goes
/// 4. those who stay on its port are read again
/// 5. what other ports were taken to exclude no longer is withdrawn and said again
///
/// Last, `newIgmpReport` is raised. Single-threaded.
class KEL_EXPORT MembershipWriter {
 public:
  using FilterMode = Gmp::Igmp::IgmpFilterMode;

  explicit MembershipWriter(Kel::Ptr<IgmpContextStatus> status);
  MembershipWriter(MembershipWriter const&) = delete;
  MembershipWriter& operator=(MembershipWriter const&) = delete;
  virtual ~MembershipWriter();

  Kel::Ptr<IgmpContextStatus> const& status() const { return status_; }

  /// A reporter's filter. INCLUDE({}) wants nothing: who has it leaves.
  void membershipIs(Wirex::IpAddr group, Wirex::IntfId const& intf, Wirex::IpAddr reporter,
                    FilterMode mode, std::span<Wirex::IpAddr const> sources);
  void membershipDel(Wirex::IpAddr group, Wirex::IntfId const& intf, Wirex::IpAddr reporter);

  /// Has readers that are new to the status hear all of it.
  void repeat();

  void publish();

 protected:
  /// A membership and what is above it.
  struct Place {
    Kel::Ptr<IgmpGroup> group;
    Kel::Ptr<IgmpIntfStatus> intf;
    Kel::Ptr<IgmpMembership> membership;
  };

  /// For those who derive, to keep what belongs to their learning beside the entities and to
  /// change single sources: makes what is missing. What is made wants nothing until it is written.
  Place make(Wirex::IpAddr address, Wirex::IntfId const& name, Wirex::IpAddr reporter);

  /// The membership has been changed. If it wants nothing any more, it goes when it is published,
  /// unless it is written again before.
  void written(Place place);

  /// The turns alone, after which what wants nothing is gone.
  void settle();
  /// Whether somebody goes in the next turns.
  bool somebodyLeaves() const { return !left_.empty(); }

  /// A membership was removed, and what fell empty with it.
  virtual void removed(IgmpMembership& /*membership*/) {}

  virtual Kel::Ptr<IgmpGroup> newGroup(Wirex::IpAddr group);
  virtual Kel::Ptr<IgmpIntfStatus> newIntf(IgmpGroup& group, Wirex::IntfId const& intf);
  virtual Kel::Ptr<IgmpMembership> newMembership(IgmpIntfStatus& intf, Wirex::IpAddr reporter);

 private:
  struct Exclusion;
  /// A port that readers evaluate.
  struct Changed {
    Kel::Ptr<IgmpGroup> group;
    Kel::Ptr<IgmpIntfStatus> intf;
  };

  void remove(Place const& place);
  void sayExclusionsAgain();
  static void addLost(IgmpGroup const& group, IgmpIntfStatus const& evaluated,
                      std::vector<Exclusion>& lost);

  Kel::Ptr<IgmpContextStatus> status_;
  std::vector<Place> appeared_;  // since the last turns
  std::vector<Place> left_;
  std::vector<Changed> changed_;
  bool unpublished_ = false;
};

}  // namespace Bridging::IgmpSnooping
