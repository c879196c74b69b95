title A secondary VLAN set up before its primary has no adapter until it is set up again
topology 10 swp1
topology 20 swp2
kernel swp1 as eth1
kernel swp2 as eth2
private 20 isolated 10
proxy 10 on
start

querier 20 version 3
expect trace 9 "Found PrimaryVlan :10 secondaryVlan 20"
expect vlans 20
expect adapters none
expect vlan 20 adapter none
expect hosts Vlan20swp2                  # served, though nobody fills the host

# It works without an adapter.
topology 20 swp1
expect hosts Vlan20swp1 Vlan20swp2
no kernel swp1
expect hosts Vlan20swp2
topology 20 -swp1
kernel swp1 as eth1

# The primary makes no difference to a secondary that is there.
querier 10 version 3
expect vlans 10 20
expect adapters 10
expect keys 10 Vlan10swp1
expect vlan 20 adapter none
private 20 community 10
expect no trace "Creating VlanSm"
expect vlan 20 adapter none

no querier 20
expect vlans 10
expect hosts Vlan10swp1
querier 20 version 3
expect vlan 20 adapter 10
expect keys 10 Vlan10swp1 Vlan20swp2
