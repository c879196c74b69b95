title The bridging configuration says which frames have a tag, and to which VLAN the others belong
topology 10 swp1
topology 11 swp1
kernel swp1 as eth0
proxy 10 on
proxy 11 on
querier 10 version 3
querier 11 version 3
bridging 10 swp1 untagged
bridging 11 swp1 tagged
start
expect egress 10 swp1 untagged
expect egress 11 swp1 tagged
expect untagged swp1 10
expect egress 12 swp1 untagged           # which is not configured
expect untagged swp2 none

bridging 10 swp1 tagged
expect egress 10 swp1 tagged
expect untagged swp1 none
bridging 11 swp1 untagged
expect untagged swp1 11
no bridging 11 swp1
expect egress 11 swp1 untagged
expect untagged swp1 none
