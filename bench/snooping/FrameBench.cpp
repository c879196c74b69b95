#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/igmp/wire/FrameWriter.h"
#include "platform/snooping/SnoopingPamManager.h"

/// What a received frame costs from its device to its membership: finding the VLAN and the port,
/// verifying, parsing, learning. The proxy, which hears nothing of a report that repeats known
/// state, is not there.
namespace {

using Bridging::IgmpSnooping::SnoopingPamManager;
using Bridging::IgmpSnooping::VlanLearning;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr Bridging::VlanId vlanId(10);
constexpr IpAddr reporter(10, 0, 0, 1);
constexpr std::uint32_t firstGroup = 0xef020000;
constexpr std::uint32_t groups = 1000;

class Device final : public Wirex::Pam {
 public:
  void outputPktIs(Wirex::Pkt::Ptr /*pkt*/) override {}
};

void append32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
}

/// IS_IN records of consecutive groups, or IS_EX records without sources.
Wirex::Pkt::PtrConst report(std::uint32_t group, std::uint32_t records, std::uint32_t sources) {
  std::vector<std::uint8_t> message{0x22, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(records)};
  for (std::uint32_t i = 0; i < records; ++i) {
    message.insert(message.end(), {static_cast<std::uint8_t>(sources == 0 ? 2 : 1), 0, 0,
                                   static_cast<std::uint8_t>(sources)});
    append32(message, firstGroup + (group + i) % groups);
    for (std::uint32_t source = 0; source < sources; ++source)
      append32(message, 0xc6336401 + source);
  }
  return Igmp::igmpFrame({{2, 0, 0, 0, 0, 1}, reporter}, Igmp::allIgmpv3Routers, message);
}

/// A VLAN with ports that hear.
class Vlan {
 public:
  explicit Vlan(std::uint32_t ports) {
    for (std::uint32_t i = 0; i < ports; ++i) {
      IntfId const intf(("swp" + std::to_string(i)).c_str());
      devices_.push_back(Kel::make<Device>());
      bridging_->vlanConfigIs(vlanId)->intfConfigIs(intf);
      auto const multiplexer = manager_->multiplexerIs(intf, manager_.get());
      multiplexer->devicePamIs(devices_.back());
      manager_->vlanIs(intf, vlanId, {&learning_, &routers_, &querier_});
    }
  }

  void hear(std::size_t port, Wirex::Pkt::PtrConst const& frame) {
    devices_[port]->inputPktIs(frame);
  }

 private:
  Bridging::IgmpSnooping::ReportBatch batch_;
  Kel::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> status_ =
      Kel::make<Bridging::IgmpSnooping::IgmpContextStatus>(vlanId);
  Kel::Ptr<Horix::TimerWheel> timerWheel_ =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  VlanLearning learning_{status_, {}, timerWheel_, batch_};
  Bridging::IgmpSnooping::VlanRouters routers_{
      Kel::make<Bridging::IgmpSnooping::RouterPorts>(vlanId), timerWheel_};
  Bridging::IgmpSnooping::VlanQuerier querier_{learning_, timerWheel_};
  Kel::Ptr<Bridging::Config> bridging_ = Kel::make<Bridging::Config>();
  std::vector<Kel::Ptr<Device>> devices_;
  Kel::Ptr<SnoopingPamManager> manager_ =
      Kel::make<SnoopingPamManager>(bridging_, Kel::make<Interface::DeviceIntfStatusDir>(),
                                    Interface::EthDevSettings{2048, 3, {}});
};

/// Arguments: ports, records of a report, sources of a record. Reports repeat what is known.
void frameOfKnownState(benchmark::State& state) {
  auto const ports = static_cast<std::uint32_t>(state.range(0));
  auto const records = static_cast<std::uint32_t>(state.range(1));
  auto const sources = static_cast<std::uint32_t>(state.range(2));
  Vlan vlan(ports);
  std::vector<Wirex::Pkt::PtrConst> frames;
  for (std::uint32_t group = 0; group < groups; group += records)
    frames.push_back(report(group, records, sources));
  std::size_t turn = 0;
  for (; turn < frames.size(); ++turn) vlan.hear(turn % ports, frames[turn]);
  turn = 0;
  for (auto _ : state) {
    vlan.hear(turn % ports, frames[turn]);
    if (++turn == frames.size()) turn = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(frameOfKnownState)
    ->ArgNames({"ports", "records", "sources"})
    ->ArgsProduct({{4, 32}, {1, 8}, {0, 4}});

}  // namespace
