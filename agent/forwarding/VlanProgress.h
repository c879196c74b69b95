#pragma once

#include <map>
#include <vector>

#include "agent/Switch.h"
#include "agent/forwarding/ForwardedVlan.h"
#include "platform/horix/TimerWheel.h"

namespace Agent {

/// How far each VLAN is on its way from flooding to entries: it goes by them when all listeners
/// must have answered a query.
class VlanProgress {
 public:
  /// Those that were there stay as they are.
  void vlansAre(std::vector<ForwardedVlan> const& vlans, Switch const& snoopingSwitch,
                Horix::Time now);
  void clear() { states_.clear(); }

  /// Takes note of queries that were heard or sent.
  void noteQueries(std::vector<ForwardedVlan> const& vlans, Switch const& snoopingSwitch,
                   Horix::Time now);

  /// Whether it is flooded, and need not be any more.
  bool isDue(Bridging::VlanId vlan, Horix::Time now) const;
  bool goesByEntries(Bridging::VlanId vlan) const;
  void goesByEntriesIs(Bridging::VlanId vlan) { states_[vlan].byEntries = true; }
  /// What is known stays known.
  void allAreFlooded();

 private:
  struct State {
    Horix::Time known{};  ///< when all listeners must have answered
    bool queried = false;
    bool byEntries = false;
  };

  std::map<Bridging::VlanId, State> states_;
};

}  // namespace Agent
