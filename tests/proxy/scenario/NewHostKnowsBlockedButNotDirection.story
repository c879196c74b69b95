title A new host is told whether its port is blocked, but not in which direction traffic may go
proxy 10 on
querier 10 version 3
topology 10 swp1
port 10 swp1 blocked yes direction ingress
kernel swp1 as eth0
start
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() blocked is 1"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleBlocked() 10 swp1"
expect no trace "handleTopoPortDirection"
expect host Vlan10swp1 blocked yes direction both

# The direction comes with its next change.
port 10 swp1 direction egress
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() port swp1 direction is egress"
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleDirection() 10 swp1"
expect host Vlan10swp1 direction egress
port 10 swp1 blocked no
expect host Vlan10swp1 blocked no direction egress

# No change, no news.
port 10 swp1 blocked no direction egress
expect no trace

# A port that comes back without being blocked has nothing to tell the new host.
topology 10 -swp1
topology 10 swp1
expect trace 8 "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() blocked is 0"
expect no trace "ProxyPortSm::handleBlocked"
expect host Vlan10swp1 blocked no direction both
