#pragma once

#include <functional>
#include <utility>

#include "platform/horix/TimerWheel.h"

namespace Agent {

/// Does something later, once for each time that it is set.
class Alarm final : public Horix::Timer {
 public:
  Alarm(Kel::Ptr<Horix::TimerWheel const> timerWheel, std::function<void()> action)
      : timerWheel_(std::move(timerWheel)), action_(std::move(action)) {}

  void in(Horix::Time delay) { timerWheel_->schedule(*this, delay); }
  /// At once, or as soon as it would anyway.
  void within(Horix::Time delay) {
    if (!scheduled() || deadline() > timerWheel_->now() + delay) in(delay);
  }

 private:
  void onExpiry() override { action_(); }

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::function<void()> action_;
};

}  // namespace Agent
