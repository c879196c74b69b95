#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/proxy/ControlObserver.h"
#include "tests/proxy/ProxiedSwitch.h"

/// Who watches the hosts, the ports, the keys or the packet access may change the switch in the
/// middle of what the proxy is doing to them.
namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

/// A switch with a primary VLAN, a secondary one, and a port that is in both and connected.
struct BusySwitch : ProxiedSwitch {
  BusySwitch() {
    desires("swp1");
    isolates(20, 10);
    serves(10, {"swp1", "swp2"});
    serves(20, {"swp1", "swp3"});
    forgets(20);
  }

  /// What is there says which ports are served, whoever has interfered.
  void expectInStep() const {
    if (!proxy) {
      EXPECT_EQ(hostNames(), Lines());
      return;
    }
    auto const entry = config->contextConfig(VlanId(10));
    bool const isProxied = entry && entry->proxyEnabled() && querier(10);
    EXPECT_EQ(static_cast<bool>(vlanSm(10)), isProxied);
    EXPECT_EQ(adapters(), isProxied ? Lines{"10"} : Lines());
    EXPECT_EQ(keysOf(proxy->adapterSm()), adapters());
    EXPECT_TRUE(!vlanSm(20) || querier(20));

    std::set<std::string> hostsExpected;
    std::map<std::string, Lines> vlansOf;
    for (VlanId const vlan : {VlanId(10), VlanId(20)}) {
      auto const machine = proxy->vlanSm(vlan);
      if (!machine) continue;
      SCOPED_TRACE("VLAN " + textOf(vlan));
      Lines members, served;
      for (auto const& name : keysOf(topology->topoVlan(vlan)->port())) {
        members.push_back(name);
        IntfId const intf(name.c_str());
        if (!kernel->intfStatusAndDeviceName().contains(intf)) continue;
        served.push_back(name);
        PortKey const portKey(vlan, intf);
        hostsExpected.insert(textOf(portKey));
        vlansOf[name].push_back(textOf(vlan));
        auto const portSm = machine->portSm(intf);
        if (!portSm) continue;
        EXPECT_EQ(portSm->igmpHost(), hosts->igmpHost(portKey.hostName())) << name;
        EXPECT_EQ(portSm->igmpHost()->pam(), proxy->pamManager()->multiplexer(intf)
                                                 ? proxy->pamManager()->portVlanPam(portKey)
                                                 : nullptr)
            << name;
        auto const adapter = machine->adapterConfig();
        EXPECT_TRUE(!adapter || adapter->hostKey(portKey)) << name;
      }
      EXPECT_EQ(keysOf(machine->portSm()), served);
      EXPECT_EQ(keysOf(machine->proxyTopoPort()), members);
    }
    EXPECT_EQ(hostNames(), Lines(hostsExpected.begin(), hostsExpected.end()));
    Lines ports, open;
    for (auto const& [name, vlans] : vlansOf) {
      ports.push_back(name);
      EXPECT_EQ(vlansOfPort(name.c_str()), vlans) << name;
      if (desired->intfDesired(IntfId(name.c_str()))) open.push_back(name);
    }
    EXPECT_EQ(mappedPorts(), ports);
    EXPECT_EQ(devicesOpen(), open);
    for (auto const& name : hostKeys(10))
      EXPECT_TRUE(!name.starts_with("Vlan10") || hostsExpected.contains(name)) << name;
  }
};

struct Action {
  char const* name;
  void (*run)(BusySwitch&);

  friend std::ostream& operator<<(std::ostream& out, Action const& action) {
    return out << action.name;
  }
};

/// What makes the proxy write.
Action const causes[] = {
    {"PortJoins",
     [](BusySwitch& on) {
       on.kernelHas("swp4");
       on.joins(10, "swp4");
     }},
    {"PortLeaves", [](BusySwitch& on) { on.leaves(10, "swp1"); }},
    {"KernelLosesPort", [](BusySwitch& on) { on.kernelLoses("swp1"); }},
    {"KernelHasPortAgain",
     [](BusySwitch& on) {
       on.kernelLoses("swp1");
       on.kernelHas("swp1");
     }},
    {"VlanIsSwitchedOff", [](BusySwitch& on) { on.proxies(10, false); }},
    {"VlanIsSwitchedOffAndOn",
     [](BusySwitch& on) {
       on.proxies(10, false);
       on.proxies(10);
     }},
    {"QuerierGoes", [](BusySwitch& on) { on.querierDel(10); }},
    {"QuerierComesBack",
     [](BusySwitch& on) {
       on.querierDel(10);
       if (!on.querier(10)) on.querierIs(10);
     }},
    {"SecondaryQuerierComesBack",
     [](BusySwitch& on) {
       on.querierDel(20);
       if (!on.querier(20)) on.querierIs(20);
     }},
    {"SecondaryBecomesNormal", [](BusySwitch& on) { on.isolatesNot(20); }},
    {"PacketAccessGoesAndComes",
     [](BusySwitch& on) {
       on.desiresNot("swp1");
       on.desires("swp1");
     }},
    {"PortIsReplaced",
     [](BusySwitch& on) {
       auto const other = on.topo(10)->newPort(IntfId("swp1"));
       other->blockedIs(true);
       other->allowedTrafficDirectionIs(Direction::none);
       on.topo(10)->portIs(other);
     }},
    {"QuerierChangesItsVersion",
     [](BusySwitch& on) {
       auto const protocol = Kel::make<ProxiedSwitch::ProtocolConfig>();
       protocol->querierVersionIs(IgmpVersion::v1);
       on.querier(10)->gmpQuerierConfigIs(protocol);
       protocol->querierVersionIs(IgmpVersion::v2);
     }},
    {"ProxyStops", [](BusySwitch& on) { on.stop(); }},
};

/// What somebody does in the middle of it.
Action const actions[] = {
    {"PortLeaves", [](BusySwitch& on) { on.leaves(10, "swp1"); }},
    {"SecondaryPortLeaves", [](BusySwitch& on) { on.leaves(20, "swp1"); }},
    {"EveryPortLeaves",
     [](BusySwitch& on) {
       on.topo(10)->portDelAll();
       on.topo(20)->portDelAll();
     }},
    {"AnotherPortJoins",
     [](BusySwitch& on) {
       on.kernelHas("swp5");
       on.joins(10, "swp5");
     }},
    {"KernelLosesPort", [](BusySwitch& on) { on.kernelLoses("swp1"); }},
    {"KernelLosesAll", [](BusySwitch& on) { on.kernel->intfStatusAndDeviceNameDelAll(); }},
    {"VlanIsSwitchedOff", [](BusySwitch& on) { on.proxies(10, false); }},
    {"ConfigurationGoes", [](BusySwitch& on) { on.forgets(10); }},
    {"QuerierGoes", [](BusySwitch& on) { on.querierDel(10); }},
    {"VlanIsSwitchedOn", [](BusySwitch& on) { on.proxies(10); }},
    {"QuerierComes",
     [](BusySwitch& on) {
       if (!on.querier(10)) on.querierIs(10);
     }},
    {"SecondaryQuerierGoes", [](BusySwitch& on) { on.querierDel(20); }},
    {"SecondaryBecomesNormal", [](BusySwitch& on) { on.isolatesNot(20); }},
    // The machines of the port must be in their places to hear of it.
    {"PacketAccessGoes",
     [](BusySwitch& on) {
       if (on.portSm(10, "swp1") && on.portSm(20, "swp1")) on.desiresNot("swp1");
     }},
    {"PortIsReplaced",
     [](BusySwitch& on) {
       if (!on.port(10, "swp1")) return;
       auto const other = on.topo(10)->newPort(IntfId("swp1"));
       other->blockedIs(true);
       on.topo(10)->portIs(other);
     }},
    {"ProxyStops", [](BusySwitch& on) { on.stop(); }},
    {"PortLeavesAndJoins",
     [](BusySwitch& on) {
       on.leaves(10, "swp1");
       on.joins(10, "swp1");
     }},
    {"KernelLosesPortAndHasIt",
     [](BusySwitch& on) {
       on.kernelLoses("swp1");
       on.kernelHas("swp1");
     }},
    {"VlanIsSwitchedOffAndOn",
     [](BusySwitch& on) {
       on.proxies(10, false);
       on.proxies(10);
     }},
    {"QuerierIsReplaced",
     [](BusySwitch& on) {
       on.querierDel(10);
       on.querierIs(10);
     }},
    {"SecondaryQuerierIsReplaced",
     [](BusySwitch& on) {
       on.querierDel(20);
       on.querierIs(20);
     }},
};

class ControlReentrancy : public ::testing::TestWithParam<std::tuple<Action, Action>> {};

std::string nameOf(::testing::TestParamInfo<std::tuple<Action, Action>> const& info) {
  return std::string(std::get<0>(info.param).name) + "While" + std::get<1>(info.param).name;
}

/// Runs the cause once for each of its notifications, and the action inside that one.
TEST_P(ControlReentrancy, LeavesTheProxyInStep) {
  Action const& action = std::get<0>(GetParam());
  Action const& cause = std::get<1>(GetParam());
  for (int nth = 1;; ++nth) {
    BusySwitch on;
    on.start();
    on.expectInStep();
    int heard = 0;
    std::string moment;
    ControlObserver observer([&](std::string const& text) {
      if (++heard != nth) return;
      moment = text;
      action.run(on);
    });
    observer.watch(on.hosts);
    observer.watch(on.proxy->portVlanMap());
    observer.watch(on.adapterConfig(10));
    observer.watch(on.proxy->pamManager());
    cause.run(on);
    SCOPED_TRACE("in notification " + std::to_string(nth) + ", " + moment);
    on.expectInStep();
    if (heard < nth) {
      EXPECT_GT(nth, 1) << "nothing was notified";
      return;
    }
    if (HasFailure()) return;
    observer.leaves();
    on.stop();
    EXPECT_EQ(on.hostNames(), Lines());
  }
}

INSTANTIATE_TEST_SUITE_P(, ControlReentrancy,
                         ::testing::Combine(::testing::ValuesIn(actions),
                                            ::testing::ValuesIn(causes)),
                         nameOf);

TEST(ControlReentrancyOfAVlan, ThatGoesWhileItMakesAHostAddsNoKey) {
  BusySwitch on;
  on.start();
  ControlObserver observer([&](std::string const& text) {
    if (text == "+host Vlan20swp4") on.querierDel(20);
  });
  observer.watch(on.hosts);
  on.kernelHas("swp4");
  on.joins(20, "swp4");
  EXPECT_FALSE(on.vlanSm(20));
  EXPECT_THAT(on.hostNames(), ::testing::ElementsAre("Vlan10swp1", "Vlan10swp2"));
  EXPECT_THAT(on.hostKeys(10), ::testing::Not(::testing::Contains("Vlan20swp4")));
}

TEST(ControlReentrancyOfAVlan, ThatIsToGoWhileAPortIsDecidedGoesAfterwards) {
  BusySwitch on;
  on.start();
  bool stayed = false;
  ControlObserver observer([&](std::string const& text) {
    if (text != "+host Vlan20swp4") return;
    on.querierDel(20);
    stayed = static_cast<bool>(on.vlanSm(20));
  });
  observer.watch(on.hosts);
  on.kernelHas("swp4");
  on.joins(20, "swp4");
  EXPECT_TRUE(stayed);
  EXPECT_FALSE(on.vlanSm(20));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
