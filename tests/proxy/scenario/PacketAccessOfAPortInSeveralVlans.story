title A port's device serves its hosts in all VLANs
proxy 10 on
proxy 11 on
querier 10 version 3
querier 11 version 3
topology 10 swp1
topology 11 swp1 swp2
kernel swp1 as eth0
start
expect hosts Vlan10swp1 Vlan11swp1
expect mapping swp1 10 11
expect mapping swp2 none

desired swp1
expect trace 7 "Creating Vlan Pam for Vlan10swp1"
expect trace 7 "Creating Vlan Pam for Vlan11swp1"
expect host Vlan10swp1 pam yes
expect host Vlan11swp1 pam yes

# One VLAN less leaves the port with the other; the last one takes its entry along.
topology 10 -swp1
expect mapping swp1 11
expect devices swp1
expect host Vlan11swp1 pam yes
no querier 11
expect mapping swp1 none
expect devices none
querier 11 version 3
expect mapping swp1 11

# A device that is open already connects a new host at once.
topology 10 swp1
expect trace 7 "Creating Vlan Pam for Vlan10swp1"
expect host Vlan10swp1 pam yes
expect mapping swp1 10 11

# One that no host needs stays closed.
desired swp2
expect nothing changed
kernel swp2 as eth1
expect devices swp1 swp2
expect host Vlan11swp2 pam yes
