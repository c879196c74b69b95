#pragma once

#include <functional>
#include <map>
#include <utility>

#include "agent/ProxyStandIn.h"
#include "agent/SwitchEntities.h"
#include "agent/config/Configuration.h"
#include "platform/horix/TimerWheel.h"
#include "platform/snooping/SnoopedPort.h"
#include "platform/snooping/VlanLearning.h"

namespace Agent {

/// Everything between the frames that come in and the records that hosts report: the same for a
/// live switch and for a replay, which differ in where frames come from and in the clock.
///
///     frame -> SnoopedPort -> VlanLearning -> status entities -> AdapterSm -> IgmpHost records
///
/// The driver receives frames into ports, and ends each batch of input, and each expiry of timers,
/// with `publish()`. Single-threaded.
class Switch {
 public:
  using Ports = std::map<Wirex::IntfId, Bridging::IgmpSnooping::SnoopedPort>;

  Switch(Configuration const& configuration, Kel::Ptr<Horix::Clock> clock);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;

  SwitchEntities const& entities() const { return entities_; }
  Ports const& ports() const { return ports_; }

  /// Null if the configuration has no such interface.
  Bridging::IgmpSnooping::SnoopedPort* port(Wirex::IntfId const& intf);

  Horix::Time now() const { return timerWheel_->now(); }

  /// Lets time pass up to `time` on the clock: what expires meanwhile is published when it does.
  void advanceTo(Horix::Time time);

  /// Rewrites the hosts' records after the changes since the last time.
  void publish();

  /// Does `action` at the end of each publish(), when the records have settled.
  void afterPublishIs(std::function<void()> action) { afterPublish_ = std::move(action); }

 private:
  using VlanLearning = Bridging::IgmpSnooping::VlanLearning;

  void addLearning(VlanConfig const& vlan);
  void addPorts(Configuration const& configuration);
  VlanLearning& learningOf(VlanConfig const& vlan);

  SwitchEntities entities_;
  Kel::Ptr<Horix::TimerWheel> timerWheel_;
  ProxyStandIn proxy_;
  Bridging::IgmpSnooping::ReportBatch batch_;
  std::map<Bridging::VlanId, VlanLearning> learning_;
  Ports ports_;
  std::function<void()> afterPublish_ = [] {};
};

}  // namespace Agent
