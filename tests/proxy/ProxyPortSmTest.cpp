#include <cstdint>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/TraceCapture.h"
#include "tests/proxy/ControlObserver.h"
#include "tests/proxy/ProxiedSwitch.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A port machine without a VLAN machine, for swp1 in VLAN 10, whose device the kernel calls eth0.
class ProxyPortSmTest : public ProxiedSwitchTest {
 protected:
  ProxyPortSmTest() {
    kernelHas("swp1", "eth0");
    protocol = querierIs(10);
  }

  Kel::Ptr<ProxyPortSm> portSmOf(std::uint16_t vlan, char const* port) {
    return ProxyPortSm::ProxyPortSmIs(IntfId(port), VlanId(vlan), querier(vlan), hosts, kernel,
                                      pamManager, portVlanMap, timerWheel);
  }
  void make() { portSm = portSmOf(10, "swp1"); }

  /// Opens the device of swp1, for which the mapping has to have the port.
  void connect() {
    portVlanMap->portInfoIs(IntfId("swp1"));
    desires("swp1");
  }

  Kel::Ptr<Igmp::IgmpHost> swp1() const { return host(10, "swp1"); }

  Kel::Ptr<PortVlanMapping> portVlanMap = Kel::make<PortVlanMapping>();
  Kel::Ptr<ProxyPamManager> pamManager =
      proxyPamManagerFactory(bridging, desired, portVlanMap, kernel);
  Kel::Ptr<ProtocolConfig> protocol;
  Kel::Ptr<ProxyPortSm> portSm;
};

using ProxyPortSm_Host = ProxyPortSmTest;

TEST_F(ProxyPortSm_Host, HasItsAttributes) {
  make();
  ASSERT_TRUE(swp1());
  EXPECT_EQ(swp1()->intfId(), IntfId("swp1"));
  EXPECT_EQ(swp1()->vlanId(), 10);
  EXPECT_FALSE(swp1()->useMux());
  EXPECT_FALSE(swp1()->tagged());
  EXPECT_TRUE(swp1()->externalPam());
  EXPECT_FALSE(swp1()->pam());
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  EXPECT_EQ(swp1()->deviceName(), "eth0");
  EXPECT_TRUE(swp1()->enabled());
  EXPECT_EQ(swp1()->configVersion(), 1u);
  EXPECT_EQ(swp1()->intfConfigVersion(), 1u);
  EXPECT_FALSE(swp1()->blocked());
  EXPECT_EQ(swp1()->direction(), Direction::both);
}

TEST_F(ProxyPortSm_Host, MachineKnowsItsArgumentsAndItsHost) {
  make();
  EXPECT_EQ(portSm->intfId(), IntfId("swp1"));
  EXPECT_EQ(portSm->vlanId(), VlanId(10));
  EXPECT_EQ(portSm->querierVlanConfig(), querier(10));
  EXPECT_EQ(portSm->innerQuerierConfig(), protocol);
  EXPECT_EQ(portSm->igmpHostDir(), hosts);
  EXPECT_EQ(portSm->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(portSm->pamManager(), pamManager);
  EXPECT_EQ(portSm->portVlanMap(), portVlanMap);
  EXPECT_EQ(portSm->timerWheel(), timerWheel);
  EXPECT_EQ(portSm->portKey(), key(10, "swp1"));
  EXPECT_EQ(portSm->igmpHost(), swp1());
  EXPECT_FALSE(portSm->blocked());
  EXPECT_EQ(portSm->direction(), Direction::both);
  EXPECT_TRUE(portSm->initialized());
}

TEST_F(ProxyPortSm_Host, IsNamedAfterTheQuerierOfItsVlan) {
  querierIs(4094);
  auto const other = portSmOf(4094, "Ethernet1/1");
  EXPECT_THAT(hostNames(), ElementsAre("Vlan4094Ethernet1/1"));
  EXPECT_EQ(other->portKey(), key(4094, "Ethernet1/1"));
}

TEST_F(ProxyPortSm_Host, IsWrittenInOrder) {
  // An earlier host of the name has all to be changed.
  auto const earlier = hosts->igmpHostIs("Vlan10swp1");
  earlier->useMuxIs(true);
  earlier->taggedIs(true);
  earlier->igmpVersionIs(IgmpVersion::v1);
  connect();
  portVlanMap->portInfoDel(IntfId("swp1"));  // closes the device until the machine is made
  Lines heard;
  ControlObserver observer([&](std::string const& text) { heard.push_back(text); });
  observer.watch(hosts);
  observer.watch(portVlanMap);
  observer.watch(pamManager);
  make();
  EXPECT_THAT(heard,
              ElementsAre("+multiplexer swp1", "+port swp1", "+vlan 10", "Vlan10swp1 intfId",
                          "Vlan10swp1 vlanId", "Vlan10swp1 useMux", "Vlan10swp1 tagged",
                          "Vlan10swp1 externalPam", "+pam Vlan10swp1", "Vlan10swp1 pam",
                          "Vlan10swp1 igmpVersion", "Vlan10swp1 deviceName", "Vlan10swp1 enabled",
                          "Vlan10swp1 configVersion", "Vlan10swp1 intfConfigVersion"));
}

TEST_F(ProxyPortSm_Host, IsMadeAfterThePortsVlan) {
  Lines heard;
  ControlObserver observer([&](std::string const& text) {
    if (text[0] == '+') heard.push_back(text);
  });
  observer.watch(hosts);
  observer.watch(portVlanMap);
  make();
  EXPECT_THAT(heard, ElementsAre("+port swp1", "+vlan 10", "+host Vlan10swp1"));
}

TEST_F(ProxyPortSm_Host, OfTheSameNameIsKeptAndConfiguredAgain) {
  auto const earlier = hosts->igmpHostIs("Vlan10swp1");
  earlier->configVersionIs(6);
  earlier->intfConfigVersionIs(9);
  earlier->blockedIs(true);
  earlier->directionIs(Direction::egress);
  make();
  EXPECT_EQ(swp1(), earlier);
  EXPECT_EQ(earlier->configVersion(), 7u);
  EXPECT_EQ(earlier->intfConfigVersion(), 10u);
  EXPECT_EQ(earlier->intfId(), IntfId("swp1"));
  EXPECT_TRUE(earlier->blocked()) << "is none of the initialisation";
  EXPECT_EQ(earlier->direction(), Direction::egress);
}

TEST_F(ProxyPortSm_Host, IsConfiguredAgainByAnotherInitialisation) {
  make();
  kernelHas("swp1", "eth1");
  portSm->handleInitialized();
  EXPECT_EQ(swp1()->configVersion(), 2u);
  EXPECT_EQ(swp1()->intfConfigVersion(), 2u);
  EXPECT_EQ(swp1()->deviceName(), "eth1");
}

TEST_F(ProxyPortSm_Host, ConfigurationCountersWrap) {
  auto const earlier = hosts->igmpHostIs("Vlan10swp1");
  earlier->configVersionIs(std::numeric_limits<std::uint32_t>::max());
  earlier->intfConfigVersionIs(std::numeric_limits<std::uint32_t>::max());
  make();
  EXPECT_EQ(earlier->configVersion(), 0u);
  EXPECT_EQ(earlier->intfConfigVersion(), 0u);
}

TEST_F(ProxyPortSm_Host, HasNoDeviceNameWithoutKernelInterface) {
  kernelLoses("swp1");
  make();
  EXPECT_EQ(swp1()->deviceName(), "");
}

TEST_F(ProxyPortSm_Host, TracesItsInitialisation) {
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  make();
  std::string const handler =
      "8 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleInitialized()";
  EXPECT_THAT(trace.texts(),
              ElementsAre(handler + " 10", handler + " Creating querier config Vlan10swp1",
                          "7 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() 10 "
                          "swp1",
                          "7 Deleting VlanPam"));
  EXPECT_EQ(trace.lines()[0].function, "handleInitialized");
  EXPECT_EQ(trace.lines()[1].function, "handleInitialized");
  EXPECT_EQ(trace.lines()[2].function, "updateHostPam");
}

// ---- packet access

using ProxyPortSm_PacketAccess = ProxyPortSmTest;

TEST_F(ProxyPortSm_PacketAccess, IsThereAtOnceIfThePortHasItsMultiplexer) {
  connect();
  TraceCapture trace({7}, controlTraces);
  make();
  EXPECT_TRUE(swp1()->pam());
  EXPECT_EQ(swp1()->pam(), pamManager->portVlanPam(key(10, "swp1")));
  EXPECT_THAT(trace.texts(),
              ElementsAre("7 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() 10 "
                          "swp1",
                          "7 Creating Vlan Pam for Vlan10swp1"));
}

TEST_F(ProxyPortSm_PacketAccess, FollowsTheMultiplexerWhenTold) {
  make();
  desires("swp1");
  EXPECT_FALSE(swp1()->pam()) << "before it is told";
  portSm->updateHostPam();
  auto const pam = swp1()->pam();
  EXPECT_TRUE(pam);
  portSm->updateHostPam();
  EXPECT_EQ(swp1()->pam(), pam);

  desiresNot("swp1");
  portSm->updateHostPam();
  EXPECT_FALSE(swp1()->pam());
  EXPECT_EQ(pamManager->portVlanPam(key(10, "swp1")), pam) << "stays in the manager";

  desires("swp1");
  portSm->updateHostPam();
  EXPECT_EQ(swp1()->pam(), pam);
}

// ---- blocked state and direction

using ProxyPortSm_TopologyState = ProxyPortSmTest;

TEST_F(ProxyPortSm_TopologyState, ReachesTheHost) {
  make();
  portSm->blockedIs(true);
  portSm->directionIs(Direction::ingress);
  EXPECT_TRUE(portSm->blocked());
  EXPECT_TRUE(swp1()->blocked());
  EXPECT_EQ(portSm->direction(), Direction::ingress);
  EXPECT_EQ(swp1()->direction(), Direction::ingress);
}

TEST_F(ProxyPortSm_TopologyState, IsHandledOnlyOnChange) {
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  portSm->blockedIs(false);
  portSm->directionIs(Direction::both);
  EXPECT_THAT(trace.texts(), IsEmpty());
  portSm->blockedIs(true);
  portSm->blockedIs(true);
  portSm->directionIs(Direction::none);
  portSm->directionIs(Direction::none);
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("8 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleBlocked() 10 swp1",
                  "8 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleDirection() 10 swp1"));
}

TEST_F(ProxyPortSm_TopologyState, DefaultsLeaveTheHostsOwn) {
  auto const earlier = hosts->igmpHostIs("Vlan10swp1");
  earlier->blockedIs(true);
  earlier->directionIs(Direction::none);
  make();
  portSm->blockedIs(false);
  portSm->directionIs(Direction::both);
  EXPECT_TRUE(earlier->blocked());
  EXPECT_EQ(earlier->direction(), Direction::none);
}

TEST_F(ProxyPortSm_TopologyState, GoesToWhateverHostHasTheName) {
  make();
  auto const former = swp1();
  hosts->igmpHostDel("Vlan10swp1");
  auto const successor = hosts->igmpHostIs("Vlan10swp1");
  portSm->blockedIs(true);
  portSm->directionIs(Direction::egress);
  EXPECT_TRUE(successor->blocked());
  EXPECT_EQ(successor->direction(), Direction::egress);
  EXPECT_FALSE(former->blocked());
  EXPECT_EQ(former->direction(), Direction::both);
}

TEST_F(ProxyPortSm_TopologyState, GoesNowhereWithoutHost) {
  make();
  auto const former = swp1();
  hosts->igmpHostDel("Vlan10swp1");
  portSm->blockedIs(true);
  portSm->directionIs(Direction::egress);
  EXPECT_FALSE(former->blocked());
  EXPECT_EQ(former->direction(), Direction::both);
  EXPECT_THAT(hostNames(), IsEmpty());
}

// ---- the querier's version

using ProxyPortSm_Version = ProxyPortSmTest;

TEST_F(ProxyPortSm_Version, IsTheQueriersFromTheStart) {
  protocol->querierVersionIs(IgmpVersion::v1);
  make();
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v1);
}

TEST_F(ProxyPortSm_Version, FollowsTheQuerier) {
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  protocol->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
  EXPECT_THAT(trace.texts(), ElementsAre("9 Vlan10swp1:void Bridging::IgmpSnooping::Proxy::"
                                         "ProxyPortSm::handleIgmpVersion()"));
}

TEST_F(ProxyPortSm_Version, FollowsAReplacedProtocolConfiguration) {
  make();
  auto const other = Kel::make<ProtocolConfig>();
  other->querierVersionIs(IgmpVersion::v1);
  querier(10)->gmpQuerierConfigIs(other);
  EXPECT_EQ(portSm->innerQuerierConfig(), other);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v1);
  other->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2) << "the former one counts no longer";
}

TEST_F(ProxyPortSm_Version, StaysWhenTheProtocolConfigurationIsTakenAway) {
  protocol->querierVersionIs(IgmpVersion::v2);
  make();
  querier(10)->gmpQuerierConfigIs(nullptr);
  EXPECT_FALSE(portSm->innerQuerierConfig());
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
  portSm->handleIgmpVersion();
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);

  querier(10)->gmpQuerierConfigIs(protocol);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v1);
}

TEST_F(ProxyPortSm_Version, IsTheHostsOwnIfTheProtocolConfigurationGoesMeanwhile) {
  protocol->querierVersionIs(IgmpVersion::v1);
  ControlObserver observer([&](std::string const& text) {
    if (text == "Vlan10swp1 intfId") querier(10)->gmpQuerierConfigIs(nullptr);
  });
  observer.watch(hosts);
  make();
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  EXPECT_TRUE(portSm->initialized());
}

TEST_F(ProxyPortSm_Version, IsReadThroughTheQuerierNotFromWhoNotifies) {
  make();
  auto const other = Kel::make<ProtocolConfig>();
  other->querierVersionIs(IgmpVersion::v1);
  portSm->innerQuerierConfigIs(other);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  protocol->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3) << "nobody watches it";
  other->querierVersionIs(IgmpVersion::v3);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
}

TEST_F(ProxyPortSm_Version, ReachesTheMachinesOwnHostAlsoOutsideTheDirectory) {
  make();
  auto const own = swp1();
  hosts->igmpHostDel("Vlan10swp1");
  auto const successor = hosts->igmpHostIs("Vlan10swp1");
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(own->igmpVersion(), IgmpVersion::v1);
  EXPECT_EQ(successor->igmpVersion(), IgmpVersion::v3);
}

TEST_F(ProxyPortSm_Version, IsNotFollowedWhileInactive) {
  make();
  portSm->hasNotificationActiveIs(false);
  protocol->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  portSm->hasNotificationActiveIs(true);
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v1);
}

TEST_F(ProxyPortSm_Version, IsNotFollowedByAZombie) {
  make();
  portSm->kelDoZombieReactors(true);
  protocol->querierVersionIs(IgmpVersion::v2);
  querier(10)->gmpQuerierConfigIs(Kel::make<ProtocolConfig>());
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  EXPECT_EQ(portSm->innerQuerierConfig(), protocol);
}

// ---- its end

using ProxyPortSm_Cleanup = ProxyPortSmTest;

TEST_F(ProxyPortSm_Cleanup, TakesEverythingAwayInOrder) {
  make();
  desires("swp1");
  portSm->updateHostPam();
  auto const own = swp1();
  Lines heard;
  ControlObserver observer([&](std::string const& text) { heard.push_back(text); });
  observer.watch(hosts);
  observer.watch(portVlanMap);
  observer.watch(pamManager);
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  portSm = nullptr;
  EXPECT_THAT(heard, ElementsAre("-host Vlan10swp1", "-pam Vlan10swp1", "-vlan 10",
                                 "-multiplexer swp1", "-port swp1"));
  EXPECT_THAT(trace.texts(), ElementsAre("9 Vlan10swp1:void Bridging::IgmpSnooping::Proxy::"
                                         "ProxyPortSm::handleCleanup()"));
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(own->igmpVersion(), IgmpVersion::v3);
}

TEST_F(ProxyPortSm_Cleanup, LeavesThePortsOtherVlans) {
  make();
  querierIs(11);
  auto const other = portSmOf(11, "swp1");
  portSm = nullptr;
  EXPECT_THAT(hostNames(), ElementsAre("Vlan11swp1"));
  auto const info = portVlanMap->portInfo(IntfId("swp1"));
  ASSERT_TRUE(info);
  EXPECT_THAT(keysOf(info->vlan()), ElementsAre("11"));
}

TEST_F(ProxyPortSm_Cleanup, ToleratesWhatHasGoneAlready) {
  make();
  hosts->igmpHostDel("Vlan10swp1");
  portVlanMap->portInfoDel(IntfId("swp1"));
  portSm = nullptr;
  EXPECT_TRUE(portVlanMap->portInfo().empty());
}

TEST_F(ProxyPortSm_Cleanup, OfAMachineThatIsNotInitialisedTakesNothing) {
  make();
  portSm->initializedIs(false);
  TraceCapture trace({9}, controlTraces);
  portSm = nullptr;
  EXPECT_EQ(trace.texts().size(), 1u);
  EXPECT_THAT(hostNames(), ElementsAre("Vlan10swp1"));
  EXPECT_TRUE(portVlanMap->portInfo(IntfId("swp1")));
}

// ---- what it refuses

using ProxyPortSm_DeathTest = ProxyPortSmTest;

TEST_F(ProxyPortSm_DeathTest, MachineWithoutQuerierAborts) {
  EXPECT_DEATH(ProxyPortSm::ProxyPortSmIs(IntfId("swp1"), VlanId(10), nullptr, hosts, kernel,
                                          pamManager, portVlanMap, timerWheel),
               "ProxySm.*handleInitialized.*: querierVlanConfig\\(\\)\n");
}

TEST_F(ProxyPortSm_DeathTest, MachineWithoutProtocolConfigurationAborts) {
  querier(10)->gmpQuerierConfigIs(nullptr);
  EXPECT_DEATH(make(),
               "ProxySm.*handleInitialized.*: querierVlanConfig\\(\\)->gmpQuerierConfig\\(\\)\n");
}

using ProxyPortSm_Parameters = ProxyPortSmTest;

TEST_F(ProxyPortSm_Parameters, NullHostIsRefused) {
  make();
  try {
    portSm->igmpHostIs(nullptr);
    FAIL() << "accepted";
  } catch (Kel::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _igmpHost parameter to mutator for "
                 "Bridging::IgmpSnooping::Proxy::ProxyPortSm::igmpHost not allowed\"");
  }
  EXPECT_EQ(portSm->igmpHost(), swp1());
}

// ---- whose the host is

using ProxyPortSm_Keeper = ProxyPortSmTest;

TEST_F(ProxyPortSm_Keeper, IsNotToldByThePublicCounters) {
  make();
  swp1()->configVersionIs(77);
  portSm = nullptr;
  EXPECT_THAT(hostNames(), IsEmpty());
  EXPECT_FALSE(portVlanMap->portInfo(IntfId("swp1")));
}

TEST_F(ProxyPortSm_Keeper, IsInitializedAlsoIfSomebodyWritesTheCounterMeanwhile) {
  ControlObserver observer([&](std::string const& text) {
    if (text == "Vlan10swp1 enabled") swp1()->configVersionIs(77);
  });
  observer.watch(hosts);
  make();
  EXPECT_TRUE(portSm->initialized());
  EXPECT_EQ(swp1()->configVersion(), 78u);
}

TEST_F(ProxyPortSm_Keeper, IsTheMachineThatConfiguredTheHostLast) {
  make();
  auto const former = portSm;
  make();
  protocol->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->configVersion(), 2u);
  portSm->blockedIs(true);
  former->handleCleanup();
  EXPECT_TRUE(swp1());
  EXPECT_THAT(keysOf(portVlanMap->portInfo()), ElementsAre("swp1"));
  portSm = nullptr;
  EXPECT_THAT(hostNames(), IsEmpty());
}

TEST_F(ProxyPortSm_Keeper, OfAHostThatSomebodyPutBackTakesTheRestAway) {
  desires("swp1");
  connect();
  make();
  ASSERT_TRUE(pamManager->portVlanPam(key(10, "swp1")));
  ControlObserver observer([&](std::string const& text) {
    if (text == "-host Vlan10swp1") hosts->igmpHostIs("Vlan10swp1");
  });
  observer.watch(hosts);
  portSm = nullptr;
  observer.leaves();
  EXPECT_FALSE(pamManager->portVlanPam(key(10, "swp1")));
  EXPECT_THAT(keysOf(portVlanMap->portInfo()), IsEmpty());
}

TEST_F(ProxyPortSm_Host, IsNamedAfterTheQuerierAndNotAfterTheVlan) {
  querierIs(20);
  portSm = ProxyPortSm::ProxyPortSmIs(IntfId("swp1"), VlanId(10), querier(20), hosts, kernel,
                                      pamManager, portVlanMap, timerWheel);
  EXPECT_THAT(hostNames(), ElementsAre("Vlan20swp1"));
  EXPECT_EQ(portSm->portKey(), key(20, "swp1"));
  EXPECT_EQ(portSm->igmpHost()->vlanId(), 10);
}

TEST_F(ProxyPortSmTest, FollowsItsQuerierAgainAfterItWasInactive) {
  make();
  portSm->hasNotificationActiveIs(false);
  auto const other = Kel::make<ProtocolConfig>();
  other->querierVersionIs(IgmpVersion::v1);
  querier(10)->gmpQuerierConfigIs(other);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v3);
  portSm->hasNotificationActiveIs(true);
  EXPECT_EQ(portSm->innerQuerierConfig(), other);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v1);
  other->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(swp1()->igmpVersion(), IgmpVersion::v2);
}

using ProxyPortSmDeathTest = ProxyPortSmTest;

TEST_F(ProxyPortSmDeathTest, InterfaceWhoseNameReadsAsPartOfTheVlansNumberIsRefused) {
  kernelHas("1/1");
  EXPECT_DEATH(portSmOf(10, "1/1"), "portKey\\(\\).intfId\\(\\) == intfId\\(\\)");
  querierIs(410);
  EXPECT_TRUE(portSmOf(410, "1/1")->initialized()) << "no VLAN has the number 4101";
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
