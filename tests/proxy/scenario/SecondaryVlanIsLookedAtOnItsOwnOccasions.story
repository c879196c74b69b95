title A secondary VLAN is proxied by its primary's switch, but looked at when something of its own changes
topology 20 swp2
kernel swp2 as eth2
private 20 isolated 10
querier 20 version 3
start
expect trace 9 "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(20)"
expect trace 9 "Found Primary vlan 10 for vlan 20"
expect trace 9 "contextConfig : 0 querierConfig : 1"
expect vlans none

proxy 20 on                              # which is not asked
expect trace 9 "Found Primary vlan 10 for vlan 20"
expect trace 9 "contextConfig : 0 querierConfig : 1"
expect vlans none

proxy 10 on
expect no trace "(20)"
expect vlans none

private 20 community 10
expect vlans 20
expect vlan 20 adapter none

# Its primary's switch is off, and its machine lives until it is looked at.
proxy 10 off
expect vlans 20
private 20 isolated 10
expect trace 9 "Deleting VlanSm for 20"
expect vlans none
expect hosts none
