#include "tests/proxy/model/Sequence.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <utility>

#include "tests/proxy/model/AdapterDriver.h"

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

/// A driver and the events that it was given, less those that found nothing to apply to.
class Play {
 public:
  explicit Play(Perturbation perturbation) : driver_(perturbation) {}

  AdapterDriver const& driver() const { return driver_; }
  std::size_t length() const { return failure_.events.size(); }

  /// Returns whether adapter and model still agree.
  bool goesOn(Event const& event) {
    try {
      if (!driver_.apply(event)) return true;
      failure_.events.push_back(event);
      failure_.difference = driver_.difference();
    } catch (std::exception const& exception) {
      failure_.events.push_back(event);
      failure_.difference = std::string("the adapter threw: ") + exception.what() + '\n';
    }
    return failure_.difference.empty();
  }

  Failure const& failure() const { return failure_; }

 private:
  AdapterDriver driver_;
  Failure failure_;
};

template <class T>
std::vector<T> without(std::vector<T> const& whole, std::size_t first, std::size_t count) {
  std::vector<T> rest(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(first));
  std::size_t const behind = std::min(whole.size(), first + count);
  rest.insert(rest.end(), whole.begin() + static_cast<std::ptrdiff_t>(behind), whole.end());
  return rest;
}

class Shrinking {
 public:
  Shrinking(Failure failure, Perturbation perturbation)
      : failure_(std::move(failure)), perturbation_(perturbation) {}

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

 private:
  bool take(std::vector<Event> const& candidate) {
    std::optional<Failure> shorter = replay(candidate, perturbation_);
    if (!shorter) return false;
    failure_ = std::move(*shorter);
    return true;
  }

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

  void leaveOutContents() {
    for (std::size_t i = 0; i < failure_.events.size(); ++i) {
      leaveOut(
          i, [](Event & event) -> auto& { return event.sources; });
      leaveOut(
          i, [](Event & event) -> auto& { return event.reporters; });
      for (std::size_t j = 0; i < failure_.events.size() && j < failure_.events[i].reporters.size();
           ++j)
        leaveOut(
            i, [j](Event & event) -> auto& { return event.reporters[j].sources; });
    }
  }

  template <class ContentsOf>
  void leaveOut(std::size_t event, ContentsOf contentsOf) {
    for (std::size_t i = 0;
         event < failure_.events.size() && i < contentsOf(failure_.events[event]).size();) {
      std::vector<Event> candidate = failure_.events;
      auto& contents = contentsOf(candidate[event]);
      contents = without(contents, i, 1);
      if (!take(candidate)) ++i;
    }
  }

  Failure failure_;
  Perturbation perturbation_;
};

}  // namespace

std::string Failure::story() const {
  std::ostringstream story;
  int number = 0;
  for (Event const& event : events) story << ++number << ". " << event << '\n';
  story << "Then they differ:\n" << difference;
  return story.str();
}

std::optional<Failure> replay(std::vector<Event> const& events, Perturbation perturbation) {
  Play play(perturbation);
  for (Event const& event : events)
    if (!play.goesOn(event)) return play.failure();
  return std::nullopt;
}

std::optional<Failure> explore(std::uint64_t seed, EventGenerator::Kind kind,
                               Perturbation perturbation, std::size_t& played) {
  EventGenerator generator(seed, kind);
  Play play(perturbation);
  bool goesOn = true;
  for (int left = generator.length(); goesOn && left > 0; --left)
    goesOn = play.goesOn(generator.next(play.driver()));
  played += play.length();
  if (goesOn) return std::nullopt;
  return play.failure();
}

Failure shrunk(Failure failure, Perturbation perturbation) {
  return Shrinking(std::move(failure), perturbation).result();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
