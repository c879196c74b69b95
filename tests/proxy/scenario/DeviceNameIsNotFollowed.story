title A host keeps the device name that it was made with
proxy 10 on
querier 10 version 3
topology 10 swp1
kernel swp1 as eth0
start
expect host Vlan10swp1 device eth0

kernel swp1 as eth7
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort(Wirex::IntfId)"
expect trace 4 "Creating QuerierSm for port swp1"
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam(Wirex::IntfId)"
expect trace 7 "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() 10 swp1"
expect no trace "ProxyPortSm::handleInitialized"
expect nothing changed
expect host Vlan10swp1 device eth0

# A new host has the new name.
no kernel swp1
kernel swp1 as eth7
expect host Vlan10swp1 device eth7
