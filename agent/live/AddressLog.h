#pragma once

#include <set>

#include "agent/Switch.h"

namespace Agent {

/// Warns of VLANs in which the switch is to find its own address and has none, with what that
/// costs. Each is told when it becomes so: not at once, because an interface that is made anew gets
/// its bridge and its address a moment later.
class AddressLog final : private Horix::Timer {
 public:
  /// @param snoopingSwitch outlives this.
  AddressLog(Switch const& snoopingSwitch, Kel::Ptr<Horix::TimerWheel const> timerWheel);
  AddressLog(AddressLog const&) = delete;
  AddressLog& operator=(AddressLog const&) = delete;
  ~AddressLog() override;

  /// Interfaces, addresses or the configuration have changed.
  void changed();

 private:
  void onExpiry() override;
  void check(VlanConfig const& vlan);

  Switch const& switch_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::set<Bridging::VlanId> withoutSender_;
  std::set<Bridging::VlanId> withoutQuerier_;
};

}  // namespace Agent
