#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/report/HistoryWatch.h"
#include "agent/report/TimeAxis.h"
#include "agent/text/Wording.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/report/ReportTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Wirex::IpAddr router{10, 0, 0, 254};

/// "membership swp1: 1-3 every source, 5- only 192.0.2.1", with whole seconds.
std::vector<std::string> rowsOf(History const& history) {
  std::vector<std::string> texts;
  for (HistoryRow const& row : history.rows) {
    static constexpr char const* kinds[] = {"querier", "router", "membership", "record"};
    std::string text = message(kinds[static_cast<int>(row.kind)], ' ', row.interface, ':');
    auto const whole = [](Horix::Time time) {
      return message(std::chrono::round<std::chrono::seconds>(time).count());
    };
    for (Span const& span : row.spans)
      text += message(' ', whole(span.from), '-', span.to ? whole(*span.to) : "", ' ', span.text);
    texts.push_back(text);
  }
  return texts;
}

TEST(HistoryWatchTest, TellsFromWhenToWhenEachHeld) {
  TestSwitch test(vlan10("swp[1-2]"));
  HistoryWatch const watch(test.snooping);
  test.advance(1s);
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  test.advance(2s);
  test.hear("swp1", FrameBuilder::reportV3({toIn(group, {a})}).from(tv));
  test.advance(2s);
  test.hear("swp1", FrameBuilder::reportV3({toIn(group)}).from(tv));
  EXPECT_THAT(rowsOf(watch.history()),
              ElementsAre("membership swp1: 1-3 every source 3-5 only 192.0.2.1",
                          "record swp2: 1-3 every source 3-5 only 192.0.2.1"));
}

TEST(HistoryWatchTest, WhatComesBackHasTwoSpans) {
  TestSwitch test(vlan10("swp[1-2]"));
  HistoryWatch const watch(test.snooping);
  for (int i = 0; i < 2; ++i) {
    test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
    test.advance(1s);
    test.hear("swp1", FrameBuilder::reportV3({toIn(group)}).from(tv));
    test.advance(1s);
  }
  EXPECT_THAT(rowsOf(watch.history()),
              Contains("membership swp1: 0-1 only 192.0.2.1 2-3 only 192.0.2.1"));
}

TEST(HistoryWatchTest, TellsOfQueriersAndRouters) {
  TestSwitch test(vlan10("swp[1-2]"));
  HistoryWatch const watch(test.snooping);
  test.advance(1s);
  test.hear("swp2", FrameBuilder::queryV3({}).from(router));
  test.advance(1h);
  EXPECT_THAT(rowsOf(watch.history()), ElementsAre("querier : 1-256 10.0.0.254 on swp2, IGMPv3",
                                                   "router swp2: 1-256 querier 10.0.0.254"));
}

TEST(HistoryWatchTest, NothingIsWatchedAfterItsEnd) {
  TestSwitch test(vlan10("swp[1-2]"));
  { HistoryWatch const watch(test.snooping); }
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  test.hear("swp2", FrameBuilder::queryV3({}).from(router));
  test.advance(1h);
  SUCCEED();  // the sanitizers would tell
}

TEST(OutlookTest, SaysUntilWhenEachHoldsIfNoMoreIsHeard) {
  TestSwitch test(vlan10("swp[1-2]", "static-bridge-mrouter-interface = [\"swp2\"]\n"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  History const history = outlook(reportOf(test));
  EXPECT_TRUE(history.isAhead);
  EXPECT_EQ(history.end, 270s);
  EXPECT_THAT(rowsOf(history),
              ElementsAre("router swp2: 0- configured", "membership swp1: 0-270 every source"));
}

TEST(TimeAxisTest, TimesAreInTheUnitThatTheyNeed) {
  EXPECT_EQ(timeWords(0s), "0 s");
  EXPECT_EQ(timeWords(12500ms), "12.50 s");
  EXPECT_EQ(timeWords(250s), "4:10 min");
  EXPECT_EQ(timeWords(26h + 3min), "26:03:00 h");
}

TEST(TimeAxisTest, AHistoryWithoutLengthHasAnAxisAllTheSame) {
  TimeAxis const axis{History()};
  EXPECT_EQ(axis.x(0s), TimeAxis::left);
  EXPECT_GE(axis.end(Span{0s, 0s, ""}), TimeAxis::left + 2);
}

}  // namespace
}  // namespace Agent
