#pragma once

#include <optional>
#include <unordered_map>

#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"
#include "platform/igmp/ByteReader.h"
#include "platform/igmp/Packet.h"
#include "platform/snooping/ReceiveCounters.h"
#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

/// One port as snooping hears it: sorts received frames into the port's VLANs, parses them, hands
/// reports and leaves to the VLAN's learning, and counts what it ignores and why.
class KEL_EXPORT SnoopedPort {
 public:
  explicit SnoopedPort(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

  Wirex::IntfId const& intfId() const { return intfId_; }
  ReceiveCounters const& counters() const { return counters_; }

  /// Frames tagged with a VLAN are learned from in `learning`, which for a secondary VLAN is its
  /// primary's: the primary's adapter serves the hosts of both.
  void taggedVlanIs(VlanId vlan, VlanLearning& learning) { tagged_[vlan.value()] = &learning; }

  /// The same for frames without a tag.
  void untaggedVlanIs(VlanLearning& learning) { untagged_ = &learning; }

  /// A port that does not take frames in learns nothing from them.
  void receivesIs(bool receives) { receives_ = receives; }

  /// @param frame from the destination's MAC address on.
  void receive(Igmp::Bytes frame);

 private:
  std::optional<Igmp::Cause> learnFrom(Igmp::Bytes bytes);
  VlanLearning* learningOf(Igmp::EthernetFrame const& frame) const;
  void learn(VlanLearning& learning, Igmp::Packet const& packet);
  void countIfIgnored(std::optional<Igmp::Cause> cause);

  Wirex::IntfId intfId_;
  bool receives_ = true;
  VlanLearning* untagged_ = nullptr;
  std::unordered_map<std::uint16_t, VlanLearning*> tagged_;
  ReceiveCounters counters_;
};

}  // namespace Bridging::IgmpSnooping
