#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "framework/kel/Export.h"
#include "framework/kel/Table.h"
#include "framework/types/IntfId.h"
#include "platform/igmp/wire/IgnoreReason.h"
#include "platform/snooping/SnoopingPolicy.h"

namespace Bridging::IgmpSnooping {

/// What one port of a VLAN has of what is limited.
struct PortUse {
  std::uint32_t groups = 0;         ///< that have members on the port
  std::uint32_t groupsOfShare = 0;  ///< of these, charged to the port's share
  std::uint32_t memberships = 0;    ///< of all groups
  std::uint32_t sources = 0;        ///< of all memberships
};

/// What a port's entry of a group was charged to.
enum class GroupCharge : std::uint8_t { share, common };

/// Deals out a VLAN's groups to its ports, so that no port's greed cuts off another one: half of
/// them is divided among the member ports, a share for each that nobody else can take. The other
/// half is common: a port that has used up its share takes from there, and a group that several
/// ports have from there is taken once.
class KEL_EXPORT PortShares {
 public:
  /// A member port more, or one that is known already.
  void portIs(Wirex::IntfId const& intf);
  /// A member port less. What it has stays counted until it goes.
  void portDel(Wirex::IntfId const& intf);

  /// What the port has, to be counted by who adds and removes entries.
  PortUse& use(Wirex::IntfId const& intf);

  /// What a port's new entry of a group would be charged to, or why it may have none.
  /// @param isCommon whether another port's entry of the group is charged to what is common.
  struct Decision {
    /// Nothing if it may have the entry.
    std::optional<Igmp::IgnoreReason> refusal;
    /// Meaningless where it is refused.
    GroupCharge charge = GroupCharge::common;
  };
  /// Decides about one more group on a port that is used so far.
  Decision decide(PortUse const& use, bool isCommon, SnoopingPolicy const& policy) const;

  /// A group has its first entry that is charged to what is common.
  void commonGroupAdded() { ++commonGroups_; }
  /// A group has lost its last entry that is charged to what is common.
  void commonGroupRemoved() { --commonGroups_; }

 private:
  struct Port {
    PortUse use;
    bool isMember = false;
  };

  Port& port(Wirex::IntfId const& intf);

  Kel::Table<Wirex::IntfId, std::unique_ptr<Port>> ports_;
  std::uint32_t members_ = 0;
  std::uint32_t commonGroups_ = 0;
};

}  // namespace Bridging::IgmpSnooping
