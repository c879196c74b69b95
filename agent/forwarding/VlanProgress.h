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
  /// @param snoopingSwitch outlives it.
  /// @param goesOn whether the switch goes on where another program has just stopped: then queries
  /// of its time count too. If it only remembers what was before a pause, they do not, because the
  /// answers of listeners that came meanwhile are missing.
  VlanProgress(Switch const& snoopingSwitch, bool goesOn);

  /// Those that were there stay as they are.
  void vlansAre(std::vector<ForwardedVlan> const& vlans, Horix::Time now);
  void clear() { states_.clear(); }

  /// Takes note of queries that were heard or sent.
  void noteQueries(std::vector<ForwardedVlan> const& vlans, Horix::Time now);

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

  bool isQueried(Bridging::VlanId vlan) const;
  Horix::Time queriedUntil(Bridging::VlanId vlan) const;

  Switch const& switch_;
  bool goesOn_;
  std::map<Bridging::VlanId, Horix::Time> remembered_;  // of queries before the start
  std::map<Bridging::VlanId, State> states_;
};

}  // namespace Agent
