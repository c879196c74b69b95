#include <array>
#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "framework/types/PortKey.h"
#include "fuzz/FuzzSwitch.h"
#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/PacketReader.h"
#include "tests/agent/Addresses.h"
#include "tests/platform/igmp/FrameBuilder.h"

/// A whole switch: frames on several ports, right ones and raw bytes, time, interfaces that come
/// and go, and other configurations. At the end an hour of silence, after which nothing may be
/// left.
namespace {

using Fuzz::FuzzInput;
using Fuzz::FuzzSwitch;
using Fuzz::require;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Wirex::IntfId;

constexpr std::size_t mtu = 1500;

constexpr std::array<std::string_view, 4> configurations{
    R"(
[[interface]]
name = "swp[1-4]"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-4]"]
static-bridge-mrouter-interface = ["swp4"]
)",
    R"(
[defaults]
send-query = true
robustness-variable = 2
query-interval = 20
query-max-response-time = 4
[[interface]]
name = "swp[1-4]"
[[vlan]]
id = 10
querier = { igmp-version = 2 }
interfaces = ["swp[1-2]"]
tagged-interfaces = ["swp[3-4]"]
[[vlan]]
id = 20
private = { type = "isolated", primary = 10 }
querier = { igmp-version = 3 }
interfaces = ["swp3"]
)",
    R"(
[defaults]
report-on = "all"
fast-leave = true
max-groups = 2
max-group-sources = 2
[[interface]]
name = "swp[1-3]"
[[interface]]
name = "swp4"
direction = "egress"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-4]"]
)",
    R"(
[[interface]]
name = "swp[1-2]"
[[vlan]]
id = 10
proxy = false
interfaces = ["swp[1-2]"]
)",
};

/// Read once, as reading them takes longer than what most inputs do.
Agent::Configuration const& configuration(FuzzInput& input) {
  static std::vector<Agent::Configuration> const read = [] {
    std::vector<Agent::Configuration> all;
    for (std::string_view const text : configurations) all.push_back(Fuzz::configurationIn(text));
    return all;
  }();
  return read.at(input.below(configurations.size()));
}

constexpr std::array<char const*, 4> ports{"swp1", "swp2", "swp3", "swp4"};
constexpr std::array<Horix::Time, 6> pauses{0s, 10ms, 1s, 10s, 130s, 300s};

IpAddr group(FuzzInput& input) {
  constexpr std::array groups{IpAddr(239, 1, 1, 1), IpAddr(239, 2, 2, 2), IpAddr(232, 1, 1, 1),
                              IpAddr(224, 0, 0, 9)};
  return groups.at(input.below(groups.size()));
}

IpAddr reporter(FuzzInput& input) {
  constexpr std::array reporters{IpAddr(0, 0, 0, 0), IpAddr(10, 0, 0, 1), IpAddr(10, 0, 0, 2),
                                 IpAddr(10, 0, 0, 3)};
  return reporters.at(input.below(reporters.size()));
}

std::vector<IpAddr> sources(FuzzInput& input) {
  unsigned const chosen = input.byte();
  std::vector<IpAddr> sources;
  for (unsigned i = 0; i < 4; ++i)
    if (chosen >> i & 1) sources.emplace_back(192, 0, 2, i + 1);
  return sources;
}

FrameBuilder report(FuzzInput& input) {
  std::vector<Record> records;
  for (unsigned left = 1 + input.below(3); left > 0; --left)
    records.push_back({1 + input.below(7), group(input), sources(input)});
  return FrameBuilder::reportV3(records).from(reporter(input));
}

FrameBuilder olderMessage(FuzzInput& input) {
  unsigned const kind = input.below(3);
  IpAddr const to = group(input);
  return (kind == 0   ? FrameBuilder::reportV1(to)
          : kind == 1 ? FrameBuilder::reportV2(to)
                      : FrameBuilder::leave(to))
      .from(reporter(input));
}

FrameBuilder query(FuzzInput& input) {
  unsigned const kind = input.below(4);
  if (kind == 0) return FrameBuilder::queryV1().from(reporter(input));
  IpAddr const of = input.below(2) == 0 ? IpAddr() : group(input);
  if (kind == 1) return FrameBuilder::queryV2(of, input.byte()).from(reporter(input));
  QueryV3 query;
  query.group = of;
  query.maxResponseCode = input.byte();
  query.flagsAndRobustness = input.byte();
  query.queryIntervalCode = input.byte();
  if (of != IpAddr()) query.sources = sources(input);
  return FrameBuilder::queryV3(query).from(reporter(input));
}

void hear(FuzzSwitch& test, FuzzInput& input, FrameBuilder frame) {
  if (input.below(4) == 0) frame.vlan(input.below(2) == 0 ? 10 : 20);
  test.devices.receive(IntfId(ports.at(input.below(ports.size()))), frame.bytes());
}

void hearRaw(FuzzSwitch& test, FuzzInput& input) {
  auto const raw = input.bytes(1 + input.byte());
  ByteVector const payload(raw.begin(), raw.end());
  hear(test, input, FrameBuilder::message(payload, IpAddr(224, 0, 0, 22)).from(reporter(input)));
}

void changeInterface(FuzzSwitch& test, FuzzInput& input) {
  IntfId const port(ports.at(input.below(ports.size())));
  Agent::InterfaceState state = Fuzz::operationalInterface();
  state.present = input.below(4) != 0;
  state.carrier = input.below(4) != 0;
  state.kernelIndex = input.below(2);
  test.agent.interfaceStateIs(port, state.present ? state : Agent::InterfaceState());
  test.loop.endBatch();
}

void reconfigure(FuzzSwitch& test, FuzzInput& input) {
  test.agent.configurationIs(configuration(input));
  test.loop.endBatch();
}

void step(FuzzSwitch& test, FuzzInput& input) {
  switch (input.below(12)) {
    case 0:
      return hearRaw(test, input);
    case 1:
      return hear(test, input, olderMessage(input));
    case 2:
      return hear(test, input, query(input));
    case 3:
      return test.loop.advanceTo(test.loop.now() + pauses.at(input.below(pauses.size())));
    case 4:
      return changeInterface(test, input);
    case 5:
      return reconfigure(test, input);
    case 6:
      return test.loop.endBatch();
    default:
      return hear(test, input, report(input));
  }
}

/// Frames that the switch sends can be read, fit the link and go where such messages go.
void requireRight(Wirex::Bytes sent) {
  auto const frame = Igmp::parseEthernet(sent);
  require(static_cast<bool>(frame), "a frame sent can be read");
  require(frame->payload.size() <= mtu, "a frame sent fits the MTU");
  auto const packet = Igmp::parsePacket(*frame, {.requireRouterAlert = true});
  require(static_cast<bool>(packet), "a packet sent can be read");
  if (std::holds_alternative<Igmp::ReportV3>(packet->message))
    require(packet->destination == Igmp::allIgmpv3Routers, "reports go to 224.0.0.22");
  if (std::holds_alternative<Igmp::Leave>(packet->message))
    require(packet->destination == Igmp::allRouters, "leaves go to 224.0.0.2");
}

/// Where one port alone has listeners, its own host has nothing to include: a port that alone
/// excludes sources is told its own exclusion, which stays.
void requireSplitHorizon(FuzzSwitch& test) {
  for (auto const& [vlan, status] : test.agent.entities().snoopingStatus->contextStatus()) {
    for (auto const& [address, group] : status->group()) {
      if (group->intf().size() != 1) continue;
      PortKey const port(vlan, group->intf().keyAt(0));
      auto const found = test.agent.entities().hosts->igmpHost(port.hostName());
      auto const record = found ? found->v3group(address) : nullptr;
      require(!record || record->filterMode() != Wirex::IgmpV3GroupRecordType::modeIsInclude,
              "no port hears its own membership");
    }
  }
}

bool isEmpty(FuzzSwitch const& test) {
  for (auto const& [vlan, status] : test.agent.entities().snoopingStatus->contextStatus())
    if (!status->group().empty()) return false;
  return true;
}

/// Nobody says anything for an hour, or for as long as a querier can have memberships live: seven
/// times 31,744 s and more (RFC 9776 sections 4.1.6 and 4.1.7). Everything must have gone.
void requireNothingLeft(FuzzSwitch& test) {
  test.loop.advanceTo(test.loop.now() + 1h);
  if (!isEmpty(test)) test.loop.advanceTo(test.loop.now() + 65h);
  for (auto const& [vlan, status] : test.agent.entities().snoopingStatus->contextStatus())
    require(status->group().empty(), "no membership outlives an hour of silence");
  for (auto const& [name, host] : test.agent.entities().hosts->igmpHost())
    require(host->v3group().empty(), "no record outlives an hour of silence");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  FuzzInput input(bytes, size);
  FuzzSwitch test(configuration(input));
  test.devices.sentIs([](IntfId const&, Wirex::Bytes frame) { requireRight(frame); });
  while (!input.empty()) step(test, input);
  test.loop.endBatch();
  requireSplitHorizon(test);
  requireNothingLeft(test);
  return 0;
}
