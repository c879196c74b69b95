#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/config/Configuration.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/FrameReader.h"

namespace Agent {

/// Recognises in captures of a switch's ports what the switch itself had sent there, which no port
/// has heard: what a capture marks as outgoing, what was heard on another port just before and so
/// was forwarded, and what comes from an address that its hosts and queriers are configured to
/// have. IGMP and PIM alone are looked at, and nothing else is counted. Memory is constant.
class OwnFrames {
 public:
  /// How many frames of a port were left out, by what they were recognised by.
  struct Counts {
    std::uint64_t outgoing = 0;
    std::uint64_t forwarded = 0;
    std::uint64_t fromOwnAddress = 0;

    /// Not left out: said what the port's host had said just before, by somebody unknown.
    std::uint64_t alike = 0;
    Wirex::IpAddr alikeFrom;  ///< the latest

    std::uint64_t leftOut() const { return outgoing + forwarded + fromOwnAddress; }
  };

  explicit OwnFrames(Configuration const& configuration);

  /// Whether the frame is one that the switch had sent.
  /// @param outgoing the capture says so.
  bool recognise(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes, bool outgoing);

  /// The replay's own hosts have sent this.
  void sent(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes);

  std::map<Wirex::IntfId, Counts> const& counts() const { return counts_; }

 private:
  /// A frame of late. Where two have the same place in the table the later one stays.
  struct Late {
    std::size_t hash = 0;
    Horix::Time time = Horix::Time::min();
    Wirex::IntfId port;
  };
  using Lately = std::vector<Late>;

  bool wasForwarded(Wirex::IntfId const& port, Horix::Time time, Igmp::EthernetFrame const& frame,
                    Wirex::Bytes datagram);
  bool isFromOwnAddress(Wirex::IntfId const& port, Igmp::EthernetFrame const& frame,
                        Wirex::Bytes datagram) const;
  bool isAlike(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes message) const;
  Bridging::VlanId vlanOf(Wirex::IntfId const& port, Igmp::EthernetFrame const& frame) const;

  std::map<Wirex::IntfId, Bridging::VlanId> untagged_;
  std::set<std::pair<Bridging::VlanId, Wirex::IpAddr>> ownAddresses_;
  Lately heard_;
  Lately sent_;
  std::map<Wirex::IntfId, Counts> counts_;
};

/// What was left out, and what should perhaps have been, a sentence for each port.
std::vector<std::string> remarksOn(OwnFrames const& frames);

}  // namespace Agent
