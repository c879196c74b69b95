#include <cstdio>
#include <exception>
#include <sstream>

#include "framework/entities/MembershipWriter.h"
#include "proxy/ProxySm.h"

/// records: the proxy alone, on a platform of stubs. One listener is written down by hand, and what
/// the hosts of two ports would report because of it is printed.
namespace {

using Bridging::VlanId;
using Wirex::IntfId;
using Wirex::IpAddr;
namespace Snooping = Bridging::IgmpSnooping;

void run() {
  VlanId const vlan{1};
  auto const protocolConfig = Kel::make<Snooping::IgmpProtocolConfig>();
  auto const topology = Kel::make<Topology::Library::Vlan::LibVlanState>();
  auto const bridging = Kel::make<Bridging::Config>();
  auto const queriers = Kel::make<Igmp::QuerierConfigDir>();
  auto const hosts = Kel::make<Igmp::IgmpHostDir>();
  auto const status = Kel::make<Snooping::IgmpProtocolStatus>();
  auto const desired = Kel::make<Interface::PamDesiredIntfDir>("records");
  auto const kernelIntfs = Kel::make<Interface::DeviceIntfStatusDir>();
  auto const contextStatus = status->contextStatusIs(vlan);

  topology->topoVlanIs(vlan);
  bridging->vlanConfigIs(vlan);
  queriers->querierConfigIs("1", Kel::make<Gmp::Igmp::QuerierConfig>());
  protocolConfig->contextConfigIs(vlan)->proxyEnabledIs(true);
  auto const proxy = Snooping::Proxy::proxySmFactory(
      protocolConfig, topology, Kel::make<PrivateVlanLib::LibState>(), desired, queriers, hosts,
      kernelIntfs, bridging, status, nullptr);
  for (IntfId const& port : {IntfId("swp1"), IntfId("swp2")}) {
    bridging->vlanConfig(vlan)->intfConfigIs(port);
    desired->intfDesiredIs(port, true);
    kernelIntfs->intfStatusAndDeviceNameIs(port, {port.stringValue()});
    topology->topoVlan(vlan)->portIs(port);
  }

  Snooping::MembershipWriter memberships(contextStatus);
  IpAddr const source(0xc0000201);  // 192.0.2.1
  memberships.membershipIs(IpAddr(0xef010101), IntfId("swp1"), IpAddr(0x0a000001),
                           Snooping::MembershipWriter::FilterMode::include, {&source, 1});
  memberships.publish();

  std::ostringstream out;
  for (Kel::Name const& name : hosts->igmpHost().keys())
    for (auto const& [group, record] : hosts->igmpHost(name)->v3group()) {
      out << hosts->igmpHost(name)->intfId() << ": " << group
          << (record->heardBack() ? ", which it keeps to itself:" : ":");
      for (auto const [address, value] : record->source()->sourceIp()) out << ' ' << address;
      out << '\n';
    }
  std::fputs(out.str().c_str(), stdout);
}

}  // namespace

int main() try { run(); } catch (std::exception const& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
