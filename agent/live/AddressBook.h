#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

namespace Agent {

/// The kernel's IPv4 addresses, and how its interfaces stand on one another: finds the address
/// that a switch has itself in a VLAN. What is entered carries the generation of the answer in
/// which the kernel told it, so that the entries that an answer lacks can be dropped.
class AddressBook {
 public:
  using Index = std::uint32_t;  // of an interface; 0 is none

  struct Link {
    std::string name;
    Index bridge = 0;        ///< of which it is a port
    Index below = 0;         ///< of a VLAN device, the interface that it stands on
    std::uint16_t vlan = 0;  ///< of a VLAN device

    friend bool operator==(Link const&, Link const&) = default;
  };

  // Each returns whether something changed.
  bool linkIs(Index index, Link const& link, std::uint32_t generation);
  bool linkDel(Index index);
  bool addressIs(Index index, Wirex::IpAddr address, std::uint32_t generation);
  bool addressDel(Index index, Wirex::IpAddr address);
  bool linksAre(std::uint32_t generation);
  bool addressesAre(std::uint32_t generation);

  /// The first address of the VLAN's device above the interface or above its bridge, else of the
  /// interface itself, else of its bridge; 0.0.0.0 if none of them has one.
  Wirex::IpAddr addressFor(Bridging::VlanId vlan, Wirex::IntfId const& intf) const;

 private:
  struct KnownLink {
    Link link;
    std::uint32_t generation;
  };
  struct KnownAddress {
    Wirex::IpAddr address;
    std::uint32_t generation;
  };

  Wirex::IpAddr firstAddress(Index index) const;
  Wirex::IpAddr firstAddressAbove(Index index, Bridging::VlanId vlan) const;

  std::map<Index, KnownLink> links_;
  std::map<std::string, Index> named_;
  std::map<std::pair<Index, std::uint16_t>, Index> vlanDevices_;
  std::map<Index, std::vector<KnownAddress>> addresses_;  // in the kernel's order
};

}  // namespace Agent
