#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/report/Warnings.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/report/ReportTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

constexpr Wirex::IpAddr router{10, 0, 0, 254};

std::vector<std::string> textsOf(ReportData const& data) {
  std::vector<std::string> texts;
  for (Warning const& warning : warningsOf(data)) texts.push_back(warning.what);
  return texts;
}

std::vector<std::string> textsOf(TestSwitch const& test) {
  return textsOf(reportOf(test));
}

TEST(WarningsTest, NoneOfASwitchWithAQuerier) {
  TestSwitch test(vlan10("swp[1-2]"));
  test.hear("swp2", FrameBuilder::queryV3({}).from(router));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
  EXPECT_THAT(textsOf(test), IsEmpty());
}

TEST(WarningsTest, NoQuerierIsHeard) {
  TestSwitch test(vlan10("swp[1-2]"));
  EXPECT_THAT(textsOf(test), Contains("No querier is heard in VLAN 10."));
  TestSwitch querying(vlan10("swp[1-2]", "send-query = true\n"));
  EXPECT_THAT(textsOf(querying), Not(Contains("No querier is heard in VLAN 10.")));
}

TEST(WarningsTest, NoRouterPortIsKnown) {
  TestSwitch test(vlan10("swp[1-2]"));
  EXPECT_THAT(textsOf(test), Contains("No router port is known in VLAN 10."));
}

TEST(WarningsTest, ALimitTurnedListenersAway) {
  TestSwitch test(vlan10("swp[1-2]", "max-interface-groups = 1\n"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {}), isEx(otherGroup, {})}).from(tv));
  EXPECT_THAT(
      textsOf(test),
      Contains("A limit was reached on swp1 in VLAN 10 (too-many-interface-groups), 1 time."));
}

TEST(WarningsTest, PortsThatAreNotUp) {
  TestSwitch test("[[interface]]\nname = \"swp[1-2]\"\nblocked = true\n");
  test.snooping.interfaceStateIs(Wirex::IntfId("swp2"), InterfaceState());
  EXPECT_THAT(textsOf(test), Contains("swp1: blocked."));
  EXPECT_THAT(textsOf(test), Contains("swp2: absent."));
}

TEST(WarningsTest, APortThatIsDeafAndWhy) {
  TestSwitch test(vlan10("swp[1-2]"));
  ReportData data = reportOf(test);
  data.interfaces[0].state = "deaf";
  data.interfaces[0].because = "cannot open device";
  auto const warnings = warningsOf(data);
  EXPECT_THAT(warnings, Contains(testing::Field(&Warning::what, "swp1: deaf.")));
  EXPECT_THAT(warnings,
              Contains(testing::Field(&Warning::remedy, "The reason: cannot open device.")));
}

TEST(WarningsTest, AVlanIsNotProxied) {
  TestSwitch test(vlan10("swp[1-2]", "proxy = false\n"));
  EXPECT_THAT(textsOf(test), Contains("VLAN 10 is not proxied."));
}

TEST(WarningsTest, HostsSendFromNoAddressWhereTheAgentRuns) {
  TestSwitch test(vlan10("swp[1-2]"));
  ReportData data = reportOf(test);
  char const* const warning = "In VLAN 10 hosts send from 0.0.0.0: swp1, swp2.";
  EXPECT_THAT(textsOf(data), Not(Contains(warning)));  // a replay cannot know
  data.isReplay = false;
  EXPECT_THAT(textsOf(data), Contains(warning));
  TestSwitch addressed(vlan10("swp[1-2]", "sender-source-address = \"10.0.0.5\"\n"));
  data = reportOf(addressed);
  data.isReplay = false;
  EXPECT_THAT(textsOf(data), Not(Contains(warning)));
}

TEST(WarningsTest, ReportsComeFromNoAddress) {
  TestSwitch test(vlan10("swp[1-2]"));
  test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(Wirex::IpAddr()));
  EXPECT_THAT(textsOf(test), Contains("In VLAN 10 reports come from 0.0.0.0, on swp1."));
}

TEST(WarningsTest, TheTimeLineIsNotWhole) {
  TestSwitch test(vlan10("swp[1-2]"));
  History history;
  history.untold = 7;
  EXPECT_THAT(textsOf(reportOf(test, history)), Contains("The time line lacks 7 changes."));
}

}  // namespace
}  // namespace Agent
