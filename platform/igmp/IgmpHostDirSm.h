#pragma once

#include "framework/kel/Activity.h"
#include "framework/kel/Collection.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/HostMemory.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/SentRecords.h"

namespace Igmp {

class HostSm;

/// The host library: runs every host of a directory as an IGMP host (RFC 9776 sections 5 and 7;
/// RFC 2236 and RFC 1112 towards older queriers), and keeps a status for each. A host that is
/// disabled or removed while it can send leaves the groups that it has reported. When the library
/// itself ends, hosts just fall silent. Single-threaded, on the thread of the timer wheel.
class KEL_EXPORT IgmpHostDirSm : public Kel::PtrInterface {
 public:
  /// @param activity on which the machine works; empty for one of its own.
  IgmpHostDirSm(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<IgmpHostDir> igmpHostDir,
                Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir,
                Kel::Ptr<Horix::TimerWheel const> timerWheel);
  ~IgmpHostDirSm() override;

  Kel::Ptr<Kel::ActivityConfig> const& activity() const { return activity_; }
  Kel::Ptr<IgmpHostDir> const& igmpHostDir() const { return igmpHostDir_; }
  Kel::Ptr<IgmpHostStatusDir> const& igmpHostStatusDir() const { return igmpHostStatusDir_; }
  Kel::Ptr<Horix::TimerWheel const> const& timerWheel() const { return timerWheel_; }

  /// What a host has told and owes; empty if there is none.
  HostMemory memory(Kel::Name const& host) const;

  /// Hands a memory to a host that is still to be made. When it can first send, it goes on from
  /// there instead of telling all it has as new. To be taken back, by memoryDelAll(), before
  /// routers may have forgotten what they were told.
  void memoryIs(Kel::Name const& host, HostMemory memory);
  /// Hosts that have not gone on from their memory by now begin as new.
  void memoryDelAll();

  /// What a host last sent of a group, if that is remembered.
  std::optional<SentRecords::Sent> lastSent(Kel::Name const& host, Wirex::IpAddr group) const;

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelIgmpHostDir;

  void handleIgmpHost(Kel::Name const& name);
  void handleIgmpHosts();
  void remove(Kel::Name const& name);

  Kel::Ptr<Kel::ActivityConfig> activity_;
  Kel::Ptr<IgmpHostDir> igmpHostDir_;
  Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  Kel::Ptr<SentRecords> sent_ = Kel::make<SentRecords>();
  Kel::Table<Kel::Name, HostMemory> memories_;
  Kel::OwnedMembers<Kel::Name, HostSm> hosts_;
  Kel::Ptr<KelIgmpHostDir> kelIgmpHostDir_;
};

}  // namespace Igmp
