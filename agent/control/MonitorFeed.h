#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/Switch.h"
#include "agent/control/Answer.h"
#include "agent/watch/Selection.h"
#include "platform/horix/TimerWheel.h"

namespace Agent {

/// What a monitor asks for.
struct MonitorScope {
  Selection of;
  bool memberships = true;
  bool records = true;

  friend bool operator==(MonitorScope const&, MonitorScope const&) = default;
};

/// Throws std::invalid_argument.
/// @param kind "membership", "record", or empty for both.
MonitorScope monitorScope(std::string const& kind, Selection of);

/// Tells monitors of each change of memberships and records, in lines of JSON: {"time":T}, and then
/// {"membership":{...}} and {"record":{...}} as they happen. While nobody monitors it watches
/// nothing; the first monitor waits until all is watched, which begins and ends piece by piece.
/// What is watched exists once however quickly monitors come and go: one that comes while the
/// watches of the last one end waits for that too. A monitor that leaves too much unread is told so
/// and hears no more.
class MonitorFeed {
 public:
  static constexpr std::size_t mostUnread = 1 << 20;  // bytes

  /// @param snoopingSwitch outlives the feed.
  /// @param cutOff is called for each monitor that was too slow.
  MonitorFeed(Switch& snoopingSwitch, Horix::TimerWheel& timerWheel, Horix::Time start,
              MonitorScope scope, std::function<void()> cutOff);
  MonitorFeed(MonitorFeed const&) = delete;
  MonitorFeed& operator=(MonitorFeed const&) = delete;
  ~MonitorFeed();

  MonitorScope const& scope() const { return scope_; }

  /// Whether it has nothing to do any more.
  bool isIdle() const { return monitors_.empty() && !ending_; }

  /// One more monitor. It goes when its answer does, which is before the feed does.
  std::unique_ptr<Answer> monitor();

 private:
  class Monitor;
  class Watches;
  class Ending;

  void begin();
  void end();
  /// Takes up a piece of what is not watched yet, or gives up a piece of what is to end first.
  /// Returns whether all is watched.
  bool watchSome();
  /// Returns whether there is more.
  bool endSome();
  void publish();
  void remove(Monitor const& monitor);

  Switch& switch_;
  Horix::TimerWheel& timerWheel_;
  Horix::Time start_;
  MonitorScope scope_;
  std::function<void()> cutOff_;
  std::vector<Monitor*> monitors_;
  std::unique_ptr<Watches> watches_;
  std::unique_ptr<Ending> ending_;  // of the watches before
};

}  // namespace Agent
