#pragma once

#include <map>
#include <set>
#include <string>

#include "agent/Switch.h"
#include "tests/agent/soak/Agenda.h"

/// What the hosts of a switch must report, computed anew from what was learned; and what is so.
namespace Agent::Soak {

/// A port in a VLAN: where somebody is attached.
struct Place {
  std::string port;
  unsigned vlan = 0;

  friend auto operator<=>(Place const&, Place const&) = default;
};

std::ostream& operator<<(std::ostream& out, Place const& place);

std::string nameOf(Wirex::IntfId const& intf);

/// One reporter's membership in a VLAN, a secondary one's in its primary.
struct Membership {
  unsigned vlan = 0;
  Address group;
  std::string port;
  Address reporter;

  friend auto operator<=>(Membership const&, Membership const&) = default;
};
using Memberships = std::map<Membership, Filter>;

std::ostream& operator<<(std::ostream& out, Membership const& membership);

/// By host; a host without records is there too.
using Records = std::map<Place, std::map<Address, Filter>>;

Memberships membershipsOf(Switch const& agent);
Records recordsOf(Switch const& agent);

/// What these hosts must report when this was learned.
Records expectedRecords(Configuration const& configuration, std::set<Place> const& hosts,
                        Memberships const& learned);

}  // namespace Agent::Soak
