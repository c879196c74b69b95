#include <algorithm>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/proxy/FlatAdapter.h"
#include "bench/proxy/HandWrittenAdapter.h"
#include "framework/kel/Activity.h"
#include "proxy/ProxyAdapterSm.h"

/// One membership change carried through to the group records of all hosts of a VLAN: arguments
/// are ports, sources and groups. Every port has a host. Sixteen busy groups take turns; in each
/// of them every other port has a reporter in include mode with all the sources, and the one that
/// changes swaps one source for another. The remaining groups have one reporter each.
namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::Proxy::AdapterSm;
using Bridging::IgmpSnooping::Proxy::AdapterVlanConfig;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

using Address = std::uint32_t;
using Sources = std::vector<Address>;

constexpr std::size_t busyGroups = 16;
constexpr Address firstGroup = 0xef010000;
constexpr Address firstSource = 0xc0000200;
constexpr Address reporter = 0x0a000001;

struct Scenario {
  explicit Scenario(benchmark::State const& state)
      : ports(static_cast<std::size_t>(state.range(0))),
        sources(static_cast<std::size_t>(state.range(1))),
        groups(static_cast<std::size_t>(state.range(2))) {
    for (std::size_t i = 0; i < sources; ++i)
      before.push_back(firstSource + static_cast<Address>(i));
    after = before;
    after.back() = firstSource + static_cast<Address>(sources);
    for (std::size_t i = 0; i < ports; ++i) names.push_back("swp" + std::to_string(i));
  }

  static Address group(std::size_t number) { return firstGroup + static_cast<Address>(number); }

  /// Calls `report(group, port, sources)` for the state at the start.
  template <class Report>
  void prepare(Report report) const {
    for (std::size_t number = 0; number < busyGroups; ++number)
      for (std::size_t port = 0; port < ports; port += 2) report(group(number), port, before);
    for (std::size_t number = busyGroups; number < groups; ++number)
      report(group(number), number % ports, {firstSource});
  }

  /// Calls `report` for the changes, one an iteration.
  template <class Report>
  void run(benchmark::State& state, Report report) const {
    std::size_t turn = 0;
    for (auto _ : state) {
      report(group(turn % busyGroups), 0, turn / busyGroups % 2 == 0 ? after : before);
      ++turn;
    }
    state.counters["records"] = benchmark::Counter(static_cast<double>(ports),
                                                   benchmark::Counter::kIsIterationInvariantRate);
  }

  /// What is timed must be right: the record of a port without listener holds the sources of all,
  /// and that of the only other member port those of the port that changes.
  template <class RecordSources>
  void requireRecords(benchmark::State& state, RecordSources recordSources) const {
    std::size_t const onFirst = ports == 4 ? sources : recordSources(2, group(0));
    if (recordSources(1, group(0)) < sources || onFirst < sources)
      state.SkipWithError("a record lacks sources");
  }

  std::size_t ports;
  std::size_t sources;
  std::size_t groups;
  Sources before;
  Sources after;
  std::vector<std::string> names;
};

class EntityVlan {
 public:
  explicit EntityVlan(Scenario const& scenario) {
    for (std::string const& name : scenario.names) intfs_.emplace_back(name.c_str());
    adapter_ =
        Bridging::IgmpSnooping::Proxy::adapterSmFactory(VlanId(10), config_, hosts_, status_);
    for (IntfId const& intf : intfs_) {
      PortKey const key(VlanId(10), intf);
      hosts_->igmpHostIs(key.stringvalue());
      config_->hostKeyIs(key, true);
    }
  }

  void report(Address group, std::size_t port, Sources const& sources) {
    auto const groupStatus = status_->groupIs(IpAddr(group));
    auto const intf = groupStatus->intfIs(intfs_[port]);
    auto const membership = intf->membershipIs(IpAddr(reporter));
    Kel::runActivities();
    membership->filterModeIs(IgmpFilterMode::include);
    for (IpAddr const source : membership->source().keys())
      if (std::find(sources.begin(), sources.end(), source.value()) == sources.end())
        membership->sourceDel(source);
    for (Address const source : sources) membership->sourceIs(IpAddr(source));
    Kel::runActivities();
    status_->newIgmpReportNotify();
  }

  std::size_t recordSources(std::size_t port, Address group) const {
    auto const host = hosts_->igmpHost(PortKey(VlanId(10), intfs_[port]).stringvalue());
    auto const record = host->v3group(IpAddr(group));
    return record ? record->source()->sourceIp().size() : 0;
  }

 private:
  Kel::Ptr<IgmpContextStatus> status_ = Kel::make<IgmpContextStatus>(VlanId(10));
  Kel::Ptr<AdapterVlanConfig> config_ = Kel::make<AdapterVlanConfig>(VlanId(10));
  Kel::Ptr<Igmp::IgmpHostDir> hosts_ = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<AdapterSm> adapter_;
  std::vector<IntfId> intfs_;
};

void membershipChange(benchmark::State& state) {
  Scenario const scenario(state);
  EntityVlan vlan(scenario);
  auto const report = [&](Address group, std::size_t port, Sources const& sources) {
    vlan.report(group, port, sources);
  };
  scenario.prepare(report);
  scenario.run(state, report);
  scenario.requireRecords(
      state, [&](std::size_t port, Address group) { return vlan.recordSources(port, group); });
}

void membershipChangeByHand(benchmark::State& state) {
  Scenario const scenario(state);
  Bench::HandWrittenAdapter adapter(scenario.names);
  auto const report = [&](Address group, std::size_t port, Sources const& sources) {
    adapter.report(group, scenario.names[port], reporter, Bench::HandWrittenAdapter::Mode::include,
                   sources);
  };
  scenario.prepare(report);
  scenario.run(state, report);
  scenario.requireRecords(state, [&](std::size_t port, Address group) {
    return adapter.recordSources(scenario.names[port], group);
  });
}

void membershipChangeFlat(benchmark::State& state) {
  Scenario const scenario(state);
  Bench::FlatAdapter adapter(scenario.ports, scenario.sources + 1, scenario.groups);
  auto const report = [&](Address group, std::size_t port, Sources const& sources) {
    adapter.report(group, port, Bench::FlatAdapter::Mode::include, sources);
  };
  scenario.prepare(report);
  scenario.run(state, report);
  scenario.requireRecords(
      state, [&](std::size_t port, Address group) { return adapter.recordSources(port, group); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (long const groups : {64L, 65536L})
    for (long const ports : {4L, 32L, 256L})
      for (long const sources : {1L, 4L, 64L}) benchmark->Args({ports, sources, groups});
}

BENCHMARK(membershipChange)->Apply(sizes)->ArgNames({"ports", "sources", "groups"});
BENCHMARK(membershipChangeByHand)->Apply(sizes)->ArgNames({"ports", "sources", "groups"});
BENCHMARK(membershipChangeFlat)->Apply(sizes)->ArgNames({"ports", "sources", "groups"});

}  // namespace
