#pragma once

#include <vector>

#include "framework/kel/Reactors.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/host/GroupReporting.h"
#include "platform/igmp/host/HostWakeup.h"
#include "platform/igmp/host/RandomDelays.h"

namespace Igmp {

/// The state-change reports of a host (RFC 9776 section 5.1; RFC 2236 section 3 towards older
/// queriers). While it is active it watches every record. The proxy writes a changed record's list
/// anew, source by source, so records are only marked meanwhile, and compared when the writing is
/// over. What falls due in one batch is written together.
///
/// While it is suspended it watches nothing, but remembers what was reported for as long as a
/// router may, so that what has changed meanwhile is told with the rest.
class UnaskedReports {
 public:
  /// @param delays outlives this.
  UnaskedReports(Kel::Ptr<IgmpHost const> host, Kel::Ptr<Horix::TimerWheel const> timerWheel,
                 RandomDelays& delays, Kel::Ptr<HostWakeup const> wakeup);
  UnaskedReports(UnaskedReports const&) = delete;
  UnaskedReports& operator=(UnaskedReports const&) = delete;
  ~UnaskedReports();

  bool active() const { return active_; }
  void activeIs(bool active);

  /// Has all state told as if it were new.
  void tellAllAsNew();

  /// The same at a random time within the unsolicited report interval. What changes before that
  /// time is told at once.
  void tellAllLater(IgmpVersion mode);

  /// What was told and still holds, and what is still to be told again.
  std::vector<HostMemory::Told> told(IgmpVersion mode) const;

  /// Goes on from what was told: tells only what differs from it, and what was to be told again.
  void goOnFrom(std::vector<HostMemory::Told> const& told, IgmpVersion mode);

  /// Gives up what is still to be told, except of changes that were never compared.
  void cancelPending();

  /// Another member's report of an older version. Spares the repetition of the host's own, if
  /// there is one.
  bool suppress(Wirex::IpAddr group, IgmpVersion mode);

  /// Who was the last to report a group in an older version.
  void otherMemberReportedIs(Wirex::IpAddr group, bool reported);

  /// Whether repetitions in an older version may be pending.
  bool anyGroup() const { return active_ && !groups_.empty(); }

  /// Writes what is due until the writer is full. Must be active.
  void write(ReportWriter& writer, IgmpVersion mode, std::uint8_t robustnessVariable);

  /// Writes that the host leaves all groups that it has reported, and forgets them.
  void writeLeaves(ReportWriter& writer, IgmpVersion mode);

 private:
  friend class GroupReporting;
  class KelRecords;
  class ForgetTimer;

  void follow(Wirex::IpAddr group);
  void followAll();
  void suspend();
  void forgetAll();
  void forgetIfIdle(GroupReporting& reporting);

  // Called by the groups.
  void mark(GroupReporting& reporting);
  void scheduleRepetition(GroupReporting& reporting, IgmpVersion mode);

  Kel::Ptr<IgmpHost const> host_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  RandomDelays& delays_;
  Kel::Ptr<HostWakeup const> wakeup_;
  bool active_ = false;
  Kel::Ptr<KelRecords> records_;
  std::unique_ptr<ForgetTimer> forgetTimer_;
  Kel::Reactors<Wirex::IpAddr, GroupReporting> groups_;
  std::vector<GroupReporting*> marked_;  // to be compared or written, each once
};

}  // namespace Igmp
