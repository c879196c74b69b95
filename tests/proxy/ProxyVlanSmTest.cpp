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
using ::testing::StartsWith;

constexpr char const* vlanHandler = "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::";
constexpr char const* portHandler = "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::";
constexpr char const* watcherHandler =
    "8 void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::";

std::string vlan10(char const* handler) {
  return std::string(vlanHandler) + handler;
}
std::string portSays(int level, char const* text) {
  return std::to_string(level) + ' ' + portHandler + text;
}
std::string watcherSays(char const* text) {
  return std::string(watcherHandler) + text;
}

/// The machine of VLAN 10 without a proxy around it.
class ProxyVlanSmTest : public ProxiedSwitchTest {
 protected:
  ProxyVlanSmTest() {
    topo(10);
    querierIs(10);
  }

  Kel::Ptr<ProxyVlanSm> vlanSmWith(Kel::Ptr<AdapterVlanConfig> const& served) {
    return ProxyVlanSm::ProxyVlanSmIs(VlanId(10), querier(10), topo(10), pamManager, hosts, kernel,
                                      portVlanMap, served, timerWheel);
  }
  void make() { machine = vlanSmWith(adapter); }

  Lines ports() const { return keysOf(machine->portSm()); }
  Lines watched() const { return keysOf(machine->proxyTopoPort()); }
  Lines keys() const { return keysOf(adapter->hostKey()); }
  Kel::Ptr<ProxyPortSm> swp1() const { return machine->portSm(IntfId("swp1")); }
  Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> watcher() const {
    return machine->proxyTopoPort(IntfId("swp1"));
  }

  Kel::Ptr<PortVlanMapping> portVlanMap = Kel::make<PortVlanMapping>();
  Kel::Ptr<ProxyPamManager> pamManager =
      proxyPamManagerFactory(bridging, desired, portVlanMap, kernel);
  Kel::Ptr<AdapterVlanConfig> adapter = Kel::make<AdapterVlanConfig>(VlanId(10));
  Kel::Ptr<ProxyVlanSm> machine;
};

// ---- construction

using ProxyVlanSm_Construction = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_Construction, KeepsItsArguments) {
  make();
  EXPECT_EQ(machine->vlanId(), VlanId(10));
  EXPECT_EQ(machine->querierVlanConfig(), querier(10));
  EXPECT_EQ(machine->topoVlan(), topo(10));
  EXPECT_EQ(machine->pamManager(), pamManager);
  EXPECT_EQ(machine->igmpHostDir(), hosts);
  EXPECT_EQ(machine->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(machine->portVlanMap(), portVlanMap);
  EXPECT_EQ(machine->adapterConfig(), adapter);
  EXPECT_EQ(machine->timerWheel(), timerWheel);
  EXPECT_TRUE(machine->initialized());
}

TEST_F(ProxyVlanSm_Construction, HandsItsArgumentsToThePortMachines) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  EXPECT_EQ(swp1()->intfId(), IntfId("swp1"));
  EXPECT_EQ(swp1()->vlanId(), VlanId(10));
  EXPECT_EQ(swp1()->querierVlanConfig(), querier(10));
  EXPECT_EQ(swp1()->igmpHostDir(), hosts);
  EXPECT_EQ(swp1()->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(swp1()->pamManager(), pamManager);
  EXPECT_EQ(swp1()->portVlanMap(), portVlanMap);
  EXPECT_EQ(swp1()->timerWheel(), timerWheel);
}

TEST_F(ProxyVlanSm_Construction, MakesPortMachinesFirstAndWatchersAfterAll) {
  kernelHas("swp1");
  for (char const* const name : {"swp1", "swp2"}) {
    joins(10, name)->blockedIs(true);
    port(10, name)->allowedTrafficDirectionIs(Direction::ingress);
  }
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  make();
  EXPECT_THAT(
      trace.texts(),
      ElementsAre(vlan10("handleInitialized()"), vlan10("handlePort()"),
                  vlan10("handlePort(Wirex::IntfId)"), "4 Creating QuerierSm for port swp1",
                  vlan10("handleHostPam(Wirex::IntfId)"), portSays(8, "handleInitialized() 10"),
                  portSays(8, "handleInitialized() Creating querier config Vlan10swp1"),
                  portSays(7, "updateHostPam() 10 swp1"), "7 Deleting VlanPam",
                  vlan10("handlePort(Wirex::IntfId)"), "4 Creating QuerierSm for port swp2",
                  "4 Deleting PortSm for port due to lack of kernel intf swp2",
                  watcherSays("handleTopoPortBlocked() blocked is 1"),
                  portSays(8, "handleBlocked() 10 swp1"),
                  watcherSays("handleTopoPortBlocked() blocked is 1"),
                  watcherSays("handleTopoPortBlocked() Port SM does not exist swp2")));
  EXPECT_TRUE(host(10, "swp1")->blocked());
  EXPECT_EQ(host(10, "swp1")->direction(), Direction::both);
  EXPECT_THAT(watched(), ElementsAre("swp1", "swp2"));
}

TEST_F(ProxyVlanSm_Construction, TracesNameTheirModuleAndHandler) {
  kernelHas("swp1");
  joins(10, "swp1");
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  make();
  Lines functions;
  for (auto const& line : trace.lines()) {
    EXPECT_EQ(line.handle, "IgmpSnooping::Proxy::ProxySm");
    EXPECT_EQ(line.object, "<unknown>");
    EXPECT_EQ(line.sourceFile, "ProxySm");
    functions.push_back(line.function);
  }
  EXPECT_THAT(functions, ElementsAre("handleInitialized", "handlePort", "handlePort", "handlePort",
                                     "handleHostPam", "handleInitialized", "handleInitialized",
                                     "updateHostPam", "updateHostPam", "handleTopoPortBlocked"));
}

// ---- members

using ProxyVlanSm_Ports = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_Ports, JoiningOneIsTracedInOrder) {
  kernelHas("swp1");
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  joins(10, "swp1");
  EXPECT_THAT(
      trace.texts(),
      ElementsAre(vlan10("handlePort(Wirex::IntfId)"), "4 Creating QuerierSm for port swp1",
                  vlan10("handleHostPam(Wirex::IntfId)"), portSays(8, "handleInitialized() 10"),
                  portSays(8, "handleInitialized() Creating querier config Vlan10swp1"),
                  portSays(7, "updateHostPam() 10 swp1"), "7 Deleting VlanPam",
                  watcherSays("handleTopoPortBlocked() blocked is 0")));
}

TEST_F(ProxyVlanSm_Ports, LeavingOneIsTracedInOrder) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  leaves(10, "swp1");
  EXPECT_THAT(trace.texts(),
              ElementsAre(vlan10("handlePort(Wirex::IntfId)"), "4 Deleting PortSm for port swp1",
                          "9 Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::"
                          "handleCleanup()"));
}

TEST_F(ProxyVlanSm_Ports, LosingOneInTheKernelIsTracedInOrder) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  kernelLoses("swp1");
  EXPECT_THAT(trace.texts(),
              ElementsAre(vlan10("handlePort(Wirex::IntfId)"), "4 Creating QuerierSm for port swp1",
                          "4 Deleting PortSm for port due to lack of kernel intf swp1",
                          "9 Vlan10swp1:void Bridging::IgmpSnooping::Proxy::ProxyPortSm::"
                          "handleCleanup()"));
  EXPECT_THAT(watched(), ElementsAre("swp1"));
}

TEST_F(ProxyVlanSm_Ports, HaveTheirHostBeforeTheirKeyAndLoseTheKeyFirst) {
  kernelHas("swp1");
  make();
  Lines heard;
  ControlObserver observer([&](std::string const& text) {
    if (text[0] != 'V') heard.push_back(text);
  });
  observer.watch(hosts);
  observer.watch(adapter);
  joins(10, "swp1");
  EXPECT_THAT(heard, ElementsAre("+host Vlan10swp1", "+key Vlan10swp1"));
  heard.clear();
  kernelLoses("swp1");
  EXPECT_THAT(heard, ElementsAre("-key Vlan10swp1", "-host Vlan10swp1"));
  heard.clear();
  kernelHas("swp1");
  heard.clear();
  leaves(10, "swp1");
  EXPECT_THAT(heard, ElementsAre("-key Vlan10swp1", "-host Vlan10swp1"));
}

TEST_F(ProxyVlanSm_Ports, AreDecidedOnAgainWithoutHarm) {
  kernelHas("swp1");
  joins(10, "swp1");
  joins(10, "swp2");
  make();
  auto const before = swp1();
  machine->handlePort();
  machine->handlePort(IntfId("swp1"));
  machine->handlePort(IntfId("swp2"));
  machine->handlePort(IntfId("swp3"));
  EXPECT_EQ(swp1(), before);
  EXPECT_EQ(host(10, "swp1")->configVersion(), 1u);
  EXPECT_THAT(keys(), ElementsAre("Vlan10swp1"));
  EXPECT_THAT(ports(), ElementsAre("swp1"));
}

TEST_F(ProxyVlanSm_Ports, AKernelRecordWithAnIndexAloneIsAnInterface) {
  joins(10, "swp1");
  make();
  kernel->intfStatusAndDeviceNameIs(IntfId("swp1"), {});
  EXPECT_THAT(ports(), IsEmpty()) << "a default record stands for no interface";
  kernel->intfStatusAndDeviceNameIs(IntfId("swp1"), {"", 3});
  EXPECT_THAT(ports(), ElementsAre("swp1"));
}

TEST_F(ProxyVlanSm_Ports, OnlyMembersAreVisitedByTheWholePass) {
  kernelHas("swp1");
  kernelHas("swp2");
  joins(10, "swp1");
  make();
  TraceCapture trace({4}, controlTraces);
  machine->handlePort();
  EXPECT_THAT(trace.texts(), ElementsAre("4 Creating QuerierSm for port swp1"));
}

TEST_F(ProxyVlanSm_Ports, PacketAccessOfAPortWithoutMachineIsOnlyTraced) {
  joins(10, "swp1");
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  machine->handleHostPam(IntfId("swp1"));
  machine->handleHostPam(IntfId("swp9"));
  EXPECT_THAT(trace.texts(), ElementsAre(vlan10("handleHostPam(Wirex::IntfId)"),
                                         vlan10("handleHostPam(Wirex::IntfId)")));
}

TEST_F(ProxyVlanSm_Ports, AreServedWithoutAdapterConfiguration) {
  kernelHas("swp1");
  joins(10, "swp1");
  machine = vlanSmWith(nullptr);
  EXPECT_THAT(ports(), ElementsAre("swp1"));
  kernelLoses("swp1");
  EXPECT_THAT(hostNames(), IsEmpty());
  kernelHas("swp1");
  leaves(10, "swp1");
  EXPECT_THAT(hostNames(), IsEmpty());
}

TEST_F(ProxyVlanSm_Ports, MayBeTakenAwayByHand) {
  for (char const* const name : {"swp1", "swp2", "swp3"}) {
    kernelHas(name);
    joins(10, name);
  }
  make();
  machine->portSmDel(IntfId("swp1"));
  EXPECT_THAT(hostNames(), ElementsAre("Vlan10swp2", "Vlan10swp3"));
  machine->portSmDel(IntfId("swp1"));
  machine->portSmDelAll();
  EXPECT_THAT(hostNames(), IsEmpty());
  EXPECT_TRUE(portVlanMap->portInfo().empty());
}

// ---- keyless callbacks

using ProxyVlanSm_KeylessCallbacks = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_KeylessCallbacks, OfTheTopologyRestoreTheWatchersAlone) {
  kernelHas("swp1");
  joins(10, "swp1")->blockedIs(true);
  joins(10, "swp2");
  make();
  machine->proxyTopoPortDel(IntfId("swp1"));
  machine->portSmDel(IntfId("swp1"));
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  topo(10)->portNotify();
  EXPECT_THAT(watched(), ElementsAre("swp1", "swp2"));
  EXPECT_THAT(ports(), IsEmpty()) << "handlePort() was called";
  EXPECT_THAT(trace.texts(),
              ElementsAre(watcherSays("handleTopoPortBlocked() blocked is 1"),
                          watcherSays("handleTopoPortBlocked() Port SM does not exist swp1")));
}

TEST_F(ProxyVlanSm_KeylessCallbacks, OfTheTopologyDropWatchersOfPortsThatHaveLeft) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  machine->kelDoZombieReactors(true);
  leaves(10, "swp1");
  EXPECT_THAT(watched(), ElementsAre("swp1"));
  machine->kelDoZombieReactors(false);
  topo(10)->portNotify();
  EXPECT_THAT(watched(), IsEmpty());
  EXPECT_THAT(ports(), ElementsAre("swp1")) << "handlePort() was called";
}

TEST_F(ProxyVlanSm_KeylessCallbacks, OfTheKernelDecideForEveryMember) {
  joins(10, "swp1")->blockedIs(true);
  make();
  machine->kelDoZombieReactors(true);
  kernelHas("swp1");
  EXPECT_THAT(ports(), IsEmpty());
  machine->kelDoZombieReactors(false);
  machine->proxyTopoPortDel(IntfId("swp1"));
  kernel->intfStatusAndDeviceNameNotify();
  EXPECT_THAT(ports(), ElementsAre("swp1"));
  EXPECT_THAT(watched(), IsEmpty()) << "watchers are the topology's";
  EXPECT_FALSE(host(10, "swp1")->blocked());
}

TEST_F(ProxyVlanSm_KeylessCallbacks, ReachNoZombie) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  machine->portSmDelAll();
  machine->proxyTopoPortDelAll();
  machine->kelDoZombieReactors(true);
  topo(10)->portNotify();
  kernel->intfStatusAndDeviceNameNotify();
  joins(10, "swp2");
  EXPECT_THAT(ports(), IsEmpty());
  EXPECT_THAT(watched(), IsEmpty());
}

// ---- watchers

using ProxyVlanSm_Watchers = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_Watchers, KnowTheirPort) {
  auto const topoPort = joins(10, "swp1");
  make();
  EXPECT_EQ(watcher()->intfId(), IntfId("swp1"));
  EXPECT_EQ(watcher()->fwkKey(), IntfId("swp1"));
  EXPECT_EQ(watcher()->notifier(), topoPort);
}

TEST_F(ProxyVlanSm_Watchers, AreMadeOncePerPort) {
  auto const topoPort = joins(10, "swp1");
  make();
  auto const before = watcher();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  EXPECT_EQ(machine->proxyTopoPortIs(topoPort), before);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(ProxyVlanSm_Watchers, OfAReplacedPortArePointedAtItAndTellBoth) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  auto const before = watcher();
  auto const machineBefore = swp1();
  auto const other = topo(10)->newPort(IntfId("swp1"));
  other->allowedTrafficDirectionIs(Direction::ingress);
  TraceCapture trace({8}, controlTraces);
  topo(10)->portIs(other);
  EXPECT_EQ(watcher(), before);
  EXPECT_EQ(before->notifier(), other);
  EXPECT_EQ(swp1(), machineBefore);
  EXPECT_THAT(trace.texts(),
              ElementsAre(watcherSays("handleTopoPortBlocked() blocked is 0"),
                          watcherSays("handleTopoPortDirection() port swp1 direction is ingress"),
                          portSays(8, "handleDirection() 10 swp1")));
}

TEST_F(ProxyVlanSm_Watchers, OfPortsWithoutMachineOnlyTrace) {
  auto const topoPort = joins(10, "swp1");
  make();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  topoPort->blockedIs(true);
  topoPort->allowedTrafficDirectionIs(Direction::none);
  EXPECT_THAT(trace.texts(),
              ElementsAre(watcherSays("handleTopoPortBlocked() blocked is 1"),
                          watcherSays("handleTopoPortBlocked() Port SM does not exist swp1"),
                          watcherSays("handleTopoPortDirection() port swp1 direction is none"),
                          watcherSays("handleTopoPortDirection() Port SM does not exist swp1")));
}

TEST_F(ProxyVlanSm_Watchers, ThatWereRemovedTellNobody) {
  kernelHas("swp1");
  auto const topoPort = joins(10, "swp1");
  make();
  auto const former = watcher();
  machine->proxyTopoPortDel(IntfId("swp1"));
  topoPort->blockedIs(true);
  EXPECT_FALSE(swp1()->blocked());

  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  former->handleTopoPortBlocked();
  former->handleTopoPortDirection();
  EXPECT_THAT(trace.texts(),
              ElementsAre(watcherSays("handleTopoPortBlocked() blocked is 1"),
                          "9 Notifier is incorrect. Return early",
                          watcherSays("handleTopoPortDirection() port swp1 direction is both"),
                          "9 Notifier is incorrect. Return early"));
  EXPECT_FALSE(swp1()->blocked());
}

TEST_F(ProxyVlanSm_Watchers, OfAFormerPortObjectTellNobody) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  auto const former = watcher();
  machine->proxyTopoPortDel(IntfId("swp1"));
  auto const other = topo(10)->newPort(IntfId("swp1"));
  other->blockedIs(true);
  topo(10)->portIs(other);
  ASSERT_TRUE(swp1()->blocked());
  TraceCapture trace({9}, controlTraces);
  former->handleTopoPortBlocked();
  EXPECT_THAT(trace.texts(), ElementsAre("9 Notifier is incorrect. Return early"));
  EXPECT_TRUE(swp1()->blocked());
}

TEST_F(ProxyVlanSm_Watchers, OfAnInactiveMachineTellNobody) {
  kernelHas("swp1");
  auto const topoPort = joins(10, "swp1");
  make();
  machine->hasNotificationActiveIs(false);
  topoPort->blockedIs(true);
  topoPort->allowedTrafficDirectionIs(Direction::none);
  EXPECT_FALSE(swp1()->blocked());
  EXPECT_EQ(swp1()->direction(), Direction::both);
}

TEST_F(ProxyVlanSm_Watchers, MayAllBeTakenAway) {
  joins(10, "swp1");
  joins(10, "swp2");
  make();
  machine->proxyTopoPortDelAll();
  EXPECT_THAT(watched(), IsEmpty());
}

// ---- the machine's end

using ProxyVlanSm_End = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_End, TakesTheHostsAlongAndLeavesTheirKeys) {
  for (char const* const name : {"swp1", "swp2"}) {
    kernelHas(name);
    joins(10, name);
  }
  make();
  machine = nullptr;
  EXPECT_THAT(hostNames(), IsEmpty());
  EXPECT_TRUE(portVlanMap->portInfo().empty());
  EXPECT_THAT(keys(), ElementsAre("Vlan10swp1", "Vlan10swp2"));
}

TEST_F(ProxyVlanSm_End, EndsAllWatching) {
  kernelHas("swp1");
  auto const topoPort = joins(10, "swp1");
  make();
  machine = nullptr;
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  topoPort->blockedIs(true);
  joins(10, "swp2");
  kernelLoses("swp1");
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_FALSE(topo(10)->watched());
  EXPECT_FALSE(topoPort->watched());
}

// ---- what it refuses

using ProxyVlanSm_DeathTest = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_DeathTest, MachineWithoutTopologyAborts) {
  EXPECT_DEATH(ProxyVlanSm::ProxyVlanSmIs(VlanId(10), querier(10), nullptr, pamManager, hosts,
                                          kernel, portVlanMap, adapter, timerWheel),
               "ProxySm.*handleInitialized.*: topoVlan\\(\\)\n");
}

TEST_F(ProxyVlanSm_DeathTest, TopologyIsMissedFirst) {
  EXPECT_DEATH(ProxyVlanSm::ProxyVlanSmIs(VlanId(10), nullptr, nullptr, pamManager, hosts, kernel,
                                          portVlanMap, adapter, timerWheel),
               "ProxySm.*handleInitialized.*: topoVlan\\(\\)\n");
}

TEST_F(ProxyVlanSm_DeathTest, MachineWithoutQuerierAborts) {
  EXPECT_DEATH(ProxyVlanSm::ProxyVlanSmIs(VlanId(10), nullptr, topo(10), pamManager, hosts, kernel,
                                          portVlanMap, adapter, timerWheel),
               "ProxySm.*handleInitialized.*: querierVlanConfig\\(\\)\n");
}

TEST_F(ProxyVlanSm_DeathTest, MachineWithoutProtocolConfigurationAborts) {
  querier(10)->gmpQuerierConfigIs(nullptr);
  EXPECT_DEATH(make(),
               "ProxySm.*handleInitialized.*: querierVlanConfig\\(\\)->gmpQuerierConfig\\(\\)\n");
}

using ProxyVlanSm_Parameters = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_Parameters, NullTopologyPortIsRefused) {
  make();
  try {
    machine->proxyTopoPortIs(nullptr);
    FAIL() << "accepted";
  } catch (Kel::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _proxyTopoPort parameter to mutator for "
                 "Bridging::IgmpSnooping::Proxy::ProxyVlanSm::proxyTopoPort not allowed\"");
  }
}

/// The arguments of `portSmIs` beside the interface, and what it says to them.
struct PortArguments {
  VlanId vlan;
  Kel::Ptr<Igmp::QuerierConfig const> querier;
  Kel::Ptr<Igmp::IgmpHostDir> hosts;
  Kel::Ptr<Interface::DeviceIntfStatusDir const> kernel;
  Kel::Ptr<ProxyPamManager> pamManager;
  Kel::Ptr<PortVlanMapping> portVlanMap;
  Kel::Ptr<Horix::TimerWheel const> timerWheel;

  Kel::Ptr<ProxyPortSm> askFor(ProxyVlanSm& machine) const {
    return machine.portSmIs(IntfId("swp1"), vlan, querier, hosts, kernel, pamManager, portVlanMap,
                            timerWheel);
  }
  std::string refusal(ProxyVlanSm& machine) const {
    try {
      askFor(machine);
    } catch (Kel::NameInUseException const& exception) {
      return exception.what();
    }
    return "accepted";
  }
};

TEST_F(ProxyVlanSm_Parameters, EachOtherArgumentForAPortMachineIsNamed) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  auto const before = swp1();
  PortArguments const same{VlanId(10), querier(10), hosts,     kernel,
                           pamManager, portVlanMap, timerWheel};
  EXPECT_EQ(same.askFor(*machine), before);

  auto const refusalOf = [&](auto change) {
    PortArguments other = same;
    change(other);
    return other.refusal(*machine);
  };
  auto const differs = [](std::string const& name) {
    return StartsWith(
        "Reinstantiating the pointer interface where constructor parameter attribute _" + name +
        " has a different value of ");
  };
  EXPECT_EQ(refusalOf([](auto& other) { other.vlan = VlanId(11); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _vlanId "
            "has a different value of 11 than the current value of 10 not allowed");
  EXPECT_THAT(refusalOf([](auto& other) { other.querier = nullptr; }),
              differs("querierVlanConfig"));
  EXPECT_THAT(refusalOf([](auto& other) { other.hosts = nullptr; }), differs("igmpHostDir"));
  EXPECT_THAT(refusalOf([](auto& other) { other.kernel = nullptr; }),
              differs("kernelIntfStatusDir"));
  EXPECT_THAT(refusalOf([](auto& other) { other.pamManager = nullptr; }), differs("pamManager"));
  EXPECT_THAT(refusalOf([](auto& other) { other.portVlanMap = nullptr; }), differs("portVlanMap"));
  EXPECT_THAT(refusalOf([](auto& other) { other.timerWheel = nullptr; }), differs("timerWheel"));
  EXPECT_EQ(swp1(), before);
  EXPECT_EQ(host(10, "swp1")->configVersion(), 1u);
}

// ---- inactive ones and zombies

using ProxyVlanSm_Inactive = ProxyVlanSmTest;

TEST_F(ProxyVlanSm_Inactive, OnesCatchUpWithTheTopologyAndTheKernel) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  machine->hasNotificationActiveIs(false);
  leaves(10, "swp1");
  kernelHas("swp2");
  joins(10, "swp2");
  EXPECT_THAT(ports(), ElementsAre("swp1"));
  machine->hasNotificationActiveIs(true);
  EXPECT_THAT(ports(), ElementsAre("swp2"));
  EXPECT_THAT(watched(), ElementsAre("swp2"));
  EXPECT_THAT(keys(), ElementsAre("Vlan10swp2"));
}

TEST_F(ProxyVlanSm_Inactive, OnesHearOnlyOfWhatHasChanged) {
  kernelHas("swp1");
  joins(10, "swp1")->allowedTrafficDirectionIs(Direction::egress);
  make();
  machine->hasNotificationActiveIs(false);
  machine->hasNotificationActiveIs(true);
  EXPECT_EQ(host(10, "swp1")->direction(), Direction::both) << "a new machine does not learn it";
  machine->hasNotificationActiveIs(false);
  port(10, "swp1")->blockedIs(true);
  port(10, "swp1")->allowedTrafficDirectionIs(Direction::none);
  EXPECT_FALSE(host(10, "swp1")->blocked());
  machine->hasNotificationActiveIs(true);
  EXPECT_TRUE(host(10, "swp1")->blocked());
  EXPECT_EQ(host(10, "swp1")->direction(), Direction::none);
}

TEST_F(ProxyVlanSm_Inactive, OnesHaveInactivePortMachines) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  auto const protocol = Kel::make<ProtocolConfig>();
  querier(10)->gmpQuerierConfigIs(protocol);
  machine->hasNotificationActiveIs(false);
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v3);
  machine->hasNotificationActiveIs(true);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v1);
}

TEST_F(ProxyVlanSmTest, ZombieHasZombiePortMachines) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  auto const protocol = Kel::make<ProtocolConfig>();
  querier(10)->gmpQuerierConfigIs(protocol);
  machine->kelDoZombieReactors(true);
  protocol->querierVersionIs(IgmpVersion::v1);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v3);
  machine->kelDoZombieReactors(false);
  protocol->querierVersionIs(IgmpVersion::v2);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v2);
}

TEST_F(ProxyVlanSm_Ports, ThatLeaveDuringTheWholePassAreDecidedOnce) {
  kernelHas("swp1");
  kernelHas("swp2");
  joins(10, "swp1");
  joins(10, "swp2");
  ControlObserver observer([&](std::string const& text) {
    if (text == "+host Vlan10swp1") leaves(10, "swp2");
  });
  observer.watch(hosts);
  TraceCapture trace({4}, controlTraces);
  make();
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 Creating QuerierSm for port swp1", "4 Deleting PortSm for port swp2"));
}

TEST_F(ProxyVlanSm_Ports, ThatHaveLeftAreNotVisitedByTheWholePass) {
  kernelHas("swp1");
  joins(10, "swp1");
  make();
  machine->kelDoZombieReactors(true);
  leaves(10, "swp1");
  machine->kelDoZombieReactors(false);
  machine->handlePort();
  EXPECT_THAT(ports(), ElementsAre("swp1"));
  machine->handlePort(IntfId("swp1"));
  EXPECT_THAT(ports(), IsEmpty());
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
