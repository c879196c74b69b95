#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/agent/Addresses.h"
#include "tests/agent/switch/SwitchTesting.h"

/// Who answers which queries. A router reports here as "TYPE GROUP SOURCE...", where types 1 and 2
/// are answers and 3 to 6 changes.
namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IpAddr lowerRouter{192, 0, 2, 1};
constexpr IpAddr higherRouter{192, 0, 2, 2};

class AnsweringTest : public testing::Test {
 protected:
  /// A group that a listener on swp1 wants. A configuration beyond the VLANs' ports says more.
  void start(std::string const& more = "") {
    configureWith(more);
    under.works({"swp1", "swp2", "swp3", "swp4", "swp5"});
    under.hear("swp1", FrameBuilder::reportV3({isEx(group)}).from(tv));
    rest();
  }
  void configureWith(std::string const& more) {
    under.configure(
        configurationIn("[[interface]]\nname = \"swp[1-5]\"\n"
                        "[[vlan]]\nid = 10\nquerier = { igmp-version = 3 }\n"
                        "interfaces = [\"swp[1-4]\"]\n" +
                        more));
  }
  void rest() {
    under.pass(20s);
    for (char const* const port : {"swp1", "swp2", "swp3", "swp4", "swp5"}) under.takeRecords(port);
  }
  /// Until the switch's own start-up queries are answered.
  void startUp() {
    rest();
    rest();
  }
  void routerAsks(char const* port, IpAddr from = lowerRouter) {
    under.hear(port, FrameBuilder::queryV3({}).from(from));
  }
  void stillListens() { under.hear("swp1", FrameBuilder::reportV3({isEx(group)}).from(tv)); }
  std::vector<std::string> reportedWithin(Horix::Time time, char const* port) {
    under.pass(time);
    return under.takeRecords(port);
  }

  SwitchUnderTest under{configurationIn("")};
};

std::string isExOf(IpAddr of) {
  return message("2 ", of);
}

TEST_F(AnsweringTest, QueryIsAnsweredOnEveryRouterPortAndWhereItWasHeard) {
  start();
  routerAsks("swp2", higherRouter);
  rest();
  routerAsks("swp3", lowerRouter);
  rest();
  routerAsks("swp3", lowerRouter);
  under.pass(10s);
  EXPECT_THAT(under.takeRecords("swp2"), ElementsAre(isExOf(group))) << "not the elected one";
  EXPECT_THAT(under.takeRecords("swp3"), ElementsAre(isExOf(group))) << "the elected one";
  EXPECT_THAT(under.takeRecords("swp4"), IsEmpty()) << "no router port";
}

TEST_F(AnsweringTest, QueryFromNoAddressMakesNoRouterPortAndIsAnsweredOnBoth) {
  start("static-bridge-mrouter-interface = [\"swp2\"]");
  routerAsks("swp3", IpAddr());
  under.pass(10s);
  EXPECT_THAT(under.takeRecords("swp2"), ElementsAre(isExOf(group)));
  EXPECT_THAT(under.takeRecords("swp3"), ElementsAre(isExOf(group)));
}

TEST_F(AnsweringTest, GroupAndSourceQueriesAreAnsweredOnEveryRouterPort) {
  start("static-bridge-mrouter-interface = [\"swp2\"]");
  under.hear("swp3",
             FrameBuilder::queryV3({.group = group, .maxResponseCode = 10}).from(lowerRouter));
  EXPECT_THAT(reportedWithin(1s, "swp2"), ElementsAre(isExOf(group)));
  under.hear("swp3",
             FrameBuilder::queryV3({.group = group, .maxResponseCode = 10, .sources = {a, b}})
                 .from(lowerRouter));
  EXPECT_THAT(reportedWithin(1s, "swp2"), ElementsAre(message("1 ", group, ' ', a, ' ', b)));
}

TEST_F(AnsweringTest, OwnGeneralQueriesAreAnsweredOnEveryRouterPort) {
  start(
      "send-query = true\nstatic-bridge-mrouter-interface = [\"swp2\"]\n"
      "querier-source = \"192.0.2.1\"");
  startUp();
  for (int round = 0; round < 3; ++round) {
    stillListens();
    EXPECT_THAT(reportedWithin(125s, "swp2"), ElementsAre(isExOf(group))) << round;
    EXPECT_THAT(under.takeRecords("swp3"), IsEmpty()) << "no router port";
  }
}

TEST_F(AnsweringTest, OwnGroupQueriesAreAnsweredOnEveryRouterPort) {
  start(
      "send-query = true\nstatic-bridge-mrouter-interface = [\"swp2\"]\n"
      "querier-source = \"192.0.2.1\"");
  under.hear("swp3", FrameBuilder::reportV2(group).from(tv));
  under.pass(10s);
  under.takeRecords("swp2");
  under.hear("swp3", FrameBuilder::leave(group).from(tv));
  EXPECT_THAT(reportedWithin(2s, "swp2"), testing::Contains(isExOf(group)));
}

TEST_F(AnsweringTest, OneQueryIsNotAnsweredOnAllPortsAtOnce) {
  start("static-bridge-mrouter-interface = [\"swp[2-4]\"]");
  routerAsks("swp3");
  int together = 0;
  for (int millisecond = 0; millisecond < 10'000; ++millisecond) {
    under.pass(1ms);
    int ports = 0;
    for (char const* const port : {"swp2", "swp3", "swp4"})
      ports += !under.takeRecords(port).empty();
    together += ports > 1;
  }
  EXPECT_EQ(together, 0);
}

TEST_F(AnsweringTest, OlderQuerierCountsOnEveryRouterPort) {
  start("static-bridge-mrouter-interface = [\"swp2\"]");
  under.hear("swp3", FrameBuilder::queryV2(IpAddr(), 100).from(lowerRouter));
  auto const mode = [&](char const* host) {
    return under->proxy().igmpHostStatusDir()->igmpHostStatus(host)->compatibilityMode();
  };
  EXPECT_EQ(mode("Vlan10swp2"), Igmp::IgmpVersion::v2);
  EXPECT_EQ(mode("Vlan10swp3"), Igmp::IgmpVersion::v2);
  EXPECT_EQ(mode("Vlan10swp4"), Igmp::IgmpVersion::v3);
  routerAsks("swp4", higherRouter);
  under.pass(0s);
  EXPECT_EQ(mode("Vlan10swp4"), Igmp::IgmpVersion::v2) << "a router port from now on";
}

TEST_F(AnsweringTest, SecondaryVlansRouterPortsAreAskedByThePrimarysQuerierAndTheirOwnRouters) {
  start(
      "send-query = true\nstatic-bridge-mrouter-interface = [\"swp2\"]\n"
      "querier-source = \"192.0.2.9\"\n"
      "[[vlan]]\nid = 20\nprivate = { type = \"isolated\", primary = 10 }\n"
      "querier = { igmp-version = 3 }\ninterfaces = [\"swp5\"]\n"
      "static-bridge-mrouter-interface = [\"swp5\"]");
  startUp();
  stillListens();
  under.pass(125s);
  EXPECT_THAT(under.takeRecords("swp2"), ElementsAre(isExOf(group)));
  EXPECT_THAT(under.takeRecords("swp5"), ElementsAre(isExOf(group))) << "asked in its own VLAN";

  routerAsks("swp5");
  under.pass(10s);
  EXPECT_THAT(under.takeRecords("swp5"), ElementsAre(isExOf(group)));
  EXPECT_THAT(under.takeRecords("swp2"), IsEmpty()) << "another VLAN's query";
}

// ---- What the elected querier says of itself

TEST_F(AnsweringTest, MembershipsLiveByTheElectedQueriersValues) {
  start();
  // 3 * 60 s + 2 * 10 s instead of 2 * 125 s + 2 * 10 s
  under.hear(
      "swp2",
      FrameBuilder::queryV3({.flagsAndRobustness = 3, .queryIntervalCode = 60}).from(lowerRouter));
  stillListens();
  under.pass(200s - 1ms);
  EXPECT_EQ(under.record("Vlan10swp4", group), "exclude");
  under.pass(1ms);
  EXPECT_EQ(under.record("Vlan10swp4", group), "none");
}

TEST_F(AnsweringTest, LeaveIsIgnoredWhereTheQuerierSpeaksIgmpv1) {
  start();
  under.hear("swp2", FrameBuilder::queryV1().from(lowerRouter));
  under.hear("swp1", FrameBuilder::leave(group).from(tv));
  under.pass(5s);
  EXPECT_EQ(under.record("Vlan10swp4", group), "exclude");
}

TEST_F(AnsweringTest, PortThatGoesDownAndGetsItsMacAddressAtOnceAsksNobody) {
  configureWith("send-query = true");
  InterfaceState state = SwitchUnderTest::workingState();
  state.macAddress = {};
  under.state("swp1", state);
  state.macAddress = SwitchUnderTest::workingState().macAddress;
  state.carrier = false;
  under.state("swp1", state);
  EXPECT_EQ(under.framesSent("swp1"), 0U);
}

}  // namespace
}  // namespace Agent
