#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <random>
#include <utility>
#include <vector>

#include "tests/agent/soak/Wire.h"

namespace Agent::Soak {

/// What is to happen outside of the switches, and when. Things of the same time happen in the order
/// in which they were entered. An entry cannot be taken back: who no longer means it does nothing.
class Agenda {
 public:
  Time now() const { return now_; }

  void at(Time time, std::function<void()> action) {
    entries_.push({time, entered_++, std::move(action)});
  }
  void in(Time delay, std::function<void()> action) { at(now_ + delay, std::move(action)); }

  std::optional<Time> next() const {
    return entries_.empty() ? std::nullopt : std::optional(entries_.top().time);
  }

  /// Makes it so late; nothing happens before runDue().
  void timeIs(Time time) { now_ = time; }

  void runDue() {
    while (!entries_.empty() && entries_.top().time <= now_) {
      std::function<void()> const action = std::move(entries_.top().action);
      entries_.pop();
      action();
    }
  }

 private:
  struct Entry {
    Time time;
    std::uint64_t number;
    mutable std::function<void()> action;

    friend bool operator<(Entry const& a, Entry const& b) {
      return std::pair(b.time, b.number) < std::pair(a.time, a.number);  // the earliest on top
    }
  };

  Time now_ = Time::zero();
  std::uint64_t entered_ = 0;
  std::priority_queue<Entry> entries_;
};

/// Random choices that are the same on every machine for the same seed.
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : random_(seed) {}

  /// Below `end`.
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }
  bool oneIn(unsigned times) { return below(times) == 0; }

  /// Later than at once, and not later than `longest`.
  Time delay(Time longest) {
    return Time(1 + static_cast<Time::rep>(random_() % static_cast<std::uint64_t>(
                                                           std::max(longest, Time(1)).count())));
  }

  template <class Items>
  auto& of(Items& items) {
    return items[below(static_cast<unsigned>(items.size()))];
  }

 private:
  std::mt19937_64 random_;
};

/// What all listeners, routers and switches of a soak go by.
constexpr unsigned robustness = 2;
constexpr auto queryInterval = std::chrono::seconds(125);
constexpr auto queryResponseTime = std::chrono::seconds(10);
constexpr auto lastMemberQueryInterval = std::chrono::seconds(1);
constexpr auto groupMembershipInterval = robustness * queryInterval + queryResponseTime;
constexpr auto otherQuerierPresentInterval = robustness * queryInterval + queryResponseTime / 2;

}  // namespace Agent::Soak
