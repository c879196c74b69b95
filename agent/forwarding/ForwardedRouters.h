#pragma once

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "agent/forwarding/ForwardedVlan.h"
#include "framework/kel/Reactors.h"

namespace Agent {

/// Follows the router ports of a switch's VLANs. Single-threaded.
class ForwardedRouters {
 public:
  /// @param snoopingSwitch outlives it.
  explicit ForwardedRouters(Switch& snoopingSwitch);
  ForwardedRouters(ForwardedRouters const&) = delete;
  ForwardedRouters& operator=(ForwardedRouters const&) = delete;
  ~ForwardedRouters();

  /// Follows the VLANs of the switch's configuration, which is new or has changed.
  void follow();

  /// Whether something was heard of them since the last time.
  bool takeNews() { return std::exchange(news_, false); }
  bool hasNews() const { return news_; }

  /// Of each VLAN.
  using Ports = std::map<Bridging::VlanId, std::set<Wirex::IntfId>>;
  Ports ports(std::vector<ForwardedVlan> const& vlans) const;

  /// Whether a port leads to a router whose groups a VLAN's streams are for.
  bool leadsToRouter(ForwardedVlan const& vlan, Wirex::IntfId const& intf) const;

  /// Whether it does so in all VLANs whose streams it may get, and in some at all.
  bool leadsToRouterInAll(std::vector<ForwardedVlan> const& vlans, Wirex::IntfId const& intf) const;

 private:
  class KelRouterPorts;

  Switch& switch_;
  Kel::Reactors<Bridging::VlanId, KelRouterPorts> vlans_;
  bool news_ = false;
};

}  // namespace Agent
