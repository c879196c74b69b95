#pragma once

#include <map>
#include <memory>
#include <vector>

#include "platform/horix/TimerWheel.h"
#include "platform/igmp/VlanQueries.h"
#include "platform/igmp/wire/Pim.h"
#include "platform/snooping/HeardRouters.h"
#include "platform/snooping/RouterPorts.h"

namespace Bridging::IgmpSnooping {

/// Keeps the router ports of one VLAN, and is their only writer: ports on which a querier or a PIM
/// router is heard, until they are heard no longer, and configured ones. Each reason ends on its
/// own.
class KEL_EXPORT VlanRouters {
 public:
  VlanRouters(Kel::Ptr<RouterPorts> routerPorts, Kel::Ptr<Horix::TimerWheel const> timerWheel);
  VlanRouters(VlanRouters const&) = delete;
  VlanRouters& operator=(VlanRouters const&) = delete;
  ~VlanRouters();

  /// The ports that it keeps.
  Kel::Ptr<RouterPorts> const& routerPorts() const { return routerPorts_; }

  /// The VLAN's queries, which the hosts on its router ports answer.
  Kel::Ptr<Igmp::VlanQueries> const& queries() const { return queries_; }

  /// A configured router port is one whatever is heard on it.
  void configuredIs(Wirex::IntfId const& intf, bool configured);

  /// A query was heard, whose sender is taken to be there for so long. From 0.0.0.0 it comes from a
  /// switch that queries in place of a router, and means nothing.
  void querierHeard(Wirex::IntfId const& intf, Wirex::IpAddr querier, Horix::Time lifetime);

  /// A PIM hello was heard: its router is there for the hello's holdtime, or goes where that is
  /// zero (RFC 7761 section 4.9.2).
  void helloHeard(Wirex::IntfId const& intf, Igmp::PimHello const& hello);

  /// A router on a port, and how it was heard.
  struct Heard {
    Wirex::IntfId intfId;
    bool byPim = false;           ///< by a PIM hello; else by a query
    HeardRouters::Router router;  ///< its address, and until when it is there
    Horix::Time
        since{};  ///< since when the port has been a router port, for this or another reason
  };

  /// All routers, to be restored by heardIs().
  std::vector<Heard> heard() const;
  void heardIs(Heard const& heard);

  /// Nothing more is heard on the port: what was learned there is forgotten.
  void portIsGone(Wirex::IntfId const& intf);

 private:
  class Port;

  Port& port(Wirex::IntfId const& intf);
  void handlePort(Port& port);

  Kel::Ptr<RouterPorts> routerPorts_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  Kel::Ptr<Igmp::VlanQueries> queries_;
  std::map<Wirex::IntfId, std::unique_ptr<Port>> ports_;
};

}  // namespace Bridging::IgmpSnooping
