#pragma once

#include <functional>
#include <map>
#include <utility>

#include "agent/SwitchEntities.h"
#include "agent/config/Configuration.h"
#include "platform/horix/EventLoop.h"
#include "platform/snooping/SnoopingPamManager.h"
#include "platform/snooping/VlanLearning.h"
#include "proxy/ProxySm.h"

namespace Agent {

/// Everything between the frames that come in and the records that hosts report: the same for a
/// live switch and for a replay, which differ in where frames come from and in the clock.
///
///     device -> SnoopedPort -> VlanLearning -> status entities -> AdapterSm -> IgmpHost records
///
/// Frames come through the thread's Interface::EthDevPams, which must be there before. The loop
/// ends each batch of input and each expiry of timers with a publication. Single-threaded.
class Switch {
 public:
  using Ports = Bridging::IgmpSnooping::SnoopingPamManager::Ports;

  /// @param loop outlives the switch.
  Switch(Configuration const& configuration, Horix::EventLoop& loop);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;
  ~Switch();

  SwitchEntities const& entities() const { return entities_; }
  Ports const& ports() const { return snooping_->port(); }

  Horix::Time now() const { return loop_.now(); }

  /// Does `action` at the end of each publication, when the records have settled.
  void afterPublishIs(std::function<void()> action) { afterPublish_ = std::move(action); }

 private:
  using VlanLearning = Bridging::IgmpSnooping::VlanLearning;

  void addLearning(VlanConfig const& vlan);
  void addPorts(Configuration const& configuration);
  VlanLearning& learningOf(VlanConfig const& vlan);
  void publish();

  SwitchEntities entities_;
  Horix::EventLoop& loop_;
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::ProxySm> proxy_;
  Bridging::IgmpSnooping::ReportBatch batch_;
  std::map<Bridging::VlanId, VlanLearning> learning_;
  Kel::Ptr<Bridging::IgmpSnooping::SnoopingPamManager> snooping_;
  std::function<void()> afterPublish_ = [] {};
};

}  // namespace Agent
