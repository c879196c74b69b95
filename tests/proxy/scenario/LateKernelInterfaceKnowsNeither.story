title A host whose kernel interface comes after its port is told neither blocked state nor direction
proxy 10 on
querier 10 version 3
start
topology 10 swp1
port 10 swp1 blocked yes direction ingress
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() blocked is 1"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() Port SM does not exist swp1"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() port swp1 direction is ingress"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() Port SM does not exist swp1"
expect nothing changed

kernel swp1 as eth0
expect no trace "handleTopoPort"
expect host Vlan10swp1 blocked no direction both

# Each is told by its own next change.
port 10 swp1 direction none
expect host Vlan10swp1 blocked no direction none
port 10 swp1 blocked no                  # which the host takes it for already
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() blocked is 0"
expect no trace "ProxyPortSm::handleBlocked"
port 10 swp1 blocked yes
expect host Vlan10swp1 blocked yes direction none

# An interface that goes and comes back is another late one.
no kernel swp1
kernel swp1 as eth0
expect host Vlan10swp1 blocked no direction both
