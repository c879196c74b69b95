#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/config/Configuration.h"
#include "agent/replay/OwnFrames.h"
#include "agent/replay/PortCapture.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/Message.h"

namespace Agent {

/// A frame that something follows from.
struct Sighting {
  std::string capture;
  std::uint64_t frame = 0;  ///< its number in the capture, from 1 on
  Wirex::IpAddr source;
};

/// A query that stands for its querier's others.
struct SightedQuery : Sighting {
  Igmp::IgmpVersion version{};
  unsigned robustness = 0;  ///< 0 if it does not tell, as in those below
  std::chrono::seconds interval{};
  Igmp::Deciseconds maxResponseTime{};
};

/// What a port was seen to be in a VLAN: of each the first frame.
struct SightedMember {
  bool tagged = false;
  Sighting first;
  std::optional<SightedQuery> query;  ///< of the querier with the lowest address
  std::optional<Sighting> pimHello;
};

struct VlanEvidence {
  std::map<Wirex::IntfId, SightedMember> members;
  std::optional<SightedQuery> ownQuery;  ///< sent by the switch
  std::optional<Igmp::IgmpVersion> newestReport;
};

/// What captures tell of the switch on whose ports they were taken. Memory is constant for a number
/// of ports and VLANs.
class Evidence {
 public:
  /// Reads the captures. Throws CaptureError.
  explicit Evidence(std::vector<PortCapture> const& captures);

  /// The frames of each capture, in the order in which they were given.
  std::vector<std::uint64_t> const& frames() const { return frames_; }
  Horix::Time duration() const { return duration_; }

  /// By the number in the tags; none for frames without one.
  std::map<std::optional<Bridging::VlanId>, VlanEvidence> const& vlans() const { return vlans_; }

 private:
  void note(Wirex::IntfId const& port, Sighting sighting, Igmp::EthernetFrame const& frame,
            bool sentBySwitch, bool outgoing);

  std::vector<std::uint64_t> frames_;
  Horix::Time duration_{};
  std::map<std::optional<Bridging::VlanId>, VlanEvidence> vlans_;
};

}  // namespace Agent
