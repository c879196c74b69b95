#pragma once

#include <cstdint>
#include <functional>
#include <set>

#include "framework/entities/IgmpContextStatus.h"
#include "platform/horix/TimerWheel.h"

namespace Bridging::IgmpSnooping {

/// Forgets what was learned on a port of a VLAN, piece by piece: the port may be a member of very
/// many groups, and nothing else is to wait for that. What is heard on the port meanwhile is kept.
class PortForgetting final : private Horix::Timer {
 public:
  /// Forgets what the port wants of a group, if it wants anything.
  using Forget = std::function<void(Wirex::IpAddr)>;

  /// Begins at once, and ends before it returns where that takes little time.
  PortForgetting(Kel::Ptr<IgmpContextStatus const> status,
                 Kel::Ptr<Horix::TimerWheel const> timerWheel, Forget forget);

  /// Whether everything is forgotten.
  bool isOver() const { return left_ == 0; }

  /// To be called before something of a group is heard on the port: what was learned of the group
  /// before goes now, and what is heard from now on stays.
  void hears(Wirex::IpAddr group);

 private:
  void onExpiry() override;
  void goOn(Horix::Time end);

  Kel::Ptr<IgmpContextStatus const> status_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  Forget forget_;
  // Those in the places below it. The last group takes the place of one that goes, so that walking
  // from the last place to the first passes none by. It may visit one that has come meanwhile.
  std::uint32_t left_;
  std::set<Wirex::IpAddr> heard_;  // groups, meanwhile
};

}  // namespace Bridging::IgmpSnooping
