#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>

#include "agent/Switch.h"
#include "agent/control/ControlServer.h"
#include "platform/interface/CaptureEthDevPams.h"

namespace Bench {

/// The monotonic clock, which may be put forward.
class ShiftedClock final : public Horix::Clock {
 public:
  Horix::Time now() const override { return clock_->now() + ahead_; }
  void waitUntil(Horix::Time time) override { clock_->waitUntil(time - ahead_); }
  void putForward(Horix::Time by) { ahead_ += by; }

 private:
  Kel::Ptr<Horix::Clock> clock_ = Kel::make<Horix::MonotonicClock>();
  Horix::Time ahead_{};
};

/// An agent without a kernel: it hears what it is told, and its control socket is a real one. It
/// knows how much of the processor its longest turn took, which other programs do not disturb.
class LoadedAgent {
 public:
  /// @param configuration TOML without errors.
  explicit LoadedAgent(std::string const& configuration);
  LoadedAgent(LoadedAgent const&) = delete;
  LoadedAgent& operator=(LoadedAgent const&) = delete;
  ~LoadedAgent();

  /// Has as many memberships learned on a port, each in a group of its own or all in one group.
  void fill(unsigned port, unsigned reporters, unsigned groups);
  std::size_t memberships() const;

  void configure(std::string const& configuration);

  /// What follows counts, and nothing before.
  void beginMeasuring() { longest_ = total_ = {}; }

  /// Does something as part of a turn, and turns until nothing is left to do.
  template <class Action>
  void turnAfter(Action action) {
    timed([&] {
      action();
      turn();
    });
    settle();
  }

  /// Sends a request, and turns until the answer ends or has as many lines.
  /// @return the bytes of the answer.
  std::size_t ask(std::string const& request, std::size_t lines = ~std::size_t{});

  void settle();
  Horix::Time longestTurn() const { return longest_; }
  Horix::Time total() const { return total_; }

  Agent::Switch& theSwitch() { return switch_; }
  ShiftedClock& clock() { return *clock_; }
  Kel::Ptr<Horix::TimerWheel> const& timerWheel() { return loop_.timerWheel(); }

 private:
  template <class Action>
  Horix::Time timed(Action action) {
    Horix::Time const begin = processorTime();
    action();
    Horix::Time const taken = processorTime() - begin;
    longest_ = std::max(longest_, taken);
    total_ += taken;
    return taken;
  }

  static Horix::Time processorTime();
  void turn() { loop_.turn(loop_.now()); }

  std::filesystem::path directory_;
  Kel::Ptr<ShiftedClock> clock_ = Kel::make<ShiftedClock>();
  Horix::EventLoop loop_{Kel::make<Horix::TimerWheel>(clock_)};
  Interface::CaptureEthDevPams devices_;
  Agent::Switch switch_;
  Agent::ControlServer control_;
  Horix::Time longest_{};
  Horix::Time total_{};
};

}  // namespace Bench
