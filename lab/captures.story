# The story of the bundled captures, played by make-captures: at which second (after the querier in
# the router began) which host calls what on its socket. The commands are those of lab/listener.
#
#   swp1  tv      10.0.10.11  IGMPv3       swp3  radio   10.0.10.31  IGMPv2
#         tablet  10.0.10.12  IGMPv3             relic   10.0.10.32  IGMPv1
#   swp2  desk    10.0.10.21  IGMPv3       swp4  router  10.0.10.1   queries VLAN 10, untagged
#         desk20  10.0.20.21  VLAN 20              "     10.0.20.1   queries VLAN 20, tagged

# Four listeners of one group, two of them behind one port, one of them IGMPv2.
 1  tv      join 239.1.1.1
 2  desk    join 239.1.1.1
 3  tablet  join 239.1.1.1
 4  radio   join 239.1.1.1

# Source-specific listeners: a channel, more sources of it, overlapping sources on another port.
 5  tv      join 232.1.1.1 from 192.0.2.1
 6  tv      join 232.1.1.1 from 192.0.2.2 192.0.2.3
 7  desk    join 232.1.1.1 from 192.0.2.2 198.51.100.7
 8  tablet  join 232.1.1.2 from 198.51.100.1

# Listeners that want all sources but some: exclude mode with sources.
 9  desk    join 239.2.2.2
10  desk    block 192.0.2.9 in 239.2.2.2
11  desk    block 192.0.2.10 198.51.100.9 in 239.2.2.2
12  tablet  join 239.2.2.2
13  tablet  block 192.0.2.9 in 239.2.2.2

# VLAN 20, the old hosts, and a listener that changes its filter mode.
14  desk20  join 239.20.1.1
15  desk20  join 232.20.1.1 from 192.0.2.20 192.0.2.21
16  desk20  join 239.20.2.2
17  relic   join 239.4.4.4
18  radio   join 239.3.3.3
19  tv      join 239.3.3.3
20  tv      filter 239.3.3.3 include 192.0.2.31 192.0.2.32
21  desk    join 239.3.3.3
22  desk    block 192.0.2.31 192.0.2.40 in 239.3.3.3

# Sources come back and go, and leaves of every kind.
25  desk    unblock 192.0.2.10 in 239.2.2.2
26  tv      leave 232.1.1.1 from 192.0.2.2
27  tablet  leave 232.1.1.2 from 198.51.100.1
28  radio   leave 239.3.3.3
30  tablet  leave 239.1.1.1
31  desk20  leave 239.20.2.2
32  desk20  leave 232.20.1.1 from 192.0.2.20
33  relic   leave 239.4.4.4                   # says nothing: IGMPv1 has no leave
34  tv      join 239.5.5.5
35  tv      filter 239.5.5.5 exclude 192.0.2.51 192.0.2.52
36  tv      filter 239.5.5.5 include          # wants no source any more: a leave
37  desk    join 239.5.5.5

# Meanwhile a last general query in each VLAN hears from everyone who is still listening.
48  end
