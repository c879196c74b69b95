#include "tests/proxy/model/Sequence.h"

#include <exception>
#include <sstream>
#include <utility>

#include "tests/proxy/model/AdapterDriver.h"
#include "tests/proxy/model/Shrinking.h"

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

class Shrinking : public ShrinkingOf<Event, Failure> {
 public:
  Shrinking(Failure failure, Perturbation perturbation)
      : ShrinkingOf(std::move(failure), [perturbation](std::vector<Event> const& events) {
          return replay(events, perturbation);
        }) {}

 private:
  void leaveOutContents() override {
    for (std::size_t i = 0; i < events().size(); ++i) {
      leaveOut(
          i, [](Event & event) -> auto& { return event.sources; });
      leaveOut(
          i, [](Event & event) -> auto& { return event.reporters; });
      for (std::size_t j = 0; i < events().size() && j < events()[i].reporters.size(); ++j)
        leaveOut(
            i, [j](Event & event) -> auto& { return event.reporters[j].sources; });
    }
  }

  template <class ContentsOf>
  void leaveOut(std::size_t event, ContentsOf contentsOf) {
    for (std::size_t i = 0; event < events().size();) {
      std::vector<Event> candidate = events();
      auto& contents = contentsOf(candidate[event]);
      if (i >= contents.size()) return;
      contents = without(contents, i, 1);
      if (!take(candidate)) ++i;
    }
  }
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
                               Perturbation perturbation, std::size_t& played,
                               std::function<void(AdapterDriver const&)> const& beforeEach) {
  EventGenerator generator(seed, kind);
  Play play(perturbation);
  bool goesOn = true;
  for (int left = generator.length(); goesOn && left > 0; --left) {
    beforeEach(play.driver());
    goesOn = play.goesOn(generator.next(play.driver()));
  }
  played += play.length();
  if (goesOn) return std::nullopt;
  return play.failure();
}

Failure shrunk(Failure failure, Perturbation perturbation) {
  return Shrinking(std::move(failure), perturbation).result();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
