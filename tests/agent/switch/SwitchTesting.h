#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/Switch.h"
#include "agent/text/Wording.h"
#include "agent/watch/HostRecords.h"
#include "platform/igmp/wire/PacketReader.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "tests/agent/FilterText.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Agent {

/// A switch under a virtual clock, whose ports are fed by hand and whose frames are kept.
class SwitchUnderTest {
 public:
  using Time = Horix::Time;

  explicit SwitchUnderTest(Configuration configuration)
      : loop_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())),
        switch_(std::move(configuration), loop_) {
    devices_.sentIs([this](Wirex::IntfId const& port, Wirex::Bytes frame) {
      sent_[std::string(port.stringValue().view())].emplace_back(frame.begin(), frame.end());
    });
  }

  Switch* operator->() { return &switch_; }
  Switch& operator*() { return switch_; }

  static InterfaceState workingState() {
    InterfaceState state;
    state.present = state.carrier = state.forwarding = true;
    state.kernelIndex = 7;
    state.macAddress = {2, 0, 0, 0, 0, 7};
    state.mtu = 1500;
    return state;
  }

  void state(std::string const& port, InterfaceState const& state) {
    switch_.interfaceStateIs(Wirex::IntfId(port.c_str()), state);
    loop_.endBatch();
  }
  void works(std::vector<std::string> const& ports) {
    for (std::string const& port : ports) state(port, workingState());
  }
  void configure(Configuration configuration) {
    switch_.configurationIs(std::move(configuration));
    loop_.endBatch();
  }
  void hear(std::string const& port, IgmpTest::FrameBuilder const& frame) {
    hearOnly(port, frame);
    loop_.endBatch();
  }
  /// Without ending the batch.
  void hearOnly(std::string const& port, IgmpTest::FrameBuilder const& frame) {
    devices_.receive(Wirex::IntfId(port.c_str()), frame.bytes());
  }
  void pass(Time time) { loop_.advanceTo(loop_.now() + time); }

  Kel::Ptr<Igmp::IgmpHost> host(std::string const& name) {
    return switch_.entities().hosts->igmpHost(name.c_str());
  }

  /// What a host reports for a group: "include 192.0.2.1", "exclude", "none" or "no host".
  std::string record(std::string const& name, Wirex::IpAddr address) {
    auto const found = host(name);
    if (!found) return "no host";
    auto const record = found->v3group(address);
    return filterText(record ? std::optional(filterOf(*record)) : std::nullopt);
  }

  /// The IGMPv3 records that a port has sent since the last call, as "TYPE GROUP SOURCE...".
  std::vector<std::string> takeRecords(std::string const& port) {
    std::vector<std::string> texts;
    for (auto const& frame : std::exchange(sent_[port], {})) {
      auto const ethernet = Igmp::parseEthernet(frame);
      auto const packet = Igmp::parsePacket(*ethernet, Igmp::ReceivePolicy());
      if (!packet) continue;
      auto const* const report = std::get_if<Igmp::ReportV3>(&packet->message);
      if (!report) continue;
      for (Igmp::GroupRecord const& record : report->records) {
        std::string text = message(static_cast<unsigned>(record.type), ' ', record.group);
        for (Wirex::IpAddr const source : record.sources) text += message(' ', source);
        texts.push_back(text);
      }
    }
    return texts;
  }
  std::size_t framesSent(std::string const& port) { return sent_[port].size(); }

 private:
  Interface::CaptureEthDevPams devices_;
  Horix::EventLoop loop_;
  std::map<std::string, std::vector<IgmpTest::ByteVector>> sent_;
  Switch switch_;
};

}  // namespace Agent
