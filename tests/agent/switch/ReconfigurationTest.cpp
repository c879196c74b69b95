#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/agent/Addresses.h"
#include "tests/agent/switch/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using Bridging::AllowedTrafficDirection;
using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using testing::Contains;
using testing::IsEmpty;
using Wirex::IntfId;

std::string const interfaces = "[[interface]]\nname = \"swp[1-4]\"\n";

std::string vlan(int id, std::string const& members, std::string const& more = "") {
  return message("[[vlan]]\nid = ", id, "\ninterfaces = [", members, "]\n", more, "\n");
}

std::string const queried = "querier = { igmp-version = 3 }";

/// Everything of a switch that a configuration is to bring about, as lines of text.
std::set<std::string> outcome(SwitchUnderTest& under) {
  std::set<std::string> lines;
  SwitchEntities const& entities = under->entities();
  for (auto const& [name, host] : entities.hosts->igmpHost()) {
    Igmp::HostSettings const& settings = host->settings();
    std::string const start = message(name, ' ');
    lines.insert(message(start, host->intfId(), ' ', host->vlanId(), " v", host->igmpVersion(),
                         host->blocked() ? " blocked " : " ", host->direction(),
                         host->enabled() ? " enabled" : "", host->pam() ? " pam" : "", " from ",
                         settings.sourceAddress, " robustness ", +settings.robustnessVariable,
                         " mtu ", settings.mtu, settings.reportsUnasked ? " unasked" : "",
                         settings.macAddress == Wirex::MacAddress() ? " no MAC" : ""));
    for (auto const& [address, record] : host->v3group())
      lines.insert(message(start, address, ' ', under.record(message(name), address)));
  }
  for (auto const& [id, role] : entities.privateVlans->secondaryVlan())
    lines.insert(message("role of ", id, ": ", role));
  for (auto const& [id, status] : entities.snoopingStatus->contextStatus())
    for (auto const& [address, learned] : status->group())
      for (auto const& [intf, port] : learned->intf())
        for (auto const& [reporter, membership] : port->membership())
          lines.insert(message("learned in ", id, ": ", address, ' ', intf, ' ', reporter));
  for (auto const& [id, status] : entities.snoopingStatus->contextStatus())
    lines.insert(message("status of ", id));
  for (auto const& [id, config] : entities.snoopingConfig->contextConfig())
    lines.insert(message("entry of ", id, config->proxyEnabled() ? " on" : " off"));
  for (auto const& [name, querier] : entities.queriers->querierConfig())
    lines.insert(message("querier ", name, " v", querier->gmpQuerierConfig()->querierVersion()));
  for (auto const& [id, config] : entities.bridging->vlanConfig())
    for (auto const& [intf, member] : config->intfConfig())
      lines.insert(message("member of ", id, ": ", intf, member->tagged() ? " tagged" : ""));
  for (auto const& [id, topoVlan] : entities.topology->topoVlan())
    for (auto const& [intf, port] : topoVlan->port())
      lines.insert(message("port of ", id, ": ", intf, port->blocked() ? " blocked " : " ",
                           port->allowedTrafficDirection()));
  for (auto const& [intf, device] : entities.kernelIntfs->intfStatusAndDeviceName())
    lines.insert(message("kernel has ", intf, " as ", device.deviceIndex));
  for (auto const& [intf, desired] : entities.desiredIntfs->intfDesired())
    lines.insert(message("desired: ", intf, ' ', desired));
  for (auto const& [intf, port] : under->ports())
    for (auto const [id, snooped] : port.vlan())
      lines.insert(message("heard: ", intf, " in ", id, " for ", snooped.learning->vlanId(),
                           " lives ", snooped.learning->policy().groupMembershipInterval().count(),
                           port.receives() ? "" : " deaf",
                           snooped.querier->isQuerier() ? " querier" : ""));
  for (VlanConfig const& config : under->configuration().vlans)
    for (auto const& [intf, why] : under->routerPorts(config.vlanId)->routerPort())
      lines.insert(message("router port of ", config.vlanId, ": ", intf, ' ', why.configured));
  return lines;
}

// ---- One change at a time

class ReconfigurationTest : public testing::Test {
 protected:
  void start(std::string const& text) {
    under.configure(configurationIn(interfaces + text));
    under.works({"swp1", "swp2", "swp3", "swp4"});
  }
  void change(std::string const& text) { under.configure(configurationIn(interfaces + text)); }
  void join(std::string const& port) {
    under.hear(port, FrameBuilder::reportV3({isIn(group, {a})}));
  }

  SwitchUnderTest under{Configuration()};
};

TEST_F(ReconfigurationTest, SameConfigurationChangesNothing) {
  std::string const text = vlan(10, R"("swp1", "swp2")",
                                queried +
                                    "\nsend-query = true\n"
                                    "querier-source = \"10.0.0.9\"\n"
                                    "static-bridge-mrouter-interface = [\"swp2\"]") +
                           vlan(20, R"("swp3")",
                                queried +
                                    "\nprivate = { type = \"isolated\", "
                                    "primary = 10 }");
  start(text);
  join("swp1");
  under.pass(40s);
  under.takeRecords("swp2");
  std::size_t const sent = under.framesSent("swp2");
  auto const before = Kel::mutationCount();
  change(text);
  EXPECT_EQ(Kel::mutationCount(), before);
  EXPECT_EQ(under.framesSent("swp2"), sent);
}

TEST_F(ReconfigurationTest, LearnedMembershipStaysWhereNothingChanges) {
  start(vlan(10, R"("swp1", "swp2")", queried));
  join("swp1");
  change(vlan(10, R"("swp1", "swp2", "swp3")", queried) + vlan(30, R"("swp4")", queried));
  EXPECT_EQ(under.record("Vlan10swp2", group), "include 192.0.2.1");
  EXPECT_EQ(under.record("Vlan10swp3", group), "include 192.0.2.1");
  EXPECT_EQ(under.record("Vlan30swp4", group), "none");
}

TEST_F(ReconfigurationTest, HostThatStaysIsNotDisturbed) {
  class Disturbances : public Igmp::IgmpHost::NotifieeConst {
   public:
    explicit Disturbances(Kel::Ptr<Igmp::IgmpHost const> host) { watch(std::move(host)); }
    void onPam() override { ++count; }
    void onEnabled() override { ++count; }
    void onConfigVersion() override { ++count; }
    void onBlocked() override { ++count; }
    void onDirection() override { ++count; }
    void onSettings() override { ++count; }
    void onV3group(IpAddr) override { ++count; }
    int count = 0;
  };
  start(vlan(10, R"("swp1", "swp2")", queried) + vlan(20, R"("swp3")", queried));
  join("swp1");
  auto const disturbances = Kel::make<Disturbances>(under.host("Vlan10swp2"));
  change(vlan(10, R"("swp1", "swp2")", queried) +
         vlan(20, R"("swp3", "swp4")", "proxy = false\n" + queried));
  change(vlan(10, R"("swp1", "swp2")", queried));
  EXPECT_EQ(disturbances->count, 0);
}

TEST_F(ReconfigurationTest, MembershipOfAPortThatLeavesIsForgotten) {
  start(vlan(10, R"("swp1", "swp2")", queried));
  join("swp1");
  change(vlan(10, R"("swp2")", queried));
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
  EXPECT_FALSE(under.host("Vlan10swp1"));
}

TEST_F(ReconfigurationTest, PortThatMovesToAnotherVlanIsHeardThere) {
  start(vlan(10, R"("swp1", "swp2")", queried) + vlan(20, R"("swp3")", queried));
  change(vlan(10, R"("swp2")", queried) + vlan(20, R"("swp3", "swp1")", queried));
  join("swp1");
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
  EXPECT_EQ(under.record("Vlan20swp3", group), "include 192.0.2.1");
}

TEST_F(ReconfigurationTest, SettingsReachHostsThatAreThere) {
  start(vlan(10, R"("swp1", "swp2")", queried));
  change(vlan(10, R"("swp1", "swp2")",
              "querier = { igmp-version = 2 }\nrobustness-variable = 3\nreport-on = \"all\"\n"
              "sender-source-address = \"10.0.0.9\""));
  auto const host = under.host("Vlan10swp1");
  EXPECT_EQ(host->igmpVersion(), Igmp::IgmpVersion::v2);
  EXPECT_EQ(host->settings().robustnessVariable, 3);
  EXPECT_EQ(host->settings().sourceAddress, IpAddr(10, 0, 0, 9));
  EXPECT_TRUE(host->settings().reportsUnasked);
}

TEST_F(ReconfigurationTest, RouterPortIsConfiguredAndNoLonger) {
  start(vlan(10, R"("swp1", "swp2")", queried));
  join("swp1");
  change(vlan(10, R"("swp1", "swp2")", queried + "\nstatic-bridge-mrouter-interface = [\"swp2\"]"));
  EXPECT_THAT(under.takeRecords("swp2"), Contains("5 239.1.1.1 192.0.2.1"));
  change(vlan(10, R"("swp1", "swp2")", queried));
  EXPECT_FALSE(under.host("Vlan10swp2")->settings().reportsUnasked);
}

TEST_F(ReconfigurationTest, HostOfAVlanThatGoesLeavesItsGroupsFirst) {
  start(vlan(10, R"("swp1", "swp2")", queried + "\nreport-on = \"all\""));
  join("swp1");
  under.pass(3s);
  under.takeRecords("swp2");
  change("");
  EXPECT_THAT(under.takeRecords("swp2"), Contains("6 239.1.1.1 192.0.2.1"));
  EXPECT_THAT(outcome(under), testing::Each(testing::AnyOf(testing::StartsWith("desired"),
                                                           testing::StartsWith("kernel"))))
      << "beside the interfaces nothing is left";
}

// ---- Private VLANs

std::string const isolated = queried + "\nprivate = { type = \"isolated\", primary = 10 }";

TEST_F(ReconfigurationTest, SecondaryVlanFollowsItsPrimaryThroughOffAndOn) {
  std::string const secondary = vlan(20, R"("swp3")", isolated);
  start(vlan(10, R"("swp1", "swp2")", queried) + secondary);
  join("swp1");
  ASSERT_EQ(under.record("Vlan20swp3", group), "include 192.0.2.1");
  change(vlan(10, R"("swp1", "swp2")", "proxy = false\n" + queried) + secondary);
  EXPECT_EQ(under.record("Vlan20swp3", group), "no host");
  change(vlan(10, R"("swp1", "swp2")", queried) + secondary);
  EXPECT_EQ(under.record("Vlan20swp3", group), "include 192.0.2.1");
  join("swp3");
  EXPECT_EQ(under.record("Vlan10swp2", group), "include 192.0.2.1");
}

TEST_F(ReconfigurationTest, SecondaryVlanGetsTheAdapterOfAPrimaryThatComesToBeProxied) {
  std::string const secondary = vlan(20, R"("swp3")", isolated);
  start(vlan(10, R"("swp1", "swp2")") + secondary);
  join("swp1");
  EXPECT_EQ(under.record("Vlan20swp3", group), "none") << "no adapter fills its records";
  change(vlan(10, R"("swp1", "swp2")", queried) + secondary);
  EXPECT_EQ(under.record("Vlan20swp3", group), "include 192.0.2.1");
  change(vlan(10, R"("swp1", "swp2")") + secondary);
  EXPECT_EQ(under.record("Vlan20swp3", group), "none");
}

TEST_F(ReconfigurationTest, VlanBecomesSecondaryAndNormalAgain) {
  std::string const primary = vlan(10, R"("swp1", "swp2")", queried);
  start(primary + vlan(20, R"("swp3", "swp4")", queried));
  join("swp3");
  ASSERT_EQ(under.record("Vlan20swp4", group), "include 192.0.2.1");
  change(primary + vlan(20, R"("swp3", "swp4")", isolated));
  EXPECT_EQ(under.record("Vlan10swp1", group), "none") << "what was learned elsewhere is forgotten";
  join("swp3");
  EXPECT_EQ(under.record("Vlan10swp1", group), "include 192.0.2.1");
  change(primary + vlan(20, R"("swp3", "swp4")", queried));
  EXPECT_EQ(under.record("Vlan10swp1", group), "none");
  join("swp3");
  EXPECT_EQ(under.record("Vlan20swp4", group), "include 192.0.2.1");
}

TEST_F(ReconfigurationTest, SecondaryVlanThatStopsLeavesNoRecordBehind) {
  std::string const primary = vlan(10, R"("swp1", "swp2")", queried);
  start(primary + vlan(20, R"("swp3")", isolated));
  change(primary + vlan(20, R"("swp3")", "private = { type = \"isolated\", primary = 10 }"));
  join("swp1");
  ASSERT_EQ(under.record("Vlan10swp2", group), "include 192.0.2.1");
  under.hear("swp1", FrameBuilder::reportV3({toIn(group)}));
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
}

// ---- Any change

/// Configurations of a few ports and VLANs, one of which is a primary with two secondary ones.
class RandomConfigurations {
 public:
  explicit RandomConfigurations(unsigned seed) : random_(seed) {}

  static constexpr int ports = 4;
  static inline std::vector<std::uint16_t> const vlans{10, 20, 30, 40};

  Configuration make() {
    Configuration configuration;
    for (int port = 1; port <= ports; ++port) {
      if (oneIn(6)) continue;
      InterfaceConfig interface;
      interface.intfId = IntfId(message("swp", port).c_str());
      interface.blocked = oneIn(8);
      if (oneIn(4)) interface.direction = static_cast<AllowedTrafficDirection>(below(4));
      configuration.interfaces.push_back(interface);
    }
    bool const family = oneIn(2);
    for (std::uint16_t const id : vlans) {
      bool const secondary = family && (id == 20 || id == 30);
      if (oneIn(5) && !(family && id == 10)) continue;
      VlanConfig config;
      config.vlanId = VlanId(id);
      config.proxy = !oneIn(5);
      if (!oneIn(5)) config.querierVersion = static_cast<Igmp::IgmpVersion>(1 + below(3));
      if (secondary) {
        config.privateRole =
            VlanTypeAndPrimaryVlan(oneIn(2) ? VlanType::isolated : VlanType::community, VlanId(10));
        config.proxy = configuration.vlans.front().proxy;
      }
      config.settings.robustnessVariable = 1 + below(3);
      config.settings.sendQuery = oneIn(3);
      config.settings.reportOn = oneIn(3) ? ReportOn::all : ReportOn::mrouters;
      config.settings.senderSourceAddress = IpAddr(below(3));
      configuration.vlans.push_back(config);
    }
    if (!configuration.vlans.empty()) addMembers(configuration);
    return configuration;
  }

 private:
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }
  bool oneIn(unsigned n) { return below(n) == 0; }

  /// Each interface is untagged in one VLAN at most, and in one of a private family at most: there
  /// a membership does not tell in which of them it was heard.
  void addMembers(Configuration& configuration) {
    for (InterfaceConfig const& interface : configuration.interfaces) {
      bool untagged = false;
      bool inFamily = false;
      for (VlanConfig& config : configuration.vlans) {
        bool const ofFamily = config.vlanId < VlanId(40);
        if (oneIn(3) || (ofFamily && inFamily)) continue;
        inFamily |= ofFamily;
        bool const tagged = untagged || oneIn(2);
        untagged |= !tagged;
        config.members.push_back({interface.intfId, tagged, oneIn(4)});
      }
    }
  }

  std::mt19937 random_;
};

/// What a listener on a port in a VLAN reports, whatever the configuration.
FrameBuilder reportOf(int port, std::uint16_t vlan) {
  auto const number = static_cast<unsigned>(port * 100 + vlan);
  IpAddr const reporter(10, 0, static_cast<std::uint8_t>(vlan), static_cast<std::uint8_t>(port));
  std::vector<Record> const records{number % 3 == 0 ? isEx(group, {a}) : isIn(group, {a}),
                                    isIn(IpAddr(239, 2, 2, static_cast<std::uint8_t>(number % 3)),
                                         {b, IpAddr(192, 0, 2, static_cast<std::uint8_t>(port))})};
  return FrameBuilder::reportV3(records).from(reporter);
}

void feed(SwitchUnderTest& under) {
  Configuration const configuration = under->configuration();
  for (VlanConfig const& config : configuration.vlans)
    for (VlanMember const& member : config.members) {
      std::string const port(member.intfId.stringValue().view());
      auto frame = reportOf(port.back() - '0', config.vlanId.value());
      if (member.tagged) frame.vlan(config.vlanId.value());
      under.hear(port, frame);
    }
}

void bringUp(SwitchUnderTest& under) {
  for (int port = 1; port <= RandomConfigurations::ports; ++port)
    under.works({message("swp", port)});
}

class AnyReconfiguration : public testing::TestWithParam<unsigned> {};

TEST_P(AnyReconfiguration, GivesWhatAFreshSwitchGives) {
  RandomConfigurations random(GetParam());
  std::set<std::string> changed;
  std::vector<Configuration> steps;
  for (int step = 0; step < 6; ++step) steps.push_back(random.make());
  {
    SwitchUnderTest under(steps.front());
    bringUp(under);
    for (Configuration const& step : steps) {
      under.configure(step);
      feed(under);
    }
    changed = outcome(under);
  }
  SwitchUnderTest fresh(steps.back());
  bringUp(fresh);
  feed(fresh);
  std::set<std::string> const expected = outcome(fresh);
  std::vector<std::string> missing;
  std::vector<std::string> tooMany;
  std::set_difference(expected.begin(), expected.end(), changed.begin(), changed.end(),
                      std::back_inserter(missing));
  std::set_difference(changed.begin(), changed.end(), expected.begin(), expected.end(),
                      std::back_inserter(tooMany));
  EXPECT_THAT(missing, IsEmpty());
  EXPECT_THAT(tooMany, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnyReconfiguration, testing::Range(0u, 200u));

}  // namespace
}  // namespace Agent
