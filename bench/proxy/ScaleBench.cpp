#include <cstdint>
#include <ctime>
#include <malloc.h>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/interface/CaptureEthDevPams.h"
#include "proxy/ProxySm.h"

/// How long the proxy takes to start on a switch whose configuration is complete, and to stop:
/// arguments are VLANs and ports; every port is a trunk that is in every VLAN, and has a device.
/// Beside it, what plain objects with the same content take in standard containers, without
/// anything that follows changes. `port` is the time for one port of one VLAN, `bytes` its heap.
namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::Proxy::ProxySm;

/// Of this thread's processor time, in seconds.
double now() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double heapInUse() {
  auto const heap = mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

std::string portName(std::size_t port) {
  return "swp" + std::to_string(port);
}

/// What the agent of a switch has made before it starts the proxy.
class Switch {
 public:
  Switch(std::size_t vlans, std::size_t ports) {
    std::vector<Wirex::IntfId> names;
    for (std::size_t port = 0; port < ports; ++port) {
      names.emplace_back(portName(port).c_str());
      kernel_->intfStatusAndDeviceNameIs(
          names.back(), {portName(port).c_str(), static_cast<std::uint32_t>(port + 1)});
      desired_->intfDesiredIs(names.back(), true);
    }
    for (std::size_t number = 1; number <= vlans; ++number) addVlan(number, names);
  }

  Kel::Ptr<ProxySm> proxy() const {
    return Bridging::IgmpSnooping::Proxy::proxySmFactory(config_, topology_, privateVlans_,
                                                         desired_, queriers_, hosts_, kernel_,
                                                         bridging_, status_, timerWheel_);
  }

  std::size_t hosts() const { return hosts_->igmpHost().size(); }

 private:
  void addVlan(std::size_t number, std::vector<Wirex::IntfId> const& ports) {
    VlanId const vlan(static_cast<std::uint16_t>(number));
    auto const topology = topology_->topoVlanIs(vlan);
    auto const bridging = bridging_->vlanConfigIs(vlan);
    for (auto const& port : ports) {
      topology->portIs(port);
      bridging->intfConfigIs(port)->taggedIs(number != 1);
    }
    status_->contextStatusIs(vlan);
    queriers_->querierConfigIs(Kel::format("%d", vlan.value()),
                               Kel::make<Gmp::Igmp::QuerierConfig>());
    config_->contextConfigIs(vlan)->proxyEnabledIs(true);
  }

  Interface::CaptureEthDevPams devices_;
  Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> config_ =
      Kel::make<Bridging::IgmpSnooping::IgmpProtocolConfig>();
  Kel::Ptr<Topology::Library::Vlan::LibVlanState> topology_ =
      Kel::make<Topology::Library::Vlan::LibVlanState>();
  Kel::Ptr<PrivateVlanLib::LibState> privateVlans_ = Kel::make<PrivateVlanLib::LibState>();
  Kel::Ptr<Interface::PamDesiredIntfDir> desired_ =
      Kel::make<Interface::PamDesiredIntfDir>("switch");
  Kel::Ptr<Igmp::QuerierConfigDir> queriers_ = Kel::make<Igmp::QuerierConfigDir>();
  Kel::Ptr<Igmp::IgmpHostDir> hosts_ = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernel_ = Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Bridging::Config> bridging_ = Kel::make<Bridging::Config>();
  Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> status_ =
      Kel::make<Bridging::IgmpSnooping::IgmpProtocolStatus>();
  Kel::Ptr<Horix::TimerWheel> timerWheel_ =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
};

/// The proxy's own objects without the framework.
class PlainProxy {
 public:
  PlainProxy(std::size_t vlans, std::size_t ports) {
    std::vector<std::string> names;
    for (std::size_t port = 0; port < ports; ++port) names.push_back(portName(port));
    for (std::size_t number = 1; number <= vlans; ++number) {
      auto const vlan = static_cast<std::uint16_t>(number);
      auto machine = std::make_unique<VlanMachine>();
      machine->vlan = vlan;
      auto& config = adapterConfigs_[vlan];
      config = std::make_unique<AdapterConfig>();
      config->vlan = vlan;
      for (auto const& name : names) addPort(vlan, name, *machine, *config);
      vlanMachines_.emplace(vlan, std::move(machine));
    }
  }

  std::size_t hosts() const { return hosts_.size(); }

 private:
  struct PacketAccess {
    std::uint16_t vlan = 0;
    std::string port;
  };

  struct Host {
    std::string name;
    std::string port;
    std::uint16_t vlan = 0;
    bool useMux = false;
    bool tagged = false;
    bool externalPam = true;
    bool enabled = true;
    bool blocked = false;
    std::uint8_t version = 3;
    std::uint8_t direction = 0;
    std::string device;
    std::uint32_t configVersion = 1;
    std::uint32_t intfConfigVersion = 1;
    PacketAccess* packetAccess = nullptr;
    std::unordered_map<std::uint32_t, std::unique_ptr<std::string>> groups;
  };

  struct PortMachine {
    std::uint16_t vlan = 0;
    std::string port;
    std::string hostName;
    Host* host = nullptr;
    bool blocked = false;
    std::uint8_t direction = 0;
  };

  struct VlanMachine {
    std::uint16_t vlan = 0;
    std::unordered_map<std::string, std::unique_ptr<PortMachine>> ports;
    std::unordered_set<std::string> watchedPorts;
  };

  struct AdapterConfig {
    std::uint16_t vlan = 0;
    std::unordered_map<std::string, bool> hostKeys;
    std::unordered_map<std::uint32_t, std::unique_ptr<std::string>> groups;
  };

  void addPort(std::uint16_t vlan, std::string const& port, VlanMachine& machine,
               AdapterConfig& config) {
    auto const name = "Vlan" + std::to_string(vlan) + port;
    auto access = std::make_unique<PacketAccess>(PacketAccess{vlan, port});
    auto host = std::make_unique<Host>();
    host->name = name;
    host->port = port;
    host->vlan = vlan;
    host->device = port;
    host->packetAccess = access.get();
    auto portMachine = std::make_unique<PortMachine>();
    portMachine->vlan = vlan;
    portMachine->port = port;
    portMachine->hostName = name;
    portMachine->host = host.get();
    machine.ports.emplace(port, std::move(portMachine));
    machine.watchedPorts.insert(port);
    hosts_.emplace(name, std::move(host));
    packetAccess_.emplace(name, std::move(access));
    vlansOfPorts_[port].emplace(vlan, true);
    config.hostKeys.emplace(name, true);
  }

  std::unordered_map<std::uint16_t, std::unique_ptr<VlanMachine>> vlanMachines_;
  std::unordered_map<std::uint16_t, std::unique_ptr<AdapterConfig>> adapterConfigs_;
  std::unordered_map<std::string, std::unique_ptr<Host>> hosts_;
  std::unordered_map<std::string, std::unique_ptr<PacketAccess>> packetAccess_;
  std::unordered_map<std::string, std::unordered_map<std::uint16_t, bool>> vlansOfPorts_;
};

struct Scale {
  explicit Scale(benchmark::State const& state)
      : vlans(static_cast<std::size_t>(state.range(0))),
        ports(static_cast<std::size_t>(state.range(1))) {}

  double count() const { return static_cast<double>(vlans * ports); }

  std::size_t vlans;
  std::size_t ports;
};

enum class Phase { starting, stopping };

/// Makes and drops what `make` returns, and times one of both.
template <class Make, class Hosts>
void measure(benchmark::State& state, Phase phase, Make make, Hosts hosts) {
  Scale const scale(state);
  for (auto _ : state) {
    double const before = heapInUse();
    double const begin = now();
    auto made = make(scale);
    double const started = now();
    double const bytes = heapInUse() - before;
    if (hosts(made) != scale.vlans * scale.ports) state.SkipWithError("hosts are missing");
    double const stopping = now();
    made = nullptr;
    double const stopped = now();
    state.SetIterationTime(phase == Phase::starting ? started - begin : stopped - stopping);
    state.counters["bytes"] = bytes / scale.count();
  }
  state.counters["port"] = benchmark::Counter(
      scale.count(), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <Phase phase>
void proxy(benchmark::State& state) {
  Scale const scale(state);
  Switch const given(scale.vlans, scale.ports);
  measure(
      state, phase, [&](Scale const&) { return given.proxy(); },
      [&](Kel::Ptr<ProxySm> const&) { return given.hosts(); });
}

template <Phase phase>
void plainObjects(benchmark::State& state) {
  measure(
      state, phase,
      [](Scale const& scale) { return std::make_unique<PlainProxy>(scale.vlans, scale.ports); },
      [](std::unique_ptr<PlainProxy> const& made) { return made->hosts(); });
}

void scales(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"vlans", "ports"})->Unit(benchmark::kMillisecond)->UseManualTime();
  bench->Args({64, 8})->Args({512, 8})->Args({4094, 8})->Args({1000, 48});
}

BENCHMARK(proxy<Phase::starting>)->Name("proxyStarts")->Apply(scales);
BENCHMARK(proxy<Phase::stopping>)->Name("proxyStops")->Apply(scales);
BENCHMARK(plainObjects<Phase::starting>)->Name("plainObjectsStart")->Apply(scales);
BENCHMARK(plainObjects<Phase::stopping>)->Name("plainObjectsStop")->Apply(scales);

}  // namespace
