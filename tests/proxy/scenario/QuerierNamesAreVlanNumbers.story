title A querier's name is read as a number of 16 bits that must be a VLAN
topology 10 swp1
kernel swp1 as eth0
proxy 10 on
proxy 1 on
start

querier abc version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleQuerierConfig(Kel::String)abc"
expect no trace "handleVlan"
querier 0 version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
querier 4095 version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
querier 65535 version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
querier -1 version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
querier 65536 version 3
expect throws "VlanId::value < 1 or > 4094 not allowed"
querier 4094 version 3
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(4094)"

# 65537 is read as VLAN 1, whose querier it is not: that would be named 1.
querier 65537 version 3
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(1)"
expect trace 9 "contextConfig : 1 querierConfig : 0"
expect vlans none
querier 10x version 3
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(10)"
expect trace 9 "contextConfig : 1 querierConfig : 0"

# What follows works as ever.
querier 10 version 3
expect vlans 10
expect hosts Vlan10swp1
no querier abc
expect throws "VlanId::value < 1 or > 4094 not allowed"
expect nothing changed
querier 65546 version 3                  # read as 10, which is proxied
expect trace 9 "contextConfig : 1 querierConfig : 1"
expect nothing changed
