#pragma once

#include <map>
#include <string>

#include "tests/agent/soak/Network.h"

/// What a switch at rest must have learned, what its hosts must report, and what routers must
/// believe, each computed anew from who is attached and what is configured; and what is so.
namespace Agent::Soak {

/// Of those who are attached to the switch. At rest nobody has anything to tell any more, and who
/// is not asked has been forgotten.
Memberships expectedMemberships(Network const& network, Box const& box);

/// Of the hosts that there must be: what they must report when this was learned.
Records expectedRecords(Box const& box, Memberships const& learned);

/// Whether the switch takes a place for a router's.
bool isRouterPort(Box const& box, Place const& place);

/// What the host at a place must speak: the version of its VLAN, or that of the oldest querier
/// whose queries it answers, which on a router port are all of the VLAN's.
int expectedVersion(Network const& network, Box const& box, Place const& place);

/// What reporters of one network want together: RFC 9776 section 6.4.1, once the timers of what
/// nobody asks for have run out.
Filter mergedByRouter(std::vector<Filter> const& reporters);

/// What a router must believe when hosts have these records: RFC 9776's merge of what the switch
/// and the listeners at its own place want.
std::map<Address, Filter> expectedBelief(Network const& network, Place const& place,
                                         Router const& router, Records const& records);

/// In words; empty if both are equal.
std::string difference(Memberships const& is, Memberships const& expected);
std::string difference(Records const& is, Records const& expected);
std::string difference(std::map<Address, Filter> const& is,
                       std::map<Address, Filter> const& expected);

}  // namespace Agent::Soak
