#include <cstdint>
#include <malloc.h>

#include <benchmark/benchmark.h>

#include "bench/snooping/SnoopedVlan.h"

/// Bytes of heap, allocator's overhead included, that one more of something takes: the growth over
/// many of them, divided by their number. Learning, status, adapter and timers are all in it.
namespace {

using Bench::SnoopedVlan;
using Bench::Sources;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

constexpr IpAddr group(239, 1, 0, 0);

IpAddr reporter(std::uint32_t number) {
  return IpAddr(0x0a000001 + number);
}

double heapInUse() {
  return static_cast<double>(mallinfo2().uordblks);
}

/// Counts the heap that `grow` takes, in bytes for each of `count`.
template <class Grow>
void measure(benchmark::State& state, double count, Grow grow) {
  for (auto _ : state) {
    double const before = heapInUse();
    grow();
    state.counters["bytes"] = (heapInUse() - before) / count;
  }
}

void bytesPerGroupWithItsFirstPortAndReporter(benchmark::State& state) {
  SnoopedVlan vlan(1);
  auto const groups = static_cast<std::uint32_t>(state.range(0));
  measure(state, groups, [&] { vlan.fillGroups(groups); });
}

void bytesPerFurtherPortWithAReporter(benchmark::State& state) {
  auto const ports = static_cast<std::uint32_t>(state.range(0));
  SnoopedVlan vlan(ports + 1);
  auto const join = [&](std::uint32_t port, std::uint32_t number) {
    vlan.report(port, reporter(0), IpAddr(SnoopedVlan::firstGroup + number),
                IgmpV3GroupRecordType::modeIsExclude, Sources(0));
  };
  constexpr std::uint32_t groups = 64;
  // Two ports first: from then on every host has its record, which is counted elsewhere.
  for (std::uint32_t number = 0; number < groups; ++number)
    for (std::uint32_t port = 0; port < 2; ++port) join(port, number);
  measure(state, groups * (ports - 1.0), [&] {
    for (std::uint32_t number = 0; number < groups; ++number)
      for (std::uint32_t port = 2; port <= ports; ++port) join(port, number);
  });
}

void bytesPerFurtherReporter(benchmark::State& state) {
  SnoopedVlan vlan(1);
  auto const reporters = static_cast<std::uint32_t>(state.range(0));
  auto const join = [&](std::uint32_t number) {
    vlan.report(0, reporter(number), group, IgmpV3GroupRecordType::modeIsExclude, Sources(0));
  };
  join(0);
  measure(state, reporters, [&] {
    for (std::uint32_t number = 1; number <= reporters; ++number) join(number);
  });
}

void bytesPerSource(benchmark::State& state) {
  SnoopedVlan vlan(1);
  auto const sources = static_cast<std::uint32_t>(state.range(0));
  constexpr std::uint32_t groups = 1024;
  vlan.fillGroups(groups);
  measure(state, double{groups} * sources, [&] {
    for (std::uint32_t number = 0; number < groups; ++number)
      vlan.report(0, reporter(0), IpAddr(SnoopedVlan::firstGroup + number),
                  IgmpV3GroupRecordType::modeIsInclude, Sources(sources));
  });
}

/// Arguments are the sources of each record. The records of one host are counted.
void bytesPerHostRecord(benchmark::State& state) {
  constexpr std::uint32_t groups = 16384;
  constexpr int hosts = 16;
  auto const sources = static_cast<std::uint32_t>(state.range(0));
  auto const mode =
      sources == 0 ? IgmpV3GroupRecordType::modeIsExclude : IgmpV3GroupRecordType::modeIsInclude;
  auto const heapWithHosts = [&](std::size_t ports) {
    double const before = heapInUse();
    SnoopedVlan vlan(ports);
    for (std::uint32_t number = 0; number < groups; ++number)
      vlan.report(0, reporter(0), IpAddr(SnoopedVlan::firstGroup + number), mode, Sources(sources));
    return heapInUse() - before;
  };
  for (auto _ : state)
    state.counters["bytes"] =
        (heapWithHosts(1 + hosts) - heapWithHosts(1)) / (double{hosts} * groups);
}

BENCHMARK(bytesPerGroupWithItsFirstPortAndReporter)->Arg(1000)->Arg(65536)->Iterations(1);
BENCHMARK(bytesPerFurtherPortWithAReporter)->Arg(3)->Arg(31)->Arg(255)->Iterations(1);
BENCHMARK(bytesPerFurtherReporter)->Arg(100)->Arg(10000)->Iterations(1);
BENCHMARK(bytesPerSource)->Arg(1)->Arg(4)->Arg(64)->Iterations(1);
BENCHMARK(bytesPerHostRecord)->Arg(0)->Arg(4)->Iterations(1);

}  // namespace
