#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "platform/horix/EventLoop.h"
#include "platform/igmp/IgmpHostDirSm.h"
#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/PacketReader.h"
#include "platform/wirex/PortVlanPamManager.h"
#include "platform/wirex/VlanPam.h"
#include "tests/platform/igmp/FrameBuilder.h"

/// What the tests of hosts share. A message that a host sends reads "ALLOW(239.1.1.1 10.0.0.1)", an
/// IGMPv3 report as its records one after the other.
namespace IgmpTest {

using Direction = Bridging::AllowedTrafficDirection;
using Igmp::IgmpVersion;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Texts = std::vector<std::string>;

inline IpAddr source(unsigned number) {
  return IpAddr(0x0a000000 + number);
}
inline IpAddr group(unsigned number) {
  return IpAddr(0xef010000 + number);
}
inline std::vector<IpAddr> sources(unsigned first, unsigned last) {
  std::vector<IpAddr> addresses;
  for (unsigned number = first; number <= last; ++number) addresses.push_back(source(number));
  return addresses;
}

inline std::string text(unsigned type, IpAddr group, std::vector<IpAddr> sources) {
  static constexpr char const* names[] = {"?",     "IS_IN", "IS_EX", "TO_IN",
                                          "TO_EX", "ALLOW", "BLOCK"};
  std::ostringstream text;
  text << names[type] << '(' << group;
  for (IpAddr const source : sources) text << ' ' << source;
  text << ')';
  return text.str();
}

/// The text of an IGMPv3 report.
inline std::string report(std::vector<Record> const& records) {
  std::string whole;
  for (Record const& record : records) {
    if (!whole.empty()) whole += ' ';
    whole += text(record.type, record.group, record.sources);
  }
  return whole;
}
inline std::string older(char const* kind, IpAddr group) {
  std::ostringstream text;
  text << kind << '(' << group << ')';
  return text.str();
}
inline std::string v1Report(IpAddr group) {
  return older("v1", group);
}
inline std::string v2Report(IpAddr group) {
  return older("v2", group);
}
inline std::string leave(IpAddr group) {
  return older("leave", group);
}

/// A message that was sent.
struct Sent {
  Horix::Time time;
  Igmp::Packet packet;  // views the frame
  ByteVector frame;

  std::vector<Record> records() const {
    std::vector<Record> records;
    if (auto const* const v3 = std::get_if<Igmp::ReportV3>(&packet.message))
      for (Igmp::GroupRecord const& each : v3->records)
        records.push_back(
            record(each.type, each.group, {each.sources.begin(), each.sources.end()}));
    return records;
  }

  std::string text() const {
    if (auto const* const v1 = std::get_if<Igmp::ReportV1>(&packet.message))
      return v1Report(v1->group);
    if (auto const* const v2 = std::get_if<Igmp::ReportV2>(&packet.message))
      return v2Report(v2->group);
    if (auto const* const left = std::get_if<Igmp::Leave>(&packet.message))
      return leave(left->group);
    return report(records());
  }

  friend void PrintTo(Sent const& sent, std::ostream* out) { *out << sent.text(); }
};

/// A device that keeps what is sent through it, with its time.
class Wire final : public Wirex::Pam {
 public:
  explicit Wire(Kel::Ptr<Horix::TimerWheel const> wheel) : wheel_(std::move(wheel)) {}

  void outputPktIs(Wirex::Pkt::Ptr pkt) override {
    auto const bytes = std::as_const(*pkt).bytes();
    sent.push_back({wheel_->now(), ByteVector(bytes.begin(), bytes.end())});
    if (reaction) reaction();
  }

  struct Frame {
    Horix::Time time;
    ByteVector bytes;
  };
  std::vector<Frame> sent;
  std::function<void()> reaction;  // to each frame

 private:
  Kel::Ptr<Horix::TimerWheel const> wheel_;
};

/// Hands what comes in on one port to the packet access of its VLANs.
class PortManager final : public Wirex::PortVlanPamManager {
 public:
  PortManager() : PortVlanPamManager("PortManager") {}

  void doRxPkt(Bridging::VlanId vlan, Wirex::IntfId /*intf*/,
               Wirex::Pkt::PtrConst const& pkt) override {
    if (auto const pam = pams[vlan.value()]) pam->inputPktIs(pkt);
  }
  bool tagOnEgress(Bridging::VlanId /*vlan*/, Wirex::IntfId /*intf*/) const override {
    return tags;
  }

  std::map<unsigned, Kel::Ptr<Wirex::VlanPam>> pams;
  bool tags = false;
};

/// The hosts of one port in virtual time, and the machine that runs them.
class HostTest : public testing::Test {
 protected:
  static constexpr Wirex::MacAddress mac{0x02, 0, 0, 0, 0, 0x01};

  HostTest() {
    multiplexer->devicePamIs(wire);
    manager->defaultVlanIs(port, Bridging::VlanId(10));
    host = newHost("Vlan10swp1", 10);
  }

  /// A host as the proxy configures it, that knows its port.
  Kel::Ptr<Igmp::IgmpHost> newHost(char const* name, std::uint16_t vlan) {
    auto const made = hosts->igmpHostIs(name);
    made->intfIdIs(port);
    made->vlanIdIs(vlan);
    made->externalPamIs(true);
    made->pamIs(newPam(vlan));
    made->deviceNameIs("swp1");
    made->enabledIs(true);
    made->configVersionIs(1);
    made->intfConfigVersionIs(1);
    Igmp::HostSettings settings;
    settings.macAddress = mac;
    settings.reportsUnasked = true;
    made->settingsIs(settings);
    Kel::runActivities();
    return made;
  }
  Kel::Ptr<Wirex::VlanPam> newPam(std::uint16_t vlan) {
    multiplexer->vlanIs(Bridging::VlanId(vlan), 0);
    return manager->pams[vlan] =
               Kel::make<Wirex::VlanPam>(Kel::Name(std::to_string(vlan).c_str()), multiplexer);
  }

  template <class Change>
  void changeSettings(Change change) {
    Igmp::HostSettings settings = host->settings();
    change(settings);
    host->settingsIs(settings);
    Kel::runActivities();
  }
  void reportsUnaskedIs(bool reports) {
    changeSettings([&](Igmp::HostSettings& settings) { settings.reportsUnasked = reports; });
  }
  /// As where a query makes the port a router port.
  void reportsUnaskedSinceQuery() {
    changeSettings([](Igmp::HostSettings& settings) {
      settings.reportsUnasked = settings.reportsSinceQuery = true;
    });
  }
  void robustnessIs(std::uint8_t robustness) {
    changeSettings([&](Igmp::HostSettings& settings) { settings.robustnessVariable = robustness; });
  }

  /// Writes a record as the proxy does, from empty and source by source.
  void write(IpAddr group, Wirex::IgmpV3GroupRecordType mode, std::vector<IpAddr> const& sources) {
    auto const record = host->v3groupIs(group);
    auto const list = record->sourceIs();
    record->filterModeIs(mode);
    list->sourceIpDelAll();
    for (IpAddr const each : sources) list->sourceIpIs(each, 1);
  }
  void writeInclude(IpAddr group, std::vector<IpAddr> const& sources) {
    write(group, Wirex::IgmpV3GroupRecordType::modeIsInclude, sources);
  }
  void writeExclude(IpAddr group, std::vector<IpAddr> const& sources = {}) {
    write(group, Wirex::IgmpV3GroupRecordType::modeIsExclude, sources);
  }
  void include(IpAddr group, std::vector<IpAddr> const& sources) {
    writeInclude(group, sources);
    Kel::runActivities();
  }
  void exclude(IpAddr group, std::vector<IpAddr> const& sources = {}) {
    writeExclude(group, sources);
    Kel::runActivities();
  }
  void heardBackIs(IpAddr group, bool heardBack) {
    host->v3group(group)->heardBackIs(heardBack);
    Kel::runActivities();
  }
  void drop(IpAddr group) {
    host->v3groupDel(group);
    Kel::runActivities();
  }

  void hears(FrameBuilder const& frame) {
    wire->inputPktIs(Wirex::Pkt::PktIs(frame.bytes()));
    Kel::runActivities();
  }
  void hearsGeneralQuery() { hears(FrameBuilder::queryV3({})); }
  void hearsQuery(IpAddr group, std::vector<IpAddr> const& sources = {},
                  unsigned maxResponseCode = 100) {
    hears(FrameBuilder::queryV3(
        {.group = group, .maxResponseCode = maxResponseCode, .sources = sources}));
  }

  void pass(Horix::Time time) { loop.advanceTo(loop.now() + time); }

  /// What was sent since the last call, parsed. A frame that does not parse fails the test.
  std::vector<Sent> takeSent() {
    std::vector<Sent> all;
    for (Wire::Frame& frame : std::exchange(wire->sent, {})) {
      auto const ethernet = Igmp::parseEthernet(frame.bytes);
      EXPECT_TRUE(ethernet);
      auto const packet = Igmp::parsePacket(*ethernet, {.requireRouterAlert = true});
      EXPECT_TRUE(packet);
      // A moved vector keeps its bytes in place, which the packet views.
      if (packet) all.push_back({frame.time, *packet, std::move(frame.bytes)});
    }
    return all;
  }
  Texts sent() {
    Texts texts;
    for (Sent const& each : takeSent()) texts.push_back(each.text());
    return texts;
  }
  Texts sentWithin(Horix::Time time) {
    pass(time);
    return sent();
  }
  /// Until nothing is left to be sent unasked.
  void rest() {
    pass(seconds(100));
    wire->sent.clear();
  }

  Igmp::IgmpHostStatus& status() const { return *statuses->igmpHostStatus(host->name()); }

  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Horix::EventLoop loop{wheel};
  Wirex::IntfId const port{"swp1"};
  Kel::Ptr<Wire> wire = Kel::make<Wire>(wheel);
  Kel::Ptr<PortManager> manager = Kel::make<PortManager>();
  Kel::Ptr<Wirex::Multiplexer> multiplexer = manager->multiplexerIs(port, manager.get());
  Kel::Ptr<Igmp::IgmpHostDir> hosts = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Igmp::IgmpHostStatusDir> statuses = Kel::make<Igmp::IgmpHostStatusDir>("test");
  Kel::Ptr<Igmp::IgmpHostDirSm> machine =
      Kel::make<Igmp::IgmpHostDirSm>(nullptr, hosts, statuses, wheel);
  Kel::Ptr<Igmp::IgmpHost> host;
};

}  // namespace IgmpTest
