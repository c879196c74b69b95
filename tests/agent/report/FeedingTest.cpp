#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/report/Feeding.h"
#include "agent/report/FilterWords.h"
#include "agent/report/PortNames.h"
#include "agent/text/Wording.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/report/ReportTesting.h"

namespace Agent {
namespace {

using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

SourceFilter include(std::vector<Wirex::IpAddr> sources) {
  return {Gmp::Igmp::IgmpFilterMode::include, std::move(sources)};
}
SourceFilter exclude(std::vector<Wirex::IpAddr> sources) {
  return {Gmp::Igmp::IgmpFilterMode::exclude, std::move(sources)};
}

/// "swp1 <- swp2: every source", and "swp1: -" for one that has nothing to report.
std::vector<std::string> recordsOf(Flow const& flow) {
  std::vector<std::string> texts;
  for (ReportingPorts const& ports : flow.reporting) {
    std::vector<std::string> feeders;
    for (std::size_t const place : ports.fedBy)
      feeders.push_back(portsText(flow.listening[place].names, 100));
    texts.push_back(portsText(ports.names, 100) + " <- " + enumerated(feeders, "and") + ": " +
                    (ports.record ? wordsFor(*ports.record, 100) : "-"));
  }
  return texts;
}

std::vector<Flow> flowsIn(TestSwitch const& test, std::size_t vlan = 0) {
  ReportData const data = reportOf(test);
  return flowsIn(data, data.vlans.at(vlan));
}

TEST(FeedingTest, ARecordIsFedByAllWhoListenElsewhereAndNotByItsOwnPort) {
  TestSwitch test(vlan10("swp[1-3]"));
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp2", FrameBuilder::reportV3({isIn(group, {b})}).from(desk));
  auto const flows = flowsIn(test);
  ASSERT_THAT(flows, SizeIs(1));
  EXPECT_THAT(recordsOf(flows[0]),
              ElementsAre("swp1 <- swp2: only 192.0.2.2", "swp2 <- swp1: only 192.0.2.1",
                          "swp3 <- swp1 and swp2: only 192.0.2.1, 192.0.2.2"));
}

TEST(FeedingTest, APortOnWhichTheOnlyListenersAreReportsNothing) {
  TestSwitch test(vlan10("swp[1-2]"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  auto const flows = flowsIn(test);
  ASSERT_THAT(flows, SizeIs(1));
  EXPECT_THAT(recordsOf(flows[0]), ElementsAre("swp1 <- : -", "swp2 <- swp1: every source"));
  EXPECT_EQ(flows[0].reporting[0].own, std::size_t{0});
}

TEST(FeedingTest, GroupsOfWhichEverythingIsEqualAreOneFlow) {
  TestSwitch test(vlan10("swp[1-2]"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {}), isEx(otherGroup, {})}).from(tv));
  auto const flows = flowsIn(test);
  ASSERT_THAT(flows, SizeIs(1));
  EXPECT_THAT(flows[0].groups, ElementsAre(group, otherGroup));
}

TEST(FeedingTest, GroupsWithOtherReportersAreNot) {
  TestSwitch test(vlan10("swp[1-2]"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  test.hear("swp1", FrameBuilder::reportV3({isEx(otherGroup, {})}).from(desk));
  EXPECT_THAT(flowsIn(test), SizeIs(2));
}

TEST(FeedingTest, OfManyPortsEqualOnesAreDrawnOnce) {
  TestSwitch test(vlan10("swp[1-12]"));
  for (char const* const port : {"swp1", "swp2", "swp3"})
    test.hear(port, FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  auto const flows = flowsIn(test);
  ASSERT_THAT(flows, SizeIs(1));
  EXPECT_THAT(recordsOf(flows[0]),
              ElementsAre("swp1, swp2, swp3 <- swp1, swp2, swp3: every source",
                          "swp4, swp5, swp6, swp7, swp8, swp9, swp10, swp11, swp12 <- swp1, swp2, "
                          "swp3: every source"));
}

TEST(FeedingTest, ASecondaryVlansRecordsAreFedByItsPrimarysListeners) {
  TestSwitch test(
      "[[interface]]\nname = \"swp[1-2]\"\n"
      "[[vlan]]\nid = 10\nquerier = { igmp-version = 3 }\ninterfaces = [\"swp1\"]\n"
      "[[vlan]]\nid = 20\nprivate = { type = \"community\", primary = 10 }\n"
      "querier = { igmp-version = 3 }\ninterfaces = [\"swp2\"]\n");
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  auto const flows = flowsIn(test, 1);
  ASSERT_THAT(flows, SizeIs(1));
  EXPECT_THAT(recordsOf(flows[0]), ElementsAre("swp2 <- swp1: every source"));
}

TEST(FeedingTest, WhatReportersWantTogetherLeavesOutWhatNoneWants) {
  EXPECT_EQ(together({include({a}), include({b})}), include({a, b}));
  EXPECT_EQ(together({exclude({a, b}), exclude({b, c})}), exclude({b}));
  EXPECT_EQ(together({exclude({a, b}), include({b})}), exclude({a}));
  EXPECT_EQ(together({}), include({}));
}

TEST(FilterWordsTest, SayWhatAFilterAsksFor) {
  EXPECT_EQ(wordsFor(exclude({}), 30), "every source");
  EXPECT_EQ(wordsFor(include({}), 30), "nothing");
  EXPECT_EQ(wordsFor(include({a, b}), 30), "only 192.0.2.1, 192.0.2.2");
  EXPECT_EQ(wordsFor(exclude({a}), 30), "all but 192.0.2.1");
}

TEST(FilterWordsTest, CountTheSourcesForWhichThereIsNoRoom) {
  EXPECT_EQ(wordsFor(include({a, b, c}), 20), "only 192.0.2.1 +2");
  EXPECT_EQ(wordsFor(include({a, b, c}), 1), "only 192.0.2.1 +2");
}

TEST(PortNamesTest, ManyPortsAreTheFirstAndACount) {
  EXPECT_EQ(portsText({"swp1"}, 20), "swp1");
  EXPECT_EQ(portsText({"swp1", "swp2"}, 20), "swp1, swp2");
  EXPECT_EQ(portsText({"swp1", "swp2", "swp3", "swp4"}, 20), "swp1 and 3 more");
  EXPECT_EQ(portsText({}, 20), "");
}

}  // namespace
}  // namespace Agent
