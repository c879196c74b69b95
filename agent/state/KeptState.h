#pragma once

#include <cstdint>
#include <tuple>
#include <variant>
#include <vector>

#include "framework/types/IgmpVersion.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "platform/horix/Clock.h"
#include "platform/wirex/Ethernet.h"

/// What an agent leaves to the one that follows it: one entry for each thing that is known. What an
/// entry holds stands once, in its `fields`, which reading and writing share. Times are those of
/// the writer's monotonic clock, with a resolution of a tenth of a second; Horix::Time::max() is
/// never.
namespace Agent {

struct KeptSource {
  Wirex::IpAddr address;
  Horix::Time until{};

  static auto fields(auto& self) { return std::tie(self.address, self.until); }
  friend bool operator==(KeptSource const&, KeptSource const&) = default;
};

/// INCLUDE(A), or EXCLUDE(X,Y), as Bridging::IgmpSnooping::TimedFilter has it.
struct KeptMembership {
  Bridging::VlanId vlan;  ///< in which it is learned: a primary one
  Wirex::IntfId interface;
  Wirex::IpAddr group;
  Wirex::IpAddr reporter;
  bool excludes = false;
  Horix::Time until{};                    ///< of EXCLUDE mode
  std::vector<KeptSource> requested{};    ///< A, or X
  std::vector<Wirex::IpAddr> excluded{};  ///< Y

  static auto fields(auto& self) {
    return std::tie(self.vlan, self.interface, self.group, self.reporter, self.excludes, self.until,
                    self.requested, self.excluded);
  }
  friend bool operator==(KeptMembership const&, KeptMembership const&) = default;
};

/// A router that was heard: a querier, or by its PIM hellos.
struct KeptRouter {
  Bridging::VlanId vlan;
  Wirex::IntfId interface;
  bool byPim = false;
  Wirex::IpAddr address;
  Horix::Time until{};

  static auto fields(auto& self) {
    return std::tie(self.vlan, self.interface, self.byPim, self.address, self.until);
  }
  friend bool operator==(KeptRouter const&, KeptRouter const&) = default;
};

/// A VLAN's elected querier, where that is not the switch, as
/// Bridging::IgmpSnooping::OtherQuerier has it.
struct KeptQuerier {
  Bridging::VlanId vlan;
  Wirex::IntfId interface;
  Wirex::IpAddr address;
  Wirex::MacAddress macAddress{};
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v3;
  std::uint8_t robustness = 0;
  Horix::Time queryInterval{};
  Horix::Time until{};

  static auto fields(auto& self) {
    return std::tie(self.vlan, self.interface, self.address, self.macAddress, self.version,
                    self.robustness, self.queryInterval, self.until);
  }
  friend bool operator==(KeptQuerier const&, KeptQuerier const&) = default;
};

/// An older version of IGMP that a querier of a VLAN speaks, and so its hosts do.
struct KeptOlderVersion {
  Bridging::VlanId vlan;
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v2;
  Wirex::IpAddr querier;
  Horix::Time until{};

  static auto fields(auto& self) {
    return std::tie(self.vlan, self.version, self.querier, self.until);
  }
  friend bool operator==(KeptOlderVersion const&, KeptOlderVersion const&) = default;
};

// What follows is handed over only: from a file, it could be behind what the wire has heard.

struct KeptPort {
  Bridging::VlanId vlan;
  Wirex::IntfId interface;

  static auto fields(auto& self) { return std::tie(self.vlan, self.interface); }
  friend bool operator==(KeptPort const&, KeptPort const&) = default;
};

/// The switch's own querier where it is elected, as Bridging::IgmpSnooping::QueryCourse has it.
struct KeptQueryCourse {
  Bridging::VlanId vlan;
  Horix::Time next{};
  std::uint8_t startupQueriesLeft = 0;
  std::vector<KeptPort> asked{};

  static auto fields(auto& self) {
    return std::tie(self.vlan, self.next, self.startupQueriesLeft, self.asked);
  }
  friend bool operator==(KeptQueryCourse const&, KeptQueryCourse const&) = default;
};

struct KeptPendingSource {
  Wirex::IpAddr address;
  std::uint8_t transmissions = 0;

  static auto fields(auto& self) { return std::tie(self.address, self.transmissions); }
  friend bool operator==(KeptPendingSource const&, KeptPendingSource const&) = default;
};

/// What a host has told of a group, as Igmp::HostMemory::Told has it.
struct KeptTold {
  KeptPort host;
  Wirex::IpAddr group;
  bool excludes = false;
  std::vector<Wirex::IpAddr> sources{};
  std::uint8_t transmissions = 0;
  std::vector<KeptPendingSource> pendingSources{};

  static auto fields(auto& self) {
    return std::tie(self.host, self.group, self.excludes, self.sources, self.transmissions,
                    self.pendingSources);
  }
  friend bool operator==(KeptTold const&, KeptTold const&) = default;
};

/// An answer that a host owes, as Igmp::HostMemory::Answer has it.
struct KeptAnswer {
  KeptPort host;
  Wirex::IpAddr group;
  std::vector<Wirex::IpAddr> sources{};
  Horix::Time due{};

  static auto fields(auto& self) { return std::tie(self.host, self.group, self.sources, self.due); }
  friend bool operator==(KeptAnswer const&, KeptAnswer const&) = default;
};

/// An older version that is spoken on a host's port.
struct KeptHostVersion {
  KeptPort host;
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v2;
  Wirex::IpAddr querier;
  Horix::Time until{};

  static auto fields(auto& self) {
    return std::tie(self.host, self.version, self.querier, self.until);
  }
  friend bool operator==(KeptHostVersion const&, KeptHostVersion const&) = default;
};

/// Since when what the next entry holds was known: a membership, or a router's port as one.
struct KeptSince {
  Horix::Time since{};
  Horix::Time before{};  ///< of what is older than the writer's clock: by how much

  static auto fields(auto& self) { return std::tie(self.since, self.before); }
  friend bool operator==(KeptSince const&, KeptSince const&) = default;
};

// New ones come last, so that what former programs have written can still be read.
using KeptEntry = std::variant<KeptMembership, KeptRouter, KeptQuerier, KeptOlderVersion,
                               KeptQueryCourse, KeptTold, KeptAnswer, KeptHostVersion, KeptSince>;

}  // namespace Agent
