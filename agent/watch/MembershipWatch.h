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

/// A change of a reporter's membership. Without `before` it is new, without `after` gone.
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
/// notifications in between only mark what may have changed. Single-threaded.
class MembershipWatch {
 public:
  /// Groups that are there already are watched from watchSome() on.
  /// @param of which memberships to watch; the others cost next to nothing.
  explicit MembershipWatch(
      Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> const& protocolStatus,
      Selection of = {});
  MembershipWatch(MembershipWatch const&) = delete;
  MembershipWatch& operator=(MembershipWatch const&) = delete;
  ~MembershipWatch();

  /// Begins to watch so many more of the groups that were there at the beginning. What is there now
  /// becomes the settled state. Returns whether there are more of them.
  bool watchSome(std::size_t groups);

  /// Stops watching so many groups, which ends the watch in pieces: nothing else may be called
  /// afterwards. Returns whether there are more of them.
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
