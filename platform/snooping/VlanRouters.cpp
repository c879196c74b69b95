#include "platform/snooping/VlanRouters.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("IgmpSnooping::VlanRouters", "VlanRouters")

namespace Bridging::IgmpSnooping {

using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

/// Why a port is a router port, without how long: "configured, querier 192.0.2.1", in traces.
struct Reasons {
  RouterPort const& of;

  bool operator==(Reasons const& other) const {
    return of.configured == other.of.configured && of.querier == other.of.querier &&
           of.pimNeighbor == other.of.pimNeighbor;
  }

  friend std::ostream& operator<<(std::ostream& out, Reasons const& reasons) {
    RouterPort const& port = reasons.of;
    char const* separator = "";
    if (port.configured) out << std::exchange(separator, ", ") << "configured";
    if (port.querier != IpAddr())
      out << std::exchange(separator, ", ") << "querier " << port.querier;
    if (port.pimNeighbor != IpAddr()) out << separator << "PIM router " << port.pimNeighbor;
    return out;
  }
};

void traceChange(VlanId vlan, IntfId const& intf, RouterPort const& former,
                 RouterPort const& state) {
  if (Reasons{state} == Reasons{former}) return;
  if (state == RouterPort())
    KEL_TRACE_OF("handlePort", 4,
                 "VLAN " << vlan << ": " << intf
                         << " is no router port any more, which it was by: " << Reasons{former});
  else
    KEL_TRACE_OF("handlePort", 4,
                 "VLAN " << vlan << ": " << intf << " is a router port: " << Reasons{state});
}

}  // namespace

/// A router port, and the timer of the reason that ends first.
class VlanRouters::Port final : public Horix::Timer {
 public:
  Port(IntfId intf, VlanRouters& routers)
      : intfId(std::move(intf)), since(routers.timerWheel_->now()), routers_(routers) {}

  RouterPort state() const {
    auto const querier = queriers.latest();
    auto const pimNeighbor = pimNeighbors.latest();
    return {configured, querier.address, querier.until, pimNeighbor.address, pimNeighbor.until};
  }
  Horix::Time nextEnd() const { return std::min(queriers.nextEnd(), pimNeighbors.nextEnd()); }

  IntfId const intfId;
  Horix::Time since;
  bool configured = false;
  HeardRouters queriers;
  HeardRouters pimNeighbors;

 private:
  void onExpiry() override { routers_.handlePort(*this); }

  VlanRouters& routers_;
};

VlanRouters::VlanRouters(Kel::Ptr<RouterPorts> routerPorts,
                         Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : routerPorts_(std::move(routerPorts)),
      timerWheel_(std::move(timerWheel)),
      queries_(Kel::make<Igmp::VlanQueries>(timerWheel_)) {}

VlanRouters::~VlanRouters() = default;

void VlanRouters::configuredIs(IntfId const& intf, bool configured) {
  Port& port = this->port(intf);
  port.configured = configured;
  handlePort(port);
}

void VlanRouters::querierHeard(IntfId const& intf, IpAddr querier, Horix::Time lifetime) {
  if (querier == IpAddr()) return;
  Port& port = this->port(intf);
  port.queriers.heard({querier, timerWheel_->now() + lifetime});
  handlePort(port);
}

void VlanRouters::helloHeard(IntfId const& intf, Igmp::PimHello const& hello) {
  Port& port = this->port(intf);
  if (hello.holdtime == hello.holdtime.zero())
    port.pimNeighbors.gone(hello.source);
  else if (hello.holdtime == Igmp::PimHello::forever)
    port.pimNeighbors.heard({hello.source, Horix::Time::max()});
  else
    port.pimNeighbors.heard({hello.source, timerWheel_->now() + hello.holdtime});
  handlePort(port);
}

std::vector<VlanRouters::Heard> VlanRouters::heard() const {
  std::vector<Heard> heard;
  for (auto const& [intf, port] : ports_) {
    for (auto const& router : port->queriers.all())
      heard.push_back({intf, false, router, port->since});
    for (auto const& router : port->pimNeighbors.all())
      heard.push_back({intf, true, router, port->since});
  }
  return heard;
}

void VlanRouters::heardIs(Heard const& heard) {
  Port& port = this->port(heard.intfId);
  (heard.byPim ? port.pimNeighbors : port.queriers).heard(heard.router);
  port.since = std::min(port.since, heard.since);
  handlePort(port);
}

void VlanRouters::portIsGone(IntfId const& intf) {
  Port& port = this->port(intf);
  port.queriers.allGone();
  port.pimNeighbors.allGone();
  handlePort(port);
}

VlanRouters::Port& VlanRouters::port(IntfId const& intf) {
  auto& port = ports_[intf];
  if (!port) port = std::make_unique<Port>(intf, *this);
  return *port;
}

/// Tells of the port as it is now. Who hears of it may come back, so that is last.
void VlanRouters::handlePort(Port& port) {
  Horix::Time const now = timerWheel_->now();
  port.queriers.nowIs(now);
  port.pimNeighbors.nowIs(now);
  RouterPort state = port.state();
  IntfId const intf = port.intfId;
  traceChange(routerPorts_->vlanId(), intf, routerPorts_->routerPort().get(intf), state);
  if (state == RouterPort()) {
    ports_.erase(intf);
    routerPorts_->routerPortDel(intf);
    return;
  }
  if (Horix::Time const end = port.nextEnd(); end != Horix::Time::max())
    timerWheel_->scheduleAt(port, end);
  else
    port.cancel();
  state.since = port.since;
  routerPorts_->routerPortIs(intf, state);
}

}  // namespace Bridging::IgmpSnooping
