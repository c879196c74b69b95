#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "agent/config/Configuration.h"
#include "agent/replay/OwnStations.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/FrameReader.h"

namespace Agent {

using StationAddress = std::variant<Wirex::MacAddress, Wirex::IpAddr>;

/// Nothing for a text that is neither 02:00:00:00:00:01 nor 192.0.2.1.
std::optional<StationAddress> stationAddress(std::string const& text);

/// Recognises in captures of a switch's ports what the switch itself had sent there, which no port
/// has heard: what a capture marks as outgoing, what was heard on another port just before and so
/// was forwarded, and what comes from an address that its hosts and queriers are configured to
/// have, or that is named, or turns out to be the switch's: queries come from it on several ports
/// at once, or reports that say on several ports, or again and again, what their hosts have just
/// said. IGMP and PIM alone are looked at, and nothing else is counted. Memory is constant.
class OwnFrames {
 public:
  /// How many frames of a port were left out, by what they were recognised by.
  struct Counts {
    std::uint64_t outgoing = 0;
    std::uint64_t forwarded = 0;
    std::uint64_t fromOwnAddress = 0;
    std::uint64_t inStep = 0;
    Wirex::MacAddress inStepFrom{};

    /// Not left out: said what the port's host had said just before, by somebody unknown.
    std::uint64_t alike = 0;
    Wirex::MacAddress alikeFrom{};  ///< the latest

    std::uint64_t leftOut() const { return outgoing + forwarded + fromOwnAddress + inStep; }
  };

  explicit OwnFrames(Configuration const& configuration);

  /// The switch has this address in each VLAN and on each port.
  void ownAddressIs(StationAddress const& address);

  /// Who turned out to be the switch by saying what the hosts say, and may have been heard before.
  OwnStations& stations() { return stations_; }
  OwnStations const& stations() const { return stations_; }

  /// Looks at a frame before those are decided about that were captured just before it.
  void foresee(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes, bool outgoing);

  /// Whether the frame is one that the switch had sent.
  /// @param outgoing the capture says so.
  bool recognise(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes, bool outgoing);

  /// The replay's own hosts have sent this.
  void sent(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes);

  std::map<Wirex::IntfId, Counts> const& counts() const { return counts_; }

 private:
  using Address = std::pair<Bridging::VlanId, Wirex::IpAddr>;

  /// A frame of late. Where two have the same place in the table the later one stays.
  struct Late {
    std::size_t hash = 0;
    Horix::Time time = Horix::Time::min();
    Wirex::IntfId port;
    std::size_t sender = 0;  // its MAC address, hashed
  };
  using Lately = std::vector<Late>;

  static bool isAgain(Late const& late, Late const& now, Horix::Time within);

  void takeForOwn(Address const& address);
  bool wasForwarded(Wirex::IntfId const& port, Horix::Time time, Igmp::EthernetFrame const& frame,
                    Wirex::Bytes datagram);
  bool isInStep(Wirex::IntfId const& port, Address const& from, Wirex::MacAddress const& station,
                OwnStations::Saying saying);
  void noteAlike(Wirex::IntfId const& port, Address const& from);
  Address senderOf(Wirex::IntfId const& port, Igmp::EthernetFrame const& frame,
                   Wirex::Bytes datagram) const;

  std::map<Wirex::IntfId, Bridging::VlanId> untagged_;
  std::set<Address> ownAddresses_;
  std::set<StationAddress> ownEverywhere_;
  OwnStations stations_;
  Lately heard_;
  Lately asked_;
  std::map<Address, Wirex::IntfId> alike_;  // on which port first
  std::map<Wirex::IntfId, Counts> counts_;
};

/// What was left out, and what should perhaps have been, a sentence for each port.
std::vector<std::string> remarksOn(OwnFrames const& frames);

}  // namespace Agent
