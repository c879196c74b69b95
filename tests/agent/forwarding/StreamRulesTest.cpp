#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/forwarding/StreamRules.h"

namespace Agent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

StreamRules twoVlans() {
  StreamRules rules;
  rules.ports = {{3, true, true, 10}, {4, false, true, 20}, {5, true, false, {}}};
  rules.members = {3, 4, 5, 6};
  rules.vlans = {10, 20};
  return rules;
}

TEST(StreamRules, UnjoinedGroupsAreFlooded) {
  EXPECT_THAT(byEntriesText(10, Unregistered::flood),
              HasSubstr("vlan10 ip daddr != @joined10 goto flood"));
}

TEST(StreamRules, UnjoinedGroupsLeaveByEveryPortWhereTheyAreFlooded) {
  EXPECT_THAT(byEntriesText(10, Unregistered::flood), Not(HasSubstr("drop")));
}

TEST(StreamRules, UnjoinedGroupsLeaveByTheVlansRouterPortsAloneWhereTheyGoToRouters) {
  std::string const text = byEntriesText(10, Unregistered::routers);
  EXPECT_THAT(text, HasSubstr("vlan10 ip daddr != @joined10 goto flood"));
  EXPECT_THAT(text, HasSubstr("leave10 ip daddr != @joined10 ip daddr != @failed10 "
                              "oif != @routers10 drop"));
}

TEST(StreamRules, RouterPortsOfOneVlanAreNoneOfAnother) {
  EXPECT_THAT(
      routersText(10, {3, 4}),
      AllOf(HasSubstr("flush set bridge igmpsnoopd routers10"), HasSubstr("routers10 { 3 }"),
            HasSubstr("routers10 { 4 }"), Not(HasSubstr("routers20"))));
}

TEST(StreamRules, FramesLeaveByTheirTagAndOthersByTheirPort) {
  std::string const text = tableText(twoVlans(), {});
  EXPECT_THAT(text, HasSubstr("leaving ether type 8021q vlan id 20 goto leave20"));
  EXPECT_THAT(text, HasSubstr("leaving oif 3 goto leave10"));
  EXPECT_THAT(text, Not(HasSubstr("leaving oif 5")));
}

TEST(StreamRules, FloodingEverythingEndsTheChoiceOfRouterPorts) {
  EXPECT_THAT(floodAllText(), HasSubstr("flush chain bridge igmpsnoopd leaving"));
}

TEST(StreamRules, TaggedFramesGoByTheirTagAndOthersByTheirPort) {
  std::string const text = tableText(twoVlans(), {});
  EXPECT_THAT(text, HasSubstr("streams ether type 8021q vlan id 20 goto vlan20"));
  EXPECT_THAT(text, HasSubstr("streams iif 3 goto vlan10"));
  EXPECT_THAT(text, HasSubstr("streams iif 4 goto vlan20"));
  EXPECT_THAT(text, Not(HasSubstr("streams iif 5")));
}

TEST(StreamRules, BridgeThatDoesNotTellVlansApartHasOneChain) {
  StreamRules rules = twoVlans();
  rules.vlans = {0};
  std::string const text = tableText(rules, {});
  EXPECT_THAT(text, HasSubstr("streams goto vlan0"));
  EXPECT_THAT(text, Not(HasSubstr("vlan id")));
}

TEST(StreamRules, ReportsOfServedPortsAloneAreDropped) {
  std::string const text = tableText(twoVlans(), {});
  EXPECT_THAT(text, HasSubstr("ports { 5 }"));
  EXPECT_THAT(text, Not(HasSubstr("ports { 6 }")));
  EXPECT_THAT(text, HasSubstr("members { 6 }"));
}

TEST(StreamRules, PortsThatLetNothingInOrOutAreTold) {
  std::string const text = tableText(twoVlans(), {});
  EXPECT_THAT(text, HasSubstr("deaf { 4 }"));
  EXPECT_THAT(text, HasSubstr("silent { 5 }"));
}

TEST(StreamRules, FormerSettingsAreKept) {
  EXPECT_THAT(tableText(twoVlans(), {{{2, LinkSetting::querier}, 1}}),
              HasSubstr("former { 2 . 2 : 1 }"));
}

}  // namespace
}  // namespace Agent
