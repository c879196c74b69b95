title The hosts of a secondary VLAN are served by the adapter of its primary
topology 10 swp1
topology 20 swp2
kernel swp1 as eth1
kernel swp2 as eth2
private 20 isolated 10
proxy 10 on
querier 10 version 3
querier 20 version 2
start
expect vlans 10 20
expect adapters 10                       # none of the secondary's own
expect vlan 10 adapter 10
expect vlan 20 adapter 10
expect keys 10 Vlan10swp1 Vlan20swp2
expect host Vlan10swp1 version 3
expect host Vlan20swp2 version 2         # of its own querier

# What a listener reports in the one is reported in the other.
report 10 swp1 from 10.0.0.1 include 239.1.1.1 192.0.2.1
expect records Vlan20swp2 239.1.1.1 include 192.0.2.1
expect records Vlan10swp1 none
report 20 swp2 from 10.0.0.2 exclude 239.1.1.2
expect records Vlan10swp1 239.1.1.2 exclude
expect records Vlan20swp2 239.1.1.1 include 192.0.2.1
