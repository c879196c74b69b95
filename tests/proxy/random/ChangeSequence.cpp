#include "tests/proxy/random/ChangeSequence.h"

#include <exception>
#include <sstream>
#include <utility>

#include "tests/proxy/model/Shrinking.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

namespace {

/// A driver and the changes that it was given, less those that found nothing to apply to.
class Play {
 public:
  explicit Play(Perturbation perturbation) : driver_(perturbation) {}

  ProxyDriver const& driver() const { return driver_; }

  /// Returns whether proxy and model still agree.
  bool goesOn(Change const& change) {
    try {
      if (!driver_.apply(change)) return true;
      failure_.events.push_back(change);
      failure_.difference = driver_.difference();
    } catch (std::exception const& exception) {
      failure_.events.push_back(change);
      failure_.difference = std::string("the proxy threw: ") + exception.what() + '\n';
    }
    return failure_.difference.empty();
  }

  Failure const& failure() const { return failure_; }

 private:
  ProxyDriver driver_;
  Failure failure_;
};

}  // namespace

std::string Failure::story() const {
  std::ostringstream story;
  int number = 0;
  for (Change const& change : events) story << ++number << ". " << change << '\n';
  story << "Then they differ:\n" << difference;
  return story.str();
}

std::optional<Failure> replay(std::vector<Change> const& changes, Perturbation perturbation) {
  Play play(perturbation);
  for (Change const& change : changes)
    if (!play.goesOn(change)) return play.failure();
  return std::nullopt;
}

std::optional<Failure> explore(std::uint64_t seed, ChangeGenerator::Kind kind,
                               Perturbation perturbation, Tally& tally,
                               std::function<void(ProxyDriver const&)> const& beforeEach) {
  ChangeGenerator generator(seed, kind);
  Play play(perturbation);
  bool goesOn = true;
  for (int left = generator.length(); goesOn && left > 0; --left) {
    beforeEach(play.driver());
    goesOn = play.goesOn(generator.next(play.driver().inputs(), play.driver().hasProxy()));
    play.driver().count(tally.hosts, tally.records);
  }
  Change drop;
  drop.what = Change::What::proxyDropped;
  goesOn = goesOn && play.goesOn(drop);
  tally.changes += play.failure().events.size();
  tally.machines += play.driver().machinesMade();
  if (goesOn) return std::nullopt;
  return play.failure();
}

Failure shrunk(Failure failure, Perturbation perturbation) {
  Model::ShrinkingOf<Change, Failure> shrinking(
      std::move(failure),
      [perturbation](std::vector<Change> const& changes) { return replay(changes, perturbation); });
  return shrinking.result();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
