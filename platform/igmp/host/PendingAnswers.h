#pragma once

#include <memory>
#include <vector>

#include "platform/horix/TimerWheel.h"
#include "platform/igmp/HostMemory.h"
#include "platform/igmp/host/HostWakeup.h"
#include "platform/igmp/host/RandomDelays.h"
#include "platform/igmp/host/ReceptionState.h"
#include "platform/igmp/host/ReportWriter.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

/// The answers that a host owes to queries (RFC 9776 section 5.2; RFC 2236 section 3 towards older
/// queriers). What they say is read from the host's records when they are sent. Those that fall due
/// in one batch are written together.
class PendingAnswers {
 public:
  /// @param host, delays outlive this.
  PendingAnswers(IgmpHost const& host, Kel::Ptr<Horix::TimerWheel const> timerWheel,
                 RandomDelays& delays, Kel::Ptr<HostWakeup const> wakeup);
  ~PendingAnswers();

  /// Makes what the query asks pending. Whether a timer runs for a group tells RFC 2236's Delaying
  /// Member from its Idle Member.
  /// @param mode the version that the host speaks.
  void query(Query const& query, IgmpVersion mode);

  /// What is pending is answered in another version.
  void versionIs(IgmpVersion mode);

  /// Whether some group's answer is pending.
  bool anyGroup() const noexcept { return !groups_.empty(); }

  /// Takes back the answer for a group. Returns whether one was pending.
  bool cancel(Wirex::IpAddr group);
  void cancelAll();

  /// Writes the answers that are due until the writer is full. Returns the groups that were
  /// reported in an older version.
  std::vector<Wirex::IpAddr> write(ReportWriter& writer, IgmpVersion mode);

  /// What is owed, and to owe it again.
  std::vector<HostMemory::Answer> pending() const;
  void pendingIs(HostMemory::Answer const& answer, IgmpVersion mode);

  /// Drops the answers that are due.
  void dropDue();

 private:
  class GeneralAnswer;
  class GroupAnswer;
  class OlderRound;

  void generalQuery(Horix::Time delay);
  void groupQuery(Query const& query, Horix::Time delay);
  void olderQuery(Query const& query);
  void olderGeneralQuery(Horix::Time maxResponseTime);
  void beginOlderRound(Horix::Time maxResponseTime);
  void continueOlderRound();
  void endOlderRound();
  void olderQuery(Wirex::IpAddr group, Horix::Time maxResponseTime);
  GroupAnswer& answerFor(Wirex::IpAddr group);

  void handleDue(GroupAnswer& answer);
  void handleGeneralDue();
  std::unique_ptr<GroupAnswer> takeDue(Wirex::IpAddr group);
  void beginGeneral();
  static void writeState(Wirex::IpAddr group, ReceptionState const& state, ReportWriter& writer);
  void write(GroupAnswer const& answer, ReportWriter& writer) const;

  IgmpHost const& host_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  RandomDelays& delays_;
  Kel::Ptr<HostWakeup const> wakeup_;
  std::unique_ptr<GeneralAnswer> general_;
  std::unique_ptr<OlderRound> olderRound_;
  bool generalDue_ = false;
  Kel::Table<Wirex::IpAddr, std::unique_ptr<GroupAnswer>> groups_;
  std::vector<Wirex::IpAddr> due_;
  std::vector<Wirex::IpAddr> unanswered_;  // what is left of the general answer, the next one last
};

}  // namespace Igmp
