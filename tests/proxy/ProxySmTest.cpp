#include <functional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/TraceCapture.h"
#include "tests/proxy/ControlObserver.h"
#include "tests/proxy/ProxiedSwitch.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::string proxySays(int level, std::string const& text) {
  return std::to_string(level) + " void Bridging::IgmpSnooping::Proxy::ProxySm::" + text;
}
std::string const creating =
    "9 Bridging::IgmpSnooping::Proxy::AdapterVlanConfig::Ptr "
    "Bridging::IgmpSnooping::Proxy::ProxySm::getOrCreateAdapterConfig(Bridging::VlanId)";

/// What an update of a normal VLAN that is not proxied tells.
Lines unproxied(std::string const& vlan, bool config, bool querier) {
  return {proxySays(9, "handleVlan(Bridging::VlanId)(" + vlan + ')'),
          "9 " + vlan + " is a normal or primary vlan",
          std::string("9 contextConfig : ") + (config ? '1' : '0') +
              " querierConfig : " + (querier ? '1' : '0'),
          "9 Deleting VlanSm for " + vlan,
          proxySays(9, "handleAdapterConfig(Bridging::VlanId)" + vlan),
          "9 Deleting AdapterSm for " + vlan};
}

std::string refusal(std::function<void()> const& act) {
  try {
    act();
  } catch (Kel::NameInUseException const& exception) {
    return exception.what();
  }
  return "accepted";
}

auto differs(std::string const& name) {
  return StartsWith(
      "Reinstantiating the pointer interface where constructor parameter attribute _" + name +
      " has a different value of ");
}

using ProxySmTest = ProxiedSwitchTest;

// ---- construction

using ProxySm_Construction = ProxySmTest;

TEST_F(ProxySm_Construction, KeepsItsArguments) {
  start();
  EXPECT_EQ(proxy->protocolConfig(), config);
  EXPECT_EQ(proxy->topoVlanState(), topology);
  EXPECT_EQ(proxy->pVlanLib(), privateVlans);
  EXPECT_EQ(proxy->pamDesiredIntfDir(), desired);
  EXPECT_EQ(proxy->querierConfigDir(), queriers);
  EXPECT_EQ(proxy->igmpHostDir(), hosts);
  EXPECT_EQ(proxy->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(proxy->bridgingConfig(), bridging);
  EXPECT_EQ(proxy->coreStatusDir(), status);
  EXPECT_EQ(proxy->timerWheel(), timerWheel);
}

TEST_F(ProxySm_Construction, MakesWhatAllVlansShare) {
  start();
  EXPECT_TRUE(proxy->initialized());
  EXPECT_TRUE(proxy->portVlanMap()->portInfo().empty());
  auto const& manager = proxy->pamManager();
  EXPECT_EQ(manager->bridgingConfig(), bridging);
  EXPECT_EQ(manager->pamDesiredIntfDir(), desired);
  EXPECT_EQ(manager->portVlanMap(), proxy->portVlanMap());
  EXPECT_EQ(manager->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(proxy->igmpHostStatusDir()->name(), "proxy");
  auto const& library = proxy->igmpHostDirSm();
  EXPECT_TRUE(library->activity());
  EXPECT_EQ(library->igmpHostDir(), hosts);
  EXPECT_EQ(library->igmpHostStatusDir(), proxy->igmpHostStatusDir());
  EXPECT_EQ(library->timerWheel(), timerWheel);
}

TEST_F(ProxySm_Construction, HandsItsArgumentsToTheMachines) {
  serves(10, {"swp1"});
  start();
  auto const machine = vlanSm(10);
  EXPECT_EQ(machine->vlanId(), VlanId(10));
  EXPECT_EQ(machine->querierVlanConfig(), querier(10));
  EXPECT_EQ(machine->topoVlan(), topo(10));
  EXPECT_EQ(machine->pamManager(), proxy->pamManager());
  EXPECT_EQ(machine->igmpHostDir(), hosts);
  EXPECT_EQ(machine->kernelIntfStatusDir(), kernel);
  EXPECT_EQ(machine->portVlanMap(), proxy->portVlanMap());
  EXPECT_EQ(machine->adapterConfig(), proxy->adapterConfig(VlanId(10)));
  EXPECT_EQ(machine->timerWheel(), timerWheel);
  auto const adapter = proxy->adapterSm(VlanId(10));
  EXPECT_EQ(adapter->vlanId(), VlanId(10));
  EXPECT_EQ(adapter->adapterConfig(), proxy->adapterConfig(VlanId(10)));
  EXPECT_EQ(adapter->igmpHostDir(), hosts);
  EXPECT_EQ(adapter->coreStatus(), status->contextStatus(VlanId(10)));
}

TEST_F(ProxySm_Construction, OfNothingIsTracedInOrder) {
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  start();
  EXPECT_THAT(trace.texts(),
              ElementsAre(proxySays(9, "handleInitialized()"), proxySays(9, "handleVlan()"),
                          proxySays(7, "handlePam()")));
}

TEST_F(ProxySm_Construction, LooksAtConfiguredVlansThenAtSecondaryOnesThenAtPacketAccess) {
  serves(10, {"swp1"});
  desires("swp1");
  proxies(11);
  isolates(20, 10);
  isolates(21, 12);
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  start();
  Lines expected{proxySays(9, "handleInitialized()"),
                 proxySays(9, "handleVlan()"),
                 proxySays(9, "handleVlan(Bridging::VlanId)(10)"),
                 "9 10 is a normal or primary vlan",
                 "9 contextConfig : 1 querierConfig : 1",
                 "9 Creating VlanSm for vlan 10",
                 creating + "10",
                 "9 10 is a normal or primary Vlan creating adapter config",
                 proxySays(9, "handleAdapterConfig(Bridging::VlanId)10"),
                 "9 Creating AdapterSm for 10",
                 "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleInitialized()",
                 "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort()",
                 "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort(Wirex::IntfId)",
                 "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam("
                 "Wirex::IntfId)"};
  // The device of the first host opens while the host is being made.
  expected.push_back(proxySays(7, "handlePam(Wirex::IntfId)swp1"));
  for (Lines const& more :
       {unproxied("11", true, false),
        Lines{
            proxySays(9, "handleVlan(Bridging::VlanId)(20)"), "9 Found Primary vlan 10 for vlan 20",
            "9 contextConfig : 1 querierConfig : 0", "9 Deleting VlanSm for 20",
            proxySays(9, "handleAdapterConfig(Bridging::VlanId)20"), "9 Deleting AdapterSm for 20",
            proxySays(9, "handleVlan(Bridging::VlanId)(21)"), "9 Found Primary vlan 12 for vlan 21",
            "9 contextConfig : 0 querierConfig : 0", "9 Deleting VlanSm for 21",
            proxySays(9, "handleAdapterConfig(Bridging::VlanId)21"), "9 Deleting AdapterSm for 21",
            proxySays(7, "handlePam()"), proxySays(7, "handlePam(Wirex::IntfId)swp1"),
            "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam(Wirex::IntfId)"}})
    expected.insert(expected.end(), more.begin(), more.end());
  Lines found;
  for (std::string const& text : trace.texts())
    if (text[0] == '9' || text.find("handlePam") != std::string::npos) found.push_back(text);
  EXPECT_THAT(found, ElementsAreArray(expected));
}

TEST_F(ProxySm_Construction, DoesNotVisitSecondaryVlansTwice) {
  serves(10, {});
  querierIs(20);
  isolates(20, 10);
  proxies(20);
  TraceCapture trace({9}, controlTraces);
  start();
  auto const texts = trace.texts();
  EXPECT_EQ(
      std::count(texts.begin(), texts.end(), proxySays(9, "handleVlan(Bridging::VlanId)(20)")), 1);
  EXPECT_TRUE(vlanSm(20));
}

TEST_F(ProxySm_Construction, VisitsAnUnproxiedSecondaryVlanWithConfigurationTwice) {
  isolates(20, 10);
  proxies(20);
  TraceCapture trace({9}, controlTraces);
  start();
  auto const texts = trace.texts();
  EXPECT_EQ(
      std::count(texts.begin(), texts.end(), proxySays(9, "handleVlan(Bridging::VlanId)(20)")), 2);
}

TEST_F(ProxySm_Construction, DoesNotReadTheNamesOfQueriers) {
  queriers->querierConfigIs("abc", Kel::make<ProtocolConfig>());
  EXPECT_NO_THROW(start());
}

TEST_F(ProxySm_Construction, TracesNameTheirModuleAndHandler) {
  serves(10, {});
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  start();
  proxy->handleQuerierConfig("10");
  proxy->handlePam(IntfId("swp1"));
  Lines functions;
  for (auto const& line : trace.lines()) {
    EXPECT_EQ(line.handle, "IgmpSnooping::Proxy::ProxySm");
    EXPECT_EQ(line.object, "<unknown>");
    EXPECT_EQ(line.sourceFile, "ProxySm");
    if (functions.empty() || functions.back() != line.function) functions.push_back(line.function);
  }
  EXPECT_THAT(functions,
              ElementsAre("handleInitialized", "handleVlan", "getOrCreateAdapterConfig",
                          "handleAdapterConfig", "handleInitialized", "handlePort", "handlePam",
                          "handleQuerierConfig", "handleVlan", "handlePam"));
}

TEST_F(ProxySm_Construction, PlainAttributes) {
  start();
  EXPECT_EQ(proxy->mtu(), 1500u);
  EXPECT_EQ(ProxySm::mtuDefault, 1500u);
  EXPECT_EQ(proxy->vlanName(), "");
  auto const before = picture();
  proxy->mtuIs(9000);
  proxy->vlanNameIs("uplink");
  EXPECT_EQ(proxy->mtu(), 9000u);
  EXPECT_EQ(proxy->vlanName(), "uplink");
  EXPECT_EQ(picture(), before);
}

using ProxySm_DeathTest = ProxySmTest;

TEST_F(ProxySm_DeathTest, ProxiedVlanWithoutTopologyAborts) {
  start();
  proxies(10);
  topology->topoVlanDel(VlanId(10));
  EXPECT_DEATH(queriers->querierConfigIs("10", Kel::make<ProtocolConfig>()),
               "ProxySm.*handleInitialized.*: topoVlan\\(\\)\n");
}

TEST_F(ProxySm_DeathTest, ProxiedVlanWithoutStatusAborts) {
  start();
  proxies(10);
  status->contextStatusDel(VlanId(10));
  EXPECT_DEATH(queriers->querierConfigIs("10", Kel::make<ProtocolConfig>()),
               "ProxyAdapterSm.*handleInitialized.*: coreStatus\\(\\)\n");
}

TEST_F(ProxySm_DeathTest, QuerierWithoutProtocolConfigurationAborts) {
  start();
  proxies(10);
  EXPECT_DEATH(queriers->querierConfigIs("10", nullptr),
               "ProxySm.*handleInitialized.*: querierVlanConfig\\(\\)->gmpQuerierConfig\\(\\)\n");
}

// ---- the reactors on configuration entries

using ProxySm_Context = ProxySmTest;

TEST_F(ProxySm_Context, IsThereForEachEntry) {
  proxies(10);
  start();
  EXPECT_TRUE(proxy->context(VlanId(10)));
  EXPECT_EQ(proxy->context(VlanId(10))->vlanId(), VlanId(10));
  EXPECT_EQ(proxy->context(VlanId(10))->notifier(), config->contextConfig(VlanId(10)));
  EXPECT_FALSE(proxy->context(VlanId(11)));
  config->contextConfigIs(VlanId(11));
  EXPECT_TRUE(proxy->context(VlanId(11)));
  forgets(11);
  EXPECT_FALSE(proxy->context(VlanId(11)));
}

TEST_F(ProxySm_Context, ComesAfterTheHandlerHasRun) {
  start();
  TraceCapture const enabled({9}, controlTraces);
  Lines heard;
  Kel::traceSinkIs([&](Kel::TraceMessage const& message) {
    if (message.text.find("handleVlan(Bridging::VlanId)") != std::string_view::npos)
      heard.push_back(proxy->context(VlanId(10)) ? "with" : "without");
  });
  config->contextConfigIs(VlanId(10));
  EXPECT_THAT(heard, ElementsAre("without"));
  config->contextConfigNotify(VlanId(10));
  EXPECT_THAT(heard, ElementsAre("without", "with"));
}

TEST_F(ProxySm_Context, GoesAfterTheHandlerHasRun) {
  serves(10, {"swp1"});
  start();
  Lines heard;
  ControlObserver observer([&](std::string const& text) {
    heard.push_back(text + (proxy->context(VlanId(10)) ? " with" : " without"));
  });
  observer.watch(hosts);
  forgets(10);
  EXPECT_THAT(heard, ElementsAre("-host Vlan10swp1 with"));
  EXPECT_FALSE(proxy->context(VlanId(10)));
}

TEST_F(ProxySm_Context, OfAnEntryThatWasMadeAgainWatchesTheNewOne) {
  serves(10, {});
  start();
  auto const former = config->contextConfig(VlanId(10));
  forgets(10);
  proxies(10);
  ASSERT_TRUE(vlanSm(10));
  former->proxyEnabledIs(false);
  EXPECT_TRUE(vlanSm(10));
  proxies(10, false);
  EXPECT_FALSE(vlanSm(10));
}

TEST_F(ProxySm_Context, RefusesNull) {
  start();
  try {
    proxy->contextIs(nullptr);
    FAIL() << "accepted";
  } catch (Kel::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _context parameter to mutator for "
                 "Bridging::IgmpSnooping::Proxy::ProxySm::context not allowed\"");
  }
}

TEST_F(ProxySm_Context, KeylessNotificationsOfTheInputsDoNothing) {
  serves(10, {"swp1"});
  isolates(20, 10);
  start();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  config->contextConfigNotify();
  privateVlans->secondaryVlanNotify();
  queriers->querierConfigNotify();
  proxy->pamManager()->multiplexerNotify();
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(ProxySm_Context, InactiveAndZombieReactorsHearNothing) {
  serves(10, {"swp1"});
  start();
  auto const manager = proxy->pamManager();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  auto const disturb = [&] {
    proxies(10, false);
    proxies(11);
    querierDel(10);
    isolates(10, 12);
    manager->multiplexerIs(IntfId("swp9"), manager.get());
    manager->multiplexerDel(IntfId("swp9"));
  };
  auto const restore = [&] {
    isolatesNot(10);
    querierIs(10);
    forgets(11);
    proxies(10);
  };
  proxy->hasNotificationActiveIs(false);
  disturb();
  restore();
  EXPECT_THAT(trace.texts(), IsEmpty());
  proxy->hasNotificationActiveIs(true);
  trace.clear();
  proxy->kelDoZombieReactors(true);
  disturb();
  restore();
  EXPECT_THAT(trace.texts(), IsEmpty());
  proxy->kelDoZombieReactors(false);
  proxies(10, false);
  EXPECT_FALSE(vlanSm(10));
}

// ---- adapters

using ProxySm_Adapters = ProxySmTest;

TEST_F(ProxySm_Adapters, AreMadeAndRemovedWithTheirConfiguration) {
  start();
  topo(10);
  auto const made = proxy->adapterConfigIs(VlanId(10));
  EXPECT_EQ(made->vlanId(), VlanId(10));
  auto const adapter = proxy->adapterSm(VlanId(10));
  EXPECT_TRUE(adapter);
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  EXPECT_EQ(proxy->adapterConfigIs(VlanId(10)), made);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(proxy->adapterSm(VlanId(10)), adapter);
  proxy->handleAdapterConfig(VlanId(10));
  EXPECT_EQ(proxy->adapterSm(VlanId(10)), adapter);

  trace.clear();
  proxy->adapterConfigDel(VlanId(10));
  EXPECT_FALSE(proxy->adapterConfig(VlanId(10)));
  EXPECT_FALSE(proxy->adapterSm(VlanId(10)));
  proxy->adapterConfigDel(VlanId(10));
  EXPECT_THAT(trace.texts(), ElementsAre(proxySays(9, "handleAdapterConfig(Bridging::VlanId)10"),
                                         "9 Deleting AdapterSm for 10",
                                         proxySays(9, "handleAdapterConfig(Bridging::VlanId)10"),
                                         "9 Deleting AdapterSm for 10"));
}

TEST_F(ProxySm_Adapters, AreNewAfterTheQuerierWasTakenOut) {
  serves(10, {"swp1"});
  start();
  auto const configBefore = adapterConfig(10);
  auto const adapterBefore = proxy->adapterSm(VlanId(10));
  querierDel(10);
  querierIs(10);
  EXPECT_NE(adapterConfig(10), configBefore);
  EXPECT_NE(proxy->adapterSm(VlanId(10)), adapterBefore);
  EXPECT_EQ(vlanSm(10)->adapterConfig(), adapterConfig(10));
}

TEST_F(ProxySm_Adapters, OfASecondaryVlanAreFoundButNotDeleted) {
  start();
  topo(10);
  topo(20);
  auto const ofPrimary = proxy->adapterConfigIs(VlanId(10));
  auto const ofSecondary = proxy->adapterConfigIs(VlanId(20));
  isolatesNot(20);
  proxy->hasNotificationActiveIs(false);
  isolates(20, 10);
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  EXPECT_EQ(proxy->getOrCreateAdapterConfig(VlanId(20)), ofPrimary);
  EXPECT_THAT(trace.texts(),
              ElementsAre(creating + "20", "9 Found PrimaryVlan :10 secondaryVlan 20",
                          "9 Found Secondary Adapter config20, delete it"));
  EXPECT_EQ(proxy->adapterConfig(VlanId(20)), ofSecondary);
  EXPECT_TRUE(proxy->adapterSm(VlanId(20)));

  proxy->handleVlan(VlanId(20));  // which is not proxied
  EXPECT_FALSE(proxy->adapterConfig(VlanId(20)));
  EXPECT_FALSE(proxy->adapterSm(VlanId(20)));
  EXPECT_TRUE(proxy->adapterConfig(VlanId(10)));
}

TEST_F(ProxySm_Adapters, OfASecondaryVlanSurviveItsSettingUp) {
  serves(10, {"swp1"});
  serves(20, {"swp2"});
  start();
  auto const ofSecondary = adapterConfig(20);
  proxy->vlanSmDel(VlanId(20));
  TraceCapture trace({9}, controlTraces);
  isolates(20, 10);
  EXPECT_THAT(trace.texts(), Contains("9 Found Secondary Adapter config20, delete it"));
  EXPECT_EQ(vlanSm(20)->adapterConfig(), adapterConfig(10));
  EXPECT_EQ(adapterConfig(20), ofSecondary);
  EXPECT_TRUE(proxy->adapterSm(VlanId(20)));
}

TEST_F(ProxySm_Adapters, OfPrimaryVlansAreNotMadeForTheirSecondaries) {
  start();
  isolates(20, 10);
  EXPECT_FALSE(proxy->getOrCreateAdapterConfig(VlanId(20)));
  EXPECT_THAT(adapters(), IsEmpty());
}

TEST_F(ProxySm_Adapters, AreNotGivenAnotherStatus) {
  serves(10, {"swp1"});
  start();
  auto const adapter = proxy->adapterSm(VlanId(10));
  status->contextStatusDel(VlanId(10));
  status->contextStatusIs(VlanId(10));
  EXPECT_THAT(refusal([&] { proxy->handleAdapterConfig(VlanId(10)); }), differs("coreStatus"));
  EXPECT_EQ(proxy->adapterSm(VlanId(10)), adapter);
  // What is there works as before, and leaves as ever.
  kernelLoses("swp1");
  EXPECT_THAT(hostKeys(10), IsEmpty());
  querierDel(10);
  EXPECT_FALSE(proxy->adapterSm(VlanId(10)));
}

// ---- find-or-create

using ProxySm_Parameters = ProxySmTest;

TEST_F(ProxySm_Parameters, EachOtherArgumentForAVlanMachineIsNamed) {
  serves(10, {"swp1"});
  start();
  auto const machine = vlanSm(10);
  Kel::Ptr<Igmp::QuerierConfig const> const noQuerier;
  Kel::Ptr<TopoVlan const> const noTopo;
  Kel::Ptr<ProxyPamManager> const noManager;
  Kel::Ptr<Igmp::IgmpHostDir> const noHosts;
  Kel::Ptr<Interface::DeviceIntfStatusDir const> const noKernel;
  Kel::Ptr<PortVlanMapping> const noMap;
  Kel::Ptr<AdapterVlanConfig> const noAdapter;
  Kel::Ptr<Horix::TimerWheel const> const noWheel;
  auto const ask = [&](auto const&... arguments) {
    return refusal([&] { EXPECT_EQ(proxy->vlanSmIs(VlanId(10), arguments...), machine); });
  };
  auto const& manager = proxy->pamManager();
  auto const& map = proxy->portVlanMap();
  auto const adapter = adapterConfig(10);
  auto const querierConfig = querier(10);
  auto const topoVlan = topo(10);
  EXPECT_EQ(ask(querierConfig, topoVlan, manager, hosts, kernel, map, adapter, timerWheel),
            "accepted");
  EXPECT_THAT(ask(noQuerier, topoVlan, manager, hosts, kernel, map, adapter, timerWheel),
              differs("querierVlanConfig"));
  EXPECT_THAT(ask(querierConfig, noTopo, manager, hosts, kernel, map, adapter, timerWheel),
              differs("topoVlan"));
  EXPECT_THAT(ask(querierConfig, topoVlan, noManager, hosts, kernel, map, adapter, timerWheel),
              differs("pamManager"));
  EXPECT_THAT(ask(querierConfig, topoVlan, manager, noHosts, kernel, map, adapter, timerWheel),
              differs("igmpHostDir"));
  EXPECT_THAT(ask(querierConfig, topoVlan, manager, hosts, noKernel, map, adapter, timerWheel),
              differs("kernelIntfStatusDir"));
  EXPECT_THAT(ask(querierConfig, topoVlan, manager, hosts, kernel, noMap, adapter, timerWheel),
              differs("portVlanMap"));
  EXPECT_THAT(ask(querierConfig, topoVlan, manager, hosts, kernel, map, noAdapter, timerWheel),
              differs("adapterConfig"));
  EXPECT_THAT(ask(querierConfig, topoVlan, manager, hosts, kernel, map, adapter, noWheel),
              differs("timerWheel"));
  EXPECT_EQ(vlanSm(10), machine);
}

TEST_F(ProxySm_Parameters, EachOtherArgumentForAnAdapterIsNamed) {
  serves(10, {"swp1"});
  start();
  auto const adapter = proxy->adapterSm(VlanId(10));
  Kel::Ptr<AdapterVlanConfig const> const noConfig;
  Kel::Ptr<Igmp::IgmpHostDir> const noHosts;
  Kel::Ptr<IgmpContextStatus const> const noStatus;
  auto const own = adapterConfig(10);
  auto const learned = status->contextStatus(VlanId(10));
  auto const ask = [&](auto const&... arguments) {
    return refusal([&] { EXPECT_EQ(proxy->adapterSmIs(VlanId(10), arguments...), adapter); });
  };
  EXPECT_EQ(ask(own, hosts, learned), "accepted");
  EXPECT_THAT(ask(noConfig, hosts, learned), differs("adapterConfig"));
  EXPECT_THAT(ask(own, noHosts, learned), differs("igmpHostDir"));
  EXPECT_THAT(ask(own, hosts, noStatus), differs("coreStatus"));
  EXPECT_EQ(proxy->adapterSm(VlanId(10)), adapter);
}

TEST_F(ProxySm_Parameters, AnExistingVlanMachineKeepsItsQuerier) {
  serves(10, {"swp1"});
  start();
  auto const machine = vlanSm(10);
  auto const former = querier(10);
  proxy->hasNotificationActiveIs(false);
  querierDel(10);
  querierIs(10, IgmpVersion::v1);
  proxy->hasNotificationActiveIs(true);
  proxy->handleVlan(VlanId(10));
  EXPECT_EQ(vlanSm(10), machine);
  EXPECT_EQ(machine->querierVlanConfig(), former);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v3);
}

// ---- packet access

using ProxySm_PacketAccess = ProxySmTest;

TEST_F(ProxySm_PacketAccess, OfAPortWithoutHostIsOnlyTraced) {
  serves(10, {"swp1"});
  start();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  auto const& manager = proxy->pamManager();
  manager->multiplexerIs(IntfId("swp9"), manager.get());
  EXPECT_THAT(trace.texts(), ElementsAre(proxySays(7, "handlePam(Wirex::IntfId)swp9")));
}

TEST_F(ProxySm_PacketAccess, OfMappedVlansWithoutMachineIsPassedOver) {
  serves(10, {"swp1"});
  start();
  proxy->portVlanMap()->portInfo(IntfId("swp1"))->vlanIs(VlanId(11), true);
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  proxy->handlePam(IntfId("swp1"));
  EXPECT_THAT(trace.texts(),
              ElementsAre(proxySays(7, "handlePam(Wirex::IntfId)swp1"),
                          "9 10:void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam("
                          "Wirex::IntfId)",
                          "7 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() 10 "
                          "swp1",
                          "7 Deleting VlanPam"));
}

TEST_F(ProxySm_PacketAccess, OfEveryPortIsGoneThrough) {
  serves(10, {"swp1", "swp2"});
  start();
  desires("swp1");
  desires("swp2");
  TraceCapture trace({7}, controlTraces);
  proxy->handlePam();
  EXPECT_THAT(trace.texts(),
              ElementsAre(proxySays(7, "handlePam()"), proxySays(7, "handlePam(Wirex::IntfId)swp1"),
                          "7 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::"
                          "updateHostPam() 10 swp1",
                          "7 Creating Vlan Pam for Vlan10swp1",
                          proxySays(7, "handlePam(Wirex::IntfId)swp2"),
                          "7 void Bridging::IgmpSnooping::Proxy::ProxyPortSm::"
                          "updateHostPam() 10 swp2",
                          "7 Creating Vlan Pam for Vlan10swp2"));
}

// ---- exceptions

using ProxySm_Exceptions = ProxySmTest;

TEST_F(ProxySm_Exceptions, OfAnObserverLeaveWhatWasBuiltUsable) {
  serves(10, {"swp1", "swp2"});
  start();
  leaves(10, "swp2");
  int thrown = 0;
  ControlObserver observer([&](std::string const& text) {
    if (text == "+host Vlan10swp2" && thrown++ == 0) throw Kel::RangeException("observer");
  });
  observer.watch(hosts);
  EXPECT_THROW(joins(10, "swp2"), Kel::RangeException);
  EXPECT_THAT(servedPorts(10), ElementsAre("swp1"));
  EXPECT_THAT(hostKeys(10), ElementsAre("Vlan10swp1"));

  topo(10)->portNotify(IntfId("swp2"));
  EXPECT_THAT(servedPorts(10), ElementsAre("swp1", "swp2"));
  EXPECT_THAT(hostKeys(10), ElementsAre("Vlan10swp1", "Vlan10swp2"));
  EXPECT_THAT(watchedPorts(10), ElementsAre("swp1", "swp2"));
  querierDel(10);
  EXPECT_THAT(hostNames(), IsEmpty());
  EXPECT_THAT(mappedPorts(), IsEmpty());
}

TEST_F(ProxySm_Exceptions, InTheMakingOfAVlanLeaveItToTheNextTrigger) {
  serves(10, {"swp1", "swp2"});
  proxies(10, false);
  start();
  int thrown = 0;
  ControlObserver observer([&](std::string const& text) {
    if (text == "+host Vlan10swp2" && thrown++ == 0) throw Kel::RangeException("observer");
  });
  observer.watch(hosts);
  EXPECT_THROW(proxies(10), Kel::RangeException);
  EXPECT_FALSE(vlanSm(10));
  EXPECT_TRUE(proxy->adapterSm(VlanId(10))) << "what was made stays";
  config->contextConfigNotify(VlanId(10));
  EXPECT_THAT(servedPorts(10), ElementsAre("swp1", "swp2"));
  EXPECT_THAT(hostNames(), ElementsAre("Vlan10swp1", "Vlan10swp2"));
  EXPECT_THAT(hostKeys(10), ElementsAre("Vlan10swp1", "Vlan10swp2"));
}

TEST_F(ProxySm_Exceptions, FromWrongQuerierNamesLeaveTheRest) {
  serves(10, {"swp1"});
  start();
  auto const before = picture();
  auto const refused = [&](char const* name) {
    try {
      queriers->querierConfigIs(name, Kel::make<ProtocolConfig>());
    } catch (Kel::RangeException const& exception) {
      return std::string(exception.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(refused("abc"), "VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(refused(""), "VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(refused("69631"), "VlanId::value < 1 or > 4094 not allowed");  // 4095 in 16 bits
  EXPECT_EQ(refused("69630"), "accepted");                                 // 4094
  EXPECT_EQ(refused("0x10"), "VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(picture(), before);
}

// ---- the proxy's end

using ProxySm_End = ProxySmTest;

TEST_F(ProxySm_End, LeavesNothingBehind) {
  serves(10, {"swp1", "swp2"});
  desires("swp1");
  isolates(20, 10);
  serves(20, {"swp3", "swp1"});
  start();
  auto const map = proxy->portVlanMap();
  auto const manager = proxy->pamManager();
  stop();
  EXPECT_THAT(hostNames(), IsEmpty());
  EXPECT_TRUE(map->portInfo().empty());
  EXPECT_TRUE(manager->pamCol()->entries().empty());
  EXPECT_FALSE(config->watched());
  EXPECT_FALSE(config->contextConfig(VlanId(10))->watched());
  EXPECT_FALSE(queriers->watched());
  EXPECT_FALSE(privateVlans->watched());
  EXPECT_FALSE(topo(10)->watched());
  EXPECT_FALSE(port(10, "swp1")->watched());
}

TEST_F(ProxySm_End, HearsNothingOfWhatHappensWhileItEnds) {
  serves(10, {"swp1"});
  start();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  Lines comeAgain;
  bool ending = false;
  ControlObserver observer([&](std::string const& text) {
    if (text == "+host Vlan10swp1") comeAgain.push_back(text);
    if (text != "-host Vlan10swp1" || std::exchange(ending, true)) return;
    trace.clear();
    proxies(10, false);
    proxies(10);
    EXPECT_THAT(trace.texts(), IsEmpty());
  });
  observer.watch(hosts);
  stop();
  EXPECT_TRUE(ending);
  EXPECT_THAT(comeAgain, IsEmpty());
}

TEST_F(ProxySm_End, MachinesThatSomebodyHoldsHearNothingMore) {
  serves(10, {"swp1"});
  start();
  auto held = vlanSm(10);
  stop();
  TraceCapture trace = TraceCapture::ofEveryLevel(controlTraces);
  joins(10, "swp2");
  kernelHas("swp2");
  port(10, "swp1")->blockedIs(true);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_THAT(hostNames(), ElementsAre("Vlan10swp1")) << "whose machine still lives";
  held = nullptr;
  EXPECT_THAT(hostNames(), IsEmpty());
}

// ---- inactive ones and zombies

using ProxySm_Inactive = ProxySmTest;

TEST_F(ProxySm_Inactive, OneLosesNoVlan) {
  serves(10, {"swp1"});
  serves(11, {"swp1"});
  start();
  proxy->hasNotificationActiveIs(false);
  forgets(10);
  serves(12, {"swp2"});
  joins(11, "swp2");
  EXPECT_THAT(proxiedVlans(), ElementsAre("10", "11"));
  proxy->hasNotificationActiveIs(true);
  EXPECT_THAT(proxiedVlans(), ElementsAre("11", "12"));
  EXPECT_THAT(servedPorts(11), ElementsAre("swp1", "swp2"));
  EXPECT_FALSE(proxy->context(VlanId(10)));
  proxies(12, false);
  EXPECT_THAT(proxiedVlans(), ElementsAre("11")) << "the new entry is watched";
}

TEST_F(ProxySm_Inactive, OneOpensTheDevicesOfItsPortsWhenItIsActiveAgain) {
  serves(10, {"swp1", "swp2"});
  desires("swp1");
  start();
  proxy->hasNotificationActiveIs(false);
  desiresNot("swp1");
  desires("swp2");
  EXPECT_THAT(devicesOpen(), ElementsAre("swp1"));
  proxy->hasNotificationActiveIs(true);
  EXPECT_THAT(devicesOpen(), ElementsAre("swp2"));
  EXPECT_FALSE(host(10, "swp1")->pam());
  EXPECT_TRUE(host(10, "swp2")->pam());
}

TEST_F(ProxySmTest, ZombieHasZombieVlanMachines) {
  serves(10, {"swp1"});
  start();
  proxy->kelDoZombieReactors(true);
  kernelHas("swp2");
  joins(10, "swp2");
  port(10, "swp1")->blockedIs(true);
  EXPECT_THAT(servedPorts(10), ElementsAre("swp1"));
  EXPECT_FALSE(host(10, "swp1")->blocked());
  proxy->kelDoZombieReactors(false);
  port(10, "swp1")->blockedIs(false);
  port(10, "swp1")->blockedIs(true);
  EXPECT_TRUE(host(10, "swp1")->blocked());
}

TEST_F(ProxySmTest, ZombieHasZombieAdapters) {
  serves(10, {"swp1"});
  start();
  TraceCapture trace({9}, TraceCapture::adapter);
  proxy->kelDoZombieReactors(true);
  adapterConfig(10)->hostKeyIs(PortKey(VlanId(10), IntfId("swp8")), true);
  EXPECT_THAT(trace.texts(), IsEmpty());
  proxy->kelDoZombieReactors(false);
  adapterConfig(10)->hostKeyIs(PortKey(VlanId(10), IntfId("swp9")), true);
  EXPECT_THAT(trace.texts(), ElementsAre("9 AdapterSm::newIgmpHost key Vlan10swp9"));
}

TEST_F(ProxySm_End, AVlanMachineThatSomebodyHoldsWritesItsHostNoMore) {
  serves(10, {"swp1"});
  start();
  auto const machine = vlanSm(10);
  auto const protocol = Kel::make<ProtocolConfig>();
  querier(10)->gmpQuerierConfigIs(protocol);
  proxy->vlanSmDel(VlanId(10));
  protocol->querierVersionIs(IgmpVersion::v1);
  port(10, "swp1")->blockedIs(true);
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v3);
  EXPECT_FALSE(host(10, "swp1")->blocked());
}

TEST_F(ProxySm_End, OfAllVlanMachinesAndContextsLeavesTheProxy) {
  serves(10, {"swp1"});
  serves(11, {"swp2"});
  start();
  proxy->contextDelAll();
  EXPECT_FALSE(proxy->context(VlanId(10)));
  proxy->vlanSmDelAll();
  EXPECT_THAT(proxiedVlans(), IsEmpty());
  EXPECT_THAT(hostNames(), IsEmpty());
  proxy->handleVlan(VlanId(10));
  EXPECT_THAT(proxiedVlans(), ElementsAre("10"));
}

// ---- roles

TEST_F(ProxySmTest, AVlanOfAnyRoleButTheDefaultOneIsSecondary) {
  serves(10, {"swp1"});
  serves(20, {"swp1"});
  forgets(20);
  privateVlans->secondaryVlanIs(VlanId(20), {VlanType::normal, VlanId(10)});
  start();
  ASSERT_TRUE(vlanSm(20));
  EXPECT_EQ(vlanSm(20)->adapterConfig(), adapterConfig(10));
  EXPECT_THAT(adapters(), ElementsAre("10"));
}

// ---- keys that are being decided

TEST_F(ProxySmTest, AVlanSwitchedOnAgainWhileItGoesHasAnAdapterWithoutFormerKeys) {
  serves(10, {"swp1", "swp2"});
  start();
  auto const former = adapterConfig(10);
  ControlObserver observer([&](std::string const& text) {
    if (text != "-host Vlan10swp1") return;
    leaves(10, "swp2");
    proxies(10);
  });
  observer.watch(hosts);
  proxies(10, false);
  EXPECT_TRUE(vlanSm(10));
  EXPECT_NE(adapterConfig(10), former);
  EXPECT_THAT(hostKeys(10), ElementsAre("Vlan10swp1"));
}

TEST_F(ProxySmTest, AVlanWhoseQuerierIsReplacedWhileItIsMadeHasTheNewOne) {
  serves(10, {"swp1"});
  bool replaced = false;
  ControlObserver observer([&](std::string const& text) {
    if (text != "+host Vlan10swp1" || std::exchange(replaced, true)) return;
    querierDel(10);
    querierIs(10, IgmpVersion::v1);
  });
  observer.watch(hosts);
  start();
  EXPECT_EQ(vlanSm(10)->querierVlanConfig(), querier(10));
  EXPECT_EQ(host(10, "swp1")->igmpVersion(), IgmpVersion::v1);
}

TEST_F(ProxySmTest, APortWhoseMultiplexerComesWhileItsVlanIsMadeIsConnected) {
  serves(10, {"swp1", "swp2"});
  ControlObserver observer([&](std::string const& text) {
    if (text == "Vlan10swp2 enabled") desires("swp1");
    if (text == "Vlan10swp2 intfConfigVersion") desires("swp2");
  });
  observer.watch(hosts);
  start();
  EXPECT_TRUE(host(10, "swp1")->pam());
  EXPECT_TRUE(host(10, "swp2")->pam());
}

TEST_F(ProxySmTest, ANewProxyOverALivingOneKeepsItsHostsWhenThatOneGoes) {
  serves(10, {"swp1"});
  start();
  auto const former = proxy;
  start();
  EXPECT_EQ(host(10, "swp1")->configVersion(), 2u);
  former->vlanSmDelAll();
  EXPECT_THAT(hostNames(), ElementsAre("Vlan10swp1"));
  stop();
  EXPECT_THAT(hostNames(), IsEmpty());
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
