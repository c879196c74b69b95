title A secondary VLAN that goes leaves the keys of its hosts in its primary's adapter
topology 10 swp1
topology 20 swp2
kernel swp1 as eth1
kernel swp2 as eth2
private 20 isolated 10
proxy 10 on
querier 10 version 3
querier 20 version 3
start
expect keys 10 Vlan10swp1 Vlan20swp2

no querier 20
expect vlans 10
expect adapters 10
expect hosts Vlan10swp1
expect keys 10 Vlan10swp1 Vlan20swp2

# A port that leaves takes its key along.
querier 20 version 3
topology 20 -swp2
expect keys 10 Vlan10swp1
expect vlans 10 20

# The adapter fills what there is.
topology 20 swp2
report 10 swp1 from 10.0.0.1 exclude 239.1.1.1
expect records Vlan20swp2 239.1.1.1 exclude
