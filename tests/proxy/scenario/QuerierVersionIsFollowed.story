title Hosts speak the version that their VLAN's querier is configured for
proxy 10 on
proxy 11 on
querier 10 version 2
querier 11 version 3
topology 10 swp1 swp2
topology 11 swp1
kernel swp1 as eth0
kernel swp2 as eth1
start
expect host Vlan10swp1 version 2
expect host Vlan10swp2 version 2
expect host Vlan11swp1 version 3

querier 10 version 1
expect trace 9 "Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleIgmpVersion()"
expect host Vlan10swp1 version 1
expect host Vlan10swp2 version 1
expect host Vlan11swp1 version 3
querier 10 version 1
expect no trace

# Another protocol configuration counts at once, and its changes from then on.
querier 10 replaced version 3
expect trace 9 "Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleIgmpVersion()"
expect host Vlan10swp1 version 3 configured 1
querier 10 version 2
expect host Vlan10swp1 version 2
expect host Vlan10swp2 version 2

# Without one the hosts keep what they have.
querier 10 unconfigured
expect trace 9 "Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleIgmpVersion()"
expect nothing changed
querier 10 replaced version 3
expect host Vlan10swp1 version 3
expect host Vlan10swp2 version 3
