#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/state/StateGathering.h"
#include "agent/state/StateResumption.h"
#include "tests/agent/switch/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

IpAddr const group(239, 1, 1, 1);
IpAddr const otherGroup(239, 2, 2, 2);
IpAddr const ssmGroup(232, 1, 1, 1);
IpAddr const s1(192, 0, 2, 1);
IpAddr const s2(192, 0, 2, 2);
IpAddr const host1(10, 0, 0, 1);
IpAddr const host2(10, 0, 0, 2);
IpAddr const router(10, 0, 0, 254);

/// A switch that learns, and another that follows it and is to know the same.
class StateResumptionTest : public testing::Test {
 protected:
  StateResumptionTest() {
    before->works({"swp1", "swp2", "swp3"});
    before->hear("swp3", FrameBuilder::queryV3({}).from(router));
    before->hear("swp1",
                 FrameBuilder::reportV3({toEx(group), allow(ssmGroup, {s1, s2})}).from(host1));
    before->hear("swp2", FrameBuilder::reportV3({toEx(otherGroup, {s2})}).from(host2));
  }

  static std::string entriesOf(SwitchUnderTest& under, bool withTalk = false) {
    StateGathering gathering(*under);
    while (gathering.advance(1)) continue;
    if (withTalk) gathering.gatherTalk();
    return gathering.take();
  }

  /// As if the other program had started so much later.
  Resumed resumeAfter(Horix::Time passed, std::string const& configuration = threePorts,
                      bool withTalk = false) {
    kept = entriesOf(*before, withTalk);
    known = membershipsOf(*before);
    recordsKnown = recordsOf(*before);
    Moment written;
    written.monotonic = (*before)->now();
    before.reset();
    after.emplace(configurationIn(configuration));
    Moment now;
    now.sinceBoot = passed;
    now.monotonic = (*after)->now();
    return resume(**after, {written, kept}, now);
  }

  void start() {
    after->works({"swp1", "swp2", "swp3"});
    (*after)->forgetDeafPorts();
    after->pass(1ms);
  }

  /// As a program that is executed in the place of the former one.
  void goOn(std::string const& configuration = threePorts) {
    resumeAfter(1s, configuration, true);
    after->works({"swp3", "swp2", "swp1"});
    (*after)->forgetDeafPorts();
    (*after)->endTakingOver();
  }

  static std::vector<std::string> recordsOf(SwitchUnderTest& under) {
    std::vector<std::string> records;
    for (char const* const host : {"Vlan10swp1", "Vlan10swp2", "Vlan10swp3"})
      for (IpAddr const each : {group, otherGroup, ssmGroup})
        records.push_back(under.record(host, each));
    return records;
  }

  static std::vector<std::string> membershipsOf(SwitchUnderTest& under) {
    std::vector<std::string> texts;
    MembershipWalk walk(*under, {});
    walk.advance(1000, [&](MembershipWalk::Place const& place, auto const& status) {
      auto const& membership =
          static_cast<Bridging::IgmpSnooping::LearnedMembership const&>(status);
      auto const filter = membership.timedFilter();
      bool const excludes = filter.mode == Gmp::Igmp::IgmpFilterMode::exclude;
      auto const left = [&](Horix::Time until) {
        return std::chrono::round<std::chrono::seconds>(until - under->now()).count();
      };
      std::string text = message(place.vlan, ' ', place.interface, ' ', place.group, ' ',
                                 membership.addr(), excludes ? " ex" : " in");
      if (excludes) text += message(' ', left(filter.deadline), 's');
      for (auto const& source : filter.requested)
        text += message(" +", source.address, ' ', left(source.deadline), 's');
      for (IpAddr const source : filter.excluded) text += message(" -", source);
      texts.push_back(text);
    });
    std::sort(texts.begin(), texts.end());
    return texts;
  }

  // One at a time: devices are a thread's.
  std::optional<SwitchUnderTest> before{std::in_place, configurationIn(threePorts)};
  std::optional<SwitchUnderTest> after;
  std::string kept;
  std::vector<std::string> known;
  std::vector<std::string> recordsKnown;
};

TEST_F(StateResumptionTest, KnowsWhatWasKnown) {
  Resumed const resumed = resumeAfter(0s);
  start();
  EXPECT_EQ(resumed.memberships, 3u);
  EXPECT_EQ(resumed.routers, 1u);
  EXPECT_EQ(membershipsOf(*after), known);
  EXPECT_EQ(recordsOf(*after), recordsKnown);
}

TEST_F(StateResumptionTest, KnowsSinceWhenItWasKnown) {
  before->pass(50s);
  before->hear("swp1", FrameBuilder::reportV3({toEx(otherGroup)}).from(host1));
  before->pass(10s);
  resumeAfter(100s);
  start();
  std::vector<std::string> ages;
  MembershipWalk walk(**after, {});
  auto const age = [&](Horix::Time since) {
    return std::chrono::round<std::chrono::seconds>((*after)->now() - since).count();
  };
  walk.advance(1000, [&](MembershipWalk::Place const& place, auto const& status) {
    ages.push_back(message(
        place.interface, ' ', place.group, ' ',
        age(static_cast<Bridging::IgmpSnooping::LearnedMembership const&>(status).since())));
  });
  EXPECT_THAT(ages, UnorderedElementsAre("swp1 239.1.1.1 160", "swp1 232.1.1.1 160",
                                         "swp2 239.2.2.2 160", "swp1 239.2.2.2 110"));
  auto const* const routers = (*after)->routerPorts(Bridging::VlanId(10));
  EXPECT_EQ(age(routers->routerPort().get(Wirex::IntfId("swp3")).since), 160);
}

TEST_F(StateResumptionTest, WhatIsOlderThanTheMachineStaysAsOld) {
  resumeAfter(100s);
  start();
  before.reset();
  std::string const again = entriesOf(*after);
  Moment written;
  written.monotonic = (*after)->now();
  after.reset();
  after.emplace(configurationIn(threePorts));
  Moment now;
  now.sinceBoot = 50s;
  now.monotonic = (*after)->now();
  resume(**after, {written, again}, now);
  auto const* const routers = (*after)->routerPorts(Bridging::VlanId(10));
  Horix::Time const age = (*after)->now() - routers->routerPort().get(Wirex::IntfId("swp3")).since;
  EXPECT_EQ(std::chrono::round<std::chrono::seconds>(age), 150s);
}

TEST_F(StateResumptionTest, NothingIsOlderThanFiftyYears) {
  StateWriter writer;
  writer.put(KeptSince{Horix::Time(), Horix::Time::max() - 1h});
  writer.put(KeptRouter{Bridging::VlanId(10), Wirex::IntfId("swp3"), false, router, 200s});
  before.reset();
  after.emplace(configurationIn(threePorts));
  resume(**after, {Moment(), writer.take()}, Moment());
  auto const* const routers = (*after)->routerPorts(Bridging::VlanId(10));
  Horix::Time const age = (*after)->now() - routers->routerPort().get(Wirex::IntfId("swp3")).since;
  EXPECT_EQ(age, std::chrono::years(50));
}

TEST_F(StateResumptionTest, NothingBeganLaterThanNow) {
  StateWriter writer;
  writer.put(KeptSince{Horix::Time::max(), Horix::Time()});
  writer.put(KeptRouter{Bridging::VlanId(10), Wirex::IntfId("swp3"), false, router, 200s});
  before.reset();
  after.emplace(configurationIn(threePorts));
  resume(**after, {Moment(), writer.take()}, Moment());
  auto const* const routers = (*after)->routerPorts(Bridging::VlanId(10));
  EXPECT_EQ(routers->routerPort().get(Wirex::IntfId("swp3")).since, (*after)->now());
}

TEST_F(StateResumptionTest, CountsTheTimeThatHasPassedMeanwhile) {
  resumeAfter(100s);
  start();
  EXPECT_THAT(membershipsOf(*after),
              UnorderedElementsAre("10 swp1 232.1.1.1 10.0.0.1 in +192.0.2.1 170s +192.0.2.2 170s",
                                   "10 swp1 239.1.1.1 10.0.0.1 ex 170s",
                                   "10 swp2 239.2.2.2 10.0.0.2 ex 170s -192.0.2.2"));
}

TEST_F(StateResumptionTest, KeepsATimeForEachSource) {
  before->pass(60s);
  before->hear("swp1", FrameBuilder::reportV3({isIn(ssmGroup, {s2})}).from(host1));
  resumeAfter(0s);
  start();
  EXPECT_EQ(membershipsOf(*after), known);
  EXPECT_EQ(membershipsOf(*after).front(),
            "10 swp1 232.1.1.1 10.0.0.1 in +192.0.2.1 210s +192.0.2.2 270s");
}

TEST_F(StateResumptionTest, LeavesOutWhatHasEndedMeanwhile) {
  before->pass(60s);
  before->hear("swp1", FrameBuilder::reportV3({isIn(ssmGroup, {s2})}).from(host1));
  Resumed const resumed = resumeAfter(230s);
  start();
  EXPECT_EQ(resumed.memberships, 1u);
  EXPECT_THAT(membershipsOf(*after),
              UnorderedElementsAre("10 swp1 232.1.1.1 10.0.0.1 in +192.0.2.2 40s"));
}

TEST_F(StateResumptionTest, ForgetsInTimeWhoHasLeftMeanwhile) {
  resumeAfter(100s);
  start();
  after->pass(169s);
  EXPECT_EQ(membershipsOf(*after).size(), 3u);
  after->pass(2s);
  EXPECT_THAT(membershipsOf(*after), IsEmpty());
}

TEST_F(StateResumptionTest, TakesNothingBackFromRouters) {
  resumeAfter(1s);
  start();
  after->pass(10s);
  // Types 4 and 5: TO_EX and ALLOW.
  auto const records = after->takeRecords("swp3");
  EXPECT_FALSE(records.empty());
  for (std::string const& record : records) EXPECT_TRUE(record[0] == '4' || record[0] == '5');
}

TEST_F(StateResumptionTest, TellsARouterOfANewMemberAtOnce) {
  resumeAfter(1s);
  start();
  after->pass(10s);
  after->takeRecords("swp3");
  after->hear("swp1", FrameBuilder::reportV3({toEx(IpAddr(239, 3, 3, 3))}).from(host1));
  EXPECT_THAT(after->takeRecords("swp3"), testing::Contains("4 239.3.3.3"));
}

TEST_F(StateResumptionTest, WhoGoesOnTellsNothingThatRoutersKnow) {
  before->pass(20s);
  goOn();
  after->pass(100s);
  EXPECT_THAT(after->takeRecords("swp3"), IsEmpty());
  after->hear("swp1", FrameBuilder::reportV3({toIn(group)}).from(host1));
  EXPECT_THAT(after->takeRecords("swp3"), ElementsAre("3 239.1.1.1"));
}

TEST_F(StateResumptionTest, WhoGoesOnAnswersWhatTheFormerOneWasAsked) {
  before->pass(20s);
  before->hear("swp3", FrameBuilder::queryV3({}).from(router));
  goOn();
  after->pass(10s);
  EXPECT_THAT(after->takeRecords("swp3"),
              UnorderedElementsAre("1 232.1.1.1 192.0.2.1 192.0.2.2", "2 239.1.1.1",
                                   "2 239.2.2.2 192.0.2.2"));
}

TEST_F(StateResumptionTest, WhoGoesOnTakesBackWhatIsOfAPortThatIsDownNow) {
  before->pass(20s);
  resumeAfter(1s, threePorts, true);
  after->works({"swp3", "swp1"});
  (*after)->forgetDeafPorts();
  (*after)->endTakingOver();
  after->pass(1s);
  auto const records = after->takeRecords("swp3");
  EXPECT_THAT(records, testing::Contains("3 239.2.2.2"));
  EXPECT_THAT(records, testing::Each("3 239.2.2.2"));
}

TEST_F(StateResumptionTest, RouterPortThatComesUpAfterTheStartIsToldEverything) {
  before->pass(20s);
  resumeAfter(1s, std::string(threePorts) + "report-on = \"all\"\n", true);
  after->works({"swp2", "swp1"});
  (*after)->endTakingOver();
  after->works({"swp3"});
  after->pass(1ms);
  EXPECT_FALSE(after->takeRecords("swp3").empty());
}

TEST_F(StateResumptionTest, QuerierThatGoesOnAsksWhenItWouldHaveAsked) {
  std::string const queries =
      std::string(threePorts) + "send-query = true\nquerier-source = \"10.0.0.1\"\n";
  before->configure(configurationIn(queries));
  before->pass(300s);
  Horix::Time const left =
      (*before)->querier(Bridging::VlanId(10))->course().value().next - (*before)->now();
  goOn(queries);
  auto const& querier = *(*after)->querier(Bridging::VlanId(10));
  EXPECT_TRUE(querier.isQuerier());
  EXPECT_EQ(querier.sent().general, 0u);
  Horix::Time const leftNow = querier.course()->next - (*after)->now();
  EXPECT_EQ(std::chrono::round<std::chrono::seconds>(left - leftNow), 1s);
}

TEST_F(StateResumptionTest, SpeaksTheVersionOfAnOlderQuerier) {
  before->hear("swp3", FrameBuilder::queryV2({}, 100).from(router));
  resumeAfter(1s);
  start();
  EXPECT_EQ(
      (*after)->proxy().igmpHostStatusDir()->igmpHostStatus("Vlan10swp3")->compatibilityMode(),
      Igmp::IgmpVersion::v2);
  after->pass(10s);
  EXPECT_THAT(after->takeRecords("swp3"), IsEmpty());  // those of IGMPv3
}

TEST_F(StateResumptionTest, GivesWayToTheElectedQuerierStill) {
  std::string const queries =
      std::string(threePorts) + "send-query = true\nquerier-source = \"10.0.0.255\"\n";
  before->configure(configurationIn(queries));
  before->hear("swp3", FrameBuilder::queryV3({}).from(router));
  resumeAfter(100s, queries);
  start();
  auto const& querier = *(*after)->querier(Bridging::VlanId(10));
  EXPECT_FALSE(querier.isQuerier());
  EXPECT_EQ(querier.otherQuerier()->address, router);
  EXPECT_EQ(querier.sent().general, 0u);
  after->pass(156s);  // 255 s after it was heard
  EXPECT_TRUE(querier.isQuerier());
}

TEST_F(StateResumptionTest, DoesNotGiveWayToAQuerierThatItWinsOver) {
  std::string const queries =
      std::string(threePorts) + "send-query = true\nquerier-source = \"10.0.0.1\"\n";
  before->hear("swp3", FrameBuilder::queryV3({}).from(router));
  resumeAfter(1s, queries);
  EXPECT_TRUE((*after)->querier(Bridging::VlanId(10))->isQuerier());
}

TEST_F(StateResumptionTest, LeavesOutWhatIsOfPortsThatAreDown) {
  resumeAfter(1s);
  InterfaceState down = SwitchUnderTest::workingState();
  down.carrier = false;
  after->state("swp1", down);
  after->state("swp3", down);
  after->works({"swp2"});
  (*after)->forgetDeafPorts();
  after->state("swp3", down);
  EXPECT_THAT(membershipsOf(*after),
              UnorderedElementsAre("10 swp2 239.2.2.2 10.0.0.2 ex 269s -192.0.2.2"));
  EXPECT_TRUE((*after)->routerPorts(Bridging::VlanId(10))->routerPort().empty());
}

TEST_F(StateResumptionTest, LeavesOutWhatIsNotConfiguredAnyMore) {
  Resumed const resumed = resumeAfter(1s, R"(
    [[interface]]
    name = "swp[1-3]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp2"]
    [[vlan]]
    id = 11
    querier = { igmp-version = 3 }
    interfaces = ["swp1"]
  )");
  EXPECT_EQ(resumed.memberships, 1u);
  EXPECT_EQ(resumed.routers, 0u);
}

TEST_F(StateResumptionTest, KeepsToTheLimits) {
  EXPECT_EQ(resumeAfter(1s, std::string(threePorts) + "max-groups = 2\n").memberships, 2u);
}

TEST_F(StateResumptionTest, TakesUpASecondaryVlansMembersInItsPrimary) {
  char const* const secondary = R"(
    [[interface]]
    name = "swp[1-3]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp2", "swp3"]
    [[vlan]]
    id = 20
    private = { type = "isolated", primary = 10 }
    querier = { igmp-version = 3 }
    interfaces = ["swp1"]
  )";
  before->configure(configurationIn(secondary));
  before->hear("swp1", FrameBuilder::reportV3({toEx(group)}).from(host1));
  EXPECT_EQ(resumeAfter(0s, secondary).memberships, 2u);
  start();
  EXPECT_EQ(membershipsOf(*after), known);
}

TEST_F(StateResumptionTest, RefusesWhatIsOlderThanAnyMembershipLives) {
  EXPECT_THROW(resumeAfter(271s), UnusableState);
}

TEST_F(StateResumptionTest, RefusesWhatIsOfTheFuture) {
  EXPECT_THROW(resumeAfter(-1s), UnusableState);
}

TEST_F(StateResumptionTest, TakesWhateverEntries) {
  std::string const good = entriesOf(*before);
  before.reset();
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (int const damage : {0x01, 0x40, 0x80, 0xff}) {
      std::string damaged = good;
      damaged[at] = static_cast<char>(damaged[at] ^ damage);
      SwitchUnderTest under{configurationIn(threePorts)};
      resume(*under, {Moment(), damaged}, Moment());
      under.works({"swp1", "swp2", "swp3"});
      under.pass(300s);
    }
  }
}

}  // namespace
}  // namespace Agent
