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

/// A change of a host's record of a group. Without `before` it is new, without `after` gone.
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
/// changed record's list anew, source by source. So notifications only mark the records that may
/// have changed, and these are compared with what they were once the writing is over. The cost does
/// not grow with the records that nobody touched. Single-threaded.
class RecordWatch {
 public:
  /// Records that are there already are watched from watchSome() on.
  /// @param of which records to watch; the others cost next to nothing.
  explicit RecordWatch(Kel::Ptr<Igmp::IgmpHostDir> const& hosts, Selection of = {});
  RecordWatch(RecordWatch const&) = delete;
  RecordWatch& operator=(RecordWatch const&) = delete;
  ~RecordWatch();

  /// Begins to watch so many more of the records that were there at the beginning. What is there
  /// now becomes the settled state. Returns whether there are more of them.
  bool watchSome(std::size_t records);

  /// Stops watching so many records, which ends the watch in pieces: nothing else may be called
  /// afterwards. Returns whether there are more of them.
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
