#include "agent/replay/OwnFrames.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

using Bridging::VlanId;
using Wirex::Bytes;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

using namespace std::chrono_literals;

/// A switch forwards within microseconds; a listener that says the same from another port with the
/// same MAC address has moved, which takes longer.
constexpr Horix::Time forwardingTime = 10ms;

/// What a host says at once, a replay's host says at once as well.
constexpr Horix::Time sayingTime = 1s;

constexpr std::size_t tableSize = 4096;
constexpr std::size_t sourceOffset = 12;  // in the IPv4 header

std::size_t hashOf(Bytes bytes) {
  return std::hash<std::string_view>{}({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

/// The IPv4 datagram without Ethernet's padding; empty where the header says nothing usable.
Bytes datagramOf(Igmp::EthernetFrame const& frame) {
  if (frame.payload.size() < Igmp::ipv4HeaderSize) return {};
  std::size_t const length = Wirex::bigEndian16(&frame.payload[2]);
  return frame.payload.first(std::min(length, frame.payload.size()));
}

/// Nothing for a frame that is neither IGMP nor PIM.
std::optional<Igmp::EthernetFrame> relevant(Bytes bytes) {
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame) return std::nullopt;
  std::uint8_t const protocol = Igmp::ipProtocolOf(*frame).value_or(0);
  if (protocol != Igmp::ipProtocolIgmp && protocol != Igmp::ipProtocolPim) return std::nullopt;
  return *frame;
}

/// What an IPv4 datagram carries.
Bytes messageOf(Bytes datagram) {
  if (datagram.empty()) return {};
  constexpr std::size_t word = 4;
  std::size_t const header = (datagram[0] & 0x0f) * word;
  return datagram.subspan(std::min(header, datagram.size()));
}

/// A query that is alike is another querier's.
bool isReport(Bytes message) {
  constexpr std::uint8_t query = 0x11;
  return !message.empty() && message[0] != query;
}

IpAddr sourceOf(Bytes datagram) {
  return IpAddr(static_cast<std::uint32_t>(Wirex::bigEndian16(&datagram[sourceOffset])) << 16 |
                Wirex::bigEndian16(&datagram[sourceOffset + 2]));
}

std::string text(IntfId const& port) {
  return std::string(port.stringValue().view());
}

}  // namespace

OwnFrames::OwnFrames(Configuration const& configuration) : heard_(tableSize), sent_(tableSize) {
  for (VlanConfig const& vlan : configuration.vlans) {
    for (VlanMember const& member : vlan.members)
      if (!member.tagged) untagged_.emplace(member.intfId, vlan.vlanId);
    for (auto const& address : {vlan.settings.senderSourceAddress, vlan.settings.querierSource})
      if (address && *address != IpAddr()) ownAddresses_.emplace(vlan.vlanId, *address);
  }
}

bool OwnFrames::recognise(IntfId const& port, Horix::Time time, Bytes bytes, bool outgoing) {
  auto const frame = relevant(bytes);
  if (!frame) return outgoing;
  if (outgoing) return ++counts_[port].outgoing > 0;
  Bytes const datagram = datagramOf(*frame);
  if (datagram.size() < Igmp::ipv4HeaderSize) return false;
  if (isFromOwnAddress(port, *frame, datagram)) return ++counts_[port].fromOwnAddress > 0;
  if (wasForwarded(port, time, *frame, datagram)) return ++counts_[port].forwarded > 0;
  if (isAlike(port, time, messageOf(datagram))) {
    ++counts_[port].alike;
    counts_[port].alikeFrom = sourceOf(datagram);
  }
  return false;
}

/// Tags may differ from port to port, so that they are left out.
bool OwnFrames::wasForwarded(IntfId const& port, Horix::Time time, Igmp::EthernetFrame const& frame,
                             Bytes datagram) {
  std::size_t const hash = hashOf(datagram) ^ hashOf(frame.source) << 1;
  Late& late = heard_[hash % heard_.size()];
  bool const again = late.hash == hash && late.port != port && late.time != Horix::Time::min() &&
                     time - late.time <= forwardingTime;
  if (!again) late = {hash, time, port};
  return again;
}

VlanId OwnFrames::vlanOf(IntfId const& port, Igmp::EthernetFrame const& frame) const {
  if (frame.vlan) return *frame.vlan;
  auto const vlan = untagged_.find(port);
  return vlan == untagged_.end() ? VlanId() : vlan->second;
}

bool OwnFrames::isFromOwnAddress(IntfId const& port, Igmp::EthernetFrame const& frame,
                                 Bytes datagram) const {
  return !ownAddresses_.empty() &&
         ownAddresses_.contains({vlanOf(port, frame), sourceOf(datagram)});
}

bool OwnFrames::isAlike(IntfId const& port, Horix::Time time, Bytes message) const {
  std::size_t const hash = hashOf(message);
  Late const& late = sent_[hash % sent_.size()];
  return late.hash == hash && late.port == port && late.time != Horix::Time::min() &&
         time - late.time <= sayingTime;
}

void OwnFrames::sent(IntfId const& port, Horix::Time time, Bytes bytes) {
  auto const frame = relevant(bytes);
  if (!frame) return;
  Bytes const message = messageOf(datagramOf(*frame));
  if (!isReport(message)) return;
  std::size_t const hash = hashOf(message);
  sent_[hash % sent_.size()] = {hash, time, port};
}

std::vector<std::string> remarksOn(OwnFrames const& frames) {
  std::vector<std::string> remarks;
  for (auto const& [port, counts] : frames.counts()) {
    std::vector<std::string> why;
    if (counts.outgoing) why.push_back(message(counts.outgoing, " marked as outgoing"));
    if (counts.forwarded) why.push_back(message(counts.forwarded, " heard on another port before"));
    if (counts.fromOwnAddress)
      why.push_back(message(counts.fromOwnAddress, " from the switch's own address"));
    if (!why.empty())
      remarks.push_back(message(text(port), ": ", counted(counts.leftOut(), "frame"),
                                " left out that the switch itself had sent (",
                                enumerated(why, "and"),
                                "); capture what is heard alone: tcpdump -Q in"));
    if (counts.alike)
      remarks.push_back(
          message(text(port), ": ", counted(counts.alike, "message"),
                  " said what the port's own host had just said, the last one from ",
                  counts.alikeFrom, "; if that is the switch, ",
                  counts.alikeFrom == IpAddr() ? "" : "name it as sender-source-address, or ",
                  "capture with tcpdump -Q in"));
  }
  return remarks;
}

}  // namespace Agent
