#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string textOf(IpAddr address) {
  std::ostringstream text;
  text << address;
  return text.str();
}

/// The addresses of an adapter's groups, in the collection's order.
std::vector<IpAddr> groupsInOrder(AdapterSm const& adapter) {
  std::vector<IpAddr> groups;
  for (auto const& [address, group] : adapter.igmpGroup()) groups.push_back(address);
  return groups;
}

class AdapterSmTest : public SnoopedVlan {
 protected:
  /// A group with a record in each host, and no change outstanding.
  void reportEverythingOf(std::initializer_list<IpAddr> groups) {
    for (IpAddr const address : groups) port("swp1").reports(address);
    publish();
  }
};

// ---- construction

using AdapterSm_Construction = AdapterSmTest;

TEST_F(AdapterSm_Construction, FactoryKeepsItsFourArguments) {
  EXPECT_EQ(adapter->vlanId(), VlanId(10));
  EXPECT_EQ(adapter->adapterConfig(), config);
  EXPECT_EQ(adapter->igmpHostDir(), hosts);
  EXPECT_EQ(adapter->coreStatus(), status);
}

TEST_F(AdapterSm_Construction, LeavesTheAdapterInitializedAndWithoutGroups) {
  EXPECT_TRUE(adapter->initialized());
  EXPECT_TRUE(adapter->igmpGroup().empty());
}

TEST_F(AdapterSm_Construction, EachCallMakesANewAdapter) {
  EXPECT_NE(adapterSmFactory(vlanId, config, hosts, status), adapter);
}

TEST_F(AdapterSm_Construction, TakesOverTheGroupsThatTheStatusHas) {
  adapter = nullptr;
  port("swp1").reports(g1);
  port("swp1").reports(g2);
  adapter = adapterSmFactory(vlanId, config, hosts, status);
  EXPECT_THAT(groupsInOrder(*adapter), ElementsAre(g1, g2));
  EXPECT_EQ(group(g1)->notifier(), status->group(g1));
}

TEST_F(AdapterSm_Construction, WritesNoRecordBeforeTheFirstReport) {
  adapter = nullptr;
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  adapter = adapterSmFactory(vlanId, config, hosts, status);
  EXPECT_EQ(record("up1"), nothing);
  publish();
  EXPECT_NE(record("up1"), nothing);
}

TEST_F(AdapterSm_Construction, InitializesBeforeItTakesOverGroups) {
  adapter = nullptr;
  port("swp1").reports(g1);
  TraceCapture const trace({9});
  adapter = adapterSmFactory(vlanId, config, hosts, status);
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 AdapterSm::handleInitialized", "9 AdapterSm::updateIgmpHost",
                          "9 KelMembership::handleInitialized 10.0.0.1 intf swp1 group 239.1.1.1",
                          "9 KelIgmpGroup::handleInitialized"));
}

using AdapterSm_DeathTest = AdapterSmTest;

TEST_F(AdapterSm_DeathTest, AdapterWithoutStatusAborts) {
  EXPECT_DEATH(adapterSmFactory(vlanId, config, hosts, nullptr),
               "ProxyAdapterSm.*handleInitialized.*: coreStatus\\(\\)\n");
}

TEST_F(AdapterSm_DeathTest, AdapterWithoutStatusAndConfigurationAborts) {
  EXPECT_DEATH(adapterSmFactory(vlanId, nullptr, hosts, nullptr),
               "ProxyAdapterSm.*: coreStatus\\(\\)\n");
}

TEST_F(AdapterSm_DeathTest, AdapterWithoutConfigurationAborts) {
  EXPECT_DEATH(adapterSmFactory(vlanId, nullptr, hosts, status), "ProxyAdapterSm.*assertion");
}

TEST_F(AdapterSm_DeathTest, ConfigurationOfAnotherVlanAborts) {
  EXPECT_DEATH(adapterSmFactory(VlanId(11), config, hosts, status),
               "ProxyAdapterSm.*: adapterConfig\\(\\)->vlanId\\(\\) == vlanId\\(\\)\n");
}

// ---- find-or-create and null parameters

using AdapterSm_Parameters = AdapterSmTest;

TEST_F(AdapterSm_Parameters, EqualConstructorArgumentsAreAccepted) {
  EXPECT_NO_THROW(adapter->requireConstructedWith(config, hosts, status));
}

TEST_F(AdapterSm_Parameters, ADifferentConstructorArgumentIsNamed) {
  auto const refusal = [this](auto const&... arguments) {
    try {
      adapter->requireConstructedWith(arguments...);
    } catch (Kel::NameInUseException const& exception) {
      return std::string(exception.what());
    }
    return std::string("accepted");
  };
  EXPECT_THAT(refusal(Kel::make<AdapterVlanConfig>(vlanId), hosts, status),
              HasSubstr("constructor parameter attribute _adapterConfig has a different value"));
  EXPECT_THAT(refusal(config, Kel::make<Igmp::IgmpHostDir>(), status),
              HasSubstr("constructor parameter attribute _igmpHostDir has a different value"));
  EXPECT_THAT(refusal(config, hosts, Kel::make<IgmpContextStatus>(vlanId)),
              HasSubstr("constructor parameter attribute _coreStatus has a different value"));
}

template <class Mutator>
std::string refusedNull(Mutator mutator) {
  try {
    mutator();
  } catch (Kel::RangeException const& exception) {
    return exception.what();
  }
  return "accepted";
}

TEST_F(AdapterSm_Parameters, NullGroupIsRefusedWithTheTextThatEndsInADoubleQuote) {
  EXPECT_EQ(refusedNull([this] { adapter->igmpGroupIs(nullptr); }),
            "null _igmpGroup parameter to mutator for "
            "Bridging::IgmpSnooping::Proxy::AdapterSm::igmpGroup not allowed\"");
  EXPECT_TRUE(adapter->igmpGroup().empty());
}

TEST_F(AdapterSm_Parameters, NullStatusPortAndMembershipAreRefused) {
  port("swp1").reports(g1);
  EXPECT_EQ(refusedNull([this] { adapter->coreStatusIs(nullptr); }),
            "null _coreStatus parameter to mutator for "
            "Bridging::IgmpSnooping::Proxy::AdapterSm::coreStatus not allowed\"");
  EXPECT_EQ(refusedNull([this] { group()->igmpIntfIs(nullptr); }),
            "null _igmpIntf parameter to mutator for "
            "Bridging::IgmpSnooping::Proxy::AdapterSm::KelIgmpGroup::igmpIntf not allowed\"");
  EXPECT_EQ(refusedNull([this] { intf("swp1")->membershipIs(nullptr); }),
            "null _membership parameter to mutator for Bridging::IgmpSnooping::Proxy::AdapterSm::"
            "KelIgmpGroup::KelIgmpIntf::membership not allowed\"");
}

TEST_F(AdapterSm_Parameters, GroupReactorIsMadeOnce) {
  auto const snooped = status->groupIs(g1);
  EXPECT_EQ(adapter->igmpGroupIs(snooped), group());
  EXPECT_EQ(adapter->igmpGroupIs(snooped), group());
  EXPECT_EQ(adapter->igmpGroup().size(), 1u);
}

TEST_F(AdapterSm_Parameters, NewGroupReactorIsNotInserted) {
  auto const reactor = adapter->newIgmpGroup(Kel::make<IgmpGroup>(g1));
  EXPECT_EQ(reactor->addr(), g1);
  EXPECT_EQ(group(g1), nullptr);
}

TEST_F(AdapterSm_Parameters, NewGroupReactorThatIsDroppedLeavesHostsAndFlagsAlone) {
  proxyOn("up1");
  port("swp1").reports(g1);
  publish();
  auto const other = Kel::make<IgmpGroup>(g1);
  other->intfIs(IntfId("swp1"))->membershipIs(r1);
  EXPECT_TRUE(adapter->newIgmpGroup(other)->igmpHostChanged());
  EXPECT_FALSE(changed(g1));
  publish();
  EXPECT_EQ(record("up1"), everything);
}

TEST_F(AdapterSm_Parameters, DeletingAnAbsentGroupIsHarmless) {
  proxyOn("up1")->v3groupIs(g1);
  adapter->igmpGroupDel(g1);
  EXPECT_TRUE(host("up1")->v3group(g1)) << "no reactor, nothing to clear";
}

// ---- groups of the status

using AdapterSm_Groups = AdapterSmTest;

TEST_F(AdapterSm_Groups, GroupThatAppearsGetsItsReactorAtOnce) {
  status->groupIs(g1);
  ASSERT_TRUE(group(g1));
  EXPECT_EQ(group(g1)->notifier(), status->group(g1));
  EXPECT_EQ(group(g2), nullptr);
}

TEST_F(AdapterSm_Groups, GroupThatGoesIsClearedFromAllHostsAtOnce) {
  proxyOn("up1");
  proxyOn("up2");
  reportEverythingOf({g1, g2});
  status->groupDel(g1);
  EXPECT_EQ(group(g1), nullptr);
  EXPECT_EQ(record("up1", g1), nothing);
  EXPECT_EQ(record("up2", g1), nothing);
  EXPECT_EQ(record("up1", g2), everything);
  EXPECT_EQ(record("up2", g2), everything);
}

TEST_F(AdapterSm_Groups, GroupThatComesBackStartsFromNothing) {
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  publish();
  status->groupDel(g1);
  status->groupIs(g1);
  publish();
  EXPECT_EQ(record("up1"), nothing);
  EXPECT_EQ(counts(), Counts());
}

// ---- updateIgmpHost

using AdapterSm_UpdateIgmpHost = AdapterSmTest;

TEST_F(AdapterSm_UpdateIgmpHost, RecordsAreWrittenWhenTheReportIsRaised) {
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  EXPECT_EQ(record("up1"), nothing);
  status->newIgmpReportNotify();
  EXPECT_EQ(record("up1"), including({s1}));
}

TEST_F(AdapterSm_UpdateIgmpHost, WritesNothingWithoutAChangedGroup) {
  auto const up = proxyOn("up1");
  reportEverythingOf({g1, g2});
  up->v3groupDel(g1);
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  status->newIgmpReportNotify();
  EXPECT_EQ(record("up1"), nothing);
  EXPECT_THAT(trace.texts(), ElementsAre("9 AdapterSm::updateIgmpHost"));
}

TEST_F(AdapterSm_UpdateIgmpHost, VisitsChangedGroupsInTheOrderOfTheCollection) {
  proxyOn("up1");
  std::vector<IpAddr> groups;
  for (std::uint8_t i = 1; i <= 12; ++i) groups.emplace_back(239, 1, 1, i);
  for (IpAddr const address : groups) port("swp1").reports(address);
  publish();
  // Flagged neither in the collection's order nor in its reverse.
  for (std::size_t const i : {7u, 2u, 11u, 0u, 5u}) group(groups[i])->igmpHostChangedIs(true);

  std::vector<std::string> expected;
  for (IpAddr const address : groupsInOrder(*adapter)) {
    if (changed(address))
      expected.push_back("8 KelIgmpIntf::processSplitHorizon() g: " + textOf(address) +
                         " hostKey Vlan10up1");
  }
  ASSERT_EQ(expected.size(), 5u);
  TraceCapture const trace({8});
  status->newIgmpReportNotify();
  EXPECT_EQ(trace.texts(), expected);
}

TEST_F(AdapterSm_UpdateIgmpHost, OrderFollowsTheCollectionWhenGroupsHaveGone) {
  proxyOn("up1");
  std::vector<IpAddr> groups;
  for (std::uint8_t i = 1; i <= 6; ++i) groups.emplace_back(239, 1, 1, i);
  for (IpAddr const address : groups) port("swp1").reports(address);
  status->groupDel(groups[1]);
  std::vector<std::string> expected;
  for (IpAddr const address : groupsInOrder(*adapter))
    expected.push_back("8 KelIgmpIntf::processSplitHorizon() g: " + textOf(address) +
                       " hostKey Vlan10up1");
  ASSERT_EQ(expected.size(), 5u);
  TraceCapture const trace({8});
  status->newIgmpReportNotify();
  EXPECT_EQ(trace.texts(), expected);
}

TEST_F(AdapterSm_UpdateIgmpHost, VisitsTheHostKeysOfOneGroupBeforeTheNextGroup) {
  proxyOn("up1");
  proxyOn("up2");
  for (IpAddr const address : {g1, g2}) port("swp1").reports(address);
  TraceCapture const trace({8});
  status->newIgmpReportNotify();
  EXPECT_THAT(trace.texts(),
              ElementsAre("8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up1",
                          "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up2",
                          "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.2 hostKey Vlan10up1",
                          "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.2 hostKey Vlan10up2"));
}

TEST_F(AdapterSm_UpdateIgmpHost, ServesAKeyWhoseValueIsFalseToo) {
  host("up1");
  config->hostKeyIs(key("up1"), false);
  reportEverythingOf({g1});
  EXPECT_EQ(record("up1"), everything);
}

TEST_F(AdapterSm_UpdateIgmpHost, ServesTheHostsOfSecondaryVlans) {
  PortKey const secondary(VlanId(11), IntfId("up1"));
  auto const up = hosts->igmpHostIs(secondary.stringvalue());
  config->hostKeyIs(secondary, true);
  reportEverythingOf({g1});
  EXPECT_TRUE(up->v3group(g1));
}

TEST_F(AdapterSm_UpdateIgmpHost, LeavesHostsWithoutAKeyAlone) {
  proxyOn("up1");
  auto const other = host("up2");
  reportEverythingOf({g1});
  EXPECT_TRUE(other->v3group().empty());
}

TEST_F(AdapterSm_UpdateIgmpHost, ClearsTheFlagOfAGroupThatItWrote) {
  proxyOn("up1");
  port("swp1").reports(g1);
  EXPECT_TRUE(changed(g1));
  status->newIgmpReportNotify();
  EXPECT_FALSE(changed(g1));
}

/// Writes down whether a group was still flagged when a host's record of it came or went.
class FlagWatcher : public Igmp::IgmpHost::NotifieeConst {
 public:
  FlagWatcher(Kel::Ptr<Igmp::IgmpHost const> host, Kel::Ptr<AdapterSm const> adapter)
      : adapter_(std::move(adapter)) {
    watch(std::move(host));
  }

  void onV3group(IpAddr group) override {
    flags.push_back(adapter_->kelIgmpGroup(group)->igmpHostChanged());
  }

  std::vector<bool> flags;

 private:
  Kel::Ptr<AdapterSm const> adapter_;
};

TEST_F(AdapterSm_UpdateIgmpHost, FlagStaysUntilTheLastHostIsWritten) {
  auto const first = Kel::make<FlagWatcher>(proxyOn("up1"), adapter);
  auto const last = Kel::make<FlagWatcher>(proxyOn("up2"), adapter);
  port("swp1").reports(g1);
  status->newIgmpReportNotify();
  EXPECT_THAT(first->flags, ElementsAre(true));
  EXPECT_THAT(last->flags, ElementsAre(true));
  EXPECT_FALSE(changed(g1));
}

TEST_F(AdapterSm_UpdateIgmpHost, ClearsTheFlagAlsoWithoutAnyHostKey) {
  port("swp1").reports(g1);
  EXPECT_TRUE(changed(g1));
  status->newIgmpReportNotify();
  EXPECT_FALSE(changed(g1));
}

TEST_F(AdapterSm_UpdateIgmpHost, GoesOnToTheNextHostWhereOneIsMissing) {
  proxyOn("up1");
  config->hostKeyIs(key("up2"), true);
  proxyOn("up3");
  port("swp1").reports(g1);
  TraceCapture const trace({0});
  status->newIgmpReportNotify();
  EXPECT_THAT(trace.texts(), ElementsAre("0 No igmpHost"));
  EXPECT_EQ(record("up1"), everything);
  EXPECT_EQ(record("up3"), everything);
  EXPECT_EQ(hosts->igmpHost(key("up2").stringvalue()), nullptr);
  EXPECT_FALSE(changed(g1));
}

// ---- newIgmpHost

using AdapterSm_NewIgmpHost = AdapterSmTest;

TEST_F(AdapterSm_NewIgmpHost, AddedKeyGetsEveryGroupAtOnceAlsoUnchangedOnes) {
  reportEverythingOf({g1, g2});
  ASSERT_FALSE(changed(g1) || changed(g2));
  proxyOn("up1");
  EXPECT_EQ(record("up1", g1), everything);
  EXPECT_EQ(record("up1", g2), everything);
}

TEST_F(AdapterSm_NewIgmpHost, LeavesTheFlagsOfTheGroupsAlone) {
  reportEverythingOf({g1, g2});
  group(g2)->igmpHostChangedIs(true);
  proxyOn("up1");
  EXPECT_FALSE(changed(g1));
  EXPECT_TRUE(changed(g2));
}

TEST_F(AdapterSm_NewIgmpHost, RemovedKeyLeavesItsHostWithoutRecords) {
  auto const up = proxyOn("up1");
  proxyOn("up2");
  reportEverythingOf({g1, g2});
  config->hostKeyDel(key("up1"));
  EXPECT_TRUE(up->v3group().empty());
  EXPECT_EQ(hosts->igmpHost(up->name()), up);
  EXPECT_EQ(record("up2", g1), everything);
}

TEST_F(AdapterSm_NewIgmpHost, KeyThatTurnsFalseLosesItsRecords) {
  auto const up = proxyOn("up1");
  reportEverythingOf({g1, g2});
  config->hostKeyIs(key("up1"), false);
  EXPECT_TRUE(up->v3group().empty());
}

TEST_F(AdapterSm_NewIgmpHost, KeyAddedWithFalseLosesItsRecords) {
  reportEverythingOf({g1});
  auto const up = host("up1");
  up->v3groupIs(g2);
  config->hostKeyIs(key("up1"), false);
  EXPECT_TRUE(up->v3group().empty());
}

TEST_F(AdapterSm_NewIgmpHost, RemovedKeyWithoutHostIsPassedOverInSilence) {
  config->hostKeyIs(key("up1"), true);
  reportEverythingOf({g1});
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  config->hostKeyDel(key("up1"));
  EXPECT_THAT(trace.texts(), ElementsAre("9 AdapterSm::newIgmpHost key Vlan10up1"));
}

TEST_F(AdapterSm_NewIgmpHost, AddedKeyWithoutHostIsTriedAgainAtTheNextTrigger) {
  reportEverythingOf({g1});
  TraceCapture const trace({0});
  config->hostKeyIs(key("up1"), true);
  EXPECT_THAT(trace.texts(), ElementsAre("0 No igmpHost"));
  host("up1");
  config->hostKeyNotify(key("up1"));
  EXPECT_EQ(record("up1"), everything);
}

// ---- clearGroup

class AdapterSm_ClearGroup : public AdapterSmTest {
 protected:
  AdapterSm_ClearGroup() {
    for (auto const* const up : {"up1", "up2", "up3"}) proxyOn(up);
    reportEverythingOf({g1, g2});
    trace.clear();
  }

  TraceCapture trace{0, 4};
};

TEST_F(AdapterSm_ClearGroup, TakesTheGroupFromEveryHost) {
  adapter->clearGroup(g1);
  for (auto const* const up : {"up1", "up2", "up3"}) {
    EXPECT_EQ(record(up, g1), nothing);
    EXPECT_EQ(record(up, g2), everything);
  }
}

TEST_F(AdapterSm_ClearGroup, StopsAtTheFirstMissingHost) {
  hosts->igmpHostDel(key("up2").stringvalue());
  adapter->clearGroup(g1);
  EXPECT_EQ(record("up1", g1), nothing);
  EXPECT_EQ(record("up3", g1), everything);
  EXPECT_THAT(trace.texts(), ElementsAre("4 AdapterSm::clearGroup key Vlan10up1",
                                         "4 AdapterSm::clearGroup key Vlan10up2", "0 No igmpHost"));
}

TEST_F(AdapterSm_ClearGroup, VisitsKeysWhoseValueIsFalseToo) {
  config->hostKeyIs(key("up1"), false);
  adapter->processSplitHorizon(key("up1"), g1);
  ASSERT_EQ(record("up1", g1), everything);
  adapter->clearGroup(g1);
  EXPECT_EQ(record("up1", g1), nothing);
}

TEST_F(AdapterSm_ClearGroup, NextCallBeginsAgainAtTheFirstHost) {
  hosts->igmpHostDel(key("up2").stringvalue());
  adapter->clearGroup(g1);
  proxyOn("up2");
  adapter->clearGroup(g1);
  EXPECT_EQ(record("up3", g1), nothing);
}

// ---- delivery

using AdapterSm_Delivery = AdapterSmTest;

TEST_F(AdapterSm_Delivery, PortsReportersAndSourcesAreHeardOfOnlyWhenActivitiesRun) {
  auto const snoopedPort = status->groupIs(g1)->intfIs(IntfId("swp1"));
  EXPECT_EQ(intf("swp1"), nullptr);
  Kel::runActivities();
  ASSERT_NE(intf("swp1"), nullptr);

  auto const membership = snoopedPort->membershipIs(r1);
  EXPECT_EQ(intf("swp1")->membership(r1), nullptr);
  EXPECT_EQ(counts(), Counts());
  Kel::runActivities();
  ASSERT_NE(intf("swp1")->membership(r1), nullptr);
  EXPECT_EQ(counts(), starG(1));

  membership->filterModeIs(FilterMode::include);
  EXPECT_EQ(counts(), starG(1));
  Kel::runActivities();
  EXPECT_EQ(counts(), Counts());

  membership->sourceIs(s1);
  EXPECT_EQ(counts(), Counts());
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));

  snoopedPort->membershipDel(r1);
  EXPECT_NE(intf("swp1")->membership(r1), nullptr);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->membership(r1), nullptr);

  status->group(g1)->intfDel(IntfId("swp1"));
  EXPECT_NE(intf("swp1"), nullptr);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1"), nullptr);
}

TEST_F(AdapterSm_Delivery, AReportRaisedBeforeActivitiesRunPublishesTheFormerState) {
  proxyOn("up1");
  auto const reporter = port("swp1").reports(g1);
  publish();
  snooped("swp1")->filterModeIs(FilterMode::include);
  status->newIgmpReportNotify();
  EXPECT_EQ(record("up1"), everything);
  publish();
  EXPECT_EQ(record("up1"), nothing);
}

TEST_F(AdapterSm_Delivery, EverySourceEvaluatesThePort) {
  auto const reporter = port("swp1").reports(g1);
  auto const before = intf("swp1")->portChanged();
  reporter.include({s1, s2, s3});
  EXPECT_EQ(intf("swp1")->portChanged() - before, 4) << "one for the mode, three for the sources";
}

TEST_F(AdapterSm_Delivery, InactiveAdapterHearsNothing) {
  proxyOn("up1");
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  adapter->hasNotificationActiveIs(false);

  reporter.exclude({s2});
  port("swp2").reports(g1);
  port("swp1").reports(g1, r2);
  port("swp1").reports(g2);
  publish();
  proxyOn("up2");
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
  EXPECT_EQ(intf("swp2"), nullptr);
  EXPECT_EQ(intf("swp1")->membership(r2), nullptr);
  EXPECT_EQ(group(g2), nullptr);
  EXPECT_EQ(record("up1"), including({s1}));
  EXPECT_EQ(record("up2"), nothing);
  EXPECT_EQ(Kel::runActivities(), 0u);
}

TEST_F(AdapterSm_Delivery, AdapterThatIsActiveAgainHearsWhatComesThenButNotWhatItMissed) {
  proxyOn("up1");
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  adapter->hasNotificationActiveIs(false);
  status->groupIs(g2);
  reporter.include({s1, s2});
  adapter->hasNotificationActiveIs(true);
  publish();
  EXPECT_EQ(group(g2), nullptr);
  EXPECT_EQ(record("up1"), including({s1}));

  status->groupIs(g3);
  port("swp2").reports(g1).include({s4});
  port("swp1").reports(g1, r2);
  reporter.include({s1, s2, s3});
  EXPECT_NE(group(g3), nullptr);
  EXPECT_NE(intf("swp2"), nullptr);
  EXPECT_NE(intf("swp1")->membership(r2), nullptr);
  proxyOn("up2");
  publish();
  EXPECT_EQ(record("up2"), everything) << "the reporter r2 has only just appeared";
}

TEST_F(AdapterSm_Delivery, GoingInactiveCallsOffWhatIsPending) {
  port("swp1").reports(g1);
  snooped("swp1")->sourceIs(s1);
  adapter->hasNotificationActiveIs(false);
  adapter->hasNotificationActiveIs(true);
  EXPECT_EQ(Kel::runActivities(), 0u);
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(AdapterSm_Delivery, TopLevelReactorsCallTheAdapterThatTheyWereGivenLast) {
  port("swp1").reports(g1);
  Kel::runActivities();
  auto const otherConfig = Kel::make<AdapterVlanConfig>(vlanId);
  auto const otherStatus = Kel::make<IgmpContextStatus>(vlanId);
  auto const onConfig = Kel::make<AdapterSm::KelAdapterConfig>(otherConfig, nullptr);
  auto const onStatus = Kel::make<AdapterSm::KelCoreStatus>(otherStatus, nullptr);
  onConfig->adapterSmIs(adapter.get());
  onStatus->adapterSmIs(adapter.get());
  TraceCapture const trace({9});
  otherConfig->hostKeyIs(PortKey(vlanId, IntfId("up1")), true);
  otherStatus->newIgmpReportNotify();
  EXPECT_THAT(trace.texts(), testing::ElementsAre("9 AdapterSm::newIgmpHost key Vlan10up1",
                                                  "9 AdapterSm::updateIgmpHost"));
}

// ---- deletion

/// Counts how often each group is taken from a host.
class RemovalCounter : public Igmp::IgmpHost::NotifieeConst {
 public:
  explicit RemovalCounter(Kel::Ptr<Igmp::IgmpHost const> host) { watch(std::move(host)); }

  void onV3group(IpAddr group) override {
    if (!notifier()->v3group(group)) ++removals[group];
  }

  std::map<IpAddr, int> removals;
};

class AdapterSm_Deletion : public AdapterSmTest {
 protected:
  AdapterSm_Deletion() {
    proxyOn("up1");
    proxyOn("up2");
    reportEverythingOf({g1, g2});
    trace.clear();
  }

  /// Puts records back by hand, so that a second clearing cannot go unseen.
  void putRecordsBack() const {
    for (auto const* const up : {"up1", "up2"})
      for (IpAddr const address : {g1, g2}) host(up)->v3groupIs(address);
  }
  std::size_t recordsLeft() const {
    return host("up1")->v3group().size() + host("up2")->v3group().size();
  }

  TraceCapture trace{0, 9};
};

TEST_F(AdapterSm_Deletion, DeletedGroupIsClearedOnce) {
  auto const removals = Kel::make<RemovalCounter>(host("up1"));
  status->groupDel(g1);
  EXPECT_EQ(removals->removals, (std::map<IpAddr, int>{{g1, 1}}));
  EXPECT_THAT(trace.texts(), ElementsAre("9 KelIgmpGroup::handleDelete 239.1.1.1",
                                         "9 AdapterSm::clearGroup 239.1.1.1"));
}

TEST_F(AdapterSm_Deletion, DeletedGroupThatIsStillHeldIsNotClearedAgain) {
  auto held = group(g1);
  status->groupDel(g1);
  EXPECT_TRUE(held->isZombie());
  putRecordsBack();
  held = nullptr;
  EXPECT_EQ(recordsLeft(), 4u);
}

TEST_F(AdapterSm_Deletion, DroppedAdapterClearsEachGroupOnce) {
  auto const removals = Kel::make<RemovalCounter>(host("up2"));
  adapter = nullptr;
  EXPECT_EQ(removals->removals, (std::map<IpAddr, int>{{g1, 1}, {g2, 1}}));
  EXPECT_EQ(recordsLeft(), 0u);
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("9 KelIgmpGroup::handleDelete 239.1.1.1", "9 AdapterSm::clearGroup 239.1.1.1",
                  "9 KelIgmpGroup::handleDelete 239.1.1.2", "9 AdapterSm::clearGroup 239.1.1.2"));
}

TEST_F(AdapterSm_Deletion, ZombieAdapterHasClearedItsGroupsAndDoesNotWhenItIsDropped) {
  adapter->kelDoZombieReactors(true);
  EXPECT_EQ(recordsLeft(), 0u);
  putRecordsBack();
  trace.clear();
  adapter = nullptr;
  EXPECT_EQ(recordsLeft(), 4u);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(AdapterSm_Deletion, SecondZombiePassDoesNothing) {
  adapter->kelDoZombieReactors(true);
  putRecordsBack();
  adapter->kelDoZombieReactors(true);
  EXPECT_EQ(recordsLeft(), 4u);
}

TEST_F(AdapterSm_Deletion, NoHandlerOfAZombieAdapterRuns) {
  auto const reporter = port("swp1").reports(g1);
  adapter->kelDoZombieReactors(true);
  trace.clear();
  reporter.include({s1});
  port("swp2").reports(g1);
  port("swp1").reports(g1, r2);
  port("swp1").reports(g3);
  publish();
  config->hostKeyDel(key("up1"));
  status->groupDel(g2);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(Kel::runActivities(), 0u);
}

TEST_F(AdapterSm_Deletion, RevivedAdapterHearsAgain) {
  adapter->kelDoZombieReactors(true);
  adapter->kelDoZombieReactors(false);
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g3);
  publish();
  EXPECT_EQ(record("up1", g1), including({s1}));
  EXPECT_EQ(record("up1", g3), everything);
}

TEST_F(AdapterSm_Deletion, AdapterMayGoWithNotificationsPending) {
  status->group(g1)->intfIs(IntfId("swp2"))->membershipIs(r1);
  status->group(g1)->intf(IntfId("swp1"))->membershipIs(r2);
  auto const membership = snooped("swp1", r1, g2);
  membership->filterModeIs(FilterMode::include);
  membership->sourceIs(s1);
  adapter = nullptr;
  EXPECT_EQ(Kel::runActivities(), 0u);
}

TEST_F(AdapterSm_Deletion, GroupMayGoWithNotificationsPending) {
  status->group(g1)->intfIs(IntfId("swp2"))->membershipIs(r1);
  status->group(g1)->intf(IntfId("swp1"))->membershipIs(r2);
  status->groupDel(g1);
  EXPECT_EQ(Kel::runActivities(), 0u);
}

TEST_F(AdapterSm_Deletion, ReactorsHeldBeyondTheAdapterStaySilent) {
  auto const heldGroup = group(g1);
  auto const heldIntf = intf("swp1");
  auto const heldMembership = heldIntf->membership(r1);
  adapter = nullptr;
  trace.clear();
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1);
  port("swp1").reports(g1, r2);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(AdapterSm_Deletion, ClearingStopsAtAMissingHostAlsoForADroppedAdapter) {
  hosts->igmpHostDel(key("up1").stringvalue());
  adapter = nullptr;
  EXPECT_EQ(record("up2", g1), everything);
  EXPECT_EQ(record("up2", g2), everything);
}

TEST_F(AdapterSm_Deletion, NothingHoldsTheInputsOfADroppedAdapter) {
  adapter = nullptr;
  EXPECT_EQ(config->references(), 1u);
  EXPECT_EQ(hosts->references(), 1u);
  EXPECT_EQ(status->references(), 1u);
  EXPECT_EQ(status->group(g1)->references(), 2u) << "the collection's and this test's";
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
