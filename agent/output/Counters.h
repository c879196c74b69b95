#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <variant>

#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/wire/Message.h"
#include "platform/interface/EthDevPam.h"
#include "platform/snooping/ReceiveCounters.h"
#include "platform/snooping/VlanQuerier.h"

/// What is counted, under the names that every output has for it. A counter that has a line here is
/// in `show statistics`, in JSON and as tables, and in the metrics.
namespace Agent {

using Bridging::IgmpSnooping::QueriesSent;
using Bridging::IgmpSnooping::ReceiveCounters;
using DeviceCounters = Interface::EthDevPam::Counters;
using Igmp::HostCounters;

/// @tparam Counters what holds the value.
template <class Counters>
struct Counter {
  char const* key;     ///< in JSON
  char const* column;  ///< of the table
  char const* metric;  ///< the label of its samples, or the name of its own family; null if none
  std::uint64_t (*value)(Counters const&);
  char const* help = nullptr;  ///< of its own family
};

/// How many messages of a type were heard.
template <class Type, std::size_t index = 0>
std::uint64_t receivedOf(ReceiveCounters const& counters) {
  if constexpr (std::is_same_v<std::variant_alternative_t<index, Igmp::Message>, Type>)
    return counters.received[index];
  else
    return receivedOf<Type, index + 1>(counters);
}

template <auto member, class Counters>
std::uint64_t valueOf(Counters const& counters) {
  return counters.*member;
}

/// On a port of a VLAN.
inline constexpr std::array<Counter<ReceiveCounters>, 6> messagesReceived{{
    {"query-count", "QUERIES", "query", receivedOf<Igmp::Query>},
    {"membership-report-v1-count", "V1", "membership-report-v1", receivedOf<Igmp::ReportV1>},
    {"membership-report-v2-count", "V2", "membership-report-v2", receivedOf<Igmp::ReportV2>},
    {"membership-report-v3-count", "V3", "membership-report-v3", receivedOf<Igmp::ReportV3>},
    {"leave-count", "LEAVES", "leave", receivedOf<Igmp::Leave>},
    {"pim-hello-count", "HELLOS", "pim-hello", valueOf<&ReceiveCounters::pimHellos>},
}};

/// By a host.
inline constexpr std::array<Counter<HostCounters>, 5> messagesSent{{
    {"membership-report-v1-count", "V1", "membership-report-v1",
     valueOf<&HostCounters::reportsSentV1>},
    {"membership-report-v2-count", "V2", "membership-report-v2",
     valueOf<&HostCounters::reportsSentV2>},
    {"membership-report-v3-count", "V3", "membership-report-v3",
     valueOf<&HostCounters::reportsSentV3>},
    {"group-record-count", "RECORDS", nullptr,  // no messages, but what version 3's hold
     valueOf<&HostCounters::groupRecordsSent>},
    {"leave-count", "LEAVES", "leave", valueOf<&HostCounters::leavesSent>},
}};

/// By a VLAN's querier.
inline constexpr std::array<Counter<QueriesSent>, 3> queriesSent{{
    {"general-query-count", "GENERAL", "general", valueOf<&QueriesSent::general>},
    {"group-query-count", "GROUP", "group", valueOf<&QueriesSent::groupSpecific>},
    {"group-source-query-count", "SOURCE", "group-source",
     valueOf<&QueriesSent::groupAndSourceSpecific>},
}};

/// Of a device.
inline constexpr std::array<Counter<DeviceCounters>, 6> deviceFrames{{
    {"received", "RECEIVED", "frames_received", valueOf<&DeviceCounters::received>,
     "Frames that the device handed over."},
    {"receive-dropped", "DROPPED", "frames_dropped", valueOf<&DeviceCounters::receiveDropped>,
     "Frames that the kernel dropped for want of speed."},
    {"receive-truncated", "TRUNCATED", "frames_truncated",
     valueOf<&DeviceCounters::receiveTruncated>,
     "Frames ignored because they were longer than frames may be."},
    {"receive-failed", "FAILED", "receive_errors", valueOf<&DeviceCounters::receiveFailed>,
     "Errors that the device reported."},
    {"sent", "SENT", "frames_sent", valueOf<&DeviceCounters::sent>, "Frames that the device took."},
    {"send-dropped", "NOT SENT", "frames_not_sent", valueOf<&DeviceCounters::sendDropped>,
     "Frames that the device did not take."},
}};

}  // namespace Agent
