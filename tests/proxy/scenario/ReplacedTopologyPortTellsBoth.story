title Another topology port in the old one's place tells the host both blocked state and direction
proxy 10 on
querier 10 version 3
topology 10 swp1
kernel swp1 as eth0
start
port 10 swp1 replaced blocked yes direction egress
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() blocked is 1"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() port swp1 direction is egress"
expect ports 10 swp1
expect watched 10 swp1
expect host Vlan10swp1 blocked yes direction egress configured 1    # the same host
port 10 swp1 blocked no
expect host Vlan10swp1 blocked no direction egress
