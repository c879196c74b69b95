#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace Bridging::IgmpSnooping::Proxy::Model {

template <class T>
std::vector<T> without(std::vector<T> const& whole, std::size_t first, std::size_t count) {
  std::vector<T> rest(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(first));
  std::size_t const behind = std::min(whole.size(), first + count);
  rest.insert(rest.end(), whole.begin() + static_cast<std::ptrdiff_t>(behind), whole.end());
  return rest;
}

/// Delta debugging of a failure, whose `events` tell how it came about: leaves events out, first in
/// chunks, then one by one, then two at a time, as long as what is left still fails.
template <class Event, class Failure>
class ShrinkingOf {
 public:
  using Replay = std::function<std::optional<Failure>(std::vector<Event> const&)>;

  ShrinkingOf(Failure failure, Replay replay)
      : failure_(std::move(failure)), replay_(std::move(replay)) {}
  virtual ~ShrinkingOf() = default;

  Failure result() {
    std::size_t before = 0;
    do {
      before = failure_.events.size();
      leaveOutEvents();
      leaveOutPairs();
      leaveOutContents();
    } while (failure_.events.size() < before);
    return failure_;
  }

 protected:
  std::vector<Event> const& events() const { return failure_.events; }

  bool take(std::vector<Event> const& candidate) {
    std::optional<Failure> shorter = replay_(candidate);
    if (!shorter) return false;
    failure_ = std::move(*shorter);
    return true;
  }

 private:
  /// For events that carry something that can be left out of them.
  virtual void leaveOutContents() {}

  void leaveOutEvents() {
    for (std::size_t chunk = failure_.events.size() / 2; chunk > 0; chunk /= 2) {
      bool shorter = true;
      while (std::exchange(shorter, false)) {
        for (std::size_t end = failure_.events.size(); end > 0;) {
          std::size_t const first = end > chunk ? end - chunk : 0;
          if (take(without(failure_.events, first, end - first))) shorter = true;
          end = std::min(first, failure_.events.size());
        }
        if (chunk > 1) break;
      }
    }
  }

  /// Events that undo each other can only go together.
  void leaveOutPairs() {
    for (std::size_t first = 0; first < failure_.events.size(); ++first) {
      for (std::size_t second = first + 1; second < failure_.events.size(); ++second) {
        if (!take(without(without(failure_.events, second, 1), first, 1))) continue;
        second = first;
      }
    }
  }

  Failure failure_;
  Replay replay_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Model
