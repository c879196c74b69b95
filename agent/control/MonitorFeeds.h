#pragma once

#include <memory>
#include <vector>

#include "agent/control/MonitorFeed.h"

namespace Agent {

/// The feeds of all monitors: those who ask for the same share one, and what nobody asks for is not
/// watched.
class MonitorFeeds {
 public:
  using CutOff = std::function<void()>;

  /// @param snoopingSwitch outlives the feeds.
  /// @param cutOff is called for each monitor that was too slow.
  MonitorFeeds(Switch& snoopingSwitch, Horix::TimerWheel& timerWheel, Horix::Time start,
               CutOff cutOff);

  /// One more monitor. It goes when its answer does, which is before the feeds do.
  std::unique_ptr<Answer> monitor(MonitorScope const& scope);

 private:
  Switch& switch_;
  Horix::TimerWheel& timerWheel_;
  Horix::Time start_;
  CutOff cutOff_;
  std::vector<std::unique_ptr<MonitorFeed>> feeds_;
};

}  // namespace Agent
