#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "framework/kel/Activity.h"
#include "platform/igmp/HostMemory.h"
#include "platform/igmp/host/PendingAnswers.h"
#include "platform/igmp/host/QuerierVersions.h"
#include "platform/igmp/host/UnaskedReports.h"

namespace Igmp {

/// Runs one host: watches its attributes and the packets that come in through its packet access,
/// and sends what its parts have to say. It lives as long as its host is in the directory. What
/// packets, timers and changed records make due is said when activities run; of very much, a part
/// in each tick, so that what is not said yet can still be changed or taken back. Single-threaded.
///
///     records ---> UnaskedReports --+
///     queries ---> PendingAnswers --+--> ReportWriter ---> packet access
///             `--> QuerierVersions -´    (in this version)
class HostSm final : public Kel::PtrInterface {
 public:
  HostSm(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<IgmpHost const> host,
         Kel::Ptr<IgmpHostStatus> status, Kel::Ptr<SentRecords> sent,
         Kel::Ptr<Horix::TimerWheel const> timerWheel);
  ~HostSm() override;

  Kel::Ptr<IgmpHost const> const& host() const;

  HostMemory memory() const;
  /// The host goes on from it as soon as it can send. Without one it begins as new.
  void memoryIs(std::optional<HostMemory> memory) { memory_ = std::move(memory); }

  /// What it last sent of a group, if that is remembered.
  std::optional<SentRecords::Sent> lastSent(Wirex::IpAddr group) const {
    return sent_->find(number_, group);
  }

  /// Leaves the groups that the host has reported unasked, at once, if it can still send.
  void leave();

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelHost;
  class KelPam;
  class KelVlanQueries;
  class KelWakeup;
  class PauseTimer;

  void handleWakeup();
  void handlePacket();
  void handleEnabled();
  void handlePam();
  void handleIgmpVersion();
  void handleConfigured();
  void handleSettings();
  void handleVlanQueries();
  void handleVlanQuery();
  void handleCompatibilityMode();
  bool followMode();

  QuerierVersions const& oldestQueriers() const;
  bool canSend() const;
  bool canHear() const;
  void updateAccess();
  void goOnFrom(HostMemory const& memory);
  void seedDelays();
  void handleQuery(Wirex::Bytes frame);
  void handleOtherReport(Wirex::Bytes frame);
  ReportWriter newWriter() const;
  std::vector<Wirex::Pkt::Ptr> leaves();
  void send(std::vector<Wirex::Pkt::Ptr> frames);

  Kel::Ptr<Kel::ActivityConfig> activity_;
  Kel::Ptr<IgmpHostStatus> status_;
  Kel::Ptr<SentRecords> sent_;
  std::uint32_t number_;  // among those who have sent
  IgmpVersion mode_;      // the version that the host speaks
  RandomDelays delays_;
  Kel::Ptr<HostWakeup const> wakeup_ = Kel::make<HostWakeup>();
  QuerierVersions querierVersions_;
  PendingAnswers answers_;
  UnaskedReports unaskedReports_;
  std::optional<HostMemory> memory_;    // until the host can send
  bool couldSend_ = false;              // when its access was last updated
  std::deque<Wirex::Pkt::Ptr> outbox_;  // empty but while it is being sent
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::unique_ptr<PauseTimer> pause_;  // runs while the device takes what was sent
  Kel::Ptr<KelHost> kelHost_;
  Kel::Ptr<KelPam> kelPam_;
  Kel::Ptr<KelVlanQueries> kelVlanQueries_;
  Kel::Ptr<KelWakeup> kelWakeup_;
};

}  // namespace Igmp
