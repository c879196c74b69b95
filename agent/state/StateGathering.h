#pragma once

#include <cstddef>
#include <string>

#include "agent/Switch.h"
#include "agent/control/MembershipWalk.h"
#include "agent/state/StateCodec.h"

namespace Agent {

/// Puts what a switch knows into entries: routers at once, memberships, of which there may be many,
/// piece by piece while it goes on. A membership that changes meanwhile is as it was or as it is.
class StateGathering {
 public:
  /// @param snoopingSwitch outlives it.
  explicit StateGathering(Switch& snoopingSwitch);

  /// Gathers, at once, how far queriers and hosts have got with what they say: for one that goes on
  /// in the same moment.
  void gatherTalk();

  /// Goes so many steps: a membership each, or one on the way to it. Returns whether there is more.
  bool advance(std::size_t steps);

  /// What was gathered.
  std::string take() { return writer_.take(); }

 private:
  void gatherRouters(Switch& snoopingSwitch);
  void gatherTalk(KeptPort const& host);
  void gatherSince(Horix::Time since);
  void gatherElection(Switch::VlanQuerier const& querier);

  Switch& switch_;
  StateWriter writer_;
  MembershipWalk memberships_;
};

}  // namespace Agent
