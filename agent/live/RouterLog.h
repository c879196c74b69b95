#pragma once

#include <set>
#include <utility>
#include <vector>

#include "framework/kel/Reactors.h"
#include "platform/horix/TimerWheel.h"
#include "platform/snooping/RouterPorts.h"
#include "platform/snooping/TurnedAway.h"
#include "platform/snooping/VlanQuerier.h"

namespace Agent {

/// Warns of a querier that does not speak the version that is configured, and says what to do.
void warnOf(Bridging::IgmpSnooping::OtherVersion const& other);

/// Warns of a port that has reached a limit, and says what that does.
void warnOfLimit(Bridging::IgmpSnooping::LimitReached const& reached);

/// Logs on which interfaces multicast routers are heard, and where one no longer is. At most once
/// a second, so that a neighbor whose PIM hellos come and go does not flood the log.
class RouterLog final : private Horix::Timer {
 public:
  using RouterPorts = Bridging::IgmpSnooping::RouterPorts;

  explicit RouterLog(Kel::Ptr<Horix::TimerWheel const> timerWheel);
  RouterLog(RouterLog const&) = delete;
  RouterLog& operator=(RouterLog const&) = delete;
  ~RouterLog() override;

  /// Follows these VLANs and no others.
  void vlansAre(std::vector<Kel::Ptr<RouterPorts const>> const& vlans);

 private:
  using Place = std::pair<Bridging::VlanId, Wirex::IntfId>;

  class KelRouterPorts;

  void handleRouterPorts();
  void tell();
  void onExpiry() override;

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  Kel::Reactors<Bridging::VlanId, KelRouterPorts> routerPorts_;
  std::set<Place> told_;
  bool changed_ = false;  // since all was told
};

}  // namespace Agent
