title Each update of a VLAN that is not proxied tells that its machine and its adapter are deleted
start
proxy 10 on
expect trace 9 "contextConfig : 1 querierConfig : 0"
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
expect trace 9 "contextConfig : 1 querierConfig : 0"     # the entry, then its switch
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
proxy 10 on                                              # which it is
expect no trace
proxy 10 off
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
private 10 isolated 11
expect trace 9 "Found Primary vlan 11 for vlan 10"
expect trace 9 "contextConfig : 0 querierConfig : 0"
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
no private 10
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
no proxy 10
expect trace 9 "Deleting VlanSm for 10"
expect trace 9 "Deleting AdapterSm for 10"
expect vlans none
