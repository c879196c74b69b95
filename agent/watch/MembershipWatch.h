#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "agent/watch/HostRecords.h"
#include "agent/watch/Selection.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Reactors.h"

namespace Agent {

/// How what is known of a reporter has changed. Without `before` it is new, without `after` gone.
struct MembershipChange {
  Bridging::VlanId vlan;
  Wirex::IpAddr group;
  Wirex::IntfId interface;
  Wirex::IpAddr reporter;
  std::optional<SourceFilter> before;
  std::optional<SourceFilter> after;

  char const* kind() const { return !before ? "added" : after ? "changed" : "removed"; }
};

/// Tells how memberships change from one settled state to the next, as RecordWatch does of records:
/// what is heard meanwhile says no more than which may have changed. Single-threaded.
class MembershipWatch {
 public:
  /// Of groups that are there already nothing is told until they are taken up.
  /// @param of which to watch; the others cost next to nothing.
  explicit MembershipWatch(
      Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> const& protocolStatus,
      Selection of = {});
  MembershipWatch(MembershipWatch const&) = delete;
  MembershipWatch& operator=(MembershipWatch const&) = delete;
  ~MembershipWatch();

  /// Takes up so many more of the groups that were there from the beginning, and takes all that is
  /// there for the first settled state. Returns whether there are more.
  bool watchSome(std::size_t groups);

  /// Gives up so many groups, so that the end can come in pieces. Nothing may be asked afterwards.
  /// Returns whether there are more.
  bool unwatchSome(std::size_t groups);

  /// What has changed since the last time, by VLAN, group, interface in natural order, and
  /// reporter. To be called when memberships have settled.
  std::vector<MembershipChange> takeChanges();

 private:
  class Protocol;
  class Vlan;
  class Group;
  class Interface;
  class Reporter;

  Selection of_;
  std::vector<Kel::Ptr<Reporter>> touched_;  // each once
  Kel::Ptr<Protocol> protocol_;
};

}  // namespace Agent
