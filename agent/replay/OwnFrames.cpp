#include "agent/replay/OwnFrames.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
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

bool isQuery(Bytes message) {
  constexpr std::uint8_t query = 0x11;
  return !message.empty() && message[0] == query;
}

Wirex::MacAddress macAddressOf(Igmp::EthernetFrame const& frame) {
  Wirex::MacAddress address{};
  std::ranges::copy(frame.source, address.begin());
  return address;
}

IpAddr sourceOf(Bytes datagram) {
  return IpAddr(static_cast<std::uint32_t>(Wirex::bigEndian16(&datagram[sourceOffset])) << 16 |
                Wirex::bigEndian16(&datagram[sourceOffset + 2]));
}

std::string text(IntfId const& port) {
  return std::string(port.stringValue().view());
}

}  // namespace

std::optional<StationAddress> stationAddress(std::string const& text) {
  if (auto const address = Wirex::IpAddr::fromText(text)) return *address;
  constexpr std::size_t wide = 3;  // "02:"
  Wirex::MacAddress address{};
  if (text.size() + 1 != address.size() * wide) return std::nullopt;
  for (std::size_t i = 0; i < address.size(); ++i) {
    char const* const digits = &text[i * wide];
    auto const [end, error] = std::from_chars(digits, digits + 2, address[i], 16);
    bool const parted = i + 1 == address.size() || digits[2] == ':';
    if (error != std::errc{} || end != digits + 2 || !parted) return std::nullopt;
  }
  return address;
}

bool OwnFrames::isAgain(Late const& late, Late const& now, Horix::Time within) {
  return late.hash == now.hash && late.time != Horix::Time::min() && now.time - late.time <= within;
}

OwnFrames::OwnFrames(Configuration const& configuration) : heard_(tableSize), asked_(tableSize) {
  for (VlanConfig const& vlan : configuration.vlans) {
    for (VlanMember const& member : vlan.members)
      if (!member.tagged) untagged_.emplace(member.intfId, vlan.vlanId);
    for (auto const& address : {vlan.settings.senderSourceAddress, vlan.settings.querierSource})
      if (address && *address != IpAddr()) ownAddresses_.emplace(vlan.vlanId, *address);
  }
}

void OwnFrames::ownAddressIs(StationAddress const& address) {
  ownEverywhere_.insert(address);
}

/// A query goes out on every port at once, from each port's own MAC address. A router's that is
/// forwarded keeps the router's.
void OwnFrames::foresee(IntfId const& port, Horix::Time time, Bytes bytes, bool outgoing) {
  if (outgoing) return;
  auto const frame = relevant(bytes);
  if (!frame) return;
  Bytes const datagram = datagramOf(*frame);
  if (datagram.size() < Igmp::ipv4HeaderSize || !isQuery(messageOf(datagram))) return;
  Address const sender = senderOf(port, *frame, datagram);
  Late const query{hashOf(datagram), time, port, hashOf(frame->source)};
  Late& late = asked_[query.hash % asked_.size()];
  if (isAgain(late, query, forwardingTime) && late.port != port && late.sender != query.sender)
    takeForOwn(sender);
  late = query;
}

void OwnFrames::takeForOwn(Address const& address) {
  if (address.second != IpAddr() && ownAddresses_.size() < tableSize) ownAddresses_.insert(address);
}

bool OwnFrames::recognise(IntfId const& port, Horix::Time time, Bytes bytes, bool outgoing) {
  auto const frame = relevant(bytes);
  if (!frame) return outgoing;
  if (outgoing) return ++counts_[port].outgoing > 0;
  Bytes const datagram = datagramOf(*frame);
  if (datagram.size() < Igmp::ipv4HeaderSize) return false;
  Address const sender = senderOf(port, *frame, datagram);
  Wirex::MacAddress const station = macAddressOf(*frame);
  if (ownAddresses_.contains(sender) || ownEverywhere_.contains(sender.second) ||
      ownEverywhere_.contains(station))
    return ++counts_[port].fromOwnAddress > 0;
  if (wasForwarded(port, time, *frame, datagram)) return ++counts_[port].forwarded > 0;
  return isInStep(port, sender, station, stations_.heard(port, time, station, messageOf(datagram)));
}

bool OwnFrames::isInStep(IntfId const& port, Address const& from, Wirex::MacAddress const& station,
                         OwnStations::Saying saying) {
  using Saying = OwnStations::Saying;
  if (saying == Saying::inStep) {
    counts_[port].inStepFrom = station;
    return ++counts_[port].inStep > 0;
  }
  if (saying == Saying::alike) {
    counts_[port].alikeFrom = station;
    noteAlike(port, from);
  }
  return false;
}

/// A listener says on its own port alone what others want.
void OwnFrames::noteAlike(IntfId const& port, Address const& from) {
  ++counts_[port].alike;
  if (alike_.size() < tableSize && alike_.try_emplace(from, port).first->second != port)
    takeForOwn(from);
}

/// Tags may differ from port to port, so that they are left out.
bool OwnFrames::wasForwarded(IntfId const& port, Horix::Time time, Igmp::EthernetFrame const& frame,
                             Bytes datagram) {
  std::size_t const sender = hashOf(frame.source);
  Late const heard{hashOf(datagram) ^ sender << 1, time, port, sender};
  Late& late = heard_[heard.hash % heard_.size()];
  bool const wasForwarded = late.port != port && isAgain(late, heard, forwardingTime);
  if (!wasForwarded) late = heard;
  return wasForwarded;
}

OwnFrames::Address OwnFrames::senderOf(IntfId const& port, Igmp::EthernetFrame const& frame,
                                       Bytes datagram) const {
  VlanId vlan = frame.vlan.value_or(VlanId());
  if (auto const untagged = untagged_.find(port); !frame.vlan && untagged != untagged_.end())
    vlan = untagged->second;
  return {vlan, sourceOf(datagram)};
}

void OwnFrames::sent(IntfId const& port, Horix::Time time, Bytes bytes) {
  if (auto const frame = relevant(bytes)) stations_.sent(port, time, messageOf(datagramOf(*frame)));
}

std::vector<std::string> remarksOn(OwnFrames const& frames) {
  std::vector<std::string> remarks;
  for (auto const& [port, counts] : frames.counts()) {
    std::vector<std::string> why;
    if (counts.outgoing) why.push_back(message(counts.outgoing, " marked as outgoing"));
    if (counts.forwarded) why.push_back(message(counts.forwarded, " heard on another port before"));
    if (counts.fromOwnAddress)
      why.push_back(message(counts.fromOwnAddress, " from the switch's own address"));
    if (counts.inStep)
      why.push_back(message(counts.inStep, " from ", text(counts.inStepFrom),
                            ", who says what the port's own host says"));
    if (!why.empty())
      remarks.push_back(message(text(port), ": ", counted(counts.leftOut(), "frame"),
                                " left out that the switch itself had sent (",
                                enumerated(why, "and"),
                                "); capture what is heard alone: tcpdump -Q in"));
    if (counts.alike)
      remarks.push_back(message(text(port), ": ", counted(counts.alike, "message"), " of ",
                                text(counts.alikeFrom),
                                " said what the port's own host had just said, and was heard; if "
                                "that is the switch, leave it out with --own ",
                                text(counts.alikeFrom), ", or capture with tcpdump -Q in"));
  }
  return remarks;
}

}  // namespace Agent
