#pragma once

#include <cstdint>
#include <optional>

#include "platform/horix/Timer.h"
#include "platform/igmp/host/StateChange.h"

namespace Igmp {

class UnaskedReports;

/// What a host has said of one group without being asked, and has still to say. It watches the
/// host's record of the group, if there is one, and its timer runs to the next repetition.
class GroupReporting final : public IgmpV3GroupRecord::NotifieeConst, public Horix::Timer {
 public:
  GroupReporting(Kel::Ptr<IgmpV3GroupRecord const> const& record, Wirex::IpAddr group,
                 UnaskedReports& reports);
  ~GroupReporting() override;

  Wirex::IpAddr group() const { return group_; }

  /// Whether routers were told nothing that still holds, and nothing is to be told.
  bool idle() const { return reported_.empty() && !marked_ && !pending(); }

  /// Has the whole state told as if it were new.
  void tellAsNew();

  /// The same when its timer expires, or when the record changes before.
  void tellLater();

  /// What was told, and what is still to be told again. Nothing if all is to be told as new.
  std::optional<HostMemory::Told> told(IgmpVersion mode) const;

  /// Goes on from what was told. If the record is not there, it may still come: it is not reported
  /// as gone at once.
  void goOnFrom(HostMemory::Told const& told, IgmpVersion mode);

  /// Gives up what is to be told again, but knows what was told.
  void cancelPending();

  /// Stops watching and telling, but knows what was told and what was still to be told.
  void suspend();

  /// Spares the repetition of a report of an older version. Returns whether there was one to come.
  bool suppressRepetition(IgmpVersion mode);

  /// Whether the group's last report on the link was another member's.
  void otherMemberReportedIs(bool reported) { otherMemberReported_ = reported; }

  /// Compares the record with what was reported, and writes what is due.
  void write(ReportWriter& writer, IgmpVersion mode, std::uint8_t robustnessVariable);

  /// Writes that the host wants the group no longer.
  void writeLeave(ReportWriter& writer, IgmpVersion mode);

  void notifierIs(Kel::Ptr<IgmpV3GroupRecord const> record) override;
  void onFilterMode() override;
  void onSource() override;
  void onHeardBack() override;

 private:
  class KelSourceList;

  bool pending() const { return repetitions_ > 0 || change_.pending(); }
  void followSourceList();
  void touch();
  void mark();
  void onExpiry() override;
  void compare(ReportWriter& writer, IgmpVersion mode, std::uint8_t transmissions);
  void changeTo(ReceptionState state, ReportWriter& writer, IgmpVersion mode,
                std::uint8_t transmissions);

  UnaskedReports& reports_;
  Kel::Ptr<KelSourceList> sourceList_;
  ReceptionState reported_;
  StateChange change_;            // in IGMPv3
  std::uint8_t repetitions_ = 0;  // of an older version's report
  Wirex::IpAddr group_;
  bool otherMemberReported_ = false;
  bool marked_ = false;   // stands among those that `write()` is to be called for
  bool touched_ = false;  // the record may have changed
  bool asNew_ = false;
  bool due_ = false;
};

}  // namespace Igmp
