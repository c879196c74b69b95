#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/snooping/SnoopedVlan.h"

/// What a report costs from the parsed record to the hosts' records.
namespace {

using Bench::SnoopedVlan;
using Bench::Sources;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

constexpr IpAddr group(239, 1, 0, 0);
constexpr IpAddr reporter(10, 0, 0, 1);

/// A reporter in include mode allows and blocks the same sources in turn, and keeps one throughout.
void allowAndBlockInTurn(benchmark::State& state, SnoopedVlan& vlan, Sources const& changing) {
  vlan.report(0, reporter, group, IgmpV3GroupRecordType::modeIsInclude, Sources::beyond(changing));
  bool allowed = false;
  for (auto _ : state) {
    vlan.report(
        0, reporter, group,
        allowed ? IgmpV3GroupRecordType::blockOldSources : IgmpV3GroupRecordType::allowNewSources,
        changing);
    allowed = !allowed;
  }
}

/// As many sources change as the argument says. Per source, the cost should not grow.
void reportThatChangesSources(benchmark::State& state) {
  SnoopedVlan vlan(8);
  Sources const changing(static_cast<std::size_t>(state.range(0)));
  allowAndBlockInTurn(state, vlan, changing);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// The same on a port with another reporter in exclude mode, while a second port excludes the
/// sources: the case in which evaluating the port again and again takes counts back.
void reportThatChangesSourcesOfAMixedPort(benchmark::State& state) {
  SnoopedVlan vlan(8);
  Sources const changing(static_cast<std::size_t>(state.range(0)));
  IpAddr const excluding(10, 0, 0, 2);
  vlan.report(0, excluding, group, IgmpV3GroupRecordType::modeIsExclude, Sources(0));
  vlan.report(1, excluding, group, IgmpV3GroupRecordType::modeIsExclude, changing);
  allowAndBlockInTurn(state, vlan, changing);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// A frame of 100 records, each of which allows or blocks one source, from one of as many reporters
/// on the port as the argument says, which include 360 sources each.
void frameOfOneSourceRecordsOnACrowdedPort(benchmark::State& state) {
  SnoopedVlan vlan(4);
  auto const reporters = static_cast<std::uint32_t>(state.range(0));
  Sources const common(360);
  Sources const own = Sources::beyond(common);
  for (std::uint32_t i = 0; i < reporters; ++i)
    vlan.report(0, IpAddr(reporter.value() + i), group, IgmpV3GroupRecordType::modeIsInclude,
                common);
  bool allowed = false;
  for (auto _ : state) {
    for (std::uint32_t record = 0; record < 100; ++record)
      vlan.record(
          0, IpAddr(reporter.value() + record * (reporters / 100)), group,
          allowed ? IgmpV3GroupRecordType::blockOldSources : IgmpV3GroupRecordType::allowNewSources,
          own);
    vlan.publish();
    allowed = !allowed;
  }
}

/// The same, by one reporter that includes as many sources as the argument says.
void frameOfOneSourceRecordsOfALongList(benchmark::State& state) {
  SnoopedVlan vlan(4);
  Sources const common(static_cast<std::size_t>(state.range(0)));
  Sources const own = Sources::beyond(common);
  vlan.report(0, reporter, group, IgmpV3GroupRecordType::modeIsInclude, common);
  for (auto _ : state) {
    for (int record = 0; record < 50; ++record)
      for (auto const type :
           {IgmpV3GroupRecordType::allowNewSources, IgmpV3GroupRecordType::blockOldSources})
        vlan.record(0, reporter, group, type, own);
    vlan.publish();
  }
}

/// A report that says what is known, among as many groups as the argument says.
void reportOfKnownState(benchmark::State& state) {
  SnoopedVlan vlan(8);
  vlan.fillGroups(static_cast<std::uint32_t>(state.range(0)));
  std::uint32_t turn = 0;
  for (auto _ : state) {
    IpAddr const known(SnoopedVlan::firstGroup + turn);
    vlan.report(turn % 8, reporter, known, IgmpV3GroupRecordType::modeIsExclude, Sources(0));
    turn = (turn + 1) % static_cast<std::uint32_t>(state.range(0));
  }
}

/// One lookup and a store, by the standard containers: the least that could keep a membership.
void knownStateYardstick(benchmark::State& state) {
  struct Key {
    std::uint32_t group;
    std::uint32_t port;
    std::uint32_t reporter;
    bool operator==(Key const&) const = default;
  };
  struct Hash {
    std::size_t operator()(Key const& key) const {
      return (key.group * 31ULL + key.port) * 31ULL + key.reporter;
    }
  };
  std::unordered_map<Key, std::int64_t, Hash> deadlines;
  auto const groups = static_cast<std::uint32_t>(state.range(0));
  for (std::uint32_t i = 0; i < groups; ++i)
    deadlines[{SnoopedVlan::firstGroup + i, i % 8, reporter.value()}] = 0;
  std::uint32_t turn = 0;
  std::int64_t now = 0;
  for (auto _ : state) {
    deadlines.find({SnoopedVlan::firstGroup + turn, turn % 8, reporter.value()})->second =
        now + 270'000'000'000;
    benchmark::ClobberMemory();
    turn = (turn + 1) % groups;
    ++now;
  }
}

/// A report that changes one group, among as many other groups as the argument says.
void reportAmongUnchangedGroups(benchmark::State& state) {
  SnoopedVlan vlan(8);
  vlan.fillGroups(static_cast<std::uint32_t>(state.range(0)));
  allowAndBlockInTurn(state, vlan, Sources(1));
}

/// A port of two goes down with half of the groups that the argument says; per group. The hosts'
/// records change too. Per group, the cost should not grow.
void forgettingAPort(benchmark::State& state) {
  SnoopedVlan vlan(2);
  auto const groups = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    vlan.fillGroups(groups);
    state.ResumeTiming();
    vlan.forgetPort(0);
  }
  state.SetItemsProcessed(state.iterations() * groups / 2);
}

BENCHMARK(reportThatChangesSources)->Arg(1)->Arg(16)->Arg(365);
BENCHMARK(reportThatChangesSourcesOfAMixedPort)->Arg(1)->Arg(16)->Arg(365);
BENCHMARK(frameOfOneSourceRecordsOnACrowdedPort)->Arg(100)->Arg(2000);
BENCHMARK(frameOfOneSourceRecordsOfALongList)->Arg(360)->Arg(10800);
BENCHMARK(reportOfKnownState)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(knownStateYardstick)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(forgettingAPort)->Arg(2048)->Arg(16384)->Arg(131072)->Unit(benchmark::kMillisecond);
BENCHMARK(reportAmongUnchangedGroups)->Arg(10)->Arg(1000)->Arg(100000);

}  // namespace
