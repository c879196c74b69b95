#pragma once

#include <map>
#include <vector>

#include "agent/SwitchEntities.h"
#include "agent/config/Configuration.h"

namespace Agent {

/// Brings the entities of a switch to a configuration, from whatever they are. An entity that is
/// as it is to be is left alone, and nobody hears of it.
///
/// The proxy asserts that what a VLAN's configuration entry and its querier refer to is there. So
/// those go first and come last, and the steps are to be taken in the order in which they stand
/// here. The configuration and the entities outlive it.
class Reconfiguration {
 public:
  Reconfiguration(SwitchEntities const& entities, Configuration const& configuration);

  /// Stops proxying where it is to stop, or to begin anew because the VLAN becomes another
  /// primary's, or its primary gets another adapter: a secondary VLAN keeps the one it began with.
  void stopProxying();

  void removeVlansAndPorts();
  void addVlansAndPorts();

  void startProxying();

 private:
  using VlanId = Bridging::VlanId;

  VlanConfig const* wanted(VlanId vlan) const;
  bool isPrimary(VlanId vlan) const;
  bool keepsPlace(VlanId vlan) const;
  bool keepsAdapter(VlanId vlan) const;
  bool keepsProxying(VlanId vlan) const;
  void removeVlan(VlanId vlan);
  void removeMembers(VlanConfig const& vlan);
  void addVlan(VlanConfig const& vlan);
  void startProxying(VlanConfig const& vlan);

  SwitchEntities const& entities_;
  Configuration const& configuration_;
  std::map<VlanId, VlanConfig const*> wanted_;
};

}  // namespace Agent
