#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "agent/Switch.h"

namespace Agent {

/// Visits the groups of a switch piece by piece, while it changes: for counts that
/// need not look at each membership. Groups that are there from beginning to end are visited once;
/// those that come or go meanwhile may be or not.
class GroupWalk {
 public:
  using Group = Bridging::IgmpSnooping::IgmpGroup;

  /// @param of the VLAN whose groups to visit; nothing for all.
  explicit GroupWalk(Switch const& snoopingSwitch, std::optional<Bridging::VlanId> of = {});

  /// Goes on until groups with so many ports are visited, or to the end, which it then is at.
  template <class Visit>
  void advance(std::size_t ports, Visit visit) {
    for (std::size_t steps = 0; steps < ports && !atEnd(); ++steps)
      if (Group const* const visited = step()) {
        steps += visited->intf().size();
        visit(vlan_, *visited);
      }
  }

  bool atEnd() const { return vlans_.empty() && groups_.empty(); }

 private:
  Group const* step();

  Switch const& switch_;
  Bridging::VlanId vlan_;
  // What is still to be visited, last first.
  std::vector<Bridging::VlanId> vlans_;
  std::vector<Wirex::IpAddr> groups_;
};

}  // namespace Agent
