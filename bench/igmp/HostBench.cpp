#include <cstdint>
#include <malloc.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "framework/kel/Activity.h"
#include "platform/horix/EventLoop.h"
#include "platform/igmp/IgmpHostDirSm.h"
#include "platform/wirex/PortVlanPamManager.h"

/// What the host library costs: a changed record until its report is handed to the device, and a
/// report that a port hears until its host has found that it need not care.
namespace {

using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;
using Bytes = std::vector<std::uint8_t>;

IpAddr group(std::uint32_t number) {
  return IpAddr(0xef010000 + number);
}

/// A device that counts what is sent, and forgets it.
class Sink final : public Wirex::Pam {
 public:
  void outputPktIs(Wirex::Pkt::Ptr pkt) override { bytes += pkt->size(); }

  std::uint64_t bytes = 0;
};

class Manager final : public Wirex::PortVlanPamManager {
 public:
  Manager() : PortVlanPamManager("Bench") {}
  void doRxPkt(Bridging::VlanId /*vlan*/, Wirex::IntfId /*intf*/,
               Wirex::Pkt::PtrConst const& /*pkt*/) override {}
};

/// A host on a port, in virtual time.
class Port {
 public:
  explicit Port(bool reportsUnasked) {
    multiplexer_->devicePamIs(sink_);
    multiplexer_->vlanIs(Bridging::VlanId(10), 0);
    host_->vlanIdIs(10);
    host_->pamIs(pam_);
    host_->enabledIs(true);
    Igmp::HostSettings settings;
    settings.macAddress = {0x02, 0, 0, 0, 0, 0x01};
    settings.reportsUnasked = reportsUnasked;
    host_->settingsIs(settings);
  }

  void exclude(std::uint32_t groups) {
    for (std::uint32_t i = 0; i < groups; ++i) {
      auto const record = host_->v3groupIs(group(i));
      record->sourceIs();
      record->filterModeIs(IgmpV3GroupRecordType::modeIsExclude);
    }
    Kel::runActivities();
  }

  /// Has the group included from `sources` sources, or left.
  void toggle(std::uint32_t number, std::uint32_t sources) {
    if (host_->v3group().contains(group(number))) {
      host_->v3groupDel(group(number));
      return;
    }
    auto const list = host_->v3groupIs(group(number))->sourceIs();
    for (std::uint32_t i = 0; i < sources; ++i) list->sourceIpIs(IpAddr(0x0a000001 + i), 1);
  }

  void pass(Horix::Time time) { loop_.advanceTo(loop_.now() + time); }
  void hears(Bytes const& frame) { pam_->inputPktIs(Wirex::Pkt::PktIs(frame)); }
  void hears(Wirex::Pkt::PtrConst const& pkt) { pam_->inputPktIs(pkt); }

  std::uint64_t bytesSent() const { return sink_->bytes; }

 private:
  Kel::Ptr<Horix::TimerWheel> wheel_ =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Horix::EventLoop loop_{wheel_};
  Wirex::IntfId const intf_{"swp1"};
  Kel::Ptr<Sink> sink_ = Kel::make<Sink>();
  Kel::Ptr<Manager> manager_ = Kel::make<Manager>();
  Kel::Ptr<Wirex::Multiplexer> multiplexer_ = manager_->multiplexerIs(intf_, manager_.get());
  Kel::Ptr<Wirex::VlanPam> pam_ = Kel::make<Wirex::VlanPam>("10", multiplexer_);
  Kel::Ptr<Igmp::IgmpHostDir> hosts_ = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Igmp::IgmpHostDirSm> machine_ = Kel::make<Igmp::IgmpHostDirSm>(
      nullptr, hosts_, Kel::make<Igmp::IgmpHostStatusDir>("bench"), wheel_);
  Kel::Ptr<Igmp::IgmpHost> host_ = hosts_->igmpHostIs("Vlan10swp1");
};

/// Joins and leaves of many groups in turn, as many in a batch and a millisecond as the first
/// argument says, each of as many sources as the second. Repetitions are in it.
void change(benchmark::State& state, bool reportsUnasked) {
  constexpr std::uint32_t groups = 4096;
  Port port(reportsUnasked);
  auto const perBatch = static_cast<std::uint32_t>(state.range(0));
  auto const sources = static_cast<std::uint32_t>(state.range(1));
  std::uint32_t next = 0;
  for (auto _ : state) {
    for (std::uint32_t i = 0; i < perBatch; ++i) port.toggle(next++ % groups, sources);
    Kel::runActivities();
    port.pass(std::chrono::milliseconds(1));
  }
  state.SetItemsProcessed(state.iterations() * perBatch);
  state.counters["bytes"] = benchmark::Counter(static_cast<double>(port.bytesSent()) / perBatch,
                                               benchmark::Counter::kAvgIterations);
}

void changeOnARouterPort(benchmark::State& state) {
  change(state, true);
}

/// The same where nobody is told. What is left is the writing of the records.
void changeOnAnotherPort(benchmark::State& state) {
  change(state, false);
}

/// A general query and its answer, of as many groups as the argument says.
void answer(benchmark::State& state) {
  Bytes const query{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x09, 0x08,
                    0x00, 0x46, 0xc0, 0x00, 0x24, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02, 0x42, 0x11,
                    192,  0,    2,    1,    224,  0,    0,    1,    0x94, 0x04, 0x00, 0x00, 0x11,
                    0x01, 0xec, 0x81, 0x00, 0x00, 0x00, 0x00, 0x02, 0x7d, 0x00, 0x00};
  Port port(false);
  port.exclude(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    port.hears(query);
    port.pass(std::chrono::milliseconds(200));
  }
  if (port.bytesSent() == 0) state.SkipWithError("the query is not answered");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// An IGMPv3 report that the port hears from another host.
void foreignReport(benchmark::State& state) {
  Bytes report{0x01, 0x00, 0x5e, 0x00, 0x00, 0x16, 0x02, 0x00, 0x00, 0x00, 0x00, 0x09, 0x08, 0x00,
               0x46, 0xc0, 0x00, 0x28, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02, 0x42, 0x00, 192,  0,
               2,    2,    224,  0,    0,    22,   0x94, 0x04, 0x00, 0x00, 0x22, 0x00, 0xeb, 0xf9,
               0x00, 0x00, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 239,  1,    0,    1};
  Port port(true);
  port.exclude(1000);
  Wirex::Pkt::PtrConst const pkt = Wirex::Pkt::PktIs(report);
  for (auto _ : state) port.hears(pkt);
}

/// Bytes of heap that a group takes on a port whose host reports unasked, beyond its record.
void bytesPerReportedGroup(benchmark::State& state) {
  constexpr std::uint32_t groups = 10'000;
  auto const heapOf = [](bool reportsUnasked) {
    auto const before = static_cast<double>(mallinfo2().uordblks);
    Port port(reportsUnasked);
    port.exclude(groups);
    port.pass(std::chrono::seconds(10));
    return static_cast<double>(mallinfo2().uordblks) - before;
  };
  for (auto _ : state) state.counters["bytes"] = (heapOf(true) - heapOf(false)) / groups;
}

BENCHMARK(changeOnARouterPort)->Args({1, 1})->Args({64, 1})->Args({64, 16});
BENCHMARK(changeOnAnotherPort)->Args({1, 1})->Args({64, 1})->Args({64, 16});
BENCHMARK(answer)->Arg(100)->Arg(10'000);
BENCHMARK(foreignReport);
BENCHMARK(bytesPerReportedGroup)->Iterations(1);

}  // namespace
