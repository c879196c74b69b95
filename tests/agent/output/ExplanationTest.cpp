#include <algorithm>
#include <random>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/output/Explanation.h"
#include "agent/output/ExplanationWords.h"
#include "agent/output/Json.h"
#include "agent/output/JsonValues.h"
#include "agent/output/Tables.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/output/OutputTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using Bridging::VlanId;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Place = ExplainedSource::Place;

class ExplanationTest : public testing::Test {
 protected:
  Explanation explained(char const* port, unsigned vlan = 10) const {
    return explain(test.snooping, VlanId(static_cast<std::uint16_t>(vlan)), Wirex::IntfId(port),
                   group);
  }

  static std::string text(Explanation const& explanation) {
    std::ostringstream out;
    printExplanation(out, explanation);
    return out.str();
  }

  static ExplainedSource source(Explanation const& explanation, IpAddr address) {
    for (ExplainedSource const& each : explanation.sources)
      if (each.address == address) return each;
    ADD_FAILURE() << address << " is not explained";
    return {};
  }

  TestSwitch test{vlan10("swp[1-4]")};
};

TEST_F(ExplanationTest, TellsSinceWhenWhereTheDayIsKnown) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  test.advance(60s);
  Explanation explanation = explained("swp2");
  ASSERT_EQ(explanation.ports.size(), 1u);
  EXPECT_EQ(explanation.ports[0].reporters[0].knownFor, 60s);
  EXPECT_EQ(explanation.sending->routerPortFor, 60s);
  EXPECT_THAT(text(explanation), AllOf(Not(HasSubstr("SINCE")), Not(HasSubstr(" since "))));
  explanation.dates = Dates::knownAt(0s);
  std::string const since = dateOf(60s, explanation);
  EXPECT_THAT(text(explanation),
              AllOf(HasSubstr("REPORTER      SINCE"), HasSubstr("10.0.0.1      " + since + "  "),
                    HasSubstr("swp2 is a multicast router port since " + since + ", because")));
  auto const object = explanationObject(explanation);
  EXPECT_EQ(object.at("port").at(0).at("host").at(0).at("since"), explanation.dates.text(-60s));
  EXPECT_EQ(object.at("sending").at("mrouter-since"), explanation.dates.text(-60s));
}

TEST_F(ExplanationTest, TellsWhatTheHostLastSentOfTheGroup) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a, b})}).from(tv));
  EXPECT_FALSE(explained("swp2").sending->ofGroup);
  test.hear("swp2", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  test.advance(60s);
  auto const explanation = explained("swp2");
  ASSERT_TRUE(explanation.sending->ofGroup);
  EXPECT_THAT(text(explanation), HasSubstr("it last sent \"v3 IS_IN of 2 sources\", "));
  auto const object = explanationObject(explanation).at("sending").at("of-group");
  EXPECT_EQ(object.at("latest"), "v3 IS_IN of 2 sources");
  EXPECT_FALSE(object.contains("records-v3"));
}

TEST_F(ExplanationTest, NamesEachPortAndReporterWithItsExpiry) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a, b})}).from(tv));
  test.advance(10s);
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {c})}).from(desk));
  auto const explanation = explained("swp3");
  ASSERT_EQ(explanation.ports.size(), 1u);
  auto const& port = explanation.ports[0];
  EXPECT_EQ(port.interface, "swp1");
  EXPECT_FALSE(port.own);
  EXPECT_EQ(port.wants, include({a, b, c}));
  EXPECT_EQ(port.reportersWant, std::nullopt);
  ASSERT_EQ(port.reporters.size(), 2u);
  EXPECT_EQ(port.reporters[0].address, tv);
  EXPECT_EQ(port.reporters[0].filter, include({a, b}));
  EXPECT_EQ(port.reporters[0].expiresIn, 260s);
  EXPECT_EQ(port.reporters[1].filter, include({c}));
  EXPECT_EQ(port.reporters[1].expiresIn, 270s);
  EXPECT_EQ(explanation.record, include({a, b, c}));
}

TEST_F(ExplanationTest, TellsThatAHostKeepsToItselfWhatOnlyItsOwnPortExcludes) {
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {a})}).from(tv));
  EXPECT_THAT(verdictOf(explained("swp1")),
              AllOf(HasSubstr("The host on swp1 in VLAN 10 reports nothing for 239.1.1.1. "),
                    HasSubstr("but only swp1 itself has listeners")));
  EXPECT_THAT(verdictOf(explained("swp2")), Not(HasSubstr("reports nothing")));
}

TEST_F(ExplanationTest, CrowdOfReportersIsCountedWholeAndToldInPart) {
  for (std::uint32_t i = 0; i < 1000; ++i)
    test.hearOnly(
        "swp1",
        FrameBuilder::reportV3({isEx(group, {a, i == 999 ? b : c})}).from(IpAddr(tv.value() + i)));
  test.loop.endBatch();
  auto const explanation = explained("swp3");
  ASSERT_EQ(explanation.ports.size(), 1u);
  auto const& port = explanation.ports[0];
  EXPECT_EQ(port.reportersWant.value_or(port.wants), exclude({a})) << "b and c are not common";
  ASSERT_EQ(port.reporters.size(), 100u);
  EXPECT_EQ(port.reporters.front().address, tv);
  EXPECT_EQ(port.reporters.back().address, IpAddr(tv.value() + 99));
  EXPECT_EQ(port.furtherReporters, 900u);
  EXPECT_THAT(text(explanation), HasSubstr("and 900 more"));
  EXPECT_THAT(json(explanation), HasSubstr("\"further-host-count\": 900"));
}

TEST_F(ExplanationTest, OwnPortIsNamedAndLeftOut) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV3({isIn(group, {b})}).from(desk));
  auto const explanation = explained("swp1");
  EXPECT_TRUE(explanation.ports[0].own);
  EXPECT_EQ(explanation.merged, include({b}));
  EXPECT_EQ(source(explanation, a).place, Place::unlisted);
  EXPECT_TRUE(source(explanation, a).ownIncludes);
  EXPECT_THAT(text(explanation), HasSubstr("192.0.2.1 is not in the list: only swp1 includes it, "
                                           "which is left out."));
  EXPECT_THAT(source(explanation, b).includedBy, ElementsAre("swp2"));
  EXPECT_THAT(text(explanation), HasSubstr("192.0.2.2 is in the list: swp2 includes it."));
}

TEST_F(ExplanationTest, PortThatWantsEverySourceIsTheReason) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV2(group).from(desk));
  auto const explanation = explained("swp3");
  EXPECT_EQ(explanation.rule, MergeRule::everySource);
  EXPECT_EQ(explanation.record, exclude({}));
  EXPECT_THAT(mergeOf(explanation), StartsWith("swp2 wants every source"));
  EXPECT_THAT(verdictOf(explanation),
              "The host on swp3 in VLAN 10 would report 239.1.1.1: every source (exclude nothing), "
              "but has sent nothing so far.");
}

TEST_F(ExplanationTest, SourceThatNotAllPortsExcludeIsNotExcluded) {
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {a, b})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV3({isEx(group, {b, c})}).from(desk));
  auto const explanation = explained("swp3");
  EXPECT_EQ(explanation.rule, MergeRule::commonExclusion);
  EXPECT_EQ(explanation.record, exclude({b}));
  EXPECT_THAT(fateOf(source(explanation, a), explanation),
              "not in the list: swp1 excludes it, but not all 2 member ports");
  EXPECT_THAT(fateOf(source(explanation, b), explanation),
              "in the list: all 2 member ports exclude it");
}

TEST_F(ExplanationTest, ExclusionsWithNothingInCommonAskForEverySource) {
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV3({isEx(group, {b})}).from(desk));
  auto const explanation = explained("swp3");
  EXPECT_EQ(explanation.rule, MergeRule::noCommonExclusion);
  EXPECT_EQ(explanation.merged, exclude({}));
  EXPECT_EQ(explanation.record, exclude({}));
  EXPECT_THAT(mergeOf(explanation), HasSubstr("none is left that all exclude"));
}

TEST_F(ExplanationTest, WhyThereIsNoRecord) {
  EXPECT_THAT(verdictOf(explained("swp3")), HasSubstr("No port of VLAN 10 has a listener"));
  test.hear("swp3", FrameBuilder::reportV2(group).from(tv));
  auto const own = explained("swp3");
  EXPECT_EQ(own.record, std::nullopt);
  EXPECT_THAT(verdictOf(own), HasSubstr("Only swp3 itself has listeners of 239.1.1.1"));
}

TEST_F(ExplanationTest, ReportsOnlyWhereSomethingWasSent) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  EXPECT_EQ(verdictOf(explained("swp3")),
            "The host on swp3 in VLAN 10 would report 239.1.1.1: 192.0.2.1 (include), but has sent "
            "nothing so far.");
  test.hear("swp3", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  test.advance(20s);
  EXPECT_EQ(verdictOf(explained("swp3")),
            "The host on swp3 in VLAN 10 reports 239.1.1.1: 192.0.2.1 (include).");
}

TEST_F(ExplanationTest, TellsWhatTheWireSaysToAnOlderQuerier) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp3", FrameBuilder::queryV2({}, 10).from(IpAddr(10, 0, 0, 254)));
  EXPECT_THAT(verdictOf(explained("swp3")),
              HasSubstr("would say \"v2 report 239.1.1.1\", but has sent nothing so far."));
  test.advance(30s);
  EXPECT_EQ(verdictOf(explained("swp3")),
            "The host on swp3 in VLAN 10 says \"v2 report 239.1.1.1\". Its record is 192.0.2.1 "
            "(include), but the querier 10.0.0.254 speaks IGMPv2.");
}

TEST_F(ExplanationTest, ListenersThatWereTurnedAwayAreNotCalledNone) {
  TestSwitch full(R"(
    [defaults]
    max-interface-groups = 1
    [[interface]]
    name = "swp[1-2]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp[1-2]"]
  )");
  full.hear("swp1", FrameBuilder::reportV2(otherGroup).from(tv));
  full.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_EQ(verdictOf(explain(full.snooping, VlanId(10), Wirex::IntfId("swp2"), group)),
            "The host on swp2 in VLAN 10 reports nothing for 239.1.1.1. Whoever asked for "
            "239.1.1.1 on swp1 was turned away, as told below.");
}

TEST_F(ExplanationTest, LinkLocalGroupsAreNeverReportedAndTheirReportsCounted) {
  IpAddr const mdns(224, 0, 0, 251);
  test.hear("swp1", FrameBuilder::reportV2(mdns).from(tv));
  auto const explanation = explain(test.snooping, VlanId(10), Wirex::IntfId("swp2"), mdns);
  EXPECT_EQ(verdictOf(explanation),
            "The host on swp2 in VLAN 10 reports nothing for 224.0.0.251. Groups of 224.0.0.0/24 "
            "are neither learned nor reported.");
  EXPECT_THAT(ignoredOf(explanation),
              testing::Contains("swp1: 1 report of such groups ignored so far."));
}

TEST_F(ExplanationTest, WhyThereIsNoHost) {
  TestSwitch other(R"(
    [[interface]]
    name = "swp[1-5]"
    [[vlan]]
    id = 10
    interfaces = ["swp1"]
    [[vlan]]
    id = 20
    proxy = false
    querier = { igmp-version = 3 }
    interfaces = ["swp2"]
    [[vlan]]
    id = 30
    querier = { igmp-version = 3 }
    tagged-interfaces = ["swp4"]
  )");
  other.snooping.interfaceStateIs(Wirex::IntfId("swp4"), InterfaceState());
  other.loop.endBatch();
  auto const standing = [&](unsigned vlan, char const* port) {
    auto const explanation = explain(other.snooping, VlanId(static_cast<std::uint16_t>(vlan)),
                                     Wirex::IntfId(port), group);
    EXPECT_EQ(explanation.sending, std::nullopt);
    EXPECT_FALSE(verdictOf(explanation).empty());
    return explanation.standing;
  };
  EXPECT_EQ(standing(99, "swp1"), Standing::vlanUnknown);
  EXPECT_EQ(standing(10, "swp5"), Standing::notAMember);
  EXPECT_EQ(standing(10, "swp1"), Standing::noQuerier);
  EXPECT_EQ(standing(20, "swp2"), Standing::proxyOff);
  EXPECT_EQ(standing(30, "swp4"), Standing::noInterface);
}

TEST_F(ExplanationTest, NameThatReadsAsAnotherVlansPortIsNotThatPort) {
  test.hear("swp2", FrameBuilder::reportV2(group).from(tv));
  ASSERT_EQ(explained("swp1").record, exclude({}));
  auto const explanation = explained("0swp1", 1);  // together they read "Vlan10swp1"
  EXPECT_EQ(explanation.standing, Standing::vlanUnknown);
  EXPECT_EQ(explanation.record, std::nullopt);
  EXPECT_EQ(explanation.sending, std::nullopt);
}

TEST_F(ExplanationTest, SecondaryVlanIsExplainedByItsPrimary) {
  TestSwitch pair(R"(
    [[interface]]
    name = "swp[1-3]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp[1-2]"]
    [[vlan]]
    id = 20
    private = { type = "isolated", primary = 10 }
    querier = { igmp-version = 3 }
    interfaces = ["swp3"]
  )");
  pair.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto const explanation = explain(pair.snooping, VlanId(20), Wirex::IntfId("swp3"), group);
  EXPECT_EQ(explanation.standing, Standing::hasHost);
  EXPECT_EQ(explanation.learnedIn, VlanId(10));
  EXPECT_EQ(explanation.merged, include({a}));
  EXPECT_EQ(explanation.record, include({a}));
}

TEST_F(ExplanationTest, TellsWhetherThePortIsARouterPortAndWhy) {
  auto const quiet = sendingOf(explained("swp3"));
  EXPECT_THAT(quiet[0], HasSubstr("No multicast router is known on swp3"));
  test.hear("swp3", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  test.advance(5s);
  auto const explanation = explained("swp3");
  ASSERT_TRUE(explanation.sending->routerPort.has_value());
  EXPECT_THAT(sendingOf(explanation)[0],
              HasSubstr("because the querier 10.0.0.254 was heard on it, which counts for 250 "
                        "seconds more"));
  EXPECT_TRUE(explanation.sending->reportsUnasked);
}

TEST_F(ExplanationTest, TellsWhichQuerierHasTheHostSpeakAnOlderVersion) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_EQ(explained("swp3").sending->sinceSent, std::nullopt);
  test.hear("swp3", FrameBuilder::queryV2({}, 10).from(IpAddr(10, 0, 0, 254)));
  test.advance(30s);
  auto const sentences = sendingOf(explained("swp3"));
  EXPECT_THAT(sentences[1],
              "It speaks IGMPv2, not IGMPv3 as configured, because the querier 10.0.0.254 speaks "
              "that version. IGMPv2 names no sources, so routers send all of them.");
  EXPECT_THAT(sentences[2], HasSubstr("It sends from 0.0.0.0"));
  EXPECT_THAT(sentences[3], HasSubstr("3 IGMPv2 reports"));
  EXPECT_GE(*explained("swp3").sending->sinceSent, 10s)
      << "told and repeated within ten seconds each";
}

TEST_F(ExplanationTest, TellsWhatIsInTheWayOfSending) {
  InterfaceState state = operationalInterface();
  state.carrier = false;
  test.snooping.interfaceStateIs(Wirex::IntfId("swp3"), state);
  test.loop.endBatch();
  auto const explanation = explained("swp3");
  EXPECT_THAT(explanation.sending->obstacles, testing::Contains(Obstacle::blocked));
  EXPECT_THAT(sendingOf(explanation)[0], StartsWith("The host sends nothing now, because swp3 "));
}

TEST_F(ExplanationTest, TextFitsOneHundredColumns) {
  std::vector<IpAddr> sources;
  for (std::uint32_t i = 0; i < 300; ++i) sources.emplace_back(0xc8c8c864 + i);
  test.hear("swp1",
            FrameBuilder::reportV3({isIn(group, sources)}).from(IpAddr(200, 200, 200, 200)));
  test.hear("swp2", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp3", FrameBuilder::reportV3({isIn(group, {b})}).from(tv));
  std::istringstream lines(text(explained("swp3")));
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 100u) << line;
  EXPECT_GT(count, 60u);
}

TEST_F(ExplanationTest, JsonSaysTheSame) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV3({isIn(group, {a, b})}).from(desk));
  auto const document = nlohmann::json::parse(json(explained("swp2")));
  EXPECT_EQ(document.at("standing"), "has-host");
  EXPECT_EQ(document.at("rule"), "inclusion");
  EXPECT_EQ(document.at("record").at("filter-mode"), "include");
  EXPECT_EQ(document.at("record").at("source"), (std::vector<std::string>{"192.0.2.1"}));
  EXPECT_EQ(document.at("merged"), document.at("record"));
  EXPECT_EQ(document.at("port").at(0).at("host").at(0).at("address"), "10.0.0.1");
  EXPECT_EQ(document.at("port").at(1).at("own"), true);
  EXPECT_EQ(document.at("source").at(0).at("listed"), true);
  EXPECT_EQ(document.at("source").at(0).at("included-by"), (std::vector<std::string>{"swp1"}));
  EXPECT_EQ(document.at("source").at(1).at("listed"), false);
  EXPECT_EQ(document.at("sending").at("mrouter"), false);
}

// ---- The merge of the explanation against the proxy's own, over random memberships

/// Draws reports, leaves, and waits of a few reporters on a few ports.
class RandomTraffic {
 public:
  RandomTraffic(TestSwitch& test, unsigned seed) : test_(test), random_(seed) {}

  void step() {
    std::string const port = "swp" + std::to_string(1 + draw(4));
    IpAddr const reporter(10, 0, static_cast<std::uint8_t>(draw(2)), 1);
    switch (draw(10)) {
      case 0:
        return test_.hear(port.c_str(), FrameBuilder::leave(group).from(reporter));
      case 1:
        return test_.hear(port.c_str(), FrameBuilder::reportV2(group).from(reporter));
      case 2:
        return test_.advance(std::chrono::seconds(draw(100)));
      case 3:
        return test_.hear(port.c_str(), FrameBuilder::reportV3({toIn(group)}).from(reporter));
      default:
        return test_.hear(port.c_str(), FrameBuilder::reportV3({record()}).from(reporter));
    }
  }

 private:
  unsigned draw(unsigned below) {
    return std::uniform_int_distribution<unsigned>(0, below - 1)(random_);
  }

  Record record() {
    std::vector<IpAddr> sources;
    for (IpAddr const source : {a, b, c})
      if (draw(2) == 0) sources.push_back(source);
    return IgmpTest::record(static_cast<Wirex::IgmpV3GroupRecordType>(1 + draw(6)), group, sources);
  }

  TestSwitch& test_;
  std::mt19937 random_;
};

std::string placeOf(Explanation const& explanation) {
  std::ostringstream out;
  printExplanation(out, explanation);
  return out.str();
}

class ExplainedMergeTest : public testing::TestWithParam<unsigned> {};

TEST_P(ExplainedMergeTest, IsWhatTheHostReports) {
  TestSwitch test(vlan10("swp[1-5]"));
  RandomTraffic traffic(test, GetParam());
  unsigned records = 0;
  for (int step = 0; step < 400; ++step) {
    traffic.step();
    for (char const* const port : {"swp1", "swp2", "swp3", "swp4", "swp5"}) {
      auto const explanation = explain(test.snooping, VlanId(10), Wirex::IntfId(port), group);
      ASSERT_EQ(explanation.merged, explanation.record) << "step " << step << '\n'
                                                        << placeOf(explanation);
      records += explanation.record ? 1 : 0;
      // What the sources' places say is the list.
      std::vector<IpAddr> listed;
      for (ExplainedSource const& source : explanation.sources)
        if (source.place != Place::unlisted) listed.push_back(source.address);
      ASSERT_EQ(listed, explanation.record ? explanation.record->sources : std::vector<IpAddr>());
    }
  }
  EXPECT_GT(records, 200u) << "there was something to explain";
}

INSTANTIATE_TEST_SUITE_P(Seeds, ExplainedMergeTest, testing::Range(0u, 40u));

}  // namespace
}  // namespace Agent
