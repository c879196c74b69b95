title A VLAN is proxied while its configuration is there, is on, and a querier has its name
topology 10 swp1
kernel swp1 as eth0
start
expect vlans none

querier 10 version 3
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleQuerierConfig(Kel::String)10"
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(10)"
expect trace 9 "10 is a normal or primary vlan"
expect trace 9 "contextConfig : 0 querierConfig : 1"
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleAdapterConfig(Bridging::VlanId)10"
expect trace 9 "Deleting AdapterSm for 10"
expect nothing changed

proxy 10 off
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
expect nothing changed

proxy 10 on
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(10)"
expect trace 9 "10 is a normal or primary vlan"
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect trace 9 "Creating VlanSm for vlan 10"
expect trace 9 "Bridging::IgmpSnooping::Proxy::AdapterVlanConfig::Ptr Bridging::IgmpSnooping::Proxy::ProxySm::getOrCreateAdapterConfig(Bridging::VlanId)10"
expect trace 9 "10 is a normal or primary Vlan creating adapter config"
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleAdapterConfig(Bridging::VlanId)10"
expect trace 9 "Creating AdapterSm for 10"
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleInitialized()"
expect vlans 10
expect adapters 10
expect hosts Vlan10swp1

no querier 10
expect trace 9 "contextConfig : 1 querierConfig : 0"
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
expect vlans none
expect adapters none
expect hosts none

querier 10 version 3
expect vlans 10
expect keys 10 Vlan10swp1

proxy 10 off
expect vlans none
expect adapters none
expect hosts none
proxy 10 on
expect hosts Vlan10swp1

no proxy 10
expect trace 9 "contextConfig : 0 querierConfig : 1"
expect vlans none
expect adapters none
expect hosts none
proxy 10 on
expect hosts Vlan10swp1
