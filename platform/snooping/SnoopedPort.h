#pragma once

#include <map>
#include <optional>

#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"
#include "platform/igmp/ByteReader.h"
#include "platform/igmp/Packet.h"
#include "platform/snooping/ReceiveCounters.h"
#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

/// One port as snooping hears it: parses received frames, hands reports and leaves to their VLAN's
/// learning, and counts what it ignores and why.
class KEL_EXPORT SnoopedPort {
 public:
  explicit SnoopedPort(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

  Wirex::IntfId const& intfId() const { return intfId_; }
  ReceiveCounters const& counters() const { return counters_; }

  /// What is heard in a VLAN is learned in `learning`, which for a secondary VLAN is its primary's:
  /// the primary's adapter serves the hosts of both.
  void vlanIs(VlanId vlan, VlanLearning& learning) { learning_[vlan] = &learning; }

  /// The VLANs in which the port is heard.
  std::map<VlanId, VlanLearning*> const& vlan() const { return learning_; }

  /// A port that does not take frames in learns nothing from them.
  void receivesIs(bool receives) { receives_ = receives; }

  /// A frame of one of the port's VLANs, from the destination's MAC address on.
  void receive(VlanId vlan, Igmp::Bytes frame);

  /// A frame of a VLAN in which the port is not, or of none.
  void receiveInNoVlan(Igmp::Bytes frame);

 private:
  std::optional<Igmp::Cause> learnFrom(VlanId vlan, Igmp::Bytes bytes);
  void learn(VlanLearning& learning, Igmp::Packet const& packet);
  void countIfIgnored(std::optional<Igmp::Cause> cause);

  Wirex::IntfId intfId_;
  bool receives_ = true;
  std::map<VlanId, VlanLearning*> learning_;
  ReceiveCounters counters_;
};

}  // namespace Bridging::IgmpSnooping
