#pragma once

#include "framework/kel/Collection.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "platform/horix/Clock.h"

namespace Bridging::IgmpSnooping {

/// Why an interface is a multicast router port, and until when (RFC 4541 section 2.1.1). At least
/// one of these holds of an interface that is in RouterPorts. Of several queriers, and of several
/// PIM routers, the one that stays longest is told.
struct RouterPort {
  bool configured = false;     ///< whether the configuration says so
  Wirex::IpAddr querier;       ///< 0.0.0.0 if none was heard
  Horix::Time querierUntil{};  ///< zero if none was heard
  Wirex::IpAddr pimNeighbor;   ///< 0.0.0.0 if no PIM hello was heard
  Horix::Time pimUntil{};      ///< Horix::Time::max() if its neighbor never times out
  Horix::Time since{};         ///< since when one of these has held without a break

  /// Whether a query is the only reason.
  bool isByQuery() const noexcept {
    return querier != Wirex::IpAddr() && !configured && pimNeighbor == Wirex::IpAddr();
  }

  friend bool operator==(RouterPort const&, RouterPort const&) noexcept = default;
};

/// The multicast router ports of one VLAN.
class KEL_EXPORT RouterPorts : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<RouterPorts const> {
   public:
    virtual void onRouterPort(Wirex::IntfId /*intf*/) {}
    virtual void onRouterPortkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Ports = Kel::Values<Wirex::IntfId, RouterPort, &NotifieeConst::onRouterPort>;

  explicit RouterPorts(VlanId vlanId) : vlanId_(vlanId) {}

  VlanId vlanId() const { return vlanId_; }

  /// The router ports, each with the reasons why it is one.
  Ports const& routerPort() const { return routerPort_; }
  void routerPortIs(Wirex::IntfId const& intf, RouterPort const& port) {
    routerPort_.is(*this, intf, port);
  }
  void routerPortDel(Wirex::IntfId intf) { routerPort_.del(*this, intf); }

 private:
  VlanId vlanId_;
  Ports routerPort_;
};

}  // namespace Bridging::IgmpSnooping
