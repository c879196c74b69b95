#include "agent/control/MonitorFeeds.h"

#include <algorithm>
#include <utility>

namespace Agent {

MonitorFeeds::MonitorFeeds(Switch& snoopingSwitch, Horix::TimerWheel& timerWheel, Horix::Time start,
                           CutOff cutOff)
    : switch_(snoopingSwitch), timerWheel_(timerWheel), start_(start), cutOff_(std::move(cutOff)) {}

std::unique_ptr<Answer> MonitorFeeds::monitor(MonitorScope const& scope) {
  std::erase_if(feeds_, [](auto const& feed) { return feed->isIdle(); });
  auto found = std::find_if(feeds_.begin(), feeds_.end(),
                            [&](auto const& feed) { return feed->scope() == scope; });
  if (found == feeds_.end())
    found = feeds_.insert(
        feeds_.end(), std::make_unique<MonitorFeed>(switch_, timerWheel_, start_, scope, cutOff_));
  return (*found)->monitor();
}

}  // namespace Agent
