#include "agent/live/RouterLog.h"

#include <map>
#include <string>
#include <utility>

#include "agent/Log.h"

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::RouterPort;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

/// Empty if the interface is a router port by configuration alone.
std::string routersHeard(RouterPort const& port) {
  std::string routers;
  if (port.querier != IpAddr()) routers = message("querier ", port.querier);
  if (port.pimNeighbor != IpAddr())
    routers += message(routers.empty() ? "" : ", ", "PIM neighbor ", port.pimNeighbor);
  return routers;
}

}  // namespace

// "If any older versions of IGMP are present on routers, the querier MUST use the lowest version of
// IGMP present on the network. This must be administratively assured" (RFC 9776 section 7.3.1).
void warnOf(Bridging::IgmpSnooping::OtherVersion const& other) {
  bool const isOlder = other.heard < other.configured;
  log(Severity::warning, "VLAN ", other.vlanId, ": querier ", other.querier, " on interface ",
      other.intfId, " speaks IGMPv", other.heard, ", this switch IGMPv", other.configured,
      ", but all must speak the oldest version: ",
      isOlder ? message("set igmp-version = ", other.heard, " in the VLAN's querier")
              : message("configure that one for IGMPv", other.configured));
}

void warnOfLimit(Bridging::IgmpSnooping::LimitReached const& reached) {
  bool const isMerged = reached.limit == Igmp::IgnoreReason::tooManyMemberships;
  log(Severity::warning, "VLAN ", reached.vlanId, ": interface ", reached.intfId,
      " has reached a limit (", reached.limit, "): ", reached.reporter, "'s report of ",
      reached.group,
      isMerged ? " is merged with those of others" : " is ignored in whole or in part",
      "; further ones are counted, and told here once a minute");
}

class RouterLog::KelRouterPorts final
    : public Kel::ReactorFor<RouterLog, RouterPorts::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onRouterPort(IntfId /*intf*/) override {
    if (notificationActive()) owner().handleRouterPorts();
  }
};

RouterLog::RouterLog(Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : timerWheel_(std::move(timerWheel)) {}

RouterLog::~RouterLog() {
  routerPorts_.kelDoZombieReactors(true);
}

void RouterLog::vlansAre(std::vector<Kel::Ptr<RouterPorts const>> const& vlans) {
  std::set<VlanId> followed;
  for (auto const& routerPorts : vlans) {
    followed.insert(routerPorts->vlanId());
    routerPorts_.watch(routerPorts->vlanId(), routerPorts,
                       [&] { return Kel::make<KelRouterPorts>(routerPorts, this); });
  }
  for (VlanId const vlan : routerPorts_.keys())
    if (!followed.contains(vlan)) routerPorts_.del(vlan);
  // Of a VLAN that the operator took away there is nothing to tell.
  std::erase_if(told_, [&](Place const& place) { return !followed.contains(place.first); });
  handleRouterPorts();
}

void RouterLog::handleRouterPorts() {
  changed_ = true;
  if (!scheduled()) tell();
}

void RouterLog::tell() {
  constexpr auto pause = std::chrono::seconds(1);
  std::map<Place, std::string> heard;
  for (VlanId const vlan : routerPorts_.keys())
    for (auto const& [intf, port] : routerPorts_.get(vlan)->notifier()->routerPort())
      if (std::string routers = routersHeard(port); !routers.empty())
        heard.emplace(Place(vlan, intf), std::move(routers));
  std::erase_if(told_, [&](Place const& place) {
    if (heard.contains(place)) return false;
    log(Severity::info, "VLAN ", place.first, ": no router is heard on interface ", place.second,
        " any more");
    return true;
  });
  for (auto const& [place, routers] : heard)
    if (told_.insert(place).second)
      log(Severity::info, "VLAN ", place.first, ": a router is heard on interface ", place.second,
          ": ", routers);
  changed_ = false;
  timerWheel_->schedule(*this, pause);
}

void RouterLog::onExpiry() {
  if (changed_) tell();
}

}  // namespace Agent
