#pragma once

#include <map>
#include <string>

#include "platform/horix/TimerWheel.h"
#include "platform/snooping/VlanQuerier.h"

namespace Agent {

/// Logs who is elected as each VLAN's querier. At most once a second, so that queriers who take
/// turns do not flood the log.
class QuerierLog final : private Horix::Timer {
 public:
  using VlanQuerier = Bridging::IgmpSnooping::VlanQuerier;

  explicit QuerierLog(Kel::Ptr<Horix::TimerWheel const> timerWheel);
  QuerierLog(QuerierLog const&) = delete;
  QuerierLog& operator=(QuerierLog const&) = delete;
  ~QuerierLog() override;

  /// An election has another outcome than before.
  void elected(VlanQuerier const& querier);

 private:
  void tell();
  void onExpiry() override;

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::map<Bridging::VlanId, std::string> told_;
  std::map<Bridging::VlanId, std::string> untold_;
};

}  // namespace Agent
