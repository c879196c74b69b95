title A secondary VLAN that comes later finds its primary's adapter
topology 10 swp1
topology 20 swp2
kernel swp1 as eth1
kernel swp2 as eth2
proxy 10 on
querier 10 version 3
start
expect vlans 10

querier 20 version 3                     # still a normal VLAN, and without configuration
expect trace 9 "20 is a normal or primary vlan"
expect trace 9 "contextConfig : 0 querierConfig : 1"
expect vlans 10
expect keys 10 Vlan10swp1

private 20 community 10
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(20)"
expect trace 9 "Found Primary vlan 10 for vlan 20"
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect trace 9 "Creating VlanSm for vlan 20"
expect trace 9 "Bridging::IgmpSnooping::Proxy::AdapterVlanConfig::Ptr Bridging::IgmpSnooping::Proxy::ProxySm::getOrCreateAdapterConfig(Bridging::VlanId)20"
expect trace 9 "Found PrimaryVlan :10 secondaryVlan 20"
expect no trace "delete it"
expect vlans 10 20
expect adapters 10
expect vlan 20 adapter 10
expect keys 10 Vlan10swp1 Vlan20swp2
