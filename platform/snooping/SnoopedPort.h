#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "framework/kel/Table.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"
#include "platform/igmp/wire/ByteReader.h"
#include "platform/igmp/wire/PacketReader.h"
#include "platform/snooping/QueryPort.h"
#include "platform/snooping/ReceiveCounters.h"
#include "platform/snooping/SnoopedVlan.h"
#include "platform/wirex/Multiplexer.h"

namespace Bridging::IgmpSnooping {

/// One port as snooping hears it: parses received frames, hands reports and leaves to their VLAN's
/// learning, queries and PIM hellos to its router ports, and counts what it ignores and why. The
/// queries of the VLANs' queriers leave through it.
class KEL_EXPORT SnoopedPort final : private QueryPort {
 public:
  using Vlans = Kel::Table<VlanId, SnoopedVlan>;

  explicit SnoopedPort(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}
  SnoopedPort(SnoopedPort const&) = delete;
  SnoopedPort& operator=(SnoopedPort const&) = delete;
  ~SnoopedPort();

  Wirex::IntfId const& intfId() const override { return intfId_; }
  /// Of all VLANs together, and of frames that belong to none of the port's.
  ReceiveCounters counters() const;
  /// Of a VLAN in which the port is or has been. Null if it never was.
  ReceiveCounters const* counters(VlanId vlan) const;
  /// Of frames that belong to none of the port's VLANs.
  ReceiveCounters const& countersInNoVlan() const { return countersInNoVlan_; }

  /// The VLANs in which the port is heard.
  Vlans const& vlan() const { return vlans_; }
  void vlanIs(VlanId vlan, SnoopedVlan const& snooped);
  /// Takes the port from a VLAN, in which what was learned on it is forgotten.
  void vlanDel(VlanId vlan);

  /// Forgets what was learned on the port in all its VLANs: memberships and router ports. For a
  /// port that is gone, blocked or without carrier.
  void forget();

  /// A port that does not take frames in learns nothing from them.
  bool receives() const { return receives_; }
  void receivesIs(bool receives) { receives_ = receives; }

  /// Whether queries are heeded on the port, and whether a router may be there, whatever is heard.
  /// What is not allowed any more is forgotten as if it were not heard again.
  void querierAllowedIs(bool allowed) { querierAllowed_ = allowed; }
  void routerAllowedIs(bool allowed);

  /// What it takes to send queries, of which a port at first has nothing. When the last of it
  /// comes, the queriers of the port's VLANs hear that it is up.
  /// @param sends whether it lets frames out.
  void sendsIs(bool sends);
  void macAddressIs(Wirex::MacAddress const& macAddress);
  void multiplexerIs(Kel::Ptr<Wirex::Multiplexer> multiplexer);
  void mtuIs(std::size_t mtu) { mtu_ = mtu; }

  /// A frame of one of the port's VLANs, from the destination's MAC address on.
  void receive(VlanId vlan, Igmp::Bytes frame);

  /// A frame of a VLAN in which the port is not, or of none.
  void receiveInNoVlan(Igmp::Bytes frame);

 private:
  std::size_t mtu() const override { return mtu_; }
  Wirex::MacAddress const& macAddress() const override { return macAddress_; }
  bool send(VlanId vlan, Wirex::IpAddr source, Wirex::IpAddr destination,
            Wirex::Bytes message) override;

  bool canSend() const override;
  template <class Change>
  void change(Change change);

  std::optional<Igmp::IgnoreReason> learnFrom(VlanId vlan, Igmp::Bytes bytes);
  std::optional<Igmp::IgnoreReason> hearPim(SnoopedVlan const& vlan,
                                            Igmp::EthernetFrame const& frame);
  void hear(VlanId vlan, SnoopedVlan const& snooped, Igmp::EthernetFrame const& frame,
            Igmp::Packet const& packet);
  void hear(SnoopedVlan const& snooped, Wirex::Bytes sourceMac, Igmp::Packet const& packet,
            Igmp::Query const& query);
  void hear(VlanId vlan, SnoopedVlan const& snooped, Wirex::IpAddr reporter,
            Igmp::GroupRecord const& record);
  void hear(VlanId vlan, SnoopedVlan const& snooped, Wirex::IpAddr reporter,
            Igmp::Leave const& leave);
  void inquire(VlanId vlan, SnoopedVlan const& snooped, Wirex::IpAddr group,
               QueryNeed const& withdrawal);
  void countIfIgnored(std::optional<Igmp::IgnoreReason> cause);

  Wirex::IntfId intfId_;
  bool receives_ = true;
  bool querierAllowed_ = true;
  bool routerAllowed_ = true;
  bool sends_ = false;
  Wirex::MacAddress macAddress_{};
  std::size_t mtu_ = 1500;
  Kel::Ptr<Wirex::Multiplexer> multiplexer_;
  Vlans vlans_;
  Kel::Table<VlanId, std::unique_ptr<ReceiveCounters>> counters_;
  ReceiveCounters countersInNoVlan_;
  ReceiveCounters* counting_ = &countersInNoVlan_;  // those of the frame that is being heard
};

}  // namespace Bridging::IgmpSnooping
