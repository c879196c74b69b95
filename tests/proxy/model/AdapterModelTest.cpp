#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "tests/proxy/PassingWatchers.h"
#include "tests/proxy/model/AdapterDriver.h"
#include "tests/proxy/model/Sequence.h"

namespace Bridging::IgmpSnooping::Proxy::Model {
namespace {

using Kind = EventGenerator::Kind;
using What = Event::What;
using Testing::PassingWatchers;
using Testing::TracesOfDecisions;

/// IGMPSNOOP_MODEL_EVENTS asks for more events per test than these, never for fewer.
std::size_t atLeast(std::size_t events) {
  char const* const asked = std::getenv("IGMPSNOOP_MODEL_EVENTS");
  return asked ? std::max<std::size_t>(events, std::strtoull(asked, nullptr, 10)) : events;
}

void playSequences(Kind kind, std::uint64_t firstSeed, std::size_t events) {
  std::size_t played = 0;
  std::uint64_t seed = firstSeed;
  for (; played < events; ++seed) {
    auto const failure = explore(seed, kind, Perturbation::none, played);
    if (!failure) continue;
    Failure const shortest = shrunk(*failure, Perturbation::none);
    FAIL() << "Seed " << seed << ", " << failure->events.size() << " events, shrunk to "
           << shortest.events.size() << ":\n"
           << shortest.story();
  }
  testing::Test::RecordProperty("events", std::to_string(played));
  testing::Test::RecordProperty("sequences", std::to_string(seed - firstSeed));
}

TEST(AdapterModel, AgreesInDeepStatesOfFewGroups) {
  playSequences(Kind::deep, 1, atLeast(500'000));
}

TEST(AdapterModel, AgreesOverManyGroupsAndPorts) {
  playSequences(Kind::wide, 1'000'001, atLeast(350'000));
}

TEST(AdapterModel, AgreesInDeepStatesWhileDecisionsAreTraced) {
  TracesOfDecisions const traces;
  playSequences(Kind::deep, 2'000'001, atLeast(100'000));
  EXPECT_GT(traces.messages(), 100'000u);
}

TEST(AdapterModel, AgreesOverManyGroupsWhileDecisionsAreTraced) {
  TracesOfDecisions const traces;
  playSequences(Kind::wide, 3'000'001, atLeast(100'000));
  EXPECT_GT(traces.messages(), 100'000u);
}

TEST(AdapterModel, AgreesWhileTracesAreSwitchedOnAndOff) {
  TracesOfDecisions traces;
  std::mt19937_64 random(1);
  std::size_t played = 0;
  for (std::uint64_t seed = 4'000'001; played < atLeast(200'000); ++seed) {
    auto const failure = explore(seed, Kind::deep, Perturbation::none, played, [&](auto const&) {
      if (random() % 8 == 0) traces.switchTo(random() % 2 == 0);
    });
    ASSERT_FALSE(failure) << "Seed " << seed << ":\n" << failure->story();
  }
  EXPECT_GT(traces.messages(), 100'000u);
}

TEST(AdapterModel, AgreesWhileRecordsAreWatchedNowAndThen) {
  for (Kind const kind : {Kind::deep, Kind::wide}) {
    PassingWatchers watchers(1);
    std::size_t played = 0;
    for (std::uint64_t seed = 5'000'001; played < atLeast(150'000); ++seed) {
      auto const failure = explore(seed, kind, Perturbation::none, played,
                                   [&](auto const& driver) { watchers.moveOn(driver.hostDir()); });
      ASSERT_FALSE(failure) << "Seed " << seed << ":\n" << failure->story();
    }
    EXPECT_EQ(watchers.outOfStep(), 0u);
    EXPECT_GT(watchers.watched(), 1'000u);
  }
}

TEST(AdapterModel, EveryKindOfEventOccursOften) {
  std::map<What, int> occurrences;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    EventGenerator generator(seed, seed % 2 == 0 ? Kind::deep : Kind::wide);
    AdapterDriver driver(Perturbation::none);
    for (int left = generator.length(); left > 0; --left) {
      Event const event = generator.next(driver);
      if (driver.apply(event)) ++occurrences[event.what];
    }
  }
  for (int what = 0; what <= static_cast<int>(What::reportRaised); ++what)
    EXPECT_GE(occurrences[static_cast<What>(what)], 40) << "kind " << what;
}

/// A model that departs in one point must be told from the adapter soon, and by a short story.
class DepartingModel : public testing::TestWithParam<Perturbation> {};

TEST_P(DepartingModel, IsToldFromTheAdapterByAShortStory) {
  constexpr std::size_t soon = 50'000;
  constexpr std::size_t fewEvents = 15;
  std::size_t played = 0;
  std::optional<Failure> failure;
  for (std::uint64_t seed = 1; !failure && played < soon; ++seed)
    failure = explore(seed, Kind::deep, GetParam(), played);
  ASSERT_TRUE(failure) << "no difference in " << played << " events";

  Failure const shortest = shrunk(*failure, GetParam());
  EXPECT_LE(shortest.events.size(), fewEvents) << shortest.story();
  EXPECT_TRUE(replay(shortest.events, GetParam())) << "the story does not repeat the difference";
  EXPECT_FALSE(replay(shortest.events, Perturbation::none)) << "the adapter itself is at odds";
}

INSTANTIATE_TEST_SUITE_P(
    AdapterModel, DepartingModel,
    testing::Values(Perturbation::starGThresholdOfThree, Perturbation::leavingReporterEvaluatesPort,
                    Perturbation::leavingPortTakesBackItsCounts,
                    Perturbation::clearingPassesMissingHosts,
                    Perturbation::absentExcludeIsNotDecremented, Perturbation::mergeIsExact,
                    Perturbation::newReporterIsNotStarG, Perturbation::replacedReporterIsNoChange,
                    Perturbation::changesAreHeardAtOnce),
    [](auto const& instance) {
      switch (instance.param) {
        case Perturbation::none:
          break;
        case Perturbation::starGThresholdOfThree:
          return "WithAStarGThresholdOfThree";
        case Perturbation::leavingReporterEvaluatesPort:
          return "WhereALeavingReporterEvaluatesItsPort";
        case Perturbation::leavingPortTakesBackItsCounts:
          return "WhereALeavingPortTakesBackItsCounts";
        case Perturbation::clearingPassesMissingHosts:
          return "WhereClearingPassesMissingHosts";
        case Perturbation::absentExcludeIsNotDecremented:
          return "WhereAnAbsentExcludeIsNotDecremented";
        case Perturbation::mergeIsExact:
          return "WhereTheMergeIsExact";
        case Perturbation::newReporterIsNotStarG:
          return "WhereANewReporterIsNotStarG";
        case Perturbation::replacedReporterIsNoChange:
          return "WhereAReplacedReporterIsNoChange";
        case Perturbation::changesAreHeardAtOnce:
          return "WhereChangesAreHeardAtOnce";
      }
      return "Unperturbed";
    });

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Model
