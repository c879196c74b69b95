title A host is connected while its port's device is open
proxy 10 on
querier 10 version 3
topology 10 swp1
kernel swp1 as eth0
start
expect host Vlan10swp1 pam no
expect devices none

desired swp1
expect trace 7 "void Bridging::IgmpSnooping::Proxy::ProxySm::handlePam(Wirex::IntfId)swp1"
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam(Wirex::IntfId)"
expect trace 7 "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() 10 swp1"
expect trace 7 "Creating Vlan Pam for Vlan10swp1"
expect host Vlan10swp1 pam yes configured 1
expect devices swp1

no desired swp1
expect trace 7 "void Bridging::IgmpSnooping::Proxy::ProxySm::handlePam(Wirex::IntfId)swp1"
expect trace 7 "Deleting VlanPam"
expect host Vlan10swp1 pam no
expect devices none
desired swp1
expect host Vlan10swp1 pam yes

# The kernel takes host and device away together.
no kernel swp1
expect hosts none
expect devices none
kernel swp1 as eth0
expect host Vlan10swp1 pam yes
expect devices swp1

# So does the topology; the device is only for hosts.
topology 10 -swp1
expect devices none
topology 10 swp1
expect host Vlan10swp1 pam yes
expect devices swp1
proxy 10 off
expect devices none
