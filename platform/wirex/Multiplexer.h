#pragma once

#include <cstdint>
#include <optional>

#include "framework/kel/Collection.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"
#include "platform/wirex/Pam.h"

namespace Wirex {

class PortVlanPamManager;

/// What one interface's packets pass on their way between its device and the VLANs.
///
/// 1. A frame that comes in belongs to the VLAN of its 802.1Q tag, or without one, or with one
///    that carries a priority only, to the interface's default VLAN. The manager is handed it if
///    that VLAN is registered here.
/// 2. A frame that goes out in a VLAN gets a tag if the manager says so.
/// 3. It may outlive its place in the manager, held by the packet accesses that use it, and is put
///    back with its VLANs when the interface gets a multiplexer again. It has no device meanwhile.
class KEL_EXPORT Multiplexer final : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Multiplexer const> {
   public:
    virtual void onVlan(Bridging::VlanId /*vlan*/) {}
    virtual void onVlankelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Priority = std::uint8_t;
  using Vlans = Kel::Values<Bridging::VlanId, Priority, &NotifieeConst::onVlan>;

  /// What became of packets that found no way.
  struct Counters {
    std::uint64_t inNoVlan = 0;     ///< came in, in a VLAN that is not registered or in none
    std::uint64_t outNoDevice = 0;  ///< were to go out while no device was bound
    std::uint64_t outNoVlan = 0;    ///< were to go out in a VLAN that is not registered
  };

  Multiplexer(IntfId intfId, PortVlanPamManager* parent);
  ~Multiplexer() override;

  IntfId const& intfId() const { return intfId_; }
  Counters const& counters() const { return counters_; }
  /// For find-or-create: throws Kel::NameInUseException for another manager.
  void requireConstructedWith(PortVlanPamManager* parent) const;

  /// The registered VLANs, each with the 802.1p priority, 0 to 7, of the frames sent in it.
  Vlans const& vlan() const { return vlan_; }
  /// Registers a VLAN. Throws Kel::RangeException for a priority over 7.
  void vlanIs(Bridging::VlanId vlan, Priority priority);
  void vlanDel(Bridging::VlanId vlan) { vlan_.del(*this, vlan); }
  void vlanDelAll() { vlan_.delAll(*this); }
  void vlanNotify(Bridging::VlanId vlan) { vlan_.notify(*this, vlan); }
  void vlanNotify() { notify<&NotifieeConst::onVlankelImmediate>(); }

  /// The device that the interface sends and receives through; null while it has none.
  Kel::Ptr<Pam> devicePam() const;
  void devicePamIs(Kel::Ptr<Pam> const& device);

  /// Sends a frame in a VLAN. It has no tag yet, and room for one.
  void outputPktIs(Bridging::VlanId vlan, Pkt::Ptr pkt);

  void kelDoZombieReactors(bool zombie) override;

 private:
  friend class PortVlanPamManager;
  class KelDevicePam;

  void handleInputPkt(Pkt::PtrConst pkt);
  std::optional<Bridging::VlanId> vlanOf(Bytes frame) const;
  void managerIsGone() noexcept { manager_ = nullptr; }

  IntfId intfId_;
  PortVlanPamManager* manager_;  // null once it is destroyed
  Vlans vlan_;
  std::optional<Bridging::VlanId> defaultVlan_;
  Kel::Ptr<KelDevicePam> devicePam_;
  Counters counters_;
};

}  // namespace Wirex
