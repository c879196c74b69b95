title The proxy that stops leaves no hosts, and one that starts finds everything that is there
topology 10 swp1 swp2
topology 20 swp3
topology 30 swp4
kernel swp1 as eth1
kernel swp2 as eth2
kernel swp3 as eth3
kernel swp4 as eth4
desired swp1
private 20 isolated 10
proxy 10 on
proxy 30 off
querier 10 version 3
querier 20 version 3
querier 30 version 3
start
expect vlans 10 20
expect adapters 10
expect hosts Vlan10swp1 Vlan10swp2 Vlan20swp3
expect keys 10 Vlan10swp1 Vlan10swp2 Vlan20swp3
expect devices swp1

stop
expect trace 9 "Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleCleanup()"
expect hosts none
expect devices none

# Nothing hears of the switch meanwhile.
proxy 30 on
expect no trace
no kernel swp2
expect no trace

start
expect vlans 10 20 30
expect adapters 10 30
expect hosts Vlan10swp1 Vlan20swp3 Vlan30swp4
expect host Vlan10swp1 pam yes configured 1
