title A port has a host while it is a member of the VLAN's topology and the kernel has it
proxy 10 on
querier 10 version 3
start
expect vlans 10
expect adapters 10
expect hosts none

# A member that the kernel does not have is watched, and waits.
topology 10 swp1
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort(Wirex::IntfId)"
expect trace 4 "Creating QuerierSm for port swp1"
expect trace 4 "Deleting PortSm for port due to lack of kernel intf swp1"
expect watched 10 swp1
expect ports 10 none
expect keys 10 none
expect mapping swp1 none

kernel swp1 as eth0
expect ports 10 swp1
expect keys 10 Vlan10swp1
expect hosts Vlan10swp1
expect host Vlan10swp1 vlan 10 port swp1 device eth0 version 3 enabled yes external yes
expect host Vlan10swp1 mux no tagged no pam no blocked no direction both configured 1
expect mapping swp1 10

# The kernel's other interfaces, and members of other VLANs, are none of the VLAN's.
kernel swp2 as eth1
expect nothing changed
topology 11 swp2
expect nothing changed

no kernel swp1
expect trace 4 "Creating QuerierSm for port swp1"
expect trace 4 "Deleting PortSm for port due to lack of kernel intf swp1"
expect watched 10 swp1
expect ports 10 none
expect keys 10 none
expect hosts none
expect mapping swp1 none

kernel swp1 as eth0
expect host Vlan10swp1 configured 1      # another host

topology 10 -swp1
expect trace 4 "Deleting PortSm for port swp1"
expect no trace "lack of kernel intf"
expect watched 10 none
expect ports 10 none
expect keys 10 none
expect hosts none
expect mapping swp1 none
expect vlans 10                          # which is proxied all the same

# Both at once, by the one that comes last.
topology 10 swp1
expect ports 10 swp1
expect watched 10 swp1
