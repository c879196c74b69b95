#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/types/IntfId.h"
#include "platform/horix/Clock.h"
#include "platform/wirex/Ethernet.h"

namespace Agent {

/// Tells who in a port's capture is the switch's own host there: whoever says again and again what
/// the replay's host of the port has said a moment before. Neither can hear the other, and a
/// listener that speaks at the same moment by chance does not do so three times, and says things
/// that the host does not. Memory is constant.
class OwnStations {
 public:
  enum class Saying {
    other,   ///< nothing that the host has said
    alike,   ///< what the host had said within a second
    inStep,  ///< anything, by somebody who is known to be the host
  };

  /// A port, and an address that sends there.
  using Station = std::pair<Wirex::IntfId, Wirex::MacAddress>;

  OwnStations() : sent_(tableSize) {}

  /// Who is known to be the switch's host.
  std::set<Station> const& known() const { return own_; }
  void knownAre(std::set<Station> known) { own_ = std::move(known); }

  /// The replay's host of the port has sent this IGMP message.
  void sent(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes message);

  /// This IGMP message stands in the port's capture.
  Saying heard(Wirex::IntfId const& port, Horix::Time time, Wirex::MacAddress const& from,
               Wirex::Bytes message);

 private:
  /// What was said of late. Where two have the same place in the table the later one stays.
  struct Late {
    std::size_t hash = 0;
    Horix::Time time = Horix::Time::min();
    Wirex::IntfId port;
    bool answered = false;  ///< somebody was in step with it
  };

  static constexpr std::size_t tableSize = 4096;

  Late* late(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes saying);
  void credit(Station const& station);

  std::vector<Late> sent_;
  std::map<Station, unsigned> steps_;  // of those in step of late, how often
  std::set<Station> own_;
};

/// As in 02:00:00:00:00:01.
std::string text(Wirex::MacAddress const& address);

}  // namespace Agent
