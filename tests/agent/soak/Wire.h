#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"
#include "platform/wirex/Ethernet.h"

/// IGMP as the listeners and routers of the soak speak it. It is written anew from the RFCs, so
/// that a mistake of the switch's own reader or writer does not cancel out.
namespace Agent::Soak {

using Address = Wirex::IpAddr;
using Sources = std::set<Address>;
using Frame = std::vector<std::uint8_t>;
using Time = Horix::Time;

/// From which sources somebody wants a group. Include without sources is no interest at all.
struct Filter {
  bool exclude = false;
  Sources sources;

  bool empty() const { return !exclude && sources.empty(); }
  bool wants(Address source) const { return sources.contains(source) != exclude; }

  static Filter everySource() { return {true, {}}; }

  friend bool operator==(Filter const&, Filter const&) = default;
};

std::ostream& operator<<(std::ostream& out, Filter const& filter);

/// RFC 9776 section 4.2.12.
enum class RecordType : std::uint8_t { isIn = 1, isEx, toIn, toEx, allow, block };

struct Record {
  RecordType type{};
  Address group;
  Sources sources;
};

struct Message {
  enum class Kind { query, report, leave };

  Kind kind{};
  int version = 3;
  Address source;
  Address destination;
  Address group;                                 ///< of IGMPv1 and IGMPv2, and of queries
  Sources sources;                               ///< of queries
  Time maxResponseTime{};                        ///< of queries
  std::vector<Record> records;                   ///< of IGMPv3 reports
  std::optional<Wirex::MacAddress> sourceMac{};  ///< otherwise made of `source`

  bool isQuery() const { return kind == Kind::query; }
};

std::ostream& operator<<(std::ostream& out, Message const& message);

/// Who has sent a frame that he must not send, and what is wrong with it.
class BadFrame : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A message in a frame. The VLAN is 0 if the frame is untagged.
struct Heard {
  unsigned vlan = 0;
  Message message;
};

/// @param vlan of the tag; 0 for an untagged frame.
Frame frameOf(Message const& message, unsigned vlan);

/// Reads strictly: what hosts and queriers have to send (RFC 9776 section 4), to the letter.
/// Throws BadFrame.
Heard messageIn(Wirex::Bytes frame);

}  // namespace Agent::Soak
