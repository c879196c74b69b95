title What listeners want is reported on the other ports of their VLAN, and no longer when they have gone
topology 10 swp1 swp2 swp3
topology 11 swp1
kernel swp1 as eth1
kernel swp2 as eth2
kernel swp3 as eth3
proxy 10 on
proxy 11 on
querier 10 version 3
querier 11 version 3
start
report 10 swp1 from 10.0.0.1 include 239.1.1.1 192.0.2.1 192.0.2.2
expect records Vlan10swp1 none
expect records Vlan10swp2 239.1.1.1 include 192.0.2.1 192.0.2.2
expect records Vlan10swp3 239.1.1.1 include 192.0.2.1 192.0.2.2
expect records Vlan11swp1 none

report 10 swp2 from 10.0.0.2 include 239.1.1.1 192.0.2.3
report 10 swp2 from 10.0.0.2 exclude 239.1.1.2
expect records Vlan10swp1 239.1.1.1 include 192.0.2.3, 239.1.1.2 exclude
expect records Vlan10swp2 239.1.1.1 include 192.0.2.1 192.0.2.2
expect records Vlan10swp3 239.1.1.1 include 192.0.2.1 192.0.2.2 192.0.2.3, 239.1.1.2 exclude

leave 10 swp1 from 10.0.0.1 239.1.1.1
expect records Vlan10swp1 239.1.1.1 include 192.0.2.3, 239.1.1.2 exclude
expect records Vlan10swp2 none
expect records Vlan10swp3 239.1.1.1 include 192.0.2.3, 239.1.1.2 exclude

# A host that comes later reports what has been heard so far with the next report.
topology 10 -swp3
topology 10 swp3
report 11 swp1 from 10.0.0.9 exclude 239.1.1.9
expect records Vlan10swp3 239.1.1.1 include 192.0.2.3, 239.1.1.2 exclude

# Listeners that are silent for 270 seconds (RFC 9776 section 8.4) are forgotten.
wait 269
expect nothing changed
wait 2
expect records Vlan10swp1 none
expect records Vlan10swp3 none
