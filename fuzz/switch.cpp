#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <iostream>
#include <sanitizer/allocator_interface.h>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "agent/config/MemoryBound.h"
#include "fuzz/FuzzSwitch.h"
#include "platform/igmp/SentRecords.h"
#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/PacketReader.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/soak/RecordModel.h"
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
using Wirex::IntfId;

constexpr std::size_t mtu = 1500;

constexpr std::array<std::string_view, 5> configurations{
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
    R"(
[defaults]
max-groups = 8
max-group-sources = 4
max-interface-groups = 4
max-interface-memberships = 6
max-interface-sources = 10
[[interface]]
name = "swp[1-4]"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-4]"]
)",
};

/// The switch, and what it may take.
struct Fuzzed : FuzzSwitch {
  explicit Fuzzed(Agent::Configuration const& configuration) : FuzzSwitch(configuration) {
    raiseBound();
  }

  /// Memory goes back later than a smaller configuration comes.
  void raiseBound() { bound = std::max(bound, memoryBound(agent.configuration()).learned); }

  std::size_t before = __sanitizer_get_current_allocated_bytes();  // with nothing learned
  std::uint64_t bound = 0;
  bool hasSent = false;
};

/// Read once, as reading them takes longer than what most inputs do.
Agent::Configuration const& configuration(FuzzInput& input) {
  static std::vector<Agent::Configuration> const read = [] {
    std::vector<Agent::Configuration> all;
    all.reserve(configurations.size());
    for (std::string_view const text : configurations) all.push_back(Fuzz::configurationIn(text));
    return all;
  }();
  return read.at(input.below(configurations.size()));
}

constexpr std::array<char const*, 4> ports{"swp1", "swp2", "swp3", "swp4"};
constexpr std::array<Horix::Time, 6> pauses{0s, 10ms, 1s, 10s, 130s, 300s};

/// Mostly one of a few, to have listeners in common.
IpAddr group(FuzzInput& input) {
  constexpr std::array groups{IpAddr(239, 1, 1, 1), IpAddr(239, 2, 2, 2), IpAddr(232, 1, 1, 1),
                              IpAddr(224, 0, 0, 9)};
  std::uint8_t const chosen = input.byte();
  return chosen < 224 ? groups.at(chosen % groups.size()) : IpAddr(239, 255, chosen, input.byte());
}

IpAddr reporter(FuzzInput& input) {
  constexpr std::array reporters{IpAddr(0, 0, 0, 0), IpAddr(10, 0, 0, 1), IpAddr(10, 0, 0, 2),
                                 IpAddr(10, 0, 0, 3)};
  std::uint8_t const chosen = input.byte();
  return chosen < 224 ? reporters.at(chosen % reporters.size())
                      : IpAddr(10, 1, chosen, input.byte());
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

void reconfigure(Fuzzed& test, FuzzInput& input) {
  test.agent.configurationIs(configuration(input));
  test.raiseBound();
  test.loop.endBatch();
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

/// What each host reports is what a merge made anew of all that was learned on other ports gives.
void requireFreshMerge(FuzzSwitch& test) {
  using namespace Agent::Soak;
  Records const records = recordsOf(test.agent);
  std::set<Place> hosts;
  for (auto const& [host, groups] : records) hosts.insert(host);
  Records const merged =
      expectedRecords(test.agent.configuration(), hosts, membershipsOf(test.agent));
  for (auto const& [host, groups] : merged)
    for (auto const& [group, filter] : groups)
      if (auto const found = records.at(host).find(group);
          found == records.at(host).end() || found->second != filter)
        std::cerr << host << " is to report " << group << ": " << filter << '\n';
  require(records == merged, "records equal a fresh merge");
}

void requireAllWell(Fuzzed& test) {
  test.loop.endBatch();
  requireFreshMerge(test);
  std::size_t const ofSent = test.hasSent ? Igmp::SentRecords::mostBytes() : 0;
  require(__sanitizer_get_current_allocated_bytes() <= test.before + test.bound + ofSent,
          "memory stays within the stated bound");
}

void step(Fuzzed& test, FuzzInput& input) {
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
      return requireAllWell(test);
    default:
      return hear(test, input, report(input));
  }
}

std::chrono::nanoseconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// What one frame, interface or configuration takes; hours may pass in one step.
void stepInTime(Fuzzed& test, FuzzInput& input) {
  constexpr auto budget = 250ms;  // the loop's 10 ms, and what sanitizers make of them
  auto const start = processorTime();
  auto const now = test.loop.now();
  step(test, input);
  require(test.loop.now() != now || processorTime() - start < budget, "no turn takes long");
}

bool isEmpty(FuzzSwitch const& test) {
  for (auto const& [vlan, status] : test.agent.entities().snoopingStatus->contextStatus())
    if (!status->group().empty()) return false;
  return true;
}

/// Nobody says anything for an hour, or for as long as a querier can have memberships live: seven
/// times 31,744 s and more (RFC 9776 sections 4.1.6 and 4.1.7). Everything must have gone.
void requireNothingLeft(FuzzSwitch& test) {
  int hours = 0;
  do test.loop.advanceTo(test.loop.now() + 1h);
  while (++hours < 66 && !isEmpty(test));
  for (auto const& [vlan, status] : test.agent.entities().snoopingStatus->contextStatus())
    require(status->group().empty(), "no membership outlives an hour of silence");
  for (auto const& [name, host] : test.agent.entities().hosts->igmpHost())
    require(host->v3group().empty(), "no record outlives an hour of silence");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  FuzzInput input(bytes, size);
  Fuzzed test(configuration(input));
  test.devices.sentIs([&](IntfId const&, Wirex::Bytes frame) {
    test.hasSent = true;
    requireRight(frame);
  });
  while (!input.empty()) stepInTime(test, input);
  requireAllWell(test);
  requireNothingLeft(test);
  return 0;
}
