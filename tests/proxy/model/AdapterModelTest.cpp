#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "framework/kel/Trace.h"
#include "tests/proxy/model/AdapterDriver.h"
#include "tests/proxy/model/Sequence.h"

namespace Bridging::IgmpSnooping::Proxy::Model {
namespace {

using Kind = EventGenerator::Kind;
using What = Event::What;

/// Lets the adapter trace its decisions, and drops the messages.
class TracesOfDecisions {
 public:
  TracesOfDecisions() : handle_(Kel::traceHandle("IgmpSnoopingProxyAdapter")) {
    Kel::traceSinkIs([this](Kel::TraceMessage const&) { ++messages_; });
    switchTo(true);
  }
  TracesOfDecisions(TracesOfDecisions const&) = delete;
  TracesOfDecisions& operator=(TracesOfDecisions const&) = delete;
  ~TracesOfDecisions() {
    switchTo(false);
    Kel::traceSinkIs({});
  }

  std::size_t messages() const { return messages_; }

  void switchTo(bool on) {
    handle_.enabledIs(on);
    handle_.levelEnabledIs(4, on);
  }

 private:
  Kel::TraceHandle& handle_;
  std::size_t messages_ = 0;
};

/// Watches a record and its list, and keeps a copy in step by what it hears.
class Mirror {
 public:
  explicit Mirror(Kel::Ptr<Igmp::IgmpV3GroupRecord> const& record)
      : record_(Kel::make<OfRecord>(record)), list_(Kel::make<OfList>(record->source())) {}

  bool isInStep() const {
    std::set<Wirex::IpAddr> sources;
    for (auto const& [source, value] : list_->notifier()->sourceIp()) sources.insert(source);
    return record_->mode == record_->notifier()->filterMode() && list_->sources == sources;
  }

 private:
  struct OfRecord : Igmp::IgmpV3GroupRecord::NotifieeConst {
    explicit OfRecord(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record) : mode(record->filterMode()) {
      NotifieeConst::watch(std::move(record));
    }
    void onFilterMode() override { mode = notifier()->filterMode(); }
    Igmp::IgmpV3GroupRecord::RecordType mode;
  };
  struct OfList : Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
    explicit OfList(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list) {
      for (auto const& [source, value] : list->sourceIp()) sources.insert(source);
      NotifieeConst::watch(std::move(list));
    }
    void onSourceIp(Wirex::IpAddr source) override {
      if (notifier()->sourceIp().contains(source))
        sources.insert(source);
      else
        sources.erase(source);
    }
    std::set<Wirex::IpAddr> sources;
  };

  Kel::Ptr<OfRecord> record_;
  Kel::Ptr<OfList> list_;
};

/// Watches some records for a while; and now and then somebody begins and ceases to trace.
class PassingWatchers {
 public:
  explicit PassingWatchers(std::uint64_t seed) : random_(seed) {}

  void moveOn(AdapterDriver const& driver) {
    if (random_() % 16 == 0) traces_.switchTo(random_() % 4 == 0);
    for (Mirror const& mirror : mirrors_) outOfStep_ += mirror.isInStep() ? 0u : 1u;
    if (random_() % 32 == 0) mirrors_.clear();
    if (mirrors_.size() > 8) return;
    for (auto const& [name, host] : driver.hostDir().igmpHost()) {
      if (random_() % 32 != 0 || host->v3group().empty()) continue;
      auto const& records = host->v3group();
      auto const record = records.get(records.keys()[random_() % records.size()]);
      if (record->source()) mirrors_.emplace_back(record);
      ++watched_;
    }
  }

  std::size_t outOfStep() const { return outOfStep_; }
  std::size_t watched() const { return watched_; }

 private:
  std::mt19937_64 random_;
  TracesOfDecisions traces_;
  std::vector<Mirror> mirrors_;
  std::size_t outOfStep_ = 0;
  std::size_t watched_ = 0;
};

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
                                   [&](auto const& driver) { watchers.moveOn(driver); });
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
