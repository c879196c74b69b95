#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "proxy/ReceiveFilter.h"
#include "tests/platform/igmp/FrameBuilder.h"
#include "tests/proxy/PamTesting.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using namespace PamTraces;
using IgmpTest::ByteVector;
using IgmpTest::FrameBuilder;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using Wirex::Pkt;
using WirexTest::InputListener;
using WirexTest::MultiplexerListener;
using WirexTest::refusalOf;

PortKey key(std::uint16_t vlan, char const* intf) {
  return {VlanId(vlan), IntfId(intf)};
}

std::string nullRefused(std::string const& owner, std::string const& attribute) {
  return "null _" + attribute + " parameter to mutator for " + owner + "::" + attribute +
         " not allowed\"";
}

ByteVector query() {
  return FrameBuilder::queryV3({}).bytes();
}
ByteVector query(unsigned vlan, unsigned priority = 0) {
  return FrameBuilder::queryV3({}).vlan(vlan, priority).bytes();
}

class ProxyPamManagerTest : public ::testing::Test, protected PamInputs {
 protected:
  void start() { manager = proxyPamManagerFactory(bridging, pamDir, portVlanMap, kernel); }

  /// Starts with an open port.
  void startWith(char const* intf) {
    isUsed(intf);
    start();
  }

  Wirex::VlanPam::Ptr pamIs(std::uint16_t vlan, char const* intf) {
    return manager->portVlanPamIs(key(vlan, intf));
  }
  Kel::Ptr<Wirex::Multiplexer> multiplexer(char const* intf) const {
    return manager->multiplexer(IntfId(intf));
  }
  static void send(Wirex::VlanPam& pam) { pam.outputPktIs(Pkt::PktIs(query())); }

  Kel::Ptr<ProxyPamManager> manager;
};

/// Hears of packet access objects.
class PamListener final : public ProxyPamManager::PamCol::NotifieeConst {
 public:
  explicit PamListener(Kel::Ptr<ProxyPamManager::PamCol const> pams) { watch(std::move(pams)); }

  void onPamCol(PortKey key) override {
    bool const there = notifier()->entries().get(key) != nullptr;
    heard.push_back(std::string(key.stringvalue().view()) + (there ? " is" : " is gone"));
  }
  void onPamColkelImmediate() override { heard.emplace_back("all"); }

  std::vector<std::string> heard;
};

// ---- Start

TEST_F(ProxyPamManagerTest, HasItsNames) {
  start();
  EXPECT_EQ(manager->name(), Kel::Name("ProxyPamManager"));
  EXPECT_EQ(manager->proxyPamDesired()->name(), Kel::Name("ProxyPamManager"));
  EXPECT_EQ(manager->ethDevPamCol()->name(), Kel::Name("ProxyEthDevPamCol"));
}

TEST_F(ProxyPamManagerTest, KnowsItsInputs) {
  start();
  EXPECT_EQ(manager->bridgingConfig(), bridging);
  EXPECT_EQ(manager->pamDesiredIntfDir(), pamDir);
  EXPECT_EQ(manager->portVlanMap(), portVlanMap);
  EXPECT_EQ(manager->kernelIntfStatusDir(), kernel);
}

TEST_F(ProxyPamManagerTest, WiresItsMachinesTogether) {
  start();
  EXPECT_EQ(manager->ethDevPamSm()->ethDevPamCol(), manager->ethDevPamCol());
  EXPECT_EQ(manager->ethDevPamSm()->parent(), manager.get());
  EXPECT_EQ(manager->proxyIntfFilter()->pamDir(), pamDir);
  EXPECT_EQ(manager->proxyIntfFilter()->portVlanMap(), portVlanMap);
  EXPECT_EQ(manager->proxyIntfFilter()->desiredIntfDir(), manager->proxyPamDesired());
  EXPECT_EQ(manager->defaultVlanSm()->bridgingConfig(), bridging);
}

TEST_F(ProxyPamManagerTest, IsInitializedWhenItIsMade) {
  start();
  EXPECT_TRUE(manager->initialized());
  EXPECT_TRUE(manager->ethDevPamMgr()->enabled());
  EXPECT_TRUE(manager->pamCol()->entries().empty());
  manager->initializedIs(false);
  EXPECT_FALSE(manager->initialized());
}

TEST_F(ProxyPamManagerTest, IsMadeByItsClassToo) {
  isUsed("swp1");
  manager = ProxyPamManager::ProxyPamManagerIs(bridging, pamDir, portVlanMap, kernel);
  EXPECT_TRUE(manager->initialized());
  EXPECT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(manager->references(), 1u);
}

TEST_F(ProxyPamManagerTest, TracesItsStartInOrder) {
  isUsed("swp1");
  desire("swp2");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  start();
  EXPECT_THAT(
      trace.texts(),
      ElementsAre(managerInitialized(), everyDevice(), everyPort(), port("swp1"), desired("swp1"),
                  port("swp2"), notDesired("swp2"), port("swp1"), desired("swp1"), device("swp1")));
  EXPECT_THAT(
      functionsOf(trace),
      ElementsAre("handleInitialized", "handleEthDevPam", "handlePort", "handlePort", "handlePort",
                  "handlePort", "handlePort", "handlePort", "handlePort", "handleEthDevPam"));
  EXPECT_THAT(trace.lines(),
              Each(AllOf(Field(&TraceCapture::Line::handle, "IgmpSnooping::Proxy::Pam"),
                         Field(&TraceCapture::Line::sourceFile, "ProxyPam"),
                         Field(&TraceCapture::Line::object, "<unknown>"))));
}

TEST_F(ProxyPamManagerTest, ReceivesEveryProtocolIntoLargeBuffersThroughItsFilter) {
  start();
  auto const& settings = manager->ethDevPamMgr()->settings();
  EXPECT_EQ(settings.bufferSize, 10004u);
  EXPECT_EQ(settings.protocol, 3u);
  EXPECT_EQ(settings.filter, Interface::SocketFilter(receiveFilter.begin(), receiveFilter.end()));
  EXPECT_EQ(settings.filter.size(), 29u);
}

TEST_F(ProxyPamManagerTest, MakesPacketsAsLongAsTheBuffers) {
  ASSERT_EQ(Wirex::PktManager::instance().bufferSize(), 2048u);
  start();
  EXPECT_EQ(Wirex::PktManager::instance().bufferSize(), 10004u);
}

TEST_F(ProxyPamManagerTest, OpensDevicesOnceAndOnlyWhenEverythingIsSet) {
  std::vector<std::size_t> packetSizes;
  devices.atOpening = [&] { packetSizes.push_back(Wirex::PktManager::instance().bufferSize()); };
  isUsed("swp1");
  isUsed("swp2");
  start();
  ASSERT_EQ(devices.openings.size(), 2u);
  for (auto const& opening : devices.openings)
    EXPECT_EQ(opening.settings, manager->ethDevPamMgr()->settings()) << opening.intf;
  EXPECT_THAT(packetSizes, ElementsAre(10004, 10004));
  EXPECT_THAT(devices.takeOpened(), ElementsAre("swp1", "swp2"));
}

TEST_F(ProxyPamManagerTest, FollowsDefaultVlansBeforeItOpensDevices) {
  bool followed = false;
  devices.atOpening = [&] { followed = bridging->watched(); };
  startWith("swp1");
  EXPECT_TRUE(followed);
}

TEST_F(ProxyPamManagerTest, KnowsDefaultVlansFromTheStart) {
  vlanHas(10, "swp1", false);
  start();
  EXPECT_EQ(manager->defaultVlan(IntfId("swp1")), VlanId(10));
}

// ---- Inputs that are missing

using ProxyPamManagerDeathTest = ProxyPamManagerTest;

TEST_F(ProxyPamManagerDeathTest, NeedsToKnowWhatTheSystemDesires) {
  EXPECT_DEATH(proxyPamManagerFactory(bridging, nullptr, portVlanMap, kernel),
               "ProxyPam:[0-9]+: handlePort: assertion failed: pamDir\\(\\)\n");
}

TEST_F(ProxyPamManagerDeathTest, NeedsToKnowWhereHostsAre) {
  EXPECT_DEATH(proxyPamManagerFactory(bridging, pamDir, nullptr, kernel),
               "ProxyPam:[0-9]+: handlePort: assertion failed: portVlanMap\\(\\)\n");
}

TEST_F(ProxyPamManagerTest, RefusesToDoWithoutBridging) {
  isUsed("swp1");
  EXPECT_EQ(refusalOf<Kel::RangeException>(
                [&] { proxyPamManagerFactory(nullptr, pamDir, portVlanMap, kernel); }),
            nullRefused("Bridging::IgmpSnooping::DefaultVlanSm", "bridgingConfig"));
  EXPECT_THAT(devices.openings, IsEmpty());
}

TEST_F(ProxyPamManagerTest, RefusesToDoWithoutTheKernelsInterfaces) {
  EXPECT_EQ(refusalOf<Kel::RangeException>(
                [&] { proxyPamManagerFactory(bridging, pamDir, portVlanMap, nullptr); }),
            nullRefused("Interface::EthDevPamManager", "kernelIntfStatusDir"));
  EXPECT_EQ(pamDir->references(), 1u) << "nothing is left behind";
  EXPECT_EQ(portVlanMap->references(), 1u);
}

// ---- Which devices are open

TEST_F(ProxyPamManagerTest, PortThatIsDesiredHostedAndThereIsOpen) {
  start();
  host("swp1");
  desire("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  kernelHas("swp1");
  ASSERT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(multiplexer("swp1")->devicePam(), manager->ethDevPamCol()->intfPam(IntfId("swp1")));
}

TEST_F(ProxyPamManagerTest, PortWithoutHostsIsNeverOpened) {
  start();
  kernelHas("swp1");
  desire("swp1");
  EXPECT_FALSE(manager->proxyPamDesired()->intfDesired().contains(IntfId("swp1")));
  EXPECT_THAT(devices.openings, IsEmpty());
}

TEST_F(ProxyPamManagerTest, PortIsClosedWithItsLastHost) {
  startWith("swp1");
  unhost("swp1");
  EXPECT_TRUE(manager->proxyPamDesired()->intfDesired().empty());
  EXPECT_TRUE(manager->ethDevPamCol()->intfPam().empty());
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(ProxyPamManagerTest, PortIsClosedWhenTheSystemDesiresItNoMore) {
  startWith("swp1");
  undesire("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(ProxyPamManagerTest, PortIsClosedWhenTheKernelLosesIt) {
  startWith("swp1");
  kernelLoses("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_TRUE(manager->proxyPamDesired()->intfDesired(IntfId("swp1"))) << "it is still wanted";
}

TEST_F(ProxyPamManagerTest, TracesAPortThatComesAndGoes) {
  start();
  kernelHas("swp1");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  desire("swp1");
  host("swp1");
  unhost("swp1");
  EXPECT_THAT(trace.texts(),
              ElementsAre(port("swp1"), notDesired("swp1"), port("swp1"), desired("swp1"),
                          device("swp1"), port("swp1"), notDesired("swp1"), device("swp1")));
}

// ---- Packet access objects

TEST_F(ProxyPamManagerTest, MakesThePacketAccessOfAPortInAVlan) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  EXPECT_EQ(pam->name(), Kel::Name("10"));
  EXPECT_EQ(pam->vlanId(), VlanId(10));
  EXPECT_EQ(pam->multiplexer(), multiplexer("swp1"));
  EXPECT_EQ(manager->pamCol(key(10, "swp1")), pam);
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), pam);
}

TEST_F(ProxyPamManagerTest, RegistersTheVlanWithoutPriority) {
  startWith("swp1");
  pamIs(10, "swp1");
  ASSERT_TRUE(multiplexer("swp1")->vlan().contains(VlanId(10)));
  EXPECT_EQ(multiplexer("swp1")->vlan().get(VlanId(10)), 0u);
  EXPECT_EQ(multiplexer("swp1")->vlan().size(), 1u);
}

TEST_F(ProxyPamManagerTest, FindsThePacketAccessThatIsThereAndMakesNothing) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  auto const listener = Kel::make<PamListener>(manager->pamCol());
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  EXPECT_EQ(pamIs(10, "swp1"), pam);
  EXPECT_EQ(manager->pamCol()->entries().size(), 1u);
  EXPECT_THAT(listener->heard, IsEmpty());
  EXPECT_THAT(trace.texts(), ElementsAre(pamTrace("Vlan10swp1")));
}

TEST_F(ProxyPamManagerTest, FindsPacketAccessAlsoWhileThePortHasNoMultiplexer) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  kernelLoses("swp1");
  EXPECT_EQ(pamIs(10, "swp1"), pam);
}

TEST_F(ProxyPamManagerTest, MakesOneForEachPortAndVlan) {
  isUsed("swp1");
  startWith("swp2");
  std::set<Wirex::VlanPam*> const all{pamIs(10, "swp1").get(), pamIs(20, "swp1").get(),
                                      pamIs(10, "swp2").get(), pamIs(20, "swp2").get()};
  EXPECT_EQ(all.size(), 4u);
  EXPECT_EQ(manager->pamCol()->entries().size(), 4u);
}

TEST_F(ProxyPamManagerTest, HasNoPacketAccessThatNobodyAskedFor) {
  startWith("swp1");
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), nullptr);
  EXPECT_EQ(manager->pamCol(key(10, "swp1")), nullptr);
}

TEST_F(ProxyPamManagerTest, MakesAnotherAfterItsRemoval) {
  startWith("swp1");
  auto const first = pamIs(10, "swp1");
  manager->portVlanPamDel(key(10, "swp1"));
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), nullptr);
  auto const second = pamIs(10, "swp1");
  EXPECT_NE(second, first);
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), second);
}

TEST_F(ProxyPamManagerTest, RemovingPacketAccessThatIsNotThereIsHarmless) {
  startWith("swp1");
  auto const listener = Kel::make<PamListener>(manager->pamCol());
  manager->portVlanPamDel(key(10, "swp1"));
  manager->pamColDel(key(10, "swp1"));
  EXPECT_THAT(listener->heard, IsEmpty());
}

TEST_F(ProxyPamManagerDeathTest, PacketAccessNeedsThePortsMultiplexer) {
  start();
  EXPECT_DEATH(pamIs(10, "swp1"), "ProxyPam:[0-9]+: portVlanPamIs: assertion failed: plex\n");
}

TEST_F(ProxyPamManagerDeathTest, PacketAccessNeedsTheMultiplexerOfItsOwnPort) {
  startWith("swp1");
  EXPECT_DEATH(pamIs(10, "swp2"), "assertion failed: plex\n");
}

TEST_F(ProxyPamManagerTest, PacketAccessCanBeHadAsSoonAsADeviceIsOpen) {
  start();
  isUsed("swp1");
  EXPECT_TRUE(pamIs(10, "swp1"));
}

TEST_F(ProxyPamManagerTest, TracesThePacketAccessItMakes) {
  startWith("swp1");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  pamIs(10, "swp1");
  EXPECT_THAT(trace.texts(), ElementsAre(pamTrace("Vlan10swp1"), creatingPam()));
  EXPECT_THAT(functionsOf(trace), Each("portVlanPamIs"));
}

TEST_F(ProxyPamManagerTest, TellsOfPacketAccessThatComesAndGoes) {
  startWith("swp1");
  auto const listener = Kel::make<PamListener>(manager->pamCol());
  auto const pam = pamIs(10, "swp1");
  manager->pamColIs(key(10, "swp1"), pam);  // no change
  manager->pamColNotify(key(10, "swp1"));
  manager->pamColIs(key(10, "swp1"), Kel::make<Wirex::VlanPam>("10", multiplexer("swp1")));
  manager->portVlanPamDel(key(10, "swp1"));
  EXPECT_THAT(listener->heard,
              ElementsAre("Vlan10swp1 is", "Vlan10swp1 is", "Vlan10swp1 is", "Vlan10swp1 is gone"));
}

TEST_F(ProxyPamManagerTest, TellsOfAllPacketAccessAtOnceWhenItIsAskedTo) {
  startWith("swp1");
  auto const listener = Kel::make<PamListener>(manager->pamCol());
  manager->pamColNotify();
  EXPECT_THAT(listener->heard, ElementsAre("all"));
}

TEST_F(ProxyPamManagerTest, TellsOfEachWhenAllPacketAccessGoes) {
  startWith("swp1");
  pamIs(10, "swp1");
  pamIs(20, "swp1");
  auto const listener = Kel::make<PamListener>(manager->pamCol());
  manager->pamColDelAll();
  EXPECT_THAT(listener->heard,
              ::testing::UnorderedElementsAre("Vlan10swp1 is gone", "Vlan20swp1 is gone"));
  EXPECT_TRUE(manager->pamCol()->entries().empty());
}

TEST_F(ProxyPamManagerTest, RefusesNullAsPacketAccess) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  EXPECT_EQ(refusalOf<Kel::RangeException>([&] { manager->pamColIs(key(10, "swp1"), nullptr); }),
            nullRefused("Bridging::IgmpSnooping::Proxy::ProxyPamManager", "pamCol"));
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), pam);
}

// ---- Receiving

TEST_F(ProxyPamManagerTest, PacketReachesThePacketAccessOfItsKeyOnly) {
  isUsed("swp1");
  startWith("swp2");
  auto const right = pamIs(10, "swp1");
  auto const otherVlan = pamIs(20, "swp1");
  auto const otherPort = pamIs(10, "swp2");
  Pkt::PtrConst const pkt = Pkt::PktIs(query(10));
  manager->doRxPkt(VlanId(10), IntfId("swp1"), pkt);
  EXPECT_EQ(right->inputPkt(), pkt);
  EXPECT_EQ(otherVlan->inputPkt(), nullptr);
  EXPECT_EQ(otherPort->inputPkt(), nullptr);
}

TEST_F(ProxyPamManagerTest, PacketForNobodyIsDropped) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  manager->doRxPkt(VlanId(20), IntfId("swp1"), Pkt::PktIs(query(20)));
  manager->doRxPkt(VlanId(10), IntfId("swp2"), Pkt::PktIs(query(10)));
  EXPECT_EQ(pam->inputPkt(), nullptr);
  EXPECT_THAT(trace.texts(), ElementsAre(rxPkt("20 swp1"), rxPkt("10 swp2")));
}

TEST_F(ProxyPamManagerTest, PacketAfterTheRemovalOfItsPacketAccessIsDropped) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  manager->portVlanPamDel(key(10, "swp1"));
  devices.hears("swp1", query(10));
  EXPECT_EQ(pam->inputPkt(), nullptr);
}

TEST_F(ProxyPamManagerTest, TracesEachPacket) {
  startWith("swp1");
  pamIs(10, "swp1");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  devices.hears("swp1", query(10));
  EXPECT_THAT(trace.texts(), ElementsAre(rxPkt("10 swp1")));
  EXPECT_THAT(functionsOf(trace), ElementsAre("doRxPkt"));
}

/// Two ports in three VLANs: untagged in one of them, tagged in the others.
class ProxyPamReceptionTest : public ProxyPamManagerTest {
 protected:
  ProxyPamReceptionTest() {
    for (char const* const intf : {"swp1", "swp2"}) {
      isUsed(intf);
      vlanHas(10, intf, true);
      vlanHas(20, intf, false);
    }
    start();
    for (char const* const intf : {"swp1", "swp2"})
      for (VlanId const vlan : {VlanId(10), VlanId(20)}) {
        PortKey const where(vlan, IntfId(intf));
        listeners[where] = Kel::make<InputListener>(manager->portVlanPamIs(where));
      }
  }

  /// The names of the keys that heard a packet, once for each packet.
  std::vector<std::string> heard() const {
    std::vector<std::string> names;
    for (auto const& [where, listener] : listeners)
      names.insert(names.end(), listener->heard.size(), std::string(where.stringvalue().view()));
    return names;
  }

  std::map<PortKey, Kel::Ptr<InputListener>> listeners;
};

TEST_F(ProxyPamReceptionTest, TaggedQueryReachesItsVlanOnItsPort) {
  devices.hears("swp1", query(10));
  EXPECT_THAT(heard(), ElementsAre("Vlan10swp1"));
  EXPECT_THAT(listeners[key(10, "swp1")]->heard, ElementsAre(query(10))) << "as on the wire";
}

TEST_F(ProxyPamReceptionTest, TaggedQueryReachesTheUntaggedVlanToo) {
  devices.hears("swp2", query(20));
  EXPECT_THAT(heard(), ElementsAre("Vlan20swp2"));
}

TEST_F(ProxyPamReceptionTest, UntaggedQueryReachesTheUntaggedVlan) {
  devices.hears("swp2", query());
  EXPECT_THAT(heard(), ElementsAre("Vlan20swp2"));
}

TEST_F(ProxyPamReceptionTest, QueryWithAPriorityOnlyReachesTheUntaggedVlan) {
  devices.hears("swp1", query(0, 6));
  EXPECT_THAT(heard(), ElementsAre("Vlan20swp1"));
}

TEST_F(ProxyPamReceptionTest, QueryWithAPriorityAndAVlanReachesItsVlan) {
  devices.hears("swp1", query(10, 6));
  EXPECT_THAT(heard(), ElementsAre("Vlan10swp1"));
}

TEST_F(ProxyPamReceptionTest, QueryOfAnotherVlanReachesNobody) {
  devices.hears("swp1", query(30));
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(ProxyPamReceptionTest, UntaggedQueryReachesNobodyWhereThePortIsTaggedEverywhere) {
  vlanHas(20, "swp1", true);
  devices.hears("swp1", query());
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(ProxyPamReceptionTest, UntaggedQueryFollowsTheUntaggedVlan) {
  vlanHas(20, "swp1", true);
  vlanHas(10, "swp1", false);
  devices.hears("swp1", query());
  EXPECT_THAT(heard(), ElementsAre("Vlan10swp1"));
}

TEST_F(ProxyPamReceptionTest, UntaggedQueryFollowsARemovedInterface) {
  bridging->vlanConfig(VlanId(20))->intfConfigDel(IntfId("swp1"));
  devices.hears("swp1", query());
  devices.hears("swp2", query());
  EXPECT_THAT(heard(), ElementsAre("Vlan20swp2"));
}

TEST_F(ProxyPamReceptionTest, WhatTheFilterDropsIsNotHeard) {
  Interface::CaptureEthDevPams captures;
  listeners.clear();
  manager = nullptr;
  start();
  auto const listener = Kel::make<InputListener>(pamIs(10, "swp1"));
  captures.receive(IntfId("swp1"), FrameBuilder::queryV3({}).vlan(10).etherType(0x86dd).bytes());
  EXPECT_THAT(listener->heard, IsEmpty());
  captures.receive(IntfId("swp1"), query(10));
  EXPECT_THAT(listener->heard, ElementsAre(query(10)));
}

TEST_F(ProxyPamReceptionTest, JumboFramesAreHeardAndLongerOnesAreNot) {
  Interface::CaptureEthDevPams captures;
  listeners.clear();
  manager = nullptr;
  start();
  auto const listener = Kel::make<InputListener>(pamIs(10, "swp1"));
  auto frame = query(10);
  frame.resize(10005);
  captures.receive(IntfId("swp1"), frame);
  EXPECT_THAT(listener->heard, IsEmpty());
  frame.resize(10004);
  captures.receive(IntfId("swp1"), frame);
  EXPECT_THAT(listener->heard, ElementsAre(frame));
}

// ---- Sending

TEST_F(ProxyPamManagerTest, FramesAreUntaggedInAVlanThatIsNotConfigured) {
  start();
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp1")));
}

TEST_F(ProxyPamManagerTest, FramesAreUntaggedOnAnInterfaceThatIsNotInTheVlan) {
  vlanHas(10, "swp2", true);
  start();
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp1")));
}

TEST_F(ProxyPamManagerTest, FramesAreUntaggedWhereTheInterfaceIs) {
  vlanHas(10, "swp1", false);
  vlanHas(20, "swp1", true);
  start();
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp1")));
}

TEST_F(ProxyPamManagerTest, FramesAreTaggedWhereTheInterfaceIs) {
  vlanHas(10, "swp1", true);
  start();
  EXPECT_TRUE(manager->tagOnEgress(VlanId(10), IntfId("swp1")));
}

TEST_F(ProxyPamManagerTest, SendsAsBridgingSaysAndFollowsIt) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  send(*pam);
  vlanHas(10, "swp1", true);
  send(*pam);
  vlanHas(10, "swp1", false);
  send(*pam);
  vlanHas(10, "swp1", true);
  bridging->vlanConfigDel(VlanId(10));
  send(*pam);
  EXPECT_THAT(
      devices.sent,
      ElementsAre(RecordedPams::Sent{"swp1", query()}, RecordedPams::Sent{"swp1", query(10)},
                  RecordedPams::Sent{"swp1", query()}, RecordedPams::Sent{"swp1", query()}));
}

TEST_F(ProxyPamManagerTest, SendsOnItsOwnPortAndVlan) {
  isUsed("swp1");
  startWith("swp2");
  for (std::uint16_t const vlan : {std::uint16_t{10}, std::uint16_t{20}})
    for (char const* const intf : {"swp1", "swp2"}) vlanHas(vlan, intf, true);
  pamIs(10, "swp1");
  send(*pamIs(20, "swp2"));
  EXPECT_THAT(devices.sent, ElementsAre(RecordedPams::Sent{"swp2", query(20)}));
}

// ---- Ports that come back

TEST_F(ProxyPamManagerTest, HostSendsAgainWhenItsPortIsBack) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  kernelLoses("swp1");
  send(*pam);
  EXPECT_THAT(devices.sent, IsEmpty());
  kernelHas("swp1");
  EXPECT_EQ(pamIs(10, "swp1"), pam) << "no new one was needed";
  send(*pam);
  EXPECT_THAT(devices.sent, ElementsAre(RecordedPams::Sent{"swp1", query()}));
}

TEST_F(ProxyPamManagerTest, HostReceivesAgainWhenItsPortIsBack) {
  startWith("swp1");
  auto const listener = Kel::make<InputListener>(pamIs(10, "swp1"));
  undesire("swp1");
  devices.hears("swp1", query(10));
  EXPECT_THAT(listener->heard, IsEmpty());
  desire("swp1");
  devices.hears("swp1", query(10));
  EXPECT_THAT(listener->heard, ElementsAre(query(10)));
}

TEST_F(ProxyPamManagerTest, HostReceivesWhatIsUntaggedWhenItsPortIsBackInAnotherVlan) {
  startWith("swp1");
  auto const listener = Kel::make<InputListener>(pamIs(10, "swp1"));
  kernelLoses("swp1");
  vlanHas(10, "swp1", false);
  kernelHas("swp1");
  devices.hears("swp1", query());
  EXPECT_THAT(listener->heard, ElementsAre(query()));
}

TEST_F(ProxyPamManagerTest, HostSendsOnADeviceThatWasMadeAgain) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  kernel->intfStatusAndDeviceNameIs(IntfId("swp1"), {"swp1", 2});
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1")) << "the former one is closed";
  send(*pam);
  EXPECT_THAT(devices.sent, ElementsAre(RecordedPams::Sent{"swp1", query()}));
}

TEST_F(ProxyPamManagerTest, VlanIsForgottenOnceNobodyHoldsThePort) {
  startWith("swp1");
  pamIs(10, "swp1");
  manager->portVlanPamDel(key(10, "swp1"));
  kernelLoses("swp1");
  kernelHas("swp1");
  EXPECT_TRUE(multiplexer("swp1")->vlan().empty());
}

// ---- Names of attributes

TEST_F(ProxyPamManagerTest, NamesItsAttributesAfterThoseOfItsBase) {
  start();
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < 20; ++i) names.emplace_back(manager->attributeString(i));
  EXPECT_THAT(names, ElementsAre("name", "multiplexer", "defaultVlan",  //
                                 "bridgingConfig", "pamDesiredIntfDir", "portVlanMap",
                                 "kernelIntfStatusDir", "ethDevPamCol", "pamCol", "proxyPamDesired",
                                 "ethDevPamSm", "proxyIntfFilter", "ethDevPamMgr", "defaultVlanSm",
                                 "initialized", "portVlanPam", "portVlanPamIs", "portVlanPamDel",
                                 "handleInitialized", "handleCleanup"));
}

TEST_F(ProxyPamManagerTest, KnowsNoOtherAttributes) {
  start();
  EXPECT_STREQ(manager->attributeString(20), "unknown");
  EXPECT_STREQ(manager->attributeString(UINT32_MAX), "unknown");
}

// ---- End

TEST_F(ProxyPamManagerTest, CleanupClosesTheDevicesAndLeavesTheRest) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  manager->handleCleanup();
  EXPECT_FALSE(manager->ethDevPamMgr()->enabled());
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_EQ(manager->portVlanPam(key(10, "swp1")), pam);
  EXPECT_TRUE(manager->proxyPamDesired()->intfDesired(IntfId("swp1")));
  EXPECT_THAT(trace.texts(), ElementsAre(managerCleanup(), device("swp1")));
  EXPECT_THAT(functionsOf(trace), ElementsAre("handleCleanup", "handleEthDevPam"));
}

TEST_F(ProxyPamManagerTest, OpensNothingAfterItsCleanup) {
  start();
  manager->handleCleanup();
  isUsed("swp1");
  EXPECT_THAT(devices.openings, IsEmpty());
}

TEST_F(ProxyPamManagerTest, HoldsItselfInNoCycle) {
  startWith("swp1");
  EXPECT_EQ(manager->references(), 1u);
  pamIs(10, "swp1");
  devices.hears("swp1", query(10));
  EXPECT_EQ(manager->references(), 1u);
}

TEST_F(ProxyPamManagerTest, ClosesItsDevicesAndLetsGoOfItsInputsWhenItGoes) {
  startWith("swp1");
  pamIs(10, "swp1");
  vlanHas(10, "swp1", false);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  manager = nullptr;
  EXPECT_THAT(trace.texts(), ElementsAre(managerCleanup(), device("swp1")));
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
  EXPECT_EQ(bridging->references(), 1u);
  EXPECT_EQ(pamDir->references(), 1u);
  EXPECT_EQ(portVlanMap->references(), 1u);
  EXPECT_EQ(kernel->references(), 1u);
}

TEST_F(ProxyPamManagerTest, MachinesThatOutliveItDoNothing) {
  start();
  auto const sm = manager->ethDevPamSm();
  auto const filter = manager->proxyIntfFilter();
  auto const deviceManager = manager->ethDevPamMgr();
  auto const vlanSm = manager->defaultVlanSm();
  auto const opened = manager->ethDevPamCol();
  auto const wanted = manager->proxyPamDesired();
  auto const pams = manager->pamCol();
  manager = nullptr;
  for (auto const references : {sm->references(), filter->references(), deviceManager->references(),
                                vlanSm->references(), pams->references()})
    EXPECT_EQ(references, 1u) << "nobody else holds them";
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  isUsed("swp1");
  vlanHas(10, "swp1", false);
  opened->intfPamIs(devices.pam(IntfId("swp1"), {"swp1", 1}, {}));
  EXPECT_FALSE(wanted->intfDesired(IntfId("swp1")));
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(ProxyPamManagerTest, HostThatOutlivesItSendsAndReceivesNothing) {
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  manager = nullptr;
  devices.hears("swp1", query(10));
  send(*pam);
  EXPECT_EQ(pam->inputPkt(), nullptr);
  EXPECT_THAT(devices.sent, IsEmpty());
}

TEST_F(ProxyPamManagerTest, MayGoAfterTheThreadsDevices) {
  std::optional<RecordedPams> others(std::in_place);
  startWith("swp1");
  auto const pam = pamIs(10, "swp1");
  others.reset();
  send(*pam);
  manager = nullptr;
  EXPECT_EQ(pam->references(), 1u);
}

// ---- Zombies and inactive ones

TEST_F(ProxyPamManagerTest, FollowsNothingAsAZombie) {
  startWith("swp1");
  manager->kelDoZombieReactors(true);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  devices.takeOpened();
  isUsed("swp2");
  unhost("swp1");
  vlanHas(10, "swp1", false);
  EXPECT_THAT(devices.takeOpened(), IsEmpty());
  EXPECT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(manager->defaultVlan(IntfId("swp1")), std::nullopt);
  EXPECT_THAT(trace.lines(), IsEmpty());
  manager->kelDoZombieReactors(false);
  isUsed("swp3");
  EXPECT_TRUE(multiplexer("swp3"));
}

TEST_F(ProxyPamManagerTest, FollowsNothingWhileInactive) {
  startWith("swp1");
  manager->hasNotificationActiveIs(false);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  devices.takeOpened();
  isUsed("swp2");
  unhost("swp1");
  vlanHas(10, "swp1", false);
  EXPECT_THAT(devices.takeOpened(), IsEmpty());
  EXPECT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(manager->defaultVlan(IntfId("swp1")), std::nullopt);
  EXPECT_THAT(trace.lines(), IsEmpty());
  manager->hasNotificationActiveIs(true);
  isUsed("swp3");
  vlanHas(10, "swp3", false);
  EXPECT_TRUE(multiplexer("swp3"));
}

// ---- What callbacks may do

class ProxyPamReentrancyTest : public ProxyPamManagerTest {
 protected:
  /// Lets go of the manager when a multiplexer comes or goes.
  void dropManagerOnMultiplexer() {
    listener = Kel::make<MultiplexerListener>(manager);
    listener->reaction = [this](IntfId const&) {
      manager = nullptr;
      listener = nullptr;
    };
  }
  /// Everything of the manager's is closed and gone.
  void expectGone() const {
    EXPECT_EQ(listener, nullptr);
    EXPECT_THAT(devices.openIntfs(), IsEmpty());
    EXPECT_EQ(pamDir->references(), 1u);
    EXPECT_EQ(portVlanMap->references(), 1u);
    EXPECT_EQ(kernel->references(), 1u);
    EXPECT_EQ(bridging->references(), 1u);
  }

  Kel::Ptr<MultiplexerListener> listener;
};

TEST_F(ProxyPamReentrancyTest, HostMayGoWhileItsMultiplexerIsHeardOf) {
  start();
  listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const&) { unhost("swp1"); };
  isUsed("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp1 went"));
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(ProxyPamReentrancyTest, DeviceMayGoWhileItsMultiplexerIsHeardOf) {
  start();
  listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const& intf) { manager->ethDevPamCol()->intfPamDel(intf); };
  isUsed("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(ProxyPamReentrancyTest, DeviceMayBeMadeAgainWhileItsMultiplexerIsHeardOf) {
  start();
  listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const& intf) {
    kernel->intfStatusAndDeviceNameIs(intf, {"swp1", 2});
  };
  isUsed("swp1");
  auto const opened = manager->ethDevPamCol()->intfPam(IntfId("swp1"));
  EXPECT_EQ(opened->device().deviceIndex, 2u);
  EXPECT_EQ(multiplexer("swp1")->devicePam(), opened);
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1"));
}

TEST_F(ProxyPamReentrancyTest, PacketAccessMayBeMadeAsSoonAsAMultiplexerIsHeardOf) {
  start();
  listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const&) { pamIs(10, "swp1"); };
  isUsed("swp1");
  send(*manager->portVlanPam(key(10, "swp1")));
  EXPECT_THAT(devices.sent, ElementsAre(RecordedPams::Sent{"swp1", query()}));
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAMultiplexerIsBoundBecauseOfAHost) {
  start();
  kernelHas("swp1");
  desire("swp1");
  dropManagerOnMultiplexer();
  host("swp1");
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAMultiplexerIsBoundBecauseOfADesire) {
  start();
  kernelHas("swp1");
  host("swp1");
  dropManagerOnMultiplexer();
  desire("swp1");
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAMultiplexerIsBoundBecauseOfTheKernel) {
  start();
  host("swp1");
  desire("swp1");
  dropManagerOnMultiplexer();
  kernelHas("swp1");
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAMultiplexerGoes) {
  startWith("swp1");
  dropManagerOnMultiplexer();
  unhost("swp1");
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileSeveralDevicesAreOpened) {
  isUsed("swp1");
  startWith("swp2");
  manager->ethDevPamMgr()->enabledIs(false);
  dropManagerOnMultiplexer();
  manager->ethDevPamMgr()->enabledIs(true);
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileItCleansUp) {
  isUsed("swp1");
  startWith("swp2");
  dropManagerOnMultiplexer();
  manager->handleCleanup();
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileEveryMultiplexerIsMadeAgain) {
  isUsed("swp1");
  startWith("swp2");
  manager->multiplexerDelAll();
  dropManagerOnMultiplexer();
  manager->ethDevPamSm()->handleEthDevPam();
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileEveryPortIsDecidedAgain) {
  isUsed("swp1");
  startWith("swp2");
  manager->proxyPamDesired()->intfDesiredDelAll();
  dropManagerOnMultiplexer();
  manager->proxyIntfFilter()->handlePort();
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAPacketIsHeard) {
  startWith("swp1");
  auto pam = pamIs(10, "swp1");
  auto hearing = Kel::make<InputListener>(pam);
  hearing->reaction = [&] {
    manager = nullptr;
    pam = nullptr;
    hearing = nullptr;
  };
  devices.hears("swp1", query(10));
  EXPECT_EQ(hearing, nullptr);
  expectGone();
}

TEST_F(ProxyPamReentrancyTest, HostMayGoWhileItHearsAPacket) {
  startWith("swp1");
  auto const hearing = Kel::make<InputListener>(pamIs(10, "swp1"));
  hearing->reaction = [&] {
    manager->portVlanPamDel(key(10, "swp1"));
    unhost("swp1");
  };
  devices.hears("swp1", query(10));
  devices.hears("swp1", query(10));
  EXPECT_THAT(hearing->heard, ElementsAre(query(10)));
}

/// Lets go of the manager when a VLAN is registered.
class VlanListener final : public Wirex::Multiplexer::NotifieeConst {
 public:
  VlanListener(Kel::Ptr<Wirex::Multiplexer const> multiplexer, std::function<void()> reaction)
      : reaction_(std::move(reaction)) {
    watch(std::move(multiplexer));
  }
  void onVlan(VlanId) override { reaction_(); }

 private:
  std::function<void()> reaction_;
};

TEST_F(ProxyPamReentrancyTest, ManagerMayGoWhileAVlanIsRegistered) {
  startWith("swp1");
  auto const vlans = Kel::make<VlanListener>(multiplexer("swp1"), [&] { manager = nullptr; });
  auto const pam = pamIs(10, "swp1");
  EXPECT_EQ(manager, nullptr);
  EXPECT_EQ(pam->references(), 1u);
  expectGone();
}

// ---- keys and packets

TEST_F(ProxyPamManagerTest, PacketAccessThatTakesAnothersPlaceReceives) {
  startWith("swp1");
  auto const former = pamIs(10, "swp1");
  auto const other = Kel::make<Wirex::VlanPam>("10", multiplexer("swp1"));
  manager->pamColIs(key(10, "swp1"), other);
  manager->doRxPkt(VlanId(10), IntfId("swp1"), Pkt::PktIs(query(10)));
  EXPECT_EQ(former->inputPkt(), nullptr);
  EXPECT_NE(other->inputPkt(), nullptr);
}

TEST_F(ProxyPamManagerTest, PacketAccessPutInWhileAllGoesReceivesNothingAfterwards) {
  startWith("swp1");
  pamIs(10, "swp1");
  pamIs(20, "swp1");
  struct PutsIn final : ProxyPamManager::PamCol::NotifieeConst {
    PutsIn(ProxyPamManager& into, Wirex::VlanPam::Ptr pam) : manager(into), other(std::move(pam)) {
      watch(into.pamCol());
    }
    void onPamCol(PortKey) override {
      if (other) manager.pamColIs(key(20, "swp1"), std::exchange(other, nullptr));
    }
    ProxyPamManager& manager;
    Wirex::VlanPam::Ptr other;
  };
  auto const putsIn =
      Kel::make<PutsIn>(*manager, Kel::make<Wirex::VlanPam>("20", multiplexer("swp1")));
  manager->pamColDelAll();
  EXPECT_TRUE(manager->pamCol()->entries().empty());
  manager->doRxPkt(VlanId(20), IntfId("swp1"), Pkt::PktIs(query(20)));
}

TEST_F(ProxyPamManagerTest, ZombieOpensNoDevice) {
  startWith("swp1");
  manager->kelDoZombieReactors(true);
  manager->proxyPamDesired()->intfDesiredIs(IntfId("swp2"), true);
  kernelHas("swp2");
  EXPECT_FALSE(manager->ethDevPamCol()->intfPam(IntfId("swp2")));
}

TEST_F(ProxyPamManagerTest, CatchesUpWithWhatItMissedWhileInactive) {
  startWith("swp1");
  kernelHas("swp2");
  manager->hasNotificationActiveIs(false);
  unhost("swp1");
  desire("swp2");
  host("swp2");
  manager->hasNotificationActiveIs(true);
  EXPECT_FALSE(multiplexer("swp1"));
  EXPECT_TRUE(multiplexer("swp2"));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
