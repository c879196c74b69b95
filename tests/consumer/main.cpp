#include <cstdio>
#include <cstdlib>

#include "platform/horix/EventLoop.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "proxy/ProxySm.h"

/// Drives a proxy as a switch's agent would, through a few changes of its configuration and of what
/// was snooped, and says what it expected where it found something else.
namespace {

using Bridging::VlanId;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

void expect(bool condition, char const* what) {
  std::printf("%s %s\n", condition ? "ok    " : "FAILED", what);
  if (!condition) std::exit(EXIT_FAILURE);
}

}  // namespace

int main() {
  VlanId const vlan(10);
  IntfId const listenerPort("swp1");
  IntfId const routerPort("swp2");
  IpAddr const group(239, 1, 1, 1);
  IpAddr const source(192, 0, 2, 1);

  // What the agent knows.
  auto const protocolConfig = Kel::make<Bridging::IgmpSnooping::IgmpProtocolConfig>();
  auto const protocolStatus = Kel::make<Bridging::IgmpSnooping::IgmpProtocolStatus>();
  auto const topology = Kel::make<Topology::Library::Vlan::LibVlanState>();
  auto const privateVlans = Kel::make<PrivateVlanLib::LibState>();
  auto const desired = Kel::make<Interface::PamDesiredIntfDir>("consumer");
  auto const queriers = Kel::make<Igmp::QuerierConfigDir>();
  auto const hosts = Kel::make<Igmp::IgmpHostDir>();
  auto const kernelIntfs = Kel::make<Interface::DeviceIntfStatusDir>();
  auto const bridging = Kel::make<Bridging::Config>();
  for (IntfId const& intf : {listenerPort, routerPort}) {
    topology->topoVlanIs(vlan)->portIs(intf);
    bridging->vlanConfigIs(vlan)->intfConfigIs(intf);
    kernelIntfs->intfStatusAndDeviceNameIs(intf, {intf.stringValue()});
    desired->intfDesiredIs(intf, true);
  }
  auto const status = protocolStatus->contextStatusIs(vlan);

  // The proxy, on devices that the agent feeds.
  Horix::EventLoop loop(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>()));
  Interface::CaptureEthDevPams devices;
  auto proxy = Bridging::IgmpSnooping::Proxy::proxySmFactory(
      protocolConfig, topology, privateVlans, desired, queriers, hosts, kernelIntfs, bridging,
      protocolStatus, loop.timerWheel());
  expect(hosts->igmpHost().empty(), "no VLAN is proxied at first");

  queriers->querierConfigIs("10", Kel::make<Gmp::Igmp::QuerierConfig>());
  protocolConfig->contextConfigIs(vlan)->proxyEnabledIs(true);
  expect(hosts->igmpHost().size() == 2, "a proxied VLAN has a host on each port");

  // Snooping publishes a report: entities first, then what they say, then that there was one.
  auto const membership =
      status->groupIs(group)->intfIs(listenerPort)->membershipIs(IpAddr(10, 0, 0, 1));
  Kel::runActivities();
  membership->filterModeIs(IgmpFilterMode::include);
  membership->sourceIs(source);
  Kel::runActivities();
  status->newIgmpReportNotify();
  auto const record = hosts->igmpHost("Vlan10swp2")->v3group(group);
  expect(record && record->source()->sourceIp().contains(source),
         "the router's port reports the listener's source");
  expect(!hosts->igmpHost("Vlan10swp1")->v3group(group), "the listener's own port does not");

  kernelIntfs->intfStatusAndDeviceNameDel(listenerPort);
  expect(hosts->igmpHost().size() == 1, "a port that the kernel loses has no host");

  proxy = nullptr;
  expect(hosts->igmpHost().empty(), "a proxy that is dropped takes its hosts along");
}
