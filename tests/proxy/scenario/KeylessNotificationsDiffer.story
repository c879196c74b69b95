title The topology as a whole is only watched anew; the kernel's interfaces as a whole are decided on again
proxy 10 on
querier 10 version 3
topology 10 swp1 swp2
kernel swp1 as eth0
start
expect ports 10 swp1

renotify topology 10
expect no trace
expect nothing changed

renotify kernel
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort()"
expect trace 4 "Creating QuerierSm for port swp1"
expect trace 9 "10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam(Wirex::IntfId)"
expect trace 4 "Creating QuerierSm for port swp2"
expect trace 4 "Deleting PortSm for port due to lack of kernel intf swp2"
expect nothing changed
