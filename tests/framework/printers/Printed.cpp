#include "framework/entities/AdapterVlanConfig.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/entities/LibVlanState.h"

/// Something to stop at, with one of each that gdb's printers know.
__attribute__((noinline)) void stopHere() {
  asm volatile("");
}

int main() {
  using Bridging::VlanId;
  using Bridging::IgmpSnooping::Proxy::PortKey;
  Kel::Ptr<Topology::Library::Vlan::TopoVlan> const nothing;
  auto const topoVlan = Kel::make<Topology::Library::Vlan::TopoVlan>(VlanId(10));
  topoVlan->portIs(Wirex::IntfId("swp1"))->blockedIs(true);
  Bridging::IgmpSnooping::Proxy::AdapterVlanConfig adapter{VlanId(4094)};
  for (int port = 0; port < 12; ++port)
    adapter.hostKeyIs(PortKey(VlanId(20), Wirex::IntfId(Kel::format("eth%d", port))), port != 5);
  Bridging::IgmpSnooping::IgmpMembership membership(Wirex::IpAddr(10, 0, 0, 1));
  membership.sourceIs(Wirex::IpAddr(192, 0, 2, 7));
  stopHere();
  return nothing ? 1 : 0;
}
