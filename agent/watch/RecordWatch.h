#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "agent/watch/HostRecords.h"
#include "agent/watch/Selection.h"
#include "framework/kel/Reactors.h"
#include "framework/types/PortKey.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/IgmpHost.h"

namespace Agent {

/// How a host's record of a group has changed. Without `before` it is new, without `after` gone.
struct RecordChange {
  Bridging::IgmpSnooping::Proxy::PortKey host;
  Wirex::IpAddr group;
  std::optional<SourceFilter> before;
  std::optional<SourceFilter> after;

  /// "added", "changed" or "removed".
  char const* kind() const { return !before ? "added" : after ? "changed" : "removed"; }
};

/// A change, and when it was.
struct RecordEvent {
  Horix::Time time;
  RecordChange change;
};

/// Tells how the hosts' records change from one settled state to the next. The proxy writes a
/// changed record's list anew, source by source, so what is heard meanwhile says no more than which
/// records may have changed; these are compared with what they were when the writing is over. The
/// cost does not grow with the records that nobody touched. Single-threaded.
class RecordWatch {
 public:
  /// Of records that are there already nothing is told until they are taken up.
  /// @param of which to watch; the others cost next to nothing.
  explicit RecordWatch(Kel::Ptr<Igmp::IgmpHostDir> const& hosts, Selection of = {});
  RecordWatch(RecordWatch const&) = delete;
  RecordWatch& operator=(RecordWatch const&) = delete;
  ~RecordWatch();

  /// Takes up so many more of the records that were there from the beginning, and takes all that is
  /// there for the first settled state. Returns whether there are more.
  bool watchSome(std::size_t records);

  /// Gives up so many records, so that the end can come in pieces. Nothing may be asked afterwards.
  /// Returns whether there are more.
  bool unwatchSome(std::size_t records);

  /// What has changed since the last time, by VLAN, interface in natural order, and group. To be
  /// called when the records have settled.
  std::vector<RecordChange> takeChanges();

 private:
  class Directory;
  class Host;
  class Record;
  class SourceList;

  Selection of_;
  std::vector<Record*> touched_;  // each once; a record leaves its host in takeChanges() only
  std::vector<Kel::Name> gone_;   // hosts that were removed
  Kel::Ptr<Directory> directory_;
};

}  // namespace Agent
