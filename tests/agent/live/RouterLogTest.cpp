#include <string>

#include <gtest/gtest.h>

#include "agent/live/RouterLog.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using Bridging::VlanId;
using Bridging::IgmpSnooping::RouterPort;
using Bridging::IgmpSnooping::RouterPorts;
using Horix::TimerWheel;
using Igmp::IgmpVersion;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr IpAddr router(192, 0, 2, 1);
constexpr IpAddr otherRouter(192, 0, 2, 2);

RouterPort configured() {
  RouterPort port;
  port.configured = true;
  return port;
}

RouterPort querier(IpAddr address = router, Horix::Time until = 255s) {
  RouterPort port;
  port.querier = address;
  port.querierUntil = until;
  return port;
}

RouterPort pimNeighbor() {
  RouterPort port;
  port.pimNeighbor = router;
  port.pimUntil = 105s;
  return port;
}

class RouterLogTest : public testing::Test {
 protected:
  RouterLogTest() { routerLog.vlansAre({vlan10, vlan20}); }

  /// What is logged while time passes and something is done.
  template <class Action>
  std::string logged(Action action, Horix::Time meanwhile = 2s) {
    timerWheel->advanceTo(timerWheel->now() + 2s);
    testing::internal::CaptureStderr();
    action();
    timerWheel->advanceTo(timerWheel->now() + meanwhile);
    return testing::internal::GetCapturedStderr();
  }

  IntfId const swp1{"swp1"};
  IntfId const swp2{"swp2"};
  Kel::Ptr<TimerWheel> timerWheel = Kel::make<TimerWheel>(Kel::make<Horix::VirtualClock>());
  Kel::Ptr<RouterPorts> vlan10 = Kel::make<RouterPorts>(VlanId(10));
  Kel::Ptr<RouterPorts> vlan20 = Kel::make<RouterPorts>(VlanId(20));
  RouterLog routerLog{timerWheel};
};

TEST_F(RouterLogTest, QuerierThatIsHeardIsTold) {
  EXPECT_EQ(logged([&] { vlan10->routerPortIs(swp1, querier()); }),
            "igmpsnoopd: VLAN 10: a router is heard on interface swp1: querier 192.0.2.1\n");
}

TEST_F(RouterLogTest, PimNeighborThatIsHeardIsTold) {
  EXPECT_EQ(logged([&] { vlan20->routerPortIs(swp2, pimNeighbor()); }),
            "igmpsnoopd: VLAN 20: a router is heard on interface swp2: PIM neighbor 192.0.2.1\n");
}

TEST_F(RouterLogTest, QuerierThatSpeaksPimTooIsToldAsBoth) {
  RouterPort port = pimNeighbor();
  port.querier = otherRouter;
  EXPECT_EQ(logged([&] { vlan10->routerPortIs(swp1, port); }),
            "igmpsnoopd: VLAN 10: a router is heard on interface swp1: querier 192.0.2.2, "
            "PIM neighbor 192.0.2.1\n");
}

TEST_F(RouterLogTest, ConfiguredRouterPortIsNotHeard) {
  EXPECT_EQ(logged([&] { vlan10->routerPortIs(swp1, configured()); }), "");
}

TEST_F(RouterLogTest, RouterThatIsHeardAgainIsNotToldAgain) {
  vlan10->routerPortIs(swp1, querier());
  EXPECT_EQ(logged([&] { vlan10->routerPortIs(swp1, querier(router, 300s)); }), "");
}

TEST_F(RouterLogTest, RouterThatIsNoLongerHeardIsTold) {
  vlan10->routerPortIs(swp1, querier());
  EXPECT_EQ(logged([&] { vlan10->routerPortDel(swp1); }),
            "igmpsnoopd: VLAN 10: no router is heard on interface swp1 any more\n");
}

TEST_F(RouterLogTest, SilenceOnAConfiguredRouterPortIsToldToo) {
  RouterPort port = querier();
  port.configured = true;
  vlan10->routerPortIs(swp1, port);
  EXPECT_EQ(logged([&] { vlan10->routerPortIs(swp1, configured()); }),
            "igmpsnoopd: VLAN 10: no router is heard on interface swp1 any more\n");
}

TEST_F(RouterLogTest, WhereARouterIsIsToldAfterWhereItIsNoLonger) {
  vlan10->routerPortIs(swp2, querier());
  EXPECT_EQ(logged([&] {
              vlan20->routerPortIs(swp2, querier());
              vlan10->routerPortIs(swp1, querier());
              vlan10->routerPortDel(swp2);
            }),
            "igmpsnoopd: VLAN 20: a router is heard on interface swp2: querier 192.0.2.1\n"
            "igmpsnoopd: VLAN 10: no router is heard on interface swp2 any more\n"
            "igmpsnoopd: VLAN 10: a router is heard on interface swp1: querier 192.0.2.1\n");
}

TEST_F(RouterLogTest, PortIsToldAtOnceAndThenOnceASecond) {
  EXPECT_NE(logged([&] { vlan10->routerPortIs(swp1, querier()); }, 0s), "");
  EXPECT_EQ(logged(
                [&] {
                  for (int i = 0; i < 1000; ++i) {
                    vlan10->routerPortDel(swp1);
                    vlan10->routerPortIs(swp1, querier());
                  }
                },
                1s),
            "igmpsnoopd: VLAN 10: no router is heard on interface swp1 any more\n"
            "igmpsnoopd: VLAN 10: a router is heard on interface swp1: querier 192.0.2.1\n")
      << "the first change, then how it was after a second";
}

TEST_F(RouterLogTest, VlanThatIsNotFollowedIsSilent) {
  vlan10->routerPortIs(swp1, querier());
  EXPECT_EQ(logged([&] {
              routerLog.vlansAre({vlan20});
              vlan10->routerPortDel(swp1);
            }),
            "");
}

TEST_F(RouterLogTest, VlanThatIsFollowedAgainIsToldAnew) {
  vlan10->routerPortIs(swp1, querier());
  EXPECT_EQ(logged([&] {
              routerLog.vlansAre({vlan20});
              routerLog.vlansAre({vlan10, vlan20});
            }),
            "igmpsnoopd: VLAN 10: a router is heard on interface swp1: querier 192.0.2.1\n");
}

TEST_F(RouterLogTest, VlanThatBeganAnewHasLostItsRouters) {
  vlan10->routerPortIs(swp1, querier());
  EXPECT_EQ(logged([&] {
              routerLog.vlansAre({Kel::make<RouterPorts>(VlanId(10)), vlan20});
            }),
            "igmpsnoopd: VLAN 10: no router is heard on interface swp1 any more\n");
}

TEST(WarnOfOtherVersion, OlderQuerierIsToBeFollowed) {
  testing::internal::CaptureStderr();
  warnOf({VlanId(10), IntfId("swp1"), router, IgmpVersion::v2, IgmpVersion::v3});
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "igmpsnoopd: VLAN 10: querier 192.0.2.1 on interface swp1 speaks IGMPv2, this switch "
            "IGMPv3, but all must speak the oldest version: set igmp-version = 2 in the VLAN's "
            "querier\n");
}

TEST(WarnOfOtherVersion, NewerQuerierIsToFollow) {
  testing::internal::CaptureStderr();
  warnOf({VlanId(10), IntfId("swp1"), router, IgmpVersion::v3, IgmpVersion::v1});
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "igmpsnoopd: VLAN 10: querier 192.0.2.1 on interface swp1 speaks IGMPv3, this switch "
            "IGMPv1, but all must speak the oldest version: configure that one for IGMPv1\n");
}

}  // namespace
}  // namespace Agent
