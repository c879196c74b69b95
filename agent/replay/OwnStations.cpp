#include "agent/replay/OwnStations.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <string_view>
#include <utility>

#include "framework/kel/Hash.h"

namespace Agent {

using Wirex::Bytes;
using Wirex::IntfId;
using Wirex::MacAddress;

namespace {

using namespace std::chrono_literals;

/// What the switch's host says of a change, the replay's host says in the moment of its cause.
constexpr Horix::Time reactionTime = 10ms;

/// What a host repeats comes within a second (RFC 9776 section 8.11), and a bit where it is busy.
constexpr Horix::Time sayingTime = 1100ms;

constexpr unsigned stepsThatTell = 3;
constexpr std::size_t mostStations = 1024;

constexpr std::uint8_t reportV3 = 0x22;

/// What a message says, one by one, as hosts put together differently what they say of several
/// groups: the records of a version 3 report (RFC 9776 section 4.2), else the message.
std::vector<Bytes> sayingsIn(Bytes message) {
  if (message[0] != reportV3) return {message};
  constexpr std::size_t header = 8;
  constexpr std::size_t word = 4;
  std::vector<Bytes> records;
  for (Bytes rest = message.subspan(std::min(header, message.size())); rest.size() >= header;) {
    std::size_t const words = rest[1] + std::size_t{Wirex::bigEndian16(&rest[2])};
    std::size_t const size = std::min(header + words * word, rest.size());
    records.push_back(rest.first(size));
    rest = rest.subspan(size);
  }
  return records;
}

/// Whether it tells of a change, not of a state that was asked for: a leave, or a report whose
/// first record is of a type from CHANGE_TO_INCLUDE_MODE on (RFC 9776 section 4.2.12).
bool tellsChange(Bytes message, std::vector<Bytes> const& sayings) {
  constexpr std::uint8_t leave = 0x17;
  constexpr std::uint8_t changeToInclude = 3;
  if (message[0] != reportV3) return message[0] == leave;
  return !sayings.empty() && sayings[0][0] >= changeToInclude;
}

/// The hosts of several ports say the same at the same time.
std::size_t saidHash(IntfId const& port, Bytes saying) {
  std::string_view const said(reinterpret_cast<char const*>(saying.data()), saying.size());
  return std::hash<std::string_view>{}(said) ^ Kel::hash(port) << 1;
}

/// A query that is alike is another querier's.
bool isReport(Bytes message) {
  constexpr std::uint8_t query = 0x11;
  return !message.empty() && message[0] != query;
}

}  // namespace

void OwnStations::sent(IntfId const& port, Horix::Time time, Bytes message) {
  if (!isReport(message)) return;
  for (Bytes const saying : sayingsIn(message)) {
    std::size_t const hash = saidHash(port, saying);
    sent_[hash % sent_.size()] = {hash, time, port, false};
  }
}

OwnStations::Late* OwnStations::late(IntfId const& port, Horix::Time time, Bytes saying) {
  std::size_t const hash = saidHash(port, saying);
  Late& late = sent_[hash % sent_.size()];
  bool const alike = late.hash == hash && late.port == port && late.time != Horix::Time::min() &&
                     time - late.time <= sayingTime;
  return alike ? &late : nullptr;
}

OwnStations::Saying OwnStations::heard(IntfId const& port, Horix::Time time, MacAddress const& from,
                                       Bytes message) {
  if (!isReport(message)) return Saying::other;
  Station const station(port, from);
  if (own_.contains(station)) return Saying::inStep;
  auto const sayings = sayingsIn(message);
  bool isAlike = !sayings.empty();
  bool isStep = true;
  for (Bytes const saying : sayings) {
    Late* const said = late(port, time, saying);
    isAlike &= said != nullptr;
    isStep &= said && !std::exchange(said->answered, true) && time - said->time <= reactionTime;
  }
  if (isAlike && isStep) credit(station);
  if (!isAlike && tellsChange(message, sayings)) steps_.erase(station);
  if (!isAlike) return Saying::other;
  return own_.contains(station) ? Saying::inStep : Saying::alike;
}

void OwnStations::credit(Station const& station) {
  if (station.second == MacAddress{}) return;  // a capture that has none
  if (steps_.size() + own_.size() >= mostStations && !steps_.contains(station)) return;
  if (++steps_[station] < stepsThatTell) return;
  own_.insert(station);
  steps_.erase(station);
}

std::string text(MacAddress const& address) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::uint8_t const byte : address) {
    if (!text.empty()) text += ':';
    text += digits[byte >> 4];
    text += digits[byte & 0xf];
  }
  return text;
}

}  // namespace Agent
