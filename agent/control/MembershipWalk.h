#pragma once

#include <cstddef>
#include <vector>

#include "agent/Switch.h"
#include "agent/control/Request.h"

namespace Agent {

/// Visits the memberships of a switch piece by piece, while it changes. Those that are there from
/// beginning to end are visited once; those that come or go meanwhile may be or not. It keeps the
/// keys of what it still has to visit, and looks each of them up when its turn comes.
class MembershipWalk {
 public:
  using Membership = Bridging::IgmpSnooping::IgmpMembership;

  /// Where a membership stands.
  struct Place {
    Bridging::VlanId vlan;
    Wirex::IpAddr group;
    Wirex::IntfId interface;
  };

  MembershipWalk(Switch const& snoopingSwitch, Selection selection);

  /// Goes so many steps, or to the end, which it then is at: a step is a membership visited, or
  /// something on the way to one.
  template <class Visit>
  void advance(std::size_t steps, Visit visit) {
    for (; steps > 0 && !atEnd(); --steps)
      if (Membership const* const membership = step()) visit(place_, *membership);
  }

  bool atEnd() const {
    return vlans_.empty() && groups_.empty() && interfaces_.empty() && reporters_.empty();
  }

 private:
  Membership const* step();
  Bridging::IgmpSnooping::IgmpGroup const* group() const;
  Bridging::IgmpSnooping::IgmpIntfStatus const* interface() const;

  Switch const& switch_;
  Selection selection_;
  Place place_;
  // What is still to be visited at each level, last first.
  std::vector<Bridging::VlanId> vlans_;
  std::vector<Wirex::IpAddr> groups_;
  std::vector<Wirex::IntfId> interfaces_;
  std::vector<Wirex::IpAddr> reporters_;
};

}  // namespace Agent
