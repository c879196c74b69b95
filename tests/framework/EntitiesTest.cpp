#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/entities/AdapterVlanConfig.h"
#include "framework/entities/BridgingConfig.h"
#include "framework/entities/DeviceIntfStatus.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/entities/IgmpProtocolConfig.h"
#include "framework/entities/LibVlanState.h"
#include "framework/entities/PortVlanMapping.h"
#include "framework/entities/PrivateVlanState.h"
#include "framework/entities/QuerierConfig.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/interface/EthDevPamCollection.h"
#include "tests/framework/Toys.h"

/// Which attribute of which entity raises which callback.
namespace {

using Bridging::AllowedTrafficDirection;
using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using Bridging::IgmpSnooping::Proxy::AdapterVlanConfig;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Bridging::IgmpSnooping::Proxy::PortVlanMapping;
using Gmp::Igmp::IgmpFilterMode;
using Igmp::IgmpVersion;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IntfId;
using Wirex::IpAddr;

VlanId const vlan10(10);
IntfId const eth1("eth1");
IpAddr const group(239, 1, 1, 1);
IpAddr const reporter(10, 0, 0, 1);
PortKey const portKey(vlan10, eth1);

/// A reactor on an entity, to which a test adds the callbacks that it listens to.
template <class Interface>
class ListenerOn : public Interface {
 public:
  template <class T>
  ListenerOn(Kel::Ptr<T> const& watched, Toy::Journal& heard) : heard_(heard) {
    this->watch(watched);
  }

 protected:
  template <class... Words>
  void hear(Words const&... words) {
    heard_.push_back(Toy::sentence(words...));
  }

 private:
  Toy::Journal& heard_;
};

class EntitiesTest : public testing::Test {
 protected:
  /// One call of a mutator, and what its listener has to hear of it.
  struct Call {
    std::string heard;
    std::function<void()> mutate;
  };

  /// For changes: the same call once more changes nothing, so that nothing is heard of it.
  void expectOneCallbackPerChange(std::vector<Call> const& changes) {
    for (Call const& change : changes) {
      expectHeard(change, change.heard);
      expectHeard(change, "");
    }
  }

  /// For `fooNotify`, which says the same every time.
  void expectOneCallbackPerCall(std::vector<Call> const& calls) {
    for (Call const& call : calls) {
      expectHeard(call, call.heard);
      expectHeard(call, call.heard);
    }
  }

  Toy::Journal heard_;

 private:
  void expectHeard(Call const& call, std::string const& expected) {
    heard_.clear();
    call.mutate();
    EXPECT_EQ(heard_, expected.empty() ? Toy::Journal() : Toy::Journal{expected}) << call.heard;
  }
};

TEST_F(EntitiesTest, IgmpProtocolConfig) {
  using Bridging::IgmpSnooping::IgmpProtocolConfig;
  struct Listener : ListenerOn<IgmpProtocolConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onContextConfig(VlanId vlan) override { hear("contextConfig", vlan); }
    void onContextConfigkelImmediate() override { hear("contextConfigs"); }
  };
  auto const config = Kel::make<IgmpProtocolConfig>();
  auto const listener = Kel::make<Listener>(config, heard_);
  expectOneCallbackPerChange({
      {"contextConfig 10", [&] { config->contextConfigIs(vlan10); }},
      {"contextConfig 10", [&] { config->contextConfigDel(vlan10); }},
      {"contextConfig 11", [&] { config->contextConfigIs(VlanId(11)); }},
      {"contextConfig 11", [&] { config->contextConfigDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"contextConfig 10", [&] { config->contextConfigNotify(vlan10); }},
      {"contextConfigs", [&] { config->contextConfigNotify(); }},
  });
  EXPECT_EQ(config->newContextConfig(vlan10)->vlanId(), vlan10);
  EXPECT_EQ(config->contextConfig(vlan10), nullptr);
}

TEST_F(EntitiesTest, IgmpContextConfig) {
  using Bridging::IgmpSnooping::IgmpContextConfig;
  struct Listener : ListenerOn<IgmpContextConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onProxyEnabled() override { hear("proxyEnabled", notifier()->proxyEnabled()); }
  };
  auto const config = Kel::make<IgmpContextConfig>(vlan10);
  auto const listener = Kel::make<Listener>(config, heard_);
  EXPECT_EQ(config->vlanId(), vlan10);
  EXPECT_FALSE(config->proxyEnabled());
  expectOneCallbackPerChange({
      {"proxyEnabled 1", [&] { config->proxyEnabledIs(true); }},
      {"proxyEnabled 0", [&] { config->proxyEnabledIs(false); }},
  });
}

TEST_F(EntitiesTest, IgmpProtocolStatus) {
  using Bridging::IgmpSnooping::IgmpProtocolStatus;
  struct Listener : ListenerOn<IgmpProtocolStatus::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onContextStatus(VlanId vlan) override { hear("contextStatus", vlan); }
    void onContextStatuskelImmediate() override { hear("contextStatuses"); }
  };
  auto const status = Kel::make<IgmpProtocolStatus>();
  auto const listener = Kel::make<Listener>(status, heard_);
  expectOneCallbackPerChange({
      {"contextStatus 10", [&] { status->contextStatusIs(vlan10); }},
      {"contextStatus 10", [&] { status->contextStatusDel(vlan10); }},
      {"contextStatus 11", [&] { status->contextStatusIs(VlanId(11)); }},
      {"contextStatus 11", [&] { status->contextStatusDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"contextStatus 10", [&] { status->contextStatusNotify(vlan10); }},
      {"contextStatuses", [&] { status->contextStatusNotify(); }},
  });
  EXPECT_EQ(status->newContextStatus(vlan10)->vlanId(), vlan10);
}

TEST_F(EntitiesTest, IgmpContextStatus) {
  using Bridging::IgmpSnooping::IgmpContextStatus;
  struct Listener : ListenerOn<IgmpContextStatus::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onGroup(IpAddr address) override { hear("group", address); }
    void onGroupkelImmediate() override { hear("groups"); }
    void onNewIgmpReport() override { hear("newIgmpReport"); }
  };
  auto const status = Kel::make<IgmpContextStatus>(vlan10);
  auto const listener = Kel::make<Listener>(status, heard_);
  auto const replacement = status->newGroup(group);
  expectOneCallbackPerChange({
      {"group 239.1.1.1", [&] { status->groupIs(group); }},
      {"group 239.1.1.1", [&] { status->groupIs(replacement); }},
      {"group 239.1.1.1", [&] { status->groupDel(group); }},
      {"group 239.1.1.1", [&] { status->groupIs(replacement); }},
      {"group 239.1.1.1", [&] { status->groupDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"group 239.1.1.1", [&] { status->groupNotify(group); }},
      {"groups", [&] { status->groupNotify(); }},
      {"newIgmpReport", [&] { status->newIgmpReportNotify(); }},
  });
  EXPECT_EQ(status->groupIs(group)->addr(), group);
}

TEST_F(EntitiesTest, MemberMadeElsewhereMayNotBeNull) {
  using testing::ThrowsMessage;
  auto const status = Kel::make<Bridging::IgmpSnooping::IgmpContextStatus>(vlan10);
  EXPECT_THAT(
      [&] { status->groupIs(Kel::Ptr<Bridging::IgmpSnooping::IgmpGroup>()); },
      ThrowsMessage<Kel::RangeException>(
          R"(null _group parameter to mutator for Bridging::IgmpSnooping::IgmpContextStatus::group not allowed")"));
  EXPECT_TRUE(status->group().empty());
  EXPECT_THAT(
      [&] { status->groupIs(group)->intfIs(Kel::Ptr<Bridging::IgmpSnooping::IgmpIntfStatus>()); },
      ThrowsMessage<Kel::RangeException>(
          R"(null _intf parameter to mutator for Bridging::IgmpSnooping::IgmpGroup::intf not allowed")"));
  EXPECT_THAT(
      [&] {
        Kel::make<Bridging::IgmpSnooping::IgmpIntfStatus>(eth1)->membershipIs(
            Kel::Ptr<Bridging::IgmpSnooping::IgmpMembership>());
      },
      ThrowsMessage<Kel::RangeException>(
          R"(null _membership parameter to mutator for Bridging::IgmpSnooping::IgmpIntfStatus::membership not allowed")"));
  EXPECT_THAT(
      [] {
        Kel::make<Topology::Library::Vlan::TopoVlan>(vlan10)->portIs(
            Kel::Ptr<Topology::Library::Vlan::Port>());
      },
      ThrowsMessage<Kel::RangeException>(
          R"(null _port parameter to mutator for Topology::Library::Vlan::TopoVlan::port not allowed")"));
  EXPECT_THAT(
      [] { Kel::make<Interface::EthDevPamCollection>("proxy")->intfPamIs(nullptr); },
      ThrowsMessage<Kel::RangeException>(
          R"(null _intfPam parameter to mutator for Interface::EthDevPamCollection::intfPam not allowed")"));
}

TEST_F(EntitiesTest, IgmpGroup) {
  using Bridging::IgmpSnooping::IgmpGroup;
  struct Listener : ListenerOn<IgmpGroup::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntf(IntfId intf) override { hear("intf", intf); }
    void onIntfkelImmediate() override { hear("intfs"); }
  };
  auto const entity = Kel::make<IgmpGroup>(group);
  auto const listener = Kel::make<Listener>(entity, heard_);
  auto const replacement = entity->newIntf(eth1);
  expectOneCallbackPerChange({
      {"intf eth1", [&] { entity->intfIs(eth1); }},
      {"intf eth1", [&] { entity->intfIs(replacement); }},
      {"intf eth1", [&] { entity->intfDel(eth1); }},
      {"intf eth2", [&] { entity->intfIs(IntfId("eth2")); }},
      {"intf eth2", [&] { entity->intfDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"intf eth1", [&] { entity->intfNotify(eth1); }},
      {"intfs", [&] { entity->intfNotify(); }},
  });
  EXPECT_EQ(entity->intfIs(eth1)->intfId(), eth1);
}

TEST_F(EntitiesTest, IgmpIntfStatus) {
  using Bridging::IgmpSnooping::IgmpIntfStatus;
  struct Listener : ListenerOn<IgmpIntfStatus::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onMembership(IpAddr address) override { hear("membership", address); }
    void onMembershipkelImmediate() override { hear("memberships"); }
  };
  auto const status = Kel::make<IgmpIntfStatus>(eth1);
  auto const listener = Kel::make<Listener>(status, heard_);
  auto const replacement = status->newMembership(reporter);
  expectOneCallbackPerChange({
      {"membership 10.0.0.1", [&] { status->membershipIs(reporter); }},
      {"membership 10.0.0.1", [&] { status->membershipIs(replacement); }},
      {"membership 10.0.0.1", [&] { status->membershipDel(reporter); }},
      {"membership 10.0.0.2", [&] { status->membershipIs(IpAddr(10, 0, 0, 2)); }},
      {"membership 10.0.0.2", [&] { status->membershipDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"membership 10.0.0.1", [&] { status->membershipNotify(reporter); }},
      {"memberships", [&] { status->membershipNotify(); }},
  });
  EXPECT_EQ(status->membershipIs(reporter)->addr(), reporter);
}

TEST_F(EntitiesTest, IgmpMembership) {
  using Bridging::IgmpSnooping::IgmpMembership;
  struct Listener : ListenerOn<IgmpMembership::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onFilterMode() override { hear("filterMode", notifier()->filterMode()); }
    void onSource(IpAddr source) override { hear("source", source); }
    void onSourcekelImmediate() override { hear("sources"); }
  };
  auto const membership = Kel::make<IgmpMembership>(reporter);
  auto const listener = Kel::make<Listener>(membership, heard_);
  EXPECT_EQ(membership->filterMode(), IgmpFilterMode::exclude);
  expectOneCallbackPerChange({
      {"filterMode include", [&] { membership->filterModeIs(IgmpFilterMode::include); }},
      {"filterMode exclude", [&] { membership->filterModeIs(IgmpFilterMode::exclude); }},
      {"source 10.0.0.1", [&] { membership->sourceIs(reporter); }},
      {"source 10.0.0.1", [&] { membership->sourceDel(reporter); }},
      {"source 10.0.0.1", [&] { membership->sourceIs(reporter); }},
      {"source 10.0.0.1", [&] { membership->sourceDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"filterMode exclude", [&] { membership->filterModeNotify(); }},
      {"source 10.0.0.1", [&] { membership->sourceNotify(reporter); }},
      {"sources", [&] { membership->sourceNotify(); }},
  });
  EXPECT_FALSE(membership->source(reporter));
  membership->sourceIs(reporter);
  EXPECT_TRUE(membership->source(reporter));
}

TEST_F(EntitiesTest, LibVlanState) {
  using Topology::Library::Vlan::LibVlanState;
  struct Listener : ListenerOn<LibVlanState::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onTopoVlan(VlanId vlan) override { hear("topoVlan", vlan); }
    void onTopoVlankelImmediate() override { hear("topoVlans"); }
  };
  auto const state = Kel::make<LibVlanState>();
  auto const listener = Kel::make<Listener>(state, heard_);
  expectOneCallbackPerChange({
      {"topoVlan 10", [&] { state->topoVlanIs(vlan10); }},
      {"topoVlan 10", [&] { state->topoVlanDel(vlan10); }},
      {"topoVlan 11", [&] { state->topoVlanIs(VlanId(11)); }},
      {"topoVlan 11", [&] { state->topoVlanDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"topoVlan 10", [&] { state->topoVlanNotify(vlan10); }},
      {"topoVlans", [&] { state->topoVlanNotify(); }},
  });
  EXPECT_EQ(state->newTopoVlan(vlan10)->vlanId(), vlan10);
}

TEST_F(EntitiesTest, TopoVlan) {
  using Topology::Library::Vlan::TopoVlan;
  struct Listener : ListenerOn<TopoVlan::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onTopoPort(IntfId intf) override { hear("topoPort", intf); }
    void onTopoPortkelImmediate() override { hear("topoPorts"); }
  };
  auto const topoVlan = Kel::make<TopoVlan>(vlan10);
  auto const listener = Kel::make<Listener>(topoVlan, heard_);
  auto const replacement = topoVlan->newPort(eth1);
  expectOneCallbackPerChange({
      {"topoPort eth1", [&] { topoVlan->portIs(eth1); }},
      {"topoPort eth1", [&] { topoVlan->portIs(replacement); }},
      {"topoPort eth1", [&] { topoVlan->portDel(eth1); }},
      {"topoPort eth2", [&] { topoVlan->portIs(IntfId("eth2")); }},
      {"topoPort eth2", [&] { topoVlan->portDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"topoPort eth1", [&] { topoVlan->portNotify(eth1); }},
      {"topoPorts", [&] { topoVlan->portNotify(); }},
  });
  EXPECT_EQ(topoVlan->portIs(eth1)->intfId(), eth1);
}

TEST_F(EntitiesTest, Port) {
  using Topology::Library::Vlan::Port;
  struct Listener : ListenerOn<Port::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onBlocked() override { hear("blocked", notifier()->blocked()); }
    void onAllowedTrafficDirection() override {
      hear("direction", notifier()->allowedTrafficDirection());
    }
  };
  auto const port = Kel::make<Port>(eth1);
  auto const listener = Kel::make<Listener>(port, heard_);
  EXPECT_FALSE(port->blocked());
  EXPECT_EQ(port->allowedTrafficDirection(), AllowedTrafficDirection::both);
  expectOneCallbackPerChange({
      {"blocked 1", [&] { port->blockedIs(true); }},
      {"direction none", [&] { port->allowedTrafficDirectionIs(AllowedTrafficDirection::none); }},
  });
}

TEST_F(EntitiesTest, PrivateVlanState) {
  using PrivateVlanLib::LibState;
  struct Listener : ListenerOn<LibState::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onSecondaryVlan(VlanId vlan) override {
      hear("secondaryVlan", vlan, notifier()->secondaryVlan(vlan));
    }
    void onSecondaryVlankelImmediate() override { hear("secondaryVlans"); }
  };
  auto const state = Kel::make<LibState>();
  auto const listener = Kel::make<Listener>(state, heard_);
  VlanTypeAndPrimaryVlan const isolated(VlanType::isolated, VlanId(20));
  expectOneCallbackPerChange({
      {"secondaryVlan 10 isolated 20", [&] { state->secondaryVlanIs(vlan10, isolated); }},
      {"secondaryVlan 10 normal", [&] { state->secondaryVlanDel(vlan10); }},
      {"secondaryVlan 10 isolated 20", [&] { state->secondaryVlanIs(vlan10, isolated); }},
      {"secondaryVlan 10 normal", [&] { state->secondaryVlanDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"secondaryVlan 10 normal", [&] { state->secondaryVlanNotify(vlan10); }},
      {"secondaryVlans", [&] { state->secondaryVlanNotify(); }},
  });
}

TEST_F(EntitiesTest, AbsentSecondaryVlanReadsAsANormalVlan) {
  auto const state = Kel::make<PrivateVlanLib::LibState>();
  EXPECT_EQ(state->secondaryVlan(vlan10), VlanTypeAndPrimaryVlan());
  EXPECT_EQ(state->secondaryVlan(vlan10).type(), VlanType::normal);
  EXPECT_TRUE(state->secondaryVlan().empty());
}

TEST_F(EntitiesTest, QuerierConfigDir) {
  using Igmp::QuerierConfigDir;
  struct Listener : ListenerOn<QuerierConfigDir::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onQuerierConfig(Kel::Name const& name) override { hear("querierConfig", name); }
    void onQuerierConfigkelImmediate() override { hear("querierConfigs"); }
  };
  auto const dir = Kel::make<QuerierConfigDir>();
  auto const listener = Kel::make<Listener>(dir, heard_);
  auto const protocol = Kel::make<Gmp::Igmp::QuerierConfig>();
  expectOneCallbackPerChange({
      {"querierConfig 10", [&] { dir->querierConfigIs("10", protocol); }},
      {"querierConfig 10", [&] { dir->querierConfigDel("10"); }},
      {"querierConfig 11", [&] { dir->querierConfigIs("11", protocol); }},
      {"querierConfig 11", [&] { dir->querierConfigDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"querierConfig 10", [&] { dir->querierConfigNotify("10"); }},
      {"querierConfigs", [&] { dir->querierConfigNotify(); }},
  });
  EXPECT_EQ(dir->newQuerierConfig("10", protocol)->name(), "10");
}

TEST_F(EntitiesTest, QuerierConfigIsBornComplete) {
  auto const dir = Kel::make<Igmp::QuerierConfigDir>();
  auto const protocol = Kel::make<Gmp::Igmp::QuerierConfig>();
  EXPECT_EQ(dir->querierConfigIs("10", protocol)->gmpQuerierConfig(), protocol);
  EXPECT_THROW(dir->querierConfigIs("10", Kel::make<Gmp::Igmp::QuerierConfig>()),
               Kel::NameInUseException);
  EXPECT_EQ(dir->querierConfig("10")->gmpQuerierConfig(), protocol);
}

TEST_F(EntitiesTest, QuerierConfig) {
  using Igmp::QuerierConfig;
  struct Listener : ListenerOn<QuerierConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onGmpQuerierConfig() override {
      hear("gmpQuerierConfig", notifier()->gmpQuerierConfig() ? "set" : "null");
    }
  };
  auto const protocol = Kel::make<Gmp::Igmp::QuerierConfig>();
  auto const config = Kel::make<QuerierConfig>("10", protocol);
  auto const listener = Kel::make<Listener>(config, heard_);
  expectOneCallbackPerChange({
      {"gmpQuerierConfig null", [&] { config->gmpQuerierConfigIs(nullptr); }},
      {"gmpQuerierConfig set", [&] { config->gmpQuerierConfigIs(protocol); }},
  });
}

TEST_F(EntitiesTest, ProtocolSideOfAQuerierConfig) {
  using Gmp::Igmp::QuerierConfig;
  struct Listener : ListenerOn<QuerierConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onQuerierVersion() override { hear("querierVersion", notifier()->querierVersion()); }
  };
  auto const config = Kel::make<QuerierConfig>();
  auto const listener = Kel::make<Listener>(config, heard_);
  EXPECT_EQ(config->querierVersion(), IgmpVersion::v3);
  expectOneCallbackPerChange({
      {"querierVersion 2", [&] { config->querierVersionIs(IgmpVersion::v2); }},
  });
}

TEST_F(EntitiesTest, DeviceIntfStatusDir) {
  using Interface::DeviceIntfStatusDir;
  struct Listener : ListenerOn<DeviceIntfStatusDir::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntfStatusAndDeviceName(IntfId intf) override {
      hear("status", intf, notifier()->intfStatusAndDeviceName(intf).deviceName);
    }
    void onIntfStatusAndDeviceNamekelImmediate() override { hear("statuses"); }
  };
  auto const dir = Kel::make<DeviceIntfStatusDir>();
  auto const listener = Kel::make<Listener>(dir, heard_);
  expectOneCallbackPerChange({
      {"status eth1 et1", [&] { dir->intfStatusAndDeviceNameIs(eth1, {"et1"}); }},
      {"status eth1 et2", [&] { dir->intfStatusAndDeviceNameIs(eth1, {"et2"}); }},
      {"status eth1 ", [&] { dir->intfStatusAndDeviceNameDel(eth1); }},
      {"status eth1 et1", [&] { dir->intfStatusAndDeviceNameIs(eth1, {"et1"}); }},
      {"status eth1 ", [&] { dir->intfStatusAndDeviceNameDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"status eth1 ", [&] { dir->intfStatusAndDeviceNameNotify(eth1); }},
      {"statuses", [&] { dir->intfStatusAndDeviceNameNotify(); }},
  });
}

TEST_F(EntitiesTest, IntfStatusTellsItsDeviceNameApart) {
  using Interface::IntfStatusAndDeviceName;
  EXPECT_TRUE(IntfStatusAndDeviceName{"et1"} != IntfStatusAndDeviceName{"et2"});
  EXPECT_FALSE(IntfStatusAndDeviceName{"et1"} != IntfStatusAndDeviceName{"et1"});
  EXPECT_TRUE(IntfStatusAndDeviceName{"et1"} != IntfStatusAndDeviceName{});
}

TEST_F(EntitiesTest, PamDesiredIntfDir) {
  using Interface::PamDesiredIntfDir;
  struct Listener : ListenerOn<PamDesiredIntfDir::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntfDesired(IntfId intf) override { hear("intfDesired", intf); }
    void onIntfDesiredkelImmediate() override { hear("intfsDesired"); }
  };
  auto const dir = Kel::make<PamDesiredIntfDir>("proxy");
  auto const listener = Kel::make<Listener>(dir, heard_);
  EXPECT_EQ(dir->name(), "proxy");
  EXPECT_FALSE(dir->intfDesired(eth1));
  expectOneCallbackPerChange({
      {"intfDesired eth1", [&] { dir->intfDesiredIs(eth1, true); }},
      {"intfDesired eth1", [&] { dir->intfDesiredIs(eth1, false); }},
      {"intfDesired eth1", [&] { dir->intfDesiredDel(eth1); }},
      {"intfDesired eth1", [&] { dir->intfDesiredIs(eth1, true); }},
      {"intfDesired eth1", [&] { dir->intfDesiredDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"intfDesired eth1", [&] { dir->intfDesiredNotify(eth1); }},
      {"intfsDesired", [&] { dir->intfDesiredNotify(); }},
  });
}

TEST_F(EntitiesTest, EthDevPamCollection) {
  using Interface::EthDevPam;
  using Interface::EthDevPamCollection;
  struct Listener : ListenerOn<EthDevPamCollection::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntfPam(IntfId intf) override { hear("intfPam", intf); }
    void onIntfPamkelImmediate() override { hear("intfPams"); }
  };
  auto const collection = Kel::make<EthDevPamCollection>("proxy");
  auto const listener = Kel::make<Listener>(collection, heard_);
  struct Unconnected : EthDevPam {
    Unconnected() : EthDevPam(eth1, {}, {}) {}
    void outputPktIs(Wirex::Pkt::Ptr /*pkt*/) override {}
    Counters counters() const override { return {}; }
  };
  auto const pam = Kel::make<Unconnected>();
  auto const replacement = Kel::make<Unconnected>();
  EXPECT_EQ(collection->name(), "proxy");
  expectOneCallbackPerChange({
      {"intfPam eth1", [&] { collection->intfPamIs(pam); }},
      {"intfPam eth1", [&] { collection->intfPamIs(replacement); }},
      {"intfPam eth1", [&] { collection->intfPamDel(eth1); }},
      {"intfPam eth1", [&] { collection->intfPamIs(pam); }},
      {"intfPam eth1", [&] { collection->intfPamDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"intfPam eth1", [&] { collection->intfPamNotify(eth1); }},
      {"intfPams", [&] { collection->intfPamNotify(); }},
  });
}

TEST_F(EntitiesTest, BridgingConfig) {
  struct Listener : ListenerOn<Bridging::Config::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onVlanConfig(VlanId vlan) override { hear("vlanConfig", vlan); }
    void onVlanConfigkelImmediate() override { hear("vlanConfigs"); }
  };
  auto const config = Kel::make<Bridging::Config>();
  auto const listener = Kel::make<Listener>(config, heard_);
  expectOneCallbackPerChange({
      {"vlanConfig 10", [&] { config->vlanConfigIs(vlan10); }},
      {"vlanConfig 10", [&] { config->vlanConfigDel(vlan10); }},
      {"vlanConfig 11", [&] { config->vlanConfigIs(VlanId(11)); }},
      {"vlanConfig 11", [&] { config->vlanConfigDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"vlanConfig 10", [&] { config->vlanConfigNotify(vlan10); }},
      {"vlanConfigs", [&] { config->vlanConfigNotify(); }},
  });
  EXPECT_EQ(config->newVlanConfig(vlan10)->vlanId(), vlan10);
}

TEST_F(EntitiesTest, BridgingVlanConfig) {
  struct Listener : ListenerOn<Bridging::VlanConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntfConfig(IntfId intf) override { hear("intfConfig", intf); }
    void onIntfConfigkelImmediate() override { hear("intfConfigs"); }
  };
  auto const config = Kel::make<Bridging::VlanConfig>(vlan10);
  auto const listener = Kel::make<Listener>(config, heard_);
  expectOneCallbackPerChange({
      {"intfConfig eth1", [&] { config->intfConfigIs(eth1); }},
      {"intfConfig eth1", [&] { config->intfConfigDel(eth1); }},
      {"intfConfig eth2", [&] { config->intfConfigIs(IntfId("eth2")); }},
      {"intfConfig eth2", [&] { config->intfConfigDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"intfConfig eth1", [&] { config->intfConfigNotify(eth1); }},
      {"intfConfigs", [&] { config->intfConfigNotify(); }},
  });
  EXPECT_EQ(config->newIntfConfig(eth1)->intfId(), eth1);
}

TEST_F(EntitiesTest, BridgingIntfConfigIsUntaggedUntilItIsSet) {
  struct Listener : ListenerOn<Bridging::IntfConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onTagged() override { hear("tagged", notifier()->tagged()); }
  };
  auto const config = Kel::make<Bridging::IntfConfig>(eth1);
  auto const listener = Kel::make<Listener>(config, heard_);
  EXPECT_FALSE(config->tagged());
  expectOneCallbackPerChange({{"tagged 1", [&] { config->taggedIs(true); }}});
}

TEST_F(EntitiesTest, AdapterVlanConfig) {
  struct Listener : ListenerOn<AdapterVlanConfig::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onHostKey(PortKey const& key) override { hear("hostKey", key); }
    void onHostKeykelImmediate() override { hear("hostKeys"); }
  };
  auto const config = Kel::make<AdapterVlanConfig>(vlan10);
  auto const listener = Kel::make<Listener>(config, heard_);
  EXPECT_EQ(config->vlanId(), vlan10);
  EXPECT_FALSE(config->hostKey(portKey));
  expectOneCallbackPerChange({
      {"hostKey Vlan10eth1", [&] { config->hostKeyIs(portKey, true); }},
      {"hostKey Vlan10eth1", [&] { config->hostKeyDel(portKey); }},
      {"hostKey Vlan10eth1", [&] { config->hostKeyIs(portKey, true); }},
      {"hostKey Vlan10eth1", [&] { config->hostKeyDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"hostKey Vlan10eth1", [&] { config->hostKeyNotify(portKey); }},
      {"hostKeys", [&] { config->hostKeyNotify(); }},
  });
}

TEST_F(EntitiesTest, PortVlanMapping) {
  struct Listener : ListenerOn<PortVlanMapping::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onPortInfo(IntfId intf) override { hear("portInfo", intf); }
    void onPortInfokelImmediate() override { hear("portInfos"); }
  };
  auto const mapping = Kel::make<PortVlanMapping>();
  auto const listener = Kel::make<Listener>(mapping, heard_);
  expectOneCallbackPerChange({
      {"portInfo eth1", [&] { mapping->portInfoIs(eth1); }},
      {"portInfo eth1", [&] { mapping->portInfoDel(eth1); }},
      {"portInfo eth2", [&] { mapping->portInfoIs(IntfId("eth2")); }},
      {"portInfo eth2", [&] { mapping->portInfoDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"portInfo eth1", [&] { mapping->portInfoNotify(eth1); }},
      {"portInfos", [&] { mapping->portInfoNotify(); }},
  });
  EXPECT_EQ(mapping->newPortInfo(eth1)->intfId(), eth1);
}

TEST_F(EntitiesTest, PortVlanInfo) {
  using Info = PortVlanMapping::PortVlanInfo;
  struct Listener : ListenerOn<Info::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onVlan(VlanId vlan) override { hear("vlan", vlan, notifier()->vlan(vlan)); }
    void onVlankelImmediate() override { hear("vlans"); }
  };
  auto const info = Kel::make<Info>(eth1);
  auto const listener = Kel::make<Listener>(info, heard_);
  expectOneCallbackPerChange({
      {"vlan 10 1", [&] { info->vlanIs(vlan10, true); }},
      {"vlan 10 0", [&] { info->vlanDel(vlan10); }},
      {"vlan 10 1", [&] { info->vlanIs(vlan10, true); }},
      {"vlan 10 0", [&] { info->vlanDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"vlan 10 0", [&] { info->vlanNotify(vlan10); }},
      {"vlans", [&] { info->vlanNotify(); }},
  });
}

TEST_F(EntitiesTest, IgmpHostDir) {
  using Igmp::IgmpHostDir;
  struct Listener : ListenerOn<IgmpHostDir::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIgmpHost(Kel::Name const& name) override { hear("igmpHost", name); }
    void onIgmpHostkelImmediate() override { hear("igmpHosts"); }
  };
  auto const dir = Kel::make<IgmpHostDir>();
  auto const listener = Kel::make<Listener>(dir, heard_);
  expectOneCallbackPerChange({
      {"igmpHost Vlan10eth1", [&] { dir->igmpHostIs(portKey.stringvalue()); }},
      {"igmpHost Vlan10eth1", [&] { dir->igmpHostDel(portKey.stringvalue()); }},
      {"igmpHost Vlan10eth1", [&] { dir->igmpHostIs(portKey.stringvalue()); }},
      {"igmpHost Vlan10eth1", [&] { dir->igmpHostDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"igmpHost Vlan10eth1", [&] { dir->igmpHostNotify(portKey.stringvalue()); }},
      {"igmpHosts", [&] { dir->igmpHostNotify(); }},
  });
  EXPECT_EQ(dir->newIgmpHost("Vlan10eth1")->name(), "Vlan10eth1");
}

TEST_F(EntitiesTest, HostIsFoundByTheTextOfItsPortKey) {
  auto const dir = Kel::make<Igmp::IgmpHostDir>();
  auto const host = dir->igmpHostIs("Vlan10eth1");
  EXPECT_EQ(dir->igmpHost(portKey.stringvalue()), host);
  EXPECT_EQ(host->name(), portKey.stringvalue());
}

TEST_F(EntitiesTest, IgmpHost) {
  using Igmp::IgmpHost;
  struct Listener : ListenerOn<IgmpHost::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onIntfId() override { hear("intfId", notifier()->intfId()); }
    void onVlanId() override { hear("vlanId", notifier()->vlanId()); }
    void onUseMux() override { hear("useMux", notifier()->useMux()); }
    void onTagged() override { hear("tagged", notifier()->tagged()); }
    void onExternalPam() override { hear("externalPam", notifier()->externalPam()); }
    void onPam() override { hear("pam", notifier()->pam() ? "set" : "null"); }
    void onIgmpVersion() override { hear("igmpVersion", notifier()->igmpVersion()); }
    void onDeviceName() override { hear("deviceName", notifier()->deviceName()); }
    void onEnabled() override { hear("enabled", notifier()->enabled()); }
    void onConfigVersion() override { hear("configVersion", notifier()->configVersion()); }
    void onIntfConfigVersion() override {
      hear("intfConfigVersion", notifier()->intfConfigVersion());
    }
    void onBlocked() override { hear("blocked", notifier()->blocked()); }
    void onDirection() override { hear("direction", notifier()->direction()); }
    void onV3group(IpAddr address) override { hear("v3group", address); }
    void onV3groupkelImmediate() override { hear("v3groups"); }
  };
  auto const host = Kel::make<IgmpHost>("Vlan10eth1");
  auto const listener = Kel::make<Listener>(host, heard_);
  auto const multiplexer = Kel::make<Wirex::Multiplexer>(eth1, nullptr);
  auto const pam = Kel::make<Wirex::VlanPam>("10", multiplexer);
  expectOneCallbackPerChange({
      {"intfId eth1", [&] { host->intfIdIs(eth1); }},
      {"vlanId 10", [&] { host->vlanIdIs(10); }},
      {"useMux 1", [&] { host->useMuxIs(true); }},
      {"tagged 1", [&] { host->taggedIs(true); }},
      {"externalPam 1", [&] { host->externalPamIs(true); }},
      {"pam set", [&] { host->pamIs(pam); }},
      {"pam null", [&] { host->pamIs(nullptr); }},
      {"igmpVersion 2", [&] { host->igmpVersionIs(IgmpVersion::v2); }},
      {"deviceName et1", [&] { host->deviceNameIs("et1"); }},
      {"enabled 1", [&] { host->enabledIs(true); }},
      {"configVersion 1", [&] { host->configVersionIs(1); }},
      {"intfConfigVersion 2", [&] { host->intfConfigVersionIs(2); }},
      {"blocked 1", [&] { host->blockedIs(true); }},
      {"direction egress", [&] { host->directionIs(AllowedTrafficDirection::egress); }},
      {"v3group 239.1.1.1", [&] { host->v3groupIs(group); }},
      {"v3group 239.1.1.1", [&] { host->v3groupDel(group); }},
      {"v3group 239.1.1.1", [&] { host->v3groupIs(group); }},
      {"v3group 239.1.1.1", [&] { host->v3groupDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"v3group 239.1.1.1", [&] { host->v3groupNotify(group); }},
      {"v3groups", [&] { host->v3groupNotify(); }},
  });
  EXPECT_EQ(host->newV3group(group)->group(), group);
}

TEST_F(EntitiesTest, NewHostSpeaksVersion3AndIsOtherwiseBlank) {
  auto const host = Kel::make<Igmp::IgmpHost>("Vlan10eth1");
  EXPECT_EQ(host->igmpVersion(), IgmpVersion::v3);
  EXPECT_EQ(host->vlanId(), 0);
  EXPECT_EQ(host->intfId(), IntfId());
  EXPECT_EQ(host->deviceName(), "");
  EXPECT_EQ(host->pam(), nullptr);
  EXPECT_EQ(host->direction(), AllowedTrafficDirection::both);
  EXPECT_EQ(host->configVersion(), 0u);
  EXPECT_EQ(host->intfConfigVersion(), 0u);
  EXPECT_FALSE(host->useMux() || host->tagged() || host->externalPam());
  EXPECT_FALSE(host->enabled() || host->blocked());
  EXPECT_TRUE(host->v3group().empty());
}

struct RecordListener : ListenerOn<Igmp::IgmpV3GroupRecord::NotifieeConst> {
  using ListenerOn::ListenerOn;
  void onFilterMode() override { hear("filterMode", notifier()->filterMode()); }
  void onSource() override { hear("source", notifier()->source() ? "set" : "null"); }
};

TEST_F(EntitiesTest, IgmpV3GroupRecord) {
  auto const record = Kel::make<Igmp::IgmpV3GroupRecord>(group);
  auto const listener = Kel::make<RecordListener>(record, heard_);
  EXPECT_EQ(record->group(), group);
  EXPECT_EQ(record->filterMode(), IgmpV3GroupRecordType::modeIsInclude);
  expectOneCallbackPerChange({
      {"filterMode MODE_IS_EXCLUDE",
       [&] { record->filterModeIs(IgmpV3GroupRecordType::modeIsExclude); }},
      {"source set", [&] { record->sourceIs(); }},
      {"source null", [&] { record->sourceDel(); }},
  });
}

TEST_F(EntitiesTest, SourceListOfARecordIsMadeOnDemandAndThenKept) {
  auto const record = Kel::make<Igmp::IgmpV3GroupRecord>(group);
  EXPECT_EQ(record->source(), nullptr);
  auto const sources = record->sourceIs();
  EXPECT_NE(sources, nullptr);
  EXPECT_EQ(record->source(), sources);
  EXPECT_EQ(record->sourceIs(), sources);
}

TEST_F(EntitiesTest, SourceListIsReturnedEvenIfAHandlerHasDroppedItsRecord) {
  struct Dropper : ListenerOn<Igmp::IgmpV3GroupRecord::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onSource() override { drop(); }
    std::function<void()> drop;
  };
  auto record = Kel::make<Igmp::IgmpV3GroupRecord>(group);
  auto dropper = Kel::make<Dropper>(record, heard_);
  dropper->drop = [&] {
    record = nullptr;
    dropper = nullptr;
  };
  EXPECT_EQ(record->sourceIs()->references(), 1u);
}

TEST_F(EntitiesTest, IgmpV3HostGroupSourceList) {
  using Igmp::IgmpV3HostGroupSourceList;
  struct Listener : ListenerOn<IgmpV3HostGroupSourceList::NotifieeConst> {
    using ListenerOn::ListenerOn;
    void onSourceIp(IpAddr source) override { hear("sourceIp", source); }
    void onSourceIpkelImmediate() override { hear("sourceIps"); }
  };
  auto const sources = Kel::make<IgmpV3HostGroupSourceList>();
  auto const listener = Kel::make<Listener>(sources, heard_);
  EXPECT_EQ(sources->sourceIp(reporter), 0);
  expectOneCallbackPerChange({
      {"sourceIp 10.0.0.1", [&] { sources->sourceIpIs(reporter, 1); }},
      {"sourceIp 10.0.0.1", [&] { sources->sourceIpDel(reporter); }},
      {"sourceIp 10.0.0.1", [&] { sources->sourceIpIs(reporter, 1); }},
      {"sourceIp 10.0.0.1", [&] { sources->sourceIpDelAll(); }},
  });
  expectOneCallbackPerCall({
      {"sourceIp 10.0.0.1", [&] { sources->sourceIpNotify(reporter); }},
      {"sourceIps", [&] { sources->sourceIpNotify(); }},
  });
}

TEST_F(EntitiesTest, SourceListMayBeRefilledWithTheKeysOfAnotherCollection) {
  auto const sources = Kel::make<Igmp::IgmpV3HostGroupSourceList>();
  auto const other = Kel::make<Igmp::IgmpV3HostGroupSourceList>();
  sources->sourceIpIs(IpAddr(10, 0, 0, 2), 1);
  other->sourceIpIs(reporter, 7);
  sources->sourceIpRefill(other->sourceIp(), 1);
  EXPECT_EQ(sources->sourceIp().size(), 1u);
  EXPECT_EQ(sources->sourceIp(reporter), 1);
}

TEST_F(EntitiesTest, IgmpHostStatusDirHasAName) {
  EXPECT_EQ(Kel::make<Igmp::IgmpHostStatusDir>("proxy")->name(), "proxy");
}

TEST_F(EntitiesTest, IgmpHostStatusDirTellsOfItsEntriesAlsoWhenAllGo) {
  struct Listener : Igmp::IgmpHostStatusDir::NotifieeConst {
    explicit Listener(Kel::Ptr<Igmp::IgmpHostStatusDir const> dir) { watch(std::move(dir)); }
    void onIgmpHostStatus(Kel::Name const& host) override {
      heard.push_back(std::string(host.stringValue().view()));
    }
    void onIgmpHostStatuskelImmediate() override { heard.push_back("all"); }
    std::vector<std::string> heard;
  };
  auto const dir = Kel::make<Igmp::IgmpHostStatusDir>("proxy");
  auto const listener = Kel::make<Listener>(dir);
  dir->igmpHostStatusIs("a");
  dir->igmpHostStatusIs("b");
  dir->igmpHostStatusNotify("b");
  dir->igmpHostStatusNotify();
  EXPECT_THAT(listener->heard, testing::ElementsAre("a", "b", "b", "all"));
  listener->heard.clear();
  dir->igmpHostStatusDelAll();
  EXPECT_TRUE(dir->igmpHostStatus().empty());
  EXPECT_THAT(listener->heard, testing::UnorderedElementsAre("a", "b"));
}

TEST_F(EntitiesTest, WhatIsReadThroughAConstHandleIsConst) {
  using Topology::Library::Vlan::LibVlanState;
  using Topology::Library::Vlan::TopoVlan;
  auto const topology = Kel::make<LibVlanState>();
  topology->topoVlanIs(Bridging::VlanId(10));
  Kel::Ptr<LibVlanState const> const read = topology;
  static_assert(
      std::is_same_v<decltype(read->topoVlan(Bridging::VlanId(10))), Kel::Ptr<TopoVlan const>>);
  static_assert(
      std::is_same_v<decltype(topology->topoVlan(Bridging::VlanId(10))), Kel::Ptr<TopoVlan>>);
  EXPECT_EQ(read->topoVlan(Bridging::VlanId(10)), topology->topoVlan(Bridging::VlanId(10)));
}

}  // namespace
