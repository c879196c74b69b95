title A querier that is put back gives its VLAN a new adapter, which knows what was learned
topology 10 swp1 swp2
kernel swp1 as eth1
kernel swp2 as eth2
proxy 10 on
querier 10 version 3
start
report 10 swp1 from 10.0.0.1 include 239.1.1.1 192.0.2.1
expect records Vlan10swp2 239.1.1.1 include 192.0.2.1

no querier 10
expect hosts none
expect adapters none
querier 10 version 3
expect adapters 10
expect vlan 10 adapter 10
expect keys 10 Vlan10swp1 Vlan10swp2
report 10 swp1 from 10.0.0.2 include 239.1.1.1 192.0.2.2
expect records Vlan10swp2 239.1.1.1 include 192.0.2.1 192.0.2.2
expect records Vlan10swp1 none
