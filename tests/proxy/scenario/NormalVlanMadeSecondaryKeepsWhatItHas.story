title A proxied VLAN that is made a secondary one, with everything in place, keeps its machine and its adapter
topology 10 swp1
topology 20 swp2
kernel swp1 as eth1
kernel swp2 as eth2
proxy 10 on
proxy 20 on
querier 10 version 3
querier 20 version 3
start
expect vlans 10 20
expect adapters 10 20

private 20 isolated 10
expect trace 9 "Found Primary vlan 10 for vlan 20"
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect no trace "Creating"
expect no trace "Deleting"
expect nothing changed

# It is done with the adapter of its own when it leaves.
no querier 20
expect vlans 10
expect adapters 10
querier 20 version 3
expect adapters 10
expect vlan 20 adapter 10
expect keys 10 Vlan10swp1 Vlan20swp2

# A secondary made normal is no longer asked through its primary; what it has stays likewise.
no private 20
expect trace 9 "20 is a normal or primary vlan"
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect nothing changed
proxy 20 off
expect vlans 10
