#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/proxy/ControlObserver.h"
#include "tests/proxy/ProxiedSwitch.h"

/// Walks at random over the inputs of a whole proxy, while observers of hosts, attributes, keys,
/// mapping and packet access change inputs from inside of what they hear. After every step the
/// proxy is in the state that the inputs call for.
///
/// IGMPSNOOP_WALKS says how many walks there are. `IGMPSNOOP_WALKS=100000` takes as many minutes as
/// the default takes tenths of a second.
namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

constexpr int stepsOfAWalk = 60;
constexpr char const* ports[] = {"swp1", "swp2", "swp3"};
// A primary VLAN, its secondary, and one by itself.
constexpr std::uint16_t vlans[] = {10, 20, 30};

unsigned numberOfWalks() {
  constexpr unsigned inEveryBuild = 1000;
  char const* const wanted = std::getenv("IGMPSNOOP_WALKS");
  return wanted ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : inEveryBuild;
}

class Walk : ProxiedSwitch {
 public:
  explicit Walk(unsigned seed) : random_(seed) {
    for (auto const vlan : vlans) topo(vlan);
    isolates(20, 10);
    watchers_.watch(hosts);
    begin();
  }
  Walk(Walk const&) = delete;
  Walk& operator=(Walk const&) = delete;
  ~Walk() { watchers_.leaves(); }

  void step() {
    interferences_ = below(4);
    change();
    interferences_ = 0;
    if (!proxy) begin();
  }

  std::string const& story() const { return story_; }

  void expectInStep() const {
    std::set<std::string> hostsExpected;
    std::map<std::string, std::set<std::string>> mappingExpected;
    Lines proxied;
    Lines adapted;
    for (auto const vlan : vlans) {
      bool const isSecondary = privateVlans->secondaryVlan().contains(VlanId(vlan));
      auto const entry = config->contextConfig(VlanId(isSecondary ? 10 : vlan));
      auto const machine = vlanSm(vlan);
      // A secondary VLAN is looked at on its own occasions only, and what was a normal VLAN before
      // keeps the adapter that it has until it goes.
      bool const isProxied = entry && entry->proxyEnabled() && querier(vlan);
      if (!isSecondary) {
        EXPECT_EQ(static_cast<bool>(machine), isProxied) << vlan;
        EXPECT_EQ(static_cast<bool>(adapterConfig(vlan)), isProxied) << vlan;
      }
      if (!machine) continue;
      EXPECT_EQ(machine->querierVlanConfig(), querier(vlan)) << vlan;
      Lines served;
      for (auto const& name : keysOf(topology->topoVlan(VlanId(vlan))->port()))
        if (kernel->intfStatusAndDeviceName().contains(IntfId(name.c_str())))
          served.push_back(name);
      EXPECT_EQ(keysOf(machine->portSm()), served) << vlan;
      EXPECT_EQ(keysOf(machine->proxyTopoPort()), keysOf(topology->topoVlan(VlanId(vlan))->port()));
      for (auto const& name : served) {
        hostsExpected.insert(textOf(key(vlan, name.c_str())));
        mappingExpected[name].insert(textOf(VlanId(vlan)));
        expectHost(*machine, vlan, name.c_str());
      }
      if (adapterConfig(vlan) && machine->adapterConfig() == adapterConfig(vlan))
        expectKeys(vlan, served);
    }
    EXPECT_EQ(hostNames(), Lines(hostsExpected.begin(), hostsExpected.end()));
    EXPECT_EQ(keysOf(proxy->adapterSm()), adapters());
    expectMapping(mappingExpected);
  }

  void expectNothingLeft() {
    watchers_.leaves();
    stop();
    EXPECT_EQ(hostNames(), Lines());
  }

 private:
  void begin() {
    start();
    watchers_.watch(proxy->portVlanMap());
    watchers_.watch(proxy->pamManager());
    watchAdapters();
  }

  void watchAdapters() {
    if (!proxy) return;
    for (auto const [vlan, adapter] : proxy->adapterConfig())
      if (watched_.insert(adapter.get()).second) {
        kept_.push_back(adapter);
        watchers_.watch(adapter);
      }
  }

  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

  void heard(std::string const& what) {
    if (interferences_ == 0 || below(3) != 0) return;
    --interferences_;
    story_ += "\n    at " + what + ':';
    change();
  }

  void note(std::string const& what) { story_ += "\n  " + what; }

  void change() {
    char const* const port = ports[below(std::size(ports))];
    std::uint16_t const vlan = vlans[below(std::size(vlans))];
    std::string const where = std::string(" ") + port + " VLAN " + std::to_string(vlan);
    watchAdapters();
    switch (below(12)) {
      case 0:
      case 1:
        note("kernel has" + where);
        return kernelHas(port);
      case 2:
        note("kernel loses" + where);
        return kernelLoses(port);
      case 3:
      case 4:
        note("joins" + where);
        joins(vlan, port);
        return;
      case 5:
        note("leaves" + where);
        return leaves(vlan, port);
      case 6:
        note("switched on" + where);
        return proxies(vlan);
      case 7:
        note("switched off" + where);
        return proxies(vlan, false);
      case 8:
        note("querier comes" + where);
        if (!querier(vlan)) querierIs(vlan);
        return;
      case 9:
        note("querier goes" + where);
        return querierDel(vlan);
      case 10:
        note("desired or not" + where);
        if (desired->intfDesired(IntfId(port))) return desiresNot(port);
        return desires(port);
      default:
        return changeSeldom(vlan, where);
    }
  }

  void changeSeldom(std::uint16_t vlan, std::string const& where) {
    switch (below(4)) {
      case 0:
        note("forgotten" + where);
        return forgets(vlan);
      case 1:
        note("queriers replaced" + where);
        querierDel(vlan);
        if (!querier(vlan)) querierIs(vlan);
        return;
      case 2:
        note("proxy stops");
        return stop();
      default:
        note("every port leaves" + where);
        return topo(vlan)->portDelAll();
    }
  }

  void expectHost(ProxyVlanSm const& machine, std::uint16_t vlan, char const* port) const {
    auto const name = textOf(key(vlan, port));
    auto const portSm = machine.portSm(IntfId(port));
    auto const found = host(vlan, port);
    if (!portSm || !found) return;
    EXPECT_EQ(portSm->igmpHost(), found) << name;
    EXPECT_TRUE(found->enabled()) << name;
    EXPECT_EQ(found->vlanId(), vlan) << name;
    EXPECT_EQ(found->intfId(), IntfId(port)) << name;
    EXPECT_EQ(found->igmpVersion(), querier(vlan)->gmpQuerierConfig()->querierVersion()) << name;
    auto const manager = proxy->pamManager();
    EXPECT_EQ(found->pam(),
              manager->multiplexer(IntfId(port)) ? manager->portVlanPam(key(vlan, port)) : nullptr)
        << name;
  }

  /// The VLAN's own keys are those of its ports; those of a secondary one may have stayed.
  void expectKeys(std::uint16_t vlan, Lines const& served) const {
    Lines own;
    for (auto const& [portKey, unused] : adapterConfig(vlan)->hostKey())
      if (portKey.vlanId() == VlanId(vlan)) own.push_back(textOf(portKey.intfId()));
    std::sort(own.begin(), own.end());
    EXPECT_EQ(own, served) << vlan;
  }

  void expectMapping(std::map<std::string, std::set<std::string>> const& expected) const {
    Lines mapped, desiredToo;
    for (auto const& [port, inVlans] : expected) {
      mapped.push_back(port);
      EXPECT_EQ(vlansOfPort(port.c_str()), Lines(inVlans.begin(), inVlans.end())) << port;
      if (desired->intfDesired(IntfId(port.c_str()))) desiredToo.push_back(port);
    }
    EXPECT_EQ(mappedPorts(), mapped);
    EXPECT_EQ(devicesOpen(), desiredToo);
    for (auto const [portKey, unused] : proxy->pamManager()->pamCol()->entries())
      EXPECT_TRUE(hosts->igmpHost(portKey.hostName())) << portKey;
  }

  std::mt19937 random_;
  unsigned interferences_ = 0;
  std::string story_;
  std::set<AdapterVlanConfig const*> watched_;
  std::vector<Kel::Ptr<AdapterVlanConfig>> kept_;  // so that no other one takes its address
  ControlObserver watchers_{[this](std::string const& what) { heard(what); }};
};

TEST(ReentrantWalk, EndsInTheStateThatTheInputsCallFor) {
  for (unsigned seed = 1; seed <= numberOfWalks(); ++seed) {
    Walk walk(seed);
    for (int step = 1; step <= stepsOfAWalk; ++step) {
      walk.step();
      walk.expectInStep();
      if (HasFailure()) FAIL() << "walk " << seed << ", step " << step << walk.story();
    }
    walk.expectNothingLeft();
    if (HasFailure()) FAIL() << "walk " << seed << " left something";
  }
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
