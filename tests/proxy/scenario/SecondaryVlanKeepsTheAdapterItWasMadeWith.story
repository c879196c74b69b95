title A primary that goes and comes back leaves its secondaries with its former adapter
topology 10 swp1
topology 20 swp2 swp3
kernel swp1 as eth1
kernel swp2 as eth2
private 20 isolated 10
proxy 10 on
querier 10 version 3
querier 20 version 3
start
expect keys 10 Vlan10swp1 Vlan20swp2

# Only the primary hears of its own switch.
proxy 10 off
expect no trace "handleVlan(Bridging::VlanId)(20)"
expect vlans 20
expect adapters none
expect hosts Vlan20swp2

proxy 10 on
expect no trace "handleVlan(Bridging::VlanId)(20)"
expect vlans 10 20
expect adapters 10
expect keys 10 Vlan10swp1                # without the secondary's host
kernel swp3 as eth3
expect keys 10 Vlan10swp1
expect hosts Vlan10swp1 Vlan20swp2 Vlan20swp3

# So its querier is taken out and put back.
no querier 20
querier 20 version 3
expect vlan 20 adapter 10
expect keys 10 Vlan10swp1 Vlan20swp2 Vlan20swp3
